// Bitmap shifting: the coarsest copy, vertical moves, the leftward funnel with
// its edge rules and exact rightward moves, checked word by word and against
// pixel-by-pixel references.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "align_fixture.h"
#include "videohdr.h"

namespace {

using Words = std::vector<uint32_t>;

int pixel(const uint32_t *row, int32_t x) { return (row[x / 32] >> (31 - x % 32)) & 1; }

// A context whose previous-frame bitmap of `level` holds random words in all
// its rows, pad words and spare row, and whose moved bitmap holds other ones.
class ShiftDataTest : public ::testing::Test {
 protected:
  void prepare(int32_t w, int32_t h, int32_t level = 0) {
    fixture_ = std::make_unique<AlignFixture>(w, h);
    level_ = level;
    std::vector<uint8_t> grey(static_cast<size_t>(w) * h, 0);
    fixture_->load(grey, grey);
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
  // Makes the source rows' bits past the last pixel 0, as the threshold
  // bitmaps have them.
  void clearPastRowEnd() {
    for (int32_t y = 0; y <= height(); ++y)
      for (int32_t x = width(); x < 32 * words(); ++x)
        source_[y * words() + x / 32] &= ~(1u << (31 - x % 32));
    std::memcpy(ctx()->prevBitmap[level_], source_.data(), source_.size() * 4);
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
  // 4..29 from rows 0..25; all other rows, the spare row and every pad word
  // are 0.
  prepare(256, 30);
  for (int32_t sy : {4, -4}) {
    SCOPED_TRACE(sy);
    move(0, sy);
    expectRows(sy, [&](const uint32_t *src, int32_t x) {
      return x < 32 * (words() - 1) ? pixel(src, x) : 0;
    });
  }
  EXPECT_EQ(movedRow(3), Words(words(), 0));
  EXPECT_EQ(movedRow(4)[0], sourceRow(0)[0]);
}

TEST_F(ShiftDataTest, VerticalMoveBeyondTheHeightLeavesAllClear) {
  prepare(256, 6);
  move(0, 6);
  for (int32_t y = 0; y <= 6; ++y) ASSERT_EQ(movedRow(y), Words(words(), 0)) << y;
}

TEST_F(ShiftDataTest, LeftMoveOf4AtWidth240FunnelsWordsZeroToSix) {
  // W = 9, r = 16, k = 2, t = 3.
  prepare(240, 5);
  clearPastRowEnd();
  move(4, 0);
  for (int32_t y = 0; y < 5; ++y) {
    const uint32_t *m = sourceRow(y);
    Words expected(9, 0);
    for (int32_t i = 0; i < 7; ++i) expected[i] = (m[i] << 4) | (m[i + 1] >> 28);
    expected[7] = m[7] << 4;
    ASSERT_EQ(movedRow(y), expected) << y;
    for (int32_t x = 236; x < 240; ++x) EXPECT_EQ(pixel(movedRow(y).data(), x), 0) << x;
  }
}

TEST_F(ShiftDataTest, LeftMoveOf4AtWidth257LosesThePixelAtTheRightEdge) {
  // W = 10, r = 1 <= 4: k = 3, t = 3; pixel 256 never comes in.
  prepare(257, 5);
  clearPastRowEnd();
  for (int32_t y = 0; y < 5; ++y) source_[y * 10 + 8] |= 0x80000000u;
  std::memcpy(ctx()->prevBitmap[0], source_.data(), source_.size() * 4);
  move(4, 0);
  for (int32_t y = 0; y < 5; ++y) {
    const uint32_t *m = sourceRow(y);
    Words expected(10, 0);
    for (int32_t i = 0; i < 7; ++i) expected[i] = (m[i] << 4) | (m[i + 1] >> 28);
    expected[7] = m[7] << 4;  // pixel 252 stays 0
    ASSERT_EQ(movedRow(y), expected) << y;
  }
}

TEST_F(ShiftDataTest, LeftMoveEndingInWholeBlocksLeavesWordWMinusKClear) {
  // Width 160: W = 6, k = 2, W - k = 4 = one whole block; the last data word
  // (word 4) is not written.
  prepare(160, 4);
  move(2, 0);
  for (int32_t y = 0; y < 4; ++y) {
    const uint32_t *m = sourceRow(y);
    Words expected(6, 0);
    for (int32_t i = 0; i < 4; ++i) expected[i] = (m[i] << 2) | (m[i + 1] >> 30);
    ASSERT_EQ(movedRow(y), expected) << y;
  }
  // Width 161 with sx = 2: W = 7, r = 1, k = 3, W - k = 4: words 0..3 only.
  prepare(161, 4);
  move(2, 0);
  for (int32_t y = 0; y < 4; ++y) {
    const uint32_t *m = sourceRow(y);
    Words expected(7, 0);
    for (int32_t i = 0; i < 4; ++i) expected[i] = (m[i] << 2) | (m[i + 1] >> 30);
    ASSERT_EQ(movedRow(y), expected) << y;
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
