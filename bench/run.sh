#!/usr/bin/env bash
# Builds and runs every videohdr measurement and prints its tables:
#   - x86 (this host, one core): median ms per call of the whole per-frame
#     call on both scenes (bench/scene.h), each kernel (on the handheld scene)
#     and the OpenCV peer at 1920x1080 and 2048x1280, each also as a multiple
#     of the read-three-write-one memory floor measured in the same run;
#   - ARMv7-A and AArch64: instructions executed under qemu per luma pixel, for
#     the NEON build and for the same build running the portable variants
#     (VIDEOHDR_FORCE_PORTABLE): the whole call on both scenes, each stage of
#     the call on the handheld scene (bench/stages.h) and each kernel, each
#     counted as a run with it minus a run without it;
#   - what the alignment made of the handheld scene's camera moves.
#
# Usage: bench/run.sh [--quick] [--no-x86] [--no-arm] [--frame-only]
#   --quick       fewer x86 repetitions, 1920x1080 only, and no ARM kernel
#                 counts (a first look, not a report)
#   --frame-only  the ARM whole-call counts only: no x86, no stages, no kernels
#                 (the quick check after a change)
# Environment: REPS (x86 repetitions, default 5), MIN_TIME (seconds per
# repetition, default 0.2), FILTER (a Google Benchmark regex applied to the x86
# run), ARM_SIZE (default 1920x1080), ARM_ARCHS (the ARM builds, default
# "armv7 aarch64"),
# FRAMES (handheld frames per whole-call and stage count, default 16).
set -euo pipefail
cd "$(dirname "$0")/.."

reps=${REPS:-5}
min_time=${MIN_TIME:-0.2}
arm_size=${ARM_SIZE:-1920x1080}
filter=${FILTER:-.}
read -r -a arm_archs <<<"${ARM_ARCHS:-armv7 aarch64}"
frames=${FRAMES:-16}
run_x86=1
run_arm=1
arm_parts="frame stages kernels"
for a in "$@"; do
  case "$a" in
    --quick) reps=${REPS:-3}; min_time=${MIN_TIME:-0.05}; filter=${FILTER:-1920x1080}
             arm_parts="frame stages" ;;
    --no-x86) run_x86=0 ;;
    --no-arm) run_arm=0 ;;
    --frame-only) run_x86=0; arm_parts="frame" ;;
    *) echo "unknown argument: $a" >&2; exit 2 ;;
  esac
done

declare -A toolchain=([armv7]=cmake/armv7-linux-gnueabihf.cmake
                      [aarch64]=cmake/aarch64-linux-gnu.cmake)
declare -A emulator=([armv7]="qemu-arm -L /usr/arm-linux-gnueabihf"
                     [aarch64]="qemu-aarch64 -L /usr/aarch64-linux-gnu")
declare -A compiler=([armv7]=arm-linux-gnueabihf-g++ [aarch64]=aarch64-linux-gnu-g++)
for arch in "${arm_archs[@]}"; do
  [ -n "${toolchain[$arch]:-}" ] || { echo "unknown ARM architecture: $arch" >&2; exit 2; }
done
# The table's ARM columns, whichever of them this run fills.
columns=(armv7-neon armv7-portable aarch64-neon aarch64-portable)

packages=(cmake ninja-build g++ libbenchmark-dev libsimde-dev libopencv-photo-dev
          g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user xz-utils)
source scripts/ensure_packages.sh
ensure_packages "${packages[@]}"

out=build/bench-results
mkdir -p "$out"
common=(-G Ninja -DCMAKE_BUILD_TYPE=Release -DVIDEOHDR_BUILD_BENCH=ON -DVIDEOHDR_BUILD_TESTS=OFF
        -DVIDEOHDR_BUILD_TOOLS=OFF)
build() {  # build DIR [cmake args...]
  local dir=$1
  shift
  # The toolchain file counts only when a build directory is first made.
  cmake -S . -B "$dir" --no-warn-unused-cli "${common[@]}" "$@" >/dev/null
  cmake --build "$dir" -j "$(nproc)" >/dev/null
}
started=$SECONDS

: >"$out/x86.tsv"
if ((run_x86)); then
  echo "x86: building and running videohdr_bench (${reps} repetitions) ..." >&2
  build build/bench-host
  build/bench-host/bench/videohdr_bench --benchmark_filter="$filter" \
    --benchmark_repetitions="$reps" --benchmark_enable_random_interleaving=true \
    --benchmark_min_time="$min_time" --summary_out="$out/x86.tsv" >"$out/x86.log" 2>&1 ||
    { cat "$out/x86.log" >&2; exit 1; }
  echo "x86: $((SECONDS - started)) s" >&2
fi

w=${arm_size%x*}
h=${arm_size#*x}
builds=()
count() {  # count BUILD SCENE CASE REPS run|skip
  ${emulator[${1%-*}]} -plugin build/qemu-icount/icount.so -d plugin \
    "build/bench-$1/bench/videohdr_icount" --scene="$2" "$3" "$w" "$h" "$4" "$5" 2>&1 >/dev/null |
    sed -n 's/^insns: //p'
}
per_pixel() {  # per_pixel BUILD SCENE CASE REPS
  local with without
  with=$(count "$1" "$2" "$3" "$4" run)
  without=$(count "$1" "$2" "$3" "$4" skip)
  awk -v a="$with" -v b="$without" -v n="$4" -v p=$((w * h)) 'BEGIN { printf "%.3f", (a - b) / (n * p) }'
}
arm_row() {  # arm_row LABEL SCENE CASE REPS: one figure per column ("-" for builds not made)
  local line=$1 column
  echo "  counting $1 ..." >&2
  for column in "${columns[@]}"; do
    if [[ " ${builds[*]} " == *" $column "* ]]; then
      line+=$'\t'$(per_pixel "$column" "$2" "$3" "$4")
    else
      line+=$'\t-'
    fi
  done
  printf '%s\n' "$line" >>"$out/arm.tsv"
}
# The stages must give the call's bytes, or their counts would be of
# something else; the alignment's shifts are the same in every build.
check_stages() {  # check_stages BUILD
  ${emulator[${1%-*}]} "build/bench-$1/bench/videohdr_icount" --scene=handheld check-stages \
    "$w" "$h" "$frames" >"$out/stages-$1.txt" ||
    { cat "$out/stages-$1.txt" >&2; echo "bench/stages.cpp no longer follows the call" >&2; exit 1; }
}

: >"$out/arm.tsv"
: >"$out/shifts.txt"
if ((run_arm)); then
  for arch in "${arm_archs[@]}"; do
    echo "${arch}: building the NEON and the portable runner ..." >&2
    build "build/bench-$arch-neon" -DCMAKE_TOOLCHAIN_FILE="${toolchain[$arch]}"
    build "build/bench-$arch-portable" -DCMAKE_TOOLCHAIN_FILE="${toolchain[$arch]}" \
      -DVIDEOHDR_FORCE_PORTABLE=ON
    builds+=("$arch-neon" "$arch-portable")
  done
  [ -s build/qemu-icount/icount.so ] || bash bench/qemu-icount/build.sh build/qemu-icount >&2
  counting=$SECONDS
  # The pan's two frames as in earlier reports; the handheld scene's first
  # FRAMES frames after the fixture's warm-up.
  arm_row frame_pan pan frame 2
  arm_row frame_handheld handheld frame "$frames"
  if [[ $arm_parts == *stages* ]]; then
    for b in "${builds[@]}"; do check_stages "$b"; done
    tail -n +2 "$out/stages-${builds[0]}.txt" >"$out/shifts.txt"
    while read -r name; do
      arm_row "$name" handheld "$name" "$frames"
    done < <(${emulator[${builds[0]%-*}]} "build/bench-${builds[0]}/bench/videohdr_icount" list |
             grep '^stage/')
  fi
  if [[ $arm_parts == *kernels* ]]; then
    while read -r name; do
      arm_row "kernel/$name" handheld "$name" 1
    done < <(${emulator[${builds[0]%-*}]} "build/bench-${builds[0]}/bench/videohdr_icount" list |
             grep -v -e '^frame$' -e '^stage/')
  fi
  echo "ARM: counting took $((SECONDS - counting)) s" >&2
fi

# Both tables of x86 and ARM figures: ARM rows (file 1) and x86 rows (file 2)
# of one kind ("call" or "kernel"), in x86 order, then the ARM-only ones.
joined_table() {  # joined_table KIND
  awk -F'\t' -v kind="$1" -v ncol="${#columns[@]}" -v cols="${columns[*]}" '
    function kindOf(label) { return label ~ /^kernel\// ? "kernel" : label ~ /^stage\// ? "stage" : "call" }
    FILENAME == ARGV[1] { if (kindOf($1) == kind && !($1 in arm)) { arm[$1] = $0; armorder[++na] = $1 } next }
    kindOf($2) == kind {
      key = $2; size = $1
      if (!(key in have)) { have[key] = 1; order[++n] = key }
      if (!(size in sizeseen)) { sizeseen[size] = 1; sizes[++ns] = size }
      ms[key, size] = $3; ratio[key, size] = $4
    }
    END {
      for (i = 1; i <= na; i++) if (!(armorder[i] in have)) order[++n] = armorder[i]
      if (n == 0) exit
      split(cols, colname, " ")
      printf "%-40s", "case"
      for (s = 1; s <= ns; s++) printf "%13s %8s", sizes[s] " ms", "x floor"
      for (c = 1; c <= ncol; c++) printf " %15s", colname[c]
      printf "\n"
      for (i = 1; i <= n; i++) {
        k = order[i]
        printf "%-40s", k
        for (s = 1; s <= ns; s++) {
          if ((k, sizes[s]) in ms) printf "%13.3f %8.2f", ms[k, sizes[s]], ratio[k, sizes[s]]
          else printf "%13s %8s", "-", "-"
        }
        split(k in arm ? arm[k] : "", f, "\t")
        for (c = 1; c <= ncol; c++) printf " %15s", (k in arm) ? f[c + 1] : "-"
        printf "\n"
        if (k ~ /^frame_/ && ns > 0) {
          printf "%-40s", "  frames per second"
          for (s = 1; s <= ns; s++)
            if ((k, sizes[s]) in ms) printf "%13.0f %8s", 1000 / ms[k, sizes[s]], ""
            else printf "%13s %8s", "-", ""
          printf "\n"
        }
      }
    }' "$out/arm.tsv" "$out/x86.tsv"
}

# The stages' counts, their sum, and what the whole call adds to them.
stage_table() {
  awk -F'\t' -v ncol="${#columns[@]}" -v cols="${columns[*]}" '
    $1 == "frame_handheld" { for (c = 2; c <= ncol + 1; c++) whole[c] = $c }
    $1 ~ /^stage\// { rows[++n] = $0; for (c = 2; c <= ncol + 1; c++) sum[c] += $c }
    function line(label, values) {
      printf "%-40s", label
      for (c = 2; c <= ncol + 1; c++) printf " %15s", values[c]
      printf "\n"
    }
    END {
      if (n == 0) exit
      split(cols, colname, " ")
      printf "%-40s", "stage"
      for (c = 1; c <= ncol; c++) printf " %15s", colname[c]
      printf "\n"
      for (i = 1; i <= n; i++) { split(rows[i], f, "\t"); line(f[1], f) }
      for (c = 2; c <= ncol + 1; c++) {
        known = whole[c] != "-" && whole[c] != ""
        total[c] = known ? sprintf("%.3f", sum[c]) : "-"
        rest[c] = known ? sprintf("%.3f", whole[c] - sum[c]) : "-"
      }
      line("sum of the stages", total)
      line("rest of the call (driver, logs)", rest)
      line("whole call (frame_handheld)", whole)
    }' "$out/arm.tsv"
}

cpu=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n1)
echo
echo "videohdr performance  $(date -u '+%Y-%m-%d %H:%M UTC')  $(git rev-parse --short HEAD 2>/dev/null || true)"
echo "host: ${cpu:-unknown CPU}, $(nproc) cores, $(uname -sr); $(g++ --version | head -n1)"
((run_x86)) && echo "x86: one thread, median of ${reps} interleaved repetitions; 'x floor' = time / read-3-write-1 floor (same run)"
for arch in "${arm_archs[@]}"; do
  echo "${arch}: $(${compiler[$arch]} --version | head -n1), ${emulator[$arch]%% *}"
done
echo "ARM figures: executed instructions per luma pixel at ${arm_size}, NEON build and the same with the"
echo "  portable variants; frame_pan over 2 frames, frame_handheld and the stages over ${frames} frames"
echo
echo "The whole call:"
joined_table call
if [ -s "$out/shifts.txt" ]; then
  echo
  echo "The handheld scene at ${arm_size}: $(cat "$out/shifts.txt")"
fi
if grep -q '^stage/' "$out/arm.tsv"; then
  echo
  echo "The whole call's stages on the handheld scene (ARM instructions per luma pixel):"
  stage_table
fi
if grep -q 'kernel/' "$out/arm.tsv" "$out/x86.tsv"; then
  echo
  echo "Kernels (handheld scene, state after its first frames):"
  joined_table kernel
fi
echo
echo "(took $((SECONDS - started)) s; raw results in $out: x86.tsv, x86.log (per run), arm.tsv)"
