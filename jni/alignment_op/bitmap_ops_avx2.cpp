// The AVX2 members of the bitmap kernels that gain from 32-byte steps: the
// luma sums, the luma copy with its sum and the threshold bits (one 32-pixel
// block per register). The decimation and the row moves keep their SSE4.1
// versions (bitmap_ops.h): their rows are a few hundred bytes that the
// 16-byte steps already move at the speed of the loads and stores.
#include "bitmap_ops.h"

#if VIDEOHDR_HAVE_X86_SIMD
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "bitmap_layout.h"
#include "lanes_x86.h"

namespace videohdr {
namespace {

VIDEOHDR_TARGET_AVX2 __m256i loadBytes32(const uint8_t *p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
}

VIDEOHDR_TARGET_AVX2 __m128i loadBytes16(const uint8_t *p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}

VIDEOHDR_TARGET_AVX2 __m128i loadBytes8(const uint8_t *p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p));
}

VIDEOHDR_TARGET_AVX2 __m128i addHalves(__m256i v) {
  return _mm_add_epi64(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}

VIDEOHDR_TARGET_AVX2 uint32_t addLanes64(__m128i sums) {
  return static_cast<uint32_t>(_mm_cvtsi128_si64(sums) + _mm_extract_epi64(sums, 1));
}

// A row that cannot wrap a lane: the plain sum of its covered bytes (whole
// 8-byte groups), 32 at a time, then 16 and 8 as they remain.
VIDEOHDR_TARGET_AVX2 uint32_t plainRowSum(const uint8_t *row, int32_t covered) {
  const __m256i zero = _mm256_setzero_si256();
  __m256i wide = zero;
  int32_t x = 0;
  for (; x + 32 <= covered; x += 32)
    wide = _mm256_add_epi64(wide, _mm256_sad_epu8(loadBytes32(row + x), zero));
  __m128i sums = addHalves(wide);
  const __m128i zero128 = _mm_setzero_si128();
  if (x + 16 <= covered) {
    sums = _mm_add_epi64(sums, _mm_sad_epu8(loadBytes16(row + x), zero128));
    x += 16;
  }
  if (x < covered) sums = _mm_add_epi64(sums, _mm_sad_epu8(loadBytes8(row + x), zero128));
  return addLanes64(sums);
}

// A wider row through eight 16-bit lanes that wrap, lane k taking byte k of
// every 8-byte group, widened as it is loaded (two groups per register); two
// sets of lanes take every other pair of groups, so that consecutive adds do
// not wait for each other. The sets and halves are added (wrapping too) at
// the end of the row, before the last 8 bytes.
VIDEOHDR_TARGET_AVX2 uint32_t wrappingRowSum(const uint8_t *row, int32_t covered) {
  __m256i first = _mm256_setzero_si256(), second = first;
  int32_t x = 0;
  for (; x + 32 <= covered; x += 32) {
    first = _mm256_add_epi16(first, _mm256_cvtepu8_epi16(loadBytes16(row + x)));
    second = _mm256_add_epi16(second, _mm256_cvtepu8_epi16(loadBytes16(row + x + 16)));
  }
  if (x + 16 <= covered) {
    first = _mm256_add_epi16(first, _mm256_cvtepu8_epi16(loadBytes16(row + x)));
    x += 16;
  }
  const __m256i both = _mm256_add_epi16(first, second);
  __m128i lanes = _mm_add_epi16(_mm256_castsi256_si128(both), _mm256_extracti128_si256(both, 1));
  if (x < covered) lanes = _mm_add_epi16(lanes, _mm_cvtepu8_epi16(loadBytes8(row + x)));
  return addWordLanesSse41(lanes);
}

// 64 bytes per step, their sums in four 64-bit lanes, which cannot overflow.
VIDEOHDR_TARGET_AVX2 uint32_t copyAndSumSteps(uint8_t *dst, const uint8_t *src, size_t steps) {
  const __m256i zero = _mm256_setzero_si256();
  __m256i sums = zero;
  for (; steps != 0; --steps, src += 64, dst += 64) {
    const __m256i first = loadBytes32(src), second = loadBytes32(src + 32);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst), first);
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(dst + 32), second);
    sums = _mm256_add_epi64(sums, _mm256_sad_epu8(first, zero));
    sums = _mm256_add_epi64(sums, _mm256_sad_epu8(second, zero));
  }
  return addLanes64(addHalves(sums));
}

// Pixel k of a block goes to bit 31 - k, one block per register: reversing
// each group of eight pixels (the byte shuffle works within each half, which
// holds two whole groups) makes the compares' sign mask hold pixels 8b ..
// 8b + 7 in its byte b, the first pixel highest; the byte swap then puts byte
// 0 on top. The unsigned compare is a signed one after flipping the top bits.
VIDEOHDR_TARGET_AVX2 void packBlocks(const uint8_t *row, int32_t blocks, uint8_t threshold,
                                     uint32_t *words) {
  const __m256i reverse = _mm256_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8, 7,
                                           6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
  const __m256i flip = _mm256_set1_epi8(static_cast<char>(0x80));
  const __m256i limit = _mm256_set1_epi8(static_cast<char>(threshold ^ 0x80));
  for (int32_t j = 0; j < blocks; ++j) {
    const __m256i pixels = _mm256_shuffle_epi8(loadBytes32(row + 32 * j), reverse);
    const __m256i brighter = _mm256_cmpgt_epi8(_mm256_xor_si256(pixels, flip), limit);
    words[j] = __builtin_bswap32(static_cast<uint32_t>(_mm256_movemask_epi8(brighter)));
  }
}

}  // namespace

uint32_t sumLumaAvx2(const uint8_t *image, int32_t w, int32_t h) {
  return sumLumaRows<plainRowSum, wrappingRowSum>(image, w, h);
}

uint32_t copyLumaAndSumAvx2(uint8_t *dst, const uint8_t *src, size_t n) {
  return copyLumaAndSumSteps<64, copyAndSumSteps>(dst, src, n);
}

void packThresholdBitsAvx2(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold,
                           uint32_t *bitmap) {
  packRows<packBlocks>(image, w, h, threshold, bitmap);
}

}  // namespace videohdr

#endif  // VIDEOHDR_HAVE_X86_SIMD
