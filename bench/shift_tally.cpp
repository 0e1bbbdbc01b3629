#include "shift_tally.h"

namespace videohdr_bench {
namespace {

bool isZero(Offset o) { return o.x == 0 && o.y == 0; }

}  // namespace

FrameShifts lastFrameShifts(Fixture &f) {
  const AlignContext *ctx = f.align();
  return {motion(f.scene(), f.nextIndex() - 1),
          {ctx->levelDx[0], ctx->levelDy[0]},
          {ctx->lastDx, ctx->lastDy}};
}

void ShiftTally::add(const FrameShifts &s) {
  ++frames_;
  moved_ += !isZero(s.moved);
  movedEven_ += !isZero(s.moved) && s.moved.x % 2 == 0 && s.moved.y % 2 == 0;
  foundMove_ += !isZero(s.moved) && s.found == s.moved;
  foundNonZero_ += !isZero(s.found);
  appliedNonZero_ += !isZero(s.applied);
  appliedAsFound_ += !isZero(s.found) && s.applied == s.found;
}

void ShiftTally::print(FILE *out) const {
  std::fprintf(out,
               "%d frames: the camera moved on %d (by even steps on %d); the search found the "
               "move on %d and a non-zero shift on %d; the filter applied a non-zero shift on %d "
               "(the one found on %d)\n",
               frames_, moved_, movedEven_, foundMove_, foundNonZero_, appliedNonZero_,
               appliedAsFound_);
}

}  // namespace videohdr_bench
