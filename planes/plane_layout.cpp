#include "plane_layout.h"

#include <algorithm>

#include "videohdr_planes.h"

namespace vhplanes {
namespace {

// Addresses as integers: the planes may lie in unrelated allocations, which
// pointer comparison does not cover.
uintptr_t address(const uint8_t *p) { return reinterpret_cast<uintptr_t>(p); }

struct Span {
  uintptr_t begin, end;
};

bool intersect(const Span &a, const Span &b) { return a.begin < b.end && b.begin < a.end; }

Span span(const uint8_t *p, int64_t bytes) {
  return {address(p), address(p) + static_cast<uintptr_t>(bytes)};
}

// A frame's planes as byte spans, the luma first.
struct FrameSpans {
  Span plane[3];
};

FrameSpans frameSpans(const SourcePlanes &p) {
  const int64_t chromaBytes = chromaPlaneBytes(p.width, p.height, p.uvRowStride, p.uvPixelStride);
  return {{span(p.y, lumaPlaneBytes(p.width, p.height, p.yRowStride)), span(p.u, chromaBytes),
           span(p.v, chromaBytes)}};
}

}  // namespace

int32_t checkFrameSize(int32_t width, int32_t height) {
  if (width <= 0 || height <= 0 || width % 2 || height % 2) return VIDEOHDR_PLANES_ERR_BAD_SIZE;
  if (int64_t{width} * height > VIDEOHDR_MAX_LUMA_BYTES) return VIDEOHDR_PLANES_ERR_BAD_SIZE;
  return VIDEOHDR_PLANES_OK;
}

int32_t checkStrides(int32_t width, int32_t yRowStride, int32_t uvRowStride,
                     int32_t uvPixelStride) {
  if (uvPixelStride != 1 && uvPixelStride != 2) return VIDEOHDR_PLANES_ERR_PIXEL_STRIDE;
  if (yRowStride < width || uvRowStride < uvPixelStride * (width / 2))
    return VIDEOHDR_PLANES_ERR_ROW_STRIDE;
  return VIDEOHDR_PLANES_OK;
}

int64_t lumaPlaneBytes(int32_t width, int32_t height, int32_t yRowStride) {
  return int64_t{yRowStride} * (height - 1) + width;
}

int64_t chromaPlaneBytes(int32_t width, int32_t height, int32_t uvRowStride,
                         int32_t uvPixelStride) {
  return int64_t{uvRowStride} * (height / 2 - 1) + int64_t{uvPixelStride} * (width / 2 - 1) + 1;
}

bool chromaInterleaved(const SourcePlanes &p) {
  return p.uvPixelStride == 2 && (p.u + 1 == p.v || p.v + 1 == p.u);
}

bool packsVFirst(const SourcePlanes &p) { return chromaInterleaved(p) && p.v + 1 == p.u; }

// Interleaved planes share their rows' span by design; their samples never
// meet (each row holds whole pairs, and rows are at least a pair row apart).
bool planesOverlap(const SourcePlanes &p) {
  const FrameSpans s = frameSpans(p);
  if (intersect(s.plane[0], s.plane[1]) || intersect(s.plane[0], s.plane[2])) return true;
  return !chromaInterleaved(p) && intersect(s.plane[1], s.plane[2]);
}

bool framesOverlap(const SourcePlanes &a, const SourcePlanes &b) {
  const FrameSpans sa = frameSpans(a), sb = frameSpans(b);
  for (const Span &x : sa.plane)
    for (const Span &y : sb.plane)
      if (intersect(x, y)) return true;
  return false;
}

bool sameFrame(const SourcePlanes &a, const SourcePlanes &b) {
  return a.y == b.y && a.u == b.u && a.v == b.v && a.yRowStride == b.yRowStride &&
         a.uvRowStride == b.uvRowStride && a.uvPixelStride == b.uvPixelStride;
}

int32_t chromaRowsAfterLuma(const SourcePlanes &p) {
  if (!chromaInterleaved(p) || p.yRowStride != p.width || p.uvRowStride != p.width) return 0;
  const uintptr_t chroma = address(std::min(p.u, p.v));
  if (chroma < address(p.y)) return 0;
  const uintptr_t offset = chroma - address(p.y);
  const uintptr_t rows = offset / static_cast<uintptr_t>(p.width);
  if (offset % static_cast<uintptr_t>(p.width) != 0 || rows < static_cast<uintptr_t>(p.height) ||
      rows > static_cast<uintptr_t>(p.height) + VIDEOHDR_PLANES_MAX_GAP_ROWS)
    return 0;
  return static_cast<int32_t>(rows);
}

}  // namespace vhplanes
