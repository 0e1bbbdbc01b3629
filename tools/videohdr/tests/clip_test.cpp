// The clip builder's shake path and plan, and the geometry limits, checked
// against hand-worked values.
#include "clip.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "geometry.h"
#include "videohdr.h"

namespace {

using vhtool::Geometry;
using vhtool::Offset;

TEST(ShakePath, StaysInsideTheMarginWithAlternatingParity) {
  for (int32_t amplitude : {1, 2, 7, 20, 40}) {
    const auto path = vhtool::shakePath(200, amplitude);
    ASSERT_EQ(path.size(), 200u);
    int32_t largestStep = 0;
    for (size_t n = 0; n < path.size(); ++n) {
      EXPECT_LE(std::abs(path[n].x), amplitude) << n;
      EXPECT_LE(std::abs(path[n].y), amplitude) << n;
      if (n == 0) continue;
      const int32_t dx = path[n].x - path[n - 1].x;
      const int32_t dy = path[n].y - path[n - 1].y;
      const bool even = n % 2 == 1;
      EXPECT_EQ(dx % 2 == 0, even) << "amplitude " << amplitude << " frame " << n;
      EXPECT_EQ(dy % 2 == 0, even) << "amplitude " << amplitude << " frame " << n;
      largestStep = std::max({largestStep, std::abs(dx), std::abs(dy)});
    }
    // A hand shake, not a jump: steps stay below the amplitude (plus the parity pixel).
    EXPECT_LE(largestStep, amplitude + 1) << amplitude;
  }
}

TEST(ShakePath, TwentyPixelsReachesLargeShiftsBothWays) {
  const auto path = vhtool::shakePath(64, 20);
  int32_t most = 0, least = 0;
  for (size_t n = 1; n < path.size(); ++n) {
    most = std::max(most, path[n].x - path[n - 1].x);
    least = std::min(least, path[n].x - path[n - 1].x);
  }
  EXPECT_GE(most, 8);
  EXPECT_LE(least, -8);
}

TEST(ShakePath, NoShakeStandsStill) {
  for (const Offset &o : vhtool::shakePath(10, 0)) {
    EXPECT_EQ(o.x, 0);
    EXPECT_EQ(o.y, 0);
  }
}

vhtool::Scene flatScene(int32_t width, int32_t height, uint8_t dark, uint8_t bright) {
  vhtool::Scene s;
  s.dark.width = s.bright.width = width;
  s.dark.height = s.bright.height = height;
  s.dark.pixels.assign(static_cast<size_t>(width) * height * 4, dark);
  s.bright.pixels.assign(static_cast<size_t>(width) * height * 4, bright);
  return s;
}

TEST(PlanClip, FramesAreThePhotoLessTheShakeMargin) {
  std::vector<vhtool::Scene> scenes = {flatScene(1080, 720, 30, 200),
                                       flatScene(1100, 700, 30, 200)};
  const vhtool::ClipPlan plan = vhtool::planClip(std::move(scenes), 9, 20);
  EXPECT_EQ(plan.geometry.width, 1040);  // the narrower photo less 2 x 20
  EXPECT_EQ(plan.geometry.height, 660);  // the shorter photo less 2 x 20
  EXPECT_EQ(plan.geometry.stride, 1040);
  EXPECT_EQ(plan.geometry.scanline, 660);
  ASSERT_EQ(plan.firstFrame, (std::vector<int32_t>{0, 4}));
  EXPECT_EQ(plan.sceneOf(3), 0);
  EXPECT_EQ(plan.sceneOf(4), 1);
  Offset shift;
  EXPECT_FALSE(plan.simulatedShift(0, &shift));
  EXPECT_FALSE(plan.simulatedShift(4, &shift));  // the cut to the second scene
  ASSERT_TRUE(plan.simulatedShift(5, &shift));
  EXPECT_EQ(shift.x, plan.shake[5].x - plan.shake[4].x);
  EXPECT_EQ(shift.y, plan.shake[5].y - plan.shake[4].y);

  vhtool::Frame frame = vhtool::makeFrame(vhtool::clipLayout(plan));
  vhtool::renderFrame(plan, 0, &frame);
  const uint8_t brightLuma = frame.bytes[0];
  vhtool::renderFrame(plan, 1, &frame);
  EXPECT_GT(brightLuma, frame.bytes[0] + 100);
}

TEST(PlanClip, LargePhotosAreScaledIntoTheFrameBuffers) {
  std::vector<vhtool::Scene> scenes = {flatScene(4000, 3000, 30, 200)};
  const vhtool::ClipPlan plan = vhtool::planClip(std::move(scenes), 2, 20);
  const Geometry &g = plan.geometry;
  EXPECT_LE(static_cast<int64_t>(g.stride) * g.height, VIDEOHDR_MAX_LUMA_BYTES);
  EXPECT_GT(static_cast<int64_t>(g.stride) * g.height, VIDEOHDR_MAX_LUMA_BYTES * 9 / 10);
  EXPECT_EQ(g.width % 2, 0);
  EXPECT_EQ(g.height % 2, 0);
  EXPECT_TRUE(vhtool::checkGeometry(g).error.empty());
}

TEST(PlanClip, PhotosSmallerThanTheShakeAreRefused) {
  std::vector<vhtool::Scene> scenes = {flatScene(40, 40, 30, 200)};
  EXPECT_THROW(vhtool::planClip(std::move(scenes), 2, 20), std::runtime_error);
}

Geometry geometry(int32_t width, int32_t height, int32_t stride, int32_t scanline) {
  Geometry g;
  g.width = width;
  g.height = height;
  g.stride = stride;
  g.scanline = scanline;
  return g;
}

TEST(CheckGeometry, TheLibraryLimitsAreInclusive) {
  // 2048 x 1280 fills the frame buffers exactly; one more row does not fit.
  EXPECT_TRUE(vhtool::checkGeometry(geometry(2048, 1280, 2048, 1280)).error.empty());
  EXPECT_FALSE(vhtool::checkGeometry(geometry(2048, 1282, 2048, 1282)).error.empty());
  EXPECT_TRUE(vhtool::checkGeometry(geometry(2560, 1024, 2560, 1024)).error.empty());
  // Frames are packed before they reach the library: the stride does not count.
  EXPECT_TRUE(vhtool::checkGeometry(geometry(2000, 1280, 2080, 1280)).error.empty());
  // 1032 is the narrowest frame the search takes.
  EXPECT_TRUE(vhtool::checkGeometry(geometry(1032, 64, 1032, 64)).warnings.empty());
  EXPECT_EQ(vhtool::checkGeometry(geometry(1030, 64, 1030, 64)).warnings.size(), 1u);
  // Padding rows below the luma plane are fine.
  EXPECT_TRUE(vhtool::checkGeometry(geometry(1920, 1080, 1920, 1088)).error.empty());
  EXPECT_FALSE(vhtool::checkGeometry(geometry(1920, 1080, 1920, 1078)).error.empty());
  EXPECT_FALSE(vhtool::checkGeometry(geometry(1920, 1080, 1900, 1080)).error.empty());
}

TEST(ParseSize, AcceptsOnlyPositiveWxH) {
  int32_t w = 0, h = 0;
  EXPECT_TRUE(vhtool::parseSize("1920x1080", &w, &h));
  EXPECT_EQ(w, 1920);
  EXPECT_EQ(h, 1080);
  for (const char *bad : {"", "x", "1920", "1920x", "x1080", "0x10", "19a0x10", "-4x4", "1x1x1"}) {
    EXPECT_FALSE(vhtool::parseSize(bad, &w, &h)) << bad;
  }
}

}  // namespace
