// The fusion kernel's portable and NEON variants, byte for byte: the weight
// lookup, both blends and the whole kernel on random frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "checkasm.h"
#include "fusion/exposure_fusion.h"

namespace {

using videohdr::Kernels;

std::string sizeName(const char *what, int count) {
  return std::string(what) + " " + std::to_string(count);
}

TEST(FusionKernelDiff, WeightLookup) {
  std::mt19937 rng(11);
  for (int count : checkasm::widthsToTry(0, 5000, rng)) {
    const auto a = checkasm::randomBytes(count, rng, true);
    const auto b = checkasm::randomBytes(count, rng, true);
    const auto table = checkasm::randomBytes(256, rng);
    checkasm::expectVariantsMatch(
        {size_t(count)}, rng,
        [&](const Kernels &k, std::vector<uint8_t *> &out) {
          k.fusion.lookupWeights(a.data(), b.data(), table.data(), out[0], count);
        },
        sizeName("lookup", count));
  }
}

TEST(FusionKernelDiff, LumaBlend) {
  std::mt19937 rng(12);
  for (int count : checkasm::widthsToTry(0, 5000, rng)) {
    const auto bright = checkasm::randomBytes(count, rng, true);
    const auto dark = checkasm::randomBytes(count, rng, true);
    const auto weights = checkasm::randomBytes(count, rng, true);
    checkasm::expectVariantsMatch(
        {size_t(count)}, rng,
        [&](const Kernels &k, std::vector<uint8_t *> &out) {
          k.fusion.blendLuma(bright.data(), dark.data(), weights.data(), out[0], count);
        },
        sizeName("luma blend", count));
  }
}

TEST(FusionKernelDiff, ChromaRowBlend) {
  std::mt19937 rng(13);
  for (int count : checkasm::widthsToTry(0, 2000, rng)) {
    const auto bright = checkasm::randomBytes(count, rng, true);
    const auto dark = checkasm::randomBytes(count, rng, true);
    // Exactly the weights the row reads: eight per whole block and, for a
    // partial block, one per byte up to eight. A read beyond them would show
    // under the sanitizers.
    const int weightCount = count / 16 * 8 + std::min(count % 16, 8);
    const auto weights = checkasm::randomBytes(weightCount, rng, true);
    checkasm::expectVariantsMatch(
        {size_t(count)}, rng,
        [&](const Kernels &k, std::vector<uint8_t *> &out) {
          k.fusion.blendChromaRow(bright.data(), dark.data(), weights.data(), out[0], count);
        },
        sizeName("chroma row", count));
  }
}

// A frame geometry and the buffers of one whole-kernel run: the weight plane,
// the half-resolution block holding Q0 and Q1 back to back as the context
// carves them, and the caller's frame with its padding rows.
struct KernelCase {
  int stride, height, scanline;
  size_t planeBytes() const { return size_t(stride) * scanline; }
  size_t halfBlockBytes() const { return planeBytes() & ~size_t{3}; }
  size_t lumaBytes() const { return size_t(stride) * height; }
  size_t frameBytes() const { return planeBytes() + lumaBytes() / 2; }
  // A frame copy, read up to 15 bytes past its luma when its chroma is shorter.
  size_t copyBytes() const { return lumaBytes() + std::max<size_t>(lumaBytes() / 2, 15); }
  std::string name() const {
    return "stride " + std::to_string(stride) + " height " + std::to_string(height) + " scanline " +
           std::to_string(scanline);
  }
};

void expectKernelVariantsMatch(const KernelCase &c, std::mt19937 &rng) {
  const auto current = checkasm::randomBytes(c.copyBytes(), rng, true);
  const auto previous = checkasm::randomBytes(c.copyBytes(), rng, true);
  const auto table = checkasm::randomBytes(256, rng);
  checkasm::expectVariantsMatch(
      {c.planeBytes(), c.halfBlockBytes(), c.frameBytes()}, rng,
      [&](const Kernels &k, std::vector<uint8_t *> &out) {
        FusionContext ctx = {};
        ctx.height = c.height;
        ctx.stride = c.stride;
        ctx.scanline = c.scanline;
        ctx.toneCurves[1] = const_cast<uint8_t *>(table.data());
        ctx.weightPlanes[0] = out[0];
        ctx.halfWeightPlanes[0] = out[1];
        ctx.halfWeightPlanes[1] = out[1] + (c.planeBytes() >> 2);
        uint8_t *frame = out[2];
        const std::vector<uint8_t> padding(frame + c.lumaBytes(), frame + c.planeBytes());
        videohdr::exposureFusion(ctx, current.data(), previous.data(), frame, k);
        EXPECT_TRUE(std::equal(padding.begin(), padding.end(), frame + c.lumaBytes()))
            << c.name() << ": padding rows written";
      },
      c.name());
}

TEST(FusionKernelDiff, WholeKernelSmallFrames) {
  std::mt19937 rng(14);
  // Every stride up to 40 (odd, even, below one block, around the smallest
  // the horizontal smoothing admits at 28) and a spread of larger ones.
  const std::vector<int> strides = checkasm::widthsToTry(1, 200, rng);
  // One row (no chroma, no smoothing), two, odd, below the vertical
  // smoothing's 14, and enough for several smoothed rows.
  const int heights[] = {1, 2, 3, 5, 7, 12, 13, 14, 15, 16, 29, 40};
  for (int stride : strides) {
    for (int height : heights) {
      const int padding = static_cast<int>(rng() % 3);
      expectKernelVariantsMatch({stride, height, height + padding}, rng);
    }
  }
}

TEST(FusionKernelDiff, WholeKernelLargerFrames) {
  std::mt19937 rng(15);
  const KernelCase cases[] = {{320, 64, 64}, {320, 65, 72},  {336, 48, 50},   {344, 60, 60},
                              {351, 57, 61}, {1024, 33, 33}, {176, 144, 160}, {183, 101, 101}};
  for (const KernelCase &c : cases) expectKernelVariantsMatch(c, rng);
}

}  // namespace
