// Full-resolution XOR score of one candidate shift: how many level-0 bitmap
// pixels of the previous frame, displaced by (dx, dy), disagree with the
// current frame's over the exact overlap of the two frames.
//
// This is deliberately not the pyramid search's scoring: the overlap here is
// exact (no symmetric row margin), the first pixels of a row are compared,
// both bitmaps take part in the edge word and every data word before it is
// counted. Its edge handling therefore stays separate from the search's.
#include <cstddef>
#include <cstdint>

#include "../kernels.h"
#include "../simd.h"
#include "../videohdr.h"
#include "bit_rows.h"
#include "score_layout.h"
#include "score_ops.h"

namespace {

// Where the per-row full-word count stops, which word is the edge word and
// which of the undisplaced side's bits it keeps.
struct EdgeWord {
  int32_t index;
  uint32_t mask;
};

// The kept bits of the edge word end at pixel width - u - 1, the last pixel
// whose partner lies inside the row. With u >= r the partner of the partial
// last data word's first pixel is already outside, so the word before it is
// the edge.
EdgeWord edgeWordFor(int32_t width, int32_t pitchWords, int32_t u) {
  const int32_t r = width % 32;
  if (r == 0) return {pitchWords - 2, ~0u << u};
  if (u < r) return {pitchWords - 2, ~0u << (u + 32 - r)};
  return {pitchWords - 3, ~0u << (u - r)};
}

}  // namespace

namespace videohdr {

void countXorBlocksPortable(const uint32_t *displaced, const uint32_t *other, int32_t pitchWords,
                            int32_t rows, int32_t words, int32_t shift, uint32_t totals[4]) {
  PartialBlock partial(words);
  for (int32_t k = 0; k < 4; ++k) totals[k] = 0;
  for (int32_t y = 0; y < rows; ++y) {
    const uint32_t *s = displaced + static_cast<ptrdiff_t>(y) * pitchWords;
    const uint32_t *t = other + static_cast<ptrdiff_t>(y) * pitchWords;
    uint8_t lanes[16] = {0};
    for (int32_t i = 0; i < partial.start; i += kBlockWords)
      addBlockPortable(s + i, t + i, shift, lanes);
    if (partial.words != 0) {
      partial.load(s, t, shift);
      addBlockPortable(partial.displaced, partial.other, shift, lanes);
    }
    // Widened once per row: bytes of word k into total k.
    for (int32_t b = 0; b < 16; ++b) totals[b / 4] += lanes[b];
  }
}

#if VIDEOHDR_HAVE_NEON

namespace {

// The word after the block is loaded only for a displaced row (shift != 0).
uint8x16_t addBlockNeon(uint8x16_t lanes, const uint32_t *displaced, const uint32_t *other,
                        int32_t shift) {
  uint32x4_t s = vld1q_u32(displaced);
  if (shift != 0) s = funnelNeon(s, vld1q_u32(displaced + 1), funnelTowardsBit31(shift));
  return addBitCountsNeon(lanes, veorq_u32(s, vld1q_u32(other)));
}

}  // namespace

void countXorBlocksNeon(const uint32_t *displaced, const uint32_t *other, int32_t pitchWords,
                        int32_t rows, int32_t words, int32_t shift, uint32_t totals[4]) {
  PartialBlock partial(words);
  uint32x4_t sums = vdupq_n_u32(0);
  for (int32_t y = 0; y < rows; ++y) {
    const uint32_t *s = displaced + static_cast<ptrdiff_t>(y) * pitchWords;
    const uint32_t *t = other + static_cast<ptrdiff_t>(y) * pitchWords;
    uint8x16_t lanes = vdupq_n_u8(0);  // wraps past 31 blocks per row
    for (int32_t i = 0; i < partial.start; i += kBlockWords)
      lanes = addBlockNeon(lanes, s + i, t + i, shift);
    if (partial.words != 0) {
      partial.load(s, t, shift);
      lanes = addBlockNeon(lanes, partial.displaced, partial.other, shift);
    }
    sums = widenLanesNeon(sums, lanes);
  }
  vst1q_u32(totals, sums);
}

#endif  // VIDEOHDR_HAVE_NEON

}  // namespace videohdr

extern "C" float xorTwoResult(AlignContext *context, int32_t /*ignored1*/, int32_t /*ignored2*/,
                              int32_t dy, int32_t dx) {
  const int32_t width = context->width;
  const int32_t height = context->height;
  const int64_t u = dx < 0 ? -static_cast<int64_t>(dx) : dx;
  // Horizontal moves only ever shift bits into the neighbouring word; a move
  // of a whole word or more, or past the row, is not a score we can give.
  if (width < 1 || u >= 32 || (u != 0 && u >= width)) return 0.0f;
  const int64_t firstRow = dy < 0 ? -static_cast<int64_t>(dy) : 0;
  const int64_t endRow = static_cast<int64_t>(height) - (dy > 0 ? dy : 0);
  if (endRow <= firstRow) return 0.0f;

  const int32_t pitchWords = (width + 63) >> 5;
  const int32_t rows = static_cast<int32_t>(endRow - firstRow);
  const uint32_t *ref = context->curBitmap[0] + firstRow * pitchWords;
  const uint32_t *moving = context->prevBitmap[0] + (firstRow + dy) * pitchWords;
  // The displaced side is the moving bitmap for dx > 0 and the reference for
  // dx < 0; XOR does not care which row comes first.
  const uint32_t *displaced = dx < 0 ? ref : moving;
  const uint32_t *other = dx < 0 ? moving : ref;
  const int32_t shift = static_cast<int32_t>(u);

  EdgeWord edge{pitchWords - 1, 0};  // dx = 0: every data word counts in full
  if (shift != 0) edge = edgeWordFor(width, pitchWords, shift);

  uint32_t totals[4];
  videohdr::activeKernels().score.countXorBlocks(displaced, other, pitchWords, rows, edge.index,
                                                 shift, totals);

  float edgeTotal = 0.0f;
  if (shift != 0) {
    for (int32_t y = 0; y < rows; ++y) {
      const uint32_t *s = displaced + static_cast<ptrdiff_t>(y) * pitchWords;
      const uint32_t *t = other + static_cast<ptrdiff_t>(y) * pitchWords;
      const uint32_t x = videohdr::funnelAt(s + edge.index, shift) ^ (t[edge.index] & edge.mask);
      edgeTotal += static_cast<float>(videohdr::bitCount(x));
    }
  }
  const uint32_t wholeWords = totals[0] + totals[1] + totals[2] + totals[3];
  return static_cast<float>(wholeWords) + edgeTotal;
}
