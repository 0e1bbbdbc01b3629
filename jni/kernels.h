// The kernel tables of every family, every instance the build has, and the
// one place that picks which instance the library runs.
//
// Each vector operation sits in the table of its family (a struct of function
// pointers): a portable instance, and, where the build has them, a NEON
// instance (natively on ARM, through SIMDe elsewhere, for the tests) and on
// x86-64 an SSE4.1 and an AVX2 instance, all with the same signatures and the
// same bytes in everything they write. The exported calls and the per-frame
// path call through activeKernels(); the differential tests run every member
// of every instance the processor can run against the portable one.
//
// AArch64-only code paths belong inside the NEON functions (under
// __aarch64__): both ARM targets then share the NEON instance. On x86-64 the
// choice is made at run time, once (kernels.cpp).
#ifndef VIDEOHDR_KERNELS_H
#define VIDEOHDR_KERNELS_H

#include "alignment_op/bitmap_ops.h"
#include "alignment_op/score_ops.h"
#include "byte_copy.h"
#include "fusion/exposure_fusion.h"
#include "fusion/plane_ops.h"
#include "simd.h"

namespace videohdr {

struct Kernels {
  CopyKernels copy;
  BitmapKernels bitmap;
  ScoreKernels score;
  PlaneKernels plane;
  FusionKernels fusion;
};

inline constexpr Kernels kPortableKernels = {kCopyPortable, kBitmapPortable, kScorePortable,
                                             kPlanePortable, kFusionPortable};
#if VIDEOHDR_HAVE_NEON
inline constexpr Kernels kNeonKernels = {kCopyNeon, kBitmapNeon, kScoreNeon, kPlaneNeon,
                                         kFusionNeon};
#endif
#if VIDEOHDR_HAVE_X86_SIMD
inline constexpr Kernels kSse41Kernels = {kCopySse41, kBitmapSse41, kScoreSse41, kPlaneSse41,
                                          kFusionSse41};
inline constexpr Kernels kAvx2Kernels = {kCopyAvx2, kBitmapAvx2, kScoreAvx2, kPlaneAvx2,
                                         kFusionAvx2};
#endif

enum class InstructionSet { Portable, Neon, Sse41, Avx2 };

struct KernelInstance {
  const char *name;
  InstructionSet isa;
  const Kernels *kernels;
};

// Every instance the build has, the portable reference first.
inline constexpr KernelInstance kKernelInstances[] = {
    {"portable", InstructionSet::Portable, &kPortableKernels},
#if VIDEOHDR_HAVE_NEON
    {"neon", InstructionSet::Neon, &kNeonKernels},
#endif
#if VIDEOHDR_HAVE_X86_SIMD
    {"sse4.1", InstructionSet::Sse41, &kSse41Kernels},
    {"avx2", InstructionSet::Avx2, &kAvx2Kernels},
#endif
};

// Whether this processor (and its operating system, for the AVX registers)
// can run code of the given instruction set. NEON through SIMDe runs anywhere.
bool processorRuns(InstructionSet isa);

#if VIDEOHDR_HAVE_X86_SIMD
// The instance the library runs: the widest one the processor supports, up to
// the build's limit. Chosen on the first call and never changed afterwards
// (a function-local constant), so the library keeps no state that could
// differ between calls.
const Kernels &activeKernels();
#else
// NEON on ARM; the portable code elsewhere and on ARM builds forced to it
// (which exist only to measure the portable code there). The instances are
// constexpr, so a call through this table compiles to a direct call.
inline const Kernels &activeKernels() {
#if VIDEOHDR_NATIVE_NEON
  return kNeonKernels;
#else
  return kPortableKernels;
#endif
}
#endif

}  // namespace videohdr

#endif  // VIDEOHDR_KERNELS_H
