// The alignment operations on a context the fuzzer builds: threshold bitmaps,
// pyramid levels, bitmap moves and the aligned-frame output, with random
// sizes, thresholds, shifts and contents. The frames live in buffers of
// exactly their size, so the sanitizers see any access outside them; the
// workspace's own reads past a region stay inside its allocation.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "exact_buffer.h"
#include "log_sink.h"
#include "videohdr.h"

namespace {

void quiet(int, const char *, const char *) {}

FUZZ_PIXEL_LOOP std::vector<uint8_t> frameOf(FuzzedDataProvider &in, size_t bytes) {
  std::vector<uint8_t> f(bytes);
  uint32_t state = in.ConsumeIntegral<uint32_t>();
  const uint8_t bias = in.ConsumeIntegral<uint8_t>();
  for (uint8_t &b : f) {
    state = state * 1664525u + 1013904223u;
    b = static_cast<uint8_t>((state >> 24) & bias);
  }
  return f;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  videohdr::setLogSink(quiet);
  FuzzedDataProvider in(data, size);
  VideoHdrHandle handle;
  std::memset(&handle, 0, sizeof handle);
  handle.width = in.ConsumeBool() ? in.ConsumeIntegralInRange<int32_t>(1, 200)
                                  : in.ConsumeIntegralInRange<int32_t>(1024, 2200);
  handle.height = in.ConsumeIntegralInRange<int32_t>(1, 40);
  handle.stride = handle.width;
  AllocAlignHandleParams(&handle);
  AlignContext *ctx = handle.alignContext;
  const int32_t w = ctx->width, h = ctx->height;
  const size_t frameBytes = (3 * size_t(w) * h) / 2;
  std::vector<uint8_t> prev = frameOf(in, frameBytes), cur = frameOf(in, frameBytes);
  std::vector<uint8_t> out(frameBytes);
  InitPara(ctx, prev.data(), cur.data());
  ThreshBitmap(ctx, in.ConsumeIntegralInRange<int32_t>(-10, 300),
               in.ConsumeIntegralInRange<int32_t>(-10, 300));
  for (int32_t l = 1; l < 4; ++l) buildGaussianPyramid(ctx, l);
  for (int32_t l = 0; l < 4; ++l) {
    ctx->levelDx[l] = in.ConsumeIntegralInRange<int32_t>(-40, 40);
    ctx->levelDy[l] = in.ConsumeIntegralInRange<int32_t>(-40, 40);
  }
  for (int32_t l = 3; l >= 0; --l) shiftData(ctx, l);
  ctx->levelDx[0] = in.ConsumeIntegralInRange<int32_t>(-w - 2, w + 2);
  ctx->levelDy[0] = in.ConsumeIntegralInRange<int32_t>(-h - 2, h + 2);
  ctx->lastDx = in.ConsumeBool() ? ctx->levelDx[0] : in.ConsumeIntegralInRange<int32_t>(-9, 9);
  ctx->lastDy = in.ConsumeBool() ? ctx->levelDy[0] : in.ConsumeIntegralInRange<int32_t>(-9, 9);
  getScanData(ctx, prev.data(), cur.data(), out.data());
  if (AlignProcess(&handle, cur.data(), prev.data(), out.data(), 0) > 1) __builtin_trap();
  ReleaseAlignHandleParams(&handle);
  return 0;
}
