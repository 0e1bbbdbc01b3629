#!/usr/bin/env bash
# Installs what the tests need (Debian), then builds and runs every test suite
# in each configuration: x86-64 host (with the Java binding's JUnit tests and
# the GStreamer element's), ARMv7-A NEON and AArch64 under qemu (the JNI
# library built, not run; no GStreamer for those targets), and a host build
# with AddressSanitizer + UndefinedBehaviorSanitizer; then every
# libFuzzer target for an even share of 200 s (scripts/fuzz.sh) and every host
# test binary under valgrind memcheck (scripts/valgrind.sh).
# Usage: scripts/test.sh [host|armv7|aarch64|asan|fuzz|valgrind ...]   (default: all)
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake ninja-build g++ googletest libgtest-dev libbenchmark-dev libsimde-dev
          g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user pkg-config
          binutils-arm-linux-gnueabihf binutils-aarch64-linux-gnu
          libjpeg-dev libpng-dev libyuv-dev libcli11-dev openjdk-17-jdk-headless junit4
          libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-tools
          gstreamer1.0-plugins-base)
source scripts/ensure_packages.sh
ensure_packages "${packages[@]}"

jobs=$(nproc)
configs=("$@")
((${#configs[@]})) || configs=(host armv7 aarch64 asan fuzz valgrind)

run_config() {
  local name=$1
  shift
  echo "=== ${name} ==="
  cmake -S . -B "build/${name}" -G Ninja "$@" >/dev/null
  cmake --build "build/${name}" -j "${jobs}"
  ctest --test-dir "build/${name}" --output-on-failure -j "${jobs}"
}

for c in "${configs[@]}"; do
  case "$c" in
    host) run_config host -DCMAKE_BUILD_TYPE=Release -DVIDEOHDR_BUILD_JAVA=ON -DVIDEOHDR_BUILD_GST=ON ;;
    armv7) run_config armv7 -DCMAKE_BUILD_TYPE=Release -DVIDEOHDR_BUILD_JAVA=ON \
             -DCMAKE_TOOLCHAIN_FILE=cmake/armv7-linux-gnueabihf.cmake -DVIDEOHDR_BUILD_TOOLS=OFF ;;
    aarch64) run_config aarch64 -DCMAKE_BUILD_TYPE=Release -DVIDEOHDR_BUILD_JAVA=ON \
               -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake -DVIDEOHDR_BUILD_TOOLS=OFF ;;
    asan) ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
            run_config asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVIDEOHDR_SANITIZE=ON ;;
    fuzz) echo "=== fuzz ===" && bash scripts/fuzz.sh --total 200 ;;
    valgrind) echo "=== valgrind ===" && bash scripts/valgrind.sh ;;
    *) echo "unknown configuration: $c" >&2; exit 2 ;;
  esac
done
echo "all configurations passed: ${configs[*]}"
