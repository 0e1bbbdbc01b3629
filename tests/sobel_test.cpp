// Sobel and Sobel_Neon: the clamped gradient, the scalar interior sum, and the
// block version's coverage, read past the row and 16-bit lane wrap.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "videohdr.h"

namespace {

// A plane with `extra` readable bytes after it.
struct Plane {
  Plane(int32_t w, int32_t h, uint8_t value = 0, size_t extra = 16)
      : width(w), height(h), bytes(static_cast<size_t>(w) * h + extra, value) {}
  uint8_t &at(int32_t x, int32_t y) { return bytes[static_cast<size_t>(y) * width + x]; }
  int32_t width, height;
  std::vector<uint8_t> bytes;
};

// The gradient at centre (x, y), reading the plane as flat memory of pitch w
// (so a column past the row's end is the next row's start).
int gradientAt(const Plane &p, int32_t x, int32_t y) {
  auto px = [&](int32_t dx, int32_t dy) {
    return static_cast<int>(p.bytes[static_cast<size_t>(y + dy) * p.width + (x + dx)]);
  };
  const int gx = px(1, -1) + 2 * px(1, 0) + px(1, 1) - px(-1, -1) - 2 * px(-1, 0) - px(-1, 1);
  const int gy = px(-1, -1) + 2 * px(0, -1) + px(1, -1) - px(-1, 1) - 2 * px(0, 1) - px(1, 1);
  return std::min(std::abs(gx) + std::abs(gy), 255);
}

// Sobel_Neon worked out lane by lane: centre column c of a row belongs to
// lane (c - 1) % 8; centres 1 .. lastCentre are taken; each lane's row sum
// keeps its low 16 bits and counts as a signed value.
double laneSumReference(const Plane &p, int32_t lastCentre) {
  double total = 0.0;
  for (int32_t y = 1; y + 1 < p.height; ++y) {
    long lane[8] = {0};
    for (int32_t x = 1; x <= lastCentre; ++x) lane[(x - 1) % 8] += gradientAt(p, x, y);
    for (long l : lane) total += static_cast<int16_t>(static_cast<uint16_t>(l & 0xFFFF));
  }
  return total;
}

double sobelOf(Plane &p) { return Sobel(p.bytes.data(), p.width, p.height); }
double sobelNeonOf(Plane &p) { return Sobel_Neon(p.bytes.data(), p.width, p.height); }

TEST(SobelTest, ConstantPlaneIsZero) {
  Plane p(40, 9, 173);
  EXPECT_EQ(sobelOf(p), 0.0);
  EXPECT_EQ(sobelNeonOf(p), 0.0);
}

TEST(SobelTest, ThreeByThreeCountsOnlyItsCentreInTheScalarVersion) {
  Plane p(3, 3);
  const uint8_t values[9] = {10, 20, 30, 40, 50, 60, 70, 80, 95};
  for (int i = 0; i < 9; ++i) p.bytes[i] = values[i];
  // gx = (30 + 120 + 95) - (10 + 80 + 70) = 85; gy = (10 + 40 + 30) - (70 + 160 + 95) = -245.
  EXPECT_EQ(sobelOf(p), 255.0);
  EXPECT_EQ(sobelNeonOf(p), 0.0);
  p.bytes[8] = 30;  // gx = 20, gy = -180: 200
  EXPECT_EQ(sobelOf(p), 200.0);
}

TEST(SobelTest, SmallPlanesAreZero) {
  Plane p(12, 12, 0);
  for (int32_t y = 0; y < 12; ++y)
    for (int32_t x = 0; x < 12; ++x) p.at(x, y) = static_cast<uint8_t>((x * 37 + y * 91) & 255);
  EXPECT_EQ(Sobel(p.bytes.data(), 12, 2), 0.0);
  EXPECT_EQ(Sobel(p.bytes.data(), 2, 12), 0.0);
  EXPECT_EQ(Sobel_Neon(p.bytes.data(), 12, 2), 0.0);
  for (int32_t w = 3; w <= 8; ++w) {
    EXPECT_EQ(Sobel_Neon(p.bytes.data(), w, 12), 0.0) << w;
    EXPECT_GT(Sobel(p.bytes.data(), w, 12), 0.0) << w;
  }
}

TEST(SobelTest, VerticalStepEdgeGives255NextToTheStep) {
  // Columns 0..4 are 0, columns 5.. are 255: centres 4 and 5 see the step
  // (|gx| = 4 x 255, clamped to 255), all others see a flat neighbourhood.
  Plane p(10, 6);
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 5; x < 10; ++x) p.at(x, y) = 255;
  EXPECT_EQ(gradientAt(p, 4, 2), 255);
  EXPECT_EQ(gradientAt(p, 5, 2), 255);
  EXPECT_EQ(gradientAt(p, 3, 2), 0);
  EXPECT_EQ(sobelOf(p), 2.0 * 255 * 4);
  // Width 10: one block, centres 1..8, exactly the scalar interior.
  EXPECT_EQ(sobelNeonOf(p), sobelOf(p));
}

TEST(SobelTest, WidthTenAgreesWithTheScalarSum) {
  std::mt19937 rng(10);
  Plane p(10, 20);
  for (auto &b : p.bytes) b = static_cast<uint8_t>(rng());
  EXPECT_EQ(sobelNeonOf(p), sobelOf(p));
  EXPECT_EQ(sobelOf(p), laneSumReference(p, 8));
}

TEST(SobelTest, BlocksLeaveTheRightmostColumnsUncounted) {
  // A step at column 12 (centres 11 and 12 see it) and one at column 3.
  for (int32_t width : {16, 24}) {
    Plane p(width, 5);
    for (int32_t y = 0; y < 5; ++y) {
      for (int32_t x = 3; x < width; ++x) p.at(x, y) = 100;
      for (int32_t x = 12; x < width; ++x) p.at(x, y) = 255;
    }
    const double scalar = sobelOf(p);
    if (width == 16) {
      // Centres 1..8 only: the step at column 3 (two centres, 4 x 100 each,
      // clamped) counts; the one at column 12 does not.
      EXPECT_EQ(sobelNeonOf(p), 3.0 * (255 + 255));
      EXPECT_EQ(scalar, 3.0 * (255 + 255 + 255 + 255));
    } else {
      // Centres 1..16 cover both steps; centres 17..22 are flat anyway.
      EXPECT_EQ(sobelNeonOf(p), scalar);
    }
    const int32_t lastCentre = width == 16 ? 8 : 16;
    EXPECT_EQ(sobelNeonOf(p), laneSumReference(p, lastCentre)) << width;
  }
}

TEST(SobelTest, WidthSeventeenReadsTheNextRowAndOneBytePastThePlane) {
  // Two blocks (centres 1..16): centre 16's neighbourhood takes column 17,
  // which is the next row's column 0, and on the last interior row the byte
  // just past the plane.
  std::mt19937 rng(17);
  Plane p(17, 7, 0, 1);
  for (auto &b : p.bytes) b = static_cast<uint8_t>(rng());
  const double withRandomByte = sobelNeonOf(p);
  EXPECT_EQ(withRandomByte, laneSumReference(p, 16));
  p.bytes.back() = static_cast<uint8_t>(p.bytes.back() ^ 0xFF);
  EXPECT_EQ(sobelNeonOf(p), laneSumReference(p, 16));
  // One bright byte at row 3, column 0 of a flat plane: centres (1, 2..4)
  // see it as their left column, and centres (16, 1..3) as column 17 of the
  // row above. All six values clamp to 255; the scalar sum sees three.
  Plane flat(17, 7, 50, 1);
  flat.at(0, 3) = 250;
  EXPECT_EQ(sobelNeonOf(flat), 6.0 * 255);
  EXPECT_EQ(sobelOf(flat), 3.0 * 255);
}

TEST(SobelTest, LaneSumsWrapAt16Bits) {
  // Column pairs 255, 255, 0, 0, ...: every centre's left and right columns
  // differ by 255, so every value is min(4 x 255, 255) = 255.
  for (int32_t width : {1033, 1100, 2056}) {
    Plane p(width, 4);
    for (int32_t y = 0; y < 4; ++y)
      for (int32_t x = 0; x < width; ++x) p.at(x, y) = (x / 2) % 2 == 0 ? 255 : 0;
    EXPECT_EQ(sobelOf(p), 2.0 * (width - 2) * 255);
    EXPECT_EQ(sobelNeonOf(p), laneSumReference(p, ((width - 8 + 7) / 8) * 8)) << width;
  }
  // Width 2056: 256 blocks, each lane 256 x 255 = 65,280, which reads as -256:
  // 8 lanes x 2 rows x -256.
  Plane p(2056, 4);
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 0; x < 2056; ++x) p.at(x, y) = (x / 2) % 2 == 0 ? 255 : 0;
  EXPECT_EQ(sobelNeonOf(p), -4096.0);
  // Width 1100: 137 blocks, 34,935 per lane, which reads as -30,601.
  Plane q(1100, 3);
  for (int32_t x = 0; x < 1100; ++x)
    for (int32_t y = 0; y < 3; ++y) q.at(x, y) = (x / 2) % 2 == 0 ? 255 : 0;
  EXPECT_EQ(sobelNeonOf(q), 8.0 * -30601);
}

TEST(SobelTest, RandomPlanesMatchTheLaneReference) {
  std::mt19937 rng(99);
  for (int32_t width = 9; width <= 80; ++width) {
    Plane p(width, 6, 0, 8);
    for (auto &b : p.bytes) b = static_cast<uint8_t>(rng());
    const int32_t blocks = (width - 8 + 7) / 8;
    EXPECT_EQ(sobelNeonOf(p), laneSumReference(p, 8 * blocks)) << width;
    EXPECT_EQ(sobelOf(p), [&] {
      double s = 0.0;
      for (int32_t y = 1; y + 1 < p.height; ++y)
        for (int32_t x = 1; x + 1 < width; ++x) s += gradientAt(p, x, y);
      return s;
    }()) << width;
  }
}

}  // namespace
