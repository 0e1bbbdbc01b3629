#include "fixture.h"

#include <cstring>

namespace videohdr_bench {

Fixture::Fixture(int32_t width, int32_t height)
    : geometry_(cameraGeometry(width, height)), handle_(createVideoHdrHandle()) {
  for (int32_t i = 0; i < kSequenceLength; ++i) sequence_.push_back(renderFrame(geometry_, i));
  frame_.resize(geometry_.frameBytes());
  spare_.resize(geometry_.frameBytes());
  initVideoHdr(handle_, geometry_.width, geometry_.height, geometry_.stride);
  for (int32_t i = 0; i <= kWarmFrames; ++i) processNextFrame();
}

Fixture::~Fixture() { destroyVideoHdrHandle(handle_); }

// The frame processed last had the counter one below the present one; an odd
// counter puts the current frame into history buffer 1.
uint8_t *Fixture::current() {
  return ((handle_->frameCount - 1) & 1) ? handle_->frameBuf1 : handle_->frameBuf0;
}

uint8_t *Fixture::previous() {
  return ((handle_->frameCount - 1) & 1) ? handle_->frameBuf0 : handle_->frameBuf1;
}

void Fixture::loadNextFrame(uint8_t *dst) {
  std::memcpy(dst, sequence_[next_].data(), geometry_.frameBytes());
  next_ = (next_ + 1) % kSequenceLength;
}

void Fixture::process(uint8_t *frame) {
  Video_HDR_Process(handle_, frame, 0, 1, geometry_.width, geometry_.height, geometry_.stride,
                    geometry_.scanline);
}

void Fixture::processNextFrame() {
  loadNextFrame();
  process(frame_.data());
}

const std::vector<KernelCase> &kernelCases() {
  static const std::vector<KernelCase> cases = {
      // The driver's two bulk copies of the caller's frame into a history buffer.
      {"FrameCopyIn",
       [](Fixture &f) {
         const Geometry &g = f.geometry();
         std::memcpy(f.spareFrame(), f.frame(), g.lumaBytes());
         std::memcpy(f.spareFrame() + g.lumaBytes(), f.frame() + g.chromaOffset(),
                     g.lumaBytes() / 2);
       }},
      {"AlignProcess",
       [](Fixture &f) {
         AlignProcess(f.handle(), f.current(), f.previous(), f.handle()->alignedBuf,
                      f.handle()->frameCount);
       }},
      {"InitPara", [](Fixture &f) { InitPara(f.align(), f.previous(), f.current()); }},
      {"ThreshBitmap", [](Fixture &f) { ThreshBitmap(f.align(), 240, 10); }},
      {"buildGaussianPyramid_levels1to3",
       [](Fixture &f) {
         for (int32_t l = 1; l < f.align()->levels; ++l) buildGaussianPyramid(f.align(), l);
       }},
      // Level 0 moved by the shift the search left at level 1.
      {"shiftData_level0", [](Fixture &f) { shiftData(f.align(), 0); }},
      {"getScanData",
       [](Fixture &f) {
         getScanData(f.align(), f.previous(), f.current(), f.handle()->alignedBuf);
       }},
  };
  return cases;
}

}  // namespace videohdr_bench
