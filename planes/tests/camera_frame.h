// Test frames: the pixels of a moving, alternately exposed scene, their
// tightly packed NV12/NV21 copy (the reference layout) and camera-style
// planes laid out in guarded buffers whose every byte that is not a sample
// holds a sentinel.
#ifndef VIDEOHDR_PLANES_TESTS_CAMERA_FRAME_H
#define VIDEOHDR_PLANES_TESTS_CAMERA_FRAME_H

#include <cstdint>
#include <vector>

namespace planes_test {

using Bytes = std::vector<uint8_t>;

struct Pixels {
  int32_t width = 0, height = 0;
  Bytes y, u, v;  // u and v: (width / 2) x (height / 2)
};

// Frame n of a textured scene panning 2 pixels a frame and shaking 2 rows up
// and down, bright on even n and a stop darker on odd n.
Pixels scene(int32_t width, int32_t height, int32_t n);

// stride = width, chroma right after the luma, V first when vFirst.
Bytes packFrame(const Pixels &p, bool vFirst);
Pixels unpackFrame(const Bytes &packed, int32_t width, int32_t height, bool vFirst);

enum class Chroma { kNv21, kNv12, kPlanar };

struct Layout {
  const char *name;
  int32_t width, height, yRowStride, uvRowStride, pixelStride;
  Chroma chroma;     // kNv21 / kNv12: u and v one byte apart in one buffer
  int32_t gapBytes;  // >= 0: one buffer, chroma this far past the luma rows; -1: own buffers
  bool inPlace;      // whether the entry point should need no copy
};

constexpr uint8_t kSentinel = 0xA5;

class CameraFrame {
 public:
  explicit CameraFrame(const Layout &l);
  void write(Pixels p);
  Pixels read() const;
  uint8_t *y = nullptr, *u = nullptr, *v = nullptr;
  std::vector<Bytes> buffers;  // guard bytes, planes, padding: compared whole

 private:
  // f(byte in the planes, pixel) for every sample.
  template <typename F>
  void eachSample(Pixels &p, F f) const;
  Layout l_;
};

}  // namespace planes_test

#endif  // VIDEOHDR_PLANES_TESTS_CAMERA_FRAME_H
