// The aligned previous frame: the found shift, filtered against the one
// applied last time, moves the previous frame over a copy of the current one.
#include <cstddef>
#include <cstdlib>

#include "../kernels.h"
#include "align_internal.h"

namespace videohdr {
namespace {

void copyBytes(uint8_t *dst, const uint8_t *src, size_t n) {
  activeKernels().copy.copyBytes(dst, src, n);
}

// The current frame's bytes into the aligned frame. A caller may align into
// the current frame itself (outFrame == curFrame): its bytes are then already
// in place, and the copy, whose ranges must not overlap, is left out. This
// works because every output byte is written once and the overlays read the
// previous frame only (which must not overlap the output).
void copyBackground(uint8_t *out, const uint8_t *cur, size_t n) {
  if (out != cur) copyBytes(out, cur, n);
}

bool oppositeSigns(int32_t a, int32_t b) { return a != 0 && b != 0 && ((a < 0) != (b < 0)); }

// Writes the `planeRows` rows of one plane (pitch `pitch`) of the aligned
// frame, each byte once: a run of `overlayRows` rows in which `bytes` bytes of
// the previous frame are laid over the current one so that destination (x, y)
// receives previous (x + sx, y + sy), and the current frame everywhere else.
// The overlay lies inside the plane for every shift the caller passes.
void composePlane(const uint8_t *prev, const uint8_t *cur, uint8_t *out, int32_t pitch,
                  int32_t planeRows, int32_t overlayRows, int32_t bytes, int32_t sx, int32_t sy) {
  const int32_t srcRow = sy > 0 ? sy : 0, dstRow = overlayRows > 0 && sy < 0 ? -sy : 0;
  const int32_t srcCol = sx > 0 ? sx : 0, dstCol = sx < 0 ? -sx : 0;
  const size_t rowBytes = static_cast<size_t>(pitch);
  const int32_t after = dstRow + overlayRows;
  copyBackground(out, cur, rowBytes * dstRow);
  for (int32_t y = dstRow; y < after; ++y) {
    uint8_t *o = out + y * rowBytes;
    const uint8_t *c = cur + y * rowBytes;
    copyBackground(o, c, static_cast<size_t>(dstCol));
    copyBytes(o + dstCol, prev + (srcRow + y - dstRow) * rowBytes + srcCol,
              static_cast<size_t>(bytes));
    copyBackground(o + dstCol + bytes, c + dstCol + bytes,
                   static_cast<size_t>(pitch - dstCol - bytes));
  }
  copyBackground(out + after * rowBytes, cur + after * rowBytes, rowBytes * (planeRows - after));
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

// The current frame as background, the previous one moved over it: each
// output byte is written once, with the value the background copy followed by
// the row overlays would leave.
void writeAlignedFrame(int32_t w, int32_t h, int32_t dx, int32_t dy, const uint8_t *prev,
                       const uint8_t *cur, uint8_t *out) {
  const uint32_t frameBytes = (3u * static_cast<uint32_t>(w) * static_cast<uint32_t>(h)) >> 1;
  const int32_t rows = h - std::abs(dy);
  const int32_t cols = w - std::abs(dx);
  if (w < 1 || h < 1 || rows < 1 || cols < 1) {
    copyBackground(out, cur, frameBytes);
    return;
  }
  composePlane(prev, cur, out, w, h, rows, cols, dx, dy);
  // Chroma pairs must stay together: the horizontal move is rounded toward
  // zero to an even byte count, the vertical one halved toward zero. The run
  // length is the luma's rounded down to even, not derived from the rounded
  // move. A single overlaid luma row overlays no chroma row.
  const size_t chroma = static_cast<size_t>(w) * static_cast<size_t>(h);
  const int32_t chromaRows = h / 2;
  composePlane(prev + chroma, cur + chroma, out + chroma, w, chromaRows, rows / 2, cols & ~1,
               dx - dx % 2, dy / 2);
  // The half chroma row of an odd height is background only.
  const size_t covered = chroma + static_cast<size_t>(w) * chromaRows;
  copyBackground(out + covered, cur + covered, frameBytes - covered);
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
