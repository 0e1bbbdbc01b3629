// The exposure fusion kernel: picks the brighter of two frames, looks up a
// weight per pixel from the darker of the two values, smooths the weight map
// at half resolution, scales it back up and blends luma and chroma with it
// into the caller's frame.
//
// Notation below: H, W are the context's height and stride, h = H / 2 and
// w = W / 2; P is the full-resolution weight plane (pitch W, but pitch 2w
// after the doubling), Q0 the half-resolution weight plane (pitch w) and Q1
// the scratch plane of the horizontal smoothing.
//
// The block loops this kernel is defined by run while a block's start is
// inside the row, so they spill past the end of a row. A spill into the next
// row is rewritten when that row is processed, and the two element-wise
// steps (lookup, luma blend) compute the same value for a byte whichever
// row's block reaches it, so they run as one pass over the plane. What the
// last row spills stays, and later steps can read it; it is reproduced here
// up to the end of the plane it falls in and never written beyond it.
#include "exposure_fusion.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>

#include "plane_ops.h"

namespace videohdr {
namespace {

constexpr int32_t kSampleRowStep = 32;
constexpr int32_t kSampleColumnStep = 4;
constexpr int32_t kByteBlock = 16;              // lookup, blends and doubling
constexpr int32_t kHalvingBlock = 8;            // output bytes per decimation block
constexpr int32_t kSmoothBorder = 3;            // the 7-tap filter's reach
constexpr int32_t kMinRowsFilterWidth = 14;     // w: one whole horizontal block
constexpr int32_t kMinColumnsFilterWidth = 8;   // w: one whole vertical block
constexpr int32_t kMinColumnsFilterHeight = 7;  // h: one output row

int32_t roundUp(int32_t value, int32_t block) { return (value + block - 1) / block * block; }

struct FusionGeometry {
  int32_t height;          // H
  int32_t stride;          // W
  int32_t halfHeight;      // h
  int32_t halfWidth;       // w
  int32_t planeBytes;      // extent of P: stride * scanline
  int32_t halfPlaneBytes;  // extent of Q0 and of Q1
  int32_t lumaBytes;       // H * W: the caller's luma plane and the copies'
  int32_t chromaBytes;     // (H * W) / 2: the caller's chroma plane and the copies'
  ptrdiff_t chromaOffset;  // of the caller's chroma plane
};

FusionGeometry geometryOf(const FusionContext &ctx) {
  FusionGeometry g;
  g.height = ctx.height;
  g.stride = ctx.stride;
  g.halfHeight = ctx.height / 2;
  g.halfWidth = ctx.stride / 2;
  g.planeBytes = ctx.stride * ctx.scanline;
  g.halfPlaneBytes = g.planeBytes >> 2;
  const bool empty = ctx.height < 1 || ctx.stride < 1;
  g.lumaBytes = empty ? 0 : ctx.height * ctx.stride;
  g.chromaBytes = g.lumaBytes / 2;
  g.chromaOffset = static_cast<ptrdiff_t>(ctx.stride) * ctx.scanline;
  return g;
}

// The plane operations and row kernels one variant of the kernel uses.
struct FusionKernels {
  decltype(&lookupWeightsPortable) lookupWeights;
  decltype(&downScale2xPortable) downScale2x;
  decltype(&filterRows7Portable) filterRows7;
  decltype(&filterColumns7Portable) filterColumns7;
  decltype(&upscale2xReplicatePortable) upscale2x;
  decltype(&blendLumaPortable) blendLuma;
  decltype(&blendChromaRowPortable) blendChromaRow;
};

int32_t sampledLumaSum(const uint8_t *luma, int32_t stride, int32_t height) {
  int32_t sum = 0;
  for (int32_t y = 0; y < height; y += kSampleRowStep) {
    const uint8_t *row = luma + static_cast<ptrdiff_t>(y) * stride;
    for (int32_t x = 0; x < stride; x += kSampleColumnStep) sum += row[x];
  }
  return sum;
}

// Bytes of P the lookup leaves: the last row's 16-byte blocks run up to 15
// bytes past the luma, which stays inside P when scanline > height.
int32_t lookupBytes(const FusionGeometry &g) {
  if (g.lumaBytes == 0) return 0;
  return std::min(g.planeBytes, (g.height - 1) * g.stride + roundUp(g.stride, kByteBlock));
}

// The decimation's last 8-byte block spills up to 7 point samples past the
// last half-resolution row. They stay in Q0 (up to the end of its plane), and
// the chroma blend of the last row reads them as weights when W is not a
// multiple of 16, so they are written here as the block would write them.
void spillLastHalvedRow(const uint8_t *P, uint8_t *Q0, const FusionGeometry &g) {
  const int32_t h = g.halfHeight, w = g.halfWidth;
  const int32_t rowStart = (h - 1) * w;
  const int32_t end = std::min(roundUp(w, kHalvingBlock), g.halfPlaneBytes - rowStart);
  const uint8_t *evenRow = P + static_cast<ptrdiff_t>(2 * (h - 1)) * g.stride;
  for (int32_t c = w; c < end; ++c) Q0[rowStart + c] = evenRow[2 * c];
}

// When a 16-byte doubling block is longer than two output rows (w < 4), the
// last source row's block runs past the 2h rows of P: into the luma row that
// the doubling does not cover when H is odd. Written here as the block would.
void spillLastDoubledRow(const uint8_t *Q0, uint8_t *P, const FusionGeometry &g) {
  const int32_t h = g.halfHeight, w = g.halfWidth;
  const int32_t rowStart = (2 * h - 2) * (2 * w);
  const int32_t end = std::min(roundUp(2 * w, kByteBlock), g.planeBytes - rowStart);
  const uint8_t *lastRow = Q0 + (h - 1) * w;
  for (int32_t x = 4 * w; x < end; ++x) P[rowStart + x] = lastRow[x >> 1];
}

// The weight map: P from the lookup, decimated into Q0, smoothed there
// (through Q1) and doubled back into P. Each stage runs only for the sizes it
// admits; the later ones still run on what is there.
void buildWeightMap(const FusionContext &ctx, const ExposurePair &pair, const FusionGeometry &g,
                    const FusionKernels &k) {
  uint8_t *P = ctx.weightPlanes[0];
  uint8_t *Q0 = ctx.halfWeightPlanes[0];
  uint8_t *Q1 = ctx.halfWeightPlanes[1];
  const int32_t h = g.halfHeight, w = g.halfWidth;

  k.lookupWeights(pair.bright, pair.dark, ctx.toneCurves[1], P, lookupBytes(g));
  if (h >= 1 && w >= 1) {
    k.downScale2x(P, Q0, g.stride, g.height, g.stride);
    spillLastHalvedRow(P, Q0, g);
  }
  if (h >= 1 && w >= kMinRowsFilterWidth)
    k.filterRows7(Q0, Q1, w, h, kSmoothBorder, Filter7::Smooth);
  if (w >= kMinColumnsFilterWidth && h >= kMinColumnsFilterHeight)
    k.filterColumns7(Q1, Q0, w, h, kSmoothBorder, Filter7::Smooth);
  if (h >= 1) {
    // P takes pitch 2w here, one byte less than W when W is odd; the luma
    // blend still reads it at pitch W.
    k.upscale2x(Q0, P, w, h, w);
    spillLastDoubledRow(Q0, P, g);
  }
}

// The chroma blend. Row r takes its weights from Q0 at (r * W) >> 1, which drifts away
// from row r of Q0 when W is odd; a partial block's weights may lie in the
// next weight row, or past the used part of Q0 for the last row, and are read
// where they lie. The last row's block spill reaches into the chroma plane's
// extra half row when H is odd.
void blendChroma(const ExposurePair &pair, const uint8_t *Q0, uint8_t *output,
                 const FusionGeometry &g, const FusionKernels &k) {
  const int32_t h = g.halfHeight, W = g.stride;
  const uint8_t *brightChroma = pair.bright + g.lumaBytes;
  const uint8_t *darkChroma = pair.dark + g.lumaBytes;
  uint8_t *outChroma = output + g.chromaOffset;
  for (int32_t r = 0; r < h; ++r) {
    const ptrdiff_t row = static_cast<ptrdiff_t>(r) * W;
    const int32_t count =
        r < h - 1 ? W : std::min(roundUp(W, kByteBlock), g.chromaBytes - (h - 1) * W);
    k.blendChromaRow(brightChroma + row, darkChroma + row, Q0 + ((r * W) >> 1), outChroma + row,
                     count);
  }
}

void runFusion(const FusionContext &ctx, const uint8_t *current, const uint8_t *previous,
               uint8_t *output, const FusionKernels &k) {
  const FusionGeometry g = geometryOf(ctx);
  const ExposurePair pair = chooseBrightDark(current, previous, g.stride, g.height);
  buildWeightMap(ctx, pair, g, k);
  k.blendLuma(pair.bright, pair.dark, ctx.weightPlanes[0], output, g.lumaBytes);
  if (g.height >= 2 && g.stride >= 1) blendChroma(pair, ctx.halfWeightPlanes[0], output, g, k);
}

// Both products are exact and their sum is at most 255 * 255, so 16 bits hold
// it (which lets the compiler vectorise at 16-bit lanes); the high byte is
// the result, truncated.
inline uint8_t weightedBlend(uint8_t x, uint8_t y, uint8_t weight) {
  const uint16_t sum = static_cast<uint16_t>(x * weight + y * (255 - weight));
  return static_cast<uint8_t>(sum >> 8);
}

// One weight per byte for `bytes` chroma bytes from a block boundary: byte m
// of a 16-byte block takes the block's weight m & 7, so pairs 0-3 use the
// eight weights one per byte and pairs 4-7 use them again. A partial block
// reads only the weights its bytes use.
void spreadChromaWeights(const uint8_t *weights, uint8_t *spread, int32_t bytes) {
  constexpr int32_t kHalf = kByteBlock / 2;
  for (int32_t b = 0; b < bytes; b += kByteBlock) {
    const int32_t n = std::min(bytes - b, kByteBlock);
    std::memcpy(spread + b, weights + b / 2, static_cast<size_t>(std::min(n, kHalf)));
    if (n > kHalf) std::memcpy(spread + b + kHalf, weights + b / 2, static_cast<size_t>(n - kHalf));
  }
}

void weightedBlendRun(const uint8_t *x, const uint8_t *y, const uint8_t *weights, uint8_t *out,
                      int32_t count) {
  for (int32_t i = 0; i < count; ++i) out[i] = weightedBlend(x[i], y[i], weights[i]);
}

}  // namespace

ExposurePair chooseBrightDark(const uint8_t *current, const uint8_t *previous, int32_t stride,
                              int32_t height) {
  if (sampledLumaSum(current, stride, height) < sampledLumaSum(previous, stride, height))
    return {previous, current};
  return {current, previous};
}

void lookupWeightsPortable(const uint8_t *a, const uint8_t *b, const uint8_t *table,
                           uint8_t *weights, int32_t count) {
  for (int32_t i = 0; i < count; ++i) weights[i] = table[std::min(a[i], b[i])];
}

void blendLumaPortable(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                       uint8_t *out, int32_t count) {
  weightedBlendRun(bright, dark, weights, out, count);
}

// The row goes in chunks of whole blocks whose weights are spread to one per
// byte first, so that the blend is the same plain loop as the luma's (which
// the compiler vectorises; the block-wise weight pattern keeps it from doing
// so in place).
void blendChromaRowPortable(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                            uint8_t *out, int32_t count) {
  constexpr int32_t kChunk = 16 * kByteBlock;
  uint8_t spread[kChunk];
  for (int32_t start = 0; start < count; start += kChunk) {
    const int32_t bytes = std::min(count - start, kChunk);
    spreadChromaWeights(weights + start / 2, spread, bytes);
    weightedBlendRun(dark + start, bright + start, spread, out + start, bytes);
  }
}

void exposureFusionPortable(const FusionContext &ctx, const uint8_t *current,
                            const uint8_t *previous, uint8_t *output) {
  static constexpr FusionKernels kPortable = {lookupWeightsPortable,      downScale2xPortable,
                                              filterRows7Portable,        filterColumns7Portable,
                                              upscale2xReplicatePortable, blendLumaPortable,
                                              blendChromaRowPortable};
  runFusion(ctx, current, previous, output, kPortable);
}

#if VIDEOHDR_HAVE_NEON
namespace {

// (x * w + y * (255 - w)) >> 8 on eight lanes: widening products summed in
// 16-bit lanes, high byte kept. 255 - w is ~w for a byte.
inline uint8x8_t weightedBlendNeon(uint8x8_t x, uint8x8_t y, uint8x8_t weight) {
  const uint16x8_t sum = vmlal_u8(vmull_u8(x, weight), y, vmvn_u8(weight));
  return vshrn_n_u16(sum, 8);
}

}  // namespace

// Whole 16-byte blocks, then the portable loop on the rest: the bytes are
// element-wise, so the tail gives what a partial block would, without reading
// or writing past `count`.
void lookupWeightsNeon(const uint8_t *a, const uint8_t *b, const uint8_t *table, uint8_t *weights,
                       int32_t count) {
  const int32_t blockEnd = count - count % kByteBlock;
  for (int32_t i = 0; i < blockEnd; i += kByteBlock) {
    uint8_t darker[kByteBlock];
    vst1q_u8(darker, vminq_u8(vld1q_u8(a + i), vld1q_u8(b + i)));
    // A 256-entry table does not fit a vector lookup on ARMv7: byte loads.
    for (int32_t m = 0; m < kByteBlock; ++m) weights[i + m] = table[darker[m]];
  }
  lookupWeightsPortable(a + blockEnd, b + blockEnd, table, weights + blockEnd, count - blockEnd);
}

void blendLumaNeon(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights, uint8_t *out,
                   int32_t count) {
  const int32_t blockEnd = count - count % kByteBlock;
  for (int32_t i = 0; i < blockEnd; i += kByteBlock) {
    const uint8x16_t x = vld1q_u8(bright + i);
    const uint8x16_t y = vld1q_u8(dark + i);
    const uint8x16_t weight = vld1q_u8(weights + i);
    vst1q_u8(
        out + i,
        vcombine_u8(weightedBlendNeon(vget_low_u8(x), vget_low_u8(y), vget_low_u8(weight)),
                    weightedBlendNeon(vget_high_u8(x), vget_high_u8(y), vget_high_u8(weight))));
  }
  blendLumaPortable(bright + blockEnd, dark + blockEnd, weights + blockEnd, out + blockEnd,
                    count - blockEnd);
}

// Whole blocks take their eight weights with one 8-byte load used for both
// halves; the partial last block goes through the portable row, which reads
// only the weights and bytes it uses.
void blendChromaRowNeon(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                        uint8_t *out, int32_t count) {
  const int32_t blockEnd = count - count % kByteBlock;
  for (int32_t b = 0; b < blockEnd; b += kByteBlock) {
    const uint8x8_t weight = vld1_u8(weights + b / 2);
    const uint8x16_t x = vld1q_u8(dark + b);
    const uint8x16_t y = vld1q_u8(bright + b);
    vst1q_u8(out + b, vcombine_u8(weightedBlendNeon(vget_low_u8(x), vget_low_u8(y), weight),
                                  weightedBlendNeon(vget_high_u8(x), vget_high_u8(y), weight)));
  }
  blendChromaRowPortable(bright + blockEnd, dark + blockEnd, weights + blockEnd / 2, out + blockEnd,
                         count - blockEnd);
}

void exposureFusionNeon(const FusionContext &ctx, const uint8_t *current, const uint8_t *previous,
                        uint8_t *output) {
  static constexpr FusionKernels kNeon = {
      lookupWeightsNeon,      downScale2xNeon, filterRows7Neon,   filterColumns7Neon,
      upscale2xReplicateNeon, blendLumaNeon,   blendChromaRowNeon};
  runFusion(ctx, current, previous, output, kNeon);
}
#endif  // VIDEOHDR_HAVE_NEON

}  // namespace videohdr

namespace {
// Calls of the kernel in this process; nothing reads it. Relaxed atomic so
// that independent handles driven from different threads do not race on it.
std::atomic<uint32_t> fusionCallCount{0};
}  // namespace

extern "C" int32_t ExposureFusionNeon(VideoHdrHandle *handle, const uint8_t *current,
                                      const uint8_t *alignedPrevious, uint8_t *output) {
  if (const FusionContext *ctx = handle->fusionContext) {
#if VIDEOHDR_NATIVE_NEON
    videohdr::exposureFusionNeon(*ctx, current, alignedPrevious, output);
#else
    videohdr::exposureFusionPortable(*ctx, current, alignedPrevious, output);
#endif
  }
  fusionCallCount.fetch_add(1, std::memory_order_relaxed);
  return 1;
}
