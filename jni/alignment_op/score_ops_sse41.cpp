// The SSE4.1 instance of the scoring kernels (with SSSE3's byte shuffle): XOR
// counts by nibble lookups into 8-bit lanes, the nine candidates in three
// passes, one per vertical offset (sixteen registers do not hold nine sets
// of lane counters beside a block's operands), and the gradient sum in
// 16-bit lanes. Same counting layouts as every instance (score_layout.h).
#include "score_ops.h"

#if VIDEOHDR_HAVE_X86_SIMD
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "lanes_x86.h"
#include "score_layout.h"
#include "triple_blocks_x86.h"

namespace videohdr {
namespace {

// The row's sixteen 8-bit lanes, before widening (they wrap past 31 blocks).
VIDEOHDR_TARGET_SSE41 __m128i countRow(const CountPlan &plan, const uint32_t *d, const uint32_t *p,
                                       uint32_t *scratchD, uint32_t *scratchP) {
  const FunnelCounts counts = funnelCounts(plan.shift);
  const __m128i ones = _mm_set1_epi32(-1);
  const __m128i firstD = withLaneSse41<0>(ones, plan.firstMaskDisplaced);
  const __m128i firstP = withLaneSse41<0>(ones, plan.firstMaskPlain);
  const __m128i endPartner = withLaneSse41<3>(ones, plan.bodyEndPartnerMask);
  __m128i lanes = _mm_setzero_si128();
  for (int32_t b = 0; b < plan.bodyBlocks; ++b) {
    __m128i dv = loadWordsSse41(d + 4 * b), next = loadWordsSse41(d + 4 * b + 1);
    __m128i pv = loadWordsSse41(p + 4 * b);
    if (b == 0) {
      dv = _mm_and_si128(dv, firstD);
      pv = _mm_and_si128(pv, firstP);
    }
    if (b == plan.bodyBlocks - 1) next = _mm_and_si128(next, endPartner);
    lanes = addBitCountsSse41(lanes, _mm_xor_si128(funnelTowardsBit31Sse41(dv, next, counts), pv));
  }
  if (plan.tailWords != 0) {
    fillTail(plan, d, plan.lastMaskDisplaced, scratchD);
    fillTail(plan, p, plan.lastMaskPlain, scratchP);
    const __m128i x =
        funnelTowardsBit31Sse41(loadWordsSse41(scratchD), loadWordsSse41(scratchD + 1), counts);
    lanes = addBitCountsSse41(lanes, _mm_xor_si128(x, loadWordsSse41(scratchP)));
  }
  return lanes;
}

VIDEOHDR_TARGET_SSE41 uint32_t countRows(const CountPlan &plan) {
  uint32_t scratchD[8] = {}, scratchP[8] = {};
  uint32_t total = 0;
  for (int32_t y = 0; y < plan.rows; ++y) {
    const ptrdiff_t offset = static_cast<ptrdiff_t>(y) * plan.pitch;
    total += addByteLanesSse41(
        countRow(plan, plan.displaced + offset, plan.plain + offset, scratchD, scratchP));
  }
  return total;
}

// One triple's three counts (dx = 0, -u, +u) over its rows, a block at a
// time (triple_blocks_x86.h).
template <int T, int U>
VIDEOHDR_TARGET_SSE41 void scoreTriple(const CandidateTriple &c, uint32_t (&counts)[3]) {
  const CountPlan &z = c.zero;
  const int32_t W = z.pitch, blocks = z.bodyBlocks;
  const FunnelCounts shifts = funnelCounts(c.positive.shift);
  const TripleMasksSse41 masks = tripleMasksSse41(c, T);
  const __m128i ones = _mm_set1_epi32(-1);
  for (int32_t y = 0; y < z.rows; ++y) {
    const uint32_t *r = c.positive.plain + static_cast<ptrdiff_t>(y) * W;
    const uint32_t *s = c.positive.displaced + static_cast<ptrdiff_t>(y) * W;
    TripleLanesSse41 lanes = {_mm_setzero_si128(), _mm_setzero_si128(), _mm_setzero_si128()};
    // Block 0 carries word 0's masks; it is always there (W >= 6).
    addTripleBlockSse41<U>(lanes, r, s, masks.firstStill, masks.firstRight, shifts);
    for (int32_t b = 1; b < blocks; ++b)
      addTripleBlockSse41<U>(lanes, r + 4 * b, s + 4 * b, ones, ones, shifts);
    if (T != 0) addTripleTailSse41<U>(lanes, r + W - 5, s + W - 5, masks, shifts);
    addTripleCountsSse41(lanes, counts);
  }
}

void scoreTriples(const CandidateTriple (&c)[3], uint32_t (&counts)[3][3]) {
  scoreEachTriple(c, counts, [](auto t, auto u, const CandidateTriple &triple, uint32_t(&n)[3]) {
    scoreTriple<decltype(t)::value, decltype(u)::value>(triple, n);
  });
}

// The word after the block is loaded only for a displaced row (shift != 0).
VIDEOHDR_TARGET_SSE41 __m128i addXorBlock(__m128i lanes, const uint32_t *displaced,
                                          const uint32_t *other, int32_t shift,
                                          FunnelCounts counts) {
  __m128i s = loadWordsSse41(displaced);
  if (shift != 0) s = funnelTowardsBit31Sse41(s, loadWordsSse41(displaced + 1), counts);
  return addBitCountsSse41(lanes, _mm_xor_si128(s, loadWordsSse41(other)));
}

VIDEOHDR_TARGET_SSE41 void countXorRows(const uint32_t *displaced, const uint32_t *other,
                                        int32_t pitchWords, int32_t rows, int32_t words,
                                        int32_t shift, uint32_t totals[4]) {
  PartialBlock partial(words);
  const FunnelCounts counts = funnelCounts(shift);
  const __m128i byteOnes = _mm_set1_epi8(1), pairOnes = _mm_set1_epi16(1);
  __m128i sums = _mm_setzero_si128();
  for (int32_t y = 0; y < rows; ++y) {
    const uint32_t *s = displaced + static_cast<ptrdiff_t>(y) * pitchWords;
    const uint32_t *t = other + static_cast<ptrdiff_t>(y) * pitchWords;
    __m128i lanes = _mm_setzero_si128();  // wraps past 31 blocks per row
    for (int32_t i = 0; i < partial.start; i += kBlockWords)
      lanes = addXorBlock(lanes, s + i, t + i, shift, counts);
    if (partial.words != 0) {
      partial.load(s, t, shift);
      lanes = addXorBlock(lanes, partial.displaced, partial.other, shift, counts);
    }
    // Bytes 4k .. 4k + 3 (word k of every block) into total k.
    const __m128i pairs = _mm_maddubs_epi16(lanes, byteOnes);
    sums = _mm_add_epi32(sums, _mm_madd_epi16(pairs, pairOnes));
  }
  _mm_storeu_si128(reinterpret_cast<__m128i *>(totals), sums);
}

VIDEOHDR_TARGET_SSE41 __m128i loadWidened(const uint8_t *p) {
  return _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)));
}

// Eight clamped gradients of the centres one row below and one column right
// of each byte of `top`.
VIDEOHDR_TARGET_SSE41 __m128i clampedGradients8(const uint8_t *top, ptrdiff_t pitch) {
  const uint8_t *mid = top + pitch, *bot = mid + pitch;
  const __m128i tl = loadWidened(top), tm = loadWidened(top + 1), tr = loadWidened(top + 2);
  const __m128i ml = loadWidened(mid), mr = loadWidened(mid + 2);
  const __m128i bl = loadWidened(bot), bm = loadWidened(bot + 1), br = loadWidened(bot + 2);
  const __m128i left = _mm_add_epi16(_mm_add_epi16(tl, bl), _mm_slli_epi16(ml, 1));
  const __m128i right = _mm_add_epi16(_mm_add_epi16(tr, br), _mm_slli_epi16(mr, 1));
  const __m128i upper = _mm_add_epi16(_mm_add_epi16(tl, tr), _mm_slli_epi16(tm, 1));
  const __m128i lower = _mm_add_epi16(_mm_add_epi16(bl, br), _mm_slli_epi16(bm, 1));
  const __m128i magnitude = _mm_add_epi16(_mm_abs_epi16(_mm_sub_epi16(right, left)),
                                          _mm_abs_epi16(_mm_sub_epi16(upper, lower)));
  return _mm_min_epi16(magnitude, _mm_set1_epi16(kSobelClamp));
}

VIDEOHDR_TARGET_SSE41 void sumGradientRows(const uint8_t *image, int32_t width, int32_t height,
                                           int32_t totals[4]) {
  const int32_t blocks = sobelBlocksPerRow(width);
  const ptrdiff_t pitch = width;
  __m128i sums = _mm_setzero_si128();
  for (int32_t row = 1; row <= height - 2; ++row) {
    const uint8_t *top = image + (row - 1) * pitch;
    __m128i lanes = _mm_setzero_si128();
    for (int32_t b = 0; b < blocks; ++b)
      lanes = _mm_add_epi16(lanes, clampedGradients8(top + b * kSobelBlock, pitch));
    sums = _mm_add_epi32(sums, _mm_add_epi32(_mm_cvtepi16_epi32(lanes),
                                             _mm_cvtepi16_epi32(_mm_srli_si128(lanes, 8))));
  }
  _mm_storeu_si128(reinterpret_cast<__m128i *>(totals), sums);
}

}  // namespace

int32_t countCandidateSse41(const AlignContext *ctx, int32_t level, int32_t dy, int32_t dx) {
  CountPlan plan;
  if (!makePlan(ctx, level, dy, dx, &plan)) return 0;
  return static_cast<int32_t>(countRows(plan));
}

bool scoreNineCandidatesSse41(const AlignContext *ctx, int32_t level, int32_t scores[9]) {
  return scoreCandidates<scoreTriples>(ctx, level, scores);
}

void countXorBlocksSse41(const uint32_t *displaced, const uint32_t *other, int32_t pitchWords,
                         int32_t rows, int32_t words, int32_t shift, uint32_t totals[4]) {
  countXorRows(displaced, other, pitchWords, rows, words, shift, totals);
}

double sobelBlockSumSse41(const uint8_t *image, int32_t width, int32_t height) {
  if (tooSmallForSobelBlocks(width, height)) return 0.0;
  int32_t totals[4];
  sumGradientRows(image, width, height, totals);
  return sumSobelTotals(totals);
}

}  // namespace videohdr

#endif  // VIDEOHDR_HAVE_X86_SIMD
