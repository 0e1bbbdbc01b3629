// The SSE4.1 instance of the bitmap kernels (with SSSE3's byte shuffle): luma
// sums by sums of absolute differences from zero, threshold bits by byte
// compares and the bytes' sign mask, decimation by nibble lookups, row moves
// by lane shifts. Same block layouts as every instance (bitmap_layout.h).
#include "bitmap_ops.h"

#if VIDEOHDR_HAVE_X86_SIMD
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "../any_row.h"
#include "bitmap_layout.h"
#include "lanes_x86.h"

namespace videohdr {
namespace {

VIDEOHDR_TARGET_SSE41 __m128i loadBytes(const uint8_t *p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}

VIDEOHDR_TARGET_SSE41 __m128i loadEightBytes(const uint8_t *p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p));
}

VIDEOHDR_TARGET_SSE41 uint32_t addLanes64(__m128i sums) {
  return static_cast<uint32_t>(_mm_cvtsi128_si64(sums) +
                               _mm_cvtsi128_si64(_mm_unpackhi_epi64(sums, sums)));
}

// A row that cannot wrap a lane: the plain sum of its covered bytes (whole
// 8-byte groups), 16 at a time and then the last group.
VIDEOHDR_TARGET_SSE41 uint32_t plainRowSum(const uint8_t *row, int32_t covered) {
  const __m128i zero = _mm_setzero_si128();
  __m128i sums = zero;
  int32_t x = 0;
  for (; x + 16 <= covered; x += 16)
    sums = _mm_add_epi64(sums, _mm_sad_epu8(loadBytes(row + x), zero));
  if (x < covered) sums = _mm_add_epi64(sums, _mm_sad_epu8(loadEightBytes(row + x), zero));
  return addLanes64(sums);
}

// A wider row through eight 16-bit lanes that wrap, lane k taking byte k of
// every 8-byte group, widened as it is loaded; two sets of lanes take every
// other group, so that consecutive adds do not wait for each other, and are
// added (wrapping too) at the end of the row.
VIDEOHDR_TARGET_SSE41 uint32_t wrappingRowSum(const uint8_t *row, int32_t covered) {
  __m128i first = _mm_setzero_si128(), second = first;
  int32_t x = 0;
  for (; x + 16 <= covered; x += 16) {
    first = _mm_add_epi16(first, _mm_cvtepu8_epi16(loadEightBytes(row + x)));
    second = _mm_add_epi16(second, _mm_cvtepu8_epi16(loadEightBytes(row + x + 8)));
  }
  if (x < covered) first = _mm_add_epi16(first, _mm_cvtepu8_epi16(loadEightBytes(row + x)));
  return addWordLanesSse41(_mm_add_epi16(first, second));
}

// 64 bytes per step, their sums in two 64-bit lanes, which cannot overflow.
VIDEOHDR_TARGET_SSE41 uint32_t copyAndSumSteps(uint8_t *dst, const uint8_t *src, size_t steps) {
  const __m128i zero = _mm_setzero_si128();
  __m128i sums = zero;
  for (; steps != 0; --steps, src += 64, dst += 64) {
    for (int k = 0; k < 64; k += 16) {
      const __m128i bytes = loadBytes(src + k);
      _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + k), bytes);
      sums = _mm_add_epi64(sums, _mm_sad_epu8(bytes, zero));
    }
  }
  return addLanes64(sums);
}

// Pixel k of a block goes to bit 31 - k. Reversing each group of eight pixels
// first makes the compares' sign mask hold pixels 8b .. 8b + 7 in its byte b,
// the first pixel highest; the byte swap then puts byte 0 on top. The
// unsigned compare is a signed one after flipping the top bits.
VIDEOHDR_TARGET_SSE41 void packBlocks(const uint8_t *row, int32_t blocks, uint8_t threshold,
                                      uint32_t *words) {
  const __m128i reverse = _mm_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
  const __m128i flip = _mm_set1_epi8(static_cast<char>(0x80));
  const __m128i limit = _mm_set1_epi8(static_cast<char>(threshold ^ 0x80));
  for (int32_t j = 0; j < blocks; ++j) {
    uint32_t mask = 0;
    for (int half = 0; half < 2; ++half) {
      const __m128i pixels = _mm_shuffle_epi8(loadBytes(row + 32 * j + 16 * half), reverse);
      const __m128i brighter = _mm_cmpgt_epi8(_mm_xor_si128(pixels, flip), limit);
      mask |= static_cast<uint32_t>(_mm_movemask_epi8(brighter)) << (16 * half);
    }
    words[j] = __builtin_bswap32(mask);
  }
}

// Four output words from eight source words. Each byte's four even pixels
// come from one lookup per nibble (bits 7 and 5 of the byte, then 3 and 1),
// as a nibble with the first pixel highest; a multiply-add joins each byte
// pair (the higher byte's nibble on top), so that every 16-bit lane holds the
// even pixels of one source half-word and every 32-bit lane those of one
// source word, low half first. Narrowing two vectors keeps them, and a
// shuffle swaps the half-words, since output pixels 0-15 come from the first
// source word of a pair.
VIDEOHDR_TARGET_SSE41 __m128i evenPixelHalves(__m128i bytes) {
  const __m128i lowTable = _mm_setr_epi8(0, 0, 1, 1, 0, 0, 1, 1, 2, 2, 3, 3, 2, 2, 3, 3);
  const __m128i highTable = _mm_slli_epi16(lowTable, 2);
  const __m128i nibble = _mm_set1_epi8(0x0F);
  const __m128i low = _mm_shuffle_epi8(lowTable, _mm_and_si128(bytes, nibble));
  const __m128i high = _mm_shuffle_epi8(highTable, _mm_and_si128(_mm_srli_epi16(bytes, 4), nibble));
  return _mm_maddubs_epi16(_mm_or_si128(low, high), _mm_set1_epi16(16 << 8 | 1));
}

VIDEOHDR_TARGET_SSE41 void decimateBlock(const uint32_t *src, uint32_t *dst) {
  const __m128i swapHalves = _mm_setr_epi8(2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13);
  const __m128i packed = _mm_packus_epi16(evenPixelHalves(loadWordsSse41(src)),
                                          evenPixelHalves(loadWordsSse41(src + 4)));
  storeWordsSse41(dst, _mm_shuffle_epi8(packed, swapHalves));
}

// Whole blocks of four output words (at least one); a row that is not a whole
// number of them ends with one more block over its last four words, which
// writes the words it shares with the block before again, with the same
// values.
VIDEOHDR_TARGET_SSE41 void decimateBlocks(const uint32_t *src, uint32_t *dst, int32_t words) {
  for (int32_t j = 0; j + 4 <= words; j += 4) decimateBlock(src + 2 * j, dst + j);
  if (words % 4 != 0) decimateBlock(src + 2 * (words - 4), dst + words - 4);
}

VIDEOHDR_TARGET_SSE41 void funnelBlockLeft(const uint32_t *src, uint32_t *dst,
                                           FunnelCounts counts) {
  storeWordsSse41(dst,
                  funnelTowardsBit31Sse41(loadWordsSse41(src), loadWordsSse41(src + 1), counts));
}

// Whole blocks of four words; a count that is not a whole number of them ends
// with one more block over the last four words, which writes the words it
// shares with the block before again, with the same values.
VIDEOHDR_TARGET_SSE41 void funnelWordsLeft(const uint32_t *src, uint32_t *dst, int32_t count,
                                           int32_t sx) {
  if (count < kBlockWords) {
    for (int32_t i = 0; i < count; ++i) dst[i] = funnelLeft(src[i], src[i + 1], sx);
    return;
  }
  const FunnelCounts counts = funnelCounts(sx);
  for (int32_t i = 0; i + kBlockWords <= count; i += kBlockWords)
    funnelBlockLeft(src + i, dst + i, counts);
  if (count % kBlockWords != 0)
    funnelBlockLeft(src + count - kBlockWords, dst + count - kBlockWords, counts);
}

// The words before `end` (unmaskedRightWords) in whole blocks, each block's
// first partner being the last word of the block before (0 for word 0), and
// where they are not a whole number of blocks one more block over the last
// four of them. Answers where the portable move takes over.
VIDEOHDR_TARGET_SSE41 int32_t moveBlocksRight(const uint32_t *src, uint32_t *dst, int32_t end,
                                              int32_t shift) {
  const FunnelCounts counts = funnelCounts(shift);
  __m128i previous = _mm_setzero_si128();
  for (int32_t i = 0; i + kBlockWords <= end; i += kBlockWords) {
    const __m128i current = loadWordsSse41(src + i);
    storeWordsSse41(
        dst + i, funnelTowardsBit0Sse41(current, _mm_alignr_epi8(current, previous, 12), counts));
    previous = current;
  }
  const int32_t at = wholeBlocks<kBlockWords>(end);
  if (at == end || at == 0) return at;
  const int32_t last = end - kBlockWords;  // 1 or more: the partner word is there
  storeWordsSse41(dst + last, funnelTowardsBit0Sse41(loadWordsSse41(src + last),
                                                     loadWordsSse41(src + last - 1), counts));
  return end;
}

}  // namespace

uint32_t sumLumaSse41(const uint8_t *image, int32_t w, int32_t h) {
  return sumLumaRows<plainRowSum, wrappingRowSum>(image, w, h);
}

uint32_t copyLumaAndSumSse41(uint8_t *dst, const uint8_t *src, size_t n) {
  return copyLumaAndSumSteps<64, copyAndSumSteps>(dst, src, n);
}

void packThresholdBitsSse41(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold,
                            uint32_t *bitmap) {
  packRows<packBlocks>(image, w, h, threshold, bitmap);
}

void decimateRowSse41(const uint32_t *src, uint32_t *dst, int32_t words) {
  if (words < 4) return decimateRowPortable(src, dst, words);
  decimateBlocks(src, dst, words);
}

void shiftRowLeftSse41(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx) {
  shiftRowLeft<funnelWordsLeft>(src, dst, width, sx);
}

// The portable moves finish the row, so neither the pad word nor the next row
// is touched.
void shiftRowRightSse41(const uint32_t *src, uint32_t *dst, int32_t width, int32_t shift) {
  const int32_t at = moveBlocksRight(src, dst, unmaskedRightWords(width, shift), shift);
  moveWordsRightPortable(src, dst, at, bitmapWords(width) - 1, width - shift, shift);
}

}  // namespace videohdr

#endif  // VIDEOHDR_HAVE_X86_SIMD
