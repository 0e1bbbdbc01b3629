// The bitmap pyramid: level l keeps every second pixel of every second row of
// level l - 1. Plain decimation of the packed bits, no smoothing or voting, so a
// pixel of a coarse level is exactly one pixel of level 0.
#include <cstddef>

#include "../any_row.h"
#include "../kernels.h"
#include "../simd.h"
#include "../videohdr.h"
#include "bitmap_ops.h"

namespace videohdr {
namespace {

// Gathers the even pixels of a word (bits 31, 29, ..., 1) into its low 16 bits,
// pixel 0 highest, by halving the spacing of the kept bits four times.
uint32_t evenPixels(uint32_t word) {
  uint32_t x = (word >> 1) & 0x55555555u;
  x = (x | (x >> 1)) & 0x33333333u;
  x = (x | (x >> 2)) & 0x0F0F0F0Fu;
  x = (x | (x >> 4)) & 0x00FF00FFu;
  return (x | (x >> 8)) & 0x0000FFFFu;
}

// Output pixels 0-15 come from the first source word, 16-31 from the second.
uint32_t decimateWord(uint32_t first, uint32_t second) {
  return (evenPixels(first) << 16) | evenPixels(second);
}

#if VIDEOHDR_HAVE_NEON
uint32x4_t evenPixelsNeon(uint32x4_t word) {
  uint32x4_t x = vandq_u32(vshrq_n_u32(word, 1), vdupq_n_u32(0x55555555u));
  x = vandq_u32(vorrq_u32(x, vshrq_n_u32(x, 1)), vdupq_n_u32(0x33333333u));
  x = vandq_u32(vorrq_u32(x, vshrq_n_u32(x, 2)), vdupq_n_u32(0x0F0F0F0Fu));
  x = vandq_u32(vorrq_u32(x, vshrq_n_u32(x, 4)), vdupq_n_u32(0x00FF00FFu));
  return vandq_u32(vorrq_u32(x, vshrq_n_u32(x, 8)), vdupq_n_u32(0x0000FFFFu));
}
#endif

}  // namespace

void decimateRowPortable(const uint32_t *src, uint32_t *dst, int32_t words) {
  for (int32_t j = 0; j < words; ++j) dst[j] = decimateWord(src[2 * j], src[2 * j + 1]);
}

#if VIDEOHDR_HAVE_NEON
// Four output words per step from eight source words split into even and odd
// ones.
void decimateRowNeon(const uint32_t *src, uint32_t *dst, int32_t words) {
  blocksThenRest(
      wholeBlocks<4>(words), words,
      [=](int32_t end) {
        for (int32_t j = 0; j < end; j += 4) {
          const uint32x4x2_t pairs = vld2q_u32(src + 2 * j);
          vst1q_u32(dst + j, vorrq_u32(vshlq_n_u32(evenPixelsNeon(pairs.val[0]), 16),
                                       evenPixelsNeon(pairs.val[1])));
        }
      },
      [=](int32_t at, int32_t rest) { decimateRowPortable(src + 2 * at, dst + at, rest); });
}
#endif

}  // namespace videohdr

extern "C" void buildGaussianPyramid(AlignContext *context, int32_t level) {
  const int32_t srcHeight = context->levelHeight[level - 1];
  if (srcHeight < 2 || context->levelWidth[level] < 1) return;
  const size_t srcPitch = static_cast<size_t>(context->levelPitch[level - 1]) / 4;
  const size_t dstPitch = static_cast<size_t>(context->levelPitch[level]) / 4;
  // The spare last word of each row is not written.
  const int32_t words = static_cast<int32_t>(dstPitch) - 1;
  const auto decimateRow = videohdr::kKernels.bitmap.decimateRow;
  // Odd source rows are dropped; both pyramids advance in the same pass.
  for (int32_t y = 0; y < srcHeight / 2; ++y) {
    const size_t src = 2 * y * srcPitch;
    const size_t dst = y * dstPitch;
    decimateRow(context->prevBitmap[level - 1] + src, context->prevBitmap[level] + dst, words);
    decimateRow(context->curBitmap[level - 1] + src, context->curBitmap[level] + dst, words);
  }
}
