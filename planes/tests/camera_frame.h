// Test frames: a moving, alternately exposed scene, tightly packed (the
// reference layout), and camera-style planes in guarded buffers whose every
// byte that is not a sample holds a sentinel.
#ifndef VIDEOHDR_PLANES_TESTS_CAMERA_FRAME_H
#define VIDEOHDR_PLANES_TESTS_CAMERA_FRAME_H

#include <cstdint>
#include <vector>

namespace planes_test {

using Bytes = std::vector<uint8_t>;

enum class Chroma { kNv21, kNv12, kPlanar };  // kNv21 / kNv12: u and v one byte apart

struct Layout {
  const char *name;
  int32_t width, height, yRowStride, uvRowStride, pixelStride;
  Chroma chroma;
  int32_t gapBytes;  // >= 0: one buffer, chroma this far past the luma rows; -1: own buffers
  bool inPlace;      // whether the entry point should need no copy
};

// Frame n of a textured scene panning 2 pixels a frame and shaking 2 rows up
// and down, bright on even n and a stop darker on odd n; stride = width, the
// chroma right after the luma, V first for NV21 layouts (else U first).
Bytes packedScene(const Layout &l, int32_t n);

struct CameraFrame {
  explicit CameraFrame(const Layout &l);
  void write(const Bytes &packed);  // the pixels of a packedScene-layout frame
  Layout l;
  uint8_t *y, *u, *v;
  std::vector<Bytes> buffers;  // guard bytes, planes, padding: compared whole
};

}  // namespace planes_test

#endif  // VIDEOHDR_PLANES_TESTS_CAMERA_FRAME_H
