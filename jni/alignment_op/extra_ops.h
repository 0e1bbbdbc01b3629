// Internal variants of the exported alignment operations outside the
// per-frame path: the full-resolution XOR count and the block gradient sum.
// Each has a portable reference and, where the build has NEON (natively or
// through SIMDe), a NEON version that gives the same results.
#ifndef VIDEOHDR_ALIGN_EXTRA_OPS_H
#define VIDEOHDR_ALIGN_EXTRA_OPS_H

#include <cstdint>

#include "../simd.h"

namespace videohdr {

// Counts the disagreeing bits of `rows` row pairs (pitch `pitchWords` words):
// the first `words` words of row `displaced`, funnelled by `shift` bits
// towards bit 31 (0..31; word i takes its low bits from word i + 1), XORed
// with the same words of row `other`. Words go in blocks of four with
// sixteen 8-bit lanes per row, so a lane wraps when a row holds more than 31
// blocks. Writes the four 32-bit totals (word k of every block in total k).
// Reads words 0 .. words - 1 of each row, and word `words` of a displaced row
// when `shift` is not 0.
void countXorBlocksPortable(const uint32_t *displaced, const uint32_t *other, int32_t pitchWords,
                            int32_t rows, int32_t words, int32_t shift, uint32_t totals[4]);

// Sobel_Neon: clamped 3 x 3 gradient magnitudes summed over blocks of eight
// centres, ceil((width - 8) / 8) blocks per interior row from column 1, in
// 16-bit lanes that wrap and are widened as signed once per row. 0.0 below
// 3 rows or 9 columns.
double sobelBlockSumPortable(const uint8_t *image, int32_t width, int32_t height);

#if VIDEOHDR_HAVE_NEON
void countXorBlocksNeon(const uint32_t *displaced, const uint32_t *other, int32_t pitchWords,
                        int32_t rows, int32_t words, int32_t shift, uint32_t totals[4]);
double sobelBlockSumNeon(const uint8_t *image, int32_t width, int32_t height);
#endif

}  // namespace videohdr

#endif  // VIDEOHDR_ALIGN_EXTRA_OPS_H
