// Threshold bitmaps: each frame's grey image becomes one bit per pixel, set
// where the pixel is brighter than that frame's own mean grey level. Giving each
// exposure its own threshold is what makes the two bitmaps comparable.
#include <cstddef>
#include <cstring>

#include "../kernels.h"
#include "../simd.h"
#include "../videohdr.h"
#include "bitmap_layout.h"
#include "bitmap_ops.h"

namespace videohdr {
namespace {

// The mean is held within [minThreshold, maxThreshold]: the upper clamp first,
// then the lower one, so the lower one wins when the two cross.
int32_t clampThreshold(int32_t mean, int32_t maxThreshold, int32_t minThreshold) {
  if (mean > maxThreshold) mean = maxThreshold;
  if (mean < minThreshold) mean = minThreshold;
  return mean;
}

// Bytes p[0..7] as a little-endian 64-bit value: byte k at bits 8k.
uint64_t littleEndian64(const uint8_t *p) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  uint64_t v;
  std::memcpy(&v, p, sizeof v);
  return v;
#else
  uint64_t v = 0;
  for (int k = 0; k < 8; ++k) v |= uint64_t{p[k]} << (8 * k);
  return v;
#endif
}

// Pixel k of the block goes to bit 31 - k. The comparisons give bytes of 0 or
// 1 (which vectorise); eight of them become one byte by a multiplication:
// flag k (at bit 8k) times 0x8040201008040201 puts it alone at bit 63 - k, and
// every other product falls on a distinct lower bit, so no carry reaches the
// top byte.
uint32_t packBlockPortable(const uint8_t *pixels, uint8_t threshold) {
  uint8_t flags[32];
  for (int k = 0; k < 32; ++k) flags[k] = pixels[k] > threshold;
  uint32_t word = 0;
  for (int b = 0; b < 4; ++b) {
    const uint64_t gathered = littleEndian64(flags + 8 * b) * 0x8040201008040201u;
    word |= static_cast<uint32_t>(gathered >> 56) << (24 - 8 * b);
  }
  return word;
}

// Packs `blocks` whole 32-pixel blocks of a row into consecutive words.
void packBlocksPortable(const uint8_t *row, int32_t blocks, uint8_t threshold, uint32_t *words) {
  for (int32_t j = 0; j < blocks; ++j) words[j] = packBlockPortable(row + 32 * j, threshold);
}

#if VIDEOHDR_HAVE_NEON
// Bit packing after a de-interleaving load, which puts pixel 4j + k of a block
// into byte j of vector k: shift-and-insert steps build in byte j the nibble
// of pixels 4j .. 4j+3 (first pixel highest), and one more on 16-bit lanes
// puts the nibble of byte 2m + 1 under that of byte 2m, so byte 2m holds
// pixels 8m .. 8m+7 with the first in bit 7. Narrowing keeps those bytes, and
// a byte reversal within each 32-bit lane puts pixels 0-7 of a word into its
// top byte.
inline uint16x8_t packedBytes(const uint8x16x4_t &v, uint8x16_t limit) {
  const uint8x16_t pixels01 = vsriq_n_u8(vcgtq_u8(v.val[0], limit), vcgtq_u8(v.val[1], limit), 1);
  const uint8x16_t pixels23 = vsriq_n_u8(vcgtq_u8(v.val[2], limit), vcgtq_u8(v.val[3], limit), 1);
  const uint16x8_t nibbles = vreinterpretq_u16_u8(vsriq_n_u8(pixels01, pixels23, 2));
  return vsriq_n_u16(nibbles, nibbles, 12);
}

// 64 pixels into two words.
inline uint32x2_t packTwoBlocksNeon(const uint8_t *pixels, uint8x16_t limit) {
  return vreinterpret_u32_u8(vrev32_u8(vmovn_u16(packedBytes(vld4q_u8(pixels), limit))));
}

// 32 pixels into one word (lane 0).
inline uint32x2_t packBlockNeon(const uint8_t *pixels, uint8x8_t limit) {
  const uint8x8x4_t v = vld4_u8(pixels);
  const uint8x8_t pixels01 = vsri_n_u8(vcgt_u8(v.val[0], limit), vcgt_u8(v.val[1], limit), 1);
  const uint8x8_t pixels23 = vsri_n_u8(vcgt_u8(v.val[2], limit), vcgt_u8(v.val[3], limit), 1);
  const uint16x4_t nibbles = vreinterpret_u16_u8(vsri_n_u8(pixels01, pixels23, 2));
  const uint8x8_t bytes = vreinterpret_u8_u16(vsri_n_u16(nibbles, nibbles, 12));
  return vreinterpret_u32_u8(vrev32_u8(vuzp_u8(bytes, bytes).val[0]));
}

void packBlocksNeon(const uint8_t *row, int32_t blocks, uint8_t threshold, uint32_t *words) {
  const uint8x16_t limit = vdupq_n_u8(threshold);
  int32_t j = 0;
#if defined(__aarch64__)
  // 128 pixels into four words: one unzip narrows two vectors at once.
  for (; j + 4 <= blocks; j += 4) {
    const uint8x16_t first = vreinterpretq_u8_u16(packedBytes(vld4q_u8(row + 32 * j), limit));
    const uint8x16_t second = vreinterpretq_u8_u16(packedBytes(vld4q_u8(row + 32 * j + 64), limit));
    vst1q_u32(words + j, vreinterpretq_u32_u8(vrev32q_u8(vuzp1q_u8(first, second))));
  }
#endif
  for (; j + 2 <= blocks; j += 2) vst1_u32(words + j, packTwoBlocksNeon(row + 32 * j, limit));
  if (j < blocks) vst1_lane_u32(words + j, packBlockNeon(row + 32 * j, vget_low_u8(limit)), 0);
}

// Rows that cannot wrap a lane are added 32 bytes at a time with pairwise
// widening adds (each lane still takes at most 257 bytes; the de-interleaving
// load only loads 32 bytes in one instruction); wider rows follow the 8-byte
// lanes.
uint16x8_t rowLanesNeon(const uint8_t *row, int32_t w) {
  uint16x8_t lanes = vdupq_n_u16(0);
  if (w > kWidestUnwrappedRow) {
    for (int32_t x = 0; x < w; x += 8) lanes = vaddw_u8(lanes, vld1_u8(row + x));
    return lanes;
  }
  const int32_t covered = coveredBytes(w);
  int32_t x = 0;
  for (; x + 32 <= covered; x += 32) {
    const uint8x16x2_t bytes = vld2q_u8(row + x);
    lanes = vpadalq_u8(vpadalq_u8(lanes, bytes.val[0]), bytes.val[1]);
  }
  for (; x < covered; x += 8) lanes = vaddw_u8(lanes, vld1_u8(row + x));
  return lanes;
}

// The luma copy with its sum adds each step into two sets of eight 16-bit
// lanes, widened every 4,096 bytes: 256 bytes of at most 255 per lane, which
// cannot wrap.
#if defined(__aarch64__)
constexpr size_t kSumStep = 64;  // one four-register load and store
#else
constexpr size_t kSumStep = 32;  // one de-interleaving load and store, order kept
#endif
constexpr size_t kSumStepsPerWidening = 4096 / kSumStep;

uint32_t copyAndSumStepsNeon(uint8_t *dst, const uint8_t *src, size_t steps) {
  uint32x4_t totals = vdupq_n_u32(0);
  while (steps != 0) {
    const size_t chunk = steps < kSumStepsPerWidening ? steps : kSumStepsPerWidening;
    steps -= chunk;
    uint16x8_t lanes0 = vdupq_n_u16(0), lanes1 = lanes0;
    for (size_t k = 0; k < chunk; ++k, src += kSumStep, dst += kSumStep) {
#if defined(__aarch64__)
      const uint8x16x4_t a = vld1q_u8_x4(src);
      vst1q_u8_x4(dst, a);
      lanes0 = vpadalq_u8(vpadalq_u8(lanes0, a.val[0]), a.val[1]);
      lanes1 = vpadalq_u8(vpadalq_u8(lanes1, a.val[2]), a.val[3]);
#else
      const uint8x16x2_t a = vld2q_u8(src);
      vst2q_u8(dst, a);
      lanes0 = vpadalq_u8(lanes0, a.val[0]);
      lanes1 = vpadalq_u8(lanes1, a.val[1]);
#endif
    }
    totals = vpadalq_u16(vpadalq_u16(totals, lanes0), lanes1);
  }
  return vgetq_lane_u32(totals, 0) + vgetq_lane_u32(totals, 1) + vgetq_lane_u32(totals, 2) +
         vgetq_lane_u32(totals, 3);
}
#endif

}  // namespace

uint32_t sumLumaPortable(const uint8_t *image, int32_t w, int32_t h) {
  uint32_t total = 0;
  for (int32_t y = 0; y < h; ++y) {
    const uint8_t *row = image + static_cast<size_t>(y) * w;
    if (w <= kWidestUnwrappedRow) {
      uint32_t rowSum = 0;
      for (int32_t x = 0; x < coveredBytes(w); ++x) rowSum += row[x];
      total += rowSum;
      continue;
    }
    // Eight 16-bit lanes per row, wrapping as the vector lanes do.
    uint16_t lanes[8] = {0};
    for (int32_t x = 0; x < w; x += 8)
      for (int k = 0; k < 8; ++k) lanes[k] = static_cast<uint16_t>(lanes[k] + row[x + k]);
    for (uint16_t lane : lanes) total += lane;
  }
  return total;
}

uint32_t copyLumaAndSumPortable(uint8_t *dst, const uint8_t *src, size_t n) {
  uint32_t sum = 0;
  for (size_t i = 0; i < n; ++i) {
    dst[i] = src[i];
    sum += src[i];
  }
  return sum;
}

bool lumaSumIsPlain(int32_t w) { return w % 8 == 0 && w <= kWidestUnwrappedRow; }

void packThresholdBitsPortable(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold,
                               uint32_t *bitmap) {
  packRows<packBlocksPortable>(image, w, h, threshold, bitmap);
}

#if VIDEOHDR_HAVE_NEON
uint32_t sumLumaNeon(const uint8_t *image, int32_t w, int32_t h) {
  uint32x4_t totals = vdupq_n_u32(0);
  for (int32_t y = 0; y < h; ++y)
    totals = vpadalq_u16(totals, rowLanesNeon(image + static_cast<size_t>(y) * w, w));
  return vgetq_lane_u32(totals, 0) + vgetq_lane_u32(totals, 1) + vgetq_lane_u32(totals, 2) +
         vgetq_lane_u32(totals, 3);
}

uint32_t copyLumaAndSumNeon(uint8_t *dst, const uint8_t *src, size_t n) {
  return copyLumaAndSumSteps<kSumStep, copyAndSumStepsNeon>(dst, src, n);
}

void packThresholdBitsNeon(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold,
                           uint32_t *bitmap) {
  packRows<packBlocksNeon>(image, w, h, threshold, bitmap);
}
#endif

int32_t threshBitmapFromSums(AlignContext *context, int32_t maxThreshold, int32_t minThreshold,
                             int32_t sumPrev, int32_t sumCur) {
  const int32_t w = context->width;
  const int32_t h = context->height;
  // The packing writes every word of the h rows, the region's spare row is
  // left as it is.
  const int32_t pixels = w * h;
  const int32_t thrPrev = clampThreshold(sumPrev / pixels, maxThreshold, minThreshold);
  const int32_t thrCur = clampThreshold(sumCur / pixels, maxThreshold, minThreshold);
  // The comparison is against the threshold's low byte.
  const auto pack = activeKernels().bitmap.packThresholdBits;
  pack(context->prevImage[0], w, h, static_cast<uint8_t>(thrPrev), context->prevBitmap[0]);
  pack(context->curImage[0], w, h, static_cast<uint8_t>(thrCur), context->curBitmap[0]);
  return sumPrev > sumCur ? 1 : 0;
}

}  // namespace videohdr

extern "C" int32_t ThreshBitmap(AlignContext *context, int32_t maxThreshold, int32_t minThreshold) {
  const int32_t w = context->width;
  const int32_t h = context->height;
  if (w < 1 || h < 1) return 0;  // no pixels, and no mean to divide out
  const auto sumLuma = videohdr::activeKernels().bitmap.sumLuma;
  const int32_t sumPrev = static_cast<int32_t>(sumLuma(context->prevImage[0], w, h));
  const int32_t sumCur = static_cast<int32_t>(sumLuma(context->curImage[0], w, h));
  return videohdr::threshBitmapFromSums(context, maxThreshold, minThreshold, sumPrev, sumCur);
}
