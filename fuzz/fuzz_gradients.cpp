// Sobel and Sobel_Neon, HistMatching, xorTwoResult and Back on planes of
// exactly their documented size (plus the one byte Sobel_Neon reads past a
// plane whose width is 1 more than a multiple of 8) and on alignment contexts
// of random size with random bitmaps. Checks, besides the sanitizers:
// the block sum's variants agree; histogram matching answers as documented
// and remaps by grey level alone; xorTwoResult equals a direct count of the
// disagreeing pixels over the overlap when the bits past a row's end are
// clear; the word counter's variants agree; Back takes the fallback's luma
// during the first sixteen frames.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "exact_buffer.h"
#include "log_sink.h"
#include "videohdr.h"

namespace {

using fuzz::ExactBuffer;
using fuzz::fail;

void quiet(int, const char *, const char *) {}

// The byte past the plane that Sobel_Neon's last block reads, if any.
size_t sobelBytesPast(int64_t width, int64_t height) {
  return width >= 9 && height >= 3 && width % 8 == 1 ? 1 : 0;
}

void fuzzSobel(FuzzedDataProvider &in) {
  const bool wild = in.ConsumeIntegralInRange<int>(0, 15) == 0;
  const int32_t w =
      wild ? in.ConsumeIntegral<int32_t>() : in.ConsumeIntegralInRange<int32_t>(-2, 300);
  const int32_t h =
      wild ? in.ConsumeIntegral<int32_t>() : in.ConsumeIntegralInRange<int32_t>(-2, 40);
  const size_t plane = fuzz::planeBytes(h, w);
  if (plane > (size_t{1} << 18)) return;
  ExactBuffer image(0, plane), padded(0, plane + sobelBytesPast(w, h));
  image.fill(in);
  padded.fill(in);
  std::memcpy(padded.plane(), image.plane(), plane);

  const double scalar = Sobel(image.plane(), w, h);
  const double interior = w >= 3 && h >= 3 ? double(w - 2) * double(h - 2) : 0.0;
  if (!(scalar >= 0.0 && scalar <= 255.0 * interior)) fail("Sobel outside 0 .. 255 per centre");
  const double block = Sobel_Neon(padded.plane(), w, h);
  for (const videohdr::Kernels *k : fuzz::kInstances)
    if (k->score.sobelBlockSum(padded.plane(), w, h) != block)
      fail("a block sum variant differs from Sobel_Neon");
}

// An alignment context of a random size, built as the handle builds it.
struct Context {
  VideoHdrHandle handle;
  AlignContext *ctx = nullptr;
  explicit Context(FuzzedDataProvider &in) {
    std::memset(&handle, 0, sizeof handle);
    handle.width = in.ConsumeIntegralInRange<int>(0, 3) == 0
                       ? in.ConsumeIntegralInRange<int32_t>(1024, 1400)
                       : in.ConsumeIntegralInRange<int32_t>(1, 300);
    handle.height = in.ConsumeIntegralInRange<int32_t>(1, 24);
    handle.stride = handle.width;
    AllocAlignHandleParams(&handle);
    ctx = handle.alignContext;
    // The region pointers are carved, and the level-0 images loaded, here.
    const std::vector<uint8_t> frame(size_t(ctx->width) * ctx->height, 0);
    InitPara(ctx, frame.data(), frame.data());
  }
  ~Context() { ReleaseAlignHandleParams(&handle); }
  int32_t pitchWords() const { return (ctx->width + 63) >> 5; }
  // Random level-0 words; with `clearPast` the bits past each row's last
  // pixel, which take part in some counts, are 0.
  void fillBitmap(uint32_t *bitmap, FuzzedDataProvider &in, bool clearPast) const {
    uint32_t state = in.ConsumeIntegral<uint32_t>();
    const uint32_t density = in.ConsumeIntegral<uint32_t>();
    const int32_t words = pitchWords();
    for (int32_t y = 0; y < ctx->height; ++y)
      for (int32_t i = 0; i < words; ++i) {
        state = state * 1664525u + 1013904223u;
        uint32_t word = (state ^ (state << 13)) & (density | (state >> 7));
        const int32_t firstPixel = 32 * i;
        if (clearPast && firstPixel >= ctx->width) word = 0;
        if (clearPast && firstPixel < ctx->width && ctx->width - firstPixel < 32)
          word &= ~(~0u >> (ctx->width - firstPixel));
        bitmap[y * words + i] = word;
      }
  }
};

void fuzzHistMatching(FuzzedDataProvider &in) {
  Context c(in);
  const bool wild = in.ConsumeIntegralInRange<int>(0, 15) == 0;
  const int32_t w =
      wild ? in.ConsumeIntegral<int32_t>() : in.ConsumeIntegralInRange<int32_t>(-3, 90);
  const int32_t h =
      wild ? in.ConsumeIntegral<int32_t>() : in.ConsumeIntegralInRange<int32_t>(-3, 90);
  const size_t plane = fuzz::planeBytes(h, w);
  if (plane > (size_t{1} << 18)) return;
  ExactBuffer ref(0, plane), dst(0, plane);
  ref.fill(in);
  dst.fill(in);
  const ExactBuffer before(dst);
  const int32_t product = static_cast<int32_t>(static_cast<uint32_t>(w) * static_cast<uint32_t>(h));
  const int32_t answer = HistMatching(c.ctx, ref.plane(), dst.plane(), w, h);
  if (answer != (product < 1 ? product : 0)) fail("HistMatching: wrong answer");
  if (plane == 0) return;
  // One mapping for every pixel: equal grey levels come out equal.
  int16_t mapped[256];
  std::fill(mapped, mapped + 256, int16_t{-1});
  for (size_t i = 0; i < plane; ++i) {
    int16_t &m = mapped[before.at(ptrdiff_t(i))];
    if (m >= 0 && m != dst.at(ptrdiff_t(i))) fail("HistMatching: one level mapped two ways");
    m = dst.at(ptrdiff_t(i));
  }
}

// The disagreements over the exact overlap, one pixel at a time.
uint32_t directXorCount(const AlignContext *ctx, int32_t pitchWords, int32_t dy, int32_t dx) {
  auto bit = [&](const uint32_t *bitmap, int32_t x, int32_t y) {
    return (bitmap[y * pitchWords + (x >> 5)] >> (31 - (x & 31))) & 1u;
  };
  uint32_t count = 0;
  for (int32_t y = std::max(0, -dy); y < ctx->height - std::max(0, dy); ++y)
    for (int32_t x = std::max(0, -dx); x < ctx->width - std::max(0, dx); ++x)
      count += bit(ctx->curBitmap[0], x, y) ^ bit(ctx->prevBitmap[0], x + dx, y + dy);
  return count;
}

void fuzzXorTwoResult(FuzzedDataProvider &in) {
  Context c(in);
  const bool clearPast = in.ConsumeIntegralInRange<int>(0, 3) != 0;
  c.fillBitmap(c.ctx->prevBitmap[0], in, clearPast);
  c.fillBitmap(c.ctx->curBitmap[0], in, clearPast);
  const int32_t h = c.ctx->height, w = c.ctx->width;
  const int32_t dy = in.ConsumeIntegralInRange<int32_t>(-h - 2, h + 2);
  const int32_t dx = in.ConsumeIntegralInRange<int32_t>(-40, 40);
  const float count = xorTwoResult(c.ctx, in.ConsumeIntegral<int32_t>(), 0, dy, dx);
  const bool countable = std::abs(dx) < 32 && (dx == 0 || std::abs(dx) < w);
  if (!countable && count != 0.0f) fail("xorTwoResult: a refused shift gave a count");
  if (countable && clearPast && count != float(directXorCount(c.ctx, c.pitchWords(), dy, dx)))
    fail("xorTwoResult differs from the direct count");
}

// The word counter's variants on rows of exactly the words they read.
void fuzzCountXorBlocks(FuzzedDataProvider &in) {
  const int32_t words = in.ConsumeIntegralInRange<int32_t>(0, 140);
  const int32_t shift = in.ConsumeIntegralInRange<int32_t>(0, 31);
  const int32_t pitch = words + (shift != 0) + in.ConsumeIntegralInRange<int32_t>(0, 3);
  const int32_t rows = in.ConsumeIntegralInRange<int32_t>(0, 12);
  const size_t span = rows ? size_t(rows - 1) * pitch + words + (shift != 0) : 0;
  ExactBuffer displaced(0, 4 * span), other(0, 4 * span);
  displaced.fill(in);
  other.fill(in);
  const auto *d = reinterpret_cast<const uint32_t *>(displaced.plane());
  const auto *o = reinterpret_cast<const uint32_t *>(other.plane());
  uint32_t reference[4];
  fuzz::kInstances[0]->score.countXorBlocks(d, o, pitch, rows, words, shift, reference);
  for (const videohdr::Kernels *k : fuzz::kInstances) {
    uint32_t totals[4];
    k->score.countXorBlocks(d, o, pitch, rows, words, shift, totals);
    if (std::memcmp(totals, reference, sizeof totals) != 0) fail("word counter variants differ");
  }
}

void fuzzBack(FuzzedDataProvider &in) {
  Context c(in);
  AlignContext *ctx = c.ctx;
  c.fillBitmap(ctx->movedBitmap[0], in, in.ConsumeBool());
  c.fillBitmap(ctx->curBitmap[0], in, in.ConsumeBool());
  ctx->levelDx[0] = in.ConsumeIntegralInRange<int32_t>(-40, 40);
  ctx->levelDy[0] = in.ConsumeIntegralInRange<int32_t>(-40, 40);
  for (int i = 0; i < 5; ++i) ctx->countHistory[i] = in.ConsumeFloatingPointInRange<float>(0, 100);
  const int32_t w = ctx->width, h = ctx->height;
  const size_t luma = size_t(w) * h, frame = 3 * luma / 2;
  ExactBuffer target(0, frame), partner(0, luma + sobelBytesPast(w, h)), fallback(0, frame);
  target.fill(in);
  partner.fill(in);
  fallback.fill(in);
  const int32_t frameCount = in.ConsumeIntegralInRange<int32_t>(-2, 40);
  Back(ctx, frameCount, target.plane(), partner.plane(), fallback.plane());
  if (frameCount < 16 && (std::memcmp(target.plane(), fallback.plane(), luma) != 0 ||
                          std::memcmp(ctx->scratchPlane5, partner.plane(), luma) != 0))
    fail("Back: an early frame did not take the fallback's luma");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  videohdr::setLogSink(quiet);
  FuzzedDataProvider in(data, size);
  switch (in.ConsumeIntegralInRange<int>(0, 4)) {
    case 0:
      fuzzSobel(in);
      break;
    case 1:
      fuzzHistMatching(in);
      break;
    case 2:
      fuzzXorTwoResult(in);
      break;
    case 3:
      fuzzCountXorBlocks(in);
      break;
    default:
      fuzzBack(in);
      break;
  }
  return 0;
}
