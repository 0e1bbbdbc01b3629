// The block layouts of the bitmap kernels, which every instance shares: which
// bytes the luma sums' lanes cover, which 32-pixel blocks become threshold
// words, and which words a row move funnels. The instances differ only in the
// block functions they pass in, so the layout, which is part of the result,
// is written once.
#ifndef VIDEOHDR_ALIGN_BITMAP_LAYOUT_H
#define VIDEOHDR_ALIGN_BITMAP_LAYOUT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "../any_row.h"
#include "bit_rows.h"
#include "bitmap_ops.h"

namespace videohdr {

// A row of up to 2,056 pixels cannot wrap a 16-bit lane (each lane adds at
// most 257 bytes of 255), so its lane total is the plain sum of the bytes its
// 8-byte groups cover, added in any order. Wider rows follow the lanes.
constexpr int32_t kWidestUnwrappedRow = 2056;

// The bytes a row's 8-byte groups cover: up to 7 past its end.
inline int32_t coveredBytes(int32_t w) { return (w + 7) & ~7; }

// The lane total of each row, from the instance's row sums: `plainRow` adds
// the covered bytes in any order, `wrappingRow` follows the 16-bit lanes.
using RowSum = uint32_t (*)(const uint8_t *row, int32_t covered);

template <RowSum plainRow, RowSum wrappingRow>
uint32_t sumLumaRows(const uint8_t *image, int32_t w, int32_t h) {
  const int32_t covered = coveredBytes(w);
  const bool plain = w <= kWidestUnwrappedRow;
  uint32_t total = 0;
  for (int32_t y = 0; y < h; ++y) {
    const uint8_t *row = image + static_cast<size_t>(y) * w;
    total += plain ? plainRow(row, covered) : wrappingRow(row, covered);
  }
  return total;
}

// The copy with its sum: the instance's whole steps of `Step` bytes, then the
// portable code for the rest.
using CopyAndSumSteps = uint32_t (*)(uint8_t *dst, const uint8_t *src, size_t steps);

template <size_t Step, CopyAndSumSteps steps>
uint32_t copyLumaAndSumSteps(uint8_t *dst, const uint8_t *src, size_t n) {
  uint32_t sum = 0;
  blocksThenRest(
      wholeBlocks<Step>(n), n, [&](size_t end) { sum = steps(dst, src, end / Step); },
      [&](size_t at, size_t rest) { sum += copyLumaAndSumPortable(dst + at, src + at, rest); });
  return sum;
}

// Packs `blocks` whole 32-pixel blocks of a row into consecutive words, pixel
// k of a block in bit 31 - k.
using PackBlocks = void (*)(const uint8_t *row, int32_t blocks, uint8_t threshold, uint32_t *words);

// The threshold bits' block layout, with the instance's block packer.
template <PackBlocks packBlocks>
void packRows(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold, uint32_t *bitmap) {
  const int32_t words = bitmapWords(w);
  const int32_t tailPixels = w % 32;
  // Blocks at x = 0 and then while x < w - 32: for a width that is a multiple
  // of 32 this stops one block early, so the last 32 columns keep 0 bits. The
  // search's counts depend on it.
  const int32_t wholeBlocks = w >= 33 ? (w - 32 + 31) / 32 : 0;
  for (int32_t y = 0; y < h; ++y) {
    const uint8_t *row = image + static_cast<size_t>(y) * w;
    uint32_t *rowWords = bitmap + static_cast<size_t>(y) * words;
    // The blocks leave two words of every row, the tail (or blocked) word and
    // the spare one: clearing just these (the tail word may then be stored
    // over the first) leaves what clearing the whole bitmap first would.
    rowWords[wholeBlocks] = rowWords[wholeBlocks + 1] = 0;
    // Narrower than 33 pixels the block loop never starts and every row's tail
    // word is stored to word 1 of row 0, so only the last row's bits remain
    // there. Such widths are outside the search's range; the bits stay those of
    // the block layout rather than a different layout for small frames.
    uint32_t *tailWord = bitmap + 1;
    if (wholeBlocks > 0) {
      packBlocks(row, wholeBlocks, threshold, rowWords);
      tailWord = rowWords + wholeBlocks;
    }
    if (tailPixels != 0) {
      // The zero padding gives 0 bits: no byte is greater than any threshold.
      uint8_t block[32] = {0};
      std::memcpy(block, row + 32 * wholeBlocks, static_cast<size_t>(tailPixels));
      packBlocks(block, 1, threshold, tailWord);
    }
  }
}

// Words funnelled by a move to the left: W - k, with k = 3 when the last data
// word's r = width % 32 pixels all leave it (0 < r <= sx), else k = 2. With
// k = 3 those pixels are not brought into word W - 3: the move loses up to sx
// pixels at the right edge. The search's scores at every finer level depend on
// these exact bits, so the loss is kept. Negative only for rows of fewer than
// 32 pixels, which then have nothing to move.
inline int32_t leftFunnelWords(int32_t width, int32_t sx) {
  const int32_t r = width % 32;
  return bitmapWords(width) - (r > 0 && r <= sx ? 3 : 2);
}

// Funnels words 0 .. count - 1 of a row towards bit 31 by sx (1..31), each
// taking its low bits from the word after it.
using FunnelWords = void (*)(const uint32_t *src, uint32_t *dst, int32_t count, int32_t sx);

// The leftward move's layout, with the instance's word funnel. Word W - k is
// the last lane of the block that finishes the funnelled words, so it is
// written (as src[W - k] << sx) only when W - k ends in a partial block; after
// a whole number of blocks it stays clear.
template <FunnelWords funnelWords>
void shiftRowLeft(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx) {
  const int32_t funnelled = leftFunnelWords(width, sx);
  if (funnelled < 0) return;
  funnelWords(src, dst, funnelled, sx);
  if (funnelled % kBlockWords != 0) dst[funnelled] = src[funnelled] << sx;
}

// Bits of word j holding pixels before `limit`. A rightward move drops every
// source pixel from width - shift on: it would land past the row's last pixel.
inline uint32_t keptBits(int32_t j, int32_t limit) {
  const int32_t bits = limit - 32 * j;
  if (bits >= 32) return ~0u;
  if (bits <= 0) return 0;
  return ~0u << (32 - bits);
}

// Destination words [first, end) of a move to the right: the portable move,
// and the rest of a row after an instance's whole blocks.
inline void moveWordsRightPortable(const uint32_t *src, uint32_t *dst, int32_t first, int32_t end,
                                   int32_t limit, int32_t shift) {
  uint32_t before = first == 0 ? 0 : src[first - 1] & keptBits(first - 1, limit);
  for (int32_t j = first; j < end; ++j) {
    const uint32_t word = src[j] & keptBits(j, limit);
    dst[j] = funnelRight(word, before, shift);
    before = word;
  }
}

// The words of a rightward move whose source words all lie before the limit
// (width - shift), so that whole blocks can move them without masking.
inline int32_t unmaskedRightWords(int32_t width, int32_t shift) {
  const int32_t limit = width - shift;
  const int32_t dataWords = bitmapWords(width) - 1;
  if (limit <= 0) return 0;
  return limit / 32 < dataWords ? limit / 32 : dataWords;
}

}  // namespace videohdr

#endif  // VIDEOHDR_ALIGN_BITMAP_LAYOUT_H
