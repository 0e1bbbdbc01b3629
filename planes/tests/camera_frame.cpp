#include "camera_frame.h"

#include <cstddef>

namespace planes_test {
namespace {

constexpr size_t kGuard = 32;

size_t index(int32_t row, int32_t rowStride, int32_t column, int32_t pixelStride) {
  return static_cast<size_t>(row) * rowStride + static_cast<size_t>(column) * pixelStride;
}

}  // namespace

Pixels scene(int32_t width, int32_t height, int32_t n) {
  Pixels p;
  p.width = width;
  p.height = height;
  p.y.resize(static_cast<size_t>(width) * height);
  p.u.resize(p.y.size() / 4);
  p.v.resize(p.y.size() / 4);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const uint32_t sx = x + 2 * n, sy = y + 2 * (n % 2);
      const uint32_t v = ((sx >> 4) * 73u + (sy >> 4) * 151u) % 200u + ((sx * 7u + sy * 13u) & 31u);
      p.y[index(y, width, x, 1)] = static_cast<uint8_t>(n % 2 ? v / 2 : v);
    }
  }
  for (size_t i = 0; i < p.u.size(); ++i) {
    p.u[i] = static_cast<uint8_t>(i * 7 + n * 3);
    p.v[i] = static_cast<uint8_t>(200 - i * 5 % 150 - n);
  }
  return p;
}

Bytes packFrame(const Pixels &p, bool vFirst) {
  Bytes f(p.y);
  for (size_t i = 0; i < p.u.size(); ++i) {
    f.push_back(vFirst ? p.v[i] : p.u[i]);
    f.push_back(vFirst ? p.u[i] : p.v[i]);
  }
  return f;
}

Pixels unpackFrame(const Bytes &packed, int32_t width, int32_t height, bool vFirst) {
  Pixels p;
  p.width = width;
  p.height = height;
  const size_t luma = static_cast<size_t>(width) * height;
  p.y.assign(packed.begin(), packed.begin() + static_cast<ptrdiff_t>(luma));
  for (size_t i = luma; i < luma * 3 / 2; i += 2) {
    p.u.push_back(packed[vFirst ? i + 1 : i]);
    p.v.push_back(packed[vFirst ? i : i + 1]);
  }
  return p;
}

CameraFrame::CameraFrame(const Layout &l) : l_(l) {
  const int32_t w = l.width, h = l.height;
  const size_t lumaBytes = index(h - 1, l.yRowStride, w, 1);
  const size_t chromaBytes = index(h / 2 - 1, l.uvRowStride, w / 2 - 1, l.pixelStride) + 1;
  const bool interleaved = l.chroma != Chroma::kPlanar;
  // An interleaved pair of planes spans one byte more than either plane.
  const size_t pairBytes = chromaBytes + (interleaved ? 1 : 0);
  auto guarded = [](size_t bytes) { return Bytes(bytes + 2 * kGuard, kSentinel); };
  uint8_t *chroma;
  if (l.gapBytes >= 0) {
    const size_t chromaOffset = static_cast<size_t>(l.yRowStride) * h + l.gapBytes;
    buffers.push_back(guarded(chromaOffset + pairBytes));
    y = buffers[0].data() + kGuard;
    chroma = y + chromaOffset;
  } else {
    buffers.push_back(guarded(lumaBytes));
    buffers.push_back(guarded(pairBytes));
    y = buffers[0].data() + kGuard;
    chroma = buffers[1].data() + kGuard;
  }
  u = chroma + (l.chroma == Chroma::kNv21 ? 1 : 0);
  v = chroma + (l.chroma == Chroma::kNv12 ? 1 : 0);
  if (!interleaved) {
    buffers.push_back(guarded(chromaBytes));
    v = buffers.back().data() + kGuard;
  }
}

template <typename F>
void CameraFrame::eachSample(Pixels &p, F f) const {
  const int32_t w = l_.width, h = l_.height;
  for (int32_t r = 0; r < h; ++r)
    for (int32_t c = 0; c < w; ++c) f(y[index(r, l_.yRowStride, c, 1)], p.y[index(r, w, c, 1)]);
  for (int32_t r = 0; r < h / 2; ++r) {
    for (int32_t c = 0; c < w / 2; ++c) {
      const size_t at = index(r, l_.uvRowStride, c, l_.pixelStride);
      f(u[at], p.u[index(r, w / 2, c, 1)]);
      f(v[at], p.v[index(r, w / 2, c, 1)]);
    }
  }
}

void CameraFrame::write(Pixels p) {
  eachSample(p, [](uint8_t &sample, uint8_t &pixel) { sample = pixel; });
}

Pixels CameraFrame::read() const {
  Pixels p = scene(l_.width, l_.height, 0);  // sized; every sample is overwritten
  eachSample(p, [](uint8_t &sample, uint8_t &pixel) { pixel = sample; });
  return p;
}

}  // namespace planes_test
