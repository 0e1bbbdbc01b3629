#include "planes_bench.h"

#include <cstring>
#include <map>
#include <memory>
#include <tuple>
#include <vector>

#include "fixture.h"
#include "memory_floor.h"
#include "videohdr_planes.h"

namespace videohdr_bench {
namespace {

// Where a frame's planes lie in its buffer: luma rows of yStride bytes, then
// the chroma at chromaOffset (one NV12/NV21 plane of pairs, or U and then V
// at a pixel stride of 1).
struct Layout {
  int32_t yStride, uvStride, pixelStride;
  size_t chromaOffset, vOffset;  // vOffset: V's plane from the chroma (I420), 0 when interleaved
  bool vFirst;

  // Bytes of one frame, with the slack of the scene's frames (whose pool the
  // in-place case then shares with the whole-call benchmark).
  size_t bytes(int32_t height) const {
    const size_t chroma = static_cast<size_t>(uvStride) * (height / 2) * (vOffset ? 2 : 1);
    return chromaOffset + chroma + Geometry::kFrameSlack;
  }
  uint8_t *u(uint8_t *frame) const { return frame + chromaOffset + (vOffset ? 0 : vFirst ? 1 : 0); }
  uint8_t *v(uint8_t *frame) const {
    return frame + chromaOffset + (vOffset ? vOffset : vFirst ? 0 : 1);
  }
};

// The scene's frames: NV21, rows of `width`, chroma after scanline rows.
Layout sceneLayout(const Geometry &g) { return {g.width, g.width, 2, g.chromaOffset(), 0, true}; }

// A camera's padded rows: strides rounded up to 256 bytes, still NV21.
Layout paddedLayout(const Geometry &g) {
  const int32_t stride = (g.width + 255) & ~255;
  return {stride, stride, 2, static_cast<size_t>(stride) * g.scanline, 0, true};
}

// An encoder's NV12 input: strides of 64, a slice height of 16 rows.
Layout encoderNv12(const Geometry &g) {
  const int32_t stride = (g.width + 63) & ~63;
  return {stride, stride, 2, static_cast<size_t>(stride) * ((g.height + 15) & ~15), 0, false};
}

Layout encoderI420(const Geometry &g) {
  const size_t luma = static_cast<size_t>(g.width) * g.height;
  return {g.width, g.width / 2, 1, luma, luma / 4, false};
}

struct PlanesCase {
  const char *name;
  Layout (*input)(const Geometry &);
  Layout (*output)(const Geometry &);  // null: in place
};

const PlanesCase kCases[] = {
    {"planes_in_place", sceneLayout, nullptr},
    {"planes_padded_in_place", paddedLayout, nullptr},
    {"planes_to_nv21_same_layout", sceneLayout, sceneLayout},
    {"planes_to_encoder_nv12", sceneLayout, encoderNv12},
    {"planes_to_encoder_i420", sceneLayout, encoderI420},
    {"planes_padded_to_encoder_nv12", paddedLayout, encoderNv12},
};

// One case's state, made on first use and kept for the whole run: the scene,
// pools of input (and output) buffers larger than the last-level cache, and
// the camera-plane state.
class PlanesRun {
 public:
  PlanesRun(const PlanesCase &c, int32_t w, int32_t h)
      : fixture_(SceneKind::Handheld, w, h),
        in_(c.input(fixture_.geometry())),
        out_(c.output ? c.output(fixture_.geometry()) : in_),
        inPlace_(!c.output),
        inputs_(sharedPool(in_.bytes(h), 0)),
        outputs_(inPlace_ ? inputs_ : sharedPool(out_.bytes(h), 1)),
        scratch_(fixture_.geometry().frameBytes()) {
    if (videohdr_planes_create(w, h, &planes_) != VIDEOHDR_PLANES_OK) planes_ = nullptr;
  }
  ~PlanesRun() { videohdr_planes_destroy(planes_); }
  PlanesRun(const PlanesRun &) = delete;
  PlanesRun &operator=(const PlanesRun &) = delete;

  bool ready() const { return planes_ != nullptr; }
  size_t ahead() const { return inputs_.count() / 2; }

  // Renders the scene's next frame into input buffer i, in the input layout.
  void render(size_t i) {
    const Geometry &g = fixture_.geometry();
    uint8_t *dst = inputs_[i];
    fixture_.loadNextFrame(scratch_.data());
    for (int32_t r = 0; r < g.height; ++r)
      std::memcpy(dst + static_cast<size_t>(r) * in_.yStride,
                  &scratch_[static_cast<size_t>(r) * g.width], g.width);
    for (int32_t r = 0; r < g.height / 2; ++r)
      std::memcpy(dst + in_.chromaOffset + static_cast<size_t>(r) * in_.uvStride,
                  &scratch_[g.chromaOffset() + static_cast<size_t>(r) * g.width], g.width);
  }

  void process(size_t i) {
    const Geometry &g = fixture_.geometry();
    uint8_t *frame = inputs_[i];
    if (inPlace_) {
      videohdr_planes_process(planes_, frame, in_.yStride, in_.u(frame), in_.v(frame), in_.uvStride,
                              in_.pixelStride, g.width, g.height, nullptr);
      return;
    }
    uint8_t *out = outputs_[i];
    videohdr_planes_process_to(planes_, frame, in_.yStride, in_.u(frame), in_.v(frame),
                               in_.uvStride, in_.pixelStride, out, out_.yStride, out_.u(out),
                               out_.v(out), out_.uvStride, out_.pixelStride, g.width, g.height,
                               nullptr);
  }

 private:
  Fixture fixture_;
  Layout in_, out_;
  bool inPlace_;
  BufferPool &inputs_, &outputs_;
  std::vector<uint8_t> scratch_;
  VideoHdrPlanes *planes_ = nullptr;
};

PlanesRun &runFor(size_t index, int32_t w, int32_t h) {
  static std::map<std::tuple<size_t, int32_t, int32_t>, std::unique_ptr<PlanesRun>> runs;
  auto &run = runs[{index, w, h}];
  if (!run) run = std::make_unique<PlanesRun>(kCases[index], w, h);
  return *run;
}

}  // namespace

std::vector<const char *> planesCaseNames() {
  std::vector<const char *> names;
  for (const PlanesCase &c : kCases) names.push_back(c.name);
  return names;
}

// Frames that are in no cache, as for the whole call: each input is refilled
// (untimed) half a pool ahead of its use.
void planesCase(benchmark::State &state, int32_t width, int32_t height, size_t index) {
  PlanesRun &run = runFor(index, width, height);
  if (!run.ready()) {
    state.SkipWithError("videohdr_planes_create failed");
    return;
  }
  // Other benchmarks share the pools: the frames ahead are rendered anew.
  for (size_t i = 0; i < run.ahead(); ++i) run.render(i);
  size_t i = 0;
  for (auto _ : state) {
    state.PauseTiming();
    run.render(i + run.ahead());
    state.ResumeTiming();
    run.process(i);
    ++i;
  }
}

}  // namespace videohdr_bench
