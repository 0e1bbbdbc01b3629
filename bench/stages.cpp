#include "stages.h"

#include <cstring>

#include "alignment_op/align_internal.h"
#include "alignment_op/bitmap_ops.h"
#include "fusion/block_spill.h"
#include "fusion/exposure_fusion.h"
#include "kernels.h"

namespace videohdr_bench {
namespace {

// The history buffer the next call copies its frame into (current) or reads
// the previous frame from: the counter's parity picks them.
uint8_t *historyBuffer(const VideoHdrHandle &h, bool current) {
  const bool odd = (h.frameCount & 1) != 0;
  return odd == current ? h.frameBuf1 : h.frameBuf0;
}

}  // namespace

// One frame pair as the driver sets it up, and what one stage hands the next.
struct StagePass {
  explicit StagePass(Fixture &f)
      : ctx(f.align()),
        fusion(*f.fusion()),
        g(videohdr::geometryOf(fusion)),
        frame(f.frame()),
        output(f.spareFrame()),
        cur(historyBuffer(*f.handle(), true)),
        prev(historyBuffer(*f.handle(), false)),
        aligned(f.handle()->alignedBuf) {}

  AlignContext *ctx;
  const FusionContext &fusion;
  const videohdr::FusionGeometry g;
  const uint8_t *frame;
  uint8_t *output;
  uint8_t *cur, *prev, *aligned;
  uint32_t sumPrev = 0, sumCur = 0;
  videohdr::ExposurePair pair = {nullptr, nullptr};
};

namespace {

// The instance the library runs on this processor.
const videohdr::Kernels &kKernels = videohdr::activeKernels();

// What the fusion's smoothing passes are called with.
constexpr int32_t kSmoothBorder = 3;
constexpr int kWeightCurve = 1;

void copyFrameIn(StagePass &p) {
  kKernels.copy.copyBytes(p.cur, p.frame, p.g.lumaBytes);
  kKernels.copy.copyBytes(p.cur + p.g.lumaBytes, p.frame + p.g.chromaOffset, p.g.chromaBytes);
}

void copyGreyImagesAndSum(StagePass &p) {
  videohdr::carveWorkspace(p.ctx);
  const size_t pixels = static_cast<size_t>(p.ctx->width) * p.ctx->height;
  p.sumPrev = kKernels.bitmap.copyLumaAndSum(p.ctx->prevImage[0], p.prev, pixels);
  p.sumCur = kKernels.bitmap.copyLumaAndSum(p.ctx->curImage[0], p.cur, pixels);
}

void thresholdBitmaps(StagePass &p) {
  videohdr::threshBitmapFromSums(p.ctx, p.ctx->maxThreshold, p.ctx->minThreshold,
                                 static_cast<int32_t>(p.sumPrev), static_cast<int32_t>(p.sumCur));
}

void buildPyramid(StagePass &p) {
  for (int32_t l = 1; l < p.ctx->levels; ++l) buildGaussianPyramid(p.ctx, l);
}

template <int32_t Level>
void searchLevel(StagePass &p) {
  shiftPyramid(p.ctx, Level);
}

void writeAlignedFrame(StagePass &p) { getScanData(p.ctx, p.prev, p.cur, p.aligned); }

void chooseBrightDark(StagePass &p) {
  p.pair = videohdr::chooseBrightDark(p.cur, p.aligned, p.g.stride, p.g.height);
}

void lookupWeights(StagePass &p) {
  kKernels.fusion.lookupEvenSamples(p.pair.bright, p.pair.dark, p.g.stride,
                                    p.fusion.toneCurves[kWeightCurve], p.fusion.halfWeightPlanes[0],
                                    p.g.halfWidth, p.g.halfHeight);
}

void smoothRows(StagePass &p) {
  kKernels.plane.filterRows7(p.fusion.halfWeightPlanes[0], p.fusion.halfWeightPlanes[1],
                             p.g.halfWidth, p.g.halfHeight, kSmoothBorder,
                             videohdr::Filter7::Smooth);
}

void smoothColumns(StagePass &p) {
  kKernels.plane.filterColumns7(p.fusion.halfWeightPlanes[1], p.fusion.halfWeightPlanes[0],
                                p.g.halfWidth, p.g.halfHeight, kSmoothBorder,
                                videohdr::Filter7::Smooth);
}

void doubleAndBlend(StagePass &p) {
  const videohdr::FusionGeometry &g = p.g;
  const uint8_t *weights = p.fusion.halfWeightPlanes[0];
  for (int32_t r = 0; r < g.halfHeight; ++r) {
    const ptrdiff_t luma = static_cast<ptrdiff_t>(2 * r) * g.stride;
    const ptrdiff_t chroma = static_cast<ptrdiff_t>(r) * g.stride;
    kKernels.fusion.doubleAndBlendRows({p.pair.bright + luma, p.pair.bright + g.lumaBytes + chroma},
                                       {p.pair.dark + luma, p.pair.dark + g.lumaBytes + chroma},
                                       weights + r * g.halfWidth, p.fusion.weightPlanes[0] + luma,
                                       {p.output + luma, p.output + g.chromaOffset + chroma},
                                       g.stride);
  }
}

bool samePlanes(const Geometry &g, const uint8_t *a, const uint8_t *b) {
  return std::memcmp(a, b, g.lumaBytes()) == 0 &&
         std::memcmp(a + g.chromaOffset(), b + g.chromaOffset(), g.lumaBytes() / 2) == 0;
}

}  // namespace

const std::vector<Stage> &frameStages() {
  static const std::vector<Stage> stages = {
      {"copyFrameIn", copyFrameIn},
      {"InitPara_copyAndSum", copyGreyImagesAndSum},
      {"ThreshBitmap", thresholdBitmaps},
      {"buildGaussianPyramid", buildPyramid},
      {"shiftPyramid_level3", searchLevel<3>},
      {"shiftPyramid_level2", searchLevel<2>},
      {"shiftPyramid_level1", searchLevel<1>},
      {"shiftPyramid_level0", searchLevel<0>},
      {"getScanData", writeAlignedFrame},
      {"fusion_chooseBrightDark", chooseBrightDark},
      {"fusion_lookupEvenSamples", lookupWeights},
      {"fusion_filterRows7", smoothRows},
      {"fusion_filterColumns7", smoothColumns},
      {"fusion_doubleAndBlendRows", doubleAndBlend},
  };
  return stages;
}

Offset runStages(Fixture &f, size_t count) {
  AlignContext *ctx = f.align();
  const Offset before = {ctx->lastDx, ctx->lastDy};
  StagePass pass(f);
  for (size_t i = 0; i < count; ++i) frameStages()[i].run(pass);
  const Offset applied = {ctx->lastDx, ctx->lastDy};
  ctx->lastDx = before.x;
  ctx->lastDy = before.y;
  return applied;
}

StageRunner::StageRunner(Fixture &f, size_t index)
    : fixture_(f),
      pass_(std::make_unique<StagePass>(f)),
      stage_(frameStages().at(index)),
      before_{f.align()->lastDx, f.align()->lastDy} {
  for (size_t i = 0; i < index; ++i) frameStages()[i].run(*pass_);
}

StageRunner::~StageRunner() {
  fixture_.align()->lastDx = before_.x;
  fixture_.align()->lastDy = before_.y;
}

void StageRunner::run() { stage_.run(*pass_); }

bool stagesReproduceCall(Fixture &f) {
  f.loadNextFrame();
  const Offset applied = runStages(f, frameStages().size());
  f.process(f.frame());
  const Offset called = {f.align()->lastDx, f.align()->lastDy};
  return applied == called && samePlanes(f.geometry(), f.frame(), f.spareFrame());
}

}  // namespace videohdr_bench
