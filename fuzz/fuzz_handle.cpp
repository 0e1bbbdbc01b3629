// Drives handles through random sequences of create, init, process and
// destroy, with geometry inside and outside the documented limits and random
// frame contents. Frames the header says are refused must come back untouched
// with 0; every other frame lives in a buffer of exactly its documented size,
// so that the sanitizers see any byte the library reads or writes outside it.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "log_sink.h"
#include "videohdr.h"

namespace {

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
// sides of the motion search's width); sometimes anything at all.
Geometry pickGeometry(FuzzedDataProvider &in, const Session &s) {
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
      g.width = in.ConsumeBool() ? in.ConsumeIntegralInRange<int32_t>(1032, 1100)
                                 : in.ConsumeIntegralInRange<int32_t>(-2, 160);
      g.height = in.ConsumeIntegralInRange<int32_t>(-1, 40);
      g.stride = g.width + in.ConsumeIntegralInRange<int32_t>(-2, 40);
      g.scanline = g.height + in.ConsumeIntegralInRange<int32_t>(-2, 9);
      return g;
    }
  }
}

void fillFrame(std::vector<uint8_t> &frame, FuzzedDataProvider &in) {
  uint32_t state = in.ConsumeIntegral<uint32_t>();
  const int mode = in.ConsumeIntegralInRange<int>(0, 3);
  for (uint8_t &b : frame) {
    state = state * 1664525u + 1013904223u;
    b = mode == 0   ? uint8_t(state >> 24)
        : mode == 1 ? uint8_t(state >> 31) * 255
                    : uint8_t(mode * 60);
  }
}

void process(Session &s, FuzzedDataProvider &in, bool shortForm) {
  Geometry g = pickGeometry(in, s);
  if (shortForm) {
    g.width = s.handle->width;
    g.height = s.handle->height;
    g.stride = s.handle->stride;
  }
  const size_t bytes = acceptedFrameBytes(s, g);
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
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
          initVideoHdr(s.handle, in.ConsumeIntegralInRange<int32_t>(-1, 1100),
                       in.ConsumeIntegralInRange<int32_t>(-1, 40),
                       in.ConsumeIntegralInRange<int32_t>(-1, 1140));
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
        if (s.handle) process(s, in, in.ConsumeIntegralInRange<int>(0, 3) == 0);
        break;
    }
  }
  if (s.handle) destroyVideoHdrHandle(s.handle);
  // Null handles are answered, never followed.
  if (destroyVideoHdrHandle(nullptr) != 1 || Video_HDR_Process(nullptr, nullptr, 0, 0, 1, 1, 1, 1))
    std::abort();
  return 0;
}
