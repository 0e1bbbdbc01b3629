#include "byte_copy.h"

#include <cstring>

#include "any_row.h"

namespace videohdr {

constexpr size_t kCopyStep = 64;

void copyBytesPortable(uint8_t *dst, const uint8_t *src, size_t n) {
  if (n != 0) std::memcpy(dst, src, n);
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

#endif

}  // namespace videohdr
