// Internal pieces of the coarse-to-fine shift search.
#ifndef VIDEOHDR_SEARCH_OPS_H
#define VIDEOHDR_SEARCH_OPS_H

#include <cstdint>

#include "../simd.h"
#include "../videohdr.h"

namespace videohdr {

// Narrowest level the counting layout supports: 129 pixels give six words per
// bitmap row (four data words, the last data word and the pad word).
constexpr int32_t kMinSearchLevelWidth = 129;

// Pixels of movedBitmap[level] that disagree with curBitmap[level] when the
// former is displaced by (dx, dy), counted with the search's margins, edge masks
// and 8-bit per-row lane counters (see xorTwoPyramid_New in videohdr.h).
int32_t xorTwoPyramidPortable(const AlignContext *ctx, int32_t level, int32_t dy, int32_t dx);
#if VIDEOHDR_HAVE_NEON
int32_t xorTwoPyramidNeon(const AlignContext *ctx, int32_t level, int32_t dy, int32_t dx);
#endif

// The nine candidate counts of shiftPyramid for `level`, candidate i being
// (dy, dx) = (offsets[i / 3], offsets[i % 3]) with offsets 0, -s, +s (s the
// context's searchStep), each equal to xorTwoPyramid_New's count. Answers
// false, writing nothing, for the layouts these passes do not reproduce:
// |s| of 0 or above 16, levels narrower than kMinSearchLevelWidth, rows of
// more than 31 counted blocks (whose lane counters can wrap), and a rightward
// candidate that would mask its last body block's partner. Reads words 0 .. W - 2
// of every compared row only.
bool scoreNineCandidatesPortable(const AlignContext *ctx, int32_t level, int32_t scores[9]);
#if VIDEOHDR_HAVE_NEON
bool scoreNineCandidatesNeon(const AlignContext *ctx, int32_t level, int32_t scores[9]);
#endif

// Runs shiftPyramid from the coarsest level down to level 0, or stores a zero
// shift at every level when the coarsest level is narrower than the layout
// supports.
void searchAllLevels(AlignContext *ctx);

}  // namespace videohdr

#endif  // VIDEOHDR_SEARCH_OPS_H
