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
      : stride(stride),
        height(height),
        lumaBytes(size_t(stride) * height),
        chromaOffset(size_t(stride) * scanline),
        bytes(chromaOffset + lumaBytes / 2 + kTailBytes, kSentinel) {}
  uint8_t *data() { return bytes.data(); }
  uint8_t luma(size_t i) const { return bytes[i]; }
  uint8_t chroma(size_t i) const { return bytes[chromaOffset + i]; }
  size_t chromaBytes() const { return lumaBytes / 2; }
  bool paddingIntact() const { return untouched(lumaBytes, chromaOffset); }
  bool tailIntact() const { return untouched(chromaOffset + chromaBytes(), bytes.size()); }
  bool untouched(size_t from, size_t to) const {
    return std::all_of(bytes.begin() + from, bytes.begin() + to,
                       [](uint8_t b) { return b == kSentinel; });
  }

  int stride, height;
  size_t lumaBytes, chromaOffset;
  std::vector<uint8_t> bytes;
};

std::vector<uint8_t> randomBytes(size_t n, std::mt19937 &rng, int lo = 0, int hi = 255) {
  std::vector<uint8_t> bytes(n);
  std::uniform_int_distribution<int> pick(lo, hi);
  for (auto &b : bytes) b = static_cast<uint8_t>(pick(rng));
  return bytes;
}

// A frame copy as the handle keeps it (luma, chroma right behind), random
// bytes in [lo, hi], with slack for the reads just past a small frame's luma.
std::vector<uint8_t> randomCopy(int stride, int height, std::mt19937 &rng, int lo = 0,
                                int hi = 255) {
  const size_t luma = size_t(stride) * height;
  return randomBytes(luma + luma / 2 + kCopySlack, rng, lo, hi);
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
  const int geometries[][3] = {{64, 36, 40}, {45, 7, 9}, {40, 15, 15}, {16, 2, 2}, {7, 3, 5}};
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

TEST(ExposureFusion, ArgumentOrderDoesNotMatter) {
  std::mt19937 rng(2);
  FusionHandle handle(96, 48, 50);
  const auto bright = randomCopy(96, 48, rng, 100, 255);
  const auto dark = randomCopy(96, 48, rng, 0, 120);
  CallerFrame a(96, 48, 50), b(96, 48, 50);
  ExposureFusionNeon(handle.get(), bright.data(), dark.data(), a.data());
  ExposureFusionNeon(handle.get(), dark.data(), bright.data(), b.data());
  EXPECT_EQ(a.bytes, b.bytes);
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

// One row: no decimation, smoothing or chroma; the luma takes the raw lookup
// of the darker pixel, for a stride that is not a whole number of blocks.
TEST(ExposureFusion, OneRowUsesRawWeightsAndLeavesChroma) {
  std::mt19937 rng(3);
  FusionHandle handle(40, 1, 1);
  const uint8_t *table = handle.context().toneCurves[1];
  const auto current = randomCopy(40, 1, rng, 60, 255);
  const auto previous = randomCopy(40, 1, rng, 0, 60);
  CallerFrame out(40, 1, 1);
  ExposureFusionNeon(handle.get(), current.data(), previous.data(), out.data());
  for (size_t x = 0; x < 40; ++x) {
    const int a = table[previous[x]];
    EXPECT_EQ(out.luma(x), (current[x] * a + previous[x] * (255 - a)) >> 8) << x;
  }
  EXPECT_TRUE(out.untouched(40, out.bytes.size()));
}

// A black dark frame makes every lookup 255. Stride 64 gives a 32-column
// half-resolution map of 18 rows: the horizontal pass writes its columns 3 to
// 26 (blocks at 3, 11, 19), the vertical pass rewrites rows 3 to 14 over
// columns 0 to 31. Where it reads the never-written columns 0-2 and 27-31
// (cleared here) the weight is 0; everywhere else it stays 255.
TEST(ExposureFusion, BlackDarkFrameWeightsFollowTheWrittenColumns) {
  std::mt19937 rng(4);
  const int W = 64, H = 36;
  FusionHandle handle(W, H, 38);
  std::memset(handle.context().halfWeightPlanes[1], 0, size_t(W) * 38 / 4);
  const auto bright = randomCopy(W, H, rng, 1, 255);
  auto dark = randomCopy(W, H, rng);
  std::fill(dark.begin(), dark.begin() + W * H, 0);
  auto weight = [](int r, int c) { return r >= 3 && r <= 14 && (c < 3 || c > 26) ? 0 : 255; };

  for (int order = 0; order < 2; ++order) {
    CallerFrame out(W, H, 38);
    if (order == 0) ExposureFusionNeon(handle.get(), bright.data(), dark.data(), out.data());
    if (order == 1) ExposureFusionNeon(handle.get(), dark.data(), bright.data(), out.data());
    for (int y = 0; y < H; ++y) {
      for (int x = 0; x < W; ++x) {
        const size_t i = size_t(y) * W + x;
        const uint8_t expected = weight(y / 2, x / 2) ? scaled(bright[i]) : 0;
        ASSERT_EQ(out.luma(i), expected) << "luma " << y << "," << x;
      }
    }
    for (int r = 0; r < H / 2; ++r) {
      for (int m = 0; m < W; ++m) {
        const size_t i = size_t(r) * W + m;
        const int a = weight(r, m / 16 * 8 + m % 8);  // byte m of a block uses weight m & 7
        const uint8_t expected = scaled(a ? dark[W * H + i] : bright[W * H + i]);
        ASSERT_EQ(out.chroma(i), expected) << "chroma " << r << "," << m;
      }
    }
    EXPECT_TRUE(out.paddingIntact());
    EXPECT_TRUE(out.tailIntact());
  }
}

// Stride 16, height 2: no smoothing. The dark frame's even columns of row 0
// (0, 16, 64, 128, 160, 192, 224, 254) give the eight weights 255, 250, 212,
// 106, 72, 45, 21, 0, each spread over a 2x2 luma block; chroma byte m uses
// weight m & 7 and gives it to the dark frame.
TEST(ExposureFusion, SmallFrameByHand) {
  const std::vector<uint8_t> darkRow0 = {0,   5,   16,  20,  64,  70,  128, 130,
                                         160, 161, 192, 200, 224, 230, 254, 255};
  std::vector<uint8_t> dark = darkRow0, bright(32, 255);
  for (int x = 0; x < 16; ++x) {
    dark.push_back(static_cast<uint8_t>(10 * (x + 1)));
    bright[16 + x] = 200;
  }
  for (int m = 0; m < 16; ++m) {
    dark.push_back(static_cast<uint8_t>(40 + 10 * m));
    bright.push_back(m % 2 ? 100 : 200);
  }
  dark.resize(dark.size() + kCopySlack);
  bright.resize(bright.size() + kCopySlack);
  const uint8_t luma[32] = {254, 254, 249, 249, 221, 222, 180, 181, 186, 186, 202,
                            208, 225, 231, 253, 254, 199, 199, 195, 196, 174, 175,
                            123, 129, 120, 127, 125, 133, 135, 144, 149, 159};
  const uint8_t chroma[16] = {39,  50,  83,  87,  165, 97,  191, 99,
                              119, 128, 149, 120, 187, 111, 197, 99};

  FusionHandle handle(16, 2, 3);
  CallerFrame out(16, 2, 3);
  // The dark frame as `current`: its smaller sampled sum makes the other the bright one.
  ExposureFusionNeon(handle.get(), dark.data(), bright.data(), out.data());
  for (size_t i = 0; i < 32; ++i) EXPECT_EQ(out.luma(i), luma[i]) << i;
  for (size_t i = 0; i < 16; ++i) EXPECT_EQ(out.chroma(i), chroma[i]) << i;
  EXPECT_TRUE(out.paddingIntact());
  EXPECT_TRUE(out.tailIntact());
}

// The kernel written out as its plain block loops: every loop runs whole
// blocks while a block's start is inside its row, and a store is dropped only
// when it falls past the end of the plane it fills. Reads go wherever the
// loops point them, into the same memory the kernel sees.
struct BlockLoopModel {
  const FusionContext &ctx;
  const uint8_t *bright, *dark;
  uint8_t *out;

  static void store(uint8_t *plane, long index, long planeEnd, int value) {
    if (index < planeEnd) plane[index] = static_cast<uint8_t>(value);
  }
  static int blend(int x, int y, int weight) { return (x * weight + y * (255 - weight)) >> 8; }

  void run() {
    const long H = ctx.height, W = ctx.stride, h = H / 2, w = W / 2;
    const long S = W * ctx.scanline, luma = H * W, chromaEnd = luma / 2;
    uint8_t *P = ctx.weightPlanes[0], *Q0 = ctx.halfWeightPlanes[0], *Q1 = ctx.halfWeightPlanes[1];
    const uint8_t *T = ctx.toneCurves[1];
    static const int taps[7] = {4, 4, 5, 6, 5, 4, 4};
    for (long y = 0; y < H; ++y)
      for (long b = 0; b < W; b += 16)
        for (long i = y * W + b; i < y * W + b + 16; ++i)
          store(P, i, S, T[std::min(bright[i], dark[i])]);
    if (h >= 1 && w >= 1)
      for (long r = 0; r < h; ++r)
        for (long c = 0; c < w; c += 8)
          for (long i = c; i < c + 8; ++i) store(Q0, r * w + i, S >> 2, P[2 * r * W + 2 * i]);
    if (h >= 1 && w >= 14)
      for (long r = 0; r < h; ++r)
        for (long c = 3; c <= w - 11; c += 8)
          for (long i = c; i < c + 8; ++i) {
            int sum = 0;
            for (int t = 0; t < 7; ++t) sum += taps[t] * Q0[r * w + i - 3 + t];
            Q1[r * w + i] = static_cast<uint8_t>(sum >> 5);
          }
    if (w >= 8 && h >= 7)
      for (long c = 0; c <= w - 8; c += 8)
        for (long r = 3; r < h - 3; ++r)
          for (long i = c; i < c + 8; ++i) {
            int sum = 0;
            for (int t = 0; t < 7; ++t) sum += taps[t] * Q1[(r - 3 + t) * w + i];
            Q0[r * w + i] = static_cast<uint8_t>(sum >> 5);
          }
    for (long r = 0; r < h; ++r) {
      for (long x = 0; x < 2 * w; x += 16)
        for (long j = x; j < x + 16; ++j) store(P, 2 * r * 2 * w + j, S, Q0[r * w + j / 2]);
      std::memmove(P + (2 * r + 1) * 2 * w, P + 2 * r * 2 * w, size_t(2 * w));
    }
    for (long y = 0; y < H; ++y)
      for (long b = 0; b < W; b += 16)
        for (long i = y * W + b; i < y * W + b + 16; ++i)
          store(out, i, luma, blend(bright[i], dark[i], P[i]));
    if (H < 2) return;
    uint8_t *outChroma = out + W * ctx.scanline;
    for (long r = 0; r < h; ++r)
      for (long b = 0; b < W; b += 16) {
        const uint8_t *v = Q0 + ((r * W) >> 1) + b / 2;
        for (long m = 0; m < 16; ++m) {
          const long i = r * W + b + m;
          store(outChroma, i, chromaEnd, blend(dark[luma + i], bright[luma + i], v[m & 7]));
        }
      }
  }
};

// Every plane and the caller's frame against the block-loop model, on sizes
// whose blocks spill: strides below one block, odd ones, odd heights, tight
// and padded scanlines. The planes sit in blocks with room after them, as the
// context's do, and start from the same random contents for both.
TEST(ExposureFusion, MatchesTheBlockLoopsInsideEveryPlane) {
  std::mt19937 rng(6);
  const int heights[] = {1, 2, 3, 4, 5, 13, 14, 15, 17, 30};
  for (int W = 1; W <= 72; W += (W < 40 ? 1 : 7)) {
    for (int H : heights) {
      const int scanline = H + static_cast<int>(rng() % 3);
      SCOPED_TRACE(testing::Message()
                   << "stride " << W << " height " << H << " scanline " << scanline);
      const size_t S = size_t(W) * scanline;
      const auto current = randomCopy(W, H, rng);
      const auto previous = randomCopy(W, H, rng);
      const auto table = randomBytes(256, rng);
      // The full-plane block (P and three more planes), then the half-plane
      // block (Q0, Q1 and two more), then slack.
      std::vector<uint8_t> planes[2], frames[2];
      planes[0] = randomBytes(5 * S + 64, rng);
      frames[0] = randomBytes(S + size_t(W) * H / 2 + 32, rng);
      planes[1] = planes[0];
      frames[1] = frames[0];
      FusionContext ctx[2] = {};
      for (int k = 0; k < 2; ++k) {
        ctx[k].height = H;
        ctx[k].stride = W;
        ctx[k].scanline = scanline;
        ctx[k].toneCurves[1] = const_cast<uint8_t *>(table.data());
        ctx[k].weightPlanes[0] = planes[k].data();
        ctx[k].halfWeightPlanes[0] = planes[k].data() + 4 * S;
        ctx[k].halfWeightPlanes[1] = planes[k].data() + 4 * S + (S >> 2);
      }
      VideoHdrHandle handle = {};
      handle.fusionContext = &ctx[0];
      ExposureFusionNeon(&handle, current.data(), previous.data(), frames[0].data());
      long sums[2] = {0, 0};
      for (int y = 0; y < H; y += 32)
        for (int x = 0; x < W; x += 4) {
          sums[0] += current[size_t(y) * W + x];
          sums[1] += previous[size_t(y) * W + x];
        }
      const bool swap = sums[0] < sums[1];
      BlockLoopModel{ctx[1], swap ? previous.data() : current.data(),
                     swap ? current.data() : previous.data(), frames[1].data()}
          .run();
      ASSERT_EQ(frames[0], frames[1]);
      ASSERT_EQ(planes[0], planes[1]);
    }
  }
}

TEST(ExposureFusion, WithoutContextWritesNothing) {
  VideoHdrHandle *handle = createVideoHdrHandle();
  std::mt19937 rng(5);
  const auto copy = randomCopy(32, 4, rng);
  CallerFrame out(32, 4, 4);
  handle->height = 4;
  handle->stride = 32;
  EXPECT_EQ(ExposureFusionNeon(handle, copy.data(), copy.data(), out.data()), 1);
  EXPECT_TRUE(out.untouched(0, out.bytes.size()));
  destroyVideoHdrHandle(handle);
}

}  // namespace
