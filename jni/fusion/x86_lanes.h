// Byte-lane pieces shared by the fusion's and the plane kernels' SSE4.1 and
// AVX2 instances: unaligned loads and stores, the exposure blend as one
// multiply-add per byte pair, and lookups in a 256-entry byte table. Each
// comes in a 16-byte (SSE4.1) and a 32-byte (AVX2) form of the same name;
// every function carries the instruction set it needs (see simd.h), and an
// AVX2 function may call the SSE4.1 ones.
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

// The blend (x * w + y * (255 - w)) >> 8 of the exposures. Pixels come as
// (x, y) byte pairs in 16-bit lanes and weights as (w, 255 - w) pairs: one
// pmaddubsw forms both products and their sum, but it takes its second
// operand as signed bytes, so the pixels go in as x - 128 and y - 128. The
// sum w (x - 128) + (255 - w)(y - 128) then lies in [-32640, 32385] (no
// saturation), and adding 128 * 255 back gives the exact x w + y (255 - w),
// at most 65025, whose high byte is the truncated result.
VIDEOHDR_TARGET_SSE41 inline __m128i blendPairs(__m128i pixelPairs, __m128i weightPairs) {
  const __m128i centred = _mm_xor_si128(pixelPairs, _mm_set1_epi8(-128));
  const __m128i sum = _mm_add_epi16(_mm_maddubs_epi16(weightPairs, centred), _mm_set1_epi16(32640));
  return _mm_srli_epi16(sum, 8);
}
VIDEOHDR_TARGET_AVX2 inline __m256i blendPairs(__m256i pixelPairs, __m256i weightPairs) {
  const __m256i centred = _mm256_xor_si256(pixelPairs, _mm256_set1_epi8(-128));
  const __m256i sum =
      _mm256_add_epi16(_mm256_maddubs_epi16(weightPairs, centred), _mm256_set1_epi16(32640));
  return _mm256_srli_epi16(sum, 8);
}

// (w, 255 - w) pairs of the low and the high eight weights of each 16-byte
// lane (255 - w is w with every bit flipped).
VIDEOHDR_TARGET_SSE41 inline __m128i lowWeightPairs(__m128i w) {
  return _mm_unpacklo_epi8(w, _mm_xor_si128(w, _mm_set1_epi8(-1)));
}
VIDEOHDR_TARGET_SSE41 inline __m128i highWeightPairs(__m128i w) {
  return _mm_unpackhi_epi8(w, _mm_xor_si128(w, _mm_set1_epi8(-1)));
}
VIDEOHDR_TARGET_AVX2 inline __m256i lowWeightPairs(__m256i w) {
  return _mm256_unpacklo_epi8(w, _mm256_xor_si256(w, _mm256_set1_epi8(-1)));
}
VIDEOHDR_TARGET_AVX2 inline __m256i highWeightPairs(__m256i w) {
  return _mm256_unpackhi_epi8(w, _mm256_xor_si256(w, _mm256_set1_epi8(-1)));
}

// The blend of each 16-byte lane of x and y: its low eight bytes with the
// weight pairs `low`, its high eight with `high`.
VIDEOHDR_TARGET_SSE41 inline __m128i weightedBlend(__m128i x, __m128i y, __m128i low,
                                                   __m128i high) {
  return _mm_packus_epi16(blendPairs(_mm_unpacklo_epi8(x, y), low),
                          blendPairs(_mm_unpackhi_epi8(x, y), high));
}
VIDEOHDR_TARGET_AVX2 inline __m256i weightedBlend(__m256i x, __m256i y, __m256i low, __m256i high) {
  return _mm256_packus_epi16(blendPairs(_mm256_unpacklo_epi8(x, y), low),
                             blendPairs(_mm256_unpackhi_epi8(x, y), high));
}

// One weight per byte.
VIDEOHDR_TARGET_SSE41 inline __m128i weightedBlend(__m128i x, __m128i y, __m128i weight) {
  return weightedBlend(x, y, lowWeightPairs(weight), highWeightPairs(weight));
}
VIDEOHDR_TARGET_AVX2 inline __m256i weightedBlend(__m256i x, __m256i y, __m256i weight) {
  return weightedBlend(x, y, lowWeightPairs(weight), highWeightPairs(weight));
}

// table[index] for every byte, in the table's sixteen 16-entry slices. A
// byte shuffle looks an index's low four bits up in a slice and gives 0
// where the index's top bit is set, so slice s with the index as it is and
// slice s + 8 with its top bit flipped, ORed, give entry 16 s + low bits or
// 16 (s + 8) + low bits by the top bit. Three rounds of blends then choose
// among those eight by the index's bits 6, 5 and 4 (a blend takes a byte's
// top bit: the index shifted left by one, two, three).
VIDEOHDR_TARGET_SSE41 inline __m128i lookupTable(const uint8_t *table, __m128i index) {
  const __m128i flipped = _mm_xor_si128(index, _mm_set1_epi8(-128));
  __m128i half[8];
  for (int s = 0; s < 8; ++s) {
    half[s] = _mm_or_si128(_mm_shuffle_epi8(load16(table + 16 * s), index),
                           _mm_shuffle_epi8(load16(table + 16 * (s + 8)), flipped));
  }
  __m128i bits = index;
  for (int n = 4; n >= 1; n /= 2) {
    bits = _mm_add_epi8(bits, bits);
    for (int s = 0; s < n; ++s) half[s] = _mm_blendv_epi8(half[s], half[s + n], bits);
  }
  return half[0];
}

// The same on 32 bytes, with each slice in both 16-byte lanes.
VIDEOHDR_TARGET_AVX2 inline __m256i lookupTable(const uint8_t *table, __m256i index) {
  const __m256i flipped = _mm256_xor_si256(index, _mm256_set1_epi8(-128));
  __m256i half[8];
  for (int s = 0; s < 8; ++s) {
    const __m256i low = _mm256_broadcastsi128_si256(load16(table + 16 * s));
    const __m256i high = _mm256_broadcastsi128_si256(load16(table + 16 * (s + 8)));
    half[s] = _mm256_or_si256(_mm256_shuffle_epi8(low, index), _mm256_shuffle_epi8(high, flipped));
  }
  __m256i bits = index;
  for (int n = 4; n >= 1; n /= 2) {
    bits = _mm256_add_epi8(bits, bits);
    for (int s = 0; s < n; ++s) half[s] = _mm256_blendv_epi8(half[s], half[s + n], bits);
  }
  return half[0];
}

}  // namespace videohdr

#endif  // VIDEOHDR_HAVE_X86_SIMD

#endif  // VIDEOHDR_FUSION_X86_LANES_H
