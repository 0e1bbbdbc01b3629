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
#include "bitmap_ops.h"

namespace videohdr {
namespace {

// Words funnelled by a move to the left: W - k, with k = 3 when the last data
// word's r = width % 32 pixels all leave it (0 < r <= sx), else k = 2. With
// k = 3 those pixels are not brought into word W - 3: the move loses up to sx
// pixels at the right edge. The search's scores at every finer level depend on
// these exact bits, so the loss is kept. Negative only for rows of fewer than
// 32 pixels, which then have nothing to move.
int32_t leftFunnelWords(int32_t width, int32_t sx) {
  const int32_t r = width % 32;
  return bitmapWords(width) - (r > 0 && r <= sx ? 3 : 2);
}

// Bits of word j holding pixels before `limit`. A rightward move drops every
// source pixel from width - shift on: it would land past the row's last pixel.
uint32_t keptBits(int32_t j, int32_t limit) {
  const int32_t bits = limit - 32 * j;
  if (bits >= 32) return ~0u;
  if (bits <= 0) return 0;
  return ~0u << (32 - bits);
}

void funnelWordsLeftPortable(const uint32_t *src, uint32_t *dst, int32_t count, int32_t sx) {
  for (int32_t i = 0; i < count; ++i) dst[i] = funnelLeft(src[i], src[i + 1], sx);
}

// Destination words [first, end) of a move to the right.
void moveWordsRightPortable(const uint32_t *src, uint32_t *dst, int32_t first, int32_t end,
                            int32_t limit, int32_t shift) {
  uint32_t before = first == 0 ? 0 : src[first - 1] & keptBits(first - 1, limit);
  for (int32_t j = first; j < end; ++j) {
    const uint32_t word = src[j] & keptBits(j, limit);
    dst[j] = funnelRight(word, before, shift);
    before = word;
  }
}

// The layout both variants share; they differ in how the whole words are
// funnelled. Word W - k is the last lane of the block that finishes the
// funnelled words, so it is written (as src[W - k] << sx) only when W - k ends
// in a partial block; after a whole number of blocks it stays clear.
template <void (*funnelWords)(const uint32_t *, uint32_t *, int32_t, int32_t)>
void shiftRowLeft(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx) {
  const int32_t funnelled = leftFunnelWords(width, sx);
  if (funnelled < 0) return;
  funnelWords(src, dst, funnelled, sx);
  if (funnelled % kBlockWords != 0) dst[funnelled] = src[funnelled] << sx;
}

#if VIDEOHDR_HAVE_NEON
void funnelWordsLeftNeon(const uint32_t *src, uint32_t *dst, int32_t count, int32_t sx) {
  blocksThenRest(
      wholeBlocks<kBlockWords>(count), count,
      [=](int32_t end) {
        const FunnelShifts shifts = funnelTowardsBit31(sx);
        for (int32_t i = 0; i < end; i += kBlockWords)
          vst1q_u32(dst + i, funnelNeon(vld1q_u32(src + i), vld1q_u32(src + i + 1), shifts));
      },
      [=](int32_t at, int32_t rest) { funnelWordsLeftPortable(src + at, dst + at, rest, sx); });
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
// the block before (0 for word 0); the portable moves finish the row, so
// neither the pad word nor the next row is touched.
void shiftRowRightNeon(const uint32_t *src, uint32_t *dst, int32_t width, int32_t shift) {
  const int32_t dataWords = bitmapWords(width) - 1;
  const int32_t limit = width - shift;
  const int32_t unmasked = limit > 0 ? std::min(dataWords, limit / 32) : 0;
  blocksThenRest(
      wholeBlocks<kBlockWords>(unmasked), dataWords,
      [=](int32_t end) {
        const FunnelShifts shifts = funnelTowardsBit0(shift);
        uint32x4_t previous = vdupq_n_u32(0);
        for (int32_t i = 0; i < end; i += kBlockWords) {
          const uint32x4_t current = vld1q_u32(src + i);
          vst1q_u32(dst + i, funnelNeon(current, vextq_u32(previous, current, 3), shifts));
          previous = current;
        }
      },
      [=](int32_t at, int32_t) { moveWordsRightPortable(src, dst, at, dataWords, limit, shift); });
}
#endif

}  // namespace videohdr

namespace {

// Writes one destination row (cleared beforehand) from one source row.
void moveRow(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx) {
  if (sx > 0) {
    videohdr::kKernels.bitmap.shiftRowLeft(src, dst, width, sx);
  } else if (sx < 0) {
    videohdr::kKernels.bitmap.shiftRowRight(src, dst, width, -sx);
  } else {
    // The data words only: the pad word stays clear.
    std::memcpy(dst, src, static_cast<size_t>(videohdr::bitmapWords(width) - 1) * 4);
  }
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
    std::memcpy(dst, src, regionBytes);
    return;
  }
  std::memset(dst, 0, regionBytes);
  const int32_t sx = 2 * context->levelDx[level + 1];
  const int32_t sy = 2 * context->levelDy[level + 1];
  // Moves of a word or more are outside what the word funnels can do; the rows
  // are then left clear rather than half moved.
  if (sx <= -32 || sx >= 32) return;
  const int32_t firstRow = std::max(0, -sy);
  const int32_t endRow = h - std::max(0, sy);
  for (int32_t y = firstRow; y < endRow; ++y)
    moveRow(src + static_cast<size_t>(y + sy) * pitchWords,
            dst + static_cast<size_t>(y) * pitchWords, w, sx);
}
