// Portable against NEON for the search's candidate count, on random bitmaps
// and on bitmaps of the test photograph, every dx the count supports.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bitmap_pair.h"
#include "checkasm.h"
#include "test_image.h"

namespace {

using videohdr::Kernels;

// Both variants count every candidate dx in -31..31 for a few dy; each count
// is the compared output.
void expectCountsMatch(BitmapPair &b, std::mt19937 &rng, const std::string &what) {
  for (int32_t dy : {0, 1, -2, 3}) {
    for (int32_t dx = -31; dx <= 31; ++dx) {
      auto run = [&](const Kernels &k, std::vector<uint8_t *> &out) {
        const int32_t n = k.score.countCandidate(b.context(), 0, dy, dx);
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

// shiftPyramid's nine candidates scored together: both variants agree on
// whether the layout is theirs and on every score, and each score is the
// candidate's own count. Steps of 17 and widths past 3,968 (rows of 32 blocks)
// are not theirs; a height of 3 leaves the vertical candidates no rows.
TEST(DiffSearch, NineCandidatesTogether) {
  std::mt19937 rng(14);
  std::vector<int> widths = checkasm::widthsToTry(129, 2200, rng, 70);
  for (int w : {3968, 3969, 4000}) widths.push_back(w);
  for (int w : widths) {
    for (int32_t h : {3, 9}) {
      for (int32_t step : {2, -2, 1, 16, 17}) {
        BitmapPair b(w, h);
        b.fillRandom(rng);
        b.context()->searchStep = step;
        const std::string what =
            "w " + std::to_string(w) + " h " + std::to_string(h) + " step " + std::to_string(step);
        bool fused = false;
        auto run = [&](const Kernels &k, std::vector<uint8_t *> &out) {
          int32_t scores[9] = {};
          const bool ok = k.score.scoreNineCandidates(b.context(), 0, scores);
          out[0][0] = ok;
          std::memcpy(out[1], scores, sizeof scores);
          fused = ok;
        };
        checkasm::expectVariantsMatch({1, 9 * sizeof(int32_t)}, rng, run, what);
        int32_t scores[9] = {};
        if (!videohdr::scoreNineCandidatesPortable(b.context(), 0, scores)) continue;
        const int32_t offsets[3] = {0, -step, step};
        for (int i = 0; i < 9; ++i) {
          EXPECT_EQ(scores[i], b.count(offsets[i / 3], offsets[i % 3]))
              << what << " candidate " << i;
        }
        EXPECT_TRUE(fused);
      }
    }
  }
}

}  // namespace
