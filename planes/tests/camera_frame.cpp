#include "camera_frame.h"

#include <cstddef>
#include <cstring>

namespace planes_test {
namespace {
constexpr size_t kGuard = 32;
constexpr uint8_t kSentinel = 0xA5;
}  // namespace

Bytes packedScene(const Layout &l, int32_t n) {
  const int32_t w = l.width, h = l.height;
  Bytes f(static_cast<size_t>(w) * h * 3 / 2);
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      const uint32_t sx = x + 2 * n, sy = y + 2 * (n % 2);
      const uint32_t v = ((sx >> 4) * 73u + (sy >> 4) * 151u) % 200u + ((sx * 7u + sy * 13u) & 31u);
      f[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(n % 2 ? v / 2 : v);
    }
  }
  for (size_t i = static_cast<size_t>(w) * h; i < f.size(); ++i)
    f[i] = static_cast<uint8_t>(i % 2 ? 200 - i * 5 % 150 - n : i * 7 + n * 3);
  return f;
}

CameraFrame::CameraFrame(const Layout &layout) : l(layout) {
  const int32_t w = l.width, h = l.height;
  const size_t lumaBytes = static_cast<size_t>(l.yRowStride) * (h - 1) + w;
  const size_t chromaBytes = static_cast<size_t>(l.uvRowStride) * (h / 2 - 1) +
                             static_cast<size_t>(l.pixelStride) * (w / 2 - 1) + 1;
  // An interleaved pair of planes spans one byte more than either plane.
  const size_t pairBytes = chromaBytes + (l.chroma == Chroma::kPlanar ? 0 : 1);
  auto guarded = [this](size_t bytes) {
    buffers.push_back(Bytes(bytes + 2 * kGuard, kSentinel));
    return buffers.back().data() + kGuard;
  };
  uint8_t *chroma;
  if (l.gapBytes >= 0) {
    const size_t chromaOffset = static_cast<size_t>(l.yRowStride) * h + l.gapBytes;
    y = guarded(chromaOffset + pairBytes);
    chroma = y + chromaOffset;
  } else {
    y = guarded(lumaBytes);
    chroma = guarded(pairBytes);
  }
  u = chroma + (l.chroma == Chroma::kNv21 ? 1 : 0);
  v = l.chroma == Chroma::kPlanar ? guarded(chromaBytes) : chroma + (l.chroma == Chroma::kNv12);
}

void CameraFrame::write(const Bytes &packed) {
  const int32_t w = l.width, h = l.height;
  for (int32_t r = 0; r < h; ++r)
    std::memcpy(y + static_cast<size_t>(r) * l.yRowStride, &packed[static_cast<size_t>(r) * w], w);
  uint8_t *first = l.chroma == Chroma::kNv21 ? v : u, *second = first == u ? v : u;
  const uint8_t *pairs = &packed[static_cast<size_t>(w) * h];
  for (int32_t r = 0; r < h / 2; ++r) {
    for (int32_t c = 0; c < w / 2; ++c) {
      const size_t at =
          static_cast<size_t>(r) * l.uvRowStride + static_cast<size_t>(c) * l.pixelStride;
      first[at] = pairs[static_cast<size_t>(r) * w + 2 * c];
      second[at] = pairs[static_cast<size_t>(r) * w + 2 * c + 1];
    }
  }
}

}  // namespace planes_test
