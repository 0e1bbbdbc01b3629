#include "byte_copy.h"

#include <cstring>

#include "any_row.h"

namespace videohdr {

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
namespace {

// One step of the NEON loops: the widest load and store each target has, in
// one instruction each. The loops are written one step per iteration and
// unrolled by the compiler, which then advances both pointers with the loads
// and stores themselves (two steps written out make GCC copy the pointers on
// ARMv7 and add them separately).
#if defined(__aarch64__)
// A64 loads and stores four registers, 64 bytes, at once.
constexpr size_t kNeonStep = 64;
using Step = uint8x16x4_t;
inline Step loadStep(const uint8_t *s) { return vld1q_u8_x4(s); }
inline void storeStep(uint8_t *d, const Step &v) { vst1q_u8_x4(d, v); }
inline uint16x8_t addStepPairs(uint16x8_t lanes, const Step &v) {
  lanes = vpadalq_u8(vpadalq_u8(lanes, v.val[0]), v.val[1]);
  return vpadalq_u8(vpadalq_u8(lanes, v.val[2]), v.val[3]);
}
#else
// ARMv7 moves 32 bytes at most: a de-interleaving load and the matching
// interleaving store put them back in order.
constexpr size_t kNeonStep = 32;
using Step = uint8x16x2_t;
inline Step loadStep(const uint8_t *s) { return vld2q_u8(s); }
inline void storeStep(uint8_t *d, const Step &v) { vst2q_u8(d, v); }
inline uint16x8_t addStepPairs(uint16x8_t lanes, const Step &v) {
  return vpadalq_u8(vpadalq_u8(lanes, v.val[0]), v.val[1]);
}
#endif

// Sums in 16-bit lanes, each of which takes a step's bytes in pairs and
// holds 256 bytes of 255 before it would wrap: widened every 2,048 bytes.
constexpr size_t kStepsPerWidening = 2048 / kNeonStep;

uint32_t copyAndSumStepsNeon(uint8_t *dst, const uint8_t *src, size_t steps) {
  uint32x4_t totals = vdupq_n_u32(0);
  while (steps != 0) {
    const size_t chunk = steps < kStepsPerWidening ? steps : kStepsPerWidening;
    steps -= chunk;
    uint16x8_t lanes = vdupq_n_u16(0);
#pragma GCC unroll 2
    for (size_t k = chunk; k != 0; --k) {
      const Step v = loadStep(src);
      storeStep(dst, v);
      lanes = addStepPairs(lanes, v);
      src += kNeonStep;
      dst += kNeonStep;
    }
    totals = vpadalq_u16(totals, lanes);
  }
  return vgetq_lane_u32(totals, 0) + vgetq_lane_u32(totals, 1) + vgetq_lane_u32(totals, 2) +
         vgetq_lane_u32(totals, 3);
}

}  // namespace

void copyBytesNeon(uint8_t *dst, const uint8_t *src, size_t n) {
  blocksThenRest(
      wholeBlocks<kNeonStep>(n), n,
      [=](size_t end) {
        const uint8_t *s = src;
        uint8_t *d = dst;
#pragma GCC unroll 2
        for (size_t steps = end / kNeonStep; steps != 0; --steps) {
          storeStep(d, loadStep(s));
          s += kNeonStep;
          d += kNeonStep;
        }
      },
      [&](size_t at, size_t rest) { copyBytesPortable(dst + at, src + at, rest); });
}

uint32_t copyAndSumNeon(uint8_t *dst, const uint8_t *src, size_t n) {
  uint32_t sum = 0;
  blocksThenRest(
      wholeBlocks<kNeonStep>(n), n,
      [&](size_t end) { sum = copyAndSumStepsNeon(dst, src, end / kNeonStep); },
      [&](size_t at, size_t rest) { sum += copyAndSumPortable(dst + at, src + at, rest); });
  return sum;
}
#endif

}  // namespace videohdr
