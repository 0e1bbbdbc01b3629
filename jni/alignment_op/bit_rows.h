// Helpers for the kernels that compare or move packed bitmap rows (the
// candidate count, the full-resolution count and the row moves): the funnel
// shift across neighbouring words, the bit count of each byte lane, the
// addition of one 16-byte block into a row's 8-bit lanes, and the zero-padded
// scratch block a row's last partial block is counted from.
//
// Packed rows hold the leftmost pixel of a word in bit 31, so a funnel
// "towards bit 31" by u brings pixel x + u of a row to position x.
#ifndef VIDEOHDR_ALIGN_BIT_ROWS_H
#define VIDEOHDR_ALIGN_BIT_ROWS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "../simd.h"

namespace videohdr {

// Words in one 16-byte block of a bitmap row.
constexpr int32_t kBlockWords = 4;

// Shifts of 32 or more give 0, as the vector shifts do (in C they would be
// undefined); the edge masks of the counts are built with them.
inline uint32_t shiftLeftOrZero(uint32_t v, int32_t n) { return n >= 32 ? 0 : v << n; }
inline uint32_t shiftRightOrZero(uint32_t v, int32_t n) { return n >= 32 ? 0 : v >> n; }

// `word` moved u bits towards bit 31, its low bits from `next`, 1 <= u <= 31.
// Free of branches, so that loops over it vectorise.
inline uint32_t funnelLeft(uint32_t word, uint32_t next, int32_t u) {
  return (word << u) | (next >> (32 - u));
}

// `word` moved u bits towards bit 0, its high bits from `before`, 1 <= u <= 31.
inline uint32_t funnelRight(uint32_t word, uint32_t before, int32_t u) {
  return (word >> u) | (before << (32 - u));
}

// The same for 0 <= u <= 31: u = 0 leaves `word` as it is.
inline uint32_t funnelLeftOrSame(uint32_t word, uint32_t next, int32_t u) {
  return u == 0 ? word : funnelLeft(word, next, u);
}

// Word 0 of `row` funnelled towards bit 31 by u, 0 <= u <= 31. Word 1 is read
// only when u is not 0: an unshifted count never reads past its last word.
inline uint32_t funnelAt(const uint32_t *row, int32_t u) {
  return u == 0 ? row[0] : funnelLeft(row[0], row[1], u);
}

// The bit count of each byte of x, left in that byte.
inline uint32_t byteBitCounts(uint32_t x) {
  x = x - ((x >> 1) & 0x55555555u);
  x = (x & 0x33333333u) + ((x >> 2) & 0x33333333u);
  return (x + (x >> 4)) & 0x0F0F0F0Fu;
}

// The bit count of x, by shifts and adds only (the portable loops over it
// vectorise where a population-count instruction is missing).
inline uint32_t bitCount(uint32_t x) {
  x = byteBitCounts(x);
  x += x >> 8;
  return (x + (x >> 16)) & 0x3Fu;
}

// Adds the bit counts of the four bytes of x to four 8-bit lanes: bits 8b ..
// 8b + 7 go to lane b, the order in which a little-endian vector holds the
// bytes of a word. The lanes wrap at 256, as vector lanes do.
inline void addByteCounts(uint32_t x, uint8_t *lanes) {
  const uint32_t counts = byteBitCounts(x);
  for (int b = 0; b < 4; ++b) lanes[b] = static_cast<uint8_t>(lanes[b] + (counts >> (8 * b)));
}

// One 16-byte block: word k of `displaced` funnelled by u (0..31) XOR word k
// of `other`, counted into lanes 4k .. 4k + 3. Reads displaced[4] only when u
// is not 0.
inline void addBlockPortable(const uint32_t *displaced, const uint32_t *other, int32_t u,
                             uint8_t lanes[16]) {
  for (int k = 0; k < kBlockWords; ++k)
    addByteCounts(funnelAt(displaced + k, u) ^ other[k], lanes + 4 * k);
}

// A row's last partial block, counted like a whole one: its n words copied to
// the start of a zeroed scratch block and word n after them masked, so the
// funnel of the last copied word takes its low bits from the masked word and
// every word after it is 0. Word n is not read when the mask is 0; words
// n + 1 on stay as the caller zeroed them.
inline void loadPartialBlock(uint32_t *scratch, const uint32_t *row, int32_t n, uint32_t nextMask) {
  std::memcpy(scratch, row, static_cast<size_t>(n) * sizeof(uint32_t));
  scratch[n] = nextMask == 0 ? 0 : row[n] & nextMask;
}

#if VIDEOHDR_HAVE_NEON
// The per-lane shift amounts of a funnel: the word by `word` bits, its
// neighbour by `next` (negative amounts shift right; -32 clears the lane, so a
// funnel by 0 needs no case of its own).
struct FunnelShifts {
  int32x4_t word, next;
};

// Towards bit 31 by u: (word << u) | (next >> (32 - u)).
inline FunnelShifts funnelTowardsBit31(int32_t u) { return {vdupq_n_s32(u), vdupq_n_s32(u - 32)}; }

// Towards bit 0 by u: (word >> u) | (before << (32 - u)).
inline FunnelShifts funnelTowardsBit0(int32_t u) { return {vdupq_n_s32(-u), vdupq_n_s32(32 - u)}; }

inline uint32x4_t funnelNeon(uint32x4_t word, uint32x4_t neighbour, FunnelShifts s) {
  return vorrq_u32(vshlq_u32(word, s.word), vshlq_u32(neighbour, s.next));
}

// Adds the bit counts of the sixteen bytes of x to sixteen 8-bit lanes.
inline uint8x16_t addBitCountsNeon(uint8x16_t lanes, uint32x4_t x) {
  return vaddq_u8(lanes, vcntq_u8(vreinterpretq_u8_u32(x)));
}

// Widens a row's sixteen 8-bit lanes pairwise into four 32-bit totals.
inline uint32x4_t widenLanesNeon(uint32x4_t totals, uint8x16_t lanes) {
  return vpadalq_u16(totals, vpaddlq_u8(lanes));
}

inline uint32_t addAcrossNeon(uint32x4_t totals) {
  const uint32x2_t half = vadd_u32(vget_low_u32(totals), vget_high_u32(totals));
  return vget_lane_u32(vpadd_u32(half, half), 0);
}
#endif

}  // namespace videohdr

#endif  // VIDEOHDR_ALIGN_BIT_ROWS_H
