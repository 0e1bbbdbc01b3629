// The exported alignment operations the per-frame path does not use:
// xorTwoResult (exact-overlap rows, edge words, bits beyond a row's end, the
// per-row lane wrap, a bit-by-bit count), Sobel and Sobel_Neon (the clamped
// gradient, the block coverage, the read past the row, the 16-bit lane wrap),
// HistMatching (bands, the double weight of level 0, the stop level, the
// mapping one level low) and Back (the crosswise score, the history, the jump
// and blur decisions and what each copies).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

#include "align_fixture.h"
#include "alignment_op/align_internal.h"
#include "checkasm.h"
#include "videohdr.h"

namespace {

// A context whose level-0 bitmaps the test writes directly: `ref` is the
// current frame's (curBitmap[0]), `moving` the previous frame's (prevBitmap[0]).
class Bitmaps {
 public:
  Bitmaps(int32_t width, int32_t height) : fixture_(width, height) {}
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

// Both sums on planes worked out by hand, each followed by the byte its
// pattern gives at (0, h). Sobel sums the interior; Sobel_Neon takes blocks
// of eight centres from column 1 while 8k < w - 8, reads the next row's first
// column for a centre past the row (and one byte past the plane when
// w % 8 == 1), and keeps 16-bit lanes per row that wrap and count as signed.
TEST(SobelTest, BothSumsByHand) {
  // The tenth byte is the one read past the 3 x 3 plane.
  const uint8_t nine[10] = {10, 20, 30, 40, 50, 60, 70, 80, 95, 0};
  const struct {
    const char *why;
    int32_t w, h;
    std::function<uint8_t(int32_t x, int32_t y)> pixel;
    double scalar, block;
  } cases[] = {
      // gx = (30 + 120 + 95) - (10 + 80 + 70) = 85, gy = -245: clamped to 255.
      {"3 x 3: one centre, no block", 3, 3, [&](int32_t x, int32_t y) { return nine[3 * y + x]; },
       255, 0},
      {"two rows", 12, 2, [](int32_t x, int32_t y) { return uint8_t(x * 37 + y * 91); }, 0, 0},
      // gx = (1 + 2 + 1) x 40 = 160 at each of the 6 x 10 centres.
      {"eight columns, no block", 8, 12, [](int32_t x, int32_t) { return uint8_t(x * 20); }, 9600,
       0},
      // Centres 4 and 5 see a step of 255 (|gx| = 1020, clamped), 4 rows.
      {"one block covers the interior", 10, 6, [](int32_t x, int32_t) { return x < 5 ? 0 : 255; },
       2040, 2040},
      // Steps at columns 3 (to 100) and 12 (to 255): two centres each, clamped.
      {"width 16: centres 1 .. 8 only", 16, 5,
       [](int32_t x, int32_t) { return x < 3    ? 0
                                       : x < 12 ? 100
                                                : 255; }, 3060, 1530},
      {"width 24: centres 1 .. 16", 24, 5,
       [](int32_t x, int32_t) { return x < 3    ? 0
                                       : x < 12 ? 100
                                                : 255; }, 3060, 3060},
      // One bright byte at (0, 3): centres (1, 2 .. 4) see it as their left
      // column, centres (16, 1 .. 3) as column 17 of the row above.
      {"width 17 reads the next row", 17, 7,
       [](int32_t x, int32_t y) { return x == 0 && y == 3 ? 250 : 50; }, 765, 1530},
      // Column pairs 255, 255, 0, 0: every value 255. 137 blocks per row give
      // lanes of 34,935, read as -30,601; 256 blocks 65,280, read as -256.
      {"lanes wrap to negative", 1100, 3, [](int32_t x, int32_t) { return x / 2 % 2 ? 0 : 255; },
       279990, 8 * -30601},
      {"lanes wrap past zero", 2056, 4, [](int32_t x, int32_t) { return x / 2 % 2 ? 0 : 255; },
       1047540, -4096},
  };
  for (const auto &c : cases) {
    std::vector<uint8_t> plane(size_t(c.w) * c.h + 1, c.pixel(0, c.h));
    for (int32_t y = 0; y < c.h; ++y)
      for (int32_t x = 0; x < c.w; ++x) plane[size_t(y) * c.w + x] = c.pixel(x, y);
    EXPECT_EQ(Sobel(plane.data(), c.w, c.h), c.scalar) << c.why;
    EXPECT_EQ(Sobel_Neon(plane.data(), c.w, c.h), c.block) << c.why;
  }
}

constexpr int kSide = 64;

class HistMatchingTest : public ::testing::Test {
 protected:
  HistMatchingTest() : fixture_(kSide, kSide) {}
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

// Two-valued planes worked out by hand: the reference has `refLowCount`
// pixels of `refLow` and the rest `refHigh`, the target likewise. Cr and Ct
// are the cumulative counts; a reference level takes part in m(i) when its
// Cr lies within 1,037 of Ct[i].
TEST_F(HistMatchingTest, TwoValuedPlanesByHand) {
  const struct {
    const char *why;
    uint8_t refLow;
    int refLowCount;
    uint8_t refHigh, targetLow;
    int targetLowCount;
    uint8_t targetHigh;
    std::vector<std::pair<int, uint32_t>> mapping;  // level i, m(i)
    uint8_t remapped;                               // every target pixel
  } cases[] = {
      // clang-format off
      // Ct = 4096 everywhere; Cr[0] = 3500 and Cr[200] = 4096 are inside:
      // n = 3500 + 3500 + 596, s = 200 * 596, 119200 / 7596 = 15 (level 0
      // counted once would give 29).
      {"level 0 weighs double", 0, 3500, 200, 0, 4096, 0, {{0, 15}}, 15},
      // Ct = 2100 for levels 0 .. 254; neither Cr = 1000 nor 4096 is within
      // 1,037 of it: the scan stops at level 50, where 2100 + 1037 < 4096.
      {"an empty band takes the level where the scan stopped", 0, 1000, 50, 0, 2100, 255,
       {{0, 50}, {254, 50}}, 50},
      // Cr = 0 below 200: those levels are inside the band of Ct = 0 or 1000
      // but weigh nothing, and the scan stops at 200; from level 100 on, Ct =
      // 4096 and only levels 200 .. 255 are inside.
      {"weightless levels inside the band", 200, 4096, 200, 10, 1000, 100,
       {{0, 200}, {99, 200}, {100, 200}}, 200},
      // Levels 0 .. 99: Ct = 0 and 0 + 1037 < Cr[0] = 3100: m = 0. m(100):
      // Ct = 4096, Cr[0] = 3100 (counted twice) and Cr[200] = 4096 inside:
      // 199200 / 7196 = 27; the pixels of 100 take m(99).
      {"levels far below the reference map to 0", 0, 3100, 200, 100, 4096, 100,
       {{0, 0}, {99, 0}, {100, 27}}, 0},
      // Ct = 1000 below 200, and Cr[0] = 2037 lies exactly 1,037 above it: inside,
      // with level 0 counted twice: m = 0. The scan stops at Cr[200] = 4096.
      {"a count exactly the band's width away is inside", 0, 2037, 200, 0, 1000, 200,
       {{0, 0}, {199, 0}, {200, 200}}, 0},
      // clang-format on
  };
  for (const auto &c : cases) {
    std::vector<uint8_t> ref(kSide * kSide, c.refHigh), dst(kSide * kSide, c.targetHigh);
    std::fill(ref.begin(), ref.begin() + c.refLowCount, c.refLow);
    std::fill(dst.begin(), dst.begin() + c.targetLowCount, c.targetLow);
    EXPECT_EQ(HistMatching(ctx(), ref.data(), dst.data(), kSide, kSide), 0) << c.why;
    for (const auto &m : c.mapping) EXPECT_EQ(ctx()->histTable3[m.first + 1], m.second) << c.why;
    EXPECT_EQ(dst, std::vector<uint8_t>(dst.size(), c.remapped)) << c.why;
  }
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

constexpr int32_t kWidth = 160;
constexpr int32_t kHeight = 50;
constexpr uint8_t kSentinel = 0x5A;

// A context whose level-0 bitmaps disagree in a chosen number of pixels at
// the found shift (0, 0), and three frames: target and fallback are whole
// frames (luma then half-size chroma) followed by a sentinel byte, partner a
// luma plane followed by one byte.
class BackTest : public ::testing::Test {
 protected:
  explicit BackTest(int32_t width = kWidth, int32_t height = kHeight)
      : fixture_(width, height),
        w_(width),
        h_(height),
        luma_(static_cast<size_t>(width) * height),
        frame_(3 * luma_ / 2),
        target_(frame_ + 1, kSentinel),
        partner_(luma_ + 1, 0),
        fallback_(frame_ + 1, kSentinel) {
    ctx()->levelDx[0] = 0;
    ctx()->levelDy[0] = 0;
    fillFrames();
  }
  AlignContext *ctx() { return fixture_.context(); }
  float *history() { return ctx()->countHistory; }

  // `count` reference pixels differ from the moved bitmap, all where the
  // search's count at (0, 0) sees them: rows 1.., pixels 1..28 of word 0.
  void setDisagreements(int32_t count) {
    const int32_t pitch = (w_ + 63) >> 5;
    uint32_t *ref = ctx()->curBitmap[0];
    std::fill(ref, ref + pitch * h_, 0u);
    for (int32_t i = 0; i < count; ++i) ref[(1 + i / 28) * pitch] |= 0x40000000u >> (i % 28);
  }
  void setHistory(float value) {
    for (int i = 0; i < 5; ++i) history()[i] = value;
  }

  // Partner and fallback: column pairs of 255 and 0 (sharp everywhere), with
  // distinct chroma in the fallback. Target: the same luma as the partner.
  void fillFrames() {
    for (size_t i = 0; i < luma_; ++i) {
      partner_[i] = ((i % w_) / 2) % 2 == 0 ? 255 : 0;
      fallback_[i] = static_cast<uint8_t>(partner_[i] ^ 0x0F);
      target_[i] = partner_[i];
    }
    for (size_t i = luma_; i < frame_; ++i) {
      fallback_[i] = static_cast<uint8_t>(i * 7);
      target_[i] = static_cast<uint8_t>(i * 13);
    }
  }
  // Target luma of the opposite stripes: its blend with the partner is flat.
  void makeTargetBlurTheBlend() {
    for (size_t i = 0; i < luma_; ++i) target_[i] = static_cast<uint8_t>(255 - partner_[i]);
  }
  void back(int32_t frameCount) {
    Back(ctx(), frameCount, target_.data(), partner_.data(), fallback_.data());
  }
  std::vector<uint8_t> blend() {
    const uint8_t *b = fixture_.context()->scratchPlane5;
    return std::vector<uint8_t>(b, b + luma_);
  }
  std::vector<uint8_t> slice(const std::vector<uint8_t> &v, size_t from, size_t to) const {
    return std::vector<uint8_t>(v.begin() + from, v.begin() + to);
  }

  AlignFixture fixture_;
  int32_t w_, h_;
  size_t luma_, frame_;
  std::vector<uint8_t> target_, partner_, fallback_;
};

// The jump decision and the history, worked out by hand on 8,000 pixels. The
// percentage is count / 8000 * 100 in float, divided first (for 7 the other
// order rounds apart); the threshold is the history's mean, from frame 16 on
// (0 before), times 1.1 in double; a percentage at or above it is a jump.
// A jump, or any frame up to 20, puts the percentage in the history, later
// frames the mean.
TEST_F(BackTest, JumpsAndHistoryByHand) {
  const struct {
    int32_t count;
    float history[5];
    int32_t frame;
    bool jump;
    float newest;
    const char *why;
  } cases[] = {
      {168, {2, 2, 2, 2, 2}, 15, true, 168.0f / 8000.0f * 100.0f, "threshold 0 before frame 16"},
      {168, {2, 2, 2, 2, 2}, 16, false, 168.0f / 8000.0f * 100.0f, "2.1 is below 2.0 * 1.1"},
      {168, {2, 2, 2, 2, 2}, 20, false, 168.0f / 8000.0f * 100.0f, "frame 20: the percentage"},
      {168, {2, 2, 2, 2, 2}, 21, false, 2.0f, "frame 21 takes the mean"},
      {7, {5, 4, 3, 2, 1}, 3, true, 7.0f / 8000.0f * 100.0f, "divided first, then scaled"},
      // 110 / 8000 * 100 = 1.375 in float, and 1.25 * 1.1 = 1.375 in double.
      {110, {1.25f, 1.25f, 1.25f, 1.25f, 1.25f}, 30, true, 1.375f, "equal to the threshold"},
      {109, {1.25f, 1.25f, 1.25f, 1.25f, 1.25f}, 30, false, 1.25f, "just below it"},
      // 275 / 8000 * 100 = 3.4375; 3.125 * 1.1 is 3.4375000000000004 in double
      // (no jump) but would round to 3.4375 in float (a jump).
      {275, {3.125f, 3.125f, 3.125f, 3.125f, 3.125f}, 17, false, 3.4375f, "taken in double"},
      {0, {0, 0, 0, 0, 0}, 40, true, 0.0f, "a mean and a percentage of 0 are equal"},
  };
  ASSERT_NE(7.0f / 8000.0f * 100.0f, 7.0f * 100.0f / 8000.0f);
  for (const auto &c : cases) {
    setDisagreements(c.count);
    std::copy(c.history, c.history + 5, history());
    fillFrames();
    const std::vector<uint8_t> targetBefore = target_;
    back(c.frame);
    EXPECT_EQ(ctx()->lastCount, float(c.count)) << c.why;
    EXPECT_EQ(history()[0], c.newest) << c.why;
    for (int i = 1; i < 5; ++i) EXPECT_EQ(history()[i], c.history[i - 1]) << c.why << " " << i;
    if (c.jump) {
      // The partner is kept as the blend, the fallback's luma (only) taken.
      EXPECT_EQ(blend(), slice(partner_, 0, luma_)) << c.why;
      EXPECT_EQ(slice(target_, 0, luma_), slice(fallback_, 0, luma_)) << c.why;
      EXPECT_EQ(slice(target_, luma_, frame_ + 1), slice(targetBefore, luma_, frame_ + 1));
    } else {
      // The blend of two equal planes is as sharp as the partner: no blur
      // fallback, the target keeps every byte.
      EXPECT_EQ(target_, targetBefore) << c.why;
    }
  }
}

TEST_F(BackTest, BlurredBlendCopiesTheWholeFallbackFrame) {
  setDisagreements(168);
  setHistory(2.0f);
  makeTargetBlurTheBlend();
  back(16);
  // Every blended byte is (255 + 0) >> 1 = 127: no gradient at all.
  EXPECT_EQ(blend(), std::vector<uint8_t>(luma_, 127));
  // 3 w h / 2 bytes, chroma included; the byte after the frame is untouched.
  EXPECT_EQ(slice(target_, 0, frame_), slice(fallback_, 0, frame_));
  EXPECT_EQ(target_[frame_], kSentinel);
  // Flat planes have no gradient at all: a blend as flat is not blurrier
  // (0 is not below 0.9 x 0), so the target stays.
  std::fill(partner_.begin(), partner_.end(), 100);
  std::fill(fallback_.begin(), fallback_.begin() + luma_, 60);
  std::fill(target_.begin(), target_.begin() + luma_, 80);
  const std::vector<uint8_t> flatTarget = target_;
  setHistory(2.0f);
  back(16);
  EXPECT_EQ(blend(), std::vector<uint8_t>(luma_, 90));
  EXPECT_EQ(target_, flatTarget);
}

TEST_F(BackTest, TheFoundShiftIsScoredCrosswise) {
  std::mt19937 rng(11);
  const int32_t pitch = (w_ + 63) >> 5;
  for (int32_t i = 0; i < pitch * h_; ++i) {
    ctx()->curBitmap[0][i] = static_cast<uint32_t>(rng());
    ctx()->movedBitmap[0][i] = static_cast<uint32_t>(rng());
  }
  ctx()->levelDx[0] = 2;
  ctx()->levelDy[0] = -4;
  const int32_t crossed = xorTwoPyramid_New(ctx(), 0, 0, 0, 2, -4);
  const int32_t straight = xorTwoPyramid_New(ctx(), 0, 0, 0, -4, 2);
  ASSERT_NE(crossed, straight);
  back(1);
  EXPECT_EQ(ctx()->lastCount, static_cast<float>(crossed));
}

// One column: a jump still takes the fallback's luma, all eight rows of it.
class BackOneColumnTest : public BackTest {
 protected:
  BackOneColumnTest() : BackTest(1, 8) {}
};

TEST_F(BackOneColumnTest, AJumpTakesTheFallbacksLuma) {
  back(3);
  EXPECT_EQ(slice(target_, 0, luma_), slice(fallback_, 0, luma_));
}

}  // namespace
