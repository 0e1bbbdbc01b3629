#include "byte_copy.h"

#include <cstring>

#include "any_row.h"

namespace videohdr {

constexpr size_t kCopyStep = 64;

void copyBytesPortable(uint8_t *dst, const uint8_t *src, size_t n) {
  if (n != 0) std::memcpy(dst, src, n);
}

uint32_t copyAndSumPortable(uint8_t *dst, const uint8_t *src, size_t n) {
  uint32_t sum = 0;
  for (size_t i = 0; i < n; ++i) {
    dst[i] = src[i];
    sum += src[i];
  }
  return sum;
}

#if VIDEOHDR_HAVE_NEON
// A de-interleaving load and the matching interleaving store move 32 bytes
// each in one instruction and put them back in order.
void copyBytesNeon(uint8_t *dst, const uint8_t *src, size_t n) {
  blocksThenRest(
      wholeBlocks<kCopyStep>(n), n,
      [=](size_t end) {
        const uint8_t *s = src;
        uint8_t *d = dst;
        for (size_t blocks = end / kCopyStep; blocks != 0; --blocks) {
          const uint8x16x2_t a = vld2q_u8(s);
          const uint8x16x2_t b = vld2q_u8(s + 32);
          vst2q_u8(d, a);
          vst2q_u8(d + 32, b);
          s += kCopyStep;
          d += kCopyStep;
        }
      },
      [&](size_t at, size_t rest) { copyBytesPortable(dst + at, src + at, rest); });
}

namespace {

// Sums 64-byte steps in 16-bit lanes, which take eight bytes a step and are
// widened every 32 steps (at most 256 bytes of 255 each).
uint32_t copyAndSumBlocksNeon(uint8_t *dst, const uint8_t *src, size_t steps) {
  constexpr size_t kStepsPerWidening = 32;
  uint32x4_t totals = vdupq_n_u32(0);
  while (steps != 0) {
    const size_t chunk = steps < kStepsPerWidening ? steps : kStepsPerWidening;
    steps -= chunk;
    uint16x8_t lanes = vdupq_n_u16(0);
    for (size_t k = 0; k < chunk; ++k) {
      const uint8x16x2_t a = vld2q_u8(src), b = vld2q_u8(src + 32);
      vst2q_u8(dst, a);
      vst2q_u8(dst + 32, b);
      lanes = vpadalq_u8(vpadalq_u8(lanes, a.val[0]), a.val[1]);
      lanes = vpadalq_u8(vpadalq_u8(lanes, b.val[0]), b.val[1]);
      src += kCopyStep;
      dst += kCopyStep;
    }
    totals = vpadalq_u16(totals, lanes);
  }
  return vgetq_lane_u32(totals, 0) + vgetq_lane_u32(totals, 1) + vgetq_lane_u32(totals, 2) +
         vgetq_lane_u32(totals, 3);
}

}  // namespace

uint32_t copyAndSumNeon(uint8_t *dst, const uint8_t *src, size_t n) {
  uint32_t sum = 0;
  blocksThenRest(
      wholeBlocks<kCopyStep>(n), n,
      [&](size_t end) { sum = copyAndSumBlocksNeon(dst, src, end / kCopyStep); },
      [&](size_t at, size_t rest) { sum += copyAndSumPortable(dst + at, src + at, rest); });
  return sum;
}
#endif

}  // namespace videohdr
