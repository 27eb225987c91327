#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Static analysis of the whole tree with the checked-in configurations:
# clang-format (.clang-format: every C++ file is formatted), clang-tidy
# (.clang-tidy) and cppcheck (the checks below and .cppcheck-suppressions),
# the last two over every translation unit of a clang configuration with
# CMAKE_EXPORT_COMPILE_COMMANDS=ON in BUILD_DIR (default build-analyze),
# the tests, tools, benchmarks and fuzz targets included.
# Nothing is compiled but what the sources include from the build: the
# message texts and the session layer's generated command header. A finding
# of any tool fails the run. Extra arguments go to cmake's configure step.
set -euo pipefail
cd "$(dirname "$0")/.."
source_dir=$(pwd)
build_dir=${BUILD_DIR:-build-analyze}
jobs=${JOBS:-$(nproc)}
run_clang_tidy=$(command -v run-clang-tidy-14 || command -v run-clang-tidy) || {
  echo "run-clang-tidy is not installed" >&2
  exit 1
}

# The fuzz targets are part of the tree only in a fuzzing configuration,
# which takes clang and the sanitizers.
CC=clang CXX=clang++ cmake -S . -B "$build_dir" -G Ninja -DCMAKE_EXPORT_COMPILE_COMMANDS=ON \
  -DTETHERHOST_BUILD_FUZZ=ON -DTETHERHOST_SANITIZE=ON -DTETHERHOST_BUILD_TESTS=ON \
  -DTETHERHOST_BUILD_TOOLS=ON -DTETHERHOST_BUILD_BENCH=ON "$@" >/dev/null
cmake --build "$build_dir" --target tetherhost_catalogues tetherhost_commands_header >/dev/null

status=0
echo "== clang-format"
# Every C++ source and header that git tracks, the test data aside.
git ls-files -z '*.cpp' '*.h' ':!:tests/data/**' | xargs -0 clang-format --dry-run --Werror || status=1

echo "== clang-tidy"
# Only the project's own sources, not what a build folder inside the tree
# holds, nor the source that tests/layout keeps to prove it does not compile.
if ! "$run_clang_tidy" -p "$build_dir" -j "$jobs" -quiet "^$source_dir/(?!build|tests/layout/WireIncludesClient)" \
  >"$build_dir/clang-tidy.log" 2>&1; then
  status=1
fi
# run-clang-tidy always asks for colour; the findings are shown without it.
sed 's/\x1b\[[0-9;]*m//g' "$build_dir/clang-tidy.log" | grep -E '(warning|error): ' | sort -u || true

echo "== cppcheck"
cppcheck --project="$build_dir/compile_commands.json" --std=c++20 \
  --enable=warning,performance,portability --library=googletest --library=qt \
  --suppressions-list=.cppcheck-suppressions --inline-suppr -itests/layout/WireIncludesClient.cpp --error-exitcode=1 -j "$jobs" --quiet \
  --template='{file}:{line}: {severity}: {message} [{id}]' || status=1

if [ "$status" -eq 0 ]; then echo "== analysis clean"; else echo "== analysis found problems" >&2; fi
exit "$status"
