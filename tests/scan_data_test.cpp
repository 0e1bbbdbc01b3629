// The aligned-frame output: the filter that keeps the applied shift from
// jumping, and the previous frame laid over the current one.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

#include "align_fixture.h"
#include "checkasm.h"
#include "videohdr.h"

namespace {

struct Shift {
  int32_t dx, dy;
};

// A context of w x h with its workspace carved, the found shift in level 0
// and the applied one of the previous frame pair in lastDx / lastDy.
class ScanFixture {
 public:
  ScanFixture(int32_t w, int32_t h) : fx_(w, h) {
    const std::vector<uint8_t> luma(size_t(w) * h, 0);
    fx_.load(luma, luma);
  }
  // Runs getScanData on (prev, cur) into a guarded output that starts random.
  checkasm::Guarded run(Shift found, Shift last, const std::vector<uint8_t> &prev,
                        const std::vector<uint8_t> &cur) {
    AlignContext *c = fx_.context();
    c->levelDx[0] = found.dx;
    c->levelDy[0] = found.dy;
    c->lastDx = last.dx;
    c->lastDy = last.dy;
    checkasm::Guarded out(frameBytes());
    std::mt19937 rng(found.dx * 31 + found.dy);
    out.fillRandom(rng);
    getScanData(c, prev.data(), cur.data(), out.data());
    EXPECT_TRUE(out.guardsIntact()) << "shift " << found.dx << "," << found.dy;
    return out;
  }
  Shift applied() { return {fx_.context()->lastDx, fx_.context()->lastDy}; }
  size_t frameBytes() const { return (3 * size_t(fx_.width()) * fx_.height()) / 2; }

 private:
  AlignFixture fx_;
};

// Frames whose bytes say where they come from: luma base + 10 y + x, chroma
// cbase + 10 r + c (the hand-worked cases below stay below 256).
std::vector<uint8_t> labelledFrame(int32_t w, int32_t h, int base, int cbase) {
  std::vector<uint8_t> f((3 * size_t(w) * h) / 2);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) f[y * w + x] = uint8_t(base + 10 * y + x);
  for (int32_t r = 0; r < h / 2; ++r)
    for (int32_t c = 0; c < w; ++c) f[w * h + r * w + c] = uint8_t(cbase + 10 * r + c);
  return f;
}

std::vector<uint8_t> randomFrame(int32_t w, int32_t h, std::mt19937 &rng) {
  return checkasm::randomBytes((3 * size_t(w) * h) / 2, rng);
}

std::vector<uint8_t> bytesOf(const checkasm::Guarded &g) {
  return std::vector<uint8_t>(g.data(), g.data() + g.size());
}

// ---------------------------------------------------------------------------
// The shift filter

TEST(ScanDataFilter, AppliesTheFourRulesToEveryKindOfChange) {
  struct Case {
    Shift found, last, applied;
    const char *why;
  } cases[] = {
      {{5, 0}, {0, 0}, {0, 0}, "a jump from rest beyond 4"},
      {{3, 0}, {0, 0}, {3, 0}, "a start from rest within 4"},
      {{4, -4}, {0, 0}, {4, -4}, "the largest start from rest"},
      {{-5, -5}, {0, 0}, {0, 0}, "both axes jump from rest"},
      {{0, 5}, {0, 0}, {0, 0}, "a vertical jump from rest"},
      {{5, 0}, {2, 0}, {5, 0}, "a moving axis may grow"},
      {{-9, 7}, {-1, 3}, {-9, 7}, "growth without bound in the same direction"},
      {{-2, 0}, {3, 0}, {0, 0}, "a horizontal reversal"},
      {{3, -2}, {2, 3}, {3, 0}, "a vertical reversal keeps the horizontal move"},
      {{-3, 5}, {2, -1}, {0, 0}, "a reversal on both axes"},
      {{0, 2}, {3, 0}, {0, 0}, "a turn from horizontal to vertical"},
      {{0, 2}, {3, 1}, {0, 2}, "no turn when the last shift was diagonal"},
      {{2, 0}, {0, 3}, {0, 0}, "a turn from vertical to horizontal"},
      {{6, 0}, {0, 2}, {0, 0}, "a turn that would also be a jump"},
      {{1, 6}, {1, 0}, {1, 0}, "a vertical jump while moving horizontally"},
      {{-7, 2}, {-1, 0}, {-7, 2}, "a moving axis and a small vertical start"},
      {{0, 0}, {4, -3}, {0, 0}, "rest is always allowed"},
      {{0, -3}, {0, 2}, {0, 0}, "a vertical reversal on a vertical move"},
  };
  ScanFixture fx(16, 8);
  std::mt19937 rng(1);
  const std::vector<uint8_t> prev = randomFrame(16, 8, rng), cur = randomFrame(16, 8, rng);
  for (const Case &c : cases) {
    fx.run(c.found, c.last, prev, cur);
    const Shift got = fx.applied();
    EXPECT_EQ(got.dx, c.applied.dx) << c.why;
    EXPECT_EQ(got.dy, c.applied.dy) << c.why;
  }
}

TEST(ScanDataFilter, TheOutputFollowsTheFilteredShift) {
  ScanFixture fx(16, 8);
  std::mt19937 rng(2);
  const std::vector<uint8_t> prev = randomFrame(16, 8, rng), cur = randomFrame(16, 8, rng);
  // (5, 0) from rest goes out as (0, 0), exactly the previous frame.
  EXPECT_EQ(bytesOf(fx.run({5, 0}, {0, 0}, prev, cur)), prev);
  // (3, -2) after (2, 3) goes out as (3, 0), which (3, 0) after (3, 0) keeps.
  EXPECT_EQ(bytesOf(fx.run({3, -2}, {2, 3}, prev, cur)),
            bytesOf(fx.run({3, 0}, {3, 0}, prev, cur)));
}

// ---------------------------------------------------------------------------
// The overlay, worked by hand on a 6 x 4 frame: previous luma 100 + 10 y + x,
// current luma 10 y + x, previous chroma 200 + 10 r + c, current 50 + 10 r + c.

constexpr int32_t kW = 6, kH = 4;

std::vector<uint8_t> overlay(Shift found, Shift last) {
  ScanFixture fx(kW, kH);
  return bytesOf(
      fx.run(found, last, labelledFrame(kW, kH, 100, 200), labelledFrame(kW, kH, 0, 50)));
}

TEST(ScanDataOverlay, APositiveOddShiftMovesLumaByThreeAndChromaByTwo) {
  const std::vector<uint8_t> expected = {
      103, 104, 105, 3,  4,  5,   // luma row 0: prev x + 3, then the current frame
      113, 114, 115, 13, 14, 15,  //
      123, 124, 125, 23, 24, 25,  //
      133, 134, 135, 33, 34, 35,  //
      202, 203, 52,  53, 54, 55,  // chroma: (6 - 3) & ~1 = 2 bytes from column 2
      212, 213, 62,  63, 64, 65};
  EXPECT_EQ(overlay({3, 0}, {0, 0}), expected);
}

TEST(ScanDataOverlay, ANegativeShiftLaysThePreviousFrameDownAndRight) {
  // (-3, -1): luma rows 1..3 from rows 0..2, columns 3..5 from 0..2; chroma
  // moves by cdx = -2, cdy = 0 over (4 - 1) / 2 = 1 row of 2 bytes.
  const std::vector<uint8_t> expected = {0,  1,  2,   3,   4,   5,    //
                                         10, 11, 12,  100, 101, 102,  //
                                         20, 21, 22,  110, 111, 112,  //
                                         30, 31, 32,  120, 121, 122,  //
                                         50, 51, 200, 201, 54,  55,   //
                                         60, 61, 62,  63,  64,  65};
  EXPECT_EQ(overlay({-3, -1}, {-2, -2}), expected);
}

TEST(ScanDataOverlay, AShiftOfAllButOneRowOverlaysOneLumaRowAndNoChroma) {
  const std::vector<uint8_t> expected = {
      130, 131, 132, 133, 134, 135,  // the previous frame's last row
      10,  11,  12,  13,  14,  15,   //
      20,  21,  22,  23,  24,  25,   //
      30,  31,  32,  33,  34,  35,   //
      50,  51,  52,  53,  54,  55,   //
      60,  61,  62,  63,  64,  65};
  EXPECT_EQ(overlay({0, 3}, {0, 0}), expected);
  EXPECT_EQ(overlay({0, -3}, {0, -1})[3 * kW], 100);  // and upwards: row 3 = prev row 0
}

TEST(ScanDataOverlay, AZeroShiftCopiesThePreviousFrameButAnOddWidthsLastChromaByte) {
  const std::vector<uint8_t> prev = labelledFrame(5, 4, 100, 200);
  const std::vector<uint8_t> cur = labelledFrame(5, 4, 0, 50);
  ScanFixture fx(5, 4);
  std::vector<uint8_t> expected = prev;
  expected[20 + 4] = cur[20 + 4];  // chroma rows carry 5 & ~1 = 4 bytes
  expected[25 + 4] = cur[25 + 4];
  EXPECT_EQ(bytesOf(fx.run({0, 0}, {0, 0}, prev, cur)), expected);
  EXPECT_EQ(fx.applied().dx, 0);
  EXPECT_EQ(fx.applied().dy, 0);

  ScanFixture even(6, 4);
  const std::vector<uint8_t> prev6 = labelledFrame(6, 4, 100, 200);
  EXPECT_EQ(bytesOf(even.run({0, 0}, {0, 0}, prev6, labelledFrame(6, 4, 0, 50))), prev6);
}

// ---------------------------------------------------------------------------
// The overlay on random frames against its per-pixel definition: luma (x, y)
// comes from the previous frame's (x + dx, y + dy) wherever that exists;
// chroma moves by cdx = dx rounded toward zero to even and cdy = dy / 2, over
// (h - |dy|) / 2 rows of (w - |dx|) & ~1 bytes, and only when h - |dy| >= 2.

std::vector<uint8_t> expectedOverlay(int32_t w, int32_t h, Shift s,
                                     const std::vector<uint8_t> &prev,
                                     const std::vector<uint8_t> &cur) {
  std::vector<uint8_t> out = cur;
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      const int32_t sx = x + s.dx, sy = y + s.dy;
      if (sx >= 0 && sx < w && sy >= 0 && sy < h) out[y * w + x] = prev[sy * w + sx];
    }
  const int32_t rows = h - std::abs(s.dy), bytes = (w - std::abs(s.dx)) & ~1;
  if (rows < 2 || bytes < 1) return out;
  const int32_t cdx = s.dx / 2 * 2, cdy = s.dy / 2;
  const int32_t firstRow = cdy < 0 ? -cdy : 0, firstCol = cdx < 0 ? -cdx : 0;
  for (int32_t r = firstRow; r < firstRow + rows / 2; ++r)
    for (int32_t c = firstCol; c < firstCol + bytes; ++c)
      out[w * h + r * w + c] = prev[w * h + (r + cdy) * w + c + cdx];
  return out;
}

TEST(ScanDataOverlay, EveryShiftMatchesThePerPixelDefinition) {
  std::mt19937 rng(3);
  const struct { int32_t w, h; } sizes[] = {{16, 10}, {9, 7}, {10, 5}, {33, 12}, {1, 4}};
  for (const auto &size : sizes) {
    ScanFixture fx(size.w, size.h);
    const std::vector<uint8_t> prev = randomFrame(size.w, size.h, rng);
    const std::vector<uint8_t> cur = randomFrame(size.w, size.h, rng);
    for (int32_t dy = -size.h; dy <= size.h; ++dy)
      for (int32_t dx = -size.w - 1; dx <= size.w + 1; ++dx) {
        // A last shift equal to the found one keeps it whatever its size.
        const std::vector<uint8_t> got = bytesOf(fx.run({dx, dy}, {dx, dy}, prev, cur));
        EXPECT_EQ(got, expectedOverlay(size.w, size.h, {dx, dy}, prev, cur))
            << size.w << "x" << size.h << " shift " << dx << "," << dy;
        EXPECT_EQ(fx.applied().dx, dx);
        EXPECT_EQ(fx.applied().dy, dy);
      }
  }
}

TEST(ScanDataOverlay, ChromaMovesByHalfTheRowsAndAnEvenNumberOfBytes) {
  // (3, 2) on 8 x 8 after (3, 2): cdx = 2, cdy = 1; (8 - 2) / 2 = 3 chroma rows
  // of (8 - 3) & ~1 = 4 bytes: out chroma (r, c) = prev chroma (r + 1, c + 2).
  ScanFixture fx(8, 8);
  const std::vector<uint8_t> prev = labelledFrame(8, 8, 100, 150);
  const std::vector<uint8_t> cur = labelledFrame(8, 8, 0, 50);
  const std::vector<uint8_t> out = bytesOf(fx.run({3, 2}, {3, 2}, prev, cur));
  const uint8_t expectedChroma[4][8] = {{162, 163, 164, 165, 54, 55, 56, 57},
                                        {172, 173, 174, 175, 64, 65, 66, 67},
                                        {182, 183, 184, 185, 74, 75, 76, 77},
                                        {80, 81, 82, 83, 84, 85, 86, 87}};
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 8; ++c)
      EXPECT_EQ(out[64 + r * 8 + c], expectedChroma[r][c]) << "chroma " << r << "," << c;
  // (-3, -2) after (-3, -2): cdx = -2, cdy = -1: out chroma (r + 1, c + 2) =
  // prev chroma (r, c) for r < 3, c < 4.
  const std::vector<uint8_t> back = bytesOf(fx.run({-3, -2}, {-3, -2}, prev, cur));
  EXPECT_EQ(back[64 + 0 * 8 + 2], 50 + 2);
  EXPECT_EQ(back[64 + 1 * 8 + 2], 150);
  EXPECT_EQ(back[64 + 3 * 8 + 5], 150 + 20 + 3);
  EXPECT_EQ(back[64 + 3 * 8 + 6], 50 + 30 + 6);
}

}  // namespace
