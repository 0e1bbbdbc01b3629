// The candidate count (margins, edge masks, lane counters) and one level of the
// search (candidate order, ties, cumulative storage).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "align_fixture.h"
#include "bitmap_pair.h"
#include "videohdr.h"

namespace {

TEST(XorTwoPyramid, AnEmptyRowRangeScoresZero) {
  std::mt19937 rng(1);
  BitmapPair four(160, 4);
  four.fillRandom(rng);
  EXPECT_EQ(four.count(2, 0), 0);  // a margin of 2 of 4 rows leaves none
  EXPECT_EQ(four.count(-2, 2), 0);
  EXPECT_GT(four.count(1, 0), 0);
}

TEST(XorTwoPyramid, MarginDropsRowsAtBothEnds) {
  const int32_t h = 12;
  BitmapPair b(200, h);
  auto countWithReferenceBitInRow = [&](int32_t y, int32_t dy) {
    b.clear();
    setBit(b.cur(y), 40);
    return b.count(dy, 0);
  };
  // dy = 0 visits rows 1 .. h - 2; dy = -2 and dy = +2 both rows 2 .. h - 3.
  const struct {
    int32_t dy, row, counted;
  } cases[] = {{0, 0, 0},  {0, 1, 1},  {0, h - 2, 1},  {0, h - 1, 0},
               {-2, 1, 0}, {-2, 2, 1}, {-2, h - 3, 1}, {-2, h - 2, 0},
               {2, 1, 0},  {2, 2, 1},  {2, h - 3, 1},  {2, h - 2, 0}};
  for (const auto &c : cases)
    EXPECT_EQ(countWithReferenceBitInRow(c.row, c.dy), c.counted) << c.dy << " row " << c.row;
  // Reference row y meets previous row y + dy.
  b.clear();
  setBit(b.moved(7), 40);
  EXPECT_EQ(b.count(2, 0), 1);   // reference row 5
  EXPECT_EQ(b.count(-2, 0), 1);  // reference row 9 = h - 3
  EXPECT_EQ(b.count(-3, 0), 0);  // reference row 10 lies in the margin
}

// Single words of row 1 of three, worked out from the layout: W = 9 words and
// a tail of t = 3 at width 240 (r = 16), t = 0 at 288 (the last data word is
// never compared), r = 0 with t = 2 at 480, and word 0's masks at 256.
TEST(XorTwoPyramid, EdgeWordsByHand) {
  const struct {
    int32_t width;
    bool reference;  // the word is the reference's, else the moved bitmap's
    int32_t word;
    uint32_t value;
    int32_t dx, counted;
    const char *why;
  } cases[] = {
      {240, true, 7, 0xFFFFFFFFu, 2, 14, "dx = +2 counts only R's top 14 bits of word 7"},
      {240, true, 7, 0x00040000u, 2, 1, "pixel 237 is the last kept one"},
      {240, true, 7, 0x00020000u, 2, 0, "pixel 238 is not"},
      {240, false, 7, 0xFFFFFFFFu, 2, 0, "S's last data word only feeds a zero partner"},
      {240, true, 7, 0xFFFFFFFFu, 1, 15, "dx = +1 keeps R's pixels 224 .. 238"},
      {288, false, 8, 0x80000000u, 1, 1, "the body's last word still takes S's word 8"},
      {240, true, 7, 0xFFFFFFFFu, 0, 15, "dx = 0 keeps 32 - (33 - r) = 15 bits of the last word"},
      {129, true, 0, 0x40000000u, 0, 1, "the narrowest level counts (pixel 1)"},
      {480, true, 14, 0xFFFFFFFFu, 0, 31, "dx = 0 masks the last pixel"},
      {480, true, 14, 1, 0, 0, "the last pixel itself"},
      {256, true, 0, 0x80000000u, 0, 0, "pixel 0 is never compared at dx = 0"},
      {256, true, 0, 0x80000000u, -1, 0, "R displaced: its pixel 0 meets nothing"},
      {256, false, 0, 0x80000000u, -1, 1, "no left margin for negative dx"},
      {256, true, 0, 0xFFFFFFFFu, 20, 12, "dx = +20: R loses its first 20 pixels"},
      {256, false, 1, 0xFFFFFFFFu, 20, 32, "S's first 40 pixels go, 40 .. 63 land on 20 .. 43"},
      {240, false, 7, 0xFFFFFFFFu, -2, 12, "dx = -2: S's last word keeps e + u = 20 bits off"},
      {240, true, 7, 0xFFFFFFFFu, -2, 14, "R's, masked to 14 bits: 2 into word 6, 12 in place"},
      {288, true, 8, 0x80000000u, -1, 1, "no tail: word 7 funnels R's word 8 unmasked"},
      {224, false, 6, 0xFFFFFFFFu, -3, 26, "r = 0: S's last word keeps its top 26 bits"},
      {224, true, 6, 0xFFFFFFFFu, -3, 29, "R's: 3 bits into word 5, 26 in place"},
  };
  for (const auto &c : cases) {
    BitmapPair b(c.width, 3);
    (c.reference ? b.cur(1) : b.moved(1))[c.word] = c.value;
    EXPECT_EQ(b.count(0, c.dx), c.counted) << c.width << ": " << c.why;
  }
  // Width 288 never compares word 8 (pixels 256 .. 287), whatever dx is.
  for (int32_t dx = -31; dx <= 31; ++dx) {
    BitmapPair b(288, 3);
    (dx >= 0 ? b.cur(1) : b.moved(1))[8] = 0xDEADBEEFu;
    EXPECT_EQ(b.count(0, dx), 0) << dx;
  }
}

TEST(XorTwoPyramid, LaneCountersWrapOncePerRow) {
  // 4096 pixels: 31 body blocks and a tail block per row. With every data bit
  // of S set and R clear each lane reaches 256 and wraps to 0, except lane 3
  // (word 0 loses pixel 0) and lane 12 (the last data word loses pixel 4095),
  // which stop at 255: each row counts 510, not 4094.
  const int32_t h = 640;
  BitmapPair b(4096, h);
  for (int32_t y = 0; y < h; ++y) std::fill(b.moved(y), b.moved(y) + 128, 0xFFFFFFFFu);
  EXPECT_EQ(b.count(0, 0), 510 * (h - 2));
}

TEST(XorTwoPyramid, IgnoresPadWordsAndBitsPastTheRowWhenShiftingLeftPastShortEdge) {
  // Negative dx with 0 < w mod 32 <= |dx| (level widths 129/130 with dx = -2):
  // the count leaves the last data word out, so neither the pad word nor any
  // bit past the row's last pixel changes it.
  std::mt19937 rng(4);
  for (int32_t w : {129, 130, 161, 1047}) {
    BitmapPair b(w, 8);
    b.fillRandom(rng);
    const int32_t W = b.words(), r = w % 32;
    for (int32_t dx = -31; dx <= -r; ++dx) {
      const int32_t before = b.count(-1, dx);
      for (int32_t y = 0; y < 8; ++y) {
        for (uint32_t *row : {b.cur(y), b.moved(y)}) {
          row[W - 1] = rng();                // pad word
          row[W - 2] ^= rng() & (~0u >> r);  // pixels past w - 1
        }
      }
      EXPECT_EQ(b.count(-1, dx), before) << "w " << w << " dx " << dx;
    }
  }
}

TEST(XorTwoPyramid, OutsideLayoutScoresZero) {
  std::mt19937 rng(5);
  BitmapPair narrow(128, 8);
  narrow.fillRandom(rng);
  EXPECT_EQ(narrow.count(0, 0), 0);
  BitmapPair b(300, 8);
  b.fillRandom(rng);
  EXPECT_EQ(b.count(0, 32), 0);
  EXPECT_EQ(b.count(0, -32), 0);
  EXPECT_EQ(xorTwoPyramid_New(b.context(), 0, 0, 1, 0, 0), 0);  // no level 1
}

// One level of the search on a real workspace, with the level's bitmaps
// written directly.
class ShiftPyramidTest : public ::testing::Test {
 protected:
  void make(int32_t w, int32_t h, int32_t levels) {
    fixture_ = std::make_unique<AlignFixture>(w, h);
    ctx()->levels = levels;
  }
  AlignContext *ctx() { return fixture_->context(); }
  uint32_t *prevRow(int32_t l, int32_t y) { return ctx()->prevBitmap[l] + y * words(l); }
  uint32_t *curRow(int32_t l, int32_t y) { return ctx()->curBitmap[l] + y * words(l); }
  int32_t words(int32_t l) { return ctx()->levelPitch[l] / 4; }
  // Pixel (x, y) of level l's previous and current bitmaps from two functions.
  template <typename Prev, typename Cur>
  void paint(int32_t l, Prev prev, Cur cur) {
    for (int32_t y = 0; y < ctx()->levelHeight[l]; ++y) {
      for (int32_t x = 0; x < ctx()->levelWidth[l]; ++x) {
        if (prev(x, y)) setBit(prevRow(l, y), x);
        if (cur(x, y)) setBit(curRow(l, y), x);
      }
    }
  }
  std::unique_ptr<AlignFixture> fixture_;
};

// Stripes two pixels wide (or two rows high), moved by two: the negative and
// the positive step both match exactly, and the negative one, tried first,
// wins. Random rows keep every other candidate off (w = 288 has no tail).
TEST_F(ShiftPyramidTest, TiesGoToTheStepTriedFirst) {
  std::mt19937 rng(6);
  std::vector<int> rowBit(24);
  for (int &v : rowBit) v = rng() & 1;
  auto vertical = [&](int32_t x, int32_t y) { return (((x >> 1) & 1) ^ rowBit[y]) != 0; };
  auto horizontal = [](int32_t, int32_t y) { return ((y >> 1) & 1) != 0; };
  make(288, 24, 1);
  paint(
      0, [&](int32_t x, int32_t y) { return vertical(x - 2, y); }, vertical);
  shiftPyramid(ctx(), 0);
  EXPECT_EQ(xorTwoPyramid_New(ctx(), 0, 0, 0, 0, -2), xorTwoPyramid_New(ctx(), 0, 0, 0, 0, 2));
  EXPECT_EQ(ctx()->levelDx[0], -2);
  EXPECT_EQ(ctx()->levelDy[0], 0);
  make(300, 24, 1);
  paint(
      0, [&](int32_t x, int32_t y) { return horizontal(x, y + 2); }, horizontal);
  shiftPyramid(ctx(), 0);
  EXPECT_EQ(xorTwoPyramid_New(ctx(), 0, 0, 0, -2, 0), xorTwoPyramid_New(ctx(), 0, 0, 0, 2, 0));
  EXPECT_EQ(ctx()->levelDx[0], 0);
  EXPECT_EQ(ctx()->levelDy[0], -2);
}

TEST_F(ShiftPyramidTest, FindsEachCandidateOnRandomContent) {
  make(320, 40, 1);
  for (int32_t dy : {0, -2, 2}) {
    for (int32_t dx : {0, -2, 2}) {
      std::mt19937 rng(7);
      std::vector<uint8_t> noise(400 * 60);
      for (auto &v : noise) v = rng() & 1;
      // Previous pixel (x + dx, y + dy) shows what the reference shows at (x, y).
      auto cur = [&](int32_t x, int32_t y) { return noise[(y + 10) * 400 + x + 10] != 0; };
      auto prev = [&](int32_t x, int32_t y) { return cur(x - dx, y - dy); };
      std::fill(ctx()->prevBitmap[0], ctx()->prevBitmap[0] + 41 * words(0), 0u);
      std::fill(ctx()->curBitmap[0], ctx()->curBitmap[0] + 41 * words(0), 0u);
      paint(0, prev, cur);
      shiftPyramid(ctx(), 0);
      EXPECT_EQ(ctx()->levelDx[0], dx) << dy << "," << dx;
      EXPECT_EQ(ctx()->levelDy[0], dy) << dy << "," << dx;
    }
  }
}

TEST_F(ShiftPyramidTest, StoresCumulativeShift) {
  // The coarser level found (1, -1); the previous bitmap is moved by (2, -2)
  // first and (dy, dx) = (0, +2) is best, so level 0 stores 4 and -2.
  make(320, 40, 2);
  std::mt19937 rng(8);
  std::vector<uint8_t> noise(400 * 60);
  for (auto &v : noise) v = rng() & 1;
  auto cur = [&](int32_t x, int32_t y) { return noise[(y + 10) * 400 + x + 10] != 0; };
  paint(
      0, [&](int32_t x, int32_t y) { return cur(x - 4, y + 2); }, cur);
  ctx()->levelDx[1] = 1;
  ctx()->levelDy[1] = -1;
  shiftPyramid(ctx(), 0);
  EXPECT_EQ(ctx()->levelDx[0], 4);
  EXPECT_EQ(ctx()->levelDy[0], -2);
}

// The level's step is the candidate with the lowest xorTwoPyramid_New count,
// the first in the search's order on a tie, whichever way the level is scored:
// default and other steps (up to 16 the nine counts come from three passes,
// beyond from one count each), rows of 32 blocks whose lane counters wrap
// (dense disagreement), and rightward candidates that mask their last body
// block's partner (width 129 with steps of 1 to 3).
TEST_F(ShiftPyramidTest, KeepsTheCandidateWithTheLowestCount) {
  std::mt19937 rng(10);
  const struct {
    int32_t width, height;
    bool dense;
  } levels[] = {{129, 12, false}, {160, 9, false}, {300, 20, false},
                {1000, 7, false}, {4064, 6, true}, {4096, 6, true}};
  for (const auto &lv : levels) {
    for (int32_t step : {2, -2, 1, 3, 16, 17, 31}) {
      make(lv.width, lv.height, 1);
      for (int32_t y = 0; y < lv.height; ++y)
        for (int32_t k = 0; k < words(0); ++k) {
          prevRow(0, y)[k] = lv.dense ? ~0u : rng() & rng();
          curRow(0, y)[k] = lv.dense ? 0u : rng() & rng();
        }
      ctx()->searchStep = step;
      shiftPyramid(ctx(), 0);
      const int32_t offsets[3] = {0, -step, step};
      int32_t best = INT32_MAX, bestDx = 0, bestDy = 0;
      for (int i = 0; i < 9; ++i) {
        const int32_t n = xorTwoPyramid_New(ctx(), 0, 0, 0, offsets[i / 3], offsets[i % 3]);
        if (n < best) {
          best = n;
          bestDy = offsets[i / 3];
          bestDx = offsets[i % 3];
        }
      }
      EXPECT_EQ(ctx()->levelDx[0], bestDx) << lv.width << " step " << step;
      EXPECT_EQ(ctx()->levelDy[0], bestDy) << lv.width << " step " << step;
    }
  }
}

}  // namespace
