#include "byte_copy.h"

#include <cstring>

#include "any_row.h"

namespace videohdr {

void copyBytesPortable(uint8_t *dst, const uint8_t *src, size_t n) {
  if (n != 0) std::memcpy(dst, src, n);
}

#if VIDEOHDR_HAVE_NEON
namespace {

// One step of the NEON loop: the widest load and store each target has, in
// one instruction each. The loop is written one step per iteration and
// unrolled by the compiler, which then advances both pointers with the loads
// and stores themselves (two steps written out make GCC copy the pointers on
// ARMv7 and add them separately).
#if defined(__aarch64__)
// A64 loads and stores four registers, 64 bytes, at once.
constexpr size_t kNeonStep = 64;
using Step = uint8x16x4_t;
inline Step loadStep(const uint8_t *s) { return vld1q_u8_x4(s); }
inline void storeStep(uint8_t *d, const Step &v) { vst1q_u8_x4(d, v); }
#else
// ARMv7 moves 32 bytes at most: a de-interleaving load and the matching
// interleaving store put them back in order.
constexpr size_t kNeonStep = 32;
using Step = uint8x16x2_t;
inline Step loadStep(const uint8_t *s) { return vld2q_u8(s); }
inline void storeStep(uint8_t *d, const Step &v) { vst2q_u8(d, v); }
#endif

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
#endif

}  // namespace videohdr
