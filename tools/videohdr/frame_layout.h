// How a frame's pixels lie in memory: semi-planar NV12 or NV21 (the library's
// layout, padded as a camera's buffers may be) or planar I420 (Y4M's, packed),
// and the three planes the camera-plane entry point takes for each.
#ifndef VIDEOHDR_TOOL_FRAME_LAYOUT_H
#define VIDEOHDR_TOOL_FRAME_LAYOUT_H

#include <cstdint>
#include <string>

#include "geometry.h"

namespace vhtool {

enum class PixelFormat { kNv12, kNv21, kI420 };

// The format named "nv12", "nv21" or "i420" (on the command line); throws
// ToolError for any other name.
PixelFormat formatNamed(const std::string &name);

struct FrameLayout {
  PixelFormat format = PixelFormat::kNv12;
  // NV12 and NV21: luma rows of `stride` bytes, `scanline` rows to the chroma
  // rows of interleaved pairs (Geometry). I420: always packed (stride = width,
  // scanline = height), the U plane and then the V plane of width / 2 bytes a
  // row right after the luma.
  Geometry geometry;

  size_t frameBytes() const { return geometry.frameBytes(); }  // the same count for I420
  bool operator==(const FrameLayout &other) const;
  bool operator!=(const FrameLayout &other) const { return !(*this == other); }
};

// Frames of `format` without padding.
FrameLayout packedLayout(PixelFormat format, int32_t width, int32_t height);

// A frame's planes as videohdr_planes.h takes them.
struct Planes {
  uint8_t *y, *u, *v;
  int32_t yRowStride, uvRowStride, uvPixelStride;
};
Planes planesOf(const FrameLayout &layout, uint8_t *frame);

// Every sample of a frame of layout `from` into its place in a frame of layout
// `to` (the same width and height); padding in `to` is left alone.
void copyPixels(const FrameLayout &from, const uint8_t *source, const FrameLayout &to,
                uint8_t *target);

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_FRAME_LAYOUT_H
