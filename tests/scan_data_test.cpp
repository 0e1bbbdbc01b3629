// The aligned-frame output: the filter that keeps the applied shift from
// jumping, and the previous frame laid over the current one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "align_fixture.h"
#include "checkasm.h"
#include "videohdr.h"

namespace {

struct Shift {
  int32_t dx, dy;
};

// A context of w x h with its workspace carved, the found shift in level 0
// and the applied one of the previous frame pair in lastDx / lastDy.
class ScanFixture {
 public:
  ScanFixture(int32_t w, int32_t h) : fx_(w, h) {}
  // Runs getScanData on (prev, cur) into a guarded output that starts random,
  // or, in place, into a guarded copy of cur.
  std::vector<uint8_t> run(Shift found, Shift last, const std::vector<uint8_t> &prev,
                           const std::vector<uint8_t> &cur, bool inPlace = false) {
    AlignContext *c = fx_.context();
    c->levelDx[0] = found.dx;
    c->levelDy[0] = found.dy;
    c->lastDx = last.dx;
    c->lastDy = last.dy;
    checkasm::Guarded out(prev.size());
    std::mt19937 rng(found.dx * 31 + found.dy);
    out.fillRandom(rng);
    if (inPlace) std::copy(cur.begin(), cur.end(), out.data());
    getScanData(c, prev.data(), inPlace ? out.data() : cur.data(), out.data());
    EXPECT_TRUE(out.guardsIntact()) << "shift " << found.dx << "," << found.dy;
    return out.bytes();
  }
  Shift applied() { return {fx_.context()->lastDx, fx_.context()->lastDy}; }

 private:
  AlignFixture fx_;
};

std::vector<uint8_t> randomFrame(int32_t w, int32_t h, std::mt19937 &rng) {
  return checkasm::randomBytes((3 * size_t(w) * h) / 2, rng);
}

TEST(ScanDataFilter, AppliesTheFourRulesToEveryKindOfChange) {
  struct Case {
    Shift found, last, applied;
    const char *why;
  } cases[] = {
      {{5, 0}, {0, 0}, {0, 0}, "a jump from rest beyond 4"},
      {{3, 0}, {0, 0}, {3, 0}, "a start from rest within 4"},
      {{4, -4}, {0, 0}, {4, -4}, "the largest start from rest"},
      {{-5, -5}, {0, 0}, {0, 0}, "both axes jump from rest"},
      {{0, 5}, {0, 0}, {0, 0}, "a vertical jump from rest"},
      {{5, 0}, {2, 0}, {5, 0}, "a moving axis may grow"},
      {{-9, 7}, {-1, 3}, {-9, 7}, "growth without bound in the same direction"},
      {{-2, 0}, {3, 0}, {0, 0}, "a horizontal reversal"},
      {{1, 0}, {-2, 0}, {0, 0}, "a reversal to a one-pixel move"},
      {{-3, 0}, {1, 0}, {0, 0}, "a reversal of a one-pixel move"},
      {{0, 1}, {0, -1}, {0, 0}, "a vertical reversal by one row"},
      {{3, -2}, {2, 3}, {3, 0}, "a vertical reversal keeps the horizontal move"},
      {{-3, 5}, {2, -1}, {0, 0}, "a reversal on both axes"},
      {{0, 2}, {3, 0}, {0, 0}, "a turn from horizontal to vertical"},
      {{0, 2}, {3, 1}, {0, 2}, "no turn when the last shift was diagonal"},
      {{2, 0}, {0, 3}, {0, 0}, "a turn from vertical to horizontal"},
      {{6, 0}, {0, 2}, {0, 0}, "a turn that would also be a jump"},
      {{1, 6}, {1, 0}, {1, 0}, "a vertical jump while moving horizontally"},
      {{-7, 2}, {-1, 0}, {-7, 2}, "a moving axis and a small vertical start"},
      {{0, 0}, {4, -3}, {0, 0}, "rest is always allowed"},
      {{0, -3}, {0, 2}, {0, 0}, "a vertical reversal on a vertical move"},
  };
  ScanFixture fx(16, 8);
  std::mt19937 rng(1);
  const std::vector<uint8_t> prev = randomFrame(16, 8, rng), cur = randomFrame(16, 8, rng);
  for (const Case &c : cases) {
    const std::vector<uint8_t> out = fx.run(c.found, c.last, prev, cur);
    EXPECT_EQ(fx.applied().dx, c.applied.dx) << c.why;
    EXPECT_EQ(fx.applied().dy, c.applied.dy) << c.why;
    // The output follows the applied shift, which a second run keeps as it is.
    EXPECT_EQ(out, fx.run(c.applied, c.applied, prev, cur)) << c.why;
  }
}

// The overlay on random frames against its per-pixel definition: luma (x, y)
// comes from the previous frame's (x + dx, y + dy) wherever that exists;
// chroma moves by cdx = dx rounded toward zero to even and cdy = dy / 2, over
// (h - |dy|) / 2 rows of (w - |dx|) & ~1 bytes, and only when h - |dy| >= 2.
std::vector<uint8_t> expectedOverlay(int32_t w, int32_t h, Shift s,
                                     const std::vector<uint8_t> &prev,
                                     const std::vector<uint8_t> &cur) {
  std::vector<uint8_t> out = cur;
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      const int32_t sx = x + s.dx, sy = y + s.dy;
      if (sx >= 0 && sx < w && sy >= 0 && sy < h) out[y * w + x] = prev[sy * w + sx];
    }
  const int32_t rows = h - std::abs(s.dy), bytes = (w - std::abs(s.dx)) & ~1;
  if (rows < 2 || bytes < 1) return out;
  const int32_t cdx = s.dx / 2 * 2, cdy = s.dy / 2;
  const int32_t firstRow = cdy < 0 ? -cdy : 0, firstCol = cdx < 0 ? -cdx : 0;
  for (int32_t r = firstRow; r < firstRow + rows / 2; ++r)
    for (int32_t c = firstCol; c < firstCol + bytes; ++c)
      out[w * h + r * w + c] = prev[w * h + (r + cdy) * w + c + cdx];
  return out;
}

TEST(ScanDataOverlay, EveryShiftMatchesThePerPixelDefinition) {
  std::mt19937 rng(3);
  const struct { int32_t w, h; } sizes[] = {{16, 10}, {9, 7}, {10, 5}, {33, 12}, {1, 4}, {8, 8}};
  for (const auto &size : sizes) {
    ScanFixture fx(size.w, size.h);
    const std::vector<uint8_t> prev = randomFrame(size.w, size.h, rng);
    const std::vector<uint8_t> cur = randomFrame(size.w, size.h, rng);
    // Past the frame on both axes too: nothing of the previous frame is left.
    for (int32_t dy = -size.h - 2; dy <= size.h + 2; ++dy)
      for (int32_t dx = -size.w - 2; dx <= size.w + 2; ++dx) {
        // A last shift equal to the found one keeps it whatever its size.
        const std::vector<uint8_t> expected = expectedOverlay(size.w, size.h, {dx, dy}, prev, cur);
        EXPECT_EQ(fx.run({dx, dy}, {dx, dy}, prev, cur), expected)
            << size.w << "x" << size.h << " shift " << dx << "," << dy;
        EXPECT_EQ(fx.run({dx, dy}, {dx, dy}, prev, cur, true), expected)
            << "in place, " << size.w << "x" << size.h << " shift " << dx << "," << dy;
        EXPECT_EQ(fx.applied().dx, dx);
        EXPECT_EQ(fx.applied().dy, dy);
      }
  }
}

}  // namespace
