// Portable against every other instance (NEON, SSE4.1, AVX2) for the copy and
// bitmap kernels: bulk copies, threshold sums and bits, pyramid decimation and
// row moves, on random contents and many widths.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "checkasm.h"

namespace {

using checkasm::name;
using videohdr::Kernels;

static_assert(checkasm::hasMembers<videohdr::CopyKernels>(1), "a copy kernel without a case");
static_assert(checkasm::hasMembers<videohdr::BitmapKernels>(6), "a bitmap kernel without a case");

size_t rowBytes(int32_t width) { return 4 * static_cast<size_t>(videohdr::bitmapWords(width)); }

// Every length around the 64-byte step and the sum's 4,096-byte widening, and
// a frame-sized one, from a source of exactly that length; saturated bytes
// for the widest sums.
TEST(DiffCopy, CopyAndCopyWithSum) {
  std::mt19937 rng(15);
  std::vector<int> lengths = checkasm::widthsToTry(0, 300000, rng, 140, 12);
  for (int n : {4095, 4096, 4097, 4096 + 63, 8192 + 64, 1920 * 1080}) lengths.push_back(n);
  for (int n : lengths) {
    std::vector<uint8_t> src = checkasm::randomBytes(n, rng);
    if (rng() % 2) std::fill(src.begin(), src.end(), uint8_t{255});
    checkasm::expectVariantsMatch(
        {size_t(n), size_t(n), sizeof(uint32_t)}, rng,
        [&](const Kernels &k, std::vector<uint8_t *> &out) {
          k.copy.copyBytes(out[0], src.data(), n);
          const uint32_t sum = k.bitmap.copyLumaAndSum(out[1], src.data(), n);
          std::memcpy(out[2], &sum, sizeof sum);
        },
        name("copy", n));
  }
}

// Luma sums (reading up to 7 bytes past a row; saturated rows wrap the
// lanes, also with every 8-byte remainder of a 32-byte step) and threshold
// bits at thresholds that hit the biased values.
TEST(DiffBitmap, SumsAndThresholdBits) {
  std::mt19937 rng(11);
  std::vector<int> widths = checkasm::widthsToTry(1, 4300, rng, 100);
  for (int w : {2056, 2057, 2063, 2064, 2072, 2080, 4096, 4103}) widths.push_back(w);
  for (int w : widths) {
    for (int h : {1, 2, 5}) {
      std::vector<uint8_t> image = checkasm::randomBytes(size_t(w) * h + 7, rng, true);
      if (rng() % 4 == 0) std::fill(image.begin(), image.end(), uint8_t{255});
      checkasm::expectSameResult<uint32_t>(
          [&](const Kernels &k) { return k.bitmap.sumLuma(image.data(), w, h); },
          name("sumLuma", w, h));
      for (uint8_t threshold : {uint8_t{0}, uint8_t{85}, uint8_t(rng()), uint8_t{255}}) {
        checkasm::expectVariantsMatch(
            {rowBytes(w) * h}, rng,
            [&](const Kernels &k, std::vector<uint8_t *> &out) {
              k.bitmap.packThresholdBits(image.data(), w, h, threshold,
                                         reinterpret_cast<uint32_t *>(out[0]));
            },
            name("packThresholdBits", w, h, int(threshold)));
      }
    }
  }
}

// Decimation of rows of every length to 70 words; row moves in both
// directions at every shift 1..31, on widths from a few pixels up, the
// search's smallest coarse level (129) and beyond, and the levels of the
// frame sizes the library is measured on.
TEST(DiffBitmap, DecimationAndRowMoves) {
  std::mt19937 rng(13);
  for (int words = 1; words <= 70; ++words) {
    const std::vector<uint32_t> src = checkasm::randomWords(2 * size_t(words), rng);
    checkasm::expectVariantsMatch(
        {4 * size_t(words)}, rng,
        [&](const Kernels &k, std::vector<uint8_t *> &out) {
          k.bitmap.decimateRow(src.data(), reinterpret_cast<uint32_t *>(out[0]), words);
        },
        name("decimateRow", words));
  }
  std::vector<int> widths = checkasm::widthsToTry(1, 2200, rng, 70, 20);
  for (int w = 129; w < 129 + 40; ++w) widths.push_back(w);
  for (int w : {1920, 960, 480, 240, 1366, 683, 341, 170, 2560, 1280, 640, 320})
    widths.push_back(w);
  for (int w : widths) {
    const std::vector<uint32_t> src = checkasm::randomWords(rowBytes(w) / 4, rng);
    for (int32_t shift = 1; shift < 32; ++shift) {
      checkasm::expectVariantsMatch(
          {rowBytes(w), rowBytes(w)}, rng,
          [&](const Kernels &k, std::vector<uint8_t *> &out) {
            k.bitmap.shiftRowLeft(src.data(), reinterpret_cast<uint32_t *>(out[0]), w, shift);
            k.bitmap.shiftRowRight(src.data(), reinterpret_cast<uint32_t *>(out[1]), w, shift);
          },
          name("row moves", w, shift));
    }
  }
}

// For rows that keep the sum plain, the copy's sum is sumLuma's of the copy.
TEST(DiffBitmap, CopyWithSumIsThePlainLumaSum) {
  std::mt19937 rng(16);
  for (int w : {8, 1920, 2048, 2056}) {
    ASSERT_TRUE(videohdr::lumaSumIsPlain(w));
    const auto image = checkasm::randomBytes(size_t(w) * 5, rng);
    std::vector<uint8_t> copy(image.size());
    const uint32_t sum = videohdr::copyLumaAndSumPortable(copy.data(), image.data(), copy.size());
    EXPECT_EQ(sum, videohdr::sumLumaPortable(copy.data(), w, 5)) << w;
  }
  for (int w : {7, 12, 2064}) EXPECT_FALSE(videohdr::lumaSumIsPlain(w)) << w;
}

}  // namespace
