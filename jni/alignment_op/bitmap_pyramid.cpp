// The bitmap pyramid: level l keeps every second pixel of every second row of
// level l - 1. Plain decimation of the packed bits, no smoothing or voting, so a
// pixel of a coarse level is exactly one pixel of level 0.
#include <cstddef>

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
// The even pixels of a nibble (its bits 3 and 1) in bits 7 and 6.
constexpr uint8_t kEvenPixelsOfNibble[16] = {0x00, 0x00, 0x40, 0x40, 0x00, 0x00, 0x40, 0x40,
                                             0x80, 0x80, 0xC0, 0xC0, 0x80, 0x80, 0xC0, 0xC0};

// A 16-byte table looked up by nibbles: one lookup on AArch64, two halves of
// eight on ARMv7.
#if defined(__aarch64__)
using NibbleTable = uint8x16_t;

inline NibbleTable loadNibbleTable(const uint8_t *table) { return vld1q_u8(table); }

inline uint8x16_t lookupNibbles(NibbleTable table, uint8x16_t nibbles) {
  return vqtbl1q_u8(table, nibbles);
}
#else
using NibbleTable = uint8x8x2_t;

inline NibbleTable loadNibbleTable(const uint8_t *table) {
  return {{vld1_u8(table), vld1_u8(table + 8)}};
}

inline uint8x16_t lookupNibbles(NibbleTable table, uint8x16_t nibbles) {
  return vcombine_u8(vtbl2_u8(table, vget_low_u8(nibbles)), vtbl2_u8(table, vget_high_u8(nibbles)));
}
#endif

// Four output words from eight source words. The de-interleaving load splits
// the source bytes into even (bytes 2k) and odd ones (2k + 1); byte k of the
// result takes the four even pixels of source byte 2k + 1 in its high nibble
// and those of byte 2k in its low one (a byte's pixels run from bit 7 down).
// Each 16-bit half then holds the pixels of its own source half, so the first
// source word of a pair lands in the low half of the output word where it
// belongs in the high one: swapping the halves finishes the word.
inline void decimateBlockNeon(const uint32_t *src, uint32_t *dst, NibbleTable table) {
  const uint8x16x2_t bytes = vld2q_u8(reinterpret_cast<const uint8_t *>(src));
  const uint8x16_t lowNibbles = vdupq_n_u8(0x0F);
  uint8x16_t packed[2];
  for (int k = 0; k < 2; ++k) {
    const uint8x16_t low = lookupNibbles(table, vandq_u8(bytes.val[k], lowNibbles));
    const uint8x16_t high = lookupNibbles(table, vshrq_n_u8(bytes.val[k], 4));
    packed[k] = vsriq_n_u8(high, low, 2);  // the byte's four even pixels in bits 7..4
  }
  const uint8x16_t words = vsriq_n_u8(packed[1], packed[0], 4);
  vst1q_u32(dst, vreinterpretq_u32_u16(vrev32q_u16(vreinterpretq_u16_u8(words))));
}
#endif

}  // namespace

void decimateRowPortable(const uint32_t *src, uint32_t *dst, int32_t words) {
  for (int32_t j = 0; j < words; ++j) dst[j] = decimateWord(src[2 * j], src[2 * j + 1]);
}

#if VIDEOHDR_HAVE_NEON
// Whole blocks of four output words; a row that is not a whole number of them
// ends with one more block over its last four words, which writes the words
// it shares with the block before again, with the same values.
void decimateRowNeon(const uint32_t *src, uint32_t *dst, int32_t words) {
  if (words < 4) return decimateRowPortable(src, dst, words);
  const NibbleTable table = loadNibbleTable(kEvenPixelsOfNibble);
  for (int32_t j = 0; j + 4 <= words; j += 4) decimateBlockNeon(src + 2 * j, dst + j, table);
  if (words % 4 != 0) decimateBlockNeon(src + 2 * (words - 4), dst + words - 4, table);
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
  const auto decimateRow = videohdr::activeKernels().bitmap.decimateRow;
  // Odd source rows are dropped; both pyramids advance in the same pass.
  for (int32_t y = 0; y < srcHeight / 2; ++y) {
    const size_t src = 2 * y * srcPitch;
    const size_t dst = y * dstPitch;
    decimateRow(context->prevBitmap[level - 1] + src, context->prevBitmap[level] + dst, words);
    decimateRow(context->curBitmap[level - 1] + src, context->curBitmap[level] + dst, words);
  }
}
