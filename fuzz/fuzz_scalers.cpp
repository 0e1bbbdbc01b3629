// The 2x scalers and the chroma helpers with random sizes and strides
// (strides below the width included, where rows then overlap), on buffers of
// exactly the bytes the header says each call reads or writes. Each result is
// checked against the rule the header states, and the exported call against
// the portable and the NEON variant where the library has both.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>

#include "exact_buffer.h"
#include "fusion/plane_ops.h"
#include "videohdr.h"

namespace {

using fuzz::ExactBuffer;
using fuzz::fail;

enum Op { kDownScale, kDownScaleNeon, kUpscale, kUpscaleNeon, kExtract, kCombine, kOps };

struct Call {
  Op op;
  int32_t width, height, stride;
};

constexpr int64_t kMaxBytes = int64_t{1} << 18;

// Extents are worked out in 128 bits: any 32-bit arguments at all may come.
using Wide = __int128;

// Offset one past the last byte of a plane of `rows` rows of which the last
// holds `lastRow` bytes: what a call touches when it stops there.
Wide extent(Wide rows, Wide pitch, Wide lastRow) {
  return rows > 0 && lastRow > 0 ? (rows - 1) * pitch + lastRow : 0;
}

// Bytes the upscale_2x_uint8_t_NEON build of each even row spans.
int64_t doubledRowBytes(const Call &c) {
  if (c.width <= 0) return 0;
  return std::min<int64_t>(16 * ((int64_t{c.width} + 7) / 8), 2 * int64_t{c.stride});
}

struct Extents {
  Wide src, dst, dst2;  // dst2: the second output plane of extract_uvBuffer
};

// What each call may touch, per the header, or all zero when it writes nothing.
Extents extentsOf(const Call &c) {
  const Wide w = c.width, h = c.height, s = c.stride;
  switch (c.op) {
    case kDownScale:
    case kDownScaleNeon:
      if ((h >> 1) < 1 || (w >> 1) < 1) return {};
      return {extent(2 * (h >> 1) - 1, s, 2 * (w >> 1)), (h >> 1) * (w >> 1), 0};
    case kUpscale:
      if (h < 2 || w < 2) return {};
      return {extent(h, s, w), extent(2 * h - 2, 2 * s, 2 * w - 2), 0};
    case kUpscaleNeon:
      if (h < 1 || s < 0) return {};
      return {extent(h, s, doubledRowBytes(c) / 2), 2 * h * 2 * s, 0};
    case kExtract:
      if (h < 1 || (w >> 1) < 1) return {};
      return {extent(h, s, 2 * (w >> 1)), extent(h, s >> 1, w >> 1), extent(h, s >> 1, w >> 1)};
    case kCombine:
      if (h < 1 || w < 1) return {};
      return {h * w, 2 * h * w, h * w};
    default:
      return {};
  }
}

Call pickCall(FuzzedDataProvider &in) {
  Call c;
  c.op = static_cast<Op>(in.ConsumeIntegralInRange<int>(0, kOps - 1));
  if (in.ConsumeIntegralInRange<int>(0, 15) == 0) {
    c.width = in.ConsumeIntegral<int32_t>();
    c.height = in.ConsumeIntegral<int32_t>();
    c.stride = in.ConsumeIntegral<int32_t>();
    return c;
  }
  c.width = in.ConsumeIntegralInRange<int32_t>(-3, 160);
  c.height = in.ConsumeIntegralInRange<int32_t>(-3, 24);
  // Mostly stride >= width, sometimes less (rows overlap), and for the
  // replicating doubling sometimes negative (refused).
  const int32_t low = c.op == kUpscaleNeon ? -3 : 0;
  c.stride = in.ConsumeBool() ? std::max(c.width, 0) + in.ConsumeIntegralInRange<int32_t>(0, 20)
                              : in.ConsumeIntegralInRange<int32_t>(low, 170);
  return c;
}

// A stride of 0 puts every row on the same bytes, so the buffers stay small
// however many rows there are: the row count is held down too, to keep each
// run short.
bool fits(const Call &c, const Extents &e) {
  return c.height <= (1 << 16) && e.src <= kMaxBytes && e.dst <= kMaxBytes && e.dst2 <= kMaxBytes;
}

// Negative strides of the calls that honour them are outside what this
// target models (the caller then points at the last row).
bool modelled(const Call &c) { return c.op == kUpscaleNeon || c.op == kCombine || c.stride >= 0; }

void checkDownScale(const Call &c, const ExactBuffer &src, const ExactBuffer &dst) {
  const int32_t h = c.height >> 1, w = c.width >> 1;
  for (int32_t r = 0; r < h; ++r)
    for (int32_t x = 0; x < w; ++x)
      if (dst.at(int64_t{r} * w + x) != src.at(int64_t{2 * r} * c.stride + 2 * x))
        fail("downscale: not the even-row even-column sample");
}

void checkUpscale(const Call &c, const ExactBuffer &src, const ExactBuffer &before,
                  const ExactBuffer &dst) {
  if (c.height < 2 || c.width < 2) return;
  // With stride < width the output rows overlap; only the last write counts,
  // so the model is checked where rows do not overlap.
  if (c.stride < c.width) return;
  const int64_t pitch = 2 * int64_t{c.stride};
  for (int32_t y = 0; y < 2 * c.height - 2; ++y)
    for (int32_t x = 0; x < 2 * c.width; ++x) {
      const int64_t i = y * pitch + x;
      if (i >= static_cast<int64_t>(dst.size())) break;
      if (x >= 2 * c.width - 2) {
        if (dst.at(i) != before.at(i)) fail("upscale: wrote a last column");
        continue;
      }
      const int64_t t = int64_t{y >> 1} * c.stride + (x >> 1);
      const int mean =
          (src.at(t) + src.at(t + 1) + src.at(t + c.stride) + src.at(t + c.stride + 1)) >> 2;
      if (dst.at(i) != mean) fail("upscale: not the truncated 2x2 mean");
    }
}

void checkUpscaleNeon(const Call &c, const ExactBuffer &src, const ExactBuffer &before,
                      const ExactBuffer &dst) {
  if (c.height < 1 || c.stride < 0) {
    if (dst != before) fail("replicating upscale wrote on a call it refuses");
    return;
  }
  const int64_t pitch = 2 * int64_t{c.stride};
  const int64_t built = doubledRowBytes(c);
  for (int32_t y = 0; y < 2 * c.height; ++y)
    for (int64_t x = 0; x < pitch; ++x) {
      const int64_t even = int64_t{y & ~1} * pitch + x;
      const uint8_t want =
          x < built ? src.at(int64_t{y >> 1} * c.stride + (x >> 1)) : before.at(even);
      if (dst.at(int64_t{y} * pitch + x) != want) fail("replicating upscale: wrong byte");
    }
}

void checkExtract(const Call &c, const ExactBuffer &src, const ExactBuffer &u,
                  const ExactBuffer &v) {
  // Overlapping output rows (stride < width) keep only the last write.
  if (c.stride < c.width) return;
  for (int32_t y = 0; y < c.height; ++y)
    for (int32_t k = 0; k < (c.width >> 1); ++k) {
      const int64_t o = int64_t{y} * (c.stride >> 1) + k, i = int64_t{y} * c.stride + 2 * k;
      if (u.at(o) != src.at(i) || v.at(o) != src.at(i + 1)) fail("extract: pair not split");
    }
}

void checkCombine(const Call &c, const ExactBuffer &u, const ExactBuffer &v,
                  const ExactBuffer &uv) {
  if (c.height < 1 || c.width < 1) return;
  for (int64_t i = 0; i < int64_t{c.height} * c.width; ++i)
    if (uv.at(2 * i) != u.at(i) || uv.at(2 * i + 1) != v.at(i)) fail("combine: pair not joined");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  const Call c = pickCall(in);
  if (!modelled(c)) return 0;
  const Extents e = extentsOf(c);
  if (!fits(c, e)) return 0;
  ExactBuffer src(0, size_t(e.src)), first(0, size_t(e.dst)), second(0, size_t(e.dst2));
  src.fill(in);
  first.fill(in);
  second.fill(in);
  ExactBuffer out(first), out2(second), ref(first), ref2(second);
  const int32_t w = c.width, h = c.height, s = c.stride;
  const uint8_t *in0 = src.plane();
  switch (c.op) {
    case kDownScale:
    case kDownScaleNeon:
      (c.op == kDownScale ? downScale_2x_uint8_t : downScale_2x_uint8_t_NEON)(in0, out.plane(), w,
                                                                              h, s);
      checkDownScale(c, src, out);
      for (const videohdr::Kernels *k : fuzz::kInstances) {
        ref = first;
        k->plane.downScale2x(in0, ref.plane(), w, h, s);
        if (ref != out) fail("a downscale variant differs from the exported call");
      }
      break;
    case kUpscale:
      upscale_2x_uint8_t(in0, out.plane(), w, h, s);
      checkUpscale(c, src, first, out);
      break;
    case kUpscaleNeon:
      upscale_2x_uint8_t_NEON(in0, out.plane(), w, h, s);
      checkUpscaleNeon(c, src, first, out);
      for (const videohdr::Kernels *k : fuzz::kInstances) {
        ref = first;
        k->plane.upscale2xReplicate(in0, ref.plane(), w, h, s);
        if (ref != out) fail("a replicating upscale variant differs from the exported call");
      }
      break;
    case kExtract:
      extract_uvBuffer(in0, out.plane(), out2.plane(), w, h, s);
      checkExtract(c, src, out, out2);
      for (const videohdr::Kernels *k : fuzz::kInstances) {
        ref = first;
        ref2 = second;
        k->plane.extractUv(in0, ref.plane(), ref2.plane(), w, h, s);
        if (ref != out || ref2 != out2) fail("an extract variant differs from the exported call");
      }
      break;
    case kCombine: {
      // Here the source is the u plane and `second` the v plane.
      combine_uvBuffer(in0, second.plane(), out.plane(), w, h);
      checkCombine(c, src, second, out);
      for (const videohdr::Kernels *k : fuzz::kInstances) {
        ref = first;
        k->plane.combineUv(in0, second.plane(), ref.plane(), w, h);
        if (ref != out) fail("a combine variant differs from the exported call");
      }
      break;
    }
    default:
      break;
  }
  return 0;
}
