// A short alternating bright/dark sequence through Video_HDR_Process: the
// first frame only primes the handle, every later one comes back fused with
// the aligned previous frame, and nothing outside the frame's planes changes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "videohdr.h"

namespace {

constexpr uint8_t kPadding = 0xC3;
constexpr uint8_t kTail = 0x3C;
constexpr size_t kTailBytes = 48;

struct Geometry {
  int width, height, scanline;
  size_t lumaBytes() const { return size_t(width) * height; }
  size_t chromaOffset() const { return size_t(width) * scanline; }
  size_t chromaBytes() const { return lumaBytes() / 2; }
  size_t frameEnd() const { return chromaOffset() + chromaBytes(); }
};

// A caller frame with a texture shared by all frames, brightened or darkened
// by exposure, sentinel padding rows and a sentinel tail.
std::vector<uint8_t> makeFrame(const Geometry &g, bool brightExposure, std::mt19937 &rng) {
  std::vector<uint8_t> frame(g.frameEnd() + kTailBytes, kTail);
  std::fill(frame.begin() + g.lumaBytes(), frame.begin() + g.chromaOffset(), kPadding);
  for (int y = 0; y < g.height; ++y) {
    for (int x = 0; x < g.width; ++x) {
      const int texture = (x * 7 + y * 3) % 128 + static_cast<int>(rng() % 16);
      frame[size_t(y) * g.width + x] =
          static_cast<uint8_t>(brightExposure ? std::min(255, texture + 120) : texture / 3);
    }
  }
  for (size_t i = 0; i < g.chromaBytes(); ++i)
    frame[g.chromaOffset() + i] = static_cast<uint8_t>(128 + (i % 2 ? 1 : -1) * int(rng() % 40));
  return frame;
}

// The frame as the handle keeps it: luma, then chroma right behind it.
std::vector<uint8_t> packed(const std::vector<uint8_t> &frame, const Geometry &g) {
  std::vector<uint8_t> copy(frame.begin(), frame.begin() + g.lumaBytes());
  copy.insert(copy.end(), frame.begin() + g.chromaOffset(), frame.begin() + g.frameEnd());
  return copy;
}

TEST(Pipeline, AlternatingExposuresAreFusedInPlace) {
  const Geometry g = {96, 40, 44};
  std::mt19937 rng(7);
  VideoHdrHandle *handle = Video_HDR_Initial();
  ASSERT_NE(handle, nullptr);

  for (int n = 0; n < 5; ++n) {
    SCOPED_TRACE(testing::Message() << "frame " << n);
    const std::vector<uint8_t> input = makeFrame(g, n % 2 == 0, rng);
    std::vector<uint8_t> frame = input;
    EXPECT_EQ(Video_HDR_Process(handle, frame.data(), 0, 1, g.width, g.height, g.width, g.scanline),
              1);
    if (n == 0) {
      EXPECT_EQ(frame, input) << "the first frame only primes the handle";
      continue;
    }
    // Frame n went into history buffer 1 for odd n, 0 for even n.
    const std::vector<uint8_t> current = packed(input, g);
    const uint8_t *history = n % 2 ? handle->frameBuf1 : handle->frameBuf0;
    ASSERT_EQ(std::memcmp(history, current.data(), current.size()), 0);

    // The same fusion on copies of the frame and of the aligned previous frame.
    const std::vector<uint8_t> aligned(handle->alignedBuf, handle->alignedBuf + current.size());
    std::vector<uint8_t> expected = input;
    ExposureFusionNeon(handle, current.data(), aligned.data(), expected.data());
    EXPECT_EQ(frame, expected);

    EXPECT_FALSE(std::equal(input.begin(), input.begin() + g.lumaBytes(), frame.begin()))
        << "the luma was not fused";
    EXPECT_TRUE(std::all_of(frame.begin() + g.lumaBytes(), frame.begin() + g.chromaOffset(),
                            [](uint8_t b) { return b == kPadding; }));
    EXPECT_TRUE(std::all_of(frame.begin() + g.frameEnd(), frame.end(),
                            [](uint8_t b) { return b == kTail; }));
  }
  EXPECT_EQ(handle->frameCount, 5);
  Video_HDR_Release(handle);
}

}  // namespace
