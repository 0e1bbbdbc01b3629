#include "scene.h"

#include <algorithm>
#include <cstring>

namespace videohdr_bench {
namespace {

uint32_t mix(uint32_t a, uint32_t b) {
  uint32_t h = a * 0x9E3779B1u ^ (b + 0x7F4A7C15u) * 0x85EBCA77u;
  h ^= h >> 15;
  h *= 0x2C1B3C6Du;
  h ^= h >> 13;
  return h;
}

uint32_t triangle(uint32_t v, uint32_t period) {
  uint32_t m = v % period;
  return m < period / 2 ? m : period - m;
}

// Scene radiance at (x, y), 0..4095: 64-pixel tiles of random brightness
// (edges for the bitmap search and areas that clip in the bright exposure),
// a diagonal ramp, and fine per-pixel texture.
uint32_t radiance(uint32_t x, uint32_t y) {
  uint32_t tile = mix(x >> 6, y >> 6);
  uint32_t level = (tile & 15) * 230;
  uint32_t ramp = triangle(x + 2 * y, 1024);
  uint32_t grain = mix(x, y) & 127;
  return std::min<uint32_t>(4095, 200 + level + ramp + grain);
}

// Chroma of the 2x2 block at chroma position (cx, cy): smooth colour per
// 128-pixel tile, the same in both exposures apart from a pull towards grey
// in the dark one.
uint8_t chroma(uint32_t cx, uint32_t cy, int which, bool dark) {
  int32_t c = static_cast<int32_t>((mix(cx >> 6, (cy >> 6) + 977u * which) & 63)) - 32;
  if (dark) c /= 2;
  return static_cast<uint8_t>(128 + c);
}

// Pan per frame, in pixels; even so that the chroma moves by whole pairs.
constexpr int32_t kPanX = 2;
constexpr int32_t kPanY = 2;
// Distinct frames, rendered up front; the sequence repeats after them (the
// view jumps back by three steps there).
constexpr int32_t kPanFrames = 4;

// The scene seen from view(index), one stop darker on odd indices.
void renderPanFrame(const Geometry &g, int32_t index, Offset view, uint8_t *frame) {
  const bool dark = (index & 1) != 0;
  const uint32_t ox = static_cast<uint32_t>(view.x), oy = static_cast<uint32_t>(view.y);
  std::memset(frame, 0, g.frameBytes());
  for (int32_t y = 0; y < g.height; ++y) {
    uint8_t *row = frame + static_cast<size_t>(y) * g.stride;
    for (int32_t x = 0; x < g.width; ++x) {
      uint32_t r = radiance(x + ox, y + oy);
      row[x] = static_cast<uint8_t>(dark ? r >> 4 : std::min<uint32_t>(255, r >> 3));
    }
  }
  uint8_t *uv = frame + g.chromaOffset();
  for (int32_t cy = 0; cy < g.height / 2; ++cy) {
    uint8_t *row = uv + static_cast<size_t>(cy) * g.stride;
    for (int32_t cx = 0; cx < g.width / 2; ++cx) {
      row[2 * cx] = chroma(cx + ox / 2, cy + oy / 2, 0, dark);
      row[2 * cx + 1] = chroma(cx + ox / 2, cy + oy / 2, 1, dark);
    }
  }
}

class PanScene : public Scene {
 public:
  explicit PanScene(const Geometry &g) : geometry_(g) {
    for (int32_t i = 0; i < kPanFrames; ++i) {
      frames_.emplace_back(g.frameBytes());
      renderPanFrame(g, i, view(i), frames_.back().data());
    }
  }

  void render(int32_t index, uint8_t *frame) const override {
    std::memcpy(frame, frames_[index % kPanFrames].data(), geometry_.frameBytes());
  }

  Offset view(int32_t index) const override {
    return {kPanX * (index % kPanFrames), kPanY * (index % kPanFrames)};
  }

 private:
  Geometry geometry_;
  std::vector<std::vector<uint8_t>> frames_;
};

}  // namespace

Geometry cameraGeometry(int32_t width, int32_t height) {
  return Geometry{width, height, width, (height + 15) & ~15};
}

Offset motion(const Scene &scene, int32_t index) {
  const Offset now = scene.view(index), before = scene.view(index - 1);
  return {now.x - before.x, now.y - before.y};
}

const char *sceneName(SceneKind kind) { return kind == SceneKind::Pan ? "pan" : "handheld"; }

bool parseSceneName(const char *name, SceneKind *kind) {
  for (SceneKind k : {SceneKind::Pan, SceneKind::Handheld}) {
    if (std::strcmp(name, sceneName(k)) == 0) {
      *kind = k;
      return true;
    }
  }
  return false;
}

std::unique_ptr<Scene> makeScene(SceneKind kind, const Geometry &g) {
  return kind == SceneKind::Pan ? makePanScene(g) : makeHandheldScene(g);
}

std::unique_ptr<Scene> makePanScene(const Geometry &g) { return std::make_unique<PanScene>(g); }

}  // namespace videohdr_bench
