// The exported byte-plane operations on small hand-worked cases: the 7-tap
// filters, the 2x scalers and the chroma split and merge.
#include <gtest/gtest.h>

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

// Columns [first, end) of every row hold `inside`, all others `outside`.
void expectColumns(const Plane &p, int32_t pitch, int32_t first, int32_t end, uint8_t inside,
                   uint8_t outside, const char *what) {
  for (size_t i = 0; i < p.size(); ++i) {
    const int32_t x = static_cast<int32_t>(i) % pitch;
    ASSERT_EQ(p[i], x >= first && x < end ? inside : outside) << what << " at byte " << i;
  }
}

// Rows [first, end) hold `inside` in columns [0, columns), everything else `outside`.
void expectRows(const Plane &p, int32_t pitch, int32_t first, int32_t end, int32_t columns,
                uint8_t inside, uint8_t outside, const char *what) {
  for (size_t i = 0; i < p.size(); ++i) {
    const int32_t x = static_cast<int32_t>(i) % pitch;
    const int32_t y = static_cast<int32_t>(i) / pitch;
    const bool written = y >= first && y < end && x < columns;
    ASSERT_EQ(p[i], written ? inside : outside) << what << " at row " << y << " column " << x;
  }
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

TEST(Filter7x7, ConstantPlanesStayConstantWhereWritten) {
  const int32_t width = 40, height = 12;
  const Pass rowPasses[] = {horizontalFilter7x7neon, horizontalFilter7x7neon_Smooth};
  const Pass columnPasses[] = {VerticalFilter7x7neon, VerticalFilter7x7neon_Smooth};
  for (uint8_t v : {0, 1, 128, 200, 255}) {
    Plane src = constantPlane(width * height, v);
    for (Pass pass : rowPasses) {
      Plane dst = constantPlane(width * height, kKeep);
      pass(src.data(), dst.data(), width, height, 3);
      // Blocks start at 3, 11, 19 and 27 (27 <= 40 - 11): columns 3..34.
      expectColumns(dst, width, 3, 35, v, kKeep, "horizontal");
    }
    for (Pass pass : columnPasses) {
      Plane dst = constantPlane(width * height, kKeep);
      pass(src.data(), dst.data(), width, height, 3);
      expectRows(dst, width, 3, height - 3, width, v, kKeep, "vertical");
    }
  }
}

TEST(Filter7x7, HorizontalEntryTestAndBlockCoverage) {
  const int32_t height = 3;
  Plane src14 = constantPlane(14 * height, 90);
  Plane dst14 = constantPlane(14 * height, kKeep);
  horizontalFilter7x7neon(src14.data(), dst14.data(), 14, height, 3);
  expectColumns(dst14, 14, 3, 11, 90, kKeep, "width 14: one block");

  Plane src13 = constantPlane(13 * height, 90);
  Plane dst13 = constantPlane(13 * height, kKeep);
  horizontalFilter7x7neon(src13.data(), dst13.data(), 13, height, 3);
  expectColumns(dst13, 13, 0, 0, 90, kKeep, "width 13: 13 - 8 - 3 < 3");

  // Width 29: blocks at 3 and 11 (19 > 29 - 11), so columns 19..28 are left.
  Plane src29 = constantPlane(29 * height, 90);
  Plane dst29 = constantPlane(29 * height, kKeep);
  horizontalFilter7x7neon_Smooth(src29.data(), dst29.data(), 29, height, 3);
  expectColumns(dst29, 29, 3, 19, 90, kKeep, "width 29");

  Plane dst0 = constantPlane(29 * height, kKeep);
  horizontalFilter7x7neon(src29.data(), dst0.data(), 29, 0, 3);
  expectColumns(dst0, 29, 0, 0, 90, kKeep, "height 0");

  Plane dst1 = constantPlane(29 * height, kKeep);
  horizontalFilter7x7neon(src29.data(), dst1.data(), 29, 1, 3);
  for (int32_t x = 0; x < 29; ++x) EXPECT_EQ(dst1[x], x >= 3 && x < 19 ? 90 : kKeep) << x;
  for (int32_t i = 29; i < 29 * height; ++i) ASSERT_EQ(dst1[i], kKeep) << "height 1, byte " << i;
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

TEST(Filter7x7, VerticalEntryTestAndBlockCoverage) {
  const int32_t width = 16;
  Plane src = constantPlane(width * 8, 70);
  Plane dst6 = constantPlane(width * 6, kKeep);
  VerticalFilter7x7neon(src.data(), dst6.data(), width, 6, 3);
  expectRows(dst6, width, 0, 0, width, 70, kKeep, "height 6: 6 - 3 <= 3");

  Plane dst7 = constantPlane(width * 7, kKeep);
  VerticalFilter7x7neon(src.data(), dst7.data(), width, 7, 3);
  expectRows(dst7, width, 3, 4, width, 70, kKeep, "height 7: row 3 only");

  Plane src20 = constantPlane(20 * 10, 70);
  Plane dst20 = constantPlane(20 * 10, kKeep);
  VerticalFilter7x7neon(src20.data(), dst20.data(), 20, 10, 3);
  expectRows(dst20, 20, 3, 7, 16, 70, kKeep, "width 20: columns 16..19 left");

  Plane src7 = constantPlane(7 * 10, 70);
  Plane dst7w = constantPlane(7 * 10, kKeep);
  VerticalFilter7x7neon_Smooth(src7.data(), dst7w.data(), 7, 10, 3);
  expectRows(dst7w, 7, 0, 0, 7, 70, kKeep, "width 7: no whole block");

  Plane dst1 = constantPlane(width, kKeep);
  VerticalFilter7x7neon_Smooth(src.data(), dst1.data(), width, 1, 3);
  expectRows(dst1, width, 0, 0, width, 70, kKeep, "height 1");
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

TEST(Scale2x, HalvingSamplesEvenRowsAndColumns) {
  Plane src(25);
  for (int i = 0; i < 25; ++i) src[i] = static_cast<uint8_t>(10 + i);
  for (auto halve : {downScale_2x_uint8_t, downScale_2x_uint8_t_NEON}) {
    Plane dst = constantPlane(6, kKeep);
    halve(src.data(), dst.data(), 5, 5, 5);
    const uint8_t expected[6] = {10, 12, 20, 22, kKeep, kKeep};  // (0,0) (0,2) (2,0) (2,2)
    for (int i = 0; i < 6; ++i) EXPECT_EQ(dst[i], expected[i]) << "byte " << i;
    Plane none = constantPlane(6, kKeep);
    halve(src.data(), none.data(), 5, 1, 5);
    halve(src.data(), none.data(), 1, 5, 5);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(none[i], kKeep) << "height or width 1, byte " << i;
  }
}

TEST(Scale2x, VectorHalvingKeepsToItsPackedPlane) {
  // w = 11: the row's second block is partial, yet nothing lands past 33 bytes.
  const int32_t width = 22, height = 6, stride = 24;
  Plane src(stride * height);
  for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(i * 7);
  Plane dst = constantPlane(11 * 3 + 16, kKeep);
  downScale_2x_uint8_t_NEON(src.data(), dst.data(), width, height, stride);
  for (int32_t r = 0; r < 3; ++r)
    for (int32_t c = 0; c < 11; ++c)
      EXPECT_EQ(dst[r * 11 + c], src[2 * r * stride + 2 * c]) << r << "," << c;
  for (size_t i = 33; i < dst.size(); ++i) EXPECT_EQ(dst[i], kKeep) << "byte " << i;
}

TEST(Scale2x, AveragingDoublingWritesAllButTheLastTwoRowsAndColumns) {
  const uint8_t src2[4] = {1, 2, 3, 5};
  Plane dst = constantPlane(16, kKeep);
  upscale_2x_uint8_t(src2, dst.data(), 2, 2, 2);
  for (int32_t y = 0; y < 4; ++y)
    for (int32_t x = 0; x < 4; ++x)
      EXPECT_EQ(dst[y * 4 + x], y < 2 && x < 2 ? 2 : kKeep) << y << "," << x;  // 11 >> 2

  // 3x3 source at stride 4: each output pair takes the 2x2 mean at its top-left.
  const uint8_t src3[12] = {0, 4, 8, 99, 40, 44, 48, 99, 80, 84, 88, 99};
  Plane dst3 = constantPlane(6 * 8, kKeep);
  upscale_2x_uint8_t(src3, dst3.data(), 3, 3, 4);
  const uint8_t means[2][2] = {{22, 26}, {62, 66}};
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 8; ++x)
      EXPECT_EQ(dst3[y * 8 + x], y < 4 && x < 4 ? means[y / 2][x / 2] : kKeep) << y << "," << x;

  Plane none = constantPlane(16, kKeep);
  upscale_2x_uint8_t(src2, none.data(), 2, 1, 2);
  upscale_2x_uint8_t(src2, none.data(), 1, 2, 2);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(none[i], kKeep) << "height or width 1, byte " << i;
}

TEST(Scale2x, ReplicatingDoublingFillsTwoByTwoBlocks) {
  const uint8_t src[4] = {1, 2, 3, 5};
  Plane dst = constantPlane(16, kKeep);
  upscale_2x_uint8_t_NEON(src, dst.data(), 2, 2, 2);
  const uint8_t expected[16] = {1, 1, 2, 2, 1, 1, 2, 2, 3, 3, 5, 5, 3, 3, 5, 5};
  for (int i = 0; i < 16; ++i) EXPECT_EQ(dst[i], expected[i]) << "byte " << i;

  Plane one = constantPlane(8 + 4, kKeep);
  upscale_2x_uint8_t_NEON(src, one.data(), 2, 1, 2);  // height 1: still two rows
  const uint8_t expectedOne[12] = {1, 1, 2, 2, 1, 1, 2, 2, kKeep, kKeep, kKeep, kKeep};
  for (int i = 0; i < 12; ++i) EXPECT_EQ(one[i], expectedOne[i]) << "height 1, byte " << i;
}

TEST(Scale2x, ReplicatingDoublingWithANegativeStrideWritesNothing) {
  const uint8_t src[4] = {1, 2, 3, 5};
  Plane dst = constantPlane(16, kKeep);
  upscale_2x_uint8_t_NEON(src, dst.data() + 8, 2, 2, -2);
  EXPECT_EQ(dst, constantPlane(16, kKeep));
}

TEST(Scale2x, ReplicatingDoublingCarriesTheLastBlockIntoRowPadding) {
  // Width 5, stride 12: the one 16-byte block doubles source columns 0..7,
  // padding included; bytes 16..23 of each even row are left as they were,
  // and the odd row is a copy of the whole even row.
  const int32_t width = 5, height = 2, stride = 12, pitch = 24;
  Plane src(stride * height);
  for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<uint8_t>(100 + i);
  Plane dst(pitch * 2 * height);
  for (size_t i = 0; i < dst.size(); ++i) dst[i] = static_cast<uint8_t>(i);
  const Plane before = dst;
  upscale_2x_uint8_t_NEON(src.data(), dst.data(), width, height, stride);
  for (int32_t y = 0; y < 2 * height; ++y) {
    const int32_t even = y & ~1;
    for (int32_t x = 0; x < pitch; ++x) {
      const uint8_t expected = x < 16 ? src[(y / 2) * stride + x / 2] : before[even * pitch + x];
      EXPECT_EQ(dst[y * pitch + x], expected) << y << "," << x;
    }
  }
  // Width 0: only the row copies are made.
  Plane copies(pitch * 2);
  for (size_t i = 0; i < copies.size(); ++i) copies[i] = static_cast<uint8_t>(i);
  upscale_2x_uint8_t_NEON(src.data(), copies.data(), 0, 1, stride);
  for (int32_t x = 0; x < pitch; ++x) {
    EXPECT_EQ(copies[x], x) << "even row, column " << x;
    EXPECT_EQ(copies[pitch + x], x) << "odd row, column " << x;
  }
}

TEST(ChromaUv, ExtractSplitsPairsAtHalfTheStride) {
  // Width 7 bytes: three pairs (the seventh byte is not a pair); stride 10.
  const uint8_t uv[20] = {1, 2, 3, 4, 5, 6, 7, 0, 0, 0, 11, 12, 13, 14, 15, 16, 17, 0, 0, 0};
  Plane u = constantPlane(10, kKeep), v = constantPlane(10, kKeep);
  extract_uvBuffer(uv, u.data(), v.data(), 7, 2, 10);
  const uint8_t expectedU[10] = {1, 3, 5, kKeep, kKeep, 11, 13, 15, kKeep, kKeep};
  const uint8_t expectedV[10] = {2, 4, 6, kKeep, kKeep, 12, 14, 16, kKeep, kKeep};
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(u[i], expectedU[i]) << "u byte " << i;
    EXPECT_EQ(v[i], expectedV[i]) << "v byte " << i;
  }
  Plane none = constantPlane(4, kKeep);
  extract_uvBuffer(uv, none.data(), none.data(), 1, 2, 10);  // no whole pair
  extract_uvBuffer(uv, none.data(), none.data(), 7, 0, 10);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(none[i], kKeep) << "byte " << i;
}

TEST(ChromaUv, CombineThenExtractGivesThePlanesBack) {
  for (int32_t n : {1, 5, 16, 37}) {
    const int32_t height = 3;
    Plane u(n * height), v(n * height);
    for (int32_t i = 0; i < n * height; ++i) {
      u[i] = static_cast<uint8_t>(3 * i + 1);
      v[i] = static_cast<uint8_t>(255 - 5 * i);
    }
    Plane uv = constantPlane(2 * n * height, kKeep);
    combine_uvBuffer(u.data(), v.data(), uv.data(), n, height);
    for (int32_t i = 0; i < n * height; ++i) {
      ASSERT_EQ(uv[2 * i], u[i]) << "pair " << i;
      ASSERT_EQ(uv[2 * i + 1], v[i]) << "pair " << i;
    }
    Plane u2 = constantPlane(n * height, kKeep), v2 = constantPlane(n * height, kKeep);
    extract_uvBuffer(uv.data(), u2.data(), v2.data(), 2 * n, height, 2 * n);
    EXPECT_EQ(u2, u) << "n " << n;
    EXPECT_EQ(v2, v) << "n " << n;
  }
  Plane none = constantPlane(4, kKeep);
  const uint8_t one[1] = {9};
  combine_uvBuffer(one, one, none.data(), 0, 1);
  combine_uvBuffer(one, one, none.data(), 1, 0);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(none[i], kKeep) << "byte " << i;
}

}  // namespace
