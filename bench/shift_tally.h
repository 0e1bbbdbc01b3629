// What the alignment made of a scene's camera moves: per frame the move, the
// shift the search found and the one the filter applied, and a count of how
// often the search found the move and the filter let it through.
#ifndef VIDEOHDR_BENCH_SHIFT_TALLY_H
#define VIDEOHDR_BENCH_SHIFT_TALLY_H

#include <cstdint>
#include <cstdio>

#include "fixture.h"

namespace videohdr_bench {

struct FrameShifts {
  Offset moved;    // the camera's move since the previous frame
  Offset found;    // the search's level-0 result
  Offset applied;  // after the shift filter
};

// For the frame the fixture processed last.
FrameShifts lastFrameShifts(Fixture &f);

class ShiftTally {
 public:
  void add(const FrameShifts &s);
  // One line: frames, moves, even moves, found moves, found and applied
  // non-zero shifts, applied as found.
  void print(FILE *out) const;

 private:
  int32_t frames_ = 0, moved_ = 0, movedEven_ = 0, foundMove_ = 0, foundNonZero_ = 0;
  int32_t appliedNonZero_ = 0, appliedAsFound_ = 0;
};

}  // namespace videohdr_bench

#endif  // VIDEOHDR_BENCH_SHIFT_TALLY_H
