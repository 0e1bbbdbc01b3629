// The 128-bit blocks of the nine-candidate passes that both x86 instances
// count: one triple's (dx = 0, -u, +u) body block, with or without word 0's
// masks, and its tail block, in the block view of the per-candidate count
// (score_layout.h). The AVX2 passes count two body blocks per step and use
// these for an odd last body block and the tail.
#ifndef VIDEOHDR_ALIGN_TRIPLE_BLOCKS_X86_H
#define VIDEOHDR_ALIGN_TRIPLE_BLOCKS_X86_H

#include <cstdint>
#include <type_traits>

#include "../simd.h"
#include "lanes_x86.h"
#include "score_layout.h"

#if VIDEOHDR_HAVE_X86_SIMD
#include <immintrin.h>

namespace videohdr {

// A triple's sixteen 8-bit lane counters per candidate.
struct TripleLanesSse41 {
  __m128i still, left, right;  // dx = 0, -u, +u
};

// Word 0's masks of a triple's first block (on the compared words) and its
// tail block's masks. The tail block is read as the four words ending at the
// last data word (W - 5 .. W - 2): the lanes before its T tail words are not
// counted, and the last lane carries each candidate's edge masks. No lane
// counter can wrap in a fusable level, so the lane a word is counted in does
// not change the count.
struct TripleMasksSse41 {
  __m128i firstStill, firstRight;  // dx = 0 and dx > 0, on word 0
  __m128i counted;                 // the tail words and the last data word
  __m128i still;                   // dx = 0: counted, the edge mask on the last word of both sides
  __m128i leftDisplaced;           // dx < 0: R's last word before its funnel
  __m128i leftPlain;               // dx < 0: counted, S's last word
  __m128i rightDisplaced;          // dx > 0: S's last word before its funnel
  __m128i rightPlain;              // dx > 0: counted, R's last word
};

VIDEOHDR_TARGET_SSE41 inline TripleMasksSse41 tripleMasksSse41(const CandidateTriple &c,
                                                               int32_t tailWords) {
  const __m128i lane = _mm_setr_epi32(0, 1, 2, 3), ones = _mm_set1_epi32(-1);
  const __m128i counted = _mm_cmpgt_epi32(lane, _mm_set1_epi32(2 - tailWords));
  return {withLaneSse41<0>(ones, 0x7FFFFFFFu),
          withLaneSse41<0>(ones, kAllOnes >> c.positive.shift),
          counted,
          withLaneSse41<3>(counted, c.zero.lastMaskPlain),
          withLaneSse41<3>(ones, c.negative.lastMaskDisplaced),
          withLaneSse41<3>(counted, c.negative.lastMaskPlain),
          withLaneSse41<3>(ones, c.positive.lastMaskDisplaced),
          withLaneSse41<3>(counted, c.positive.lastMaskPlain)};
}

// The body block at words r[0..3] and s[0..3] of R and S, their funnels
// taking words 1..4; `still` and `right` mask the compared words of dx = 0
// and dx > 0 (word 0's masks on block 0, all ones elsewhere, which the
// compiler drops).
template <int U>
VIDEOHDR_TARGET_SSE41 inline void addTripleBlockSse41(TripleLanesSse41 &lanes, const uint32_t *r,
                                                      const uint32_t *s, __m128i still,
                                                      __m128i right, FunnelCounts shifts) {
  const __m128i rv = loadWordsSse41(r), sv = loadWordsSse41(s);
  const __m128i rf = funnelBySse41<U>(rv, loadWordsSse41(r + 1), shifts);
  const __m128i sf = funnelBySse41<U>(sv, loadWordsSse41(s + 1), shifts);
  lanes.still = addBitCountsSse41(lanes.still, _mm_and_si128(_mm_xor_si128(sv, rv), still));
  lanes.left = addBitCountsSse41(lanes.left, _mm_xor_si128(rf, sv));
  lanes.right = addBitCountsSse41(lanes.right, _mm_and_si128(_mm_xor_si128(sf, rv), right));
}

// The tail block, read as the four words ending at the last data word (r and
// s point at word W - 5), funnelled with zeros after the last one.
template <int U>
VIDEOHDR_TARGET_SSE41 inline void addTripleTailSse41(TripleLanesSse41 &lanes, const uint32_t *r,
                                                     const uint32_t *s, const TripleMasksSse41 &m,
                                                     FunnelCounts shifts) {
  const __m128i rv = loadWordsSse41(r), sv = loadWordsSse41(s);
  const __m128i rd = _mm_and_si128(rv, m.leftDisplaced), sd = _mm_and_si128(sv, m.rightDisplaced);
  const __m128i rf = _mm_and_si128(funnelBySse41<U>(rd, _mm_srli_si128(rd, 4), shifts), m.counted);
  const __m128i sf = _mm_and_si128(funnelBySse41<U>(sd, _mm_srli_si128(sd, 4), shifts), m.counted);
  lanes.still = addBitCountsSse41(lanes.still, _mm_and_si128(_mm_xor_si128(sv, rv), m.still));
  lanes.left = addBitCountsSse41(lanes.left, _mm_xor_si128(rf, _mm_and_si128(sv, m.leftPlain)));
  lanes.right = addBitCountsSse41(lanes.right, _mm_xor_si128(sf, _mm_and_si128(rv, m.rightPlain)));
}

// A row's counts, widened once (no lane can wrap in a fusable level).
VIDEOHDR_TARGET_SSE41 inline void addTripleCountsSse41(const TripleLanesSse41 &lanes,
                                                       uint32_t (&counts)[3]) {
  counts[0] += addByteLanesSse41(lanes.still);
  counts[1] += addByteLanesSse41(lanes.left);
  counts[2] += addByteLanesSse41(lanes.right);
}

// Scores each triple that has rows with score(t, u, triple, counts), t and u
// compile-time constants: the tail words, and the shift when it is the
// search's default step of 2 (immediate shifts in the body), else 0.
template <typename Score>
void scoreEachTriple(const CandidateTriple (&c)[3], uint32_t (&counts)[3][3], Score score) {
  const auto eachTriple = [&](auto u) {
    for (int k = 0; k < 3; ++k) {
      if (c[k].empty) continue;
      withTailWords(c[k].zero.tailWords, [&](auto t) { score(t, u, c[k], counts[k]); });
    }
  };
  if (c[0].positive.shift == 2) return eachTriple(std::integral_constant<int, 2>{});
  eachTriple(std::integral_constant<int, 0>{});
}

}  // namespace videohdr

#endif  // VIDEOHDR_HAVE_X86_SIMD

#endif  // VIDEOHDR_ALIGN_TRIPLE_BLOCKS_X86_H
