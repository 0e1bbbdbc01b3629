// Portable against every other instance (NEON, SSE4.1, AVX2) for the
// byte-plane kernels: filters, scalers and chroma helpers, on random planes
// of many sizes. Sources are allocated to the bytes a call may read, so the
// sanitizer build also catches over-reads.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "checkasm.h"

namespace {

using videohdr::Filter7;
using videohdr::Kernels;

static_assert(checkasm::hasMembers<videohdr::PlaneKernels>(6), "a plane kernel without a case");

// A random source plane with `before` readable bytes in front of it and
// `after` behind it; plane() points at its first row.
struct Source {
  std::vector<uint8_t> bytes;
  size_t before;
  Source(size_t planeBytes, size_t before, size_t after, std::mt19937 &rng)
      : bytes(checkasm::randomBytes(before + planeBytes + after, rng, true)), before(before) {}
  const uint8_t *plane() const { return bytes.data() + before; }
};

// Borders below 3 read past the plane: 6 - 2 * border bytes after it in the
// horizontal pass; 3 - border rows above it in the vertical pass, and rows
// down to border + 3 when the plane is shorter than that.
void checkFilters(int32_t width, int32_t height, int32_t border, std::mt19937 &rng) {
  const int32_t missing = std::max(0, 3 - border);
  const int32_t rowsBelow = border < 3 ? std::max(0, border + 4 - height) : 0;
  const size_t plane = static_cast<size_t>(width) * height;
  const Source rows(plane, 0, 2 * missing, rng);
  const Source columns(plane, static_cast<size_t>(missing) * width,
                       static_cast<size_t>(rowsBelow) * width, rng);
  for (Filter7 kernel : {Filter7::Tent, Filter7::Smooth}) {
    checkasm::expectVariantsMatch(
        {plane, plane}, rng,
        [&](const Kernels &k, std::vector<uint8_t *> &out) {
          k.plane.filterRows7(rows.plane(), out[0], width, height, border, kernel);
          k.plane.filterColumns7(columns.plane(), out[1], width, height, border, kernel);
        },
        checkasm::name(kernel == Filter7::Tent ? "tent" : "smooth", width, height, border));
  }
}

TEST(DiffPlaneOps, Filters) {
  std::mt19937 rng(7);
  // Width 14 is the narrowest the horizontal pass takes, 8 the vertical one's;
  // every width up to 80 gives every mix of the x86 passes' 32-, 16- and
  // 8-column steps.
  for (int32_t width : checkasm::widthsToTry(8, 300, rng, 73))
    for (int32_t height : {1, 2, 6, 7, 8, 13, 21}) checkFilters(width, height, 3, rng);
  for (int32_t border : {0, 1, 2, 4, 5, 9})
    for (int32_t width : checkasm::widthsToTry(8, 120, rng, 24, 6))
      for (int32_t height : {1, 2 * border, 2 * border + 1, 2 * border + 6})
        checkFilters(width, height, border, rng);
}

TEST(DiffPlaneOps, Halving) {
  std::mt19937 rng(9);
  for (int32_t width : checkasm::widthsToTry(1, 400, rng)) {
    for (int32_t height : {1, 2, 3, 5, 16}) {
      for (int32_t pad : {0, 1, 7, 19}) {
        const int32_t stride = width + pad;
        // The plane ends with the last row's `width` bytes.
        const Source src(static_cast<size_t>(height - 1) * stride + width, 0, 0, rng);
        checkasm::expectVariantsMatch(
            {static_cast<size_t>(width >> 1) * (height >> 1)}, rng,
            [&](const Kernels &k, std::vector<uint8_t *> &out) {
              k.plane.downScale2x(src.plane(), out[0], width, height, stride);
            },
            checkasm::name("halving", width, height, stride));
      }
    }
  }
}

TEST(DiffPlaneOps, ReplicatingDoubling) {
  std::mt19937 rng(10);
  for (int32_t width : checkasm::widthsToTry(0, 300, rng)) {
    for (int32_t height : {1, 2, 5}) {
      // Strides below, at and above the width, including some that are not
      // whole doubling blocks, so the last block lands in the row padding.
      for (int32_t stride : {std::max(1, width - 3), width, width + 1, width + 5, width + 17}) {
        if (stride < 1) continue;
        const Source src(static_cast<size_t>(stride) * height, 0, 0, rng);
        checkasm::expectVariantsMatch(
            {static_cast<size_t>(4) * stride * height}, rng,
            [&](const Kernels &k, std::vector<uint8_t *> &out) {
              k.plane.upscale2xReplicate(src.plane(), out[0], width, height, stride);
            },
            checkasm::name("doubling", width, height, stride));
      }
    }
  }
}

TEST(DiffPlaneOps, ChromaSplitAndJoin) {
  std::mt19937 rng(11);
  for (int32_t width : checkasm::widthsToTry(1, 300, rng)) {
    for (int32_t height : {1, 2, 4}) {
      for (int32_t pad : {0, 1, 6}) {
        const int32_t stride = width + pad;
        const Source uv(static_cast<size_t>(height - 1) * stride + width, 0, 0, rng);
        const size_t half = static_cast<size_t>(stride >> 1) * height;
        checkasm::expectVariantsMatch(
            {half, half}, rng,
            [&](const Kernels &k, std::vector<uint8_t *> &out) {
              k.plane.extractUv(uv.plane(), out[0], out[1], width, height, stride);
            },
            checkasm::name("extract", width, height, stride));
      }
      const size_t pairs = static_cast<size_t>(width) * height;
      const Source u(pairs, 0, 0, rng), v(pairs, 0, 0, rng);
      checkasm::expectVariantsMatch(
          {2 * pairs}, rng,
          [&](const Kernels &k, std::vector<uint8_t *> &out) {
            k.plane.combineUv(u.plane(), v.plane(), out[0], width, height);
          },
          checkasm::name("combine", width, height, width));
    }
  }
}

}  // namespace
