// A synthetic camera sequence for measurements: a textured scene panned a
// little every frame and shot with alternating exposures, as NV21 frames laid
// out the way a camera hands them over (luma rows, padding rows up to
// `scanline`, then the interleaved chroma plane).
#ifndef VIDEOHDR_BENCH_SCENE_H
#define VIDEOHDR_BENCH_SCENE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace videohdr_bench {

struct Geometry {
  int32_t width;
  int32_t height;
  int32_t stride;
  int32_t scanline;  // rows from the frame start to the chroma plane
  size_t lumaBytes() const { return static_cast<size_t>(stride) * height; }
  size_t chromaOffset() const { return static_cast<size_t>(stride) * scanline; }
  // Bytes of one caller frame, with slack for kernels that read a block past
  // the chroma plane.
  size_t frameBytes() const { return chromaOffset() + lumaBytes() / 2 + kFrameSlack; }
  static constexpr size_t kFrameSlack = 64;
};

// stride = width, scanline = height rounded up to 16 rows (as camera HALs do).
Geometry cameraGeometry(int32_t width, int32_t height);

// Pan per frame, in pixels; even so that the chroma moves by whole pairs.
constexpr int32_t kPanX = 2;
constexpr int32_t kPanY = 2;

// Frame `index` of the sequence: the scene seen from (kPanX, kPanY) * index,
// bright exposure on even indices and a dark one (one stop lower) on
// odd ones.
void renderFrame(const Geometry &g, int32_t index, uint8_t *frame);
std::vector<uint8_t> renderFrame(const Geometry &g, int32_t index);

}  // namespace videohdr_bench

#endif  // VIDEOHDR_BENCH_SCENE_H
