// Portable against NEON for the full-resolution XOR count and the block
// gradient sum, over many widths, shifts and heights. Inputs are sized
// exactly to what each kernel may read, so a sanitizer build catches any
// read beyond.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "checkasm.h"

namespace {

using videohdr::Kernels;

// Random words, some all zeros and some all ones; `dense` makes most of them
// all ones so that the 8-bit lanes of wide rows run past 255.
std::vector<uint32_t> randomWords(size_t n, std::mt19937 &rng, bool dense) {
  std::vector<uint32_t> v(n);
  for (auto &w : v) {
    const uint32_t pick = rng() % 8;
    if (dense)
      w = pick == 0 ? static_cast<uint32_t>(rng()) : ~0u;
    else
      w = pick == 0 ? 0u : pick == 1 ? ~0u : static_cast<uint32_t>(rng());
  }
  return v;
}

void expectXorCountsMatch(int32_t width, int32_t rows, int32_t words, int32_t shift,
                          std::mt19937 &rng) {
  const int32_t pitch = (width + 63) >> 5;
  const size_t n = static_cast<size_t>(pitch) * rows;
  const bool dense = rng() % 2 == 0;
  const std::vector<uint32_t> displaced = randomWords(n, rng, dense);
  const std::vector<uint32_t> other =
      dense ? std::vector<uint32_t>(n, 0u) : randomWords(n, rng, false);
  checkasm::expectVariantsMatch(
      {4 * sizeof(uint32_t)}, rng,
      [&](const Kernels &k, std::vector<uint8_t *> &out) {
        uint32_t totals[4];
        k.score.countXorBlocks(displaced.data(), other.data(), pitch, rows, words, shift, totals);
        std::memcpy(out[0], totals, sizeof totals);
      },
      "xor count width " + std::to_string(width) + " words " + std::to_string(words) + " shift " +
          std::to_string(shift));
}

TEST(DiffExtraTest, XorCountBlocks) {
  std::mt19937 rng(0x5eed);
  std::vector<int> widths = checkasm::widthsToTry(1, 4300, rng, 140, 16);
  for (int extra : {3968, 3969, 4000, 4128, 4200}) widths.push_back(extra);
  for (int width : widths) {
    const int32_t pitch = (width + 63) >> 5;
    const int32_t rows = 1 + static_cast<int32_t>(rng() % 4);
    // No shift: every data word.
    expectXorCountsMatch(width, rows, pitch - 1, 0, rng);
    // Shifted: up to the last data word or the one before it, as the edge
    // word falls; the word after the counted ones feeds the funnel.
    for (int32_t shift = 1; shift < 32 && shift < width;
         shift += 1 + static_cast<int32_t>(rng() % 5)) {
      expectXorCountsMatch(width, rows, pitch - 2, shift, rng);
      if (pitch >= 3) expectXorCountsMatch(width, rows, pitch - 3, shift, rng);
    }
  }
}

// Sobel_Neon's block sum over a plane followed by exactly the bytes its last
// block reads past the plane.
void expectBlockSumsMatch(const std::vector<uint8_t> &plane, int32_t width, int32_t height,
                          std::mt19937 &rng) {
  checkasm::expectVariantsMatch(
      {sizeof(double)}, rng,
      [&](const Kernels &k, std::vector<uint8_t *> &out) {
        const double sum = k.score.sobelBlockSum(plane.data(), width, height);
        std::memcpy(out[0], &sum, sizeof sum);
      },
      "sobel " + std::to_string(width) + "x" + std::to_string(height));
}

size_t bytesReadPastPlane(int32_t width) {
  if (width < 9) return 0;
  const int32_t blocks = (width - 8 + 7) / 8;
  const int32_t past = 8 * blocks - width + 2;
  return past > 0 ? static_cast<size_t>(past) : 0;
}

TEST(DiffExtraTest, SobelBlockSums) {
  std::mt19937 rng(0x50be1);
  for (int width : checkasm::widthsToTry(1, 1500, rng, 60, 20)) {
    for (int32_t height : {1, 3, 4, 7}) {
      const size_t bytes = static_cast<size_t>(width) * height + bytesReadPastPlane(width);
      expectBlockSumsMatch(checkasm::randomBytes(bytes, rng, true), width, height, rng);
    }
  }
}

TEST(DiffExtraTest, SobelBlockSumsWrappingLanes) {
  // Full-strength values on wide rows push the 16-bit lanes past 32,767 and
  // 65,535.
  std::mt19937 rng(0xed6e);
  for (int32_t width : {1033, 1041, 1100, 2056, 2600, 4097}) {
    const int32_t height = 4;
    std::vector<uint8_t> plane(static_cast<size_t>(width) * height + bytesReadPastPlane(width));
    for (size_t i = 0; i < plane.size(); ++i)
      plane[i] = ((i % static_cast<size_t>(width)) / 2) % 2 == 0 ? 255 : (rng() % 3 == 0 ? 40 : 0);
    expectBlockSumsMatch(plane, width, height, rng);
  }
}

}  // namespace
