#!/usr/bin/env bash
# Builds and runs every videohdr measurement and prints one table:
#   - x86 (this host, one core): median ms per call of the whole per-frame call,
#     each kernel and the OpenCV peer at 1920x1080 and 2048x1280, each also as a
#     multiple of the read-three-write-one memory floor measured in the same run;
#   - ARMv7-A: instructions executed under qemu-arm per luma pixel, for the NEON
#     build and for the same build running the portable variants
#     (VIDEOHDR_FORCE_PORTABLE), each case counted as a run with it minus a run
#     without it.
#
# Usage: bench/run.sh [--quick] [--no-x86] [--no-arm]
#   --quick    fewer repetitions, 1920x1080 only (a first look, not a report)
# Environment: REPS (x86 repetitions, default 5), MIN_TIME (seconds per
# repetition, default 0.2), ARM_SIZE (default 1920x1080), FILTER (a Google
# Benchmark regex applied to the x86 run).
set -euo pipefail
cd "$(dirname "$0")/.."

reps=${REPS:-5}
min_time=${MIN_TIME:-0.2}
arm_size=${ARM_SIZE:-1920x1080}
filter=${FILTER:-.}
run_x86=1
run_arm=1
for a in "$@"; do
  case "$a" in
    --quick) reps=${REPS:-3}; min_time=${MIN_TIME:-0.05}; filter=${FILTER:-1920x1080} ;;
    --no-x86) run_x86=0 ;;
    --no-arm) run_arm=0 ;;
    *) echo "unknown argument: $a" >&2; exit 2 ;;
  esac
done

packages=(cmake ninja-build g++ libbenchmark-dev libsimde-dev libopencv-photo-dev
          g++-arm-linux-gnueabihf qemu-user xz-utils)
source scripts/ensure_packages.sh
ensure_packages "${packages[@]}"

out=build/bench-results
mkdir -p "$out"
common=(-G Ninja -DCMAKE_BUILD_TYPE=Release -DVIDEOHDR_BUILD_BENCH=ON -DVIDEOHDR_BUILD_TESTS=OFF
        -DVIDEOHDR_BUILD_TOOLS=OFF)
build() {  # build DIR [cmake args...]
  local dir=$1
  shift
  cmake -S . -B "$dir" "${common[@]}" "$@" >/dev/null
  cmake --build "$dir" -j "$(nproc)" >/dev/null
}

: >"$out/x86.tsv"
if ((run_x86)); then
  echo "x86: building and running videohdr_bench (${reps} repetitions) ..." >&2
  build build/bench-host
  build/bench-host/bench/videohdr_bench --benchmark_filter="$filter" \
    --benchmark_repetitions="$reps" --benchmark_enable_random_interleaving=true \
    --benchmark_min_time="$min_time" --summary_out="$out/x86.tsv" >"$out/x86.log" 2>&1 ||
    { cat "$out/x86.log" >&2; exit 1; }
fi

: >"$out/arm.tsv"
if ((run_arm)); then
  echo "ARMv7-A: building the NEON and the portable runner and the qemu plugin ..." >&2
  arm=(-DCMAKE_TOOLCHAIN_FILE=cmake/armv7-linux-gnueabihf.cmake)
  build build/bench-armv7-neon "${arm[@]}"
  build build/bench-armv7-portable "${arm[@]}" -DVIDEOHDR_FORCE_PORTABLE=ON
  [ -s build/qemu-icount/icount.so ] || bash bench/qemu-icount/build.sh build/qemu-icount >&2
  w=${arm_size%x*}
  h=${arm_size#*x}
  count() {  # count VARIANT CASE REPS run|skip
    qemu-arm -L /usr/arm-linux-gnueabihf -plugin build/qemu-icount/icount.so -d plugin \
      "build/bench-armv7-$1/bench/videohdr_icount" "$2" "$w" "$h" "$3" "$4" 2>&1 >/dev/null |
      sed -n 's/^insns: //p'
  }
  per_pixel() {  # per_pixel VARIANT CASE REPS
    local with without
    with=$(count "$1" "$2" "$3" run)
    without=$(count "$1" "$2" "$3" skip)
    awk -v a="$with" -v b="$without" -v n="$3" -v p=$((w * h)) 'BEGIN { printf "%.3f", (a - b) / (n * p) }'
  }
  while read -r name; do
    echo "  counting $name ..." >&2
    # Two frames: the per-frame call's work depends a little on the content.
    n=1
    [ "$name" = frame ] && n=2
    label=$name
    [ "$name" = frame ] || label="kernel/$name"
    printf '%s\t%s\t%s\n' "$label" "$(per_pixel neon "$name" $n)" \
      "$(per_pixel portable "$name" $n)" >>"$out/arm.tsv"
  done < <(qemu-arm -L /usr/arm-linux-gnueabihf build/bench-armv7-neon/bench/videohdr_icount list)
fi

cpu=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n1)
echo
echo "videohdr performance  $(date -u '+%Y-%m-%d %H:%M UTC')  $(git rev-parse --short HEAD 2>/dev/null || true)"
echo "host: ${cpu:-unknown CPU}, $(nproc) cores, $(uname -sr); $(g++ --version | head -n1)"
echo "x86: one thread, median of ${reps} interleaved repetitions; 'x floor' = time / read-3-write-1 floor (same run)"
echo "ARM: $(arm-linux-gnueabihf-g++ --version | head -n1), -march=armv7-a -mfpu=neon, qemu-arm;"
echo "     executed instructions per luma pixel at ${arm_size}: NEON build, and the same with the portable variants"
echo
awk -F'\t' -v armsize="$arm_size" '
  FNR == NR { neon[$1] = $2; port[$1] = $3; if (!($1 in seen)) { seen[$1] = 1; armorder[++na] = $1 } next }
  {
    key = $2; size = $1
    if (!(key in have)) { have[key] = 1; order[++n] = key }
    if (!(size in sizeseen)) { sizeseen[size] = 1; sizes[++ns] = size }
    ms[key, size] = $3; ratio[key, size] = $4
  }
  END {
    for (i = 1; i <= na; i++) if (!(armorder[i] in have)) order[++n] = armorder[i]
    printf "%-34s", "case"
    for (s = 1; s <= ns; s++) printf "%13s %8s", sizes[s] " ms", "x floor"
    printf "%12s %12s\n", "ARM NEON", "ARM portable"
    for (i = 1; i <= n; i++) {
      k = order[i]
      printf "%-34s", k
      for (s = 1; s <= ns; s++) {
        if ((k, sizes[s]) in ms) printf "%13.3f %8.2f", ms[k, sizes[s]], ratio[k, sizes[s]]
        else printf "%13s %8s", "-", "-"
      }
      if (k in neon) printf "%12s %12s\n", neon[k], port[k]; else printf "%12s %12s\n", "-", "-"
      if (k == "frame") {
        printf "%-34s", "  frames per second"
        for (s = 1; s <= ns; s++)
          if (("frame", sizes[s]) in ms) printf "%13.0f %8s", 1000 / ms["frame", sizes[s]], ""
          else printf "%13s %8s", "-", ""
        printf "\n"
      }
    }
  }' "$out/arm.tsv" "$out/x86.tsv"
echo
echo "(per-run details: $out/x86.log; raw results: $out/x86.tsv, $out/arm.tsv)"
