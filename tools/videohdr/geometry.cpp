#include "geometry.h"

#include <cstdlib>

#include "videohdr.h"

namespace vhtool {

GeometryCheck checkGeometry(const Geometry &g) {
  GeometryCheck check;
  const std::string size = std::to_string(g.width) + "x" + std::to_string(g.height);
  // Frames reach the library packed (stride = width) whatever their padding.
  const int64_t lumaBytes = static_cast<int64_t>(g.width) * g.height;
  if (g.width < 2 || g.height < 2) {
    check.error = "frame size " + size + " is too small";
  } else if (g.width % 2 || g.height % 2) {
    check.error = "odd frame size " + size + ": 4:2:0 chroma needs an even width and height";
  } else if (g.stride < g.width) {
    check.error =
        "stride " + std::to_string(g.stride) + " is below the width " + std::to_string(g.width);
  } else if (g.scanline < g.height) {
    check.error = "scanline " + std::to_string(g.scanline) + " is below the height " +
                  std::to_string(g.height);
  } else if (g.stride > 2 * g.width || g.scanline > 2 * g.height) {
    // Camera buffers pad a little at most; this guards the tool's allocation.
    check.error = "stride " + std::to_string(g.stride) + " or scanline " +
                  std::to_string(g.scanline) + " is more than twice the width or height";
  } else if (lumaBytes > VIDEOHDR_MAX_LUMA_BYTES) {
    check.error = size + " is outside the library's design: a luma plane of width*height = " +
                  std::to_string(lumaBytes) + " bytes exceeds " +
                  std::to_string(VIDEOHDR_MAX_LUMA_BYTES) + " (for example 2048x1280)";
  }
  if (!check.error.empty()) return check;

  if (g.width < VIDEOHDR_MIN_SEARCH_WIDTH) {
    check.warnings.push_back("width " + std::to_string(g.width) + " is below " +
                             std::to_string(VIDEOHDR_MIN_SEARCH_WIDTH) +
                             ": motion compensation is off, frames are fused unaligned");
  }
  return check;
}

bool parseSize(const std::string &text, int32_t *width, int32_t *height) {
  const size_t x = text.find('x');
  if (x == std::string::npos || x == 0 || x + 1 == text.size()) return false;
  const std::string w = text.substr(0, x);
  const std::string h = text.substr(x + 1);
  if (w.find_first_not_of("0123456789") != std::string::npos ||
      h.find_first_not_of("0123456789") != std::string::npos || w.size() > 6 || h.size() > 6) {
    return false;
  }
  *width = std::atoi(w.c_str());
  *height = std::atoi(h.c_str());
  return *width > 0 && *height > 0;
}

}  // namespace vhtool
