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

// A pixel of a word survives an AND with all-ones << e when it lies in the
// word's first 32 - e pixels (none once e reaches 32).
bool keptByLeftShiftedMask(int32_t q, int32_t e) { return q <= 31 - e; }

int32_t edgeShiftPositive(int32_t r, int32_t u) { return r <= u ? u : u + 32 - r; }
int32_t edgeShiftNegative(int32_t r, int32_t u) { return r == 0 ? u : u + 32 - r; }

// Whether reference pixel x of a row pair is counted as a disagreement, decided
// pixel by pixel from the counting rules: which pixels each side loses to the
// left margin and the edge masks, and which partner the displaced side reads.
bool referenceDiffers(const uint32_t *R, const uint32_t *S, int32_t w, int32_t dx, int32_t x) {
  const int32_t W = (w + 63) >> 5, r = w % 32, u = std::abs(dx), t = (W - 6) % 4;
  const int32_t last = W - 2, k = x / 32, q = x % 32;
  const bool tail = t != 0 && k >= last - t;
  const int32_t xs = x + u;  // the displaced side's pixel that lands on x
  if (dx == 0) {
    if (x == 0) return false;
    if (k == last && !keptByLeftShiftedMask(q, r == 0 ? 1 : 33 - r)) return false;
    return bitAt(S, x) != bitAt(R, x);
  }
  if (dx > 0) {
    if (k == last) return bitAt(R, x) && keptByLeftShiftedMask(q, edgeShiftPositive(r, u));
    const int rBit = k == 0 && q < u ? 0 : bitAt(R, x);
    int sBit = bitAt(S, xs);
    if (k == 0 && xs < 32 && xs < 2 * u) sBit = 0;           // S's first 2u pixels
    if (tail && k == last - 1 && xs >= 32 * last) sBit = 0;  // zero partner
    return rBit != sBit;
  }
  const int32_t e = edgeShiftNegative(r, u);
  // R's last data word enters masked wherever it is read in the tail; with
  // 0 < r <= u also where the body reads it.
  const bool maskedPartner = tail || (r != 0 && r <= u);
  int rBit;
  if (maskedPartner && xs >= 32 * last) {
    rBit = xs < 32 * (last + 1) && bitAt(R, xs) && keptByLeftShiftedMask(xs - 32 * last, e);
  } else {
    rBit = bitAt(R, xs);
  }
  int sBit = bitAt(S, x);
  if (k == last) sBit = sBit && keptByLeftShiftedMask(q, e + u) && keptByLeftShiftedMask(q, u);
  return rBit != sBit;
}

// The whole count: rows inside the margin, every compared word (the last data
// word only when there is a tail), each disagreement added to the 8-bit lane of
// its byte (byte b of word k is lane 4 (k mod 4) + b) and the lanes summed per row.
int32_t referenceCount(const BitmapPair &b, int32_t dy, int32_t dx) {
  const int32_t w = b.width(), h = b.height(), W = b.words();
  const int32_t last = W - 2, t = (W - 6) % 4;
  const int32_t m = dy == 0 ? 1 : std::abs(dy);
  uint32_t total = 0;
  for (int32_t y = m; y < h - m; ++y) {
    uint8_t lanes[16] = {};
    const int32_t end = 32 * (t == 0 ? last : last + 1);
    for (int32_t x = 0; x < end; ++x) {
      if (referenceDiffers(b.cur(y), b.moved(y + dy), w, dx, x)) {
        ++lanes[4 * ((x / 32) % 4) + (31 - x % 32) / 8];
      }
    }
    for (uint8_t lane : lanes) total += lane;
  }
  return static_cast<int32_t>(total);
}

TEST(XorTwoPyramid, IdenticalBitmapsScoreZero) {
  std::mt19937 rng(1);
  BitmapPair b(333, 20);
  b.fillRandom(rng);
  for (int32_t y = 0; y < 20; ++y) std::copy(b.cur(y), b.cur(y) + b.words(), b.moved(y));
  EXPECT_EQ(b.count(0, 0), 0);
  EXPECT_GT(b.count(0, 2), 0);
  EXPECT_GT(b.count(-2, 0), 0);
}

TEST(XorTwoPyramid, MarginDropsRowsAtBothEnds) {
  const int32_t h = 12;
  BitmapPair b(200, h);
  auto countWithReferenceBitInRow = [&](int32_t y, int32_t dy) {
    b.clear();
    setBit(b.cur(y), 40);
    return b.count(dy, 0);
  };
  // dy = 0 visits rows 1 .. h - 2.
  EXPECT_EQ(countWithReferenceBitInRow(0, 0), 0);
  EXPECT_EQ(countWithReferenceBitInRow(1, 0), 1);
  EXPECT_EQ(countWithReferenceBitInRow(h - 2, 0), 1);
  EXPECT_EQ(countWithReferenceBitInRow(h - 1, 0), 0);
  // dy = -2 and dy = +2 both visit rows 2 .. h - 3.
  for (int32_t dy : {-2, 2}) {
    EXPECT_EQ(countWithReferenceBitInRow(1, dy), 0) << dy;
    EXPECT_EQ(countWithReferenceBitInRow(2, dy), 1) << dy;
    EXPECT_EQ(countWithReferenceBitInRow(h - 3, dy), 1) << dy;
    EXPECT_EQ(countWithReferenceBitInRow(h - 2, dy), 0) << dy;
  }
  // Reference row y meets previous row y + dy.
  b.clear();
  setBit(b.moved(7), 40);
  EXPECT_EQ(b.count(2, 0), 1);   // reference row 5
  EXPECT_EQ(b.count(-2, 0), 1);  // reference row 9 = h - 3
  EXPECT_EQ(b.count(-3, 0), 0);  // reference row 10 lies in the margin
}

TEST(XorTwoPyramid, EmptyRowRangeScoresZero) {
  std::mt19937 rng(2);
  BitmapPair b(160, 4);
  b.fillRandom(rng);
  EXPECT_EQ(b.count(2, 0), 0);
  EXPECT_EQ(b.count(-2, 2), 0);
  EXPECT_GT(b.count(1, 0), 0);
}

TEST(XorTwoPyramid, Width240PositiveShiftCountsTopOfLastReferenceWord) {
  // W = 9, t = 3: words 0..3 are the body, 4..6 the tail, 7 the last data word,
  // which with dx = +2 counts only R's top 14 bits and never S.
  BitmapPair b(240, 3);
  b.cur(1)[7] = 0xFFFFFFFFu;
  EXPECT_EQ(b.count(0, 2), 14);
  b.cur(1)[7] = 0x00040000u;  // pixel 237, the last kept one
  EXPECT_EQ(b.count(0, 2), 1);
  b.cur(1)[7] = 0x00020000u;  // pixel 238
  EXPECT_EQ(b.count(0, 2), 0);
  b.clear();
  b.moved(1)[7] = 0xFFFFFFFFu;  // S's last data word only feeds word 6, which has a zero partner
  EXPECT_EQ(b.count(0, 2), 0);
}

TEST(XorTwoPyramid, Width288NeverComparesLastDataWord) {
  // W = 10, t = 0: word 8 (pixels 256..287) is never a compared position.
  BitmapPair b(288, 3);
  for (int32_t dx = -31; dx <= 31; ++dx) {
    b.clear();
    b.cur(1)[8] = 0xDEADBEEFu;
    if (dx >= 0) {
      EXPECT_EQ(b.count(0, dx), 0) << dx;
    }
    b.clear();
    b.moved(1)[8] = 0xDEADBEEFu;
    if (dx <= 0) {
      EXPECT_EQ(b.count(0, dx), 0) << dx;
    }
  }
  // The body's last word still takes S's low bits from word 8 when dx > 0.
  EXPECT_EQ(b.count(0, 0), 0);
  b.clear();
  b.moved(1)[8] = 0x80000000u;  // pixel 256 lands on 255 with dx = +1
  EXPECT_EQ(b.count(0, 1), 1);
}

TEST(XorTwoPyramid, Width480ZeroShiftMasksLastPixel) {
  // r = 0, W = 16, t = 2: word 14 of both rows is ANDed with 0xFFFFFFFE.
  BitmapPair b(480, 3);
  b.cur(1)[14] = 0xFFFFFFFFu;
  EXPECT_EQ(b.count(0, 0), 31);
  b.cur(1)[14] = 1;
  EXPECT_EQ(b.count(0, 0), 0);
}

TEST(XorTwoPyramid, FirstPixelsLostToWordZeroMasks) {
  BitmapPair b(256, 3);
  b.cur(1)[0] = 0x80000000u;  // pixel 0: never compared at dx = 0, compared for dx < 0
  EXPECT_EQ(b.count(0, 0), 0);
  EXPECT_EQ(b.count(0, -1), 0);  // R displaced: pixel 0 of R meets nothing
  b.clear();
  b.moved(1)[0] = 0x80000000u;
  EXPECT_EQ(b.count(0, -1), 1);  // no left margin for negative dx
  // dx = +20: S loses its first 40 pixels (all of word 0), R its first 20, so
  // R's pixels 20..31 and S's pixels 32..51 (landing on 12..31) still count.
  b.clear();
  b.cur(1)[0] = 0xFFFFFFFFu;
  EXPECT_EQ(b.count(0, 20), 12);
  b.clear();
  b.moved(1)[1] = 0xFFFFFFFFu;
  EXPECT_EQ(b.count(0, 20), 32);  // pixels 32..51 land on 12..31, 52..63 on 32..43
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
  EXPECT_EQ(b.count(0, 0), referenceCount(b, 0, 0));
}

TEST(XorTwoPyramid, MatchesPixelReference) {
  std::mt19937 rng(3);
  std::vector<int32_t> widths;
  for (int32_t w = 129; w <= 170; ++w) widths.push_back(w);
  for (int32_t w : {224, 225, 240, 256, 257, 258, 288, 289, 320, 479, 480, 511, 1000, 1987}) {
    widths.push_back(w);
  }
  for (int32_t w : widths) {
    BitmapPair b(w, 9);
    b.fillRandom(rng);
    for (int32_t dy : {0, -1, 2, -3}) {
      for (int32_t dx = -31; dx <= 31; ++dx) {
        ASSERT_EQ(b.count(dy, dx), referenceCount(b, dy, dx))
            << "w " << w << " dy " << dy << " dx " << dx;
      }
    }
  }
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
    std::vector<uint8_t> grey(size_t(w) * h, 0);
    fixture_->load(grey, grey);
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

TEST_F(ShiftPyramidTest, AllScoresEqualKeepsZero) {
  make(288, 24, 1);
  ctx()->levelDx[0] = ctx()->levelDy[0] = 7;
  shiftPyramid(ctx(), 0);  // all-zero bitmaps: nine scores of 0
  EXPECT_EQ(ctx()->levelDx[0], 0);
  EXPECT_EQ(ctx()->levelDy[0], 0);
}

TEST_F(ShiftPyramidTest, HorizontalTieGoesToNegativeStep) {
  // Vertical stripes two pixels wide, moved by two pixels: dx = -2 and dx = +2
  // both match exactly (w = 288 has no tail). Random rows keep every dy != 0 off.
  make(288, 24, 1);
  std::mt19937 rng(6);
  std::vector<int> rowBit(24);
  for (int &v : rowBit) v = rng() & 1;
  auto stripe = [&](int32_t x, int32_t y) { return (((x >> 1) & 1) ^ rowBit[y]) != 0; };
  paint(
      0, [&](int32_t x, int32_t y) { return stripe(x - 2, y); }, stripe);
  shiftPyramid(ctx(), 0);
  EXPECT_EQ(xorTwoPyramid_New(ctx(), 0, 0, 0, 0, -2), 0);
  EXPECT_EQ(xorTwoPyramid_New(ctx(), 0, 0, 0, 0, 2), 0);
  EXPECT_EQ(ctx()->levelDx[0], -2);
  EXPECT_EQ(ctx()->levelDy[0], 0);
}

TEST_F(ShiftPyramidTest, VerticalTieGoesToNegativeStep) {
  // Horizontal stripes two rows high, moved by two rows: dy = -2 and dy = +2
  // both score 0 and (dy, dx) = (-2, 0) is tried first.
  make(300, 24, 1);
  auto stripe = [](int32_t, int32_t y) { return ((y >> 1) & 1) != 0; };
  paint(
      0, [&](int32_t x, int32_t y) { return stripe(x, y + 2); }, stripe);
  shiftPyramid(ctx(), 0);
  EXPECT_EQ(xorTwoPyramid_New(ctx(), 0, 0, 0, -2, 0), 0);
  EXPECT_EQ(xorTwoPyramid_New(ctx(), 0, 0, 0, 2, 0), 0);
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

TEST_F(ShiftPyramidTest, IdenticalPyramidsKeepZeroAtEveryLevel) {
  make(1032, 64, 4);
  std::mt19937 rng(9);
  for (int32_t l = 0; l < 4; ++l) {
    for (int32_t y = 0; y < ctx()->levelHeight[l]; ++y) {
      for (int32_t k = 0; k < words(l) - 1; ++k) prevRow(l, y)[k] = curRow(l, y)[k] = rng();
    }
  }
  for (int32_t l = 3; l >= 0; --l) {
    shiftPyramid(ctx(), l);
    EXPECT_EQ(ctx()->levelDx[l], 0) << l;
    EXPECT_EQ(ctx()->levelDy[l], 0) << l;
  }
}

}  // namespace
