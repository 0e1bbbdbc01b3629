#!/usr/bin/env bash
# Checks that every build leaves the same bytes: runs bench/videohdr_digest (a
# digest of every buffer the per-frame call leaves, after each frame) at
# 1920x1080, 1366x768, 1288x724 and 2560x1024 on the synthetic pan, and on the
# handheld scene where its photograph is large enough (up to 2048 pixels
# wide; bench/scene.h), with the x86 builds of
# bench/builds.sh (the portable code, the SSE4.1 and the AVX2 instance; a
# build whose instance this processor lacks runs the widest one it has) and,
# with --arm, the ARMv7-A and AArch64 NEON builds under qemu. Fails, showing
# the first lines that differ, when any build's digests are not the portable
# build's.
#
# Usage: bench/digests.sh [--arm]
# Environment: FRAMES (frames per scene and size, default 6), SIZES (default
# the four above).
set -euo pipefail
cd "$(dirname "$0")/.."

frames=${FRAMES:-6}
read -r -a sizes <<<"${SIZES:-1920x1080 1366x768 1288x724 2560x1024}"
arm=0
for a in "$@"; do
  case "$a" in
    --arm) arm=1 ;;
    *) echo "unknown argument: $a" >&2; exit 2 ;;
  esac
done

source bench/builds.sh
packages=(cmake ninja-build g++ libbenchmark-dev libsimde-dev)
((arm)) && packages+=(g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user)
source scripts/ensure_packages.sh
ensure_packages "${packages[@]}"

out=build/bench-results/digests
mkdir -p "$out"
names=()
declare -A runner
for b in "${x86_builds[@]}"; do
  echo "digests: building ${b} ..." >&2
  build "${x86_dir[$b]}" -DVIDEOHDR_X86_SIMD="${x86_simd[$b]}"
  names+=("$b")
  runner[$b]="${x86_dir[$b]}/bench/videohdr_digest"
done
if ((arm)); then
  for arch in armv7 aarch64; do
    echo "digests: building ${arch} ..." >&2
    build "build/bench-$arch-neon" -DCMAKE_TOOLCHAIN_FILE="${toolchain[$arch]}"
    names+=("$arch")
    runner[$arch]="${emulator[$arch]} build/bench-$arch-neon/bench/videohdr_digest"
  done
fi

for name in "${names[@]}"; do
  echo "digests: running ${name} ..." >&2
  for size in "${sizes[@]}"; do
    scenes=(pan)
    ((${size%x*} <= 2048)) && scenes+=(handheld)
    for scene in "${scenes[@]}"; do
      echo "== ${scene} ${size}"
      ${runner[$name]} --scene="$scene" "${size%x*}" "${size#*x}" "$frames"
    done
  done >"$out/$name.txt"
done

reference=${names[0]}
for name in "${names[@]:1}"; do
  if ! cmp -s "$out/$reference.txt" "$out/$name.txt"; then
    diff "$out/$reference.txt" "$out/$name.txt" | head -n 20 >&2
    echo "digests: ${name} differs from ${reference} (all lines in $out)" >&2
    exit 1
  fi
done
echo "digests: identical across ${names[*]} ($(grep -c '^frame' "$out/$reference.txt") frames" \
  "at ${sizes[*]})"
