// The 128-bit lane helpers both x86 instruction sets use: word loads and
// stores, funnel shifts across neighbouring 32-bit lanes, the bit count of
// each byte lane, and the totals of 8-bit and 16-bit lane counters.
// They carry the SSE4.1 target, which every AVX2 function includes, so the
// AVX2 kernels inline them too (as VEX-encoded instructions).
#ifndef VIDEOHDR_ALIGN_LANES_X86_H
#define VIDEOHDR_ALIGN_LANES_X86_H

#include <cstdint>

#include "../simd.h"

#if VIDEOHDR_HAVE_X86_SIMD
#include <immintrin.h>

namespace videohdr {

VIDEOHDR_TARGET_SSE41 inline __m128i loadWordsSse41(const uint32_t *p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}

VIDEOHDR_TARGET_SSE41 inline void storeWordsSse41(uint32_t *p, __m128i v) {
  _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v);
}

// The shift counts of a funnel: the word by `word` bits, its neighbour by
// `next`, in the opposite direction. x86 lane shifts by 32 or more give 0, so
// a funnel by 0 (the neighbour shifted by 32) needs no case of its own.
struct FunnelCounts {
  __m128i word, next;
};

VIDEOHDR_TARGET_SSE41 inline FunnelCounts funnelCounts(int32_t u) {
  return {_mm_cvtsi32_si128(u), _mm_cvtsi32_si128(32 - u)};
}

// Towards bit 31 by u: (word << u) | (next >> (32 - u)).
VIDEOHDR_TARGET_SSE41 inline __m128i funnelTowardsBit31Sse41(__m128i word, __m128i next,
                                                             FunnelCounts c) {
  return _mm_or_si128(_mm_sll_epi32(word, c.word), _mm_srl_epi32(next, c.next));
}

// Towards bit 0 by u: (word >> u) | (before << (32 - u)).
VIDEOHDR_TARGET_SSE41 inline __m128i funnelTowardsBit0Sse41(__m128i word, __m128i before,
                                                            FunnelCounts c) {
  return _mm_or_si128(_mm_srl_epi32(word, c.word), _mm_sll_epi32(before, c.next));
}

// Towards bit 31 by U: by immediates for U > 0 (the search's default step),
// else by the run-time counts.
template <int U>
VIDEOHDR_TARGET_SSE41 inline __m128i funnelBySse41(__m128i word, __m128i next, FunnelCounts c) {
  if constexpr (U == 0) {
    return funnelTowardsBit31Sse41(word, next, c);
  } else {
    return _mm_or_si128(_mm_slli_epi32(word, U), _mm_srli_epi32(next, 32 - U));
  }
}

// The bit count of each byte, left in that byte: a 16-entry table looked up
// by each byte's two nibbles (SSSE3's byte shuffle; SSE4.1 has no population
// count, which came with POPCNT for whole registers only).
VIDEOHDR_TARGET_SSE41 inline __m128i byteBitCountsSse41(__m128i x) {
  const __m128i table = _mm_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4);
  const __m128i nibble = _mm_set1_epi8(0x0F);
  const __m128i low = _mm_shuffle_epi8(table, _mm_and_si128(x, nibble));
  const __m128i high = _mm_shuffle_epi8(table, _mm_and_si128(_mm_srli_epi16(x, 4), nibble));
  return _mm_add_epi8(low, high);
}

// Adds the bit counts of the sixteen bytes of x to sixteen 8-bit lanes.
VIDEOHDR_TARGET_SSE41 inline __m128i addBitCountsSse41(__m128i lanes, __m128i x) {
  return _mm_add_epi8(lanes, byteBitCountsSse41(x));
}

// v with `word` in lane `Lane`.
template <int Lane>
VIDEOHDR_TARGET_SSE41 inline __m128i withLaneSse41(__m128i v, uint32_t word) {
  return _mm_insert_epi32(v, static_cast<int>(word), Lane);
}

// The sum of sixteen 8-bit lanes (the sums of absolute differences from 0 of
// each half, added).
VIDEOHDR_TARGET_SSE41 inline uint32_t addByteLanesSse41(__m128i lanes) {
  const __m128i halves = _mm_sad_epu8(lanes, _mm_setzero_si128());
  return static_cast<uint32_t>(_mm_cvtsi128_si32(halves) +
                               _mm_cvtsi128_si32(_mm_unpackhi_epi64(halves, halves)));
}

// The total of eight 16-bit lanes, widened.
VIDEOHDR_TARGET_SSE41 inline uint32_t addWordLanesSse41(__m128i lanes) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i pairs =
      _mm_add_epi32(_mm_unpacklo_epi16(lanes, zero), _mm_unpackhi_epi16(lanes, zero));
  const __m128i quads = _mm_hadd_epi32(pairs, pairs);
  return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_hadd_epi32(quads, quads)));
}

}  // namespace videohdr

#endif  // VIDEOHDR_HAVE_X86_SIMD

#endif  // VIDEOHDR_ALIGN_LANES_X86_H
