// Byte-lane pieces shared by the fusion's and the plane kernels' SSE4.1 and
// AVX2 instances: unaligned loads and stores. Every function carries the
// instruction set it needs (see simd.h), and an AVX2 function may call the
// SSE4.1 ones.
#ifndef VIDEOHDR_FUSION_X86_LANES_H
#define VIDEOHDR_FUSION_X86_LANES_H

#include <cstdint>

#include "../simd.h"

#if VIDEOHDR_HAVE_X86_SIMD
#include <immintrin.h>

namespace videohdr {

VIDEOHDR_TARGET_SSE41 inline __m128i load16(const uint8_t *p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}
VIDEOHDR_TARGET_SSE41 inline __m128i load8(const uint8_t *p) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i *>(p));
}
VIDEOHDR_TARGET_SSE41 inline void store16(uint8_t *p, __m128i v) {
  _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v);
}
VIDEOHDR_TARGET_SSE41 inline void store8(uint8_t *p, __m128i v) {
  _mm_storel_epi64(reinterpret_cast<__m128i *>(p), v);
}
VIDEOHDR_TARGET_AVX2 inline __m256i load32(const uint8_t *p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
}
VIDEOHDR_TARGET_AVX2 inline void store32(uint8_t *p, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), v);
}

}  // namespace videohdr

#endif  // VIDEOHDR_HAVE_X86_SIMD

#endif  // VIDEOHDR_FUSION_X86_LANES_H
