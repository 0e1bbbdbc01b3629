// Bitmap shifting: the previous frame's bitmap of a level moved by twice the
// shift found one level coarser, so that the search only tries small offsets
// around that starting point. Destination pixel (x, y) takes source pixel
// (x + sx, y + sy); whatever comes from outside the level is 0.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "../simd.h"
#include "../videohdr.h"
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

#if VIDEOHDR_HAVE_NEON
// (current << sx) | (next >> (32 - sx)) per lane, as vshlq by sx and sx - 32.
uint32x4_t funnelLeft(uint32x4_t current, uint32x4_t next, int32x4_t up, int32x4_t down) {
  return vorrq_u32(vshlq_u32(current, up), vshlq_u32(next, down));
}

// (current >> shift) | (before << (32 - shift)) per lane.
uint32x4_t funnelRight(uint32x4_t current, uint32x4_t before, int32x4_t down, int32x4_t up) {
  return vorrq_u32(vshlq_u32(current, down), vshlq_u32(before, up));
}
#endif

}  // namespace

// Word W - k is the last lane of the block that finishes the funnelled words,
// so it is written (as src[W - k] << sx) only when W - k ends in a partial
// block; after a whole number of blocks it stays clear.
void shiftRowLeftPortable(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx) {
  const int32_t funnelled = leftFunnelWords(width, sx);
  if (funnelled < 0) return;
  for (int32_t i = 0; i < funnelled; ++i) dst[i] = (src[i] << sx) | (src[i + 1] >> (32 - sx));
  if (funnelled % 4 != 0) dst[funnelled] = src[funnelled] << sx;
}

void shiftRowRightPortable(const uint32_t *src, uint32_t *dst, int32_t width, int32_t shift) {
  const int32_t dataWords = bitmapWords(width) - 1;
  const int32_t limit = width - shift;
  uint32_t before = 0;  // nothing comes in at pixel 0
  for (int32_t j = 0; j < dataWords; ++j) {
    const uint32_t word = src[j] & keptBits(j, limit);
    dst[j] = (word >> shift) | (before << (32 - shift));
    before = word;
  }
}

#if VIDEOHDR_HAVE_NEON
// Whole blocks of four from word 0; the t = (W - k) % 4 words left and word
// W - k go through a zeroed scratch block of the t source words followed by
// src[W - k], whose lane t is then src[W - k] << sx. Only the t + 1 lanes that
// belong to the row are stored: the lanes after them are zero and would fall
// on words that are clear already.
void shiftRowLeftNeon(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx) {
  const int32_t funnelled = leftFunnelWords(width, sx);
  if (funnelled < 0) return;
  const int32_t t = funnelled % 4;
  const int32x4_t up = vdupq_n_s32(sx);
  const int32x4_t down = vdupq_n_s32(sx - 32);
  int32_t i = 0;
  for (; i < funnelled - t; i += 4)
    vst1q_u32(dst + i, funnelLeft(vld1q_u32(src + i), vld1q_u32(src + i + 1), up, down));
  if (t == 0) return;
  uint32_t scratch[5] = {0};
  std::memcpy(scratch, src + i, static_cast<size_t>(t + 1) * sizeof(uint32_t));
  uint32_t lanes[4];
  vst1q_u32(lanes, funnelLeft(vld1q_u32(scratch), vld1q_u32(scratch + 1), up, down));
  std::memcpy(dst + i, lanes, static_cast<size_t>(t + 1) * sizeof(uint32_t));
}

// Whole blocks of four while every source word in them lies before the limit,
// each block's first partner being the last word of the block before (0 for
// word 0). The remaining data words go through a scratch block of masked source
// words, zero past the row's data words, and only the lanes that are data words
// are stored, so neither the pad word nor the next row is touched.
void shiftRowRightNeon(const uint32_t *src, uint32_t *dst, int32_t width, int32_t shift) {
  const int32_t dataWords = bitmapWords(width) - 1;
  const int32_t limit = width - shift;
  const int32x4_t down = vdupq_n_s32(-shift);
  const int32x4_t up = vdupq_n_s32(32 - shift);
  uint32x4_t previous = vdupq_n_u32(0);
  int32_t i = 0;
  for (; i + 4 <= dataWords && 32 * (i + 4) <= limit; i += 4) {
    const uint32x4_t current = vld1q_u32(src + i);
    vst1q_u32(dst + i, funnelRight(current, vextq_u32(previous, current, 3), down, up));
    previous = current;
  }
  uint32_t scratch[5] = {vgetq_lane_u32(previous, 3), 0, 0, 0, 0};
  for (; i < dataWords; i += 4) {
    const int32_t count = std::min(4, dataWords - i);
    for (int32_t j = 0; j < 4; ++j)
      scratch[1 + j] = j < count ? src[i + j] & keptBits(i + j, limit) : 0;
    uint32_t lanes[4];
    vst1q_u32(lanes, funnelRight(vld1q_u32(scratch + 1), vld1q_u32(scratch), down, up));
    std::memcpy(dst + i, lanes, static_cast<size_t>(count) * sizeof(uint32_t));
    scratch[0] = scratch[4];
  }
}
#endif

}  // namespace videohdr

namespace {

#if VIDEOHDR_NATIVE_NEON
constexpr auto shiftRowLeft = videohdr::shiftRowLeftNeon;
constexpr auto shiftRowRight = videohdr::shiftRowRightNeon;
#else
constexpr auto shiftRowLeft = videohdr::shiftRowLeftPortable;
constexpr auto shiftRowRight = videohdr::shiftRowRightPortable;
#endif

// Writes one destination row (cleared beforehand) from one source row.
void moveRow(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx) {
  if (sx > 0) {
    shiftRowLeft(src, dst, width, sx);
  } else if (sx < 0) {
    shiftRowRight(src, dst, width, -sx);
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
