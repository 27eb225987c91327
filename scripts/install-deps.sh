#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs, as root on Debian 12, every package the build, the tests and the
# benchmarks need. Safe to run again.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
# wireshark-common (under tshark) asks whether to make dumpcap setuid for a
# wireshark group; the tests capture as root in namespaces of their own.
echo "wireshark-common wireshark-common/install-setuid boolean false" | debconf-set-selections
packages=(
  cmake ninja-build g++ pkg-config binutils libc-dev-bin sysvinit-utils iproute2 python3
  qt6-base-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libasio-dev libcli11-dev nlohmann-json3-dev
  doxygen
  help2man abigail-tools dpkg-dev file
  python3-dev python3-pybind11 pybind11-dev python3-pytest
  openocd openfpgaloader
  tshark
  clang libclang-rt-14-dev clang-format clang-tidy cppcheck valgrind
)
if [ "${TETHERHOST_QT5:-0}" = 1 ]; then packages+=(qtbase5-dev); fi
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
