// Sobel gradient sums: how much edge detail an 8-bit plane holds. Sobel is
// the plain scalar sum; Sobel_Neon is the block version with its own column
// coverage and 16-bit lane sums, which Back uses to compare sharpness.
#include <cstddef>

#include "../kernels.h"
#include "../simd.h"
#include "../videohdr.h"
#include "score_layout.h"
#include "score_ops.h"

namespace {

// min(|gx| + |gy|, 255) for the 3 x 3 neighbourhood whose top-left byte is p.
int clampedGradient(const uint8_t *p, ptrdiff_t pitch) {
  const uint8_t *t = p;
  const uint8_t *m = p + pitch;
  const uint8_t *b = m + pitch;
  const int gx = (t[2] + 2 * m[2] + b[2]) - (t[0] + 2 * m[0] + b[0]);
  const int gy = (t[0] + 2 * t[1] + t[2]) - (b[0] + 2 * b[1] + b[2]);
  const int magnitude = (gx < 0 ? -gx : gx) + (gy < 0 ? -gy : gy);
  return magnitude < videohdr::kSobelClamp ? magnitude : videohdr::kSobelClamp;
}

}  // namespace

namespace videohdr {

double sobelBlockSumPortable(const uint8_t *image, int32_t width, int32_t height) {
  if (tooSmallForSobelBlocks(width, height)) return 0.0;
  const int32_t blocks = sobelBlocksPerRow(width);
  const ptrdiff_t pitch = width;
  uint32_t totals[4] = {0, 0, 0, 0};
  for (int32_t row = 1; row <= height - 2; ++row) {
    const uint8_t *top = image + (row - 1) * pitch;
    uint16_t lanes[kSobelBlock] = {0};  // wrap at 16 bits like the vector lanes
    for (int32_t b = 0; b < blocks; ++b) {
      for (int32_t lane = 0; lane < kSobelBlock; ++lane)
        lanes[lane] = static_cast<uint16_t>(lanes[lane] +
                                            clampedGradient(top + b * kSobelBlock + lane, pitch));
    }
    for (int i = 0; i < 4; ++i) {
      totals[i] += static_cast<uint32_t>(static_cast<int32_t>(static_cast<int16_t>(lanes[i])));
      totals[i] += static_cast<uint32_t>(static_cast<int32_t>(static_cast<int16_t>(lanes[i + 4])));
    }
  }
  const int32_t signedTotals[4] = {static_cast<int32_t>(totals[0]), static_cast<int32_t>(totals[1]),
                                   static_cast<int32_t>(totals[2]),
                                   static_cast<int32_t>(totals[3])};
  return sumSobelTotals(signedTotals);
}

#if VIDEOHDR_HAVE_NEON

namespace {

// Eight clamped gradients of the centres one row below and one column right
// of each byte of `top`.
uint16x8_t clampedGradients8(const uint8_t *top, ptrdiff_t pitch, uint16x8_t clamp) {
  const uint8_t *mid = top + pitch;
  const uint8_t *bot = mid + pitch;
  const uint8x8_t tl = vld1_u8(top), tm = vld1_u8(top + 1), tr = vld1_u8(top + 2);
  const uint8x8_t ml = vld1_u8(mid), mr = vld1_u8(mid + 2);
  const uint8x8_t bl = vld1_u8(bot), bm = vld1_u8(bot + 1), br = vld1_u8(bot + 2);
  const uint16x8_t left = vaddq_u16(vaddl_u8(tl, bl), vshlq_n_u16(vmovl_u8(ml), 1));
  const uint16x8_t right = vaddq_u16(vaddl_u8(tr, br), vshlq_n_u16(vmovl_u8(mr), 1));
  const uint16x8_t upper = vaddq_u16(vaddl_u8(tl, tr), vshlq_n_u16(vmovl_u8(tm), 1));
  const uint16x8_t lower = vaddq_u16(vaddl_u8(bl, br), vshlq_n_u16(vmovl_u8(bm), 1));
  const uint16x8_t magnitude = vabaq_u16(vabdq_u16(right, left), upper, lower);
  return vminq_u16(magnitude, clamp);
}

}  // namespace

double sobelBlockSumNeon(const uint8_t *image, int32_t width, int32_t height) {
  if (tooSmallForSobelBlocks(width, height)) return 0.0;
  const int32_t blocks = sobelBlocksPerRow(width);
  const ptrdiff_t pitch = width;
  const uint16x8_t clamp = vdupq_n_u16(kSobelClamp);
  int32x4_t totals = vdupq_n_s32(0);
  for (int32_t row = 1; row <= height - 2; ++row) {
    const uint8_t *top = image + (row - 1) * pitch;
    uint16x8_t lanes = vdupq_n_u16(0);
    for (int32_t b = 0; b < blocks; ++b)
      lanes = vaddq_u16(lanes, clampedGradients8(top + b * kSobelBlock, pitch, clamp));
    const int16x8_t signedLanes = vreinterpretq_s16_u16(lanes);
    totals = vaddq_s32(totals, vaddq_s32(vmovl_s16(vget_low_s16(signedLanes)),
                                         vmovl_s16(vget_high_s16(signedLanes))));
  }
  int32_t out[4];
  vst1q_s32(out, totals);
  return sumSobelTotals(out);
}

#endif  // VIDEOHDR_HAVE_NEON

}  // namespace videohdr

extern "C" {

double Sobel(const uint8_t *image, int32_t width, int32_t height) {
  if (height < 3 || width < 3) return 0.0;
  const ptrdiff_t pitch = width;
  double sum = 0.0;
  for (int32_t row = 1; row <= height - 2; ++row) {
    const uint8_t *top = image + (row - 1) * pitch;
    for (int32_t col = 1; col <= width - 2; ++col)
      sum += static_cast<double>(clampedGradient(top + col - 1, pitch));
  }
  return sum;
}

double Sobel_Neon(const uint8_t *image, int32_t width, int32_t height) {
  return videohdr::activeKernels().score.sobelBlockSum(image, width, height);
}

}  // extern "C"
