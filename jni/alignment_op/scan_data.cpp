// The aligned previous frame: the found shift, filtered against the one
// applied last time, moves the previous frame over a copy of the current one.
#include <cstdlib>
#include <cstring>

#include "align_internal.h"

namespace videohdr {
namespace {

bool oppositeSigns(int32_t a, int32_t b) { return a != 0 && b != 0 && ((a < 0) != (b < 0)); }

// Copies `rows` rows of `bytes` bytes from `src` to `dst` (both with pitch `pitch`) so that
// destination (x, y) receives source (x + sx, y + sy) for non-negative offsets on one side.
void copyMovedRows(const uint8_t *src, uint8_t *dst, int32_t pitch, int32_t rows, int32_t bytes,
                   int32_t sx, int32_t sy) {
  const int32_t srcRow = sy > 0 ? sy : 0, dstRow = sy < 0 ? -sy : 0;
  const int32_t srcCol = sx > 0 ? sx : 0, dstCol = sx < 0 ? -sx : 0;
  for (int32_t i = 0; i < rows; ++i) {
    std::memcpy(dst + static_cast<size_t>(dstRow + i) * pitch + dstCol,
                src + static_cast<size_t>(srcRow + i) * pitch + srcCol, static_cast<size_t>(bytes));
  }
}

}  // namespace

void filterShift(int32_t X, int32_t Y, int32_t pdx, int32_t pdy, int32_t *outDx, int32_t *outDy) {
  int32_t dx = X, dy = Y;
  // A turn from a purely horizontal to a purely vertical move, or back, is
  // more likely a mismatch than real motion: keep the frame still.
  if (X == 0 && Y != 0 && pdx != 0 && pdy == 0) dx = dy = 0;
  if (X != 0 && Y == 0 && pdx == 0 && pdy != 0) dx = dy = 0;
  if (oppositeSigns(X, pdx)) dx = 0;
  if (oppositeSigns(Y, pdy)) dy = 0;
  if (pdx == 0 && std::abs(dx) > 4) dx = 0;
  if (pdy == 0 && std::abs(dy) > 4) dy = 0;
  *outDx = dx;
  *outDy = dy;
}

void writeAlignedFrame(int32_t w, int32_t h, int32_t dx, int32_t dy, const uint8_t *prev,
                       const uint8_t *cur, uint8_t *out) {
  const uint32_t frameBytes = (3u * static_cast<uint32_t>(w) * static_cast<uint32_t>(h)) >> 1;
  std::memcpy(out, cur, frameBytes);
  const int32_t rows = h - std::abs(dy);
  const int32_t cols = w - std::abs(dx);
  if (rows < 1 || cols < 1) return;
  copyMovedRows(prev, out, w, rows, cols, dx, dy);
  if (rows < 2) return;
  // Chroma pairs must stay together: the horizontal move is rounded toward
  // zero to an even byte count, the vertical one halved toward zero. The run
  // length is the luma's rounded down to even, not derived from the rounded move.
  const size_t chroma = static_cast<size_t>(w) * static_cast<size_t>(h);
  copyMovedRows(prev + chroma, out + chroma, w, rows / 2, cols & ~1, dx - dx % 2, dy / 2);
}

}  // namespace videohdr

extern "C" void getScanData(AlignContext *context, const uint8_t *prevFrame,
                            const uint8_t *curFrame, uint8_t *outFrame) {
  int32_t dx, dy;
  videohdr::filterShift(context->levelDx[0], context->levelDy[0], context->lastDx, context->lastDy,
                        &dx, &dy);
  videohdr::writeAlignedFrame(context->width, context->height, dx, dy, prevFrame, curFrame,
                              outFrame);
  context->lastDx = dx;
  context->lastDy = dy;
}
