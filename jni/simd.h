// Vector intrinsics for the NEON variants of every kernel, and the switch
// for the x86-64 instances.
//
// On ARM the real <arm_neon.h> is used and the exported calls run the NEON
// variants. On other hosts the same NEON source compiles through SIMDe (when
// the build enables it) so that the differential tests can compare every NEON
// variant with its portable reference on any machine; the exported calls there
// run the portable variants. VIDEOHDR_FORCE_PORTABLE makes an ARM build run the
// portable variants too; it exists only to measure them on the target.
#ifndef VIDEOHDR_SIMD_H
#define VIDEOHDR_SIMD_H

#if defined(__ARM_NEON) || defined(__ARM_NEON__)
#include <arm_neon.h>
#if defined(VIDEOHDR_FORCE_PORTABLE)
#define VIDEOHDR_NATIVE_NEON 0
#else
#define VIDEOHDR_NATIVE_NEON 1
#endif
#define VIDEOHDR_HAVE_NEON 1
#elif defined(VIDEOHDR_WITH_SIMDE)
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#define VIDEOHDR_NATIVE_NEON 0
#define VIDEOHDR_HAVE_NEON 1
#else
#define VIDEOHDR_NATIVE_NEON 0
#define VIDEOHDR_HAVE_NEON 0
#endif

// x86-64: SSE4.1 and AVX2 instances of every kernel family, compiled into
// every x86-64 build (unless the build turns them off) and chosen at run time
// by what the processor supports (kernels.cpp). Their functions carry the
// instruction set as a target attribute instead of the whole file being built
// with -msse4.1 or -mavx2: an inline function of a shared header compiled in
// such a file could otherwise be the copy the linker keeps for every caller,
// and run AVX2 instructions on a processor without them.
#if defined(__x86_64__) && !defined(VIDEOHDR_X86_SIMD_OFF)
#define VIDEOHDR_HAVE_X86_SIMD 1
#define VIDEOHDR_TARGET_SSE41 __attribute__((target("ssse3,sse4.1")))
// The AVX2 instance may also use POPCNT, BMI1 and BMI2, which came with or
// before AVX2 on both vendors' processors; the runtime check asks for all four.
#define VIDEOHDR_TARGET_AVX2 __attribute__((target("avx2,popcnt,bmi,bmi2")))
#else
#define VIDEOHDR_HAVE_X86_SIMD 0
#endif

#endif  // VIDEOHDR_SIMD_H
