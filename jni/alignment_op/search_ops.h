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

// Runs shiftPyramid from the coarsest level down to level 0, or stores a zero
// shift at every level when the coarsest level is narrower than the layout
// supports.
void searchAllLevels(AlignContext *ctx);

}  // namespace videohdr

#endif  // VIDEOHDR_SEARCH_OPS_H
