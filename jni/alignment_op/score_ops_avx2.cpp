// The AVX2 members of the scoring kernels that gain from 256-bit steps: the
// nine candidates (two body blocks per step, so the per-frame search counts
// half as many vectors) and the gradient sum (two blocks of eight centres per
// step). The single-candidate count (the search's fallback for the layouts
// the passes do not reproduce) and the full-resolution count run off the
// per-frame path at the sizes the library is made for, and keep their SSE4.1
// versions (score_ops.h), which are four to five times the portable speed.
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

VIDEOHDR_TARGET_AVX2 __m256i loadWords8(const uint32_t *p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p));
}

// The bit count of each byte (nibble lookups, as byteBitCountsSse41) added
// to its 8-bit lane.
VIDEOHDR_TARGET_AVX2 __m256i addBitCounts(__m256i lanes, __m256i x) {
  const __m256i table = _mm256_setr_epi8(0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4, 0, 1, 1, 2,
                                         1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4);
  const __m256i nibble = _mm256_set1_epi8(0x0F);
  const __m256i low = _mm256_shuffle_epi8(table, _mm256_and_si256(x, nibble));
  const __m256i high =
      _mm256_shuffle_epi8(table, _mm256_and_si256(_mm256_srli_epi16(x, 4), nibble));
  return _mm256_add_epi8(lanes, _mm256_add_epi8(low, high));
}

template <int U>
VIDEOHDR_TARGET_AVX2 __m256i funnelBy(__m256i word, __m256i next, FunnelCounts c) {
  if constexpr (U == 0) {
    return _mm256_or_si256(_mm256_sll_epi32(word, c.word), _mm256_srl_epi32(next, c.next));
  } else {
    return _mm256_or_si256(_mm256_slli_epi32(word, U), _mm256_srli_epi32(next, 32 - U));
  }
}

struct TripleLanes {
  __m256i still, left, right;  // dx = 0, -u, +u
};

// Body blocks b and b + 1 (words 4b .. 4b + 7 of r and s), as
// addTripleBlockSse41 counts each.
template <int U>
VIDEOHDR_TARGET_AVX2 void addTripleStep(TripleLanes &lanes, const uint32_t *r, const uint32_t *s,
                                        __m256i still, __m256i right, FunnelCounts shifts) {
  const __m256i rv = loadWords8(r), sv = loadWords8(s);
  const __m256i rf = funnelBy<U>(rv, loadWords8(r + 1), shifts);
  const __m256i sf = funnelBy<U>(sv, loadWords8(s + 1), shifts);
  lanes.still = addBitCounts(lanes.still, _mm256_and_si256(_mm256_xor_si256(sv, rv), still));
  lanes.left = addBitCounts(lanes.left, _mm256_xor_si256(rf, sv));
  lanes.right = addBitCounts(lanes.right, _mm256_and_si256(_mm256_xor_si256(sf, rv), right));
}

// The two halves' lanes added to the 128-bit ones: per lane at most 8 bits
// of each of at most 31 blocks, so no lane wraps.
VIDEOHDR_TARGET_AVX2 __m128i foldInto(__m128i narrow, __m256i wide) {
  return _mm_add_epi8(
      narrow, _mm_add_epi8(_mm256_castsi256_si128(wide), _mm256_extracti128_si256(wide, 1)));
}

// One triple's three counts over its rows: body blocks in pairs from word 0
// (the first pair carrying word 0's masks), an odd last body block and the
// tail block as the SSE4.1 passes count them.
template <int T, int U>
VIDEOHDR_TARGET_AVX2 void scoreTriple(const CandidateTriple &c, uint32_t (&counts)[3]) {
  const CountPlan &z = c.zero;
  const int32_t W = z.pitch, blocks = z.bodyBlocks;
  const FunnelCounts shifts = funnelCounts(c.positive.shift);
  const TripleMasksSse41 masks = tripleMasksSse41(c, T);
  const __m128i ones = _mm_set1_epi32(-1);
  const __m256i wideOnes = _mm256_set1_epi32(-1);
  const __m256i firstStill = _mm256_inserti128_si256(wideOnes, masks.firstStill, 0);
  const __m256i firstRight = _mm256_inserti128_si256(wideOnes, masks.firstRight, 0);
  const __m256i zero = _mm256_setzero_si256();
  for (int32_t y = 0; y < z.rows; ++y) {
    const uint32_t *r = c.positive.plain + static_cast<ptrdiff_t>(y) * W;
    const uint32_t *s = c.positive.displaced + static_cast<ptrdiff_t>(y) * W;
    TripleLanes wide = {zero, zero, zero};
    TripleLanesSse41 narrow = {_mm_setzero_si128(), _mm_setzero_si128(), _mm_setzero_si128()};
    int32_t b = 0;
    if (blocks >= 2) {
      addTripleStep<U>(wide, r, s, firstStill, firstRight, shifts);
      for (b = 2; b + 2 <= blocks; b += 2)
        addTripleStep<U>(wide, r + 4 * b, s + 4 * b, wideOnes, wideOnes, shifts);
    } else {
      addTripleBlockSse41<U>(narrow, r, s, masks.firstStill, masks.firstRight, shifts);
      b = 1;
    }
    if (b < blocks) addTripleBlockSse41<U>(narrow, r + 4 * b, s + 4 * b, ones, ones, shifts);
    if (T != 0) addTripleTailSse41<U>(narrow, r + W - 5, s + W - 5, masks, shifts);
    narrow = {foldInto(narrow.still, wide.still), foldInto(narrow.left, wide.left),
              foldInto(narrow.right, wide.right)};
    addTripleCountsSse41(narrow, counts);
  }
}

void scoreTriples(const CandidateTriple (&c)[3], uint32_t (&counts)[3][3]) {
  scoreEachTriple(c, counts, [](auto t, auto u, const CandidateTriple &triple, uint32_t(&n)[3]) {
    scoreTriple<decltype(t)::value, decltype(u)::value>(triple, n);
  });
}

// Sixteen bytes widened: the samples of two blocks of eight centres.
VIDEOHDR_TARGET_AVX2 __m256i loadSixteen(const uint8_t *p) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p)));
}

// Eight bytes widened, for a row's odd last block: zeros in the high half,
// whose gradients are 0.
VIDEOHDR_TARGET_AVX2 __m256i loadEight(const uint8_t *p) {
  return _mm256_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)));
}

// The clamped gradients of the centres one row below and one column right of
// each loaded byte of `top`: lane k of each half is lane k of its block.
template <__m256i (*load)(const uint8_t *)>
VIDEOHDR_TARGET_AVX2 __m256i clampedGradients(const uint8_t *top, ptrdiff_t pitch, __m256i clamp) {
  const uint8_t *mid = top + pitch, *bot = mid + pitch;
  const __m256i tl = load(top), tm = load(top + 1), tr = load(top + 2);
  const __m256i ml = load(mid), mr = load(mid + 2);
  const __m256i bl = load(bot), bm = load(bot + 1), br = load(bot + 2);
  const __m256i left = _mm256_add_epi16(_mm256_add_epi16(tl, bl), _mm256_slli_epi16(ml, 1));
  const __m256i right = _mm256_add_epi16(_mm256_add_epi16(tr, br), _mm256_slli_epi16(mr, 1));
  const __m256i upper = _mm256_add_epi16(_mm256_add_epi16(tl, tr), _mm256_slli_epi16(tm, 1));
  const __m256i lower = _mm256_add_epi16(_mm256_add_epi16(bl, br), _mm256_slli_epi16(bm, 1));
  const __m256i magnitude = _mm256_add_epi16(_mm256_abs_epi16(_mm256_sub_epi16(right, left)),
                                             _mm256_abs_epi16(_mm256_sub_epi16(upper, lower)));
  return _mm256_min_epi16(magnitude, clamp);
}

// The eight 16-bit lanes of a row wrap; the two halves' lanes are added with
// the same wrap before they are widened as signed values.
VIDEOHDR_TARGET_AVX2 void sumGradientRows(const uint8_t *image, int32_t width, int32_t height,
                                          int32_t totals[4]) {
  const int32_t blocks = sobelBlocksPerRow(width);
  const ptrdiff_t pitch = width;
  const __m256i clamp = _mm256_set1_epi16(kSobelClamp);
  __m128i sums = _mm_setzero_si128();
  for (int32_t row = 1; row <= height - 2; ++row) {
    const uint8_t *top = image + (row - 1) * pitch;
    __m256i lanes = _mm256_setzero_si256();
    int32_t b = 0;
    for (; b + 2 <= blocks; b += 2)
      lanes = _mm256_add_epi16(lanes,
                               clampedGradients<loadSixteen>(top + b * kSobelBlock, pitch, clamp));
    if (b < blocks)
      lanes =
          _mm256_add_epi16(lanes, clampedGradients<loadEight>(top + b * kSobelBlock, pitch, clamp));
    const __m128i folded =
        _mm_add_epi16(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1));
    const __m256i wide = _mm256_cvtepi16_epi32(folded);
    sums = _mm_add_epi32(
        sums, _mm_add_epi32(_mm256_castsi256_si128(wide), _mm256_extracti128_si256(wide, 1)));
  }
  _mm_storeu_si128(reinterpret_cast<__m128i *>(totals), sums);
}

}  // namespace

bool scoreNineCandidatesAvx2(const AlignContext *ctx, int32_t level, int32_t scores[9]) {
  return scoreCandidates<scoreTriples>(ctx, level, scores);
}

double sobelBlockSumAvx2(const uint8_t *image, int32_t width, int32_t height) {
  if (tooSmallForSobelBlocks(width, height)) return 0.0;
  int32_t totals[4];
  sumGradientRows(image, width, height, totals);
  return sumSobelTotals(totals);
}

}  // namespace videohdr

#endif  // VIDEOHDR_HAVE_X86_SIMD
