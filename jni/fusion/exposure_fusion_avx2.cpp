// The fusion's row kernels on AVX2, 32 bytes per vector. Whole blocks only;
// the portable rows finish a row (any_row.h). The row-pair kernel is the
// SSE4.1 one (exposure_fusion.h says why).
//
// Byte unpacking and packing work within each 16-byte lane, so where a step
// spreads weights over bytes it first puts the weights each lane needs into
// that lane (a 64-bit permute).
#include <cstddef>

#include "../any_row.h"
#include "block_spill.h"
#include "exposure_fusion.h"
#include "x86_lanes.h"

#if VIDEOHDR_HAVE_X86_SIMD
namespace videohdr {
namespace {

// The darker of two frames' bytes, 32 at a time: every byte (Step 1) or
// every other one of 64 (Step 2). The pack narrows within lanes, leaving the
// 8-byte groups in the order 0 2 1 3, which the permute puts right.
template <int Step>
VIDEOHDR_TARGET_AVX2 inline __m256i darker(const uint8_t *a, const uint8_t *b) {
  if constexpr (Step == 1) {
    return _mm256_min_epu8(load32(a), load32(b));
  } else {
    const __m256i even = _mm256_set1_epi16(0xff);
    const __m256i low = _mm256_min_epu8(load32(a), load32(b));
    const __m256i high = _mm256_min_epu8(load32(a + 32), load32(b + 32));
    const __m256i packed =
        _mm256_packus_epi16(_mm256_and_si256(low, even), _mm256_and_si256(high, even));
    return _mm256_permute4x64_epi64(packed, _MM_SHUFFLE(3, 1, 2, 0));
  }
}

// table[min(a, b)] for `count` positions, Step bytes apart; count is a
// multiple of 32.
template <int Step>
VIDEOHDR_TARGET_AVX2 void lookupRow(const uint8_t *a, const uint8_t *b, const uint8_t *table,
                                    uint8_t *weights, int32_t count) {
  for (int32_t c = 0; c < count; c += 32)
    store32(weights + c, lookupTable(table, darker<Step>(a + Step * c, b + Step * c)));
}

// The even samples of a row of `count` (a multiple of 16): 32 per step, and
// a last 16 as the SSE4.1 kernel takes them.
VIDEOHDR_TARGET_AVX2 void lookupEvenRow(const uint8_t *a, const uint8_t *b, const uint8_t *table,
                                        uint8_t *weights, int32_t count) {
  const int32_t end = wholeBlocks<32>(count);
  lookupRow<2>(a, b, table, weights, end);
  if (end < count) lookupEvenSamplesSse41(a + 2 * end, b + 2 * end, 0, table, weights + end, 16, 1);
}

VIDEOHDR_TARGET_AVX2 void blendLumaBlocks(const uint8_t *bright, const uint8_t *dark,
                                          const uint8_t *weights, uint8_t *out, int32_t end) {
  for (int32_t i = 0; i < end; i += 32)
    store32(out + i, weightedBlend(load32(bright + i), load32(dark + i), load32(weights + i)));
}

// Sixteen weights spread over the lanes as two chroma blocks take them:
// the low eight twice in the first lane, the high eight twice in the second.
VIDEOHDR_TARGET_AVX2 inline __m256i spreadWeights(__m128i sixteen) {
  return _mm256_permute4x64_epi64(_mm256_castsi128_si256(sixteen), _MM_SHUFFLE(1, 1, 0, 0));
}

// Two chroma blocks per step.
VIDEOHDR_TARGET_AVX2 void blendChromaBlocks(const uint8_t *bright, const uint8_t *dark,
                                            const uint8_t *weights, uint8_t *out, int32_t end) {
  for (int32_t b = 0; b < end; b += 2 * kByteBlock) {
    const __m256i pairs = lowWeightPairs(spreadWeights(load16(weights + b / 2)));
    store32(out + b, weightedBlend(load32(dark + b), load32(bright + b), pairs, pairs));
  }
}

}  // namespace

void lookupWeightsAvx2(const uint8_t *a, const uint8_t *b, const uint8_t *table, uint8_t *weights,
                       int32_t count) {
  blocksThenRest(
      wholeBlocks<32>(count), count, [=](int32_t end) { lookupRow<1>(a, b, table, weights, end); },
      [=](int32_t at, int32_t rest) {
        lookupWeightsSse41(a + at, b + at, table, weights + at, rest);
      });
}

void blendLumaAvx2(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights, uint8_t *out,
                   int32_t count) {
  blocksThenRest(
      wholeBlocks<32>(count), count,
      [=](int32_t end) { blendLumaBlocks(bright, dark, weights, out, end); },
      [=](int32_t at, int32_t rest) {
        blendLumaSse41(bright + at, dark + at, weights + at, out + at, rest);
      });
}

void blendChromaRowAvx2(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                        uint8_t *out, int32_t count) {
  blocksThenRest(
      wholeBlocks<2 * kByteBlock>(count), count,
      [=](int32_t end) { blendChromaBlocks(bright, dark, weights, out, end); },
      [=](int32_t at, int32_t rest) {
        blendChromaRowSse41(bright + at, dark + at, weights + at / 2, out + at, rest);
      });
}

void lookupEvenSamplesAvx2(const uint8_t *bright, const uint8_t *dark, int32_t stride,
                           const uint8_t *table, uint8_t *weights, int32_t count, int32_t rows) {
  for (int32_t r = 0; r < rows; ++r) {
    lookupEvenRow(bright + static_cast<ptrdiff_t>(2 * r) * stride,
                  dark + static_cast<ptrdiff_t>(2 * r) * stride, table,
                  weights + static_cast<ptrdiff_t>(r) * count, count);
  }
}

}  // namespace videohdr
#endif  // VIDEOHDR_HAVE_X86_SIMD
