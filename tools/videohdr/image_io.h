// Photographs in and contact sheets out: JPEG decoding with libjpeg-turbo and
// PNG encoding with libpng.
#ifndef VIDEOHDR_TOOL_IMAGE_IO_H
#define VIDEOHDR_TOOL_IMAGE_IO_H

#include <cstdint>
#include <string>
#include <vector>

namespace vhtool {

// 32-bit pixels in libyuv's ARGB order (B, G, R, A in memory), rows packed.
struct ArgbImage {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> pixels;
  int32_t stride() const { return width * 4; }
};

// Throws ToolError when the file cannot be read or is not a JPEG.
ArgbImage readJpeg(const std::string &path);

// `rgb` holds R, G, B bytes per pixel, rows packed. Throws ToolError.
void writePng(const std::string &path, const uint8_t *rgb, int32_t width, int32_t height);

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_IMAGE_IO_H
