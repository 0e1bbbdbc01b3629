// The fusion kernel's portable instance against every other one, byte for
// byte: the row kernels on random rows, and the whole kernel (which also runs
// the fused row-pair kernels on whole-block frames) on random frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "checkasm.h"

namespace {

using videohdr::Kernels;

static_assert(checkasm::hasMembers<videohdr::FusionKernels>(5), "a fusion kernel without a case");

TEST(FusionKernelDiff, RowKernels) {
  std::mt19937 rng(11);
  // Every count up to 160: each remainder of the x86 steps (16 and 32
  // bytes) after one or more whole steps.
  for (int count : checkasm::widthsToTry(0, 5000, rng, 161)) {
    const auto a = checkasm::randomBytes(count, rng, true);
    const auto b = checkasm::randomBytes(count, rng, true);
    const auto weights = checkasm::randomBytes(count, rng, true);
    const auto table = checkasm::randomBytes(256, rng);
    // The chroma row reads exactly its weights: eight per whole block and,
    // for a partial block, one per byte up to eight (the sanitizer build
    // sees a read beyond them).
    const auto chromaWeights =
        checkasm::randomBytes(count / 16 * 8 + std::min(count % 16, 8), rng, true);
    checkasm::expectVariantsMatch(
        {size_t(count), size_t(count), size_t(count)}, rng,
        [&](const Kernels &k, std::vector<uint8_t *> &out) {
          k.fusion.lookupWeights(a.data(), b.data(), table.data(), out[0], count);
          k.fusion.blendLuma(a.data(), b.data(), weights.data(), out[1], count);
          k.fusion.blendChromaRow(a.data(), b.data(), chromaWeights.data(), out[2], count);
        },
        "rows of " + std::to_string(count));
  }
}

// A frame geometry and the buffers of one whole-kernel run: the weight plane,
// the half-resolution block holding Q0 and Q1 back to back as the context
// carves them, and the caller's frame with its padding rows.
struct KernelCase {
  int stride, height, scanline;
  size_t planeBytes() const { return size_t(stride) * scanline; }
  size_t lumaBytes() const { return size_t(stride) * height; }
  // A frame copy, read up to 15 bytes past its luma when its chroma is shorter.
  size_t copyBytes() const { return lumaBytes() + std::max<size_t>(lumaBytes() / 2, 15); }
};

void expectKernelVariantsMatch(const KernelCase &c, std::mt19937 &rng) {
  const auto current = checkasm::randomBytes(c.copyBytes(), rng, true);
  const auto previous = checkasm::randomBytes(c.copyBytes(), rng, true);
  const auto table = checkasm::randomBytes(256, rng);
  const std::string name = "stride " + std::to_string(c.stride) + " height " +
                           std::to_string(c.height) + " scanline " + std::to_string(c.scanline);
  checkasm::expectVariantsMatch(
      {c.planeBytes(), c.planeBytes() & ~size_t{3}, c.planeBytes() + c.lumaBytes() / 2}, rng,
      [&](const Kernels &k, std::vector<uint8_t *> &out) {
        FusionContext ctx = {};
        ctx.height = c.height;
        ctx.stride = c.stride;
        ctx.scanline = c.scanline;
        ctx.toneCurves[1] = const_cast<uint8_t *>(table.data());
        ctx.weightPlanes[0] = out[0];
        ctx.halfWeightPlanes[0] = out[1];
        ctx.halfWeightPlanes[1] = out[1] + (c.planeBytes() >> 2);
        const std::vector<uint8_t> padding(out[2] + c.lumaBytes(), out[2] + c.planeBytes());
        videohdr::exposureFusion(ctx, current.data(), previous.data(), out[2], k);
        EXPECT_TRUE(std::equal(padding.begin(), padding.end(), out[2] + c.lumaBytes()))
            << name << ": padding rows written";
      },
      name);
}

TEST(FusionKernelDiff, WholeKernel) {
  std::mt19937 rng(14);
  // Every stride up to 40 (odd, even, below one block, around the smallest
  // the horizontal smoothing admits at 28) and a spread of larger ones; one
  // row (no chroma, no smoothing), two, odd, below the vertical smoothing's
  // 14, and enough for several smoothed rows.
  for (int stride : checkasm::widthsToTry(1, 200, rng))
    for (int height : {1, 2, 3, 5, 7, 12, 13, 14, 15, 16, 29, 40})
      expectKernelVariantsMatch({stride, height, height + static_cast<int>(rng() % 3)}, rng);
  // Whole-block frames (the fused row pairs; half rows of every length
  // modulo 64) and larger odd ones.
  const KernelCase cases[] = {{32, 14, 14},   {96, 20, 21},   {256, 18, 18},  {320, 64, 64},
                              {352, 30, 30},  {1056, 16, 18}, {320, 65, 72},  {336, 48, 50},
                              {344, 60, 60},  {351, 57, 61},  {1024, 33, 33}, {176, 144, 160},
                              {183, 101, 101}};
  for (const KernelCase &c : cases) expectKernelVariantsMatch(c, rng);
}

}  // namespace
