// Bulk byte copies of the per-frame path: the frame intake, the alignment's
// grey images and the aligned frame. The portable variants are memcpy and a
// plain loop; the NEON ones move each step with the widest load and store of
// the target (32 bytes on ARMv7, 64 on A64), two steps per loop iteration:
// fewer instructions per byte than the C library's copy on both.
#ifndef VIDEOHDR_BYTE_COPY_H
#define VIDEOHDR_BYTE_COPY_H

#include <cstddef>
#include <cstdint>

#include "simd.h"

namespace videohdr {

struct CopyKernels {
  // dst[i] = src[i] for i < n; the two ranges must not overlap.
  void (*copyBytes)(uint8_t *dst, const uint8_t *src, size_t n);
  // The same copy, answering the plain sum of the n bytes (modulo 2^32).
  uint32_t (*copyAndSum)(uint8_t *dst, const uint8_t *src, size_t n);
};

void copyBytesPortable(uint8_t *dst, const uint8_t *src, size_t n);
uint32_t copyAndSumPortable(uint8_t *dst, const uint8_t *src, size_t n);
inline constexpr CopyKernels kCopyPortable = {copyBytesPortable, copyAndSumPortable};

#if VIDEOHDR_HAVE_NEON
void copyBytesNeon(uint8_t *dst, const uint8_t *src, size_t n);
uint32_t copyAndSumNeon(uint8_t *dst, const uint8_t *src, size_t n);
inline constexpr CopyKernels kCopyNeon = {copyBytesNeon, copyAndSumNeon};
#endif

}  // namespace videohdr

#endif  // VIDEOHDR_BYTE_COPY_H
