// Bulk byte copies of the per-frame path: the frame intake, the alignment's
// grey images and the aligned frame. The portable variant is memcpy; the NEON
// one moves each step with the widest load and store of the target (32 bytes
// on ARMv7, 64 on A64): fewer instructions per byte than the C library's copy
// on both.
#ifndef VIDEOHDR_BYTE_COPY_H
#define VIDEOHDR_BYTE_COPY_H

#include <cstddef>
#include <cstdint>

#include "simd.h"

namespace videohdr {

struct CopyKernels {
  // dst[i] = src[i] for i < n; the two ranges must not overlap.
  void (*copyBytes)(uint8_t *dst, const uint8_t *src, size_t n);
};

void copyBytesPortable(uint8_t *dst, const uint8_t *src, size_t n);
inline constexpr CopyKernels kCopyPortable = {copyBytesPortable};

#if VIDEOHDR_HAVE_NEON
void copyBytesNeon(uint8_t *dst, const uint8_t *src, size_t n);
inline constexpr CopyKernels kCopyNeon = {copyBytesNeon};
#endif

#if VIDEOHDR_HAVE_X86_SIMD
// Both x86 instances keep the C library's copy: glibc picks its own vector
// width (and `rep movsb` for large copies) when it is loaded, and on
// frame-sized copies it was as fast as 16- and 32-byte loops from the cache
// and faster from memory.
inline constexpr CopyKernels kCopySse41 = kCopyPortable;
inline constexpr CopyKernels kCopyAvx2 = kCopyPortable;
#endif

}  // namespace videohdr

#endif  // VIDEOHDR_BYTE_COPY_H
