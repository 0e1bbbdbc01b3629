#include "fixture.h"

#include "kernels.h"

namespace videohdr_bench {

Fixture::Fixture(SceneKind scene, int32_t width, int32_t height)
    : geometry_(cameraGeometry(width, height)),
      scene_(makeScene(scene, geometry_)),
      handle_(createVideoHdrHandle()) {
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

void Fixture::loadNextFrame(uint8_t *dst) { scene_->render(next_++, dst); }

void Fixture::process(uint8_t *frame) {
  Video_HDR_Process(handle_, frame, 0, 1, geometry_.width, geometry_.height, geometry_.stride,
                    geometry_.scanline);
}

void Fixture::processNextFrame() {
  loadNextFrame();
  process(frame_.data());
}

namespace {

using PlanePass = void (*)(const uint8_t *, uint8_t *, int32_t, int32_t, int32_t);

// A 7-tap pass over a half-resolution plane, between two of the fusion
// context's half planes that the kernel leaves unused.
void halfPlanePass(Fixture &f, PlanePass pass, int src, int dst) {
  pass(f.fusion()->halfWeightPlanes[src], f.fusion()->halfWeightPlanes[dst],
       f.geometry().stride / 2, f.geometry().height / 2, 3);
}

}  // namespace

const std::vector<KernelCase> &kernelCases() {
  static const std::vector<KernelCase> cases = {
      // The driver's two bulk copies of the caller's frame into a history buffer.
      {"FrameCopyIn",
       [](Fixture &f) {
         const Geometry &g = f.geometry();
         const auto copyBytes = videohdr::activeKernels().copy.copyBytes;
         copyBytes(f.spareFrame(), f.frame(), g.lumaBytes());
         copyBytes(f.spareFrame() + g.lumaBytes(), f.frame() + g.chromaOffset(), g.lumaBytes() / 2);
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
      {"xorTwoPyramid_New_level0",
       [](Fixture &f) { xorTwoPyramid_New(f.align(), 0, 0, 0, 0, f.align()->searchStep); }},
      {"shiftPyramid_levels3to0",
       [](Fixture &f) {
         for (int32_t l = f.align()->levels - 1; l >= 0; --l) shiftPyramid(f.align(), l);
       }},
      {"getScanData",
       [](Fixture &f) {
         getScanData(f.align(), f.previous(), f.current(), f.handle()->alignedBuf);
       }},
      {"ExposureFusionNeon",
       [](Fixture &f) {
         ExposureFusionNeon(f.handle(), f.current(), f.handle()->alignedBuf, f.frame());
       }},
      // The plane operations, on the fusion context's planes that the kernel
      // leaves unused: a half plane from the current luma, smoothed, doubled.
      {"downScale_2x_uint8_t_NEON",
       [](Fixture &f) {
         const int32_t W = f.geometry().stride;
         downScale_2x_uint8_t_NEON(f.current(), f.fusion()->halfWeightPlanes[2], W,
                                   f.geometry().height, W);
       }},
      {"downScale_2x_uint8_t",
       [](Fixture &f) {
         const int32_t W = f.geometry().stride;
         downScale_2x_uint8_t(f.current(), f.fusion()->halfWeightPlanes[2], W, f.geometry().height,
                              W);
       }},
      {"horizontalFilter7x7neon_Smooth",
       [](Fixture &f) { halfPlanePass(f, horizontalFilter7x7neon_Smooth, 2, 3); }},
      {"VerticalFilter7x7neon_Smooth",
       [](Fixture &f) { halfPlanePass(f, VerticalFilter7x7neon_Smooth, 3, 2); }},
      {"horizontalFilter7x7neon",
       [](Fixture &f) { halfPlanePass(f, horizontalFilter7x7neon, 2, 3); }},
      {"VerticalFilter7x7neon", [](Fixture &f) { halfPlanePass(f, VerticalFilter7x7neon, 3, 2); }},
      {"upscale_2x_uint8_t_NEON",
       [](Fixture &f) {
         const int32_t w = f.geometry().stride / 2;
         upscale_2x_uint8_t_NEON(f.fusion()->halfWeightPlanes[2], f.fusion()->weightPlanes[2], w,
                                 f.geometry().height / 2, w);
       }},
      {"upscale_2x_uint8_t",
       [](Fixture &f) {
         const int32_t w = f.geometry().stride / 2;
         upscale_2x_uint8_t(f.fusion()->halfWeightPlanes[2], f.fusion()->weightPlanes[2], w,
                            f.geometry().height / 2, w);
       }},
      {"extract_uvBuffer",
       [](Fixture &f) {
         const Geometry &g = f.geometry();
         extract_uvBuffer(f.current() + g.lumaBytes(), f.fusion()->weightPlanes[2],
                          f.fusion()->weightPlanes[3], g.stride, g.height / 2, g.stride);
       }},
      {"combine_uvBuffer",
       [](Fixture &f) {
         const Geometry &g = f.geometry();
         combine_uvBuffer(f.fusion()->weightPlanes[2], f.fusion()->weightPlanes[3], f.spareFrame(),
                          g.stride / 2, g.height / 2);
       }},
      // The alignment operations beside the per-frame path.
      {"Sobel", [](Fixture &f) { Sobel(f.current(), f.geometry().width, f.geometry().height); }},
      {"Sobel_Neon",
       [](Fixture &f) { Sobel_Neon(f.current(), f.geometry().width, f.geometry().height); }},
      {"HistMatching",
       [](Fixture &f) {
         HistMatching(f.align(), f.align()->curImage[0], f.spareFrame(), f.geometry().width,
                      f.geometry().height);
       }},
      {"xorTwoResult", [](Fixture &f) { xorTwoResult(f.align(), 0, 0, 0, f.align()->searchStep); }},
      {"Back",
       [](Fixture &f) {
         Back(f.align(), f.handle()->frameCount, f.spareFrame(), f.current(), f.previous());
       }},
  };
  return cases;
}

}  // namespace videohdr_bench
