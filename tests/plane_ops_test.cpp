// The exported byte-plane operations on small hand-worked cases: the 7-tap
// filters, the 2x scalers and the chroma split and merge.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <vector>

#include "videohdr.h"

namespace {

constexpr uint8_t kKeep = 0xEE;  // what a destination holds before a call

using Plane = std::vector<uint8_t>;
using Pass = void (*)(const uint8_t *, uint8_t *, int32_t, int32_t, int32_t);

Plane constantPlane(int32_t bytes, uint8_t value) {
  return Plane(static_cast<size_t>(bytes), value);
}

TEST(Filter7x7, BrightPixelSpreadsToATruncatedFlatPatch) {
  const int32_t width = 24, height = 16;
  Plane src = constantPlane(width * height, 0);
  src[8 * width + 10] = 255;
  Plane scratch = constantPlane(width * height, 0);
  Plane out = constantPlane(width * height, 0);
  horizontalFilter7x7neon_Smooth(src.data(), scratch.data(), width, height, 3);
  const uint8_t row[7] = {31, 31, 39, 47, 39, 31, 31};  // 4, 4, 5, 6, 5, 4, 4 times 255, >> 5
  for (int i = 0; i < 7; ++i) EXPECT_EQ(scratch[8 * width + 7 + i], row[i]) << "column " << 7 + i;
  VerticalFilter7x7neon_Smooth(scratch.data(), out.data(), width, height, 3);
  const uint8_t patch[7][7] = {{3, 3, 4, 5, 4, 3, 3}, {3, 3, 4, 5, 4, 3, 3}, {4, 4, 6, 7, 6, 4, 4},
                               {5, 5, 7, 8, 7, 5, 5}, {4, 4, 6, 7, 6, 4, 4}, {3, 3, 4, 5, 4, 3, 3},
                               {3, 3, 4, 5, 4, 3, 3}};
  int nonZero = 0;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const bool inPatch = y >= 5 && y <= 11 && x >= 7 && x <= 13;
      EXPECT_EQ(out[y * width + x], inPatch ? patch[y - 5][x - 7] : 0) << y << "," << x;
      nonZero += out[y * width + x] != 0;
    }
  }
  EXPECT_EQ(nonZero, 49);
}

// A constant plane stays constant wherever a pass writes (the taps sum to the
// divisor), so the written rectangle shows each pass's entry test and block
// coverage: the horizontal pass writes whole blocks of 8 from column `border`
// while border + 8k <= width - 8 - border; the vertical pass the whole
// 8-column blocks of rows border .. height - border - 1. The destination has
// one row more than the plane, which nothing may touch.
TEST(Filter7x7, ConstantPlanesShowTheEntryTestsAndBlockCoverage) {
  const Pass tentRows = horizontalFilter7x7neon, tentColumns = VerticalFilter7x7neon;
  const Pass smoothRows = horizontalFilter7x7neon_Smooth;
  const Pass smoothColumns = VerticalFilter7x7neon_Smooth;
  const struct {
    const char *what;
    Pass pass;
    int32_t width, height, firstRow, endRow, firstColumn, endColumn;
  } cases[] = {
      {"blocks at 3, 11, 19, 27", tentRows, 40, 12, 0, 12, 3, 35},
      {"blocks at 3, 11, 19, 27", smoothRows, 40, 12, 0, 12, 3, 35},
      {"rows 3 .. 8", tentColumns, 40, 12, 3, 9, 0, 40},
      {"rows 3 .. 8", smoothColumns, 40, 12, 3, 9, 0, 40},
      {"width 14: one block", tentRows, 14, 3, 0, 3, 3, 11},
      {"width 13: 13 - 8 - 3 < 3", tentRows, 13, 3, 0, 0, 0, 0},
      {"width 29: blocks at 3 and 11 only", smoothRows, 29, 3, 0, 3, 3, 19},
      {"height 0", tentRows, 29, 0, 0, 0, 0, 0},
      {"height 1", tentRows, 29, 1, 0, 1, 3, 19},
      {"height 6: 6 - 3 <= 3", tentColumns, 16, 6, 0, 0, 0, 0},
      {"height 7: row 3 only", tentColumns, 16, 7, 3, 4, 0, 16},
      {"width 20: columns 16 .. 19 left", tentColumns, 20, 10, 3, 7, 0, 16},
      {"width 7: no whole block", smoothColumns, 7, 10, 0, 0, 0, 0},
      {"height 1", smoothColumns, 16, 1, 0, 0, 0, 0},
  };
  for (const auto &c : cases) {
    for (uint8_t v : {0, 1, 90, 200, 255}) {
      const Plane src = constantPlane(c.width * (c.height + 1), v);
      Plane dst = constantPlane(c.width * (c.height + 1), kKeep);
      c.pass(src.data(), dst.data(), c.width, c.height, 3);
      for (size_t i = 0; i < dst.size(); ++i) {
        const int32_t x = static_cast<int32_t>(i) % c.width, y = static_cast<int32_t>(i) / c.width;
        const bool written =
            y >= c.firstRow && y < c.endRow && x >= c.firstColumn && x < c.endColumn;
        ASSERT_EQ(dst[i], written ? v : kKeep) << c.what << ", value " << int(v) << ", byte " << i;
      }
    }
  }
}

// Arguments at the ends of the 32-bit range are turned away by the entry
// tests themselves (the sanitizer build reports any overflow on the way).
TEST(Filter7x7, ExtremeArgumentsWriteNothing) {
  const Plane src = constantPlane(64, 90);
  const int32_t kMin = INT32_MIN, kMax = INT32_MAX;
  const int32_t cases[][3] = {{kMin, 1, 3},     {16, 1, kMax},   {kMin, 4, kMax},
                              {16, kMin, kMax}, {kMax, kMin, 2}, {8, kMin, kMax}};
  for (const auto &c : cases) {
    Plane dst = constantPlane(64, kKeep);
    for (Pass pass : {horizontalFilter7x7neon, VerticalFilter7x7neon,
                      horizontalFilter7x7neon_Smooth, VerticalFilter7x7neon_Smooth})
      pass(src.data(), dst.data(), c[0], c[1], c[2]);
    EXPECT_EQ(dst, constantPlane(64, kKeep)) << c[0] << " x " << c[1] << ", border " << c[2];
  }
}

TEST(Filter7x7, HorizontalResultsShiftWithTheBorder) {
  // Output column border + x is centred on source column 3 + x.
  const int32_t width = 30;
  Plane src = constantPlane(width, 0);
  src[10] = 160;
  const uint8_t tent[7] = {10, 20, 30, 40, 30, 20, 10};  // 1 2 3 4 3 2 1 times 160, >> 4
  for (int32_t border : {3, 5}) {
    Plane dst = constantPlane(width, kKeep);
    horizontalFilter7x7neon(src.data(), dst.data(), width, 1, border);
    const int32_t peak = 10 + border - 3;
    const int32_t end = border + 8 * ((width - 8 - 2 * border) / 8 + 1);
    for (int32_t x = 0; x < width; ++x) {
      uint8_t expected = kKeep;
      if (x >= border && x < end)
        expected = x >= peak - 3 && x <= peak + 3 ? tent[x - peak + 3] : 0;
      EXPECT_EQ(dst[x], expected) << "border " << border << ", column " << x;
    }
  }
}

TEST(Filter7x7, VerticalWindowSkipsRowsWithALargerBorder) {
  // Border 4: output row 4 uses rows 1..7, and after output t the window takes
  // row 9 + t, so row 8 is never used and row 9 enters at the bottom tap.
  const int32_t width = 8, height = 12;
  Plane src = constantPlane(width * height, 0);
  for (int32_t x = 0; x < width; ++x) src[8 * width + x] = 250;  // never read
  for (int32_t x = 0; x < width; ++x) src[9 * width + x] = 160;
  Plane dst = constantPlane(width * height, kKeep);
  VerticalFilter7x7neon(src.data(), dst.data(), width, height, 4);
  const uint8_t expected[4] = {0, 10, 20, 30};  // row 9 at taps -, 1, 2, 3
  for (int32_t y = 0; y < height; ++y)
    for (int32_t x = 0; x < width; ++x)
      EXPECT_EQ(dst[y * width + x], y >= 4 && y < 8 ? expected[y - 4] : kKeep) << y << "," << x;
}

// The scalers by hand: source bytes, the call, and the whole destination
// afterwards (K marks bytes that keep what they held).
TEST(Scale2x, HandWorkedPlanes) {
  constexpr uint8_t K = kKeep;
  using Scale = void (*)(const uint8_t *, uint8_t *, int32_t, int32_t, int32_t);
  Plane five(25), ramp(24);  // 10 + i over 5 x 5; 100 + i over 12 x 2
  for (int i = 0; i < 25; ++i) five[i] = uint8_t(10 + i);
  for (int i = 0; i < 24; ++i) ramp[i] = uint8_t(100 + i);
  const Plane quad = {1, 2, 3, 5}, nine = {0, 4, 8, 99, 40, 44, 48, 99, 80, 84, 88, 99};
  const struct {
    const char *why;
    Scale scale;
    const Plane &src;
    int32_t width, height, stride, dstOffset;
    Plane expected;
  } cases[] = {
      // clang-format off
      // Point samples (0,0) (0,2) (2,0) (2,2), in both variants.
      {"halving 5 x 5", downScale_2x_uint8_t, five, 5, 5, 5, 0, {10, 12, 20, 22, K, K}},
      {"halving 5 x 5", downScale_2x_uint8_t_NEON, five, 5, 5, 5, 0, {10, 12, 20, 22, K, K}},
      {"halving one row", downScale_2x_uint8_t, five, 5, 1, 5, 0, {K, K, K, K, K, K}},
      {"halving one column", downScale_2x_uint8_t_NEON, five, 1, 5, 5, 0, {K, K, K, K, K, K}},
      // The truncated mean of the 2x2 block at the top-left, 11 >> 2; the last
      // two rows and columns are not written.
      {"averaging 2 x 2", upscale_2x_uint8_t, quad, 2, 2, 2, 0,
       {2, 2, K, K,
        2, 2, K, K,
        K, K, K, K,
        K, K, K, K}},
      {"averaging 3 x 3 at stride 4", upscale_2x_uint8_t, nine, 3, 3, 4, 0,
       {22, 22, 26, 26, K, K, K, K,
        22, 22, 26, 26, K, K, K, K,
        62, 62, 66, 66, K, K, K, K,
        62, 62, 66, 66, K, K, K, K,
        K,  K,  K,  K,  K, K, K, K,
        K,  K,  K,  K,  K, K, K, K}},
      {"averaging one row", upscale_2x_uint8_t, quad, 2, 1, 2, 0, Plane(16, K)},
      {"averaging one column", upscale_2x_uint8_t, quad, 1, 2, 2, 0, Plane(16, K)},
      {"replicating 2 x 2", upscale_2x_uint8_t_NEON, quad, 2, 2, 2, 0,
       {1, 1, 2, 2,
        1, 1, 2, 2,
        3, 3, 5, 5,
        3, 3, 5, 5}},
      {"replicating one row: still two rows", upscale_2x_uint8_t_NEON, quad, 2, 1, 2, 0,
       {1, 1, 2, 2,
        1, 1, 2, 2,
        K, K, K, K}},
      {"replicating at a negative stride", upscale_2x_uint8_t_NEON, quad, 2, 2, -2, 8,
       Plane(16, K)},
      // clang-format on
  };
  for (const auto &c : cases) {
    Plane dst(c.expected.size(), kKeep);
    c.scale(c.src.data(), dst.data() + c.dstOffset, c.width, c.height, c.stride);
    EXPECT_EQ(dst, c.expected) << c.why;
  }
  // w = 11: the vector halving's second block per row is partial, yet nothing
  // lands past the 33 bytes of the packed plane.
  Plane src(24 * 6), dst(11 * 3 + 16, kKeep), expected(dst);
  for (size_t i = 0; i < src.size(); ++i) src[i] = uint8_t(i * 7);
  for (int32_t r = 0; r < 3; ++r)
    for (int32_t c = 0; c < 11; ++c) expected[r * 11 + c] = src[2 * r * 24 + 2 * c];
  downScale_2x_uint8_t_NEON(src.data(), dst.data(), 22, 6, 24);
  EXPECT_EQ(dst, expected);
  // Width 5, stride 12: the one 16-byte block doubles source columns 0..7,
  // padding included; bytes 16..23 of each even row keep their content, and
  // the odd row is a copy of the whole even row. Width 0: only the copies.
  Plane doubled(24 * 4), copies(24 * 2);
  for (size_t i = 0; i < doubled.size(); ++i) doubled[i] = uint8_t(i);
  for (size_t i = 0; i < copies.size(); ++i) copies[i] = uint8_t(i);
  Plane expectedDoubled = doubled;
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 0; x < 24; ++x)
      expectedDoubled[y * 24 + x] = x < 16 ? ramp[y / 2 * 12 + x / 2] : doubled[(y & ~1) * 24 + x];
  upscale_2x_uint8_t_NEON(ramp.data(), doubled.data(), 5, 2, 12);
  EXPECT_EQ(doubled, expectedDoubled);
  Plane expectedCopies = copies;
  std::copy(copies.begin(), copies.begin() + 24, expectedCopies.begin() + 24);
  upscale_2x_uint8_t_NEON(ramp.data(), copies.data(), 0, 1, 12);
  EXPECT_EQ(copies, expectedCopies);
}

TEST(ChromaUv, ExtractSplitsPairsAtHalfTheStrideAndCombineJoinsThem) {
  // Width 7 bytes: three pairs (the seventh byte is not a pair); stride 10.
  const uint8_t uv[20] = {1, 2, 3, 4, 5, 6, 7, 0, 0, 0, 11, 12, 13, 14, 15, 16, 17, 0, 0, 0};
  Plane u(10, kKeep), v(10, kKeep);
  extract_uvBuffer(uv, u.data(), v.data(), 7, 2, 10);
  EXPECT_EQ(u, (Plane{1, 3, 5, kKeep, kKeep, 11, 13, 15, kKeep, kKeep}));
  EXPECT_EQ(v, (Plane{2, 4, 6, kKeep, kKeep, 12, 14, 16, kKeep, kKeep}));
  Plane none(4, kKeep);
  extract_uvBuffer(uv, none.data(), none.data(), 1, 2, 10);  // no whole pair
  extract_uvBuffer(uv, none.data(), none.data(), 7, 0, 10);
  combine_uvBuffer(uv, uv, none.data(), 0, 1);
  combine_uvBuffer(uv, uv, none.data(), 1, 0);
  EXPECT_EQ(none, Plane(4, kKeep));
  // A tightly packed plane goes round exactly: combine n pairs, extract 2n bytes.
  for (int32_t n : {1, 5, 16, 37}) {
    Plane uIn(n * 3), vIn(n * 3), joined(2 * n * 3, kKeep), uOut(n * 3), vOut(n * 3);
    for (int32_t i = 0; i < n * 3; ++i) {
      uIn[i] = uint8_t(3 * i + 1);
      vIn[i] = uint8_t(255 - 5 * i);
    }
    combine_uvBuffer(uIn.data(), vIn.data(), joined.data(), n, 3);
    for (int32_t i = 0; i < n * 3; ++i) {
      ASSERT_EQ(joined[2 * i], uIn[i]) << "pair " << i;
      ASSERT_EQ(joined[2 * i + 1], vIn[i]) << "pair " << i;
    }
    extract_uvBuffer(joined.data(), uOut.data(), vOut.data(), 2 * n, 3, 2 * n);
    EXPECT_EQ(uOut, uIn) << n;
    EXPECT_EQ(vOut, vIn) << n;
  }
}

}  // namespace
