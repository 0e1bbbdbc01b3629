// A handle driven through the first frames of a scene's sequence, so that
// every context, workspace and plane holds what a running camera leaves there,
// and the table of kernels measured on it. The Google Benchmark binary and the
// instruction-count runner share both, so each kernel is listed once.
#ifndef VIDEOHDR_BENCH_FIXTURE_H
#define VIDEOHDR_BENCH_FIXTURE_H

#include <cstdint>
#include <memory>
#include <vector>

#include "scene.h"
#include "videohdr.h"

namespace videohdr_bench {

class Fixture {
 public:
  // Primes a handle with frame 0 and processes frames 1 to kWarmFrames.
  Fixture(SceneKind scene, int32_t width, int32_t height);
  ~Fixture();
  Fixture(const Fixture &) = delete;
  Fixture &operator=(const Fixture &) = delete;

  static constexpr int32_t kWarmFrames = 2;

  const Geometry &geometry() const { return geometry_; }
  const Scene &scene() const { return *scene_; }
  // The index of the frame the next loadNextFrame renders.
  int32_t nextIndex() const { return next_; }
  VideoHdrHandle *handle() { return handle_; }
  AlignContext *align() { return handle_->alignContext; }
  FusionContext *fusion() { return handle_->fusionContext; }
  // The caller's frame buffer, and a second one for kernels that need a source
  // and a destination of caller-frame size.
  uint8_t *frame() { return frame_.data(); }
  uint8_t *spareFrame() { return spare_.data(); }
  // The history buffers as the last processed frame used them.
  uint8_t *current();
  uint8_t *previous();

  // Copies the next frame of the sequence into the caller's frame buffer, or
  // into `dst` (a buffer of geometry().frameBytes()).
  void loadNextFrame() { loadNextFrame(frame_.data()); }
  void loadNextFrame(uint8_t *dst);
  // The per-frame call on a caller frame (the fixture's by default).
  void process(uint8_t *frame);
  // loadNextFrame, then the per-frame call on it.
  void processNextFrame();

 private:
  Geometry geometry_;
  std::unique_ptr<Scene> scene_;
  VideoHdrHandle *handle_;
  std::vector<uint8_t> frame_;
  std::vector<uint8_t> spare_;
  int32_t next_ = 0;
};

// One measured operation: `run` calls it once on the fixture's state.
struct KernelCase {
  const char *name;
  void (*run)(Fixture &);
};

// Every exported kernel on the per-frame path and beside it, in pipeline order.
const std::vector<KernelCase> &kernelCases();

}  // namespace videohdr_bench

#endif  // VIDEOHDR_BENCH_FIXTURE_H
