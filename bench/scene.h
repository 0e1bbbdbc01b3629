// Camera sequences for measurements: alternating exposures (bright on even
// frame indices, dark on odd ones) of a scene seen through a moving camera, as
// NV21 frames laid out the way a camera hands them over (luma rows, padding
// rows up to `scanline`, then the interleaved chroma plane).
//
// Two scenes:
//   pan       a synthetic textured scene panned (2, 2) pixels per frame, four
//             frames repeated (cheap to make, its figures comparable across
//             versions);
//   handheld  a real photograph cut out along a hand-shake path, exposed two
//             stops apart with the clipping a camera has, so that the motion
//             search, the shift filter and the overlays do their real work.
#ifndef VIDEOHDR_BENCH_SCENE_H
#define VIDEOHDR_BENCH_SCENE_H

#include <cstddef>
#include <cstdint>
#include <memory>
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

// A position in pixels, or the difference of two.
struct Offset {
  int32_t x;
  int32_t y;
};

inline bool operator==(Offset a, Offset b) { return a.x == b.x && a.y == b.y; }

class Scene {
 public:
  virtual ~Scene() = default;
  // Frame `index` (any index from 0) into a buffer of frameBytes().
  virtual void render(int32_t index, uint8_t *frame) const = 0;
  // Where the camera looked on frame `index`: the frame shows at (x, y) what
  // the scene has at view + (x, y).
  virtual Offset view(int32_t index) const = 0;
};

// The camera's move from frame index - 1 to frame `index`, which is the shift
// the alignment should find on frame `index`: the previous frame shows at
// (x + dx, y + dy) what the current one shows at (x, y).
Offset motion(const Scene &scene, int32_t index);

enum class SceneKind { Pan, Handheld };

const char *sceneName(SceneKind kind);
// False for a name that is no scene.
bool parseSceneName(const char *name, SceneKind *kind);

std::unique_ptr<Scene> makeScene(SceneKind kind, const Geometry &g);
std::unique_ptr<Scene> makePanScene(const Geometry &g);
// Fails (message, exit) when the photograph cannot be read or is smaller than
// the frame plus the path's reach.
std::unique_ptr<Scene> makeHandheldScene(const Geometry &g);

}  // namespace videohdr_bench

#endif  // VIDEOHDR_BENCH_SCENE_H
