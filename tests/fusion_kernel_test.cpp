// ExposureFusionNeon against values worked out by hand or from the blend's
// definition, on a handle whose fusion context holds the real tone curves.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "videohdr.h"

namespace {

constexpr uint8_t kSentinel = 0x5A;
constexpr size_t kTailBytes = 32;
constexpr size_t kCopySlack = 16;

uint8_t scaled(uint8_t v) { return static_cast<uint8_t>((255 * v) >> 8); }

// A handle with nothing but a fusion context of the given geometry.
class FusionHandle {
 public:
  FusionHandle(int stride, int height, int scanline) : handle_(createVideoHdrHandle()) {
    handle_->width = stride;
    handle_->height = height;
    handle_->stride = stride;
    handle_->scanline = scanline;
    AllocFusionHandleParams(handle_);
  }
  ~FusionHandle() { destroyVideoHdrHandle(handle_); }
  VideoHdrHandle *get() { return handle_; }
  FusionContext &context() { return *handle_->fusionContext; }

 private:
  VideoHdrHandle *handle_;
};

// The caller's frame: luma, padding rows, chroma, then a tail; all sentinel.
struct CallerFrame {
  CallerFrame(int stride, int height, int scanline)
      : lumaBytes(size_t(stride) * height),
        chromaOffset(size_t(stride) * scanline),
        bytes(chromaOffset + lumaBytes / 2 + kTailBytes, kSentinel) {}
  uint8_t *data() { return bytes.data(); }
  uint8_t luma(size_t i) const { return bytes[i]; }
  uint8_t chroma(size_t i) const { return bytes[chromaOffset + i]; }
  bool paddingIntact() const { return untouched(lumaBytes, chromaOffset); }
  bool tailIntact() const { return untouched(chromaOffset + lumaBytes / 2, bytes.size()); }
  bool untouched(size_t from, size_t to) const {
    return std::all_of(bytes.begin() + from, bytes.begin() + to,
                       [](uint8_t b) { return b == kSentinel; });
  }
  size_t lumaBytes, chromaOffset;
  std::vector<uint8_t> bytes;
};

// A frame copy as the handle keeps it (luma, chroma right behind), random
// bytes in [lo, hi], with slack for the reads just past a small frame's luma.
std::vector<uint8_t> randomCopy(int stride, int height, std::mt19937 &rng, int lo = 0,
                                int hi = 255) {
  std::vector<uint8_t> bytes(size_t(stride) * height * 3 / 2 + kCopySlack);
  std::uniform_int_distribution<int> pick(lo, hi);
  for (auto &b : bytes) b = static_cast<uint8_t>(pick(rng));
  return bytes;
}

// Chroma bytes the blend writes: all rows, plus, when the height is odd, the
// part of the plane's extra half row that the last row's 16-byte blocks reach.
size_t chromaBytesWritten(int stride, int height) {
  if (height < 2) return 0;
  const size_t blocksEnd = size_t(height / 2 - 1) * stride + (size_t(stride) + 15) / 16 * 16;
  return std::min(size_t(stride) * height / 2, blocksEnd);
}

TEST(ExposureFusion, IdenticalFramesComeOutScaledBy255Over256) {
  std::mt19937 rng(1);
  const int geometries[][3] = {{64, 36, 40}, {45, 7, 9}, {40, 15, 15},
                               {16, 2, 2},   {7, 3, 5},  {1, 4, 4}};
  for (const auto &g : geometries) {
    SCOPED_TRACE(testing::Message() << "stride " << g[0] << " height " << g[1]);
    FusionHandle handle(g[0], g[1], g[2]);
    const auto copy = randomCopy(g[0], g[1], rng);
    CallerFrame out(g[0], g[1], g[2]);
    EXPECT_EQ(ExposureFusionNeon(handle.get(), copy.data(), copy.data(), out.data()), 1);
    for (size_t i = 0; i < out.lumaBytes; ++i) ASSERT_EQ(out.luma(i), scaled(copy[i])) << i;
    const size_t written = chromaBytesWritten(g[0], g[1]);
    for (size_t i = 0; i < written; ++i)
      ASSERT_EQ(out.chroma(i), scaled(copy[out.lumaBytes + i])) << i;
    EXPECT_TRUE(out.untouched(out.chromaOffset + written, out.bytes.size()));
    EXPECT_TRUE(out.paddingIntact());
  }
}

// Sampled columns 0 and 4 sum to 192 in both frames; the other columns differ.
// Weights are table values at the darker pixel (255 at 0, 250 at 16, 240 at
// 32, 212 at 64, 178 at 92, 106 at 128, 45 at 192), unsmoothed with one row.
TEST(ExposureFusion, EqualSampledSumsMakeCurrentTheBrighter) {
  const std::vector<uint8_t> a = {128, 16, 32, 255, 64, 92, 0, 224};
  const std::vector<uint8_t> b = {128, 64, 32, 0, 64, 160, 1, 192};
  const uint8_t currentA[] = {127, 16, 31, 254, 63, 112, 0, 196};  // a bright, b dark
  const uint8_t currentB[] = {127, 62, 31, 0, 63, 138, 0, 217};    // b bright, a dark
  FusionHandle handle(8, 1, 1);
  auto copyOf = [](std::vector<uint8_t> luma) {
    luma.resize(luma.size() + 4 + kCopySlack, 77);
    return luma;
  };
  const auto copyA = copyOf(a), copyB = copyOf(b);
  CallerFrame outA(8, 1, 1), outB(8, 1, 1);
  ExposureFusionNeon(handle.get(), copyA.data(), copyB.data(), outA.data());
  ExposureFusionNeon(handle.get(), copyB.data(), copyA.data(), outB.data());
  for (size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(outA.luma(i), currentA[i]) << i;
    EXPECT_EQ(outB.luma(i), currentB[i]) << i;
  }
  EXPECT_TRUE(outA.untouched(8, outA.bytes.size())) << "one row has no chroma to blend";
  EXPECT_TRUE(outB.untouched(8, outB.bytes.size()));
}

// Two rows: the weight map is the even samples of row 0, each doubled over
// its column pair and both rows (too small for any smoothing). Only byte 0 is
// sampled, equal in both frames, so the current frame is the brighter, whatever
// the bytes right behind the sampled one. Weights: 212 at min(64, 64) and 250
// at min(128, 16); the frames are a (current) and b, luma then chroma.
TEST(ExposureFusion, TwoRowsTakeTheDoubledEvenSamples) {
  const struct {
    int W;
    std::vector<uint8_t> a, b, luma;
  } cases[] = {
      {4,
       {64, 0, 128, 0, 1, 20, 30, 40, 9, 9, 9, 9},
       {64, 50, 16, 60, 10, 2, 3, 4, 9, 9, 9, 9},
       {63, 8, 125, 1, 2, 16, 29, 39}},
      {2, {64, 0, 1, 20, 9, 9}, {64, 50, 10, 2, 9, 9}, {63, 8, 2, 16}},
  };
  for (auto c : cases) {
    c.a.resize(c.a.size() + kCopySlack);
    c.b.resize(c.b.size() + kCopySlack);
    FusionHandle handle(c.W, 2, 2);
    CallerFrame out(c.W, 2, 2);
    ExposureFusionNeon(handle.get(), c.a.data(), c.b.data(), out.data());
    for (size_t i = 0; i < c.luma.size(); ++i) EXPECT_EQ(out.luma(i), c.luma[i]) << c.W << " " << i;
  }
}

// A black dark frame makes every lookup 255. The vertical pass then writes 0
// into Q0 wherever it reads Q1 columns the horizontal pass never wrote (zero,
// as the context allocates them), and everywhere else the weight stays 255.
// Stride 64: a 32-column half-resolution map of 18 rows; the horizontal pass
// writes columns 3 to 26 (blocks at 3, 11, 19), the vertical one rows 3 to 14
// over columns 0 to 31. Stride 16: w = 8 is too narrow for the horizontal
// pass, so the vertical one, over 8 columns and rows 3 .. 3, reads only zeros.
TEST(ExposureFusion, BlackDarkFrameWeightsFollowTheWrittenColumns) {
  const struct {
    int W, H, scanline, firstRow, lastRow, lowColumns, highColumns;
  } cases[] = {{64, 36, 38, 3, 14, 3, 26}, {16, 14, 14, 3, 3, 8, 8}};
  std::mt19937 rng(4);
  for (const auto &c : cases) {
    const int W = c.W, H = c.H;
    FusionHandle handle(W, H, c.scanline);
    const auto bright = randomCopy(W, H, rng, 1, 255);
    auto dark = randomCopy(W, H, rng);
    std::fill(dark.begin(), dark.begin() + W * H, 0);
    auto weight = [&](int r, int col) {
      const bool unwritten = col < c.lowColumns || col > c.highColumns;
      return r >= c.firstRow && r <= c.lastRow && unwritten ? 0 : 255;
    };
    for (int order = 0; order < 2; ++order) {
      CallerFrame out(W, H, c.scanline);
      if (order == 0) ExposureFusionNeon(handle.get(), bright.data(), dark.data(), out.data());
      if (order == 1) ExposureFusionNeon(handle.get(), dark.data(), bright.data(), out.data());
      for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
          const size_t i = size_t(y) * W + x;
          const uint8_t expected = weight(y / 2, x / 2) ? scaled(bright[i]) : 0;
          ASSERT_EQ(out.luma(i), expected) << W << ": luma " << y << "," << x;
        }
      }
      for (int r = 0; r < H / 2; ++r) {
        for (int m = 0; m < W; ++m) {
          const size_t i = size_t(r) * W + m;
          const int a = weight(r, m / 16 * 8 + m % 8);  // byte m of a block uses weight m & 7
          const uint8_t expected = scaled(a ? dark[W * H + i] : bright[W * H + i]);
          ASSERT_EQ(out.chroma(i), expected) << W << ": chroma " << r << "," << m;
        }
      }
      EXPECT_TRUE(out.paddingIntact());
      EXPECT_TRUE(out.tailIntact());
    }
  }
}

// Frames whose rows are not whole blocks, worked out from the block loops by
// hand: a bright frame of 255 luma and 200 chroma, a dark one with the given
// luma and 96 chroma, three rows (so the last luma row keeps its raw lookup)
// and a scanline of 4, which leaves room in P for the lookup's last block
// (T[min(200, 96)] = 159). Stride 20: w = 10, so the decimation's last block
// spills the even samples of luma row 1 into Q0[10..15], and the chroma row's
// second block, which runs into the extra half row, reads them. Stride 6:
// w = 3, so the doubling's 16-byte block also fills the first four bytes of
// luma row 2, from Q0[6..7], which are the first bytes of the never-written
// (zeroed) smoothing scratch plane.
struct OddFrame {
  int stride;
  std::vector<uint8_t> darkLuma, luma, chroma, weights, halfWeights;
};

TEST(ExposureFusion, BlockSpillsInsideThePlanesByHand) {
  const std::vector<OddFrame> frames = {
      {20,
       {0,   1,  16, 1,   32,  1,   64,  1,   92,  1,   128, 1,   192, 1,   255,
        1,   91, 1,  119, 1,   120, 64,  127, 64,  128, 64,  160, 64,  224, 64,
        254, 64, 64, 64,  64,  64,  64,  64,  64,  64,  0,   1,   16,  32,  64,
        91,  92, 96, 119, 120, 127, 128, 160, 192, 224, 254, 255, 0,   16,  32},
       {254, 254, 249, 249, 240, 239, 221, 211, 204, 177, 180, 106, 202, 45,  254,
        0,   205, 178, 180, 117, 254, 254, 251, 250, 246, 242, 238, 221, 244, 196,
        253, 142, 97,  97,  63,  63,  197, 197, 151, 151, 254, 253, 249, 240, 221,
        205, 204, 194, 180, 180, 180, 180, 186, 202, 225, 253, 254, 254, 249, 240},
       {95,  97,  101, 113, 126, 156, 180, 199, 95,  97,  101, 113, 126, 156, 180,
        199, 126, 151, 152, 155, 156, 169, 190, 199, 126, 151, 152, 155, 156, 169},
       {255, 255, 250, 250, 240, 240, 212, 212, 178, 178, 106, 106, 45,  45,  0,   0,   179, 179,
        117, 117, 255, 255, 250, 250, 240, 240, 212, 212, 178, 178, 106, 106, 45,  45,  0,   0,
        179, 179, 117, 117, 255, 254, 250, 240, 212, 179, 178, 159, 117, 116, 107, 106, 72,  45,
        21,  0,   0,   255, 250, 240, 159, 159, 159, 159, 159, 159, 159, 159, 159, 159, 159, 159},
       {255, 250, 240, 212, 178, 106, 45, 0, 179, 117, 116, 107, 106, 72, 21, 0}},
      {6,
       {0, 1, 16, 1, 32, 1, 64, 64, 92, 64, 128, 64, 160, 192, 224, 254, 255, 0},
       {254, 254, 249, 249, 240, 239, 254, 254, 250, 250, 246, 242, 159, 191, 223, 253, 254, 254},
       {95, 97, 101, 113, 126, 156, 199, 199, 95},
       {255, 255, 250, 250, 240, 240, 255, 255, 250, 250, 240, 240,
        0,   0,   0,   0,   0,   255, 159, 159, 159, 159, 159, 159},
       {255, 250, 240, 212, 178, 106}},
  };
  for (const OddFrame &f : frames) {
    SCOPED_TRACE(testing::Message() << "stride " << f.stride);
    const int W = f.stride, H = 3, scanline = 4;
    FusionHandle handle(W, H, scanline);
    std::vector<uint8_t> bright(W * H, 255), dark = f.darkLuma;
    bright.resize(W * H + W * H / 2 + kCopySlack, 200);
    dark.resize(W * H + W * H / 2 + kCopySlack, 96);
    CallerFrame out(W, H, scanline);
    ExposureFusionNeon(handle.get(), dark.data(), bright.data(), out.data());
    EXPECT_EQ(std::vector<uint8_t>(out.bytes.begin(), out.bytes.begin() + W * H), f.luma);
    const auto chroma = out.bytes.begin() + out.chromaOffset;
    EXPECT_EQ(std::vector<uint8_t>(chroma, chroma + W * H / 2), f.chroma);
    EXPECT_TRUE(out.paddingIntact());
    EXPECT_TRUE(out.tailIntact());
    const uint8_t *P = handle.context().weightPlanes[0], *Q0 = handle.context().halfWeightPlanes[0];
    EXPECT_EQ(std::vector<uint8_t>(P, P + f.weights.size()), f.weights);
    EXPECT_EQ(std::vector<uint8_t>(Q0, Q0 + f.halfWeights.size()), f.halfWeights);
  }
}

}  // namespace
