// Bitmap pyramid: plain decimation of the packed bitmaps, checked pixel by
// pixel against the level below and on hand-computed words.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "align_fixture.h"
#include "videohdr.h"

namespace {

constexpr uint32_t kUntouched = 0x5A5A5A5Au;

int32_t wordsPerRow(AlignContext *ctx, int32_t level) { return ctx->levelPitch[level] / 4; }

int pixel(const uint32_t *bitmap, int32_t words, int32_t x, int32_t y) {
  return (bitmap[y * words + x / 32] >> (31 - x % 32)) & 1;
}

// Carves the workspace (black frames): the bitmap pointers are set from here.
void carve(AlignFixture &fx) {
  const std::vector<uint8_t> black(static_cast<size_t>(fx.width()) * fx.height(), 0);
  fx.load(black, black);
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

TEST(BitmapPyramid, KeepsEverySecondPixelOfARow) {
  AlignFixture fx(256, 8);
  carve(fx);
  AlignContext *ctx = fx.context();
  const int32_t W0 = wordsPerRow(ctx, 0);
  // Pixels 0, 2, 4 set, 1 and 3 clear.
  ctx->prevBitmap[0][0] = 0xA8000000;
  // Row 2, word 1: pixels 32 and 34; word 3 all set.
  ctx->curBitmap[0][2 * W0 + 1] = 0xA0000000;
  ctx->curBitmap[0][2 * W0 + 3] = 0xFFFFFFFF;
  buildGaussianPyramid(ctx, 1);
  const int32_t W1 = wordsPerRow(ctx, 1);
  EXPECT_EQ(ctx->prevBitmap[1][0], 0xE0000000u);
  EXPECT_EQ(ctx->curBitmap[1][W1 + 0], 0x0000C000u);
  EXPECT_EQ(ctx->curBitmap[1][W1 + 1], 0x0000FFFFu);
}

TEST(BitmapPyramid, EveryLevelPixelIsTheEvenPixelBelowIt) {
  std::mt19937 rng(7);
  for (int32_t w : {64, 100, 129, 257, 300, 517, 1032, 1100}) {
    for (int32_t h : {8, 13}) {
      SCOPED_TRACE(testing::Message() << w << " x " << h);
      AlignFixture fx(w, h);
      carve(fx);
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

TEST(BitmapPyramid, OddRowsNeverReachTheLevelAbove) {
  AlignFixture fx(200, 10);
  carve(fx);
  AlignContext *ctx = fx.context();
  const int32_t W0 = wordsPerRow(ctx, 0);
  for (int32_t y = 1; y < 10; y += 2)
    for (int32_t i = 0; i < W0; ++i) ctx->prevBitmap[0][y * W0 + i] = 0xFFFFFFFF;
  buildGaussianPyramid(ctx, 1);
  const int32_t W1 = wordsPerRow(ctx, 1);
  for (int32_t i = 0; i < 5 * W1; ++i) ASSERT_EQ(ctx->prevBitmap[1][i], 0u) << i;
}

TEST(BitmapPyramid, LevelsWithoutRowsOrColumnsBelowAreLeftAlone) {
  // Height 2: level 1 has one row, so level 2 is not made.
  AlignFixture shallow(256, 2);
  carve(shallow);
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

  // Width 1: level 1 has no columns.
  AlignFixture narrow(1, 8);
  carve(narrow);
  ctx = narrow.context();
  fillRegion(ctx, ctx->prevBitmap[1], 1, kUntouched);
  buildGaussianPyramid(ctx, 1);
  for (int32_t i = 0; i < wordsPerRow(ctx, 1) * 9; ++i)
    ASSERT_EQ(ctx->prevBitmap[1][i], kUntouched) << i;
}

TEST(BitmapPyramid, ClearLastColumnsOfLevelZeroHalveAtEachLevel) {
  // Width 256: level 0 never sets columns 224..255, so level l keeps only its
  // first 224 >> l columns set.
  AlignFixture fx(256, 16);
  const std::vector<uint8_t> white(256 * 16, 255);
  fx.load(white, white);
  AlignContext *ctx = fx.context();
  ThreshBitmap(ctx, ctx->maxThreshold, ctx->minThreshold);
  for (int32_t l = 1; l < 4; ++l) buildGaussianPyramid(ctx, l);
  for (int32_t l = 0; l < 4; ++l) {
    const int32_t words = wordsPerRow(ctx, l);
    for (int32_t y = 0; y < ctx->levelHeight[l]; ++y)
      for (int32_t x = 0; x < ctx->levelWidth[l]; ++x)
        ASSERT_EQ(pixel(ctx->curBitmap[l], words, x, y), x < (224 >> l) ? 1 : 0)
            << "level " << l << " pixel " << x << ", " << y;
  }
}

}  // namespace
