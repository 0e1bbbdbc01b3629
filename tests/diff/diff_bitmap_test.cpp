// Portable against NEON for the bitmap kernels: threshold sums and bits,
// pyramid decimation and row moves, on random contents and many widths.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "alignment_op/bitmap_ops.h"
#include "checkasm.h"

namespace {

using checkasm::Variant;

size_t rowWords(int32_t width) { return static_cast<size_t>(videohdr::bitmapWords(width)); }

std::vector<uint32_t> randomWords(size_t n, std::mt19937 &rng) {
  std::vector<uint32_t> v(n);
  for (uint32_t &word : v) word = rng();
  return v;
}

TEST(DiffBitmap, SumLuma) {
  std::mt19937 rng(11);
  std::vector<int> widths = checkasm::widthsToTry(1, 4300, rng);
  for (int w : {2056, 2057, 2063, 2064, 4096, 4103}) widths.push_back(w);
  for (int w : widths) {
    for (int h : {1, 3}) {
      for (bool saturated : {false, true}) {
        // The last group of a row reads up to 7 bytes past it.
        std::vector<uint8_t> image = checkasm::randomBytes(static_cast<size_t>(w) * h + 7, rng);
        if (saturated) std::fill(image.begin(), image.end(), uint8_t{255});
        checkasm::expectVariantsMatch(
            {sizeof(uint32_t)}, rng,
            [&](Variant v, std::vector<uint8_t *> &out) {
              const uint32_t sum = v == Variant::Portable
                                       ? videohdr::sumLumaPortable(image.data(), w, h)
                                       : videohdr::sumLumaNeon(image.data(), w, h);
              std::memcpy(out[0], &sum, sizeof sum);
            },
            "sumLuma " + std::to_string(w) + "x" + std::to_string(h));
      }
    }
  }
}

TEST(DiffBitmap, PackThresholdBits) {
  std::mt19937 rng(12);
  std::vector<int> widths = checkasm::widthsToTry(1, 1200, rng, 100);
  for (int w : widths) {
    for (int h : {1, 2, 5}) {
      const std::vector<uint8_t> image =
          checkasm::randomBytes(static_cast<size_t>(w) * h, rng, true);
      for (uint8_t threshold :
           {uint8_t{0}, uint8_t{85}, static_cast<uint8_t>(rng()), uint8_t{255}}) {
        checkasm::expectVariantsMatch(
            {rowWords(w) * h * sizeof(uint32_t)}, rng,
            [&](Variant v, std::vector<uint8_t *> &out) {
              auto *bitmap = reinterpret_cast<uint32_t *>(out[0]);
              if (v == Variant::Portable)
                videohdr::packThresholdBitsPortable(image.data(), w, h, threshold, bitmap);
              else
                videohdr::packThresholdBitsNeon(image.data(), w, h, threshold, bitmap);
            },
            "packThresholdBits " + std::to_string(w) + "x" + std::to_string(h) + " at " +
                std::to_string(threshold));
      }
    }
  }
}

TEST(DiffBitmap, DecimateRow) {
  std::mt19937 rng(13);
  for (int words = 1; words <= 70; ++words) {
    const std::vector<uint32_t> src = randomWords(2 * static_cast<size_t>(words), rng);
    checkasm::expectVariantsMatch(
        {static_cast<size_t>(words) * sizeof(uint32_t)}, rng,
        [&](Variant v, std::vector<uint8_t *> &out) {
          auto *dst = reinterpret_cast<uint32_t *>(out[0]);
          if (v == Variant::Portable)
            videohdr::decimateRowPortable(src.data(), dst, words);
          else
            videohdr::decimateRowNeon(src.data(), dst, words);
        },
        "decimateRow " + std::to_string(words));
  }
}

// Both directions at every shift 1..31, on widths from a few pixels up, the
// search's smallest coarse level (129) and beyond.
void checkRowMoves(bool left, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<int> widths = checkasm::widthsToTry(1, 2200, rng, 70, 20);
  for (int w = 129; w < 129 + 40; ++w) widths.push_back(w);
  for (int w : widths) {
    const std::vector<uint32_t> src = randomWords(rowWords(w), rng);
    for (int32_t shift = 1; shift < 32; ++shift) {
      checkasm::expectVariantsMatch(
          {rowWords(w) * sizeof(uint32_t)}, rng,
          [&](Variant v, std::vector<uint8_t *> &out) {
            auto *dst = reinterpret_cast<uint32_t *>(out[0]);
            const bool portable = v == Variant::Portable;
            if (left)
              (portable ? videohdr::shiftRowLeftPortable : videohdr::shiftRowLeftNeon)(
                  src.data(), dst, w, shift);
            else
              (portable ? videohdr::shiftRowRightPortable : videohdr::shiftRowRightNeon)(
                  src.data(), dst, w, shift);
          },
          std::string(left ? "shiftRowLeft " : "shiftRowRight ") + std::to_string(w) + " by " +
              std::to_string(shift));
    }
  }
}

TEST(DiffBitmap, ShiftRowLeft) { checkRowMoves(true, 14); }
TEST(DiffBitmap, ShiftRowRight) { checkRowMoves(false, 15); }

}  // namespace
