// Portable against NEON for the search's candidate count, on random bitmaps
// and on bitmaps of the test photograph, every dx the count supports.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "alignment_op/search_ops.h"
#include "bitmap_pair.h"
#include "checkasm.h"
#include "test_image.h"

namespace {

using checkasm::Variant;

// Both variants count every candidate dx in -31..31 for a few dy; each count
// is the compared output.
void expectCountsMatch(BitmapPair &b, std::mt19937 &rng, const std::string &what) {
  for (int32_t dy : {0, 1, -2, 3}) {
    for (int32_t dx = -31; dx <= 31; ++dx) {
      auto run = [&](Variant v, std::vector<uint8_t *> &out) {
        const int32_t n = v == Variant::Portable
                              ? videohdr::xorTwoPyramidPortable(b.context(), 0, dy, dx)
                              : videohdr::xorTwoPyramidNeon(b.context(), 0, dy, dx);
        std::memcpy(out[0], &n, sizeof n);
      };
      checkasm::expectVariantsMatch(
          {sizeof(int32_t)}, rng, run,
          what + " dy " + std::to_string(dy) + " dx " + std::to_string(dx));
    }
  }
}

TEST(DiffSearch, RandomBitmaps) {
  std::mt19937 rng(11);
  std::vector<int> widths = checkasm::widthsToTry(129, 2200, rng);
  widths.push_back(4096);
  for (int w : widths) {
    BitmapPair b(w, 7);
    b.fillRandom(rng);
    expectCountsMatch(b, rng, "random w " + std::to_string(w));
  }
}

TEST(DiffSearch, WrappingLanes) {
  // Dense disagreement on rows of 32 blocks drives the 8-bit lanes past 255.
  std::mt19937 rng(12);
  for (int w : {4001, 4064, 4096}) {
    BitmapPair b(w, 6);
    b.fillRandom(rng);
    for (int32_t y = 0; y < 6; ++y) {
      for (int32_t k = 0; k < b.words(); ++k) {
        b.moved(y)[k] = ~0u;
        b.cur(y)[k] &= rng() & rng() & rng();
      }
    }
    expectCountsMatch(b, rng, "wrapping w " + std::to_string(w));
  }
}

TEST(DiffSearch, PhotoBitmaps) {
  const GreyImage img = loadTestPhoto();
  ASSERT_FALSE(img.pixels.empty());
  std::mt19937 rng(13);
  std::vector<int> widths = checkasm::widthsToTry(129, img.width - 8, rng, 12, 8);
  widths.push_back(img.width - 8);
  const int32_t h = 8;
  for (int w : widths) {
    // The reference at (0, 600), the previous frame 5 pixels right, 2 rows lower,
    // both thresholded at mid grey.
    BitmapPair b(w, h);
    b.clear();
    for (int32_t y = 0; y < h; ++y) {
      for (int32_t x = 0; x < w; ++x) {
        if (img.at(x, 600 + y) > 96) setBit(b.cur(y), x);
        if (img.at(x + 5, 602 + y) > 96) setBit(b.moved(y), x);
      }
    }
    expectCountsMatch(b, rng, "photo w " + std::to_string(w));
  }
}

}  // namespace
