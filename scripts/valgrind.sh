#!/usr/bin/env bash
# Runs every host test binary under valgrind memcheck: any invalid access, use
# of uninitialised memory or definite/indirect leak fails the run.
# Usage: scripts/valgrind.sh
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(valgrind cmake ninja-build g++ googletest libgtest-dev libsimde-dev)
source scripts/ensure_packages.sh
ensure_packages "${packages[@]}"

cmake -S . -B build/valgrind -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVIDEOHDR_BUILD_TOOLS=OFF -DVIDEOHDR_BUILD_JAVA=OFF -DVIDEOHDR_BUILD_GST=OFF >/dev/null
cmake --build build/valgrind -j "$(nproc)"

failed=()
for t in build/valgrind/tests/*_tests build/valgrind/planes/tests/*_tests; do
  [ -x "$t" ] || continue
  echo "=== valgrind $(basename "$t") ==="
  if ! valgrind --tool=memcheck --error-exitcode=99 --leak-check=full \
      --errors-for-leak-kinds=definite,indirect --show-leak-kinds=definite,indirect \
      --track-origins=yes -q "$t" --gtest_brief=1 >"build/valgrind/$(basename "$t").log" 2>&1; then
    tail -n 40 "build/valgrind/$(basename "$t").log"
    failed+=("$(basename "$t")")
  fi
done
if ((${#failed[@]})); then
  echo "valgrind found errors in: ${failed[*]}" >&2
  exit 1
fi
echo "valgrind clean"
