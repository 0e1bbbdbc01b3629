// Portable against every other instance (NEON, SSE4.1, AVX2) for the scoring
// kernels: the search's candidate
// count and its nine-candidate passes, the full-resolution word counter and
// the block gradient sum. Inputs are sized exactly to what each kernel may
// read, so the sanitizer build catches any read beyond.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bitmap_pair.h"
#include "checkasm.h"

namespace {

using videohdr::Kernels;

static_assert(checkasm::hasMembers<videohdr::ScoreKernels>(4), "a score kernel without a case");

// Every candidate dx in -31..31 for a few dy.
void expectCountsMatch(BitmapPair &b, const std::string &what) {
  for (int32_t dy : {0, 1, -2, 3})
    for (int32_t dx = -31; dx <= 31; ++dx)
      checkasm::expectSameResult<int32_t>(
          [&](const Kernels &k) { return k.score.countCandidate(b.context(), 0, dy, dx); },
          checkasm::name(what, dy, dx));
}

// Rows of 32 or more blocks with dense disagreement drive the 8-bit lanes
// past 255 (with `total`, every bit disagrees and every lane wraps).
void makeDense(BitmapPair &b, std::mt19937 &rng, bool total = false) {
  for (int32_t y = 0; y < b.height(); ++y)
    for (int32_t k = 0; k < b.words(); ++k) {
      b.moved(y)[k] = ~0u;
      b.cur(y)[k] &= total ? 0u : rng() & rng() & rng();
    }
}

TEST(DiffScore, CandidateCounts) {
  std::mt19937 rng(11);
  std::vector<int> widths = checkasm::widthsToTry(129, 2200, rng);
  widths.push_back(4096);
  for (int w : widths) {
    BitmapPair b(w, 7);
    b.fillRandom(rng);
    expectCountsMatch(b, "random w " + std::to_string(w));
  }
  for (int w : {4001, 4064, 4096}) {
    BitmapPair b(w, 6);
    b.fillRandom(rng);
    makeDense(b, rng);
    expectCountsMatch(b, "wrapping w " + std::to_string(w));
  }
}

// shiftPyramid's nine candidates scored together: every instance agrees on
// whether the layout is its own and on every score, and each score it gives
// is the candidate's own count. Steps of 17 and rows of 32 blocks (where the
// dense rows wrap the count's lanes) are not theirs; a height of 3 leaves the
// vertical candidates no rows, and 36 leaves a step of 16 fifteen rows at the
// top and the bottom that only the unmoved row compares. The spread of widths
// to 900 gives rows of one to seven body blocks with every tail length (the
// AVX2 passes count body blocks in pairs).
TEST(DiffScore, NineCandidatesTogether) {
  std::mt19937 rng(14);
  std::vector<int> widths = checkasm::widthsToTry(129, 2200, rng, 70);
  for (int w = 200; w < 900; w += 37) widths.push_back(w);
  for (int w : {3968, 3969, 4000, 4064, 4096}) widths.push_back(w);
  for (int w : widths) {
    for (int32_t h : {3, 9, 36}) {
      for (int32_t step : {2, -2, 1, 16, 17}) {
        BitmapPair b(w, h);
        b.fillRandom(rng);
        if (w >= 3968) makeDense(b, rng, true);
        b.context()->searchStep = step;
        const std::string what = checkasm::name("w", w, "h", h, "step", step);
        checkasm::expectVariantsMatch(
            {1, 9 * sizeof(int32_t)}, rng,
            [&](const Kernels &k, std::vector<uint8_t *> &out) {
              int32_t scores[9] = {};
              out[0][0] = k.score.scoreNineCandidates(b.context(), 0, scores);
              std::memcpy(out[1], scores, sizeof scores);
            },
            what);
        int32_t scores[9] = {};
        if (!videohdr::scoreNineCandidatesPortable(b.context(), 0, scores)) continue;
        const int32_t offsets[3] = {0, -step, step};
        for (int i = 0; i < 9; ++i)
          EXPECT_EQ(scores[i], b.count(offsets[i / 3], offsets[i % 3])) << what << " #" << i;
      }
    }
  }
}

// Random words, some all zeros and some all ones; `dense` makes most of them
// all ones so that the 8-bit lanes of wide rows run past 255.
std::vector<uint32_t> wordsOf(size_t n, std::mt19937 &rng, bool dense) {
  std::vector<uint32_t> v(n);
  for (auto &w : v) {
    const uint32_t pick = rng() % 8, random = rng();
    w = dense ? (pick == 0 ? random : ~0u) : pick == 0 ? 0u : pick == 1 ? ~0u : random;
  }
  return v;
}

TEST(DiffScore, FullResolutionWordCounts) {
  std::mt19937 rng(0x5eed);
  std::vector<int> widths = checkasm::widthsToTry(1, 4300, rng, 140, 16);
  for (int extra : {3968, 3969, 4000, 4128, 4200}) widths.push_back(extra);
  for (int width : widths) {
    const int32_t pitch = (width + 63) >> 5;
    const int32_t rows = 1 + static_cast<int32_t>(rng() % 4);
    // Unshifted: every data word. Shifted: up to the last data word or the
    // one before it, as the edge word falls; the word after feeds the funnel.
    std::vector<std::pair<int32_t, int32_t>> cases = {{0, pitch - 1}};
    for (int32_t shift = 1; shift < 32 && shift < width; shift += 1 + int32_t(rng() % 5)) {
      cases.push_back({shift, pitch - 2});
      if (pitch >= 3) cases.push_back({shift, pitch - 3});
    }
    for (const auto &c : cases) {
      const size_t n = static_cast<size_t>(pitch) * rows;
      const bool dense = rng() % 2 == 0;
      const std::vector<uint32_t> displaced = wordsOf(n, rng, dense);
      const std::vector<uint32_t> other =
          dense ? std::vector<uint32_t>(n, 0u) : wordsOf(n, rng, false);
      checkasm::expectVariantsMatch(
          {4 * sizeof(uint32_t)}, rng,
          [&](const Kernels &k, std::vector<uint8_t *> &out) {
            uint32_t totals[4];
            k.score.countXorBlocks(displaced.data(), other.data(), pitch, rows, c.second, c.first,
                                   totals);
            std::memcpy(out[0], totals, sizeof totals);
          },
          checkasm::name("xor count", width, c.first));
    }
  }
}

// Sobel_Neon's block sum over a plane followed by exactly the bytes its last
// block reads past the plane; full-strength columns on wide rows push the
// 16-bit lanes past 32,767 and 65,535.
TEST(DiffScore, BlockGradientSums) {
  std::mt19937 rng(0x50be1);
  auto check = [&](const std::vector<uint8_t> &plane, int32_t width, int32_t height) {
    checkasm::expectSameResult<double>(
        [&](const Kernels &k) { return k.score.sobelBlockSum(plane.data(), width, height); },
        checkasm::name("sobel", width, height));
  };
  auto bytesReadPastPlane = [](int32_t width) -> size_t {
    const int32_t past = width < 9 ? 0 : 8 * ((width - 1) / 8) - width + 2;
    return past > 0 ? static_cast<size_t>(past) : 0;
  };
  for (int width : checkasm::widthsToTry(1, 1500, rng, 60, 20))
    for (int32_t height : {1, 3, 4, 7})
      check(checkasm::randomBytes(width * height + bytesReadPastPlane(width), rng, true), width,
            height);
  for (int32_t width : {1033, 1041, 1100, 2056, 2600, 4097}) {
    std::vector<uint8_t> plane(static_cast<size_t>(width) * 4 + bytesReadPastPlane(width));
    for (size_t i = 0; i < plane.size(); ++i)
      plane[i] = ((i % width) / 2) % 2 == 0 ? 255 : (rng() % 3 == 0 ? 40 : 0);
    check(plane, width, 4);
  }
}

}  // namespace
