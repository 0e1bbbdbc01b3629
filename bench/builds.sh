# Sourced by bench/run.sh and bench/digests.sh: the measurement builds they
# share, where each lives and how it is made.

# The x86 builds: the portable code and the two x86 instances, each build
# capped at its own (VIDEOHDR_X86_SIMD), so that each runs the one instance.
x86_builds=(portable sse4.1 avx2)
declare -A x86_simd=([portable]=OFF [sse4.1]=SSE41 [avx2]=AVX2)
declare -A x86_dir=([portable]=build/bench-host-portable [sse4.1]=build/bench-host-sse41
                    [avx2]=build/bench-host-avx2)

# The ARM builds are cross-compiled and run under qemu-user.
declare -A toolchain=([armv7]=cmake/armv7-linux-gnueabihf.cmake
                      [aarch64]=cmake/aarch64-linux-gnu.cmake)
declare -A emulator=([armv7]="qemu-arm -L /usr/arm-linux-gnueabihf"
                     [aarch64]="qemu-aarch64 -L /usr/aarch64-linux-gnu")

bench_cmake_args=(-G Ninja -DCMAKE_BUILD_TYPE=Release -DVIDEOHDR_BUILD_BENCH=ON
                  -DVIDEOHDR_BUILD_TESTS=OFF -DVIDEOHDR_BUILD_TOOLS=OFF)
build() {  # build DIR [cmake args...]
  local dir=$1
  shift
  # The toolchain file counts only when a build directory is first made.
  cmake -S . -B "$dir" --no-warn-unused-cli "${bench_cmake_args[@]}" "$@" >/dev/null
  cmake --build "$dir" -j "$(nproc)" >/dev/null
}
