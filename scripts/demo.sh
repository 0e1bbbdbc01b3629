#!/usr/bin/env bash
# Fresh Debian machine to the demo: installs the build dependencies (apt, as
# root or through sudo), builds the videohdr tool and runs
#   videohdr demo --out out/demo
# which writes input.y4m, output.y4m, stats.csv, shake.csv and contact.png.
# Usage: scripts/demo.sh [extra demo options, e.g. --frames 120]
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake ninja-build g++ libjpeg-dev libpng-dev libyuv-dev libcli11-dev)
source scripts/ensure_packages.sh
ensure_packages "${packages[@]}"

# The tool alone: no tests, so GoogleTest is not needed here.
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DVIDEOHDR_BUILD_TESTS=OFF >/dev/null
cmake --build build/demo -j "$(nproc)" --target videohdr_tool
build/demo/tools/videohdr/videohdr demo --out out/demo "$@"
