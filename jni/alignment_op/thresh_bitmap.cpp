// Threshold bitmaps: each frame's grey image becomes one bit per pixel, set
// where the pixel is brighter than that frame's own mean grey level. Giving each
// exposure its own threshold is what makes the two bitmaps comparable.
#include <cstddef>
#include <cstring>

#include "../simd.h"
#include "../videohdr.h"
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

// Pixel k of the block goes to bit 31 - k.
uint32_t packBlockPortable(const uint8_t *pixels, uint8_t threshold) {
  uint32_t word = 0;
  for (int k = 0; k < 32; ++k) word |= uint32_t{pixels[k] > threshold} << (31 - k);
  return word;
}

// The block layout both variants share; only the 32-pixel packer differs.
template <uint32_t (*packBlock)(const uint8_t *, uint8_t)>
void packRows(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold, uint32_t *bitmap) {
  const int32_t words = bitmapWords(w);
  const int32_t tailPixels = w % 32;
  for (int32_t y = 0; y < h; ++y) {
    const uint8_t *row = image + static_cast<size_t>(y) * w;
    uint32_t *rowWords = bitmap + static_cast<size_t>(y) * words;
    int32_t x = 0;
    // Narrower than 33 pixels the block loop never starts and every row's tail
    // word is stored to word 1 of row 0, so only the last row's bits remain
    // there. Such widths are outside the search's range; the bits stay those of
    // the block layout rather than a different layout for small frames.
    uint32_t *tailWord = bitmap + 1;
    if (w >= 33) {
      // Stops one block early: for a width that is a multiple of 32 the last
      // 32 columns keep their cleared 0 bits. The search's counts depend on it.
      do {
        rowWords[x / 32] = packBlock(row + x, threshold);
        x += 32;
      } while (x < w - 32);
      tailWord = rowWords + x / 32;
    }
    if (tailPixels != 0) {
      // The zero padding gives 0 bits: no byte is greater than any threshold.
      uint8_t block[32] = {0};
      std::memcpy(block, row + x, static_cast<size_t>(tailPixels));
      *tailWord = packBlock(block, threshold);
    }
  }
}

#if VIDEOHDR_HAVE_NEON
// Compares 32 bytes, keeps one mask bit per byte (0x80 for the first pixel of
// each 8) and folds the bytes together with pairwise adds, which act as ORs on
// disjoint bits. The four folded bytes hold pixels 0-7, 8-15, 16-23, 24-31 and
// are reversed so that pixels 0-7 land in the top byte of the word.
uint32_t packBlockNeon(const uint8_t *pixels, uint8_t threshold) {
  static const uint8_t kBitMasks[16] = {0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02, 0x01,
                                        0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02, 0x01};
  const uint8x16_t masks = vld1q_u8(kBitMasks);
  const uint8x16_t limit = vdupq_n_u8(threshold);
  const uint8x16_t a = vandq_u8(vcgtq_u8(vld1q_u8(pixels), limit), masks);
  const uint8x16_t b = vandq_u8(vcgtq_u8(vld1q_u8(pixels + 16), limit), masks);
  const uint8x8_t pairsA = vpadd_u8(vget_low_u8(a), vget_high_u8(a));
  const uint8x8_t pairsB = vpadd_u8(vget_low_u8(b), vget_high_u8(b));
  const uint8x8_t quads = vpadd_u8(pairsA, pairsB);
  const uint8x8_t octets = vpadd_u8(quads, quads);
  return vget_lane_u32(vreinterpret_u32_u8(vrev32_u8(octets)), 0);
}
#endif

}  // namespace

uint32_t sumLumaPortable(const uint8_t *image, int32_t w, int32_t h) {
  uint32_t total = 0;
  for (int32_t y = 0; y < h; ++y) {
    const uint8_t *row = image + static_cast<size_t>(y) * w;
    // Eight 16-bit lanes per row, wrapping as the vector lanes do.
    uint16_t lanes[8] = {0};
    for (int32_t x = 0; x < w; x += 8)
      for (int k = 0; k < 8; ++k) lanes[k] = static_cast<uint16_t>(lanes[k] + row[x + k]);
    for (uint16_t lane : lanes) total += lane;
  }
  return total;
}

void packThresholdBitsPortable(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold,
                               uint32_t *bitmap) {
  packRows<packBlockPortable>(image, w, h, threshold, bitmap);
}

#if VIDEOHDR_HAVE_NEON
uint32_t sumLumaNeon(const uint8_t *image, int32_t w, int32_t h) {
  uint32x4_t totals = vdupq_n_u32(0);
  for (int32_t y = 0; y < h; ++y) {
    const uint8_t *row = image + static_cast<size_t>(y) * w;
    uint16x8_t lanes = vdupq_n_u16(0);
    for (int32_t x = 0; x < w; x += 8) lanes = vaddw_u8(lanes, vld1_u8(row + x));
    totals = vpadalq_u16(totals, lanes);
  }
  return vgetq_lane_u32(totals, 0) + vgetq_lane_u32(totals, 1) + vgetq_lane_u32(totals, 2) +
         vgetq_lane_u32(totals, 3);
}

void packThresholdBitsNeon(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold,
                           uint32_t *bitmap) {
  packRows<packBlockNeon>(image, w, h, threshold, bitmap);
}
#endif

}  // namespace videohdr

namespace {

#if VIDEOHDR_NATIVE_NEON
constexpr auto sumLuma = videohdr::sumLumaNeon;
constexpr auto packThresholdBits = videohdr::packThresholdBitsNeon;
#else
constexpr auto sumLuma = videohdr::sumLumaPortable;
constexpr auto packThresholdBits = videohdr::packThresholdBitsPortable;
#endif

}  // namespace

extern "C" int32_t ThreshBitmap(AlignContext *context, int32_t maxThreshold, int32_t minThreshold) {
  const int32_t w = context->width;
  const int32_t h = context->height;
  if (w < 1 || h < 1) return 0;  // no pixels, and no mean to divide out
  const size_t bitmapBytes = static_cast<size_t>(videohdr::bitmapWords(w)) * h * sizeof(uint32_t);
  // Only the h rows: the region's spare row is left as it is.
  std::memset(context->prevBitmap[0], 0, bitmapBytes);
  std::memset(context->curBitmap[0], 0, bitmapBytes);

  const int32_t sumPrev = static_cast<int32_t>(sumLuma(context->prevImage[0], w, h));
  const int32_t sumCur = static_cast<int32_t>(sumLuma(context->curImage[0], w, h));
  const int32_t pixels = w * h;
  const int32_t thrPrev = videohdr::clampThreshold(sumPrev / pixels, maxThreshold, minThreshold);
  const int32_t thrCur = videohdr::clampThreshold(sumCur / pixels, maxThreshold, minThreshold);
  // The comparison is against the threshold's low byte.
  packThresholdBits(context->prevImage[0], w, h, static_cast<uint8_t>(thrPrev),
                    context->prevBitmap[0]);
  packThresholdBits(context->curImage[0], w, h, static_cast<uint8_t>(thrCur),
                    context->curBitmap[0]);
  return sumPrev > sumCur ? 1 : 0;
}
