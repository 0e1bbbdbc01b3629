// The bitmap kernels behind ThreshBitmap, buildGaussianPyramid and shiftData:
// a table with a portable instance and, where the build has NEON (natively or
// through SIMDe), a NEON instance with the same signatures and the same bytes
// in everything they write.
//
// Packed bitmaps: one bit per pixel, the leftmost pixel of a word in bit 31,
// bitmapWords(width) words per row (always one spare word after the data).
#ifndef VIDEOHDR_ALIGN_BITMAP_OPS_H
#define VIDEOHDR_ALIGN_BITMAP_OPS_H

#include <cstddef>
#include <cstdint>

#include "../simd.h"
#include "../videohdr.h"

namespace videohdr {

// Words per packed row of `width` pixels: (width + 63) >> 5.
inline int32_t bitmapWords(int32_t width) { return (width + 63) >> 5; }

struct BitmapKernels {
  // Luma total of `h` rows of `w` bytes (pitch w). Each row is summed in
  // groups of 8 bytes (x = 0, 8, ... while x < w) into eight 16-bit lanes that
  // start at zero per row and wrap at 16 bits (rows wider than 2,056 pixels
  // can wrap); the lanes are then added into a 32-bit total that wraps modulo
  // 2^32. When w is not a multiple of 8 the last group of a row takes up to 7
  // bytes past its end, so up to 7 bytes past the image are read.
  uint32_t (*sumLuma)(const uint8_t *image, int32_t w, int32_t h);

  // Copies n bytes (the ranges must not overlap) and answers their plain sum
  // modulo 2^32: sumLuma's total, taken on the way, for the widths where
  // lumaSumIsPlain.
  uint32_t (*copyLumaAndSum)(uint8_t *dst, const uint8_t *src, size_t n);

  // Sets the bits of `bitmap` (pitch bitmapWords(w) words) for the pixels of
  // `image` (pitch w) brighter than `threshold`, with the threshold bitmap's
  // block rules: word 0 and then 32-pixel blocks while x < w - 32, then a
  // zero-padded tail word for the w % 32 pixels left. For w a multiple of 32
  // the last 32 pixels of a row get no word; below 33 pixels every row's tail
  // goes to word 1 of row 0. Every other word of the h rows is set to 0, as if
  // the rows had been cleared first.
  void (*packThresholdBits)(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold,
                            uint32_t *bitmap);

  // Writes `words` words of a half-resolution row: output pixel x is source
  // pixel 2x. Reads source words 0 .. 2 * words - 1.
  void (*decimateRow)(const uint32_t *src, uint32_t *dst, int32_t words);

  // Moves a row of `width` pixels to the left by `sx` (1..31): dst pixel x
  // gets src pixel x + sx, funnelled through words 0 .. W - k - 1 (k = 3 when
  // 0 < width % 32 <= sx, else 2); word W - k gets src[W - k] << sx only when
  // W - k is not a multiple of 4. Other words are not written. Reads src
  // words 0 .. W - k.
  void (*shiftRowLeft)(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx);

  // Moves a row of `width` pixels to the right by `shift` (1..31) and writes
  // its data words 0 .. W - 2: the first `shift` pixels are 0 and nothing
  // lands at or past pixel `width`. The pad word is not written. Reads src
  // words 0 .. W - 2.
  void (*shiftRowRight)(const uint32_t *src, uint32_t *dst, int32_t width, int32_t shift);
};

uint32_t sumLumaPortable(const uint8_t *image, int32_t w, int32_t h);
uint32_t copyLumaAndSumPortable(uint8_t *dst, const uint8_t *src, size_t n);
void packThresholdBitsPortable(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold,
                               uint32_t *bitmap);
void decimateRowPortable(const uint32_t *src, uint32_t *dst, int32_t words);
void shiftRowLeftPortable(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx);
void shiftRowRightPortable(const uint32_t *src, uint32_t *dst, int32_t width, int32_t shift);
inline constexpr BitmapKernels kBitmapPortable = {sumLumaPortable,           copyLumaAndSumPortable,
                                                  packThresholdBitsPortable, decimateRowPortable,
                                                  shiftRowLeftPortable,      shiftRowRightPortable};

#if VIDEOHDR_HAVE_NEON
uint32_t sumLumaNeon(const uint8_t *image, int32_t w, int32_t h);
uint32_t copyLumaAndSumNeon(uint8_t *dst, const uint8_t *src, size_t n);
void packThresholdBitsNeon(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold,
                           uint32_t *bitmap);
void decimateRowNeon(const uint32_t *src, uint32_t *dst, int32_t words);
void shiftRowLeftNeon(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx);
void shiftRowRightNeon(const uint32_t *src, uint32_t *dst, int32_t width, int32_t shift);
inline constexpr BitmapKernels kBitmapNeon = {sumLumaNeon,           copyLumaAndSumNeon,
                                              packThresholdBitsNeon, decimateRowNeon,
                                              shiftRowLeftNeon,      shiftRowRightNeon};
#endif

#if VIDEOHDR_HAVE_X86_SIMD
uint32_t sumLumaSse41(const uint8_t *image, int32_t w, int32_t h);
uint32_t copyLumaAndSumSse41(uint8_t *dst, const uint8_t *src, size_t n);
void packThresholdBitsSse41(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold,
                            uint32_t *bitmap);
void decimateRowSse41(const uint32_t *src, uint32_t *dst, int32_t words);
void shiftRowLeftSse41(const uint32_t *src, uint32_t *dst, int32_t width, int32_t sx);
void shiftRowRightSse41(const uint32_t *src, uint32_t *dst, int32_t width, int32_t shift);
inline constexpr BitmapKernels kBitmapSse41 = {sumLumaSse41,           copyLumaAndSumSse41,
                                               packThresholdBitsSse41, decimateRowSse41,
                                               shiftRowLeftSse41,      shiftRowRightSse41};
uint32_t sumLumaAvx2(const uint8_t *image, int32_t w, int32_t h);
uint32_t copyLumaAndSumAvx2(uint8_t *dst, const uint8_t *src, size_t n);
void packThresholdBitsAvx2(const uint8_t *image, int32_t w, int32_t h, uint8_t threshold,
                           uint32_t *bitmap);
inline constexpr BitmapKernels kBitmapAvx2 = {sumLumaAvx2,           copyLumaAndSumAvx2,
                                              packThresholdBitsAvx2, decimateRowSse41,
                                              shiftRowLeftSse41,     shiftRowRightSse41};
#endif

// Whether sumLuma over rows of w bytes is the plain sum of the image's bytes:
// rows that are whole 8-byte groups (nothing read past them) and too short to
// wrap a 16-bit lane.
bool lumaSumIsPlain(int32_t w);

// ThreshBitmap given the two luma sums (as sumLuma makes them): clears the
// level-0 bitmaps, packs both images' bits against their clamped means and
// answers 1 when the previous frame's sum is the larger.
int32_t threshBitmapFromSums(AlignContext *context, int32_t maxThreshold, int32_t minThreshold,
                             int32_t sumPrev, int32_t sumCur);

}  // namespace videohdr

#endif  // VIDEOHDR_ALIGN_BITMAP_OPS_H
