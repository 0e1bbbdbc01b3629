#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, AddressSanitizer + UndefinedBehaviorSanitizer)
# and runs each for SECONDS (default 40), starting from its checked-in seed
# corpus in fuzz/corpus/<target>. Any crash, leak or sanitizer report fails.
# New inputs go to build/fuzz/corpus/<target>, never into the repository.
# With --total, SECONDS is the budget of the whole run, split evenly across
# the targets (CI: 200 s over five targets).
# Usage: scripts/fuzz.sh [--total] [SECONDS [TARGET ...]]
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(clang-14 libclang-rt-14-dev cmake ninja-build libsimde-dev)
source scripts/ensure_packages.sh
ensure_packages "${packages[@]}"

split=0
if [ "${1:-}" = "--total" ]; then
  split=1
  shift
fi
seconds=${1:-40}
shift || true
targets=("$@")
if ((${#targets[@]} == 0)); then
  for f in fuzz/fuzz_*.cpp; do
    t=${f#fuzz/fuzz_}
    targets+=("${t%.cpp}")
  done
fi
if ((split)); then
  seconds=$((seconds / ${#targets[@]}))
  ((seconds > 0)) || seconds=1
fi

cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
  -DVIDEOHDR_SANITIZE=ON -DVIDEOHDR_FUZZ=ON -DVIDEOHDR_BUILD_TESTS=OFF \
  -DVIDEOHDR_BUILD_TOOLS=OFF -DVIDEOHDR_BUILD_JAVA=OFF -DVIDEOHDR_BUILD_GST=OFF >/dev/null
cmake --build build/fuzz -j "$(nproc)"

export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
for t in "${targets[@]}"; do
  echo "=== fuzz_${t}: ${seconds} s ==="
  work="build/fuzz/corpus/${t}"
  mkdir -p "$work"
  log="build/fuzz/fuzz_${t}.log"
  if ! "build/fuzz/fuzz/fuzz_${t}" -max_total_time="$seconds" -rss_limit_mb=4096 \
      -timeout=60 -print_final_stats=1 -artifact_prefix="build/fuzz/${t}-" \
      "$work" "fuzz/corpus/${t}" >"$log" 2>&1; then
    tail -n 60 "$log"
    echo "fuzz_${t} failed (log: $log)" >&2
    exit 1
  fi
  grep -E "stat::number_of_executed_units|stat::peak_rss_mb" "$log" || true
done
echo "fuzzing passed: ${targets[*]}"
