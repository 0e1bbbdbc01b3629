#!/usr/bin/env bash
# Builds icount.so, a qemu TCG plugin counting executed guest instructions,
# against the qemu-plugin.h of the Debian qemu source that matches the
# installed qemu-user (Debian ships plugin-enabled binaries but not the
# header). Root or sudo is needed the first time, to install packages and add
# deb-src entries (in a file of their own; the system's lists stay untouched).
#
#   bash bench/qemu-icount/build.sh OUT_DIR     # -> OUT_DIR/icount.so
set -euo pipefail

HERE="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
OUT_DIR="$(mkdir -p "${1:?usage: build.sh OUT_DIR}" && cd "$1" && pwd)"
SRC_DIR="$OUT_DIR/src"
export DEBIAN_FRONTEND=noninteractive
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"

need=()
for p in qemu-user gcc xz-utils; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || need+=("$p")
done
if ((${#need[@]})); then
  $sudo apt-get update -q
  $sudo apt-get install -y -q --no-install-recommends "${need[@]}"
fi

mkdir -p "$SRC_DIR"
HEADER="$SRC_DIR/qemu-plugin.h"
if [ ! -s "$HEADER" ]; then
  if ! apt-cache showsrc qemu 2>/dev/null | grep -q '^Package: qemu'; then
    # Source entries mirroring the machine's own binary entries.
    for f in /etc/apt/sources.list.d/*.sources; do
      [ "$(basename "$f")" = icount-src.sources ] && continue
      grep -q '^Types: deb$' "$f" 2>/dev/null || continue
      sed 's/^Types: deb$/Types: deb-src/' "$f"
      echo
    done | $sudo tee /etc/apt/sources.list.d/icount-src.sources >/dev/null
    if [ -f /etc/apt/sources.list ]; then
      grep -E '^deb ' /etc/apt/sources.list | sed 's/^deb /deb-src /' |
        $sudo tee /etc/apt/sources.list.d/icount-src.list >/dev/null || true
    fi
    $sudo apt-get update -q
  fi
  ver="$(dpkg-query -W -f='${source:Version}' qemu-user)"
  cd "$SRC_DIR"
  # The same source version as the installed binary if the archive still has it.
  apt-get source --download-only "qemu=$ver" || apt-get source --download-only qemu
  orig="$(ls qemu_*.orig.tar.* | head -n1)"
  tar -xf "$orig" --wildcards --no-anchored -O 'include/qemu/qemu-plugin.h' >"$HEADER.tmp"
  # Debian patches that touch the header apply to it too.
  deb="$(ls qemu_*.debian.tar.* | head -n1)"
  rm -rf debian && tar -xf "$deb"
  if [ -f debian/patches/series ]; then
    while read -r p _; do
      case "$p" in '' | '#'*) continue ;; esac
      if grep -q '^+++ .*include/qemu/qemu-plugin.h' "debian/patches/$p"; then
        mkdir -p hdr/include/qemu && cp "$HEADER.tmp" hdr/include/qemu/qemu-plugin.h
        (cd hdr && patch -p1 --no-backup-if-mismatch -f \
          --include='*include/qemu/qemu-plugin.h' <"../debian/patches/$p") || true
        cp hdr/include/qemu/qemu-plugin.h "$HEADER.tmp"
      fi
    done <debian/patches/series
  fi
  mv "$HEADER.tmp" "$HEADER"
  # Only the header is kept.
  rm -rf debian hdr qemu_*
fi

gcc -O2 -Wall -Wextra -shared -fPIC -I"$SRC_DIR" -o "$OUT_DIR/icount.so" "$HERE/icount.c"
echo "built $OUT_DIR/icount.so"
