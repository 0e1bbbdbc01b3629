// Separable 7-tap low-pass filters on byte planes whose pitch is their width:
// a horizontal and a vertical pass, each with the tent or the flat kernel.
// Sums stay in 16 bits (at most 255 * 32) and are truncated by the shift.
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "../any_row.h"
#include "../kernels.h"
#include "../simd.h"
#include "plane_ops.h"
#include "plane_rows.h"
#include "videohdr.h"
#include "wide_lanes.h"

namespace videohdr {
namespace {

template <Filter7 K>
void filterRows7Portable(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                         int32_t border) {
  const int32_t outputs = rowPassOutputs(width, border);
  for (int32_t y = 0; y < height; ++y)
    filterRow7Portable<K>(planeRow(src, y, width), planeRow(dst, y, width) + border, outputs);
}

// Output row t from the seven source rows of its window, all columns.
template <Filter7 K>
void filterColumns7Portable(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                            int32_t border) {
  const int32_t columns = columnPassColumns(width);
  for (int32_t t = 0; t < height - 2 * border; ++t) {
    const uint8_t *line[kFilterTaps];
    for (int m = 0; m < kFilterTaps; ++m) line[m] = planeRow(src, windowRow(t + m, border), width);
    uint8_t *d = planeRow(dst, border + t, width);
    for (int32_t x = 0; x < columns; ++x) {
      d[x] = filterValue<K>(line[0][x], line[1][x], line[2][x], line[3][x], line[4][x], line[5][x],
                            line[6][x]);
    }
  }
}

}  // namespace

void filterRows7Portable(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                         int32_t border, Filter7 kernel) {
  if (!rowPassRuns(width, height, border)) return;
  if (kernel == Filter7::Tent)
    filterRows7Portable<Filter7::Tent>(src, dst, width, height, border);
  else
    filterRows7Portable<Filter7::Smooth>(src, dst, width, height, border);
}

void filterColumns7Portable(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                            int32_t border, Filter7 kernel) {
  if (!columnPassRuns(width, height, border)) return;
  if (kernel == Filter7::Tent)
    filterColumns7Portable<Filter7::Tent>(src, dst, width, height, border);
  else
    filterColumns7Portable<Filter7::Smooth>(src, dst, width, height, border);
}

#if VIDEOHDR_HAVE_NEON
namespace {

// A horizontal block of 8 results loads 16 bytes (it uses 14).
constexpr int kRowBlockLoad = 16;
// A double block (16 results) loads 32 bytes.
constexpr int kDoubleBlockLoad = 32;

// The taps scaled by 2^(8 - shift), so that they sum to 256: a result is
// then the high byte of its 16-bit sum (at most 255 x 256, which does not
// wrap), the same as the sum of the plain taps shifted right.
template <Filter7 K>
struct ScaledTaps {
  static constexpr int scale = 8 - Kernel7<K>::shift;
  static constexpr uint8_t t0 = Kernel7<K>::t0 << scale, t1 = Kernel7<K>::t1 << scale,
                           t2 = Kernel7<K>::t2 << scale, t3 = Kernel7<K>::t3 << scale;
};

// The weighted sum of seven operand vectors, one widening multiply-accumulate
// per tap, and its high bytes.
template <Filter7 K>
inline uint8x8_t filterLanes(uint8x8_t x0, uint8x8_t x1, uint8x8_t x2, uint8x8_t x3, uint8x8_t x4,
                             uint8x8_t x5, uint8x8_t x6) {
  using t = ScaledTaps<K>;
  uint16x8_t sum = vmull_u8(x3, vdup_n_u8(t::t3));
  sum = vmlal_u8(vmlal_u8(sum, x2, vdup_n_u8(t::t2)), x4, vdup_n_u8(t::t2));
  sum = vmlal_u8(vmlal_u8(sum, x1, vdup_n_u8(t::t1)), x5, vdup_n_u8(t::t1));
  sum = vmlal_u8(vmlal_u8(sum, x0, vdup_n_u8(t::t0)), x6, vdup_n_u8(t::t0));
  return vshrn_n_u16(sum, 8);
}

// The same on sixteen lanes.
template <Filter7 K>
inline uint8x16_t filterLanes(const uint8x16_t (&x)[kFilterTaps]) {
  using t = ScaledTaps<K>;
  const uint8x16_t outer = vdupq_n_u8(t::t0), next = vdupq_n_u8(t::t1);
  const uint8x16_t inner = vdupq_n_u8(t::t2), centre = vdupq_n_u8(t::t3);
  WideSum sum = multiplyWide(x[3], centre);
  sum = multiplyAddWide(multiplyAddWide(sum, x[2], inner), x[4], inner);
  sum = multiplyAddWide(multiplyAddWide(sum, x[1], next), x[5], next);
  sum = multiplyAddWide(multiplyAddWide(sum, x[0], outer), x[6], outer);
  return highBytes(sum);
}

// Eight results from 16 loaded bytes: the seven operands are the bytes at
// lane offsets 0..6 of the two halves joined, so each byte is loaded once.
template <Filter7 K>
uint8x8_t filterRowBlockNeon(const uint8_t *s) {
  const uint8x16_t bytes = vld1q_u8(s);
  const uint8x8_t lo = vget_low_u8(bytes), hi = vget_high_u8(bytes);
  return filterLanes<K>(lo, vext_u8(lo, hi, 1), vext_u8(lo, hi, 2), vext_u8(lo, hi, 3),
                        vext_u8(lo, hi, 4), vext_u8(lo, hi, 5), vext_u8(lo, hi, 6));
}

// Sixteen results from 32 loaded bytes, the same way on 16-byte vectors.
template <Filter7 K>
uint8x16_t filterRowDoubleBlockNeon(const uint8_t *s) {
  const uint8x16_t a = vld1q_u8(s), b = vld1q_u8(s + 16);
  return filterLanes<K>({a, vextq_u8(a, b, 1), vextq_u8(a, b, 2), vextq_u8(a, b, 3),
                         vextq_u8(a, b, 4), vextq_u8(a, b, 5), vextq_u8(a, b, 6)});
}

template <Filter7 K>
void filterRows7Neon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                     int32_t border) {
  const int32_t outputs = rowPassOutputs(width, border);
  const int64_t planeBytes = static_cast<int64_t>(width) * height;
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t *s = planeRow(src, y, width);
    uint8_t *d = planeRow(dst, y, width) + border;
    // Bytes readable from the row's start to the end of the plane. A block's
    // load runs two bytes past the bytes it uses, so at the end of the plane
    // the last blocks are left to the portable row, which reads only those.
    const int64_t room = planeBytes - static_cast<int64_t>(y) * width;
    const int32_t lastDouble = static_cast<int32_t>(
        std::min<int64_t>(outputs - 2 * kFilterBlock, room - kDoubleBlockLoad));
    const int32_t lastLoaded =
        static_cast<int32_t>(std::min<int64_t>(outputs - kFilterBlock, room - kRowBlockLoad));
    const int32_t loadable = lastLoaded < 0 ? 0 : (lastLoaded / kFilterBlock + 1) * kFilterBlock;
    blocksThenRest(
        loadable, outputs,
        [=](int32_t end) {
          int32_t x = 0;
#pragma GCC unroll 2
          // Double blocks while their 32-byte loads stay inside the plane,
          // two per iteration (half the loop control).
          for (; x <= lastDouble; x += 2 * kFilterBlock)
            vst1q_u8(d + x, filterRowDoubleBlockNeon<K>(s + x));
          for (; x < end; x += kFilterBlock) vst1_u8(d + x, filterRowBlockNeon<K>(s + x));
        },
        [=](int32_t at, int32_t rest) { filterRow7Portable<K>(s + at, d + at, rest); });
  }
}

// Output row by output row, from the seven source rows of its window: 16
// columns per step from column `first`, then a last block of 8.
template <Filter7 K>
void filterColumns7Neon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                        int32_t border, int32_t first) {
  const int32_t columns = columnPassColumns(width);
  for (int32_t t = 0; t < height - 2 * border; ++t) {
    const uint8_t *l[kFilterTaps];
    for (int m = 0; m < kFilterTaps; ++m) l[m] = planeRow(src, windowRow(t + m, border), width);
    uint8_t *d = planeRow(dst, border + t, width);
    int32_t c = first;
    for (; c + 2 * kFilterBlock <= columns; c += 2 * kFilterBlock) {
      uint8x16_t x[kFilterTaps];
      for (int m = 0; m < kFilterTaps; ++m) x[m] = vld1q_u8(l[m] + c);
      vst1q_u8(d + c, filterLanes<K>(x));
    }
    if (c < columns) {
      vst1_u8(d + c, filterLanes<K>(vld1_u8(l[0] + c), vld1_u8(l[1] + c), vld1_u8(l[2] + c),
                                    vld1_u8(l[3] + c), vld1_u8(l[4] + c), vld1_u8(l[5] + c),
                                    vld1_u8(l[6] + c)));
    }
  }
}

// The flat kernel with a border of 3 moves its window down one row per
// output, so a 16-column strip keeps the sum of its seven window rows and
// updates it with the row that enters and the row that leaves; 4 4 5 6 5 4 4
// is 4 x that sum + (x2 + 2 x3 + x4). Strips run down the plane; the sums stay
// below 7 x 255 and the result below 32 x 255, in 16-bit lanes.
inline uint8x16_t smoothedRow(const WideSum &sum, uint8x16_t x2, uint8x16_t x3, uint8x16_t x4) {
  const WideSum near = multiplyAddWide(addWide(x2, x4), x3, vdupq_n_u8(2));
  const uint16x8_t four = vdupq_n_u16(4);
  return vcombine_u8(vshrn_n_u16(vmlaq_u16(near.lo, sum.lo, four), 5),
                     vshrn_n_u16(vmlaq_u16(near.hi, sum.hi, four), 5));
}

inline WideSum slideWindow(WideSum sum, uint8x16_t enter, uint8x16_t leave) {
  return {vsubw_u8(vaddw_u8(sum.lo, vget_low_u8(enter)), vget_low_u8(leave)),
          vsubw_u8(vaddw_u8(sum.hi, vget_high_u8(enter)), vget_high_u8(leave))};
}

// A row of a strip, loaded whole. GCC on A64 would otherwise load the low
// halves of the output's three rows a second time, on their own, for the
// instructions that take only that half (three loads more per output row).
inline uint8x16_t loadRow(const uint8_t *row) {
  uint8x16_t v = vld1q_u8(row);
#if defined(__aarch64__)
  opaqueVector(v);
#endif
  return v;
}

void smoothColumnsSlidingNeon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                              int32_t strips) {
  constexpr int kStrip = 2 * kFilterBlock;
  const ptrdiff_t pitch = width;
  for (int32_t k = 0; k < strips; ++k) {
    const uint8_t *top = src + kStrip * k;
    WideSum sum = {vdupq_n_u16(0), vdupq_n_u16(0)};
    for (int m = 0; m < kFilterTaps; ++m) {
      const uint8x16_t x = vld1q_u8(top + m * pitch);
      sum = {vaddw_u8(sum.lo, vget_low_u8(x)), vaddw_u8(sum.hi, vget_high_u8(x))};
    }
    // The window's rows 2, 3 and 4, which an output reads, and its rows 7 and
    // 0, which a move down adds and drops, each with its own pointer (ARMv7
    // then advances them with its loads).
    const uint8_t *above = top + 2 * pitch, *centre = top + 3 * pitch, *below = top + 4 * pitch;
    const uint8_t *enter = top + 7 * pitch, *leave = top;
    uint8_t *out = dst + kStrip * k + 3 * pitch;
    // Every window but the last moves on after its output row; the row after
    // the last window is not read (it is past the plane).
    for (int32_t rows = height - 7; rows != 0; --rows) {
      vst1q_u8(out, smoothedRow(sum, loadRow(above), loadRow(centre), loadRow(below)));
      sum = slideWindow(sum, vld1q_u8(enter), vld1q_u8(leave));
      above += pitch, centre += pitch, below += pitch, enter += pitch, leave += pitch;
      out += pitch;
    }
    vst1q_u8(out, smoothedRow(sum, loadRow(above), loadRow(centre), loadRow(below)));
  }
}

}  // namespace

void filterRows7Neon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                     int32_t border, Filter7 kernel) {
  if (!rowPassRuns(width, height, border)) return;
  if (kernel == Filter7::Tent)
    filterRows7Neon<Filter7::Tent>(src, dst, width, height, border);
  else
    filterRows7Neon<Filter7::Smooth>(src, dst, width, height, border);
}

void filterColumns7Neon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                        int32_t border, Filter7 kernel) {
  if (!columnPassRuns(width, height, border)) return;
  if (kernel == Filter7::Tent) {
    filterColumns7Neon<Filter7::Tent>(src, dst, width, height, border, 0);
  } else if (border == 3) {
    const int32_t strips = columnPassColumns(width) / (2 * kFilterBlock);
    smoothColumnsSlidingNeon(src, dst, width, height, strips);
    filterColumns7Neon<Filter7::Smooth>(src, dst, width, height, border, 2 * kFilterBlock * strips);
  } else {
    filterColumns7Neon<Filter7::Smooth>(src, dst, width, height, border, 0);
  }
}
#endif  // VIDEOHDR_HAVE_NEON

}  // namespace videohdr

extern "C" {

void horizontalFilter7x7neon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                             int32_t border) {
  videohdr::activeKernels().plane.filterRows7(src, dst, width, height, border,
                                              videohdr::Filter7::Tent);
}

void VerticalFilter7x7neon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                           int32_t border) {
  videohdr::activeKernels().plane.filterColumns7(src, dst, width, height, border,
                                                 videohdr::Filter7::Tent);
}

void horizontalFilter7x7neon_Smooth(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                                    int32_t border) {
  videohdr::activeKernels().plane.filterRows7(src, dst, width, height, border,
                                              videohdr::Filter7::Smooth);
}

void VerticalFilter7x7neon_Smooth(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                                  int32_t border) {
  videohdr::activeKernels().plane.filterColumns7(src, dst, width, height, border,
                                                 videohdr::Filter7::Smooth);
}

}  // extern "C"
