// The level-0 threshold bitmaps (bit layout, block rules, thresholds and the
// brighter-frame result, against hand-computed words), the pyramid's plain
// decimation and the moves of a level's bitmap (the coarsest copy, vertical
// moves, the leftward funnel with its edge rules and exact rightward moves),
// checked against hand-worked words and pixel-by-pixel statements of the rules.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "align_fixture.h"
#include "videohdr.h"

namespace {

using Words = std::vector<uint32_t>;
constexpr uint32_t kAll = 0xFFFFFFFFu;

int32_t wordsPerRow(int32_t w) { return (w + 63) >> 5; }

// A grey image of w x h bytes.
struct Image {
  Image(int32_t width, int32_t height, uint8_t fill)
      : w(width), pixels(static_cast<size_t>(width) * height, fill) {}
  Image &set(int32_t x, int32_t y, uint8_t value) {
    pixels[static_cast<size_t>(y) * w + x] = value;
    return *this;
  }
  int32_t w;
  std::vector<uint8_t> pixels;
};

class ThreshBitmapTest : public ::testing::Test {
 protected:
  // Loads both frames into a fresh context and makes their bitmaps.
  int32_t run(const Image &prev, const Image &cur, int32_t maxThreshold = 240,
              int32_t minThreshold = 10) {
    const int32_t h = static_cast<int32_t>(prev.pixels.size() / prev.w);
    fixture_ = std::make_unique<AlignFixture>(prev.w, h);
    fixture_->load(prev.pixels, cur.pixels);
    return ThreshBitmap(ctx(), maxThreshold, minThreshold);
  }
  // Both clamps at 100: a pixel's bit is simply "value > 100".
  int32_t runAt100(const Image &prev, const Image &cur) { return run(prev, cur, 100, 100); }

  AlignContext *ctx() { return fixture_->context(); }
  Words row(const uint32_t *bitmap, int32_t y) {
    const int32_t W = wordsPerRow(ctx()->width);
    return Words(bitmap + y * W, bitmap + (y + 1) * W);
  }
  Words prevRow(int32_t y) { return row(ctx()->prevBitmap[0], y); }
  Words curRow(int32_t y) { return row(ctx()->curBitmap[0], y); }

  std::unique_ptr<AlignFixture> fixture_;
};

TEST_F(ThreshBitmapTest, Width100PacksThreeWholeWordsAndATail) {
  Image prev(100, 2, 0);
  for (int32_t x : {0, 31, 32, 63, 64, 95, 96, 99}) prev.set(x, 0, 200);
  for (int32_t x : {1, 30, 97, 98}) prev.set(x, 1, 200);
  Image cur(100, 2, 200);
  runAt100(prev, cur);
  EXPECT_EQ(prevRow(0), (Words{0x80000001, 0x80000001, 0x80000001, 0x90000000, 0}));
  EXPECT_EQ(prevRow(1), (Words{0x40000002, 0, 0, 0x60000000, 0}));
  EXPECT_EQ(curRow(0), (Words{kAll, kAll, kAll, 0xF0000000, 0}));
  EXPECT_EQ(curRow(1), curRow(0));
}

TEST_F(ThreshBitmapTest, AllBrightRowsFollowTheBlockLayout) {
  struct Case {
    int32_t width;
    Words words;
  };
  const Case cases[] = {
      // Multiple of 32: only word 0 is computed, word 1 stays clear.
      {64, {kAll, 0, 0}},
      // The narrowest width with a block: word 0, then a 1-pixel tail word.
      {33, {kAll, 0x80000000, 0}},
      // Words 0..6 whole, word 7 the 16-pixel tail.
      {240, {kAll, kAll, kAll, kAll, kAll, kAll, kAll, 0xFFFF0000, 0}},
      // Words 0..7 whole, word 8 the 1-pixel tail.
      {257, {kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, 0x80000000, 0}},
      // Multiple of 32: pixels 256..287 (word 8) are never computed.
      {288, {kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, 0, 0}},
      {480,
       {kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, kAll, 0, 0}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.width);
    Image bright(c.width, 3, 200);
    runAt100(bright, bright);
    for (int32_t y = 0; y < 3; ++y) {
      EXPECT_EQ(prevRow(y), c.words);
      EXPECT_EQ(curRow(y), c.words);
    }
  }
}

// With a tail word and with a blocked last word.
TEST_F(ThreshBitmapTest, ClearsTheRowsButNotTheSpareRow) {
  for (int32_t w : {100, 64}) {
    Image dark(w, 4, 0);
    dark.set(5, 2, 200);
    fixture_ = std::make_unique<AlignFixture>(w, 4);
    fixture_->load(dark.pixels, dark.pixels);
    const int32_t W = wordsPerRow(w);
    // Leftovers of an earlier frame in every word, spare row included.
    for (int32_t i = 0; i < W * 5; ++i)
      ctx()->prevBitmap[0][i] = ctx()->curBitmap[0][i] = 0xA5A5A5A5;
    ThreshBitmap(ctx(), 100, 100);
    for (int32_t y = 0; y < 4; ++y) {
      Words expected(W, 0);
      if (y == 2) expected[0] = 0x04000000u;
      EXPECT_EQ(prevRow(y), expected) << w;
      EXPECT_EQ(curRow(y), prevRow(y)) << w;
    }
    EXPECT_EQ(prevRow(4), Words(W, 0xA5A5A5A5)) << w;
    EXPECT_EQ(curRow(4), Words(W, 0xA5A5A5A5)) << w;
  }
}

TEST_F(ThreshBitmapTest, MeanIsClampedToTheThresholdRange) {
  // Dark: mean 21 / 128 = 0, raised to 10; a pixel equal to it stays clear.
  Image dark(64, 2, 0);
  dark.set(3, 0, 10).set(4, 0, 11);
  // Bright: mean (126 * 250 + 240 + 241) / 128 = 249, lowered to 240.
  Image bright(64, 2, 250);
  bright.set(0, 1, 240).set(1, 1, 241);
  run(dark, bright);
  EXPECT_EQ(prevRow(0), (Words{0x08000000, 0, 0}));
  EXPECT_EQ(prevRow(1), (Words{0, 0, 0}));
  EXPECT_EQ(curRow(1), (Words{0x7FFFFFFF, 0, 0}));
}

TEST_F(ThreshBitmapTest, EachFrameUsesItsOwnMean) {
  // Means 100 and 50: the pixel of 75 is clear in the brighter frame only.
  Image prev(64, 2, 100);
  prev.set(0, 0, 75).set(1, 0, 125);
  Image cur(64, 2, 50);
  cur.set(0, 0, 75).set(1, 0, 25);
  run(prev, cur);
  EXPECT_EQ(prevRow(0)[0], 0x40000000u);
  EXPECT_EQ(curRow(0)[0], 0x80000000u);
}

TEST_F(ThreshBitmapTest, RowSumLanesWrapInRowsWiderThan2056Pixels) {
  // Width 4096: each of the eight 16-bit lanes adds 512 bytes per row.
  //   prev = 200: 512 * 200 = 102400 wraps to 36864; 8 lanes give 294912 per
  //               row, 589824 for both rows, mean 589824 / 8192 = 72.
  //   cur = 120:  512 * 120 = 61440 fits; 491520 per row, mean 120.
  Image prev(4096, 2, 200);
  Image cur(4096, 2, 120);
  // The previous frame is brighter, but its wrapped sum is the smaller one.
  EXPECT_EQ(run(prev, cur), 0);
  // 200 > 72: every computed bit set (the last 32 columns never are);
  // 120 > 120 fails: no bit.
  Words prevExpected(129, kAll);
  prevExpected[127] = 0;
  prevExpected[128] = 0;
  for (int32_t y = 0; y < 2; ++y) {
    EXPECT_EQ(prevRow(y), prevExpected);
    EXPECT_EQ(curRow(y), Words(129, 0));
  }
}

TEST_F(ThreshBitmapTest, SumsCountTheBytesPastEachRowEnd) {
  // Width 100: the last group of 8 of a row (x = 96) takes 4 bytes past its
  // end: row 0 takes row 1's pixels 0..3, row 1 the first 4 bytes after the
  // image, which are the next workspace region's.
  Image prev(100, 2, 0);
  for (int32_t x = 0; x < 4; ++x) prev.set(x, 1, 250);
  prev.set(10, 0, 7).set(20, 0, 12).set(30, 0, 16);
  Image cur(100, 2, 0);
  fixture_ = std::make_unique<AlignFixture>(100, 2);
  fixture_->load(prev.pixels, cur.pixels);
  uint8_t *afterImage = ctx()->prevImage[0] + 200;
  for (int32_t i = 0; i < 4; ++i) afterImage[i] = 250;
  // Sum = 1000 (row 1) + 1000 (row 0's extra) + 1000 (row 1's extra)
  //       + 7 + 12 + 16 = 3035; threshold 3035 / 200 = 15. Without the extra
  // bytes it would be 5 (pixels 7, 12 and 16 all set), without the last row's
  // 10 (pixels 12 and 16 set).
  ThreshBitmap(ctx(), 240, 0);
  EXPECT_EQ(prevRow(0), (Words{0x00000002, 0, 0, 0, 0}));
  EXPECT_EQ(prevRow(1), (Words{0xF0000000, 0, 0, 0, 0}));
}

TEST_F(ThreshBitmapTest, ExtraBytesDecideTheResult) {
  // prev: 4 bytes of 250 at the start of row 1, counted twice: 2000.
  // cur: 5 bytes of 255 inside row 1: 1275.
  Image prev(100, 2, 0);
  for (int32_t x = 0; x < 4; ++x) prev.set(x, 1, 250);
  Image cur(100, 2, 0);
  for (int32_t x = 40; x < 45; ++x) cur.set(x, 1, 255);
  EXPECT_EQ(run(prev, cur), 1);
}

TEST_F(ThreshBitmapTest, NarrowRowsStoreEveryTailInWordOneOfRowZero) {
  Image prev(20, 3, 0);
  prev.set(0, 0, 200).set(1, 1, 200).set(2, 2, 200).set(19, 2, 200);
  runAt100(prev, prev);
  // Only the last row's tail remains: pixels 2 and 19.
  EXPECT_EQ(prevRow(0), (Words{0, 0x20001000}));
  EXPECT_EQ(prevRow(1), (Words{0, 0}));
  EXPECT_EQ(prevRow(2), (Words{0, 0}));

  // One pixel: its tail goes to word 1 too, and the sums are those of the
  // pixel and the bytes after it (here 0).
  Image one(1, 1, 200), dark(1, 1, 0);
  EXPECT_EQ(runAt100(one, dark), 1);
  EXPECT_EQ(prevRow(0), (Words{0, 0x80000000}));

  // Width 32: no block and no tail, nothing is set.
  Image bright(32, 3, 200);
  runAt100(bright, bright);
  for (int32_t y = 0; y < 3; ++y) EXPECT_EQ(prevRow(y), (Words{0, 0}));
}

constexpr uint32_t kUntouched = 0x5A5A5A5Au;

int32_t wordsPerRow(AlignContext *ctx, int32_t level) { return ctx->levelPitch[level] / 4; }

int pixel(const uint32_t *bitmap, int32_t words, int32_t x, int32_t y) {
  return (bitmap[y * words + x / 32] >> (31 - x % 32)) & 1;
}

// Fills a level's whole region (its rows and the spare row) with one word.
void fillRegion(AlignContext *ctx, uint32_t *bitmap, int32_t level, uint32_t value) {
  const int32_t n = wordsPerRow(ctx, level) * (ctx->height + 1);
  for (int32_t i = 0; i < n; ++i) bitmap[i] = value;
}

void fillRandom(AlignContext *ctx, uint32_t *bitmap, int32_t level, std::mt19937 &rng) {
  const int32_t n = wordsPerRow(ctx, level) * (ctx->height + 1);
  for (int32_t i = 0; i < n; ++i) bitmap[i] = rng();
}

TEST(BitmapPyramid, EveryLevelPixelIsTheEvenPixelBelowIt) {
  std::mt19937 rng(7);
  for (int32_t w : {64, 100, 129, 257, 300, 517, 1032, 1100}) {
    for (int32_t h : {8, 13}) {
      SCOPED_TRACE(testing::Message() << w << " x " << h);
      AlignFixture fx(w, h);
      AlignContext *ctx = fx.context();
      fillRandom(ctx, ctx->prevBitmap[0], 0, rng);
      fillRandom(ctx, ctx->curBitmap[0], 0, rng);
      for (int32_t l = 1; l < 4; ++l) {
        fillRegion(ctx, ctx->prevBitmap[l], l, kUntouched);
        fillRegion(ctx, ctx->curBitmap[l], l, kUntouched);
        buildGaussianPyramid(ctx, l);
        const int32_t below = wordsPerRow(ctx, l - 1);
        const int32_t words = wordsPerRow(ctx, l);
        const int32_t rows = ctx->levelHeight[l - 1] / 2;
        for (uint32_t **pyramid : {ctx->prevBitmap, ctx->curBitmap}) {
          const uint32_t *src = pyramid[l - 1];
          const uint32_t *dst = pyramid[l];
          for (int32_t y = 0; y < rows; ++y) {
            // Every pixel of the data words, past the level's width too.
            for (int32_t x = 0; x < 32 * (words - 1); ++x)
              ASSERT_EQ(pixel(dst, words, x, y), pixel(src, below, 2 * x, 2 * y))
                  << "level " << l << " pixel " << x << ", " << y;
            EXPECT_EQ(dst[y * words + words - 1], kUntouched) << "pad word, row " << y;
          }
          for (int32_t i = rows * words; i < (ctx->height + 1) * words; ++i)
            ASSERT_EQ(dst[i], kUntouched) << "word " << i << " past the level's rows";
        }
      }
    }
  }
}

TEST(BitmapPyramid, LevelsWithoutRowsOrColumnsBelowAreLeftAlone) {
  // Height 2: level 1 has one row, so level 2 is not made.
  AlignFixture shallow(256, 2);
  AlignContext *ctx = shallow.context();
  fillRegion(ctx, ctx->prevBitmap[0], 0, 0xFFFFFFFF);
  fillRegion(ctx, ctx->prevBitmap[2], 2, kUntouched);
  fillRegion(ctx, ctx->curBitmap[2], 2, kUntouched);
  buildGaussianPyramid(ctx, 1);
  buildGaussianPyramid(ctx, 2);
  EXPECT_EQ(ctx->prevBitmap[1][0], 0xFFFFFFFFu);
  for (int32_t i = 0; i < wordsPerRow(ctx, 2) * 3; ++i) {
    ASSERT_EQ(ctx->prevBitmap[2][i], kUntouched) << i;
    ASSERT_EQ(ctx->curBitmap[2][i], kUntouched) << i;
  }

  // Width 3: level 1 has one column, pixel 0 of each even row.
  AlignFixture three(3, 4);
  ctx = three.context();
  ctx->prevBitmap[0][0] = 0x20000000;                        // row 0: pixel 2 only
  ctx->prevBitmap[0][2 * wordsPerRow(ctx, 0)] = 0x80000000;  // row 2: pixel 0
  buildGaussianPyramid(ctx, 1);
  EXPECT_EQ(ctx->prevBitmap[1][0], 0x40000000u);
  EXPECT_EQ(ctx->prevBitmap[1][wordsPerRow(ctx, 1)], 0x80000000u);

  // Width 1: level 1 has no columns.
  AlignFixture narrow(1, 8);
  ctx = narrow.context();
  fillRegion(ctx, ctx->prevBitmap[1], 1, kUntouched);
  buildGaussianPyramid(ctx, 1);
  for (int32_t i = 0; i < wordsPerRow(ctx, 1) * 9; ++i)
    ASSERT_EQ(ctx->prevBitmap[1][i], kUntouched) << i;
}

int pixel(const uint32_t *row, int32_t x) { return (row[x / 32] >> (31 - x % 32)) & 1; }

// A context whose previous-frame bitmap of `level` holds random words in all
// its rows, pad words and spare row, and whose moved bitmap holds other ones.
class ShiftDataTest : public ::testing::Test {
 protected:
  void prepare(int32_t w, int32_t h, int32_t level = 0) {
    fixture_ = std::make_unique<AlignFixture>(w, h);
    level_ = level;
    source_.assign(regionWords(), 0);
    for (uint32_t &word : source_) word = rng_();
    std::memcpy(ctx()->prevBitmap[level], source_.data(), source_.size() * 4);
    for (size_t i = 0; i < source_.size(); ++i) ctx()->movedBitmap[level][i] = rng_();
  }
  // Moves by (sx, sy); both even, as twice the coarser level's shift.
  void move(int32_t sx, int32_t sy) {
    ctx()->levelDx[level_ + 1] = sx / 2;
    ctx()->levelDy[level_ + 1] = sy / 2;
    shiftData(ctx(), level_);
  }

  AlignContext *ctx() { return fixture_->context(); }
  int32_t width() { return ctx()->levelWidth[level_]; }
  int32_t height() { return ctx()->levelHeight[level_]; }
  int32_t words() { return ctx()->levelPitch[level_] / 4; }
  size_t regionWords() { return static_cast<size_t>(words()) * (height() + 1); }
  const uint32_t *sourceRow(int32_t y) { return source_.data() + y * words(); }
  Words movedRow(int32_t y) {
    const uint32_t *row = ctx()->movedBitmap[level_] + y * words();
    return Words(row, row + words());
  }
  // Expects every row, spare row included: rows whose source row y + sy lies
  // in the level follow `rule` (destination pixel x from a source row), the
  // others are 0.
  void expectRows(int32_t sy, const std::function<int(const uint32_t *, int32_t)> &rule) {
    for (int32_t y = 0; y <= height(); ++y) {
      const bool moved = y < height() && y + sy >= 0 && y + sy < height();
      Words expected(words(), 0);
      for (int32_t x = 0; moved && x < 32 * words(); ++x)
        expected[x / 32] |= uint32_t(rule(sourceRow(y + sy), x)) << (31 - x % 32);
      ASSERT_EQ(movedRow(y), expected) << "row " << y;
    }
  }

  std::unique_ptr<AlignFixture> fixture_;
  int32_t level_ = 0;
  Words source_;
  std::mt19937 rng_{20240530};
};

TEST_F(ShiftDataTest, CoarsestLevelIsCopiedByteForByte) {
  prepare(1100, 40, 3);
  shiftData(ctx(), 3);
  EXPECT_EQ(std::memcmp(ctx()->movedBitmap[3], source_.data(), source_.size() * 4), 0);
}

TEST_F(ShiftDataTest, VerticalMovesCopyDataWordsAndClearTheRest) {
  // Height 30: sy = 4 fills rows 0..25 from rows 4..29, sy = -4 fills rows
  // 4..29 from rows 0..25, and sy = 30 none; all other rows, the spare row
  // and every pad word are 0.
  prepare(256, 30);
  for (int32_t sy : {4, -4, 30}) {
    SCOPED_TRACE(sy);
    move(0, sy);
    expectRows(sy, [&](const uint32_t *src, int32_t x) {
      return x < 32 * (words() - 1) ? pixel(src, x) : 0;
    });
  }
}

TEST_F(ShiftDataTest, LeftMovesFollowTheFunnelRuleAtEveryWidth) {
  for (int32_t w = 1; w <= 300; ++w) {
    prepare(w, 3);
    const int32_t W = words();
    for (int32_t sx = 2; sx < 32; sx += 2) {
      SCOPED_TRACE(testing::Message() << "width " << w << " sx " << sx);
      move(sx, 0);
      const int32_t r = w % 32;
      const int32_t funnelled = W - (r > 0 && r <= sx ? 3 : 2);
      // Words before W - k take pixel x + sx; word W - k only when the
      // funnelled words end in a partial block, and only from its own bits.
      expectRows(0, [&](const uint32_t *src, int32_t x) {
        const int32_t word = x / 32;
        if (word < funnelled) return pixel(src, x + sx);
        if (word == funnelled && funnelled % 4 != 0 && x % 32 + sx < 32) return pixel(src, x + sx);
        return 0;
      });
    }
  }
}

TEST_F(ShiftDataTest, RightMovesAreExactAtEveryWidthAndShift) {
  std::vector<int32_t> widths;
  for (int32_t w = 1; w <= 300; ++w) widths.push_back(w);
  for (int32_t w : {513, 1032, 1055, 1100}) widths.push_back(w);
  for (int32_t w : widths) {
    prepare(w, 3);
    const int32_t dataPixels = 32 * (words() - 1);
    for (int32_t u = 2; u < 32; u += 2) {
      SCOPED_TRACE(testing::Message() << "width " << w << " shift " << u);
      move(-u, 0);
      // The first u pixels are 0, pixel x takes x - u, nothing at or past the
      // width, and the pad word is 0; source bits past the width never count.
      expectRows(0, [&](const uint32_t *src, int32_t x) {
        return x < dataPixels && x >= u && x < w ? pixel(src, x - u) : 0;
      });
    }
  }
}

TEST_F(ShiftDataTest, CombinedMovesOnAFinerLevel) {
  // Level 1 of a 600 x 40 frame: 300 x 20.
  prepare(600, 40, 1);
  const int32_t w = width();
  move(-6, 2);
  expectRows(2, [&](const uint32_t *src, int32_t x) {
    return x < 32 * (words() - 1) && x >= 6 && x < w ? pixel(src, x - 6) : 0;
  });
  // W = 11, r = 12 > 6: k = 2, t = 1; word 9 is M[9] << 6.
  move(6, -2);
  expectRows(-2, [&](const uint32_t *src, int32_t x) {
    return x < 288 || (x < 320 && x % 32 < 26) ? pixel(src, x + 6) : 0;
  });
}

TEST_F(ShiftDataTest, HorizontalMovesOfAWholeWordLeaveAllClear) {
  prepare(300, 4);
  for (int32_t sx : {32, -32, 40}) {
    move(sx, 0);
    for (int32_t y = 0; y <= 4; ++y) ASSERT_EQ(movedRow(y), Words(words(), 0)) << sx;
  }
}

}  // namespace
