#include "geometry.h"

#include <cstdlib>

#include "videohdr.h"

namespace vhtool {
namespace {

// What is wrong with one side of the frame, or "".
std::string checkSide(const char *name, int32_t value) {
  if (value > 0 && value % 2 == 0) return "";
  return std::string(name) + " " + std::to_string(value) +
         (value > 0 ? " is odd" : " is not positive") +
         ": 4:2:0 chroma needs an even width and height";
}

// What is wrong with a padded length (stride, scanline) against the one it
// pads (width, height), or "".
std::string checkPadded(const char *name, int32_t value, const char *of, int32_t side) {
  const std::string values = std::string(name) + " " + std::to_string(value);
  const std::string against = std::string(of) + " " + std::to_string(side);
  if (value < side) return values + " is below the " + against;
  // Camera buffers pad a little at most; this guards the tool's allocation.
  if (value > 2 * side) return values + " is more than twice the " + against;
  return "";
}

}  // namespace

GeometryCheck checkGeometry(const Geometry &g) {
  GeometryCheck check;
  const std::string size = std::to_string(g.width) + "x" + std::to_string(g.height);
  // Frames reach the library packed (stride = width) whatever their padding.
  const int64_t lumaBytes = static_cast<int64_t>(g.width) * g.height;
  for (const std::string &problem : {checkSide("width", g.width), checkSide("height", g.height),
                                     checkPadded("stride", g.stride, "width", g.width),
                                     checkPadded("scanline", g.scanline, "height", g.height)}) {
    if (!problem.empty()) {
      check.error = problem;
      return check;
    }
  }
  if (lumaBytes > VIDEOHDR_MAX_LUMA_BYTES) {
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
