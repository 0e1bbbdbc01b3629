// xorTwoResult: exact-overlap rows, the edge word of each (width, dx), the
// bits beyond a row's end, the per-row 8-bit lane wrap, and a bit-by-bit
// count over many widths and shifts.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "align_fixture.h"
#include "videohdr.h"

namespace {

// A context whose level-0 bitmaps the test writes directly: `ref` is the
// current frame's (curBitmap[0]), `moving` the previous frame's (prevBitmap[0]).
class Bitmaps {
 public:
  Bitmaps(int32_t width, int32_t height) : fixture_(width, height) {
    std::vector<uint8_t> zeros(static_cast<size_t>(width) * height, 0);
    fixture_.load(zeros, zeros);
  }
  int32_t width() const { return fixture_.width(); }
  int32_t height() const { return fixture_.height(); }
  int32_t pitch() const { return (width() + 63) >> 5; }
  uint32_t *ref() { return fixture_.context()->curBitmap[0]; }
  uint32_t *moving() { return fixture_.context()->prevBitmap[0]; }
  uint32_t *word(uint32_t *bitmap, int32_t x, int32_t y) { return &bitmap[y * pitch() + x / 32]; }
  void set(uint32_t *bitmap, int32_t x, int32_t y) {
    *word(bitmap, x, y) |= 0x80000000u >> (x % 32);
  }
  bool get(const uint32_t *bitmap, int32_t x, int32_t y) const {
    return (bitmap[y * pitch() + x / 32] >> (31 - x % 32)) & 1u;
  }
  // Every pixel of the row set, nothing beyond its end.
  void setRow(uint32_t *bitmap, int32_t y) {
    for (int32_t x = 0; x < width(); ++x) set(bitmap, x, y);
  }
  void setAllRows(uint32_t *bitmap) {
    for (int32_t y = 0; y < height(); ++y) setRow(bitmap, y);
  }
  // Random pixels; the bits beyond each row's end stay 0.
  void randomize(uint32_t *bitmap, std::mt19937 &rng) {
    for (int32_t y = 0; y < height(); ++y)
      for (int32_t x = 0; x < width(); ++x)
        if (rng() & 1u) set(bitmap, x, y);
  }
  float score(int32_t dy, int32_t dx) { return xorTwoResult(fixture_.context(), 0, 0, dy, dx); }
  void swap() {
    const size_t words = static_cast<size_t>(pitch()) * height();
    for (size_t i = 0; i < words; ++i) std::swap(ref()[i], moving()[i]);
  }

 private:
  AlignFixture fixture_;
};

// Pixels (x, y) of the reference whose partner (x + dx, y + dy) lies in the
// frame and differs from it, counted one by one.
uint32_t disagreementsBitByBit(Bitmaps &b, int32_t dy, int32_t dx) {
  uint32_t count = 0;
  for (int32_t y = 0; y < b.height(); ++y) {
    if (y + dy < 0 || y + dy >= b.height()) continue;
    for (int32_t x = 0; x < b.width(); ++x) {
      if (x + dx < 0 || x + dx >= b.width()) continue;
      count += b.get(b.ref(), x, y) != b.get(b.moving(), x + dx, y + dy);
    }
  }
  return count;
}

TEST(XorTwoResultTest, IdenticalAndOppositeBitmaps) {
  for (int32_t width : {1, 17, 32, 64, 100, 1920}) {
    Bitmaps b(width, 6);
    std::mt19937 rng(width);
    b.randomize(b.ref(), rng);
    std::copy(b.ref(), b.ref() + b.pitch() * 6, b.moving());
    EXPECT_EQ(b.score(0, 0), 0.0f) << width;
    // Invert every pixel of the moving bitmap (beyond-end bits stay equal).
    for (int32_t y = 0; y < 6; ++y)
      for (int32_t x = 0; x < width; ++x) *b.word(b.moving(), x, y) ^= 0x80000000u >> (x % 32);
    EXPECT_EQ(b.score(0, 0), static_cast<float>(width * 6)) << width;
  }
}

TEST(XorTwoResultTest, KnownCountsWithAOnePixelShift) {
  // Moving rows all set, reference clear: with dx = 1 each row compares
  // pixels 0 .. w - 2, so the count is (w - 1) per row.
  for (int32_t width : {32, 64, 100, 1920}) {
    Bitmaps b(width, 5);
    b.setAllRows(b.moving());
    EXPECT_EQ(b.score(0, 1), static_cast<float>((width - 1) * 5)) << width;
    EXPECT_EQ(b.score(0, -1), static_cast<float>((width - 1) * 5)) << width;
    EXPECT_EQ(b.score(2, 1), static_cast<float>((width - 1) * 3)) << width;
  }
}

TEST(XorTwoResultTest, MultipleOf32WithShiftOneUsesTheTop31BitsAndThePadWord) {
  for (int32_t width : {32, 64, 1920}) {
    Bitmaps b(width, 4);
    const int32_t last = b.pitch() - 2;  // the last data word
    // The undisplaced side's lowest bit (pixel w - 1) has no partner.
    b.set(b.ref(), width - 1, 1);
    EXPECT_EQ(b.score(0, 1), 0.0f) << width;
    // The displaced word's lowest bit comes from bit 31 of the pad word.
    b.ref()[1 * b.pitch() + last] = 0;
    b.moving()[2 * b.pitch() + last + 1] = 0x80000000u;
    EXPECT_EQ(b.score(0, 1), 1.0f) << width;
    // Only its top bit: the rest of the pad word does not count.
    b.moving()[2 * b.pitch() + last + 1] = 0x7FFFFFFFu;
    EXPECT_EQ(b.score(0, 1), 0.0f) << width;
    // dx = 0 compares the last data word whole.
    b.set(b.ref(), width - 1, 1);
    EXPECT_EQ(b.score(0, 0), 1.0f) << width;
  }
}

TEST(XorTwoResultTest, Width100EdgeWords) {
  // r = 4. dx = 3: word 3 is the edge word and only its top bit (pixel 96,
  // partner 99) counts.
  {
    Bitmaps b(100, 3);
    b.set(b.ref(), 97, 0);  // partner 100 is outside the row
    EXPECT_EQ(b.score(0, 3), 0.0f);
    b.set(b.ref(), 96, 1);
    EXPECT_EQ(b.score(0, 3), 1.0f);
    b.set(b.moving(), 99, 2);  // pairs with reference pixel 96 of row 2
    EXPECT_EQ(b.score(0, 3), 2.0f);
    // A moving bit beyond the row's end (pixel 100) is funnelled into the
    // edge word, where the reference's bits are masked off: it counts.
    b.set(b.moving(), 100, 0);
    EXPECT_EQ(b.score(0, 3), 3.0f);
  }
  // dx = 5: word 2 is the edge word with its top 31 bits (pixels 64..94);
  // word 3 is not compared.
  {
    Bitmaps b(100, 3);
    b.set(b.ref(), 95, 0);
    b.set(b.ref(), 96, 0);
    b.set(b.ref(), 99, 0);
    EXPECT_EQ(b.score(0, 5), 0.0f);
    b.set(b.ref(), 94, 1);  // partner 99
    EXPECT_EQ(b.score(0, 5), 1.0f);
    b.set(b.moving(), 5, 2);  // partner of reference pixel 0: the first pixels count
    EXPECT_EQ(b.score(0, 5), 2.0f);
    // dx = -5: reference pixels 5..99 meet moving pixels 0..94, so reference
    // pixels 95, 96, 99 and 94 and moving pixel 5 all count.
    EXPECT_EQ(b.score(0, -5), 5.0f);
  }
}

TEST(XorTwoResultTest, RowRangesAreTheExactOverlap) {
  Bitmaps b(100, 8);
  b.setRow(b.moving(), 0);
  b.setRow(b.moving(), 7);
  // dy = 1: reference rows 0..6 meet moving rows 1..7.
  EXPECT_EQ(b.score(1, 0), 100.0f);
  EXPECT_EQ(b.score(1, 2), 98.0f);
  // dy = -1: reference rows 1..7 meet moving rows 0..6.
  EXPECT_EQ(b.score(-1, 0), 100.0f);
  EXPECT_EQ(b.score(-1, -2), 98.0f);
  // dy = 0 takes every row, the first and the last too.
  EXPECT_EQ(b.score(0, 0), 200.0f);
  EXPECT_EQ(b.score(7, 0), 100.0f);   // reference row 0 with moving row 7
  EXPECT_EQ(b.score(-7, 0), 100.0f);  // reference row 7 with moving row 0
  EXPECT_EQ(b.score(8, 0), 0.0f);
  EXPECT_EQ(b.score(-8, 0), 0.0f);
  EXPECT_EQ(b.score(1000, 1), 0.0f);
  EXPECT_EQ(b.score(INT32_MIN, 0), 0.0f);
}

TEST(XorTwoResultTest, ShiftsOutsideTheContractScoreZero) {
  Bitmaps b(40, 4);
  b.setAllRows(b.moving());
  EXPECT_EQ(b.score(0, 32), 0.0f);
  EXPECT_EQ(b.score(0, -32), 0.0f);
  EXPECT_EQ(b.score(0, INT32_MIN), 0.0f);
  Bitmaps narrow(5, 4);
  narrow.setAllRows(narrow.moving());
  EXPECT_EQ(narrow.score(0, 5), 0.0f);
  EXPECT_EQ(narrow.score(0, -7), 0.0f);
  EXPECT_EQ(narrow.score(0, 4), 4.0f);  // one pixel per row still pairs
}

TEST(XorTwoResultTest, EightBitLanesWrapOnVeryWideRows) {
  // 4,128 pixels = 129 words: 32 whole blocks and one partial block of one
  // word. Every pixel differs, so each byte lane of word 0 takes 33 x 8 = 264
  // (8 after wrapping) and the lanes of words 1..3 take 32 x 8 = 256 (0):
  // 4 x 8 = 32 per row instead of 4,128.
  Bitmaps b(4128, 3);
  b.setAllRows(b.moving());
  EXPECT_EQ(b.score(0, 0), 32.0f * 3);
  // dx = 1: words 0..127 are 32 whole blocks (all lanes wrap to 0) and the
  // edge word keeps its own count: the displaced word has 31 set bits.
  EXPECT_EQ(b.score(0, 1), 31.0f * 3);
}

TEST(XorTwoResultTest, ExchangingTheBitmapsAndNegatingTheShiftKeepsTheCount) {
  std::mt19937 rng(7);
  for (int32_t width : {33, 100, 129, 250}) {
    Bitmaps b(width, 9);
    b.randomize(b.ref(), rng);
    b.randomize(b.moving(), rng);
    for (int32_t dx : {-31, -6, -1, 0, 3, 17, 31}) {
      for (int32_t dy : {-4, 0, 2}) {
        const float forward = b.score(dy, dx);
        b.swap();
        EXPECT_EQ(b.score(-dy, -dx), forward) << width << " " << dy << " " << dx;
        b.swap();
      }
    }
  }
}

TEST(XorTwoResultTest, MatchesABitByBitCountOverManyWidthsAndShifts) {
  std::mt19937 rng(2024);
  std::vector<int32_t> widths;
  for (int32_t w = 1; w <= 140; ++w) widths.push_back(w);
  for (int32_t w : {191, 223, 255, 256, 257, 500, 1000, 1031, 1920, 2017}) widths.push_back(w);
  for (int32_t width : widths) {
    const int32_t height = 5;
    Bitmaps b(width, height);
    b.randomize(b.ref(), rng);
    b.randomize(b.moving(), rng);
    const int32_t maxShift = width - 1 < 31 ? width - 1 : 31;
    for (int32_t dx = -maxShift; dx <= maxShift; ++dx) {
      for (int32_t dy : {-2, 0, 1, 4}) {
        ASSERT_EQ(b.score(dy, dx), static_cast<float>(disagreementsBitByBit(b, dy, dx)))
            << "width " << width << " dy " << dy << " dx " << dx;
      }
    }
  }
}

}  // namespace
