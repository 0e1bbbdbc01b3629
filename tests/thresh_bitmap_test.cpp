// Threshold bitmaps: bit layout, block rules, thresholds and the brighter-frame
// result, against hand-computed words.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
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

TEST_F(ThreshBitmapTest, Width257KeepsItsLastPixelInTheTailWord) {
  Image prev(257, 1, 0);
  prev.set(255, 0, 200).set(256, 0, 200);
  runAt100(prev, prev);
  const Words expected{0, 0, 0, 0, 0, 0, 0, 0x00000001, 0x80000000, 0};
  EXPECT_EQ(prevRow(0), expected);
}

TEST_F(ThreshBitmapTest, ClearsTheRowsButNotTheSpareRow) {
  Image dark(100, 4, 0);
  dark.set(5, 2, 200);
  fixture_ = std::make_unique<AlignFixture>(100, 4);
  fixture_->load(dark.pixels, dark.pixels);
  const int32_t W = wordsPerRow(100);
  // Leftovers of an earlier frame in every word, spare row included.
  for (int32_t i = 0; i < W * 5; ++i) ctx()->prevBitmap[0][i] = 0xA5A5A5A5;
  ThreshBitmap(ctx(), 100, 100);
  for (int32_t y = 0; y < 4; ++y)
    EXPECT_EQ(prevRow(y), (Words{y == 2 ? 0x04000000u : 0, 0, 0, 0, 0}));
  EXPECT_EQ(prevRow(4), Words(W, 0xA5A5A5A5));
}

TEST_F(ThreshBitmapTest, AllBlackPairGivesNoBitsAndResultZero) {
  Image black(96, 4, 0);
  EXPECT_EQ(run(black, black), 0);
  for (int32_t y = 0; y < 4; ++y) {
    EXPECT_EQ(prevRow(y), Words(4, 0));
    EXPECT_EQ(curRow(y), Words(4, 0));
  }
}

TEST_F(ThreshBitmapTest, AllWhitePairSetsEveryComputedBitAndResultZero) {
  Image white96(96, 3, 255);
  EXPECT_EQ(run(white96, white96), 0);  // equal sums
  // Threshold 240: every pixel is set, except that the last 32 columns of a
  // width that is a multiple of 32 are never computed.
  for (int32_t y = 0; y < 3; ++y) EXPECT_EQ(prevRow(y), (Words{kAll, kAll, 0, 0}));
  Image white100(100, 3, 255);
  EXPECT_EQ(run(white100, white100), 0);
  for (int32_t y = 0; y < 3; ++y) EXPECT_EQ(curRow(y), (Words{kAll, kAll, kAll, 0xF0000000, 0}));
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

TEST_F(ThreshBitmapTest, ResultIsOneOnlyWhenThePreviousFrameIsBrighter) {
  Image brighter(100, 4, 120);
  Image darker(100, 4, 119);
  EXPECT_EQ(run(brighter, darker), 1);
  EXPECT_EQ(run(darker, brighter), 0);
  EXPECT_EQ(run(brighter, brighter), 0);
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

  // Width 32: no block and no tail, nothing is set.
  Image bright(32, 3, 200);
  runAt100(bright, bright);
  for (int32_t y = 0; y < 3; ++y) EXPECT_EQ(prevRow(y), (Words{0, 0}));
}

}  // namespace
