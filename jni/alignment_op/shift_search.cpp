// The coarse-to-fine shift search: one level at a time, the previous frame's
// bitmap is moved by twice the coarser level's shift and nine candidate offsets
// around that start are scored by counting disagreeing bits.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "../kernels.h"
#include "align_internal.h"
#include "bit_rows.h"
#include "score_layout.h"
#include "score_ops.h"

namespace videohdr {
namespace {

// Edge masks of the last data word (r = w mod 32, u = |dx|).
void setEdgeMasks(int32_t dx, int32_t r, int32_t u, CountPlan *plan) {
  if (dx == 0) {
    // Pixel w - 1 is not compared.
    const uint32_t edge = r == 0 ? 0xFFFFFFFEu : shiftLeftOrZero(kAllOnes, 33 - r);
    plan->lastMaskDisplaced = plan->lastMaskPlain = edge;
  } else if (dx > 0) {
    // S's last data word takes no part; R's counts against nothing in its
    // first r - u pixels, or its first 32 - u when r <= u (r = 0 included).
    plan->lastMaskDisplaced = 0;
    plan->lastMaskPlain = shiftLeftOrZero(kAllOnes, r <= u ? u : u + 32 - r);
  } else {
    // R's pixels from w - u on are not compared.
    const int32_t e = r == 0 ? u : u + 32 - r;
    plan->lastMaskDisplaced = shiftLeftOrZero(kAllOnes, e);
    plan->lastMaskPlain = shiftLeftOrZero(kAllOnes, e + u);  // implies the mask << u
    // With 0 < r <= u the same formula reaches 32 and clears the last data
    // word of both rows, and when there is no tail (t = 0) it also clears R's
    // last data word where the body's last block funnels it in: otherwise up
    // to u - r bits past the row's last pixel would be compared.
    if (r != 0 && r <= u && plan->tailWords == 0) {
      plan->bodyEndPartnerMask = plan->lastMaskDisplaced;
    }
  }
}

}  // namespace

bool makePlan(const AlignContext *ctx, int32_t level, int32_t dy, int32_t dx, CountPlan *plan) {
  if (level < 0 || level >= ctx->levels || dx <= -32 || dx >= 32) return false;
  const int32_t w = ctx->levelWidth[level];
  const int32_t h = ctx->levelHeight[level];
  if (w < kMinSearchLevelWidth) return false;
  // The margin is symmetric and never below one row: dy = 0 skips the first
  // and the last row too.
  const int64_t margin = dy == 0 ? 1 : std::llabs(dy);
  if (margin >= h - margin) return false;

  const int32_t W = (w + 63) >> 5;
  const int32_t r = w & 31;
  const int32_t u = std::abs(dx);
  const uint32_t *R = ctx->curBitmap[level] + margin * W;
  const uint32_t *S = ctx->movedBitmap[level] + (margin + dy) * W;
  plan->displaced = dx >= 0 ? S : R;
  plan->plain = dx >= 0 ? R : S;
  plan->pitch = W;
  plan->rows = static_cast<int32_t>(h - 2 * margin);
  plan->shift = u;
  plan->tailWords = (W - 6) % 4;
  plan->bodyBlocks = (W - 2 - plan->tailWords) / 4;
  plan->lastWord = W - 2;
  if (dx == 0) {
    plan->firstMaskDisplaced = plan->firstMaskPlain = 0x7FFFFFFFu;  // pixel 0 is not compared
  } else if (dx > 0) {
    // Applied before the funnel: S loses its first 2u pixels, R its first u.
    plan->firstMaskDisplaced = shiftRightOrZero(kAllOnes, 2 * u);
    plan->firstMaskPlain = shiftRightOrZero(kAllOnes, u);
  } else {
    plan->firstMaskDisplaced = plan->firstMaskPlain = kAllOnes;  // no left margin
  }
  plan->bodyEndPartnerMask = kAllOnes;
  setEdgeMasks(dx, r, u, plan);
  return true;
}

bool fusableLevel(const AlignContext *ctx, int32_t level, int32_t u) {
  if (level < 0 || level >= ctx->levels || u < 1 || u > kMaxFusedShift) return false;
  const int32_t w = ctx->levelWidth[level];
  if (w < kMinSearchLevelWidth) return false;
  const int32_t W = (w + 63) >> 5;
  const int32_t t = (W - 6) % 4;
  const int32_t blocks = (W - 2 - t) / 4 + (t != 0 ? 1 : 0);
  const int32_t r = w & 31;
  return blocks <= kMaxUnwrappedBlocks && !(r != 0 && r <= u && t == 0);
}

CandidateTriple tripleFor(const AlignContext *ctx, int32_t level, int32_t dy, int32_t u) {
  // Zeroed: the fused passes pick their body from the first triple's shift
  // even when that triple is empty, and shift 0 selects the body that reads
  // each plan's own shift, right for any step.
  CandidateTriple c{};
  c.empty = !makePlan(ctx, level, dy, 0, &c.zero);
  if (!c.empty) {
    makePlan(ctx, level, dy, -u, &c.negative);
    makePlan(ctx, level, dy, u, &c.positive);
  }
  return c;
}

namespace {

uint32_t countRowPortable(const CountPlan &plan, const uint32_t *d, const uint32_t *p,
                          uint32_t *scratchD, uint32_t *scratchP) {
  uint8_t lanes[16] = {};
  for (int32_t b = 0; b < plan.bodyBlocks; ++b) {
    uint32_t dw[5], pw[4];
    std::memcpy(dw, d + 4 * b, sizeof dw);
    std::memcpy(pw, p + 4 * b, sizeof pw);
    if (b == 0) {
      dw[0] &= plan.firstMaskDisplaced;
      pw[0] &= plan.firstMaskPlain;
    }
    if (b == plan.bodyBlocks - 1) dw[4] &= plan.bodyEndPartnerMask;
    addBlockPortable(dw, pw, plan.shift, lanes);
  }
  if (plan.tailWords != 0) {
    fillTail(plan, d, plan.lastMaskDisplaced, scratchD);
    fillTail(plan, p, plan.lastMaskPlain, scratchP);
    addBlockPortable(scratchD, scratchP, plan.shift, lanes);
  }
  // Widened once per row, so the lanes' wrap-around stays in the count.
  uint32_t sum = 0;
  for (uint8_t lane : lanes) sum += lane;
  return sum;
}

#if VIDEOHDR_HAVE_NEON
// The row's sixteen 8-bit lanes, before widening. The funnel by u = 0 (dx = 0)
// is the funnel's own lane shift by -32, which clears the partner.
uint8x16_t countRowNeon(const CountPlan &plan, const uint32_t *d, const uint32_t *p,
                        uint32_t *scratchD, uint32_t *scratchP) {
  const FunnelShifts shifts = funnelTowardsBit31(plan.shift);
  const uint32x4_t ones = vdupq_n_u32(kAllOnes);
  const uint32x4_t firstD = vsetq_lane_u32(plan.firstMaskDisplaced, ones, 0);
  const uint32x4_t firstP = vsetq_lane_u32(plan.firstMaskPlain, ones, 0);
  const uint32x4_t endPartner = vsetq_lane_u32(plan.bodyEndPartnerMask, ones, 3);
  uint8x16_t lanes = vdupq_n_u8(0);
  for (int32_t b = 0; b < plan.bodyBlocks; ++b) {
    uint32x4_t dv = vld1q_u32(d + 4 * b), next = vld1q_u32(d + 4 * b + 1);
    uint32x4_t pv = vld1q_u32(p + 4 * b);
    if (b == 0) {
      dv = vandq_u32(dv, firstD);
      pv = vandq_u32(pv, firstP);
    }
    if (b == plan.bodyBlocks - 1) next = vandq_u32(next, endPartner);
    lanes = addBitCountsNeon(lanes, veorq_u32(funnelNeon(dv, next, shifts), pv));
  }
  if (plan.tailWords != 0) {
    fillTail(plan, d, plan.lastMaskDisplaced, scratchD);
    fillTail(plan, p, plan.lastMaskPlain, scratchP);
    const uint32x4_t x = funnelNeon(vld1q_u32(scratchD), vld1q_u32(scratchD + 1), shifts);
    lanes = addBitCountsNeon(lanes, veorq_u32(x, vld1q_u32(scratchP)));
  }
  return lanes;
}
#endif

// Words 0, W - 3 and (with a tail block) W - 2 of one candidate's row pair, the
// words its masks touch. d is the displaced side, p the other.
uint32_t countEdgeWordsPortable(const CountPlan &c, const uint32_t *d, const uint32_t *p) {
  const int32_t last = c.lastWord;
  const bool tail = c.tailWords != 0;
  const uint32_t lastD = d[last] & (tail ? c.lastMaskDisplaced : c.bodyEndPartnerMask);
  uint32_t n = bitCount(funnelLeftOrSame(d[0] & c.firstMaskDisplaced, d[1], c.shift) ^
                        (p[0] & c.firstMaskPlain));
  n += bitCount(funnelLeftOrSame(d[last - 1], lastD, c.shift) ^ p[last - 1]);
  if (tail) n += bitCount(funnelLeftOrSame(lastD, 0, c.shift) ^ (p[last] & c.lastMaskPlain));
  return n;
}

// Word view of the count: the compared words are 0 .. W - 3, and W - 2 when
// there is a tail block; words 1 .. W - 4 carry no mask in any candidate.
void scoreTriplePortable(const CandidateTriple &c, uint32_t counts[3]) {
  const CountPlan &z = c.zero;
  const int32_t u = c.positive.shift, W = z.pitch;
  const uint32_t *S = c.positive.displaced, *R = c.positive.plain;
  counts[0] = counts[1] = counts[2] = 0;
  for (int32_t y = 0; y < z.rows; ++y) {
    const uint32_t *s = S + static_cast<ptrdiff_t>(y) * W;
    const uint32_t *r = R + static_cast<ptrdiff_t>(y) * W;
    uint32_t still = 0, left = 0, right = 0;
    // 1 <= u <= 16 here, so the funnel needs no guard for shifts of 32 (which
    // keeps the loop vectorisable).
    for (int32_t i = 1; i <= W - 4; ++i) {
      still += bitCount(s[i] ^ r[i]);
      left += bitCount(funnelLeft(r[i], r[i + 1], u) ^ s[i]);
      right += bitCount(funnelLeft(s[i], s[i + 1], u) ^ r[i]);
    }
    counts[0] += still + countEdgeWordsPortable(z, s, r);
    counts[1] += left + countEdgeWordsPortable(c.negative, r, s);
    counts[2] += right + countEdgeWordsPortable(c.positive, s, r);
  }
}

#if VIDEOHDR_HAVE_NEON
// The body's funnel: with the shift an immediate (U > 0) a shift and a
// shift-right-and-insert, else lane shifts by the run-time amount.
template <int U>
uint32x4_t funnelBy(uint32x4_t cur, uint32x4_t next, FunnelShifts shifts) {
  if constexpr (U == 0) {
    return funnelNeon(cur, next, shifts);
  } else {
    return vsriq_n_u32(vshlq_n_u32(cur, U), next, 32 - U);
  }
}

// A block's words funnelled with zeros after its last one.
template <int U>
uint32x4_t funnelBlockEndBy(uint32x4_t words, FunnelShifts shifts) {
  return funnelBy<U>(words, vextq_u32(words, vdupq_n_u32(0), 1), shifts);
}

// The tail block is read as the four words ending at the last data word
// (W - 5 .. W - 2): the lanes before its T tail words are not counted, and
// the last lane carries each candidate's edge masks. In the fused passes no
// lane counter can wrap, so the lane a word is counted in does not change the
// count.
struct TailMasks {
  uint32x4_t counted;         // the tail words and the last data word
  uint32x4_t still;           // dx = 0: counted, the edge mask on the last word of both sides
  uint32x4_t leftDisplaced;   // dx < 0: R's last word before its funnel
  uint32x4_t leftPlain;       // dx < 0: counted, S's last word
  uint32x4_t rightDisplaced;  // dx > 0: S's last word before its funnel
  uint32x4_t rightPlain;      // dx > 0: counted, R's last word
};

uint32x4_t withLastLane(uint32x4_t v, uint32_t last) { return vsetq_lane_u32(last, v, 3); }

TailMasks tailMasksFor(const CandidateTriple &c, int32_t tailWords) {
  uint32_t lanes[4];
  for (int32_t i = 0; i < 4; ++i) lanes[i] = i >= 3 - tailWords ? kAllOnes : 0;
  const uint32x4_t counted = vld1q_u32(lanes), ones = vdupq_n_u32(kAllOnes);
  return {counted,
          withLastLane(counted, c.zero.lastMaskPlain),
          withLastLane(ones, c.negative.lastMaskDisplaced),
          withLastLane(counted, c.negative.lastMaskPlain),
          withLastLane(ones, c.positive.lastMaskDisplaced),
          withLastLane(counted, c.positive.lastMaskPlain)};
}

// The triples of `Offsets` vertical offsets scored in one pass over `rows`
// rows of R: each R row is loaded and funnelled once and compared with the
// row of S that each offset pairs with it (s[k], advancing with R). Block
// view of the count, as the per-candidate count makes it: body blocks of four
// words from word 0 (word 0's masks applied to the compared word), then the
// tail block of T words and the masked last data word. The masks depend on
// dx only, so one triple's plans serve every offset. counts[k] takes offset
// k's three counts (dx = 0, -u, +u).
template <int T, int U, int Offsets>
void scoreTriplesNeon(const CandidateTriple &c, const uint32_t *R, const uint32_t *const *S,
                      int32_t rows, uint32_t (*counts)[3]) {
  const CountPlan &z = c.zero, &pos = c.positive;
  const int32_t W = z.pitch, blocks = z.bodyBlocks;
  const FunnelShifts shifts = funnelTowardsBit31(pos.shift);
  const TailMasks tail = tailMasksFor(c, T);
  const uint32x4_t ones = vdupq_n_u32(kAllOnes);
  const uint32x4_t firstZero = vsetq_lane_u32(0x7FFFFFFFu, ones, 0);
  const uint32x4_t firstRight = vsetq_lane_u32(kAllOnes >> pos.shift, ones, 0);
  uint32x4_t totals[Offsets][3];
  for (int k = 0; k < Offsets; ++k) totals[k][0] = totals[k][1] = totals[k][2] = vdupq_n_u32(0);
  for (int32_t y = 0; y < rows; ++y) {
    const uint32_t *r = R + static_cast<ptrdiff_t>(y) * W;
    const uint32_t *s[Offsets];
    for (int k = 0; k < Offsets; ++k) s[k] = S[k] + static_cast<ptrdiff_t>(y) * W;
    uint8x16_t lanes[Offsets][3];
    // Block 0 carries word 0's masks; it is always there (W >= 6).
    uint32x4_t rv = vld1q_u32(r);
    uint32x4_t rf = funnelBy<U>(rv, vld1q_u32(r + 1), shifts);
    for (int k = 0; k < Offsets; ++k) {
      const uint32x4_t sv = vld1q_u32(s[k]);
      const uint32x4_t sf = funnelBy<U>(sv, vld1q_u32(s[k] + 1), shifts);
      lanes[k][0] = vcntq_u8(vreinterpretq_u8_u32(vandq_u32(veorq_u32(sv, rv), firstZero)));
      lanes[k][1] = vcntq_u8(vreinterpretq_u8_u32(veorq_u32(rf, sv)));
      lanes[k][2] = vcntq_u8(vreinterpretq_u8_u32(vandq_u32(veorq_u32(sf, rv), firstRight)));
    }
    for (int32_t b = 1; b < blocks; ++b) {
      rv = vld1q_u32(r + 4 * b);
      rf = funnelBy<U>(rv, vld1q_u32(r + 4 * b + 1), shifts);
      for (int k = 0; k < Offsets; ++k) {
        const uint32x4_t sv = vld1q_u32(s[k] + 4 * b);
        const uint32x4_t sf = funnelBy<U>(sv, vld1q_u32(s[k] + 4 * b + 1), shifts);
        lanes[k][0] = addBitCountsNeon(lanes[k][0], veorq_u32(sv, rv));
        lanes[k][1] = addBitCountsNeon(lanes[k][1], veorq_u32(rf, sv));
        lanes[k][2] = addBitCountsNeon(lanes[k][2], veorq_u32(sf, rv));
      }
    }
    if (T != 0) {
      // R's parts of the tail block are the same for every offset.
      rv = vld1q_u32(r + W - 5);
      rf = vandq_u32(funnelBlockEndBy<U>(vandq_u32(rv, tail.leftDisplaced), shifts), tail.counted);
      const uint32x4_t rightR = vandq_u32(rv, tail.rightPlain);
      for (int k = 0; k < Offsets; ++k) {
        const uint32x4_t sv = vld1q_u32(s[k] + W - 5);
        const uint32x4_t sf = funnelBlockEndBy<U>(vandq_u32(sv, tail.rightDisplaced), shifts);
        lanes[k][0] = addBitCountsNeon(lanes[k][0], vandq_u32(veorq_u32(sv, rv), tail.still));
        lanes[k][1] = addBitCountsNeon(lanes[k][1], veorq_u32(rf, vandq_u32(sv, tail.leftPlain)));
        lanes[k][2] = addBitCountsNeon(lanes[k][2], veorq_u32(vandq_u32(sf, tail.counted), rightR));
      }
    }
    for (int k = 0; k < Offsets; ++k)
      for (int d = 0; d < 3; ++d) totals[k][d] = widenLanesNeon(totals[k][d], lanes[k][d]);
  }
  for (int k = 0; k < Offsets; ++k)
    for (int d = 0; d < 3; ++d) counts[k][d] += addAcrossNeon(totals[k][d]);
}

// One triple over its own rows.
template <int T, int U>
void scoreTripleNeon(const CandidateTriple &c, uint32_t (&counts)[3]) {
  const uint32_t *S = c.positive.displaced;
  scoreTriplesNeon<T, U, 1>(c, c.positive.plain, &S, c.zero.rows, &counts);
}

#if defined(__aarch64__)
// AArch64's 32 vector registers hold the nine candidates' lane counters and
// totals beside a block's operands, so one pass scores all nine: each R row
// is read and funnelled once instead of once per vertical offset. The pass
// covers the rows every offset compares (margin |s|); the zero offset's rows
// outside them (margin 1) are scored as a triple of their own.
template <int T, int U>
void scoreNineNeon(const CandidateTriple (&c)[3], uint32_t (&counts)[3][3]) {
  const int32_t W = c[0].zero.pitch;
  const int32_t margin = c[0].zero.rows - c[1].zero.rows;  // 2 (|s| - 1) extra zero rows
  const uint32_t *S[3];
  // The triples' row pointers start at their own margins: the zero offset's
  // |s| - 1 rows above the others'.
  S[0] = c[0].positive.displaced + static_cast<ptrdiff_t>(margin / 2) * W;
  S[1] = c[1].positive.displaced;
  S[2] = c[2].positive.displaced;
  scoreTriplesNeon<T, U, 3>(c[0], c[1].positive.plain, S, c[1].zero.rows, counts);
  if (margin == 0) return;
  // The zero offset's first and last |s| - 1 rows.
  const int32_t edgeRows = margin / 2;
  const ptrdiff_t bottom = static_cast<ptrdiff_t>(c[0].zero.rows - edgeRows) * W;
  const ptrdiff_t firstRows[2] = {0, bottom};
  for (const ptrdiff_t first : firstRows) {
    const uint32_t *edgeS = c[0].positive.displaced + first;
    scoreTriplesNeon<T, U, 1>(c[0], c[0].positive.plain + first, &edgeS, edgeRows, &counts[0]);
  }
}
#endif

template <int U>
void scoreTriplesNeonWithShift(const CandidateTriple (&c)[3], uint32_t (&counts)[3][3]) {
#if defined(__aarch64__)
  if (!c[1].empty && !c[2].empty) {
    return withTailWords(c[0].zero.tailWords,
                         [&](auto t) { scoreNineNeon<decltype(t)::value, U>(c, counts); });
  }
#endif
  for (int k = 0; k < 3; ++k) {
    if (c[k].empty) continue;
    withTailWords(c[k].zero.tailWords,
                  [&](auto t) { scoreTripleNeon<decltype(t)::value, U>(c[k], counts[k]); });
  }
}

// The default step of 2 gets immediate shifts in the body.
void scoreTriplesNeon(const CandidateTriple (&c)[3], uint32_t (&counts)[3][3]) {
  if (c[0].positive.shift == 2) return scoreTriplesNeonWithShift<2>(c, counts);
  scoreTriplesNeonWithShift<0>(c, counts);
}
#endif

void scoreTriplesPortable(const CandidateTriple (&c)[3], uint32_t (&counts)[3][3]) {
  for (int k = 0; k < 3; ++k)
    if (!c[k].empty) scoreTriplePortable(c[k], counts[k]);
}

}  // namespace

int32_t countCandidatePortable(const AlignContext *ctx, int32_t level, int32_t dy, int32_t dx) {
  CountPlan plan;
  if (!makePlan(ctx, level, dy, dx, &plan)) return 0;
  uint32_t scratchD[8] = {}, scratchP[8] = {};
  uint32_t total = 0;
  for (int32_t y = 0; y < plan.rows; ++y) {
    const ptrdiff_t offset = static_cast<ptrdiff_t>(y) * plan.pitch;
    total +=
        countRowPortable(plan, plan.displaced + offset, plan.plain + offset, scratchD, scratchP);
  }
  return static_cast<int32_t>(total);
}

#if VIDEOHDR_HAVE_NEON
int32_t countCandidateNeon(const AlignContext *ctx, int32_t level, int32_t dy, int32_t dx) {
  CountPlan plan;
  if (!makePlan(ctx, level, dy, dx, &plan)) return 0;
  alignas(16) uint32_t scratchD[8] = {}, scratchP[8] = {};
  uint32x4_t totals = vdupq_n_u32(0);
  for (int32_t y = 0; y < plan.rows; ++y) {
    const ptrdiff_t offset = static_cast<ptrdiff_t>(y) * plan.pitch;
    totals = widenLanesNeon(totals, countRowNeon(plan, plan.displaced + offset, plan.plain + offset,
                                                 scratchD, scratchP));
  }
  return static_cast<int32_t>(addAcrossNeon(totals));
}
#endif

bool scoreNineCandidatesPortable(const AlignContext *ctx, int32_t level, int32_t scores[9]) {
  return scoreCandidates<scoreTriplesPortable>(ctx, level, scores);
}

#if VIDEOHDR_HAVE_NEON
bool scoreNineCandidatesNeon(const AlignContext *ctx, int32_t level, int32_t scores[9]) {
  return scoreCandidates<scoreTriplesNeon>(ctx, level, scores);
}
#endif

void searchAllLevels(AlignContext *ctx) {
  if (!searchSupported(ctx)) {
    storeZeroShift(ctx);
    return;
  }
  for (int32_t l = ctx->levels - 1; l >= 0; --l) shiftPyramid(ctx, l);
}

}  // namespace videohdr

extern "C" {

int32_t xorTwoPyramid_New(AlignContext *context, int32_t /*ignored1*/, int32_t /*ignored2*/,
                          int32_t level, int32_t dy, int32_t dx) {
  return videohdr::activeKernels().score.countCandidate(context, level, dy, dx);
}

void shiftPyramid(AlignContext *context, int32_t level) {
  shiftData(context, level);
  const int32_t s = context->searchStep;
  const int32_t offsets[3] = {0, -s, s};
  // Strictly less: a tie goes to the candidate tried first, so (0, 0) wins
  // every tie it takes part in.
  int32_t scores[9];
  const bool scored = videohdr::activeKernels().score.scoreNineCandidates(context, level, scores);
  if (!scored) {
    for (int i = 0; i < 9; ++i)
      scores[i] = xorTwoPyramid_New(context, 0, 0, level, offsets[i / 3], offsets[i % 3]);
  }
  int32_t best = INT32_MAX, bestDx = 0, bestDy = 0;
  for (int i = 0; i < 9; ++i) {
    if (scores[i] < best) {
      best = scores[i];
      bestDx = offsets[i % 3];
      bestDy = offsets[i / 3];
    }
  }
  // Stored cumulatively: the coarser level's shift, doubled, plus this level's step.
  const bool coarsest = level == context->levels - 1;
  context->levelDx[level] = bestDx + (coarsest ? 0 : 2 * context->levelDx[level + 1]);
  context->levelDy[level] = bestDy + (coarsest ? 0 : 2 * context->levelDy[level + 1]);
}

}  // extern "C"
