#!/usr/bin/env bash
# Builds and runs every videohdr measurement and prints its tables:
#   - x86 (this host, one core): median ms per call of the whole per-frame
#     call on both scenes (bench/scene.h), each of its stages and each kernel
#     (on the handheld scene) and the OpenCV peer at 1920x1080 and 2048x1280,
#     each also as a multiple of the read-three-write-one memory floor measured
#     in the same run, for three builds side by side: the portable code
#     (VIDEOHDR_X86_SIMD=OFF), the SSE4.1 instance and the AVX2 instance (the
#     last two where this processor runs them); then bench/digests.sh checks
#     that the three builds leave the same bytes;
#   - ARMv7-A and AArch64: instructions executed under qemu per luma pixel, for
#     the NEON build and for the same build running the portable variants
#     (VIDEOHDR_FORCE_PORTABLE): the whole call on both scenes, each stage of
#     the call on the handheld scene (bench/stages.h) and each kernel, each
#     counted as a run with it minus a run without it;
#   - what the alignment made of the handheld scene's camera moves.
#
# Usage: bench/run.sh [--quick] [--no-x86] [--no-arm] [--frame-only]
#   --quick       fewer x86 repetitions, 1920x1080 only, no digests and no ARM
#                 kernel counts (a first look, not a report)
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
check_digests=1
arm_parts="frame stages kernels"
for a in "$@"; do
  case "$a" in
    --quick) reps=${REPS:-3}; min_time=${MIN_TIME:-0.05}; filter=${FILTER:-1920x1080}
             arm_parts="frame stages"; check_digests=0 ;;
    --no-x86) run_x86=0 ;;
    --no-arm) run_arm=0 ;;
    --frame-only) run_x86=0; arm_parts="frame" ;;
    *) echo "unknown argument: $a" >&2; exit 2 ;;
  esac
done

source bench/builds.sh
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
started=$SECONDS

# x86.tsv: "build size name ms ratio repetitions" lines of all three builds.
: >"$out/x86.tsv"
if ((run_x86)); then
  for b in "${x86_builds[@]}"; do
    echo "x86: building and running videohdr_bench, ${b} (${reps} repetitions) ..." >&2
    build "${x86_dir[$b]}" -DVIDEOHDR_X86_SIMD="${x86_simd[$b]}"
    "${x86_dir[$b]}/bench/videohdr_bench" --benchmark_filter="$filter" \
      --benchmark_repetitions="$reps" --benchmark_enable_random_interleaving=true \
      --benchmark_min_time="$min_time" --summary_out="$out/x86-$b.tsv" >"$out/x86-$b.log" 2>&1 ||
      { cat "$out/x86-$b.log" >&2; exit 1; }
    awk -v b="$b" '{ print b "\t" $0 }' "$out/x86-$b.tsv" >>"$out/x86.tsv"
  done
  echo "x86: $((SECONDS - started)) s" >&2
  if ((check_digests)); then
    bash bench/digests.sh >"$out/digests.txt" 2>&1 || { cat "$out/digests.txt" >&2; exit 1; }
  fi
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
# of one kind ("call" or "kernel"), in x86 order, then the ARM-only ones. The
# x86 columns are, for each size, each x86 build's ms and multiple of its own
# run's floor.
joined_table() {  # joined_table KIND
  awk -F'\t' -v kind="$1" -v ncol="${#columns[@]}" -v cols="${columns[*]}" \
      -v builds="${x86_builds[*]}" '
    function kindOf(label) { return label ~ /^kernel\// ? "kernel" : label ~ /^stage\// ? "stage" : "call" }
    FILENAME == ARGV[1] { if (kindOf($1) == kind && !($1 in arm)) { arm[$1] = $0; armorder[++na] = $1 } next }
    kindOf($3) == kind {
      key = $3; size = $2
      if (!(key in have)) { have[key] = 1; order[++n] = key }
      if (!(size in sizeseen)) { sizeseen[size] = 1; sizes[++ns] = size }
      ms[key, size, $1] = $4; ratio[key, size, $1] = $5
    }
    END {
      for (i = 1; i <= na; i++) if (!(armorder[i] in have)) order[++n] = armorder[i]
      if (n == 0) exit
      split(cols, colname, " ")
      nb = split(builds, build, " ")
      printf "%-40s", ""
      for (s = 1; s <= ns; s++) printf " %-*s", 17 * nb - 1, sizes[s] ": ms, x floor"
      printf "\n%-40s", "case"
      for (s = 1; s <= ns; s++) for (b = 1; b <= nb; b++) printf " %16s", build[b]
      for (c = 1; c <= ncol; c++) printf " %15s", colname[c]
      printf "\n"
      for (i = 1; i <= n; i++) {
        k = order[i]
        printf "%-40s", k
        for (s = 1; s <= ns; s++) for (b = 1; b <= nb; b++) {
          if ((k, sizes[s], build[b]) in ms) printf " %9.3f %6.2f", ms[k, sizes[s], build[b]], ratio[k, sizes[s], build[b]]
          else printf " %9s %6s", "-", "-"
        }
        split(k in arm ? arm[k] : "", f, "\t")
        for (c = 1; c <= ncol; c++) printf " %15s", (k in arm) ? f[c + 1] : "-"
        printf "\n"
        if (k ~ /^frame_/ && ns > 0) {
          printf "%-40s", "  frames per second"
          for (s = 1; s <= ns; s++) for (b = 1; b <= nb; b++) {
            if ((k, sizes[s], build[b]) in ms) printf " %9.0f %6s", 1000 / ms[k, sizes[s], build[b]], ""
            else printf " %9s %6s", "-", ""
          }
          printf "\n"
        }
      }
    }' "$out/arm.tsv" "$out/x86.tsv"
}

# The x86 stages of the whole call on the handheld scene, each timed on its
# own (repeated on the state the stages before it leave, so with warmer caches
# than inside the call), their sum and the whole call, per size and build.
x86_stage_table() {
  awk -F'\t' -v builds="${x86_builds[*]}" '
    $3 ~ /^stage\// || $3 == "frame_handheld" {
      if ($3 ~ /^stage\// && !($3 in have)) { have[$3] = 1; order[++n] = $3 }
      if (!($2 in sizeseen)) { sizeseen[$2] = 1; sizes[++ns] = $2 }
      ms[$3, $2, $1] = $4; ratio[$3, $2, $1] = $5
      if ($3 ~ /^stage\//) { summs[$2, $1] += $4; sumratio[$2, $1] += $5 }
    }
    function line(label, key, m, r) {
      printf "%-40s", label
      for (s = 1; s <= ns; s++) for (b = 1; b <= nb; b++) {
        if ((key, sizes[s], build[b]) in ms) printf " %9.3f %6.2f", ms[key, sizes[s], build[b]], ratio[key, sizes[s], build[b]]
        else printf " %9s %6s", "-", "-"
      }
      printf "\n"
    }
    END {
      if (n == 0) exit
      nb = split(builds, build, " ")
      printf "%-40s", ""
      for (s = 1; s <= ns; s++) printf " %-*s", 17 * nb - 1, sizes[s] ": ms, x floor"
      printf "\n%-40s", "stage"
      for (s = 1; s <= ns; s++) for (b = 1; b <= nb; b++) printf " %16s", build[b]
      printf "\n"
      for (i = 1; i <= n; i++) line(order[i], order[i])
      for (s = 1; s <= ns; s++) for (b = 1; b <= nb; b++) if ((sizes[s], build[b]) in summs) {
        ms["sum", sizes[s], build[b]] = summs[sizes[s], build[b]]
        ratio["sum", sizes[s], build[b]] = sumratio[sizes[s], build[b]]
      }
      line("sum of the stages", "sum")
      line("whole call (frame_handheld)", "frame_handheld")
    }' "$out/x86.tsv"
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
((run_x86)) && echo "x86: one thread, median of ${reps} interleaved repetitions; 'x floor' = time / read-3-write-1 floor (same run);" \
  "builds: ${x86_builds[*]} (VIDEOHDR_X86_SIMD=OFF, SSE41, AVX2)"
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
if grep -q $'\tstage/' "$out/x86.tsv"; then
  echo
  echo "The whole call's stages on the handheld scene (x86, each stage timed on its own):"
  x86_stage_table
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
if [ -s "$out/digests.txt" ]; then
  echo
  tail -n 1 "$out/digests.txt"
fi
echo
echo "(took $((SECONDS - started)) s; raw results in $out: x86.tsv, x86-BUILD.log (per run), arm.tsv)"
