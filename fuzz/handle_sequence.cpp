#include "handle_sequence.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "exact_buffer.h"
#include "log_sink.h"
#include "recycled_blocks.h"
#include "videohdr.h"

namespace fuzz {
namespace {

// The widest frames drawn: a few 32-pixel words past the search's narrowest.
constexpr int32_t kWidestSearchFrame = 1100;

struct Geometry {
  int32_t width, height, stride, scanline;
};

struct Session {
  VideoHdrHandle *handle = nullptr;
  bool primed = false;
  Geometry first = {};
};

void quiet(int, const char *, const char *) {}

// Bytes the caller's frame spans, or 0 when the header says it is refused.
size_t acceptedFrameBytes(const Session &s, const Geometry &g) {
  if (g.width <= 0 || g.height <= 0 || g.stride <= 0) return 0;
  if (g.stride < g.width || g.scanline < g.height) return 0;
  const int64_t luma = int64_t{g.stride} * g.height;
  const int64_t area = int64_t{g.stride} * g.scanline;
  if (luma > VIDEOHDR_MAX_LUMA_BYTES || area > VIDEOHDR_MAX_AREA_BYTES) return 0;
  if (s.primed) {
    if (g.width != s.first.width || g.height != s.first.height || g.stride != s.first.stride)
      return 0;
    if (s.handle->fusionContext && g.scanline < s.first.scanline) return 0;
  }
  return static_cast<size_t>(area + luma / 2);
}

// Mostly geometry the handle takes (small, so that runs stay fast, and on both
// sides of the motion search's width unless the sizes say otherwise);
// sometimes anything at all.
Geometry pickGeometry(FuzzedDataProvider &in, const Session &s, const HandleSizes &sizes) {
  switch (in.ConsumeIntegralInRange<int>(0, 5)) {
    case 0:
      return {in.ConsumeIntegral<int32_t>(), in.ConsumeIntegral<int32_t>(),
              in.ConsumeIntegral<int32_t>(), in.ConsumeIntegral<int32_t>()};
    case 1:  // the first frame's geometry again, the usual case
    case 2:
      if (s.primed) return s.first;
      [[fallthrough]];
    default: {
      Geometry g;
      g.width =
          sizes.searchWidths && in.ConsumeBool()
              ? in.ConsumeIntegralInRange<int32_t>(VIDEOHDR_MIN_SEARCH_WIDTH, kWidestSearchFrame)
              : in.ConsumeIntegralInRange<int32_t>(-2, sizes.maxWidth);
      g.height = in.ConsumeIntegralInRange<int32_t>(-1, sizes.maxHeight);
      g.stride = g.width + in.ConsumeIntegralInRange<int32_t>(-2, sizes.maxPadding);
      g.scanline = g.height + in.ConsumeIntegralInRange<int32_t>(-2, sizes.maxPaddingRows);
      return g;
    }
  }
}

FUZZ_PIXEL_LOOP void fillFrame(std::vector<uint8_t> &frame, FuzzedDataProvider &in) {
  uint32_t state = in.ConsumeIntegral<uint32_t>();
  const int mode = in.ConsumeIntegralInRange<int>(0, 3);
  for (uint8_t &b : frame) {
    state = state * 1664525u + 1013904223u;
    b = mode == 0   ? uint8_t(state >> 24)
        : mode == 1 ? uint8_t(state >> 31) * 255
                    : uint8_t(mode * 60);
  }
}

void process(Session &s, FuzzedDataProvider &in, bool shortForm, const HandleSizes &sizes) {
  Geometry g = pickGeometry(in, s, sizes);
  if (shortForm) {
    g.width = s.handle->width;
    g.height = s.handle->height;
    g.stride = s.handle->stride;
  }
  const size_t bytes = acceptedFrameBytes(s, g);
  if (bytes > sizes.maxFrameBytes) return;
  // A refused frame gets a small buffer: if the library took it after all,
  // the sanitizer reports the first byte it touched past the end.
  std::vector<uint8_t> frame(bytes ? bytes : 64);
  fillFrame(frame, in);
  const std::vector<uint8_t> before = frame;
  const bool nullFrame = in.ConsumeIntegralInRange<int>(0, 31) == 0;
  uint8_t *data = nullFrame ? nullptr : frame.data();
  const int32_t result =
      shortForm ? processVideoHdr(s.handle, data, 0, g.scanline)
                : Video_HDR_Process(s.handle, data, 0, 0, g.width, g.height, g.stride, g.scanline);
  const bool accepted = bytes != 0 && !nullFrame;
  if (result != (accepted ? 1 : 0)) std::abort();
  if (!accepted && frame != before) std::abort();
  if (accepted && !s.primed) {
    s.primed = true;
    s.first = g;
    if (frame != before) std::abort();  // the first frame only primes
  }
}

// The widest frame a sequence draws, for initVideoHdr.
int32_t widest(const HandleSizes &sizes) {
  return sizes.searchWidths ? kWidestSearchFrame : sizes.maxWidth;
}

}  // namespace

int runHandleSequence(const uint8_t *data, size_t size, const HandleSizes &sizes) {
  videohdr::setLogSink(quiet);
  FuzzedDataProvider in(data, size);
  Session s;
  for (int step = 0; step < 12 && in.remaining_bytes() > 0; ++step) {
    switch (in.ConsumeIntegralInRange<int>(0, 7)) {
      case 0:
        if (!s.handle) s = {in.ConsumeBool() ? createVideoHdrHandle() : Video_HDR_Initial()};
        break;
      case 1:
        if (s.handle)
          initVideoHdr(s.handle, in.ConsumeIntegralInRange<int32_t>(-1, widest(sizes)),
                       in.ConsumeIntegralInRange<int32_t>(-1, sizes.maxHeight),
                       in.ConsumeIntegralInRange<int32_t>(-1, widest(sizes) + sizes.maxPadding));
        break;
      case 2:
        if (s.handle &&
            (in.ConsumeBool() ? destroyVideoHdrHandle(s.handle) : Video_HDR_Release(s.handle)) != 1)
          std::abort();
        s = {};
        break;
      case 3:
        if (s.primed) s.handle->frameCount = in.ConsumeBool() ? 999999 : 1000000;
        break;
      default:
        if (s.handle) process(s, in, in.ConsumeIntegralInRange<int>(0, 3) == 0, sizes);
        break;
    }
  }
  if (s.handle) destroyVideoHdrHandle(s.handle);
  // Null handles are answered, never followed.
  if (destroyVideoHdrHandle(nullptr) != 1 || Video_HDR_Process(nullptr, nullptr, 0, 0, 1, 1, 1, 1))
    std::abort();
  expectNoRecycledBlockInUse();
  return 0;
}

}  // namespace fuzz
