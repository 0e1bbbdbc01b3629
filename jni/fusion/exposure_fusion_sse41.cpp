// The fusion's row kernels on SSE4.1 (with SSSE3's byte shuffles and
// multiply-adds), 16 bytes per vector. Whole blocks only; the portable rows
// finish a row (any_row.h).
#include <cstddef>

#include "../any_row.h"
#include "block_spill.h"
#include "exposure_fusion.h"
#include "x86_lanes.h"

#if VIDEOHDR_HAVE_X86_SIMD
namespace videohdr {
namespace {

// The darker of two frames' bytes, 16 at a time: every byte (Step 1) or
// every other one of 32 (Step 2: the even bytes, the low halves of the
// 16-bit lanes, narrowed by a pack).
template <int Step>
VIDEOHDR_TARGET_SSE41 inline __m128i darker(const uint8_t *a, const uint8_t *b) {
  if constexpr (Step == 1) {
    return _mm_min_epu8(load16(a), load16(b));
  } else {
    const __m128i even = _mm_set1_epi16(0xff);
    const __m128i low = _mm_min_epu8(load16(a), load16(b));
    const __m128i high = _mm_min_epu8(load16(a + 16), load16(b + 16));
    return _mm_packus_epi16(_mm_and_si128(low, even), _mm_and_si128(high, even));
  }
}

// table[min(a, b)] for `count` positions, Step bytes apart; count is a
// multiple of 16.
template <int Step>
VIDEOHDR_TARGET_SSE41 void lookupRow(const uint8_t *a, const uint8_t *b, const uint8_t *table,
                                     uint8_t *weights, int32_t count) {
  for (int32_t c = 0; c < count; c += 16)
    store16(weights + c, lookupTable(table, darker<Step>(a + Step * c, b + Step * c)));
}

VIDEOHDR_TARGET_SSE41 void blendLumaBlocks(const uint8_t *bright, const uint8_t *dark,
                                           const uint8_t *weights, uint8_t *out, int32_t end) {
  for (int32_t i = 0; i < end; i += 16)
    store16(out + i, weightedBlend(load16(bright + i), load16(dark + i), load16(weights + i)));
}

// A chroma block's eight weights serve both of its halves, the dark frame
// taking the weight.
VIDEOHDR_TARGET_SSE41 void blendChromaBlocks(const uint8_t *bright, const uint8_t *dark,
                                             const uint8_t *weights, uint8_t *out, int32_t end) {
  for (int32_t b = 0; b < end; b += kByteBlock) {
    const __m128i pairs = lowWeightPairs(load8(weights + b / 2));
    store16(out + b, weightedBlend(load16(dark + b), load16(bright + b), pairs, pairs));
  }
}

// Sixteen weights, each twice: a row of the doubled weights.
VIDEOHDR_TARGET_SSE41 inline void storeDoubled(uint8_t *row, __m128i w) {
  store16(row, _mm_unpacklo_epi8(w, w));
  store16(row + 16, _mm_unpackhi_epi8(w, w));
}

// 32 luma columns whose weight pairs are `pairs`, in groups of eight columns.
VIDEOHDR_TARGET_SSE41 inline void blendLuma32(const uint8_t *bright, const uint8_t *dark,
                                              uint8_t *out, const __m128i (&pairs)[4]) {
  store16(out, weightedBlend(load16(bright), load16(dark), pairs[0], pairs[1]));
  store16(out + 16, weightedBlend(load16(bright + 16), load16(dark + 16), pairs[2], pairs[3]));
}

// 32 columns per step: sixteen weights doubled into both weight rows, both
// luma rows blended with them (luma column x takes weight x / 2, so its
// weight pair is the pair of weight x / 2 repeated), and two chroma blocks
// blended with the low and the high eight weights. The rows come by value:
// a byte store may alias anything in memory, so pointers read through a
// reference would be reloaded after every store.
VIDEOHDR_TARGET_SSE41 void doubleAndBlendColumns(FrameRows bright, FrameRows dark,
                                                 const uint8_t *weights, uint8_t *doubled,
                                                 OutputRows out, ptrdiff_t stride) {
  for (ptrdiff_t c = 0; c < stride; c += 32) {
    const __m128i w = load16(weights + c / 2);
    const __m128i low = lowWeightPairs(w), high = highWeightPairs(w);
    const __m128i pairs[4] = {_mm_unpacklo_epi16(low, low), _mm_unpackhi_epi16(low, low),
                              _mm_unpacklo_epi16(high, high), _mm_unpackhi_epi16(high, high)};
    storeDoubled(doubled + c, w);
    storeDoubled(doubled + stride + c, w);
    blendLuma32(bright.luma + c, dark.luma + c, out.luma + c, pairs);
    blendLuma32(bright.luma + stride + c, dark.luma + stride + c, out.luma + stride + c, pairs);
    store16(out.chroma + c,
            weightedBlend(load16(dark.chroma + c), load16(bright.chroma + c), low, low));
    store16(out.chroma + c + 16, weightedBlend(load16(dark.chroma + c + 16),
                                               load16(bright.chroma + c + 16), high, high));
  }
}

}  // namespace

void lookupWeightsSse41(const uint8_t *a, const uint8_t *b, const uint8_t *table, uint8_t *weights,
                        int32_t count) {
  blocksThenRest(
      wholeBlocks<16>(count), count, [=](int32_t end) { lookupRow<1>(a, b, table, weights, end); },
      [=](int32_t at, int32_t rest) {
        lookupWeightsPortable(a + at, b + at, table, weights + at, rest);
      });
}

void blendLumaSse41(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                    uint8_t *out, int32_t count) {
  blocksThenRest(
      wholeBlocks<16>(count), count,
      [=](int32_t end) { blendLumaBlocks(bright, dark, weights, out, end); },
      [=](int32_t at, int32_t rest) {
        blendLumaPortable(bright + at, dark + at, weights + at, out + at, rest);
      });
}

void blendChromaRowSse41(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                         uint8_t *out, int32_t count) {
  blocksThenRest(
      wholeBlocks<kByteBlock>(count), count,
      [=](int32_t end) { blendChromaBlocks(bright, dark, weights, out, end); },
      [=](int32_t at, int32_t rest) {
        blendChromaRowPortable(bright + at, dark + at, weights + at / 2, out + at, rest);
      });
}

void lookupEvenSamplesSse41(const uint8_t *bright, const uint8_t *dark, int32_t stride,
                            const uint8_t *table, uint8_t *weights, int32_t count, int32_t rows) {
  for (int32_t r = 0; r < rows; ++r) {
    lookupRow<2>(bright + static_cast<ptrdiff_t>(2 * r) * stride,
                 dark + static_cast<ptrdiff_t>(2 * r) * stride, table,
                 weights + static_cast<ptrdiff_t>(r) * count, count);
  }
}

// stride is a multiple of 32.
void doubleAndBlendRowsSse41(FrameRows bright, FrameRows dark, const uint8_t *weights,
                             uint8_t *doubled, OutputRows out, int32_t stride) {
  doubleAndBlendColumns(bright, dark, weights, doubled, out, stride);
}

}  // namespace videohdr
#endif  // VIDEOHDR_HAVE_X86_SIMD
