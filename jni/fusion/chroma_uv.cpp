// Splitting an interleaved chroma plane into two planes and joining two
// planes into one. Byte 0 and byte 1 of each pair are kept apart; which
// component comes first is the caller's business.
#include <cstdint>

#include "../any_row.h"
#include "../kernels.h"
#include "../simd.h"
#include "plane_ops.h"
#include "plane_rows.h"
#include "videohdr.h"

namespace videohdr {
namespace {

constexpr int32_t kPairBlock = 16;  // pairs per vector block

}  // namespace

// `width` counts bytes of the interleaved row (an odd last byte is not a
// pair and stays unread); the two planes have pitch stride >> 1.
void extractUvPortable(const uint8_t *uvBuf, uint8_t *uBuf, uint8_t *vBuf, int32_t width,
                       int32_t height, int32_t stride) {
  const int32_t pairs = width >> 1;
  if (height < 1 || pairs < 1) return;
  for (int32_t y = 0; y < height; ++y)
    splitPairs(planeRow(uvBuf, y, stride), planeRow(uBuf, y, stride >> 1),
               planeRow(vBuf, y, stride >> 1), pairs);
}

// `width` counts pairs; all three planes are tightly packed.
void combineUvPortable(const uint8_t *uBuf, const uint8_t *vBuf, uint8_t *uvBuf, int32_t width,
                       int32_t height) {
  if (height < 1 || width < 1) return;
  for (int32_t y = 0; y < height; ++y)
    joinPairs(planeRow(uBuf, y, width), planeRow(vBuf, y, width), planeRow(uvBuf, y, 2 * width),
              width);
}

#if VIDEOHDR_HAVE_NEON
namespace {

void splitBlocksNeon(const uint8_t *uv, uint8_t *u, uint8_t *v, int32_t end) {
  for (int32_t k = 0; k < end; k += kPairBlock) {
    const uint8x16x2_t split = vld2q_u8(uv + 2 * k);
    vst1q_u8(u + k, split.val[0]);
    vst1q_u8(v + k, split.val[1]);
  }
}

void joinBlocksNeon(const uint8_t *u, const uint8_t *v, uint8_t *uv, int32_t end) {
  for (int32_t k = 0; k < end; k += kPairBlock) {
    const uint8x16x2_t joined = {{vld1q_u8(u + k), vld1q_u8(v + k)}};
    vst2q_u8(uv + 2 * k, joined);
  }
}

}  // namespace

void extractUvNeon(const uint8_t *uvBuf, uint8_t *uBuf, uint8_t *vBuf, int32_t width,
                   int32_t height, int32_t stride) {
  splitRows<kPairBlock, splitBlocksNeon>(uvBuf, uBuf, vBuf, width, height, stride);
}

void combineUvNeon(const uint8_t *uBuf, const uint8_t *vBuf, uint8_t *uvBuf, int32_t width,
                   int32_t height) {
  joinRows<kPairBlock, joinBlocksNeon>(uBuf, vBuf, uvBuf, width, height);
}
#endif  // VIDEOHDR_HAVE_NEON

}  // namespace videohdr

extern "C" {

void extract_uvBuffer(const uint8_t *uvBuf, uint8_t *uBuf, uint8_t *vBuf, int32_t width,
                      int32_t height, int32_t stride) {
  videohdr::activeKernels().plane.extractUv(uvBuf, uBuf, vBuf, width, height, stride);
}

void combine_uvBuffer(const uint8_t *uBuf, const uint8_t *vBuf, uint8_t *uvBuf, int32_t width,
                      int32_t height) {
  videohdr::activeKernels().plane.combineUv(uBuf, vBuf, uvBuf, width, height);
}

}  // extern "C"
