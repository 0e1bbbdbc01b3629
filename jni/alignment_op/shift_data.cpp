// Bitmap shifting: the previous frame's bitmap of a level moved by twice the
// shift found one level coarser, so that the search only tries small offsets
// around that starting point. Destination pixel (x, y) takes source pixel
// (x + sx, y + sy); whatever comes from outside the level is 0.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "../any_row.h"
#include "../kernels.h"
#include "../simd.h"
#include "../videohdr.h"
#include "bit_rows.h"
#include "bitmap_layout.h"
#include "bitmap_ops.h"

namespace videohdr {
namespace {

void funnelWordsLeftPortable(const uint32_t *src, uint32_t *dst, int32_t count, int32_t sx) {
  for (int32_t i = 0; i < count; ++i) dst[i] = funnelLeft(src[i], src[i + 1], sx);
}

#if VIDEOHDR_HAVE_NEON
// Whole blocks of four words; a count that is not a whole number of them ends
// with one more block over the last four words, which writes the words it
// shares with the block before again, with the same values.
void funnelWordsLeftNeon(const uint32_t *src, uint32_t *dst, int32_t count, int32_t sx) {
  if (count < kBlockWords) return funnelWordsLeftPortable(src, dst, count, sx);
  const FunnelShifts shifts = funnelTowardsBit31(sx);
  const auto block = [&](int32_t i) {
    vst1q_u32(dst + i, funnelNeon(vld1q_u32(src + i), vld1q_u32(src + i + 1), shifts));
  };
  for (int32_t i = 0; i + kBlockWords <= count; i += kBlockWords) block(i);
  if (count % kBlockWords != 0) block(count - kBlockWords);
}
#endif

}  // namespace

void shiftRowLeftPortable(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx) {
  shiftRowLeft<funnelWordsLeftPortable>(src, dst, width, sx);
}

void shiftRowRightPortable(const uint32_t *src, uint32_t *dst, int32_t width, int32_t shift) {
  moveWordsRightPortable(src, dst, 0, bitmapWords(width) - 1, width - shift, shift);
}

#if VIDEOHDR_HAVE_NEON
void shiftRowLeftNeon(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx) {
  shiftRowLeft<funnelWordsLeftNeon>(src, dst, width, sx);
}

// Whole blocks of four while every source word in them lies before the limit
// (no word needs masking), each block's first partner being the last word of
// the block before (0 for word 0), and where those words are not a whole
// number of blocks one more block over the last four of them (rewriting the
// words it shares with the block before with the same values); the portable
// moves finish the row, so neither the pad word nor the next row is touched.
void shiftRowRightNeon(const uint32_t *src, uint32_t *dst, int32_t width, int32_t shift) {
  const int32_t dataWords = bitmapWords(width) - 1;
  const int32_t limit = width - shift;
  const int32_t unmasked = unmaskedRightWords(width, shift);
  const FunnelShifts shifts = funnelTowardsBit0(shift);
  uint32x4_t previous = vdupq_n_u32(0);
  for (int32_t i = 0; i + kBlockWords <= unmasked; i += kBlockWords) {
    const uint32x4_t current = vld1q_u32(src + i);
    vst1q_u32(dst + i, funnelNeon(current, vextq_u32(previous, current, 3), shifts));
    previous = current;
  }
  int32_t at = wholeBlocks<kBlockWords>(unmasked);
  if (at != unmasked && at != 0) {
    at = unmasked - kBlockWords;  // 1 or more: the partner word is there
    vst1q_u32(dst + at, funnelNeon(vld1q_u32(src + at), vld1q_u32(src + at - 1), shifts));
    at = unmasked;
  }
  moveWordsRightPortable(src, dst, at, dataWords, limit, shift);
}
#endif

}  // namespace videohdr

namespace {

void copyBytes(uint8_t *dst, const uint8_t *src, size_t n) {
  videohdr::activeKernels().copy.copyBytes(dst, src, n);
}

// Writes one destination row (cleared beforehand) from one source row.
void moveRow(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx) {
  if (sx > 0) {
    videohdr::activeKernels().bitmap.shiftRowLeft(src, dst, width, sx);
  } else if (sx < 0) {
    videohdr::activeKernels().bitmap.shiftRowRight(src, dst, width, -sx);
  } else {
    // The data words only: the pad word stays clear.
    std::memcpy(dst, src, static_cast<size_t>(videohdr::bitmapWords(width) - 1) * 4);
  }
}

// moveRow for sx = 0 over the whole level, when the pitch is the rows' own
// words: the rows that have a source row take it whole in one copy, and then
// their pad words are cleared, since a moved row takes the data words only.
// Everything else is cleared.
void moveRowsVertically(const uint32_t *src, uint32_t *dst, size_t pitchWords, int32_t h,
                        int32_t firstRow, int32_t endRow, int32_t sy) {
  const size_t pitchBytes = pitchWords * 4;
  std::memset(dst, 0, pitchBytes * firstRow);
  copyBytes(reinterpret_cast<uint8_t *>(dst + firstRow * pitchWords),
            reinterpret_cast<const uint8_t *>(src + (firstRow + sy) * pitchWords),
            pitchBytes * (endRow - firstRow));
  for (int32_t y = firstRow; y < endRow; ++y) dst[(y + 1) * pitchWords - 1] = 0;
  std::memset(dst + endRow * pitchWords, 0, pitchBytes * (h + 1 - endRow));
}

}  // namespace

extern "C" void shiftData(AlignContext *context, int32_t level) {
  const int32_t w = context->levelWidth[level];
  const int32_t h = context->levelHeight[level];
  const size_t pitchWords = static_cast<size_t>(context->levelPitch[level]) / 4;
  const size_t regionBytes = static_cast<size_t>(h + 1) * context->levelPitch[level];
  const uint32_t *src = context->prevBitmap[level];
  uint32_t *dst = context->movedBitmap[level];
  if (level == context->levels - 1) {
    // Nothing coarser to start from: the bitmap as it is, spare row included.
    copyBytes(reinterpret_cast<uint8_t *>(dst), reinterpret_cast<const uint8_t *>(src),
              regionBytes);
    return;
  }
  const int32_t sx = 2 * context->levelDx[level + 1];
  const int32_t sy = 2 * context->levelDy[level + 1];
  const int32_t firstRow = std::max(0, -sy);
  const int32_t endRow = h - std::max(0, sy);
  if (sx == 0 && firstRow < endRow && pitchWords == static_cast<size_t>(videohdr::bitmapWords(w))) {
    moveRowsVertically(src, dst, pitchWords, h, firstRow, endRow, sy);
    return;
  }
  std::memset(dst, 0, regionBytes);
  // Moves of a word or more are outside what the word funnels can do; the rows
  // are then left clear rather than half moved.
  if (sx <= -32 || sx >= 32) return;
  for (int32_t y = firstRow; y < endRow; ++y)
    moveRow(src + static_cast<size_t>(y + sy) * pitchWords,
            dst + static_cast<size_t>(y) * pitchWords, w, sx);
}
