// The counting layouts of the scoring kernels, which every instance shares:
// the search's per-candidate plans (margins, edge masks, body and tail
// blocks), the nine candidates' triples and the layouts their fused passes
// reproduce, the full-resolution count's partial block, and the gradient
// sum's blocks. The instances differ only in how they count a block.
#ifndef VIDEOHDR_ALIGN_SCORE_LAYOUT_H
#define VIDEOHDR_ALIGN_SCORE_LAYOUT_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

#include "../videohdr.h"
#include "bit_rows.h"

namespace videohdr {

constexpr uint32_t kAllOnes = 0xFFFFFFFFu;

// ---- One candidate of the pyramid search ----

// Everything about one candidate that stays the same from row to row.
//
// One side of the comparison is "displaced": its word i is funnelled with word
// i + 1 so that its pixel x + shift lands on x (S for dx >= 0, R for dx < 0).
// The other side is compared as it stands.
struct CountPlan {
  const uint32_t *displaced;  // first visited row of the displaced side
  const uint32_t *plain;      // first visited row of the other side
  int32_t pitch;              // words per row, W
  int32_t rows;
  int32_t shift;                                // |dx|; 0 leaves the displaced side as it is
  int32_t bodyBlocks;                           // 16-byte blocks from word 0
  int32_t tailWords;                            // t = (W - 6) mod 4; 0 means no tail block
  int32_t lastWord;                             // W - 2, the last data word
  uint32_t firstMaskDisplaced, firstMaskPlain;  // on word 0, before the funnel
  uint32_t lastMaskDisplaced, lastMaskPlain;    // on the last data word, in the tail
  uint32_t bodyEndPartnerMask;                  // on the last body block's funnel partner
};

// Fills `plan` for one candidate; false when the candidate counts nothing (an
// empty row range) or lies outside the layout (no such level, |dx| >= 32, a
// level narrower than kMinSearchLevelWidth). Every row read lies inside the
// level's h rows and every word read inside words 0 .. W - 2 of a row.
bool makePlan(const AlignContext *ctx, int32_t level, int32_t dy, int32_t dx, CountPlan *plan);

// The tail block of one side: its t tail words, then its masked last data
// word. Words t + 1 .. 7 of the scratch block stay zero for the whole call, so
// the funnel's partner after the last data word is zero.
inline void fillTail(const CountPlan &plan, const uint32_t *row, uint32_t mask, uint32_t *scratch) {
  const int32_t t = plan.tailWords;
  loadPartialBlock(scratch, row + plan.lastWord - t, t, mask);
}

// ---- The nine candidates of a level scored together ----
//
// shiftPyramid's nine candidates come in three triples (dy, 0), (dy, -u),
// (dy, +u) that compare the same pair of rows: one pass per triple reads each
// row pair once and scores all three (on AArch64 one pass scores all nine).
// Within a fusable level every count is a plain sum of bit counts, which is
// what the per-row 8-bit lane counters give as long as no lane can wrap: at
// most 31 counted blocks per row.
constexpr int32_t kMaxUnwrappedBlocks = 31;
// A positive shift's word-0 masks (S & ~0 >> 2u, R & ~0 >> u, before the
// funnel) act on the compared word as one mask ~0 >> u only while u <= 16.
constexpr int32_t kMaxFusedShift = 16;

struct CandidateTriple {
  bool empty;  // no rows to compare: all three score 0
  CountPlan zero, negative, positive;
};

// The layout the fused passes reproduce exactly: besides the lane bound and the
// shift limit, no rightward candidate that masks its last body block's partner
// (0 < w % 32 <= u with no tail block), which only the per-candidate count has.
bool fusableLevel(const AlignContext *ctx, int32_t level, int32_t u);

// The triple of vertical offset dy, horizontal offsets 0, -u and +u.
CandidateTriple tripleFor(const AlignContext *ctx, int32_t level, int32_t dy, int32_t u);

// Calls score(std::integral_constant<int, T>) with T the plans' tail words
// (0 to 3), which the passes take as a compile-time constant.
template <typename Score>
void withTailWords(int32_t tailWords, Score score) {
  switch (tailWords) {
    case 0:
      return score(std::integral_constant<int, 0>{});
    case 1:
      return score(std::integral_constant<int, 1>{});
    case 2:
      return score(std::integral_constant<int, 2>{});
    default:
      return score(std::integral_constant<int, 3>{});
  }
}

// Scores the three triples of a level: counts[k] takes offset k's three counts
// (dx = 0, -u, +u); an empty triple is left at 0.
using ScoreTriples = void (*)(const CandidateTriple (&c)[3], uint32_t (&counts)[3][3]);

// Scores in shiftPyramid's order: candidate i is (dy, dx) = (offsets[i / 3],
// offsets[i % 3]) with offsets 0, -s, +s.
template <ScoreTriples scoreTriples>
bool scoreCandidates(const AlignContext *ctx, int32_t level, int32_t scores[9]) {
  const int32_t s = ctx->searchStep;
  if (s == INT32_MIN) return false;
  const int32_t u = std::abs(s);
  if (!fusableLevel(ctx, level, u)) return false;
  const int32_t offsets[3] = {0, -s, s};
  CandidateTriple c[3];
  for (int32_t k = 0; k < 3; ++k) c[k] = tripleFor(ctx, level, offsets[k], u);
  uint32_t counts[3][3] = {};  // per offset: dx = 0, -u, +u
  scoreTriples(c, counts);
  for (int32_t k = 0; k < 3; ++k) {
    scores[3 * k] = static_cast<int32_t>(counts[k][0]);
    scores[3 * k + 1] = static_cast<int32_t>(s > 0 ? counts[k][1] : counts[k][2]);
    scores[3 * k + 2] = static_cast<int32_t>(s > 0 ? counts[k][2] : counts[k][1]);
  }
  return true;
}

// ---- The full-resolution count ----

// What a per-row partial block needs: the two scratch blocks (zeroed once)
// and where the partial words start. A displaced row's block also gets the
// word after its partial words, kept in its top `shift` bits only: it feeds
// the funnel of the last copied word and funnels to 0 itself.
struct PartialBlock {
  uint32_t displaced[2 * kBlockWords] = {0};
  uint32_t other[2 * kBlockWords] = {0};
  int32_t start;
  int32_t words;
  explicit PartialBlock(int32_t totalWords)
      : start(totalWords & ~(kBlockWords - 1)), words(totalWords & (kBlockWords - 1)) {}
  void load(const uint32_t *displacedRow, const uint32_t *otherRow, int32_t shift) {
    const uint32_t partnerBits = shift == 0 ? 0 : ~(~0u >> shift);
    loadPartialBlock(displaced, displacedRow + start, words, partnerBits);
    loadPartialBlock(other, otherRow + start, words, 0);
  }
};

// ---- The block gradient sum ----

constexpr int32_t kSobelBlock = 8;
constexpr int kSobelClamp = 255;

// Blocks of eight centres per row: the first covers columns 1..8 and blocks
// follow while 8k < width - 8. There is no scalar tail, so the rightmost
// interior columns may go uncounted, and when width % 8 == 1 the last block
// reaches one column past the row (the next row's column 0; one byte past the
// plane on the last interior row).
inline int32_t sobelBlocksPerRow(int32_t width) {
  return (width - kSobelBlock + kSobelBlock - 1) / kSobelBlock;
}

inline bool tooSmallForSobelBlocks(int32_t width, int32_t height) {
  return height < 3 || width < 9;
}

// The per-row lanes are widened as signed 16-bit values, lanes i and i + 4
// into total i; the totals add up in this order.
inline double sumSobelTotals(const int32_t totals[4]) {
  return ((static_cast<double>(totals[0]) + static_cast<double>(totals[1])) +
          static_cast<double>(totals[2])) +
         static_cast<double>(totals[3]);
}

}  // namespace videohdr

#endif  // VIDEOHDR_ALIGN_SCORE_LAYOUT_H
