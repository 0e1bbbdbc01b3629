// The kernel tables of every family and the one place that picks which
// instance the library runs.
//
// Each vector operation sits in the table of its family (a struct of function
// pointers): a portable instance, and, where the build has NEON (natively or
// through SIMDe), a NEON instance with the same signatures and the same bytes
// in everything it writes. The exported calls and the per-frame path call
// through kKernels; the differential tests run every member of both
// instances. The instances are constexpr, so a call through kKernels compiles
// to a direct call and the hot loops stay inside the kernels.
//
// AArch64-only code paths belong inside the NEON functions (under
// __aarch64__): both ARM targets then share the NEON instance, and no
// selection beyond this one is needed.
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

// What the library runs: NEON on ARM, the portable code elsewhere and on ARM
// builds forced to it (which exist only to measure the portable code there).
#if VIDEOHDR_NATIVE_NEON
inline constexpr const Kernels &kKernels = kNeonKernels;
#else
inline constexpr const Kernels &kKernels = kPortableKernels;
#endif

}  // namespace videohdr

#endif  // VIDEOHDR_KERNELS_H
