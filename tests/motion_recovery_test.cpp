// Known motion between a bright and a dark exposure of a real photograph is
// recovered exactly by the pyramid search.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "align_fixture.h"

namespace {

// The grey photograph of tests/data (binary PGM, 8 bits); empty when it
// cannot be read.
struct GreyImage {
  int32_t width = 0, height = 0;
  std::vector<uint8_t> pixels;
  uint8_t at(int32_t x, int32_t y) const { return pixels[size_t(y) * width + x]; }
};

GreyImage loadTestPhoto() {
  GreyImage img;
  std::ifstream in(std::string(VIDEOHDR_TEST_DATA_DIR) + "/evening_glow_2112x1344.pgm",
                   std::ios::binary);
  std::string magic;
  int maxValue = 0;
  in >> magic >> img.width >> img.height >> maxValue;
  if (!in || magic != "P5" || maxValue != 255 || img.width <= 0 || img.height <= 0) return {};
  in.get();  // the single whitespace byte before the pixels
  img.pixels.resize(size_t(img.width) * img.height);
  in.read(reinterpret_cast<char *>(img.pixels.data()), std::streamsize(img.pixels.size()));
  return in ? img : GreyImage{};
}

struct Gain {
  int num, den;
};
constexpr Gain kBright{8, 5};  // clips the sunset sky
constexpr Gain kDark{1, 2};

// Even shifts across the reachable range, the extremes included. Not every
// even shift comes out exact on this photograph: when the coarsest level's
// true shift lies halfway between two candidates (an odd multiple of 8 at full
// resolution) the count's edge rules (positive dx also counts the reference's
// last data word against nothing) can tip the choice, and the finer levels,
// each correcting by at most one step, cannot recover all of it. Both camera
// sizes, each exposure order once; the current frame's window is centred in
// the photograph, whose margin leaves room for moves of 32 pixels each way.
TEST(MotionRecovery, FindsKnownShiftsAtCameraSizes) {
  const GreyImage photo = loadTestPhoto();
  ASSERT_FALSE(photo.pixels.empty());
  const struct {
    int32_t width, height;
    Gain cur, prev;
  } sizes[] = {{1920, 1080, kBright, kDark}, {2048, 1280, kDark, kBright}};
  const int32_t shifts[][2] = {{0, 0},    {2, -2},   {-6, 4},    {14, -22},
                               {-30, 30}, {30, -30}, {-18, -10}, {26, 8}};
  for (const auto &size : sizes) {
    const int32_t w = size.width, h = size.height;
    const int32_t left = (photo.width - w) / 2, top = (photo.height - h) / 2;
    auto exposed = [&](int32_t x, int32_t y, Gain gain) {
      return uint8_t(std::min(255, photo.at(x, y) * gain.num / gain.den));
    };
    std::vector<uint8_t> cur(size_t(w) * h * 3 / 2, 128), prev = cur, out = cur;
    for (const auto &s : shifts) {
      // The previous frame shows at (x + dx, y + dy) what the current one shows at (x, y).
      for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
          cur[size_t(y) * w + x] = exposed(left + x, top + y, size.cur);
          prev[size_t(y) * w + x] = exposed(left - s[0] + x, top - s[1] + y, size.prev);
        }
      AlignFixture fx(w, h);
      AlignProcess(fx.handle(), cur.data(), prev.data(), out.data(), 0);
      EXPECT_EQ(fx.context()->levelDx[0], s[0]) << w << " shift " << s[0] << "," << s[1];
      EXPECT_EQ(fx.context()->levelDy[0], s[1]) << w << " shift " << s[0] << "," << s[1];
    }
  }
}

}  // namespace
