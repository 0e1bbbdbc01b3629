// Separable 7-tap low-pass filters on byte planes whose pitch is their width:
// a horizontal and a vertical pass, each with the tent or the flat kernel.
// Sums stay in 16 bits (at most 255 * 32) and are truncated by the shift.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "../simd.h"
#include "plane_ops.h"
#include "videohdr.h"

namespace videohdr {
namespace {

constexpr int kTaps = 7;
constexpr int kBlock = 8;  // results per block, in both passes

struct Kernel7 {
  uint16_t tap[kTaps];
  int shift;
};

const Kernel7 &kernelOf(Filter7 kernel) {
  static constexpr Kernel7 kTent = {{1, 2, 3, 4, 3, 2, 1}, 4};
  static constexpr Kernel7 kSmooth = {{4, 4, 5, 6, 5, 4, 4}, 5};
  return kernel == Filter7::Tent ? kTent : kSmooth;
}

// A negative border would place results before the destination, so such a
// call writes nothing; otherwise these are the passes' own size tests, taken
// in 64 bits so that extreme arguments are refused instead of wrapping.
bool rowPassRuns(int32_t width, int32_t height, int32_t border) {
  return border >= 0 && height >= 1 && (int64_t{width} - kBlock) - border >= border;
}
bool columnPassRuns(int32_t width, int32_t height, int32_t border) {
  return border >= 0 && width >= kBlock && int64_t{height} - border > border;
}

// The horizontal pass runs blocks while border + 8k <= width - 8 - border and
// reads each block from source column 8k, whatever the border: the result in
// column border + 8k + i is centred on source column 3 + 8k + i.
int32_t rowPassOutputs(int32_t width, int32_t border) {
  return kBlock * ((width - kBlock - 2 * border) / kBlock + 1);
}

// The vertical pass's window starts at rows border - 3 .. border + 3 and,
// after output t, takes row 2 * border + 1 + t as its new last line. Entry
// `index` of that row sequence (window of output t = entries t .. t + 6):
// with border 3 this is simply row `index`, otherwise the appended rows do
// not follow on from the first window.
int32_t windowRow(int32_t index, int32_t border) {
  return index < kTaps ? border - 3 + index : 2 * border + 1 + (index - kTaps);
}

// Only whole blocks of 8 columns are filtered; trailing columns are left alone.
int32_t columnPassColumns(int32_t width) { return width / kBlock * kBlock; }

}  // namespace

void filterRows7Portable(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                         int32_t border, Filter7 kernel) {
  if (!rowPassRuns(width, height, border)) return;
  const Kernel7 &k = kernelOf(kernel);
  const int32_t outputs = rowPassOutputs(width, border);
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t *s = planeRow(src, y, width);
    uint8_t *d = planeRow(dst, y, width) + border;
    for (int32_t x = 0; x < outputs; ++x) {
      uint32_t sum = 0;
      for (int m = 0; m < kTaps; ++m) sum += k.tap[m] * s[x + m];
      d[x] = static_cast<uint8_t>(sum >> k.shift);
    }
  }
}

void filterColumns7Portable(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                            int32_t border, Filter7 kernel) {
  if (!columnPassRuns(width, height, border)) return;
  const Kernel7 &k = kernelOf(kernel);
  const int32_t columns = columnPassColumns(width);
  for (int32_t t = 0; t < height - 2 * border; ++t) {
    const uint8_t *line[kTaps];
    for (int m = 0; m < kTaps; ++m) line[m] = planeRow(src, windowRow(t + m, border), width);
    uint8_t *d = planeRow(dst, border + t, width);
    for (int32_t x = 0; x < columns; ++x) {
      uint32_t sum = 0;
      for (int m = 0; m < kTaps; ++m) sum += k.tap[m] * line[m][x];
      d[x] = static_cast<uint8_t>(sum >> k.shift);
    }
  }
}

#if VIDEOHDR_HAVE_NEON
namespace {

// Bytes of a horizontal block that its eight results use; the block loads 16.
constexpr int kRowBlockSpan = kBlock + kTaps - 1;
constexpr int kRowBlockLoad = 16;

uint16x8_t weighSum(const uint16x8_t (&x)[kTaps], const Kernel7 &k) {
  uint16x8_t sum = vmulq_n_u16(x[0], k.tap[0]);
  for (int m = 1; m < kTaps; ++m) sum = vmlaq_n_u16(sum, x[m], k.tap[m]);
  return sum;
}

// vshrn takes its shift as an immediate.
uint8x8_t narrowSum(uint16x8_t sum, const Kernel7 &k) {
  return k.shift == 4 ? vshrn_n_u16(sum, 4) : vshrn_n_u16(sum, 5);
}

// Eight results from 16 loaded bytes: the seven operands are the two
// widened halves joined at lane offsets 0..6, so each byte is loaded once.
uint8x8_t filterRowBlockNeon(const uint8_t *s, const Kernel7 &k) {
  const uint8x16_t bytes = vld1q_u8(s);
  const uint16x8_t lo = vmovl_u8(vget_low_u8(bytes));
  const uint16x8_t hi = vmovl_u8(vget_high_u8(bytes));
  const uint16x8_t x[kTaps] = {lo,
                               vextq_u16(lo, hi, 1),
                               vextq_u16(lo, hi, 2),
                               vextq_u16(lo, hi, 3),
                               vextq_u16(lo, hi, 4),
                               vextq_u16(lo, hi, 5),
                               vextq_u16(lo, hi, 6)};
  return narrowSum(weighSum(x, k), k);
}

}  // namespace

void filterRows7Neon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                     int32_t border, Filter7 kernel) {
  if (!rowPassRuns(width, height, border)) return;
  const Kernel7 &k = kernelOf(kernel);
  const int32_t outputs = rowPassOutputs(width, border);
  const int64_t planeBytes = static_cast<int64_t>(width) * height;
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t *s = planeRow(src, y, width);
    uint8_t *d = planeRow(dst, y, width) + border;
    for (int32_t x = 0; x < outputs; x += kBlock) {
      // A block's 16-byte load runs two bytes past the bytes it uses; at the
      // end of the plane only the used bytes are read, through a copy.
      if (static_cast<int64_t>(y) * width + x + kRowBlockLoad <= planeBytes) {
        vst1_u8(d + x, filterRowBlockNeon(s + x, k));
      } else {
        uint8_t tail[kRowBlockLoad] = {};
        std::memcpy(tail, s + x, kRowBlockSpan);
        vst1_u8(d + x, filterRowBlockNeon(tail, k));
      }
    }
  }
}

void filterColumns7Neon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                        int32_t border, Filter7 kernel) {
  if (!columnPassRuns(width, height, border)) return;
  const Kernel7 &k = kernelOf(kernel);
  const int32_t outputs = height - 2 * border;
  const int32_t columns = columnPassColumns(width);
  for (int32_t c = 0; c < columns; c += kBlock) {
    uint16x8_t line[kTaps];
    for (int m = 0; m < kTaps; ++m)
      line[m] = vmovl_u8(vld1_u8(planeRow(src, windowRow(m, border), width) + c));
    for (int32_t t = 0; t < outputs; ++t) {
      vst1_u8(planeRow(dst, border + t, width) + c, narrowSum(weighSum(line, k), k));
      // The window slides after every output but the last: the row it
      // would take then (one past the plane with border 3) is not read.
      if (t + 1 == outputs) break;
      for (int m = 0; m < kTaps - 1; ++m) line[m] = line[m + 1];
      line[kTaps - 1] = vmovl_u8(vld1_u8(planeRow(src, windowRow(t + kTaps, border), width) + c));
    }
  }
}
#endif  // VIDEOHDR_HAVE_NEON

namespace {

void filterRows7(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height, int32_t border,
                 Filter7 kernel) {
#if VIDEOHDR_NATIVE_NEON
  filterRows7Neon(src, dst, width, height, border, kernel);
#else
  filterRows7Portable(src, dst, width, height, border, kernel);
#endif
}

void filterColumns7(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height, int32_t border,
                    Filter7 kernel) {
#if VIDEOHDR_NATIVE_NEON
  filterColumns7Neon(src, dst, width, height, border, kernel);
#else
  filterColumns7Portable(src, dst, width, height, border, kernel);
#endif
}

}  // namespace
}  // namespace videohdr

extern "C" {

void horizontalFilter7x7neon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                             int32_t border) {
  videohdr::filterRows7(src, dst, width, height, border, videohdr::Filter7::Tent);
}

void VerticalFilter7x7neon(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                           int32_t border) {
  videohdr::filterColumns7(src, dst, width, height, border, videohdr::Filter7::Tent);
}

void horizontalFilter7x7neon_Smooth(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                                    int32_t border) {
  videohdr::filterRows7(src, dst, width, height, border, videohdr::Filter7::Smooth);
}

void VerticalFilter7x7neon_Smooth(const uint8_t *src, uint8_t *dst, int32_t width, int32_t height,
                                  int32_t border) {
  videohdr::filterColumns7(src, dst, width, height, border, videohdr::Filter7::Smooth);
}

}  // extern "C"
