// The exposure fusion kernel: picks the brighter of two frames, looks up a
// weight per pixel from the darker of the two values, smooths the weight map
// at half resolution, scales it back up and blends luma and chroma with it
// into the caller's frame.
//
// The notation is block_spill.h's: H, W, h, w, the full-resolution weight
// plane P, the half-resolution plane Q0 and the horizontal smoothing's scratch
// plane Q1. The element-wise steps (lookup, luma blend) run as one pass over
// the plane; block_spill.h reproduces what the kernel's block loops leave past
// the last row of each plane.
#include "exposure_fusion.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>

#include "../any_row.h"
#include "../kernels.h"
#include "block_spill.h"
#include "plane_ops.h"
#include "wide_lanes.h"

namespace videohdr {
namespace {

constexpr int32_t kSampleRowStep = 32;
constexpr int32_t kSampleColumnStep = 4;
constexpr int32_t kSmoothBorder = 3;            // the 7-tap filter's reach
constexpr int32_t kMinRowsFilterWidth = 14;     // w: one whole horizontal block
constexpr int32_t kMinColumnsFilterWidth = 8;   // w: one whole vertical block
constexpr int32_t kMinColumnsFilterHeight = 7;  // h: one output row

int32_t sampledLumaSum(const uint8_t *luma, int32_t stride, int32_t height) {
  int32_t sum = 0;
  for (int32_t y = 0; y < height; y += kSampleRowStep) {
    const uint8_t *row = luma + static_cast<ptrdiff_t>(y) * stride;
    for (int32_t x = 0; x < stride; x += kSampleColumnStep) sum += row[x];
  }
  return sum;
}

// The weight map: P from the lookup, decimated into Q0, smoothed there
// (through Q1) and doubled back into P. Each stage runs only for the sizes it
// admits; the later ones still run on what is there.
void buildWeightMap(const FusionContext &ctx, const ExposurePair &pair, const FusionGeometry &g,
                    const Kernels &k) {
  uint8_t *P = ctx.weightPlanes[0];
  uint8_t *Q0 = ctx.halfWeightPlanes[0];
  uint8_t *Q1 = ctx.halfWeightPlanes[1];
  const int32_t h = g.halfHeight, w = g.halfWidth;

  k.fusion.lookupWeights(pair.bright, pair.dark, ctx.toneCurves[1], P, lookupBytes(g));
  if (h >= 1 && w >= 1) {
    k.plane.downScale2x(P, Q0, g.stride, g.height, g.stride);
    spillLastHalvedRow(P, Q0, g);
  }
  if (h >= 1 && w >= kMinRowsFilterWidth)
    k.plane.filterRows7(Q0, Q1, w, h, kSmoothBorder, Filter7::Smooth);
  if (w >= kMinColumnsFilterWidth && h >= kMinColumnsFilterHeight)
    k.plane.filterColumns7(Q1, Q0, w, h, kSmoothBorder, Filter7::Smooth);
  if (h >= 1) {
    // P takes pitch 2w here, one byte less than W when W is odd; the luma
    // blend still reads it at pitch W.
    k.plane.upscale2xReplicate(Q0, P, w, h, w);
    spillLastDoubledRow(Q0, P, g);
  }
}

// The chroma blend. Row r takes its weights from Q0 at (r * W) >> 1, which
// drifts away from row r of Q0 when W is odd.
void blendChroma(const ExposurePair &pair, const uint8_t *Q0, uint8_t *output,
                 const FusionGeometry &g, const Kernels &k) {
  const int32_t h = g.halfHeight, W = g.stride;
  const uint8_t *brightChroma = pair.bright + g.lumaBytes;
  const uint8_t *darkChroma = pair.dark + g.lumaBytes;
  uint8_t *outChroma = output + g.chromaOffset;
  for (int32_t r = 0; r < h; ++r) {
    const ptrdiff_t row = static_cast<ptrdiff_t>(r) * W;
    k.fusion.blendChromaRow(brightChroma + row, darkChroma + row, Q0 + ((r * W) >> 1),
                            outChroma + row, chromaRowBytes(g, r));
  }
}

// Frames whose rows are whole blocks at both resolutions (a stride that is a
// multiple of 32), with an even height of at least 14 rows that fits the
// planes: no block loop runs past a row, both smoothing passes run, and the
// doubling rewrites every byte of P. The lookup's values in P are then read
// only at even rows and columns, by the decimation, before the doubling
// overwrites them, so the lookup is made at those positions only, straight
// into Q0; and the doubling runs row pair by row pair together with the two
// blends that read it. Every plane and the output get the same bytes as
// through the plane operations.
bool wholeBlockFrame(const FusionContext &ctx, const FusionGeometry &g) {
  return g.stride % 32 == 0 && g.height % 2 == 0 && g.halfHeight >= kMinColumnsFilterHeight &&
         g.halfWidth >= kMinRowsFilterWidth && ctx.scanline >= ctx.height;
}

void fuseWholeBlockFrame(const FusionContext &ctx, const ExposurePair &pair,
                         const FusionGeometry &g, uint8_t *output, const Kernels &k) {
  uint8_t *P = ctx.weightPlanes[0];
  uint8_t *Q0 = ctx.halfWeightPlanes[0];
  uint8_t *Q1 = ctx.halfWeightPlanes[1];
  const int32_t h = g.halfHeight, w = g.halfWidth, W = g.stride;
  k.fusion.lookupEvenSamples(pair.bright, pair.dark, W, ctx.toneCurves[1], Q0, w, h);
  k.plane.filterRows7(Q0, Q1, w, h, kSmoothBorder, Filter7::Smooth);
  k.plane.filterColumns7(Q1, Q0, w, h, kSmoothBorder, Filter7::Smooth);
  const FrameRows bright = {pair.bright, pair.bright + g.lumaBytes};
  const FrameRows dark = {pair.dark, pair.dark + g.lumaBytes};
  for (int32_t r = 0; r < h; ++r) {
    const ptrdiff_t luma = static_cast<ptrdiff_t>(2 * r) * W,
                    chroma = static_cast<ptrdiff_t>(r) * W;
    k.fusion.doubleAndBlendRows({bright.luma + luma, bright.chroma + chroma},
                                {dark.luma + luma, dark.chroma + chroma}, Q0 + r * w, P + luma,
                                {output + luma, output + g.chromaOffset + chroma}, W);
  }
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

void lookupEvenSamplesPortable(const uint8_t *bright, const uint8_t *dark, int32_t stride,
                               const uint8_t *table, uint8_t *weights, int32_t count,
                               int32_t rows) {
  for (int32_t r = 0; r < rows; ++r) {
    const ptrdiff_t even = static_cast<ptrdiff_t>(2 * r) * stride;
    uint8_t *row = weights + static_cast<ptrdiff_t>(r) * count;
    for (int32_t c = 0; c < count; ++c)
      row[c] = table[std::min(bright[even + 2 * c], dark[even + 2 * c])];
  }
}

// The doubled rows first, then the luma blend over them as one run of two
// rows: both loops vectorise.
void doubleAndBlendRowsPortable(FrameRows bright, FrameRows dark, const uint8_t *weights,
                                uint8_t *doubled, OutputRows out, int32_t stride) {
  for (int32_t c = 0; c < stride / 2; ++c) doubled[2 * c] = doubled[2 * c + 1] = weights[c];
  std::memcpy(doubled + stride, doubled, static_cast<size_t>(stride));
  blendLumaPortable(bright.luma, dark.luma, doubled, out.luma, 2 * stride);
  blendChromaRowPortable(bright.chroma, dark.chroma, weights, out.chroma, stride);
}

void exposureFusion(const FusionContext &ctx, const uint8_t *current, const uint8_t *previous,
                    uint8_t *output, const Kernels &k) {
  const FusionGeometry g = geometryOf(ctx);
  const ExposurePair pair = chooseBrightDark(current, previous, g.stride, g.height);
  if (wholeBlockFrame(ctx, g)) {
    fuseWholeBlockFrame(ctx, pair, g, output, k);
    return;
  }
  buildWeightMap(ctx, pair, g, k);
  k.fusion.blendLuma(pair.bright, pair.dark, ctx.weightPlanes[0], output, g.lumaBytes);
  if (g.height >= 2 && g.stride >= 1) blendChroma(pair, ctx.halfWeightPlanes[0], output, g, k);
}

#if VIDEOHDR_HAVE_NEON
namespace {

// (x * w + y * (255 - w)) >> 8: widening products summed in 16-bit lanes,
// high byte kept. 255 - w is ~w for a byte.
inline uint8x16_t weightedBlendNeon(uint8x16_t x, uint8x16_t y, uint8x16_t weight) {
  return highBytes(multiplyAddWide(multiplyWide(x, weight), y, vmvnq_u8(weight)));
}

// The same with eight weights for both halves (a chroma block). ARMv7
// multiplies the halves by them as they are; A64 repeats them in one
// instruction for its high-half products.
inline uint8x16_t weightedBlendNeon(uint8x16_t x, uint8x16_t y, uint8x8_t weight) {
#if defined(__aarch64__)
  return weightedBlendNeon(x, y, vcombine_u8(weight, weight));
#else
  const uint8x8_t complement = vmvn_u8(weight);
  return highBytes({vmlal_u8(vmull_u8(vget_low_u8(x), weight), vget_low_u8(y), complement),
                    vmlal_u8(vmull_u8(vget_high_u8(x), weight), vget_high_u8(y), complement)});
#endif
}

#if defined(__aarch64__)
// A64 looks up 16 indices in the table's four 64-byte quarters, one
// four-register lookup each: the first gives 0 where the index is 64 or more,
// and each further one fills only the lanes whose index, its top two bits
// flipped by the quarter's, falls below 64, so every lane takes its entry
// from exactly one quarter. Each quarter is loaded once per step for all of
// the step's index vectors (GCC does not keep four-register groups in
// registers across a loop: it would spill and reload them anyway).
using WeightTable = const uint8_t *;

inline WeightTable prepareWeightTable(const uint8_t *table) { return table; }

template <int N>
inline void lookupTableNeon(WeightTable table, const uint8x16_t (&index)[N],
                            uint8x16_t (&value)[N]) {
  uint8x16x4_t quarter = vld1q_u8_x4(table);
  for (int v = 0; v < N; ++v) value[v] = vqtbl4q_u8(quarter, index[v]);
  for (int q = 1; q < 4; ++q) {
    quarter = vld1q_u8_x4(table + 64 * q);
    const uint8x16_t flip = vdupq_n_u8(static_cast<uint8_t>(64 * q));
    for (int v = 0; v < N; ++v) value[v] = vqtbx4q_u8(value[v], quarter, veorq_u8(index[v], flip));
  }
}

// Index vectors per step: two share each load of the table's quarters.
constexpr int kLookupVectors = 2;
#else
// ARMv7 looks up in 32-byte slices (four 8-byte registers). The table is
// rearranged so that a de-interleaving 32-byte load of slice s gives its four
// 8-byte quarters in order (byte 4j + k of a slice holds entry 8k + j), which
// puts every slice straight into the four consecutive registers a table
// lookup takes.
struct WeightTable {
  uint8_t bytes[256];
};

WeightTable prepareWeightTable(const uint8_t *table) {
  WeightTable out;
  for (int s = 0; s < 8; ++s) {
    const uint8x16_t a = vld1q_u8(table + 32 * s), b = vld1q_u8(table + 32 * s + 16);
    const uint8x8x4_t quarters = {
        {vget_low_u8(a), vget_high_u8(a), vget_low_u8(b), vget_high_u8(b)}};
    vst4_u8(out.bytes + 32 * s, quarters);
  }
  return out;
}

// table[index] for N x 16 indices, slice by slice: a lookup per 8 indices
// that leaves the lanes whose index falls outside the slice alone (the first
// slice's lookup gives 0 there). Subtracting 32 after every slice walks each
// index through exactly one slice; the subtractions stay in that order
// (GCC would otherwise form all seven moved indices of every vector up front,
// more than the registers hold).
template <int N>
inline void lookupTableNeon(const WeightTable &table, const uint8x16_t (&index)[N],
                            uint8x16_t (&value)[N]) {
  const uint8x16_t sliceBytes = vdupq_n_u8(32);
  uint8x8x4_t slice = vld4_u8(table.bytes);
  uint8x16_t moved[N];
  uint8x8_t lanes[2 * N];
  for (int v = 0; v < N; ++v) {
    moved[v] = index[v];
    lanes[2 * v] = vtbl4_u8(slice, vget_low_u8(moved[v]));
    lanes[2 * v + 1] = vtbl4_u8(slice, vget_high_u8(moved[v]));
  }
  for (int s = 1; s < 8; ++s) {
    slice = vld4_u8(table.bytes + 32 * s);
    for (int v = 0; v < N; ++v) {
      moved[v] = vsubq_u8(moved[v], sliceBytes);
      opaqueVector(moved[v]);
      lanes[2 * v] = vtbx4_u8(lanes[2 * v], slice, vget_low_u8(moved[v]));
      lanes[2 * v + 1] = vtbx4_u8(lanes[2 * v + 1], slice, vget_high_u8(moved[v]));
    }
  }
  for (int v = 0; v < N; ++v) value[v] = vcombine_u8(lanes[2 * v], lanes[2 * v + 1]);
}

// Index vectors per step: four share each load of a slice (the registers
// hold no more).
constexpr int kLookupVectors = 4;
#endif

// The darker of two frames' bytes, 16 at a time: every byte (Step 1) or
// every other one (Step 2: a de-interleaving load keeps the even ones).
template <int Step>
inline uint8x16_t darkerNeon(const uint8_t *a, const uint8_t *b) {
  if constexpr (Step == 1) return vminq_u8(vld1q_u8(a), vld1q_u8(b));
  return vminq_u8(vld2q_u8(a).val[0], vld2q_u8(b).val[0]);
}

// table[min(a, b)] for N x 16 positions, Step bytes apart.
template <int N, int Step>
inline void lookupBlockNeon(const uint8_t *a, const uint8_t *b, const WeightTable &table,
                            uint8_t *weights) {
  uint8x16_t index[N], value[N];
  for (int v = 0; v < N; ++v) index[v] = darkerNeon<Step>(a + 16 * Step * v, b + 16 * Step * v);
  lookupTableNeon(table, index, value);
  for (int v = 0; v < N; ++v) vst1q_u8(weights + 16 * v, value[v]);
}

#if defined(__aarch64__)
// A64 takes two vectors of even samples from one four-way de-interleaving
// load of 64 bytes per frame (lanes 0 and 2) and puts their lookups back in
// order with an interleaving store.
template <>
inline void lookupBlockNeon<2, 2>(const uint8_t *a, const uint8_t *b, const WeightTable &table,
                                  uint8_t *weights) {
  const uint8x16x4_t x = vld4q_u8(a), y = vld4q_u8(b);
  const uint8x16_t index[2] = {vminq_u8(x.val[0], y.val[0]), vminq_u8(x.val[2], y.val[2])};
  uint8x16x2_t value;
  lookupTableNeon(table, index, value.val);
  vst2q_u8(weights, value);
}
#endif

// `count` positions, Step bytes apart, kLookupVectors x 16 per step and the
// rest 16 at a time. count is a multiple of 16.
template <int Step>
void lookupRowNeon(const uint8_t *a, const uint8_t *b, const WeightTable &table, uint8_t *weights,
                   int32_t count) {
  constexpr int32_t kStep = 16 * kLookupVectors;
  int32_t c = 0;
  for (; c + kStep <= count; c += kStep)
    lookupBlockNeon<kLookupVectors, Step>(a + Step * c, b + Step * c, table, weights + c);
  for (; c < count; c += 16)
    lookupBlockNeon<1, Step>(a + Step * c, b + Step * c, table, weights + c);
}

}  // namespace

void lookupWeightsNeon(const uint8_t *a, const uint8_t *b, const uint8_t *table, uint8_t *weights,
                       int32_t count) {
  const WeightTable prepared = prepareWeightTable(table);
  blocksThenRest(
      wholeBlocks<kByteBlock>(count), count,
      [&](int32_t end) { lookupRowNeon<1>(a, b, prepared, weights, end); },
      [=](int32_t at, int32_t rest) {
        lookupWeightsPortable(a + at, b + at, table, weights + at, rest);
      });
}

void blendLumaNeon(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights, uint8_t *out,
                   int32_t count) {
  blocksThenRest(
      wholeBlocks<kByteBlock>(count), count,
      [=](int32_t end) {
        for (int32_t i = 0; i < end; i += kByteBlock) {
          vst1q_u8(out + i, weightedBlendNeon(vld1q_u8(bright + i), vld1q_u8(dark + i),
                                              vld1q_u8(weights + i)));
        }
      },
      [=](int32_t at, int32_t rest) {
        blendLumaPortable(bright + at, dark + at, weights + at, out + at, rest);
      });
}

// Whole blocks take their eight weights with one 8-byte load used for both
// halves; the portable row finishes a partial last block reading only the
// weights its bytes use.
void blendChromaRowNeon(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                        uint8_t *out, int32_t count) {
  blocksThenRest(
      wholeBlocks<kByteBlock>(count), count,
      [=](int32_t end) {
        for (int32_t b = 0; b < end; b += kByteBlock) {
          const uint8x8_t weight = vld1_u8(weights + b / 2);
          vst1q_u8(out + b, weightedBlendNeon(vld1q_u8(dark + b), vld1q_u8(bright + b), weight));
        }
      },
      [=](int32_t at, int32_t rest) {
        blendChromaRowPortable(bright + at, dark + at, weights + at / 2, out + at, rest);
      });
}

// The table is prepared once for all rows.
void lookupEvenSamplesNeon(const uint8_t *bright, const uint8_t *dark, int32_t stride,
                           const uint8_t *table, uint8_t *weights, int32_t count, int32_t rows) {
  const WeightTable prepared = prepareWeightTable(table);
  for (int32_t r = 0; r < rows; ++r) {
    lookupRowNeon<2>(bright + static_cast<ptrdiff_t>(2 * r) * stride,
                     dark + static_cast<ptrdiff_t>(2 * r) * stride, prepared,
                     weights + static_cast<ptrdiff_t>(r) * count, count);
  }
}

namespace {

// Moves a row pointer on. On A64 each pointer is kept opaque, in a
// register of its own: GCC would otherwise fold the eleven pointers of the
// row-pair loop into one index and add it to every base before each
// multi-register load and store, which take no index (11 instructions more
// per 32 columns). Turning that merging off for the whole source, as the
// ARMv7 build does, would cost the A64 lookups more than it saves here.
template <typename T>
inline void advanceRow(T *&p, int32_t bytes) {
  p += bytes;
#if defined(__aarch64__)
  opaquePointer(p);
#endif
}

// The frame and output rows a step of the row-pair kernel works on: luma rows
// 0 and 1, the chroma row, and the two rows of the doubled weights. Each
// advances by itself, so that every load and store increments its own address.
struct RowPairCursor {
  const uint8_t *b0, *b1, *bc, *d0, *d1, *dc;
  uint8_t *p0, *p1, *o0, *o1, *oc;
  const uint8_t *weights;

  RowPairCursor(FrameRows bright, FrameRows dark, const uint8_t *w, uint8_t *doubled,
                OutputRows out, int32_t stride)
      : b0(bright.luma),
        b1(bright.luma + stride),
        bc(bright.chroma),
        d0(dark.luma),
        d1(dark.luma + stride),
        dc(dark.chroma),
        p0(doubled),
        p1(doubled + stride),
        o0(out.luma),
        o1(out.luma + stride),
        oc(out.chroma),
        weights(w) {}

  void advance(int32_t columns) {
    advanceRow(b0, columns), advanceRow(b1, columns), advanceRow(bc, columns);
    advanceRow(d0, columns), advanceRow(d1, columns), advanceRow(dc, columns);
    advanceRow(p0, columns), advanceRow(p1, columns);
    advanceRow(o0, columns), advanceRow(o1, columns), advanceRow(oc, columns);
    advanceRow(weights, columns / 2);
  }
};

#if defined(__aarch64__)
inline uint8x16x2_t weightedBlendNeon(uint8x16x2_t x, uint8x16x2_t y, uint8x16x2_t weight) {
  return {{weightedBlendNeon(x.val[0], y.val[0], weight.val[0]),
           weightedBlendNeon(x.val[1], y.val[1], weight.val[1])}};
}

// 32 columns, with two-register loads and stores. Weight c serves luma
// columns 2c and 2c + 1, so de-interleaving loads split each luma row into
// its even and odd columns, both of which take the sixteen weights as they
// are, and interleaving stores put the results back in order; the doubled
// weight rows are the weights stored interleaved with themselves. Each half
// of eight weights is taken twice over for its chroma block.
inline void doubleAndBlend32(RowPairCursor &at) {
  const uint8x16_t sixteen = vld1q_u8(at.weights);
  const uint8x16x2_t weight = {{sixteen, sixteen}};
  const uint64x2_t halves = vreinterpretq_u64_u8(sixteen);
  const uint8x16x2_t chromaWeight = {{vreinterpretq_u8_u64(vdupq_laneq_u64(halves, 0)),
                                      vreinterpretq_u8_u64(vdupq_laneq_u64(halves, 1))}};
  vst2q_u8(at.p0, weight);
  vst2q_u8(at.p1, weight);
  vst2q_u8(at.o0, weightedBlendNeon(vld2q_u8(at.b0), vld2q_u8(at.d0), weight));
  vst2q_u8(at.o1, weightedBlendNeon(vld2q_u8(at.b1), vld2q_u8(at.d1), weight));
  vst1q_u8_x2(at.oc, weightedBlendNeon(vld1q_u8_x2(at.dc), vld1q_u8_x2(at.bc), chromaWeight));
  at.advance(32);
}
#else
// 16 columns: eight weights doubled (widened and multiplied by 257, which
// puts each byte in both halves of its lane) for the weight rows and the
// luma, and taken twice over for the chroma block.
inline void doubleAndBlend16(RowPairCursor &at) {
  const uint8x8_t eight = vld1_u8(at.weights);
  const uint8x16_t weight = vreinterpretq_u8_u16(vmulq_n_u16(vmovl_u8(eight), 257));
  vst1q_u8(at.p0, weight);
  vst1q_u8(at.p1, weight);
  vst1q_u8(at.o0, weightedBlendNeon(vld1q_u8(at.b0), vld1q_u8(at.d0), weight));
  vst1q_u8(at.o1, weightedBlendNeon(vld1q_u8(at.b1), vld1q_u8(at.d1), weight));
  vst1q_u8(at.oc, weightedBlendNeon(vld1q_u8(at.dc), vld1q_u8(at.bc), eight));
  at.advance(16);
}
#endif

}  // namespace

// stride is a multiple of 32.
void doubleAndBlendRowsNeon(FrameRows bright, FrameRows dark, const uint8_t *weights,
                            uint8_t *doubled, OutputRows out, int32_t stride) {
  RowPairCursor at(bright, dark, weights, doubled, out, stride);
#if defined(__aarch64__)
  for (int32_t steps = stride / 32; steps != 0; --steps) doubleAndBlend32(at);
#else
  for (int32_t steps = stride / 16; steps != 0; --steps) doubleAndBlend16(at);
#endif
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
    videohdr::exposureFusion(*ctx, current, alignedPrevious, output, videohdr::activeKernels());
  }
  fusionCallCount.fetch_add(1, std::memory_order_relaxed);
  return 1;
}
