// Vector intrinsics for the NEON variants of every kernel.
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

#endif  // VIDEOHDR_SIMD_H
