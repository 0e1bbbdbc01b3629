// Halving and doubling the resolution of byte planes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "../any_row.h"
#include "../kernels.h"
#include "../simd.h"
#include "block_spill.h"
#include "plane_ops.h"
#include "plane_rows.h"
#include "videohdr.h"

namespace videohdr {
namespace {

constexpr int32_t kDoublingBlock = 16;  // output bytes per doubling block
constexpr int32_t kHalvingStep = 16;    // output bytes per NEON halving step

}  // namespace

void downScale2xPortable(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                         int32_t stride) {
  const int32_t h = height >> 1;
  const int32_t w = width >> 1;
  if (h < 1 || w < 1) return;
  for (int32_t r = 0; r < h; ++r)
    halveRowPortable(planeRow(src, 2 * r, stride), planeRow(dst, r, w), w);
}

void upscale2xReplicatePortable(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                                int32_t stride) {
  if (!doublingRuns(height, stride)) return;
  const int32_t pitch = 2 * stride;
  const int32_t built = doubledRowBytes(width, stride);
  for (int32_t r = 0; r < height; ++r) {
    uint8_t *even = planeRow(dst, 2 * r, pitch);
    doubleBytesPortable(planeRow(src, r, stride), even, built);
    std::memcpy(even + pitch, even, static_cast<size_t>(pitch));
  }
}

#if VIDEOHDR_HAVE_NEON
namespace {

// A de-interleaving load gives 16 even bytes at once.
void halveBlocksNeon(const uint8_t *s, uint8_t *d, int32_t end) {
  for (int32_t c = 0; c < end; c += kHalvingStep) vst1q_u8(d + c, vld2q_u8(s + 2 * c).val[0]);
}

}  // namespace

void downScale2xNeon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                     int32_t stride) {
  halveRows<kHalvingStep, halveBlocksNeon>(src, dst, width, height, stride);
}

void upscale2xReplicateNeon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                            int32_t stride) {
  if (!doublingRuns(height, stride)) return;
  const int32_t pitch = 2 * stride;
  const int32_t built = doubledRowBytes(width, stride);
  for (int32_t r = 0; r < height; ++r) {
    const uint8_t *s = planeRow(src, r, stride);
    uint8_t *even = planeRow(dst, 2 * r, pitch);
    blocksThenRest(
        wholeBlocks<kDoublingBlock>(built), built,
        [=](int32_t end) {
          // Widening a byte and multiplying by 0x0101 puts it in both halves
          // of its 16-bit lane, i.e. twice in a row in memory.
          for (int32_t x = 0; x < end; x += kDoublingBlock)
            vst1q_u8(even + x,
                     vreinterpretq_u8_u16(vmulq_n_u16(vmovl_u8(vld1_u8(s + x / 2)), 0x0101)));
        },
        [=](int32_t at, int32_t rest) { doubleBytesPortable(s + at / 2, even + at, rest); });
    std::memcpy(even + pitch, even, static_cast<size_t>(pitch));
  }
}
#endif  // VIDEOHDR_HAVE_NEON

}  // namespace videohdr

extern "C" {

void downScale_2x_uint8_t(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                          int32_t stride) {
  videohdr::downScale2xPortable(src, dst, width, height, stride);
}

void downScale_2x_uint8_t_NEON(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                               int32_t stride) {
  videohdr::activeKernels().plane.downScale2x(src, dst, width, height, stride);
}

// A half-pixel-shifted 2x2 box mean: both pixels of each output pair and
// both rows of each output row pair take the mean of the source 2x2 block
// at (Y >> 1, X >> 1). The last two output rows and columns are not written.
void upscale_2x_uint8_t(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                        int32_t stride) {
  if (height < 2 || width < 2) return;
  const int32_t pitch = 2 * stride;
  for (int32_t y2 = 0; y2 < 2 * height - 2; ++y2) {
    const uint8_t *top = videohdr::planeRow(src, y2 >> 1, stride);
    const uint8_t *bottom = top + stride;
    uint8_t *d = videohdr::planeRow(dst, y2, pitch);
    for (int32_t x2 = 0; x2 < 2 * width - 2; ++x2) {
      const int32_t x = x2 >> 1;
      d[x2] = static_cast<uint8_t>((top[x] + top[x + 1] + bottom[x] + bottom[x + 1]) >> 2);
    }
  }
}

void upscale_2x_uint8_t_NEON(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                             int32_t stride) {
  videohdr::activeKernels().plane.upscale2xReplicate(src, dst, width, height, stride);
}

}  // extern "C"
