// HistMatching: cumulative-count bands, the double weight of level 0, the
// remembered stop level and the mapping applied one level low.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "align_fixture.h"
#include "videohdr.h"

namespace {

constexpr int kSide = 64;

class HistMatchingTest : public ::testing::Test {
 protected:
  HistMatchingTest() : fixture_(kSide, kSide) {
    std::vector<uint8_t> zeros(kSide * kSide, 0);
    fixture_.load(zeros, zeros);
  }
  AlignContext *ctx() { return fixture_.context(); }
  AlignFixture fixture_;
};

// Every level 0..255 exactly 16 times (64 x 64 pixels).
std::vector<uint8_t> everyLevel16Times() {
  std::vector<uint8_t> plane(kSide * kSide);
  for (size_t i = 0; i < plane.size(); ++i) plane[i] = static_cast<uint8_t>(i % 256);
  return plane;
}

// m(i) for two planes with every level 16 times, worked out by hand: the
// cumulative counts are 16 (i + 1) on both sides, so the band of level i is
// |i - j| <= 64 (16 * 64 = 1024 <= 1037 < 1040). In the middle the band is
// symmetric and the mean is i. Low levels have level 0 inside and counted
// twice: n = 16 (i + 66), s = 16 (0 + ... + i + 64). High levels run through
// level 255: the mean of i - 64 .. 255.
uint32_t mappedForUniformPlanes(uint32_t i) {
  if (i <= 64) return (i + 64) * (i + 65) / 2 / (i + 66);
  if (i <= 191) return i;
  return (i - 64 + 255) / 2;
}

TEST_F(HistMatchingTest, UniformPlanesGetLocalMeansAppliedOneLevelLow) {
  const std::vector<uint8_t> ref = everyLevel16Times();
  std::vector<uint8_t> dst = ref;
  EXPECT_EQ(HistMatching(ctx(), ref.data(), dst.data(), kSide, kSide), 0);

  // A few values by hand: m(0) = 2080 / 66, m(1) = 2145 / 67, m(255) = mean of 191..255.
  EXPECT_EQ(mappedForUniformPlanes(0), 31u);
  EXPECT_EQ(mappedForUniformPlanes(1), 32u);
  EXPECT_EQ(mappedForUniformPlanes(99), 99u);
  EXPECT_EQ(mappedForUniformPlanes(255), 223u);

  for (size_t i = 0; i < dst.size(); ++i) {
    const uint32_t v = ref[i];
    const uint32_t expected = mappedForUniformPlanes(v == 0 ? 0 : v - 1);
    ASSERT_EQ(dst[i], expected) << "pixel " << i << " of value " << v;
  }
  // A pixel of 100 receives m(99), not m(100).
  EXPECT_EQ(dst[100], 99);
  EXPECT_EQ(dst[0], 31);
  EXPECT_EQ(dst[1], 31);
  EXPECT_EQ(dst[2], 32);
}

TEST_F(HistMatchingTest, TablesHoldHistogramsCumulativesAndShiftedMapping) {
  const std::vector<uint8_t> ref = everyLevel16Times();
  std::vector<uint8_t> dst = ref;
  HistMatching(ctx(), ref.data(), dst.data(), kSide, kSide);
  for (uint32_t i = 0; i < 256; ++i) {
    EXPECT_EQ(ctx()->histTable0[i], 16u);
    EXPECT_EQ(ctx()->histTable1[i], 16u * (i + 1));
    EXPECT_EQ(ctx()->histTable2[i], 16u * (i + 1));
    EXPECT_EQ(ctx()->histTable3[i + 1], mappedForUniformPlanes(i));
  }
  EXPECT_EQ(ctx()->histTable3[0], ctx()->histTable3[1]);
}

TEST_F(HistMatchingTest, AllZeroTargetTakesTheMeanWithLevelZeroCountedTwice) {
  // Reference: 3,500 pixels of 0 and 596 of 200. The target's count is 4,096
  // at every level; Cr[0] = 3,500 and Cr[200] = 4,096 are both within 1,037,
  // so n = 3500 + 3500 + 596 and s = 200 * 596: m(0) = 119200 / 7596 = 15
  // (counting level 0 once would give 29).
  std::vector<uint8_t> ref(kSide * kSide, 0);
  for (size_t i = 3500; i < ref.size(); ++i) ref[i] = 200;
  std::vector<uint8_t> dst(kSide * kSide, 0);
  EXPECT_EQ(HistMatching(ctx(), ref.data(), dst.data(), kSide, kSide), 0);
  for (uint8_t v : dst) ASSERT_EQ(v, 15);
}

TEST_F(HistMatchingTest, EmptyBandTakesTheLevelWhereTheScanStopped) {
  // Reference: 1,000 pixels of 0, then 3,096 of 50: Cr = 1000 below level 50
  // and 4096 from it. Target: 2,100 pixels of 0, the rest 255, so Ct = 2100
  // for levels 0..254. Neither 1000 nor 4096 is within 1,037 of 2,100; the
  // scan stops at level 50, where 2100 + 1037 < 4096.
  std::vector<uint8_t> ref(kSide * kSide, 0);
  for (size_t i = 1000; i < ref.size(); ++i) ref[i] = 50;
  std::vector<uint8_t> dst(kSide * kSide, 255);
  for (size_t i = 0; i < 2100; ++i) dst[i] = 0;
  HistMatching(ctx(), ref.data(), dst.data(), kSide, kSide);
  EXPECT_EQ(ctx()->histTable3[1], 50u);    // m(0)
  EXPECT_EQ(ctx()->histTable3[255], 50u);  // m(254)
  EXPECT_EQ(dst[0], 50);
  EXPECT_EQ(dst[4095], 50);
}

TEST_F(HistMatchingTest, InsideBandWithoutWeightTakesTheStopLevel) {
  // Reference all 200: Cr = 0 below level 200 and 4,096 from it. Target:
  // 1,000 pixels of 10 and the rest 100. Every level below 100 has Ct of 0 or
  // 1,000: the zero-count reference levels are inside its band but weigh
  // nothing, and the scan stops at 200 (Ct + 1037 < 4096): m = 200. From
  // level 100 on, Ct = 4096 and only levels 200..255 are inside: m = 200.
  std::vector<uint8_t> ref(kSide * kSide, 200);
  std::vector<uint8_t> dst(kSide * kSide, 100);
  for (size_t i = 0; i < 1000; ++i) dst[i] = 10;
  HistMatching(ctx(), ref.data(), dst.data(), kSide, kSide);
  EXPECT_EQ(ctx()->histTable3[1], 200u);    // m(0)
  EXPECT_EQ(ctx()->histTable3[100], 200u);  // m(99)
  EXPECT_EQ(ctx()->histTable3[101], 200u);  // m(100)
}

TEST_F(HistMatchingTest, LevelsFarBelowTheReferenceMapToZero) {
  // Reference: 3,100 pixels of 0 and 996 of 200; target all 100. Levels
  // 0..99 of the target have Ct = 0, and 0 + 1037 < Cr[0] = 3100: m = 0.
  std::vector<uint8_t> ref(kSide * kSide, 200);
  for (size_t i = 0; i < 3100; ++i) ref[i] = 0;
  std::vector<uint8_t> dst(kSide * kSide, 100);
  HistMatching(ctx(), ref.data(), dst.data(), kSide, kSide);
  EXPECT_EQ(ctx()->histTable3[1], 0u);    // m(0)
  EXPECT_EQ(ctx()->histTable3[100], 0u);  // m(99)
  // m(100): Ct = 4096; Cr[0] = 3100 is inside (and counted twice) and so is
  // Cr[200] = 4096: n = 3100 + 3100 + 996, s = 200 * 996: 199200 / 7196 = 27.
  EXPECT_EQ(ctx()->histTable3[101], 27u);
  for (uint8_t v : dst) ASSERT_EQ(v, 0);  // pixels of 100 take m(99)
}

TEST_F(HistMatchingTest, EmptyPlaneReturnsTheProductAndLeavesThePlane) {
  const std::vector<uint8_t> ref = everyLevel16Times();
  std::vector<uint8_t> dst = ref;
  EXPECT_EQ(HistMatching(ctx(), ref.data(), dst.data(), 0, kSide), 0);
  EXPECT_EQ(dst, ref);
  EXPECT_EQ(HistMatching(ctx(), ref.data(), dst.data(), kSide, 0), 0);
  EXPECT_EQ(dst, ref);
  EXPECT_EQ(HistMatching(ctx(), ref.data(), dst.data(), -3, 5), -15);
  EXPECT_EQ(dst, ref);
  // No pixels counted: every table entry is 0 and every level maps to 0.
  for (int i = 0; i < 256; ++i) {
    EXPECT_EQ(ctx()->histTable0[i], 0u);
    EXPECT_EQ(ctx()->histTable2[i], 0u);
    EXPECT_EQ(ctx()->histTable3[i + 1], 0u);
  }
}

}  // namespace
