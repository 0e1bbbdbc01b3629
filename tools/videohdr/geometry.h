// Frame geometry in the library's layout, and the check that keeps a stream
// inside the library's design before any frame reaches it.
#ifndef VIDEOHDR_TOOL_GEOMETRY_H
#define VIDEOHDR_TOOL_GEOMETRY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vhtool {

// A semi-planar 4:2:0 frame: `height` luma rows of `stride` bytes, padding rows
// up to `scanline`, then height / 2 rows of interleaved chroma pairs.
struct Geometry {
  int32_t width = 0;
  int32_t height = 0;
  int32_t stride = 0;
  int32_t scanline = 0;

  size_t chromaOffset() const { return static_cast<size_t>(stride) * scanline; }
  size_t chromaBytes() const { return static_cast<size_t>(stride) * height / 2; }
  size_t frameBytes() const { return chromaOffset() + chromaBytes(); }
};

struct GeometryCheck {
  std::string error;  // empty when the library can take the frames
  std::vector<std::string> warnings;
};

GeometryCheck checkGeometry(const Geometry &g);

// "WxH" with positive numbers; false otherwise.
bool parseSize(const std::string &text, int32_t *width, int32_t *height);

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_GEOMETRY_H
