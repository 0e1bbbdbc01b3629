// The byte-plane kernels behind the exported plane operations: a table with a
// portable instance and, where the build has them, a NEON instance (natively
// or through SIMDe) and an SSE4.1 and an AVX2 instance, all with the same
// signatures and the same bytes in every plane they fill. The exported calls
// and the fusion kernel call them through the table.
#ifndef VIDEOHDR_FUSION_PLANE_OPS_H
#define VIDEOHDR_FUSION_PLANE_OPS_H

#include <cstddef>
#include <cstdint>

#include "../simd.h"

namespace videohdr {

// Start of row `row` of a plane with the given pitch (rows may be negative).
inline const uint8_t *planeRow(const uint8_t *plane, int32_t row, int32_t pitch) {
  return plane + static_cast<ptrdiff_t>(row) * pitch;
}
inline uint8_t *planeRow(uint8_t *plane, int32_t row, int32_t pitch) {
  return plane + static_cast<ptrdiff_t>(row) * pitch;
}

// The two 7-tap kernels: Tent is 1 2 3 4 3 2 1 >> 4, Smooth is 4 4 5 6 5 4 4 >> 5.
enum class Filter7 { Tent, Smooth };

struct PlaneKernels {
  // The horizontal and the vertical 7-tap pass (see horizontalFilter7x7neon
  // and VerticalFilter7x7neon in videohdr.h for the block rules).
  void (*filterRows7)(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                      int32_t border, Filter7 kernel);
  void (*filterColumns7)(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                         int32_t border, Filter7 kernel);
  // Point-sampling halving (even rows, even columns), destination pitch width >> 1.
  void (*downScale2x)(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                      int32_t stride);
  // Nearest-neighbour doubling, destination pitch 2 * stride.
  void (*upscale2xReplicate)(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                             int32_t stride);
  // Chroma split (width in bytes of the interleaved row, planes of pitch
  // stride >> 1) and join (width in pairs, all planes tightly packed).
  void (*extractUv)(const uint8_t *uvBuf, uint8_t *uBuf, uint8_t *vBuf, int32_t width,
                    int32_t height, int32_t stride);
  void (*combineUv)(const uint8_t *uBuf, const uint8_t *vBuf, uint8_t *uvBuf, int32_t width,
                    int32_t height);
};

void filterRows7Portable(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                         int32_t border, Filter7 kernel);
void filterColumns7Portable(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                            int32_t border, Filter7 kernel);
void downScale2xPortable(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                         int32_t stride);
void upscale2xReplicatePortable(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                                int32_t stride);
void extractUvPortable(const uint8_t *uvBuf, uint8_t *uBuf, uint8_t *vBuf, int32_t width,
                       int32_t height, int32_t stride);
void combineUvPortable(const uint8_t *uBuf, const uint8_t *vBuf, uint8_t *uvBuf, int32_t width,
                       int32_t height);
inline constexpr PlaneKernels kPlanePortable = {filterRows7Portable, filterColumns7Portable,
                                                downScale2xPortable, upscale2xReplicatePortable,
                                                extractUvPortable,   combineUvPortable};

#if VIDEOHDR_HAVE_NEON
void filterRows7Neon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                     int32_t border, Filter7 kernel);
void filterColumns7Neon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                        int32_t border, Filter7 kernel);
void downScale2xNeon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                     int32_t stride);
void upscale2xReplicateNeon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                            int32_t stride);
void extractUvNeon(const uint8_t *uvBuf, uint8_t *uBuf, uint8_t *vBuf, int32_t width,
                   int32_t height, int32_t stride);
void combineUvNeon(const uint8_t *uBuf, const uint8_t *vBuf, uint8_t *uvBuf, int32_t width,
                   int32_t height);
inline constexpr PlaneKernels kPlaneNeon = {filterRows7Neon, filterColumns7Neon,
                                            downScale2xNeon, upscale2xReplicateNeon,
                                            extractUvNeon,   combineUvNeon};
#endif

#if VIDEOHDR_HAVE_X86_SIMD
void filterRows7Sse41(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                      int32_t border, Filter7 kernel);
void filterColumns7Sse41(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                         int32_t border, Filter7 kernel);
void downScale2xSse41(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                      int32_t stride);
void upscale2xReplicateSse41(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                             int32_t stride);
void extractUvSse41(const uint8_t *uvBuf, uint8_t *uBuf, uint8_t *vBuf, int32_t width,
                    int32_t height, int32_t stride);
void combineUvSse41(const uint8_t *uBuf, const uint8_t *vBuf, uint8_t *uvBuf, int32_t width,
                    int32_t height);
inline constexpr PlaneKernels kPlaneSse41 = {filterRows7Sse41, filterColumns7Sse41,
                                             downScale2xSse41, upscale2xReplicateSse41,
                                             extractUvSse41,   combineUvSse41};

void filterRows7Avx2(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                     int32_t border, Filter7 kernel);
void filterColumns7Avx2(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                        int32_t border, Filter7 kernel);
// Only the filters pay for 256-bit steps; the halving, the doubling and the
// chroma split and join move bytes at the memory's pace either way.
inline constexpr PlaneKernels kPlaneAvx2 = {filterRows7Avx2,  filterColumns7Avx2,
                                            downScale2xSse41, upscale2xReplicateSse41,
                                            extractUvSse41,   combineUvSse41};
#endif

}  // namespace videohdr

#endif  // VIDEOHDR_FUSION_PLANE_OPS_H
