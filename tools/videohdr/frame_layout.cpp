#include "frame_layout.h"

#include <cstring>

#include "tool_error.h"

namespace vhtool {
namespace {

constexpr struct {
  PixelFormat format;
  const char *name;
} kFormatNames[] = {
    {PixelFormat::kNv12, "nv12"}, {PixelFormat::kNv21, "nv21"}, {PixelFormat::kI420, "i420"}};

void copyRows(const uint8_t *source, int32_t sourceStride, uint8_t *target, int32_t targetStride,
              int32_t width, int32_t rows) {
  for (int32_t r = 0; r < rows; ++r) {
    std::memcpy(target + static_cast<size_t>(r) * targetStride,
                source + static_cast<size_t>(r) * sourceStride, static_cast<size_t>(width));
  }
}

}  // namespace

PixelFormat formatNamed(const std::string &name) {
  for (const auto &entry : kFormatNames) {
    if (name == entry.name) return entry.format;
  }
  throw ToolError("unknown pixel format '" + quoted(name) + "' (expected nv12, nv21 or i420)");
}

bool FrameLayout::operator==(const FrameLayout &other) const {
  const Geometry &a = geometry, &b = other.geometry;
  return format == other.format && a.width == b.width && a.height == b.height &&
         a.stride == b.stride && a.scanline == b.scanline;
}

FrameLayout packedLayout(PixelFormat format, int32_t width, int32_t height) {
  return {format, {width, height, width, height}};
}

Planes planesOf(const FrameLayout &layout, uint8_t *frame) {
  const Geometry &g = layout.geometry;
  uint8_t *chroma = frame + g.chromaOffset();
  switch (layout.format) {
    case PixelFormat::kNv12:
      return {frame, chroma, chroma + 1, g.stride, g.stride, 2};
    case PixelFormat::kNv21:
      return {frame, chroma + 1, chroma, g.stride, g.stride, 2};
    case PixelFormat::kI420:
      break;
  }
  const int32_t halfWidth = g.width / 2;
  uint8_t *v = chroma + static_cast<size_t>(halfWidth) * (g.height / 2);
  return {frame, chroma, v, g.stride, halfWidth, 1};
}

void copyPixels(const FrameLayout &from, const uint8_t *source, const FrameLayout &to,
                uint8_t *target) {
  const Planes in = planesOf(from, const_cast<uint8_t *>(source));
  const Planes out = planesOf(to, target);
  const Geometry &g = from.geometry;
  copyRows(in.y, in.yRowStride, out.y, out.yRowStride, g.width, g.height);
  for (int32_t r = 0; r < g.height / 2; ++r) {
    const size_t rowIn = static_cast<size_t>(r) * in.uvRowStride;
    const size_t rowOut = static_cast<size_t>(r) * out.uvRowStride;
    for (int32_t c = 0; c < g.width / 2; ++c) {
      out.u[rowOut + c * out.uvPixelStride] = in.u[rowIn + c * in.uvPixelStride];
      out.v[rowOut + c * out.uvPixelStride] = in.v[rowIn + c * in.uvPixelStride];
    }
  }
}

}  // namespace vhtool
