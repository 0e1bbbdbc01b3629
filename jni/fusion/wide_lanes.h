// Sixteen-lane arithmetic shared by the fusion's NEON kernels: byte products
// widened to 16 bits over both halves of a vector, and the high bytes of such
// sums; and a way to keep GCC from rewriting a loop. A64 works on the high halves in place (umull2,
// umlal2, uaddl2) and gathers the high bytes with one uzp2; ARMv7 takes the halves as its d
// registers and unzips in place.
#ifndef VIDEOHDR_FUSION_WIDE_LANES_H
#define VIDEOHDR_FUSION_WIDE_LANES_H

#include "../simd.h"

#if VIDEOHDR_HAVE_NEON
namespace videohdr {

// The 16-bit lanes of a 16-byte vector's low and high halves.
struct WideSum {
  uint16x8_t lo, hi;
};

inline WideSum addWide(uint8x16_t x, uint8x16_t y) {
#if defined(__aarch64__)
  return {vaddl_u8(vget_low_u8(x), vget_low_u8(y)), vaddl_high_u8(x, y)};
#else
  return {vaddl_u8(vget_low_u8(x), vget_low_u8(y)), vaddl_u8(vget_high_u8(x), vget_high_u8(y))};
#endif
}

inline WideSum multiplyWide(uint8x16_t x, uint8x16_t k) {
#if defined(__aarch64__)
  return {vmull_u8(vget_low_u8(x), vget_low_u8(k)), vmull_high_u8(x, k)};
#else
  return {vmull_u8(vget_low_u8(x), vget_low_u8(k)), vmull_u8(vget_high_u8(x), vget_high_u8(k))};
#endif
}

// sum + x * k, lane by lane.
inline WideSum multiplyAddWide(WideSum sum, uint8x16_t x, uint8x16_t k) {
#if defined(__aarch64__)
  return {vmlal_u8(sum.lo, vget_low_u8(x), vget_low_u8(k)), vmlal_high_u8(sum.hi, x, k)};
#else
  return {vmlal_u8(sum.lo, vget_low_u8(x), vget_low_u8(k)),
          vmlal_u8(sum.hi, vget_high_u8(x), vget_high_u8(k))};
#endif
}

// sum >> 8 of every lane, as bytes in lane order (the odd bytes of the sums).
inline uint8x16_t highBytes(WideSum sum) {
#if defined(__aarch64__)
  return vuzp2q_u8(vreinterpretq_u8_u16(sum.lo), vreinterpretq_u8_u16(sum.hi));
#else
  return vuzpq_u8(vreinterpretq_u8_u16(sum.lo), vreinterpretq_u8_u16(sum.hi)).val[1];
#endif
}

// Make a vector or a pointer opaque to GCC at no cost: an empty asm that
// claims to change it. For loops that GCC would otherwise rewrite into more
// instructions; each use says what it prevents. Other hosts compile the NEON
// code through SIMDe only to test it and need no such help.
template <typename T>
inline void opaqueVector(T &v) {
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
  __asm__("" : "+w"(v));
#else
  (void)v;
#endif
}

template <typename T>
inline void opaquePointer(T *&p) {
#if defined(__ARM_NEON) || defined(__ARM_NEON__)
  __asm__("" : "+r"(p));
#else
  (void)p;
#endif
}

}  // namespace videohdr
#endif  // VIDEOHDR_HAVE_NEON

#endif  // VIDEOHDR_FUSION_WIDE_LANES_H
