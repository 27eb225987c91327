#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the libFuzzer targets with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer into BUILD_DIR (default build-fuzz) and runs each
# for FUZZ_SECONDS (default 60) from its seed corpus fuzz/corpus/<target>
# with its dictionary fuzz/<target>.dict and leak detection on. A crash, a
# sanitizer report, a leak or an input that runs longer than 10 seconds fails
# the run; the input that did it is kept under BUILD_DIR/fuzz-runs/<target>.
# Prints per target how long it ran without a finding, its executions and the
# coverage libFuzzer reported at the end. With FUZZ_MERGE=1 the inputs that
# add coverage are merged into the checked-in corpora afterwards.
# Extra arguments go to cmake's configure step.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${BUILD_DIR:-build-fuzz}
seconds=${FUZZ_SECONDS:-60}

CC=clang CXX=clang++ cmake -S . -B "$build_dir" -G Ninja -DTETHERHOST_BUILD_FUZZ=ON -DTETHERHOST_SANITIZE=ON \
  -DTETHERHOST_BUILD_TESTS=OFF -DTETHERHOST_BUILD_BENCH=OFF -DTETHERHOST_BUILD_TOOLS=OFF "$@"
# Only the fuzzers and their replays: the shared library does not link with
# clang's sanitizer runtime, which goes into executables only.
targets=()
for corpus in fuzz/corpus/*/; do
  targets+=("fuzz_$(basename "$corpus")" "fuzz_replay_$(basename "$corpus")")
done
cmake --build "$build_dir" -j "${JOBS:-$(nproc)}" --target "${targets[@]}"

export ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=1
export UBSAN_OPTIONS=${UBSAN_OPTIONS:+$UBSAN_OPTIONS:}print_stacktrace=1:halt_on_error=1

# The largest input per target: room for a whole session of frames or records.
declare -A max_len=([client_replies]=8192 [client_stream]=8192 [sim_session]=8192 [frame_reader]=4096 [message_output]=2048 [svf_reader]=4096)

failed=()
summary=()
for corpus in fuzz/corpus/*/; do
  target=$(basename "$corpus")
  binary=$build_dir/bin/fuzz_$target
  [ -x "$binary" ] || { echo "fuzz_$target was not built" >&2; exit 1; }
  work=$build_dir/fuzz-runs/$target
  rm -rf "$work"
  mkdir -p "$work/corpus" "$work/findings"
  echo "== fuzz_$target for ${seconds}s"
  status=0
  "$binary" -max_total_time="$seconds" -detect_leaks=1 -timeout=10 -max_len="${max_len[$target]:-4096}" \
    -dict="fuzz/$target.dict" -artifact_prefix="$work/findings/" -print_final_stats=1 \
    "$work/corpus" "$corpus" >"$work/log" 2>&1 || status=$?
  ran=$(sed -n 's/^Done \([0-9]*\) runs in \([0-9]*\) second.*/\1 runs in \2 s/p' "$work/log" | tail -1)
  stats=$(grep -E '^#[0-9]+' "$work/log" | tail -1 | grep -oE 'cov: [0-9]+ ft: [0-9]+ corp: [0-9]+/[0-9]+[a-zA-Z]*' || true)
  if [ "$status" -ne 0 ]; then
    failed+=("$target")
    summary+=("$(printf '%-16s FAILED (exit %d) after %s; %s; see %s' "$target" "$status" "${ran:-?}" "$stats" "$work")")
    tail -40 "$work/log"
  else
    summary+=("$(printf '%-16s no finding, %s; %s' "$target" "$ran" "$stats")")
  fi
  if [ "${FUZZ_MERGE:-0}" = 1 ] && [ "$status" -eq 0 ]; then
    "$binary" -merge=1 -max_len="${max_len[$target]:-4096}" "$corpus" "$work/corpus" >"$work/merge.log" 2>&1
  fi
done

echo "== fuzzing summary"
printf '%s\n' "${summary[@]}"
[ ${#failed[@]} -eq 0 ] || { echo "findings in: ${failed[*]}" >&2; exit 1; }
