#include "camera_frame.h"

#include <algorithm>
#include <cstdlib>

#include "videohdr_planes.h"

namespace fuzz {
namespace {

// Rows past the luma drawn for the chroma: past the most the header keeps in place.
constexpr int32_t kGapRows = VIDEOHDR_PLANES_MAX_GAP_ROWS + 2;

bool overlap(const FrameLayout &a, int pa, const FrameLayout &b, int pb) {
  return a.plane[pa].buffer >= 0 && a.plane[pa].buffer == b.plane[pb].buffer &&
         a.plane[pa].offset < b.end(pb) && b.plane[pb].offset < a.end(pa);
}

// Mostly rows without padding, the layout most cameras and encoders use.
int32_t padding(FuzzedDataProvider &in) {
  return in.ConsumeIntegralInRange<int>(0, 3) ? 0 : in.ConsumeIntegralInRange<int32_t>(-2, 70);
}

// One NV12 or NV21 buffer, its chroma right behind the luma or some rows later.
FrameLayout libraryLayout(FuzzedDataProvider &in, int32_t width, int32_t height, int buffer) {
  const int64_t rows =
      height + (in.ConsumeBool() ? 0 : in.ConsumeIntegralInRange<int32_t>(1, kGapRows));
  const int64_t chroma = rows * width;
  const bool vFirst = in.ConsumeBool();
  return {width, height, width,
          width, 2,      {{buffer, 0}, {buffer, chroma + vFirst}, {buffer, chroma + !vFirst}}};
}

// Where the first chroma plane starts after the luma in the luma's buffer:
// right behind it, whole rows later, a byte either way, or anywhere up to
// inside the luma.
int64_t chromaGap(FuzzedDataProvider &in, const FrameLayout &f) {
  const int kind = in.ConsumeIntegralInRange<int>(0, 3);
  if (kind == 0) return 0;
  if (kind == 1) return int64_t{f.width} * in.ConsumeIntegralInRange<int32_t>(1, kGapRows);
  if (kind == 2) return in.ConsumeBool() ? -1 : 1;
  return in.ConsumeIntegralInRange<int64_t>(-f.span(kY), 64);
}

// Where the second chroma plane starts from the first in their buffer: one
// byte on (interleaved, or overlapping at other pixel strides), a byte short
// of, at or past the first's end, or anywhere around it.
int64_t chromaDelta(FuzzedDataProvider &in, int64_t span) {
  const int kind = in.ConsumeIntegralInRange<int>(0, 2);
  if (kind == 0) return 1;
  if (kind == 1) return span + in.ConsumeIntegralInRange<int>(-1, 1);
  return in.ConsumeIntegralInRange<int64_t>(-span - 2, span + 2);
}

}  // namespace

int64_t FrameLayout::span(int p) const {
  const int64_t bytes = p == kY ? int64_t{yRowStride} * (height - 1) + width
                                : int64_t{uvRowStride} * (height / 2 - 1) +
                                      int64_t{uvPixelStride} * (width / 2 - 1) + 1;
  return std::max<int64_t>(bytes, 1);
}

bool FrameLayout::interleaved() const {
  return uvPixelStride == 2 && plane[kU].buffer >= 0 && plane[kU].buffer == plane[kV].buffer &&
         std::abs(plane[kU].offset - plane[kV].offset) == 1;
}

bool FrameLayout::vFirst() const { return interleaved() && plane[kV].offset < plane[kU].offset; }

int32_t FrameLayout::strideError() const {
  if (uvPixelStride != 1 && uvPixelStride != 2) return VIDEOHDR_PLANES_ERR_PIXEL_STRIDE;
  if (yRowStride < width || uvRowStride < uvPixelStride * (width / 2))
    return VIDEOHDR_PLANES_ERR_ROW_STRIDE;
  return VIDEOHDR_PLANES_OK;
}

int32_t FrameLayout::error() const {
  for (const PlaneAt &p : plane)
    if (p.buffer < 0) return VIDEOHDR_PLANES_ERR_NULL_PLANE;
  if (const int32_t strides = strideError(); strides != VIDEOHDR_PLANES_OK) return strides;
  if (overlap(*this, kY, *this, kU) || overlap(*this, kY, *this, kV) ||
      (!interleaved() && overlap(*this, kU, *this, kV)))
    return VIDEOHDR_PLANES_ERR_OVERLAP;
  return VIDEOHDR_PLANES_OK;
}

int32_t FrameLayout::libraryRows() const {
  if (!interleaved() || yRowStride != width || uvRowStride != width ||
      plane[kU].buffer != plane[kY].buffer)
    return 0;
  const int64_t gap = std::min(plane[kU].offset, plane[kV].offset) - plane[kY].offset;
  if (gap % width != 0 || gap / width < height ||
      gap / width > height + VIDEOHDR_PLANES_MAX_GAP_ROWS)
    return 0;
  return static_cast<int32_t>(gap / width);
}

bool sameFrame(const FrameLayout &a, const FrameLayout &b) {
  for (int p = kY; p <= kV; ++p)
    if (a.plane[p].buffer != b.plane[p].buffer ||
        (a.plane[p].buffer >= 0 && a.plane[p].offset != b.plane[p].offset))
      return false;
  return a.yRowStride == b.yRowStride && a.uvRowStride == b.uvRowStride &&
         a.uvPixelStride == b.uvPixelStride;
}

bool framesOverlap(const FrameLayout &a, const FrameLayout &b) {
  for (int pa = kY; pa <= kV; ++pa)
    for (int pb = kY; pb <= kV; ++pb)
      if (overlap(a, pa, b, pb)) return true;
  return false;
}

FrameLayout drawFrame(FuzzedDataProvider &in, int32_t width, int32_t height, int firstBuffer) {
  if (in.ConsumeIntegralInRange<int>(0, 3) == 0)
    return libraryLayout(in, width, height, firstBuffer);
  FrameLayout f = {width, height, width + padding(in), 0, in.PickValueInArray({2, 2, 1, 1, 0, 3}),
                   {}};
  f.uvRowStride = f.uvPixelStride * (width / 2) + padding(in);
  const int first = in.ConsumeBool() ? kV : kU, second = first == kU ? kV : kU;
  int buffer = firstBuffer;
  f.plane[kY] = {buffer, 0};
  f.plane[first] =
      in.ConsumeBool() ? PlaneAt{buffer, f.end(kY) + chromaGap(in, f)} : PlaneAt{++buffer, 0};
  f.plane[second] =
      in.ConsumeBool()
          ? PlaneAt{f.plane[first].buffer, f.plane[first].offset + chromaDelta(in, f.span(first))}
          : PlaneAt{++buffer, 0};
  if (in.ConsumeIntegralInRange<int>(0, 31) == 0)
    f.plane[in.ConsumeIntegralInRange<int>(kY, kV)].buffer = -1;
  return f;
}

FrameLayout drawOutput(FuzzedDataProvider &in, const FrameLayout &input) {
  const int kind = in.ConsumeIntegralInRange<int>(0, 5);
  if (kind == 0) return input;
  const int own = 3;
  FrameLayout out = drawFrame(in, input.width, input.height, own);
  if (kind == 1 && input.plane[kY].buffer >= 0) {
    int64_t inputEnd = 0;
    for (int p = kY; p <= kV; ++p)
      if (input.plane[p].buffer == input.plane[kY].buffer)
        inputEnd = std::max(inputEnd, input.end(p));
    const int64_t shift = inputEnd + in.PickValueInArray({-1, 0, 1, 64});
    for (PlaneAt &p : out.plane)
      if (p.buffer == own) p = {input.plane[kY].buffer, p.offset + shift};
  }
  return out;
}

FrameBuffers::FrameBuffers(std::vector<FrameLayout *> frames, FuzzedDataProvider &in) {
  constexpr int kBuffers = 6;
  int64_t first[kBuffers], last[kBuffers];
  std::fill_n(first, kBuffers, INT64_MAX);
  std::fill_n(last, kBuffers, 0);
  for (const FrameLayout *f : frames)
    for (int p = kY; p <= kV; ++p)
      if (const int b = f->plane[p].buffer; b >= 0) {
        first[b] = std::min(first[b], f->plane[p].offset);
        last[b] = std::max(last[b], f->end(p));
      }
  for (FrameLayout *f : frames)
    for (PlaneAt &p : f->plane)
      if (p.buffer >= 0) p.offset -= first[p.buffer];
  for (int b = 0; b < kBuffers; ++b) {
    bytes.emplace_back(0, first[b] == INT64_MAX ? 0 : static_cast<size_t>(last[b] - first[b]));
    bytes.back().fill(in);
  }
}

// Raw pointers in the loops: the vector's and this class's members are
// traced for coverage, and a call per sample made the targets twice as slow.
FUZZ_PIXEL_LOOP std::vector<uint8_t *> FrameBuffers::samples(const FrameLayout &f, bool vFirst) {
  const int32_t w = f.width, h = f.height;
  std::vector<uint8_t *> where(size_t(w) * h * 3 / 2);
  uint8_t **next = where.data();
  uint8_t *const y = at(f.plane[kY]);
  for (int32_t r = 0; r < h; ++r)
    for (int32_t c = 0; c < w; ++c) *next++ = y + int64_t{r} * f.yRowStride + c;
  uint8_t *const pair[2] = {at(f.plane[vFirst ? kV : kU]), at(f.plane[vFirst ? kU : kV])};
  for (int32_t r = 0; r < h / 2; ++r)
    for (int32_t c = 0; c < w; ++c)
      *next++ = pair[c % 2] + int64_t{r} * f.uvRowStride + c / 2 * f.uvPixelStride;
  return where;
}

FUZZ_PIXEL_LOOP std::vector<uint8_t> gather(const FrameLayout &f, FrameBuffers &buffers,
                                            bool vFirst) {
  const std::vector<uint8_t *> where = buffers.samples(f, vFirst);
  std::vector<uint8_t> packed(where.size());
  uint8_t *to = packed.data();
  for (uint8_t *const *from = where.data(), *const *end = from + where.size(); from != end; ++from)
    *to++ = **from;
  return packed;
}

FUZZ_PIXEL_LOOP void scatter(const std::vector<uint8_t> &packed, bool vFirst, const FrameLayout &f,
                             FrameBuffers &buffers) {
  const std::vector<uint8_t *> where = buffers.samples(f, vFirst);
  const uint8_t *from = packed.data();
  for (uint8_t *const *to = where.data(), *const *end = to + where.size(); to != end; ++to)
    **to = *from++;
}

}  // namespace fuzz
