#include "byte_copy.h"

#include <cstring>

namespace videohdr {

void copyBytesPortable(uint8_t *dst, const uint8_t *src, size_t n) {
  if (n != 0) std::memcpy(dst, src, n);
}

#if VIDEOHDR_HAVE_NEON
// A de-interleaving load and the matching interleaving store move 32 bytes
// each in one instruction and put them back in order; the last n % 64 bytes
// go through memcpy.
void copyBytesNeon(uint8_t *dst, const uint8_t *src, size_t n) {
  const size_t blocks = n / 64;
  for (size_t i = 0; i < blocks; ++i) {
    const uint8x16x2_t a = vld2q_u8(src);
    const uint8x16x2_t b = vld2q_u8(src + 32);
    vst2q_u8(dst, a);
    vst2q_u8(dst + 32, b);
    src += 64;
    dst += 64;
  }
  copyBytesPortable(dst, src, n % 64);
}
#endif

}  // namespace videohdr
