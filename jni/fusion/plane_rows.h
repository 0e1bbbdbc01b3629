// What every instance of the plane kernels shares: the block rules that say
// which rows and columns a pass covers, the two 7-tap kernels, and the
// portable row functions. The vector instances run whole blocks and hand the
// rest of a row to these rows, so a tail gives the reference's bytes.
#ifndef VIDEOHDR_FUSION_PLANE_ROWS_H
#define VIDEOHDR_FUSION_PLANE_ROWS_H

#include <cstdint>

#include "../any_row.h"
#include "plane_ops.h"

namespace videohdr {

constexpr int kFilterTaps = 7;
constexpr int kFilterBlock = 8;  // results per block, in both 7-tap passes

// Both kernels are symmetric, so a result is t0 (x0 + x6) + t1 (x1 + x5) +
// t2 (x2 + x4) + t3 x3: four products instead of seven. The taps are
// compile-time constants of each instantiation.
template <Filter7 K>
struct Kernel7;
template <>
struct Kernel7<Filter7::Tent> {
  static constexpr uint16_t t0 = 1, t1 = 2, t2 = 3, t3 = 4;
  static constexpr int shift = 4;
};
template <>
struct Kernel7<Filter7::Smooth> {
  static constexpr uint16_t t0 = 4, t1 = 4, t2 = 5, t3 = 6;
  static constexpr int shift = 5;
};

template <Filter7 K>
uint8_t filterValue(int x0, int x1, int x2, int x3, int x4, int x5, int x6) {
  using k = Kernel7<K>;
  const uint16_t sum =
      static_cast<uint16_t>(k::t0 * (x0 + x6) + k::t1 * (x1 + x5) + k::t2 * (x2 + x4) + k::t3 * x3);
  return static_cast<uint8_t>(sum >> k::shift);
}

// A negative border would place results before the destination, so such a
// call writes nothing; otherwise these are the passes' own size tests, taken
// in 64 bits so that extreme arguments are refused instead of wrapping.
inline bool rowPassRuns(int32_t width, int32_t height, int32_t border) {
  return border >= 0 && height >= 1 && (int64_t{width} - kFilterBlock) - border >= border;
}
inline bool columnPassRuns(int32_t width, int32_t height, int32_t border) {
  return border >= 0 && width >= kFilterBlock && int64_t{height} - border > border;
}

// The horizontal pass runs blocks while border + 8k <= width - 8 - border and
// reads each block from source column 8k, whatever the border: the result in
// column border + 8k + i is centred on source column 3 + 8k + i.
inline int32_t rowPassOutputs(int32_t width, int32_t border) {
  return kFilterBlock * ((width - kFilterBlock - 2 * border) / kFilterBlock + 1);
}

// The vertical pass's window starts at rows border - 3 .. border + 3 and,
// after output t, takes row 2 * border + 1 + t as its new last line. Entry
// `index` of that row sequence (window of output t = entries t .. t + 6):
// with border 3 this is simply row `index`, otherwise the appended rows do
// not follow on from the first window.
inline int32_t windowRow(int32_t index, int32_t border) {
  return index < kFilterTaps ? border - 3 + index : 2 * border + 1 + (index - kFilterTaps);
}

// Only whole blocks of 8 columns are filtered; trailing columns are left alone.
inline int32_t columnPassColumns(int32_t width) { return width / kFilterBlock * kFilterBlock; }

// `outputs` results of one row, result x from source bytes x .. x + 6.
// Static: each source keeps its own copy, which GCC compiles for that
// source's callers alone (an external copy comes out larger, as it must
// allow for callers it cannot see).
template <Filter7 K>
static void filterRow7Portable(const uint8_t *s, uint8_t *d, int32_t outputs) {
  for (int32_t x = 0; x < outputs; ++x)
    d[x] = filterValue<K>(s[x], s[x + 1], s[x + 2], s[x + 3], s[x + 4], s[x + 5], s[x + 6]);
}

// Each odd row of the doubling is a copy of the whole even row, 2 * stride
// bytes: with a negative stride that copy has no meaning (nor any size), so
// such a call writes nothing, like one without rows.
inline bool doublingRuns(int32_t height, int32_t stride) { return height >= 1 && stride >= 0; }

inline void halveRowPortable(const uint8_t *s, uint8_t *d, int32_t outputs) {
  for (int32_t c = 0; c < outputs; ++c) d[c] = s[2 * c];
}

inline void doubleBytesPortable(const uint8_t *s, uint8_t *d, int32_t bytes) {
  for (int32_t x = 0; x < bytes; ++x) d[x] = s[x >> 1];
}

// The chroma rows: `pairs` pairs of one row.
inline void splitPairs(const uint8_t *uv, uint8_t *u, uint8_t *v, int32_t pairs) {
  for (int32_t k = 0; k < pairs; ++k) {
    u[k] = uv[2 * k];
    v[k] = uv[2 * k + 1];
  }
}

inline void joinPairs(const uint8_t *u, const uint8_t *v, uint8_t *uv, int32_t pairs) {
  for (int32_t k = 0; k < pairs; ++k) {
    uv[2 * k] = u[k];
    uv[2 * k + 1] = v[k];
  }
}

// The row drivers of the halving and of the chroma split and join: each row
// in the instance's whole blocks of `Block` outputs (bytes or pairs), the
// rest by the portable row. Every output is its own source byte or pair, so
// the blocks need no other rule.
using HalveBlocks = void (*)(const uint8_t *s, uint8_t *d, int32_t end);
using SplitBlocks = void (*)(const uint8_t *uv, uint8_t *u, uint8_t *v, int32_t end);
using JoinBlocks = void (*)(const uint8_t *u, const uint8_t *v, uint8_t *uv, int32_t end);

template <int32_t Block, HalveBlocks blocks>
void halveRows(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height, int32_t stride) {
  const int32_t h = height >> 1;
  const int32_t w = width >> 1;
  if (h < 1 || w < 1) return;
  for (int32_t r = 0; r < h; ++r) {
    const uint8_t *s = planeRow(src, 2 * r, stride);
    uint8_t *d = planeRow(dst, r, w);
    blocksThenRest(
        wholeBlocks<Block>(w), w, [=](int32_t end) { blocks(s, d, end); },
        [=](int32_t at, int32_t rest) { halveRowPortable(s + 2 * at, d + at, rest); });
  }
}

template <int32_t Block, SplitBlocks blocks>
void splitRows(const uint8_t *uvBuf, uint8_t *uBuf, uint8_t *vBuf, int32_t width, int32_t height,
               int32_t stride) {
  const int32_t pairs = width >> 1;
  if (height < 1 || pairs < 1) return;
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t *uv = planeRow(uvBuf, y, stride);
    uint8_t *u = planeRow(uBuf, y, stride >> 1);
    uint8_t *v = planeRow(vBuf, y, stride >> 1);
    blocksThenRest(
        wholeBlocks<Block>(pairs), pairs, [=](int32_t end) { blocks(uv, u, v, end); },
        [=](int32_t at, int32_t rest) { splitPairs(uv + 2 * at, u + at, v + at, rest); });
  }
}

template <int32_t Block, JoinBlocks blocks>
void joinRows(const uint8_t *uBuf, const uint8_t *vBuf, uint8_t *uvBuf, int32_t width,
              int32_t height) {
  if (height < 1 || width < 1) return;
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t *u = planeRow(uBuf, y, width);
    const uint8_t *v = planeRow(vBuf, y, width);
    uint8_t *uv = planeRow(uvBuf, y, 2 * width);
    blocksThenRest(
        wholeBlocks<Block>(width), width, [=](int32_t end) { blocks(u, v, uv, end); },
        [=](int32_t at, int32_t rest) { joinPairs(u + at, v + at, uv + 2 * at, rest); });
  }
}

}  // namespace videohdr

#endif  // VIDEOHDR_FUSION_PLANE_ROWS_H
