// Internal pieces of the exposure fusion kernel: the bright/dark choice, the
// table of its row kernels (each with a portable, a NEON, an SSE4.1 and an
// AVX2 instance giving the same bytes), and the whole kernel, which runs on the plane and row
// kernels of the table set it is given.
#ifndef VIDEOHDR_FUSION_EXPOSURE_FUSION_H
#define VIDEOHDR_FUSION_EXPOSURE_FUSION_H

#include <cstdint>

#include "../simd.h"
#include "../videohdr.h"

namespace videohdr {

struct Kernels;

struct ExposurePair {
  const uint8_t *bright;
  const uint8_t *dark;
};

// Sums the luma of every 4th byte of every 32nd row of both frames (all
// `stride` bytes of a row) and takes the frame with the larger sum as the
// bright one; equal sums keep `current` bright.
ExposurePair chooseBrightDark(const uint8_t *current, const uint8_t *previous, int32_t stride,
                              int32_t height);

// A luma row pair (the second row `stride` bytes after the first) and the
// chroma row between them.
struct FrameRows {
  const uint8_t *luma;
  const uint8_t *chroma;
};
struct OutputRows {
  uint8_t *luma;
  uint8_t *chroma;
};

struct FusionKernels {
  // weights[i] = table[min(a[i], b[i])] for i < count.
  void (*lookupWeights)(const uint8_t *a, const uint8_t *b, const uint8_t *table, uint8_t *weights,
                        int32_t count);

  // out[i] = (bright[i] * w + dark[i] * (255 - w)) >> 8 with w = weights[i], i < count.
  void (*blendLuma)(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                    uint8_t *out, int32_t count);

  // One chroma row of `count` bytes in blocks of 16 starting at b = 0, 16,
  // ...: byte m of a block takes w = weights[b / 2 + (m & 7)], so both halves
  // of a block reuse the same eight weights, and
  // out[b + m] = (dark[b + m] * w + bright[b + m] * (255 - w)) >> 8.
  // A partial last block reads only the weights its bytes use.
  void (*blendChromaRow)(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                         uint8_t *out, int32_t count);

  // Half-resolution weights straight from the frames (the lookup at the
  // positions the decimation keeps): row r of `weights` (pitch count) takes
  // table[min(bright[2c], dark[2c])] from row 2r of the frames (pitch
  // stride), for c < count and r < rows. count is a multiple of 16.
  void (*lookupEvenSamples)(const uint8_t *bright, const uint8_t *dark, int32_t stride,
                            const uint8_t *table, uint8_t *weights, int32_t count, int32_t rows);

  // Half-resolution weight row r doubled into luma rows 2r and 2r + 1 of the
  // weight plane (pitch stride), both luma rows blended with those weights,
  // and chroma row r blended as blendChromaRow does with `weights`. stride is
  // a multiple of 32.
  void (*doubleAndBlendRows)(FrameRows bright, FrameRows dark, const uint8_t *weights,
                             uint8_t *doubled, OutputRows out, int32_t stride);
};

void lookupWeightsPortable(const uint8_t *a, const uint8_t *b, const uint8_t *table,
                           uint8_t *weights, int32_t count);
void blendLumaPortable(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                       uint8_t *out, int32_t count);
void blendChromaRowPortable(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                            uint8_t *out, int32_t count);
void lookupEvenSamplesPortable(const uint8_t *bright, const uint8_t *dark, int32_t stride,
                               const uint8_t *table, uint8_t *weights, int32_t count, int32_t rows);
void doubleAndBlendRowsPortable(FrameRows bright, FrameRows dark, const uint8_t *weights,
                                uint8_t *doubled, OutputRows out, int32_t stride);
inline constexpr FusionKernels kFusionPortable = {lookupWeightsPortable, blendLumaPortable,
                                                  blendChromaRowPortable, lookupEvenSamplesPortable,
                                                  doubleAndBlendRowsPortable};

#if VIDEOHDR_HAVE_NEON
void lookupWeightsNeon(const uint8_t *a, const uint8_t *b, const uint8_t *table, uint8_t *weights,
                       int32_t count);
void blendLumaNeon(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights, uint8_t *out,
                   int32_t count);
void blendChromaRowNeon(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                        uint8_t *out, int32_t count);
void lookupEvenSamplesNeon(const uint8_t *bright, const uint8_t *dark, int32_t stride,
                           const uint8_t *table, uint8_t *weights, int32_t count, int32_t rows);
void doubleAndBlendRowsNeon(FrameRows bright, FrameRows dark, const uint8_t *weights,
                            uint8_t *doubled, OutputRows out, int32_t stride);
inline constexpr FusionKernels kFusionNeon = {lookupWeightsNeon, blendLumaNeon, blendChromaRowNeon,
                                              lookupEvenSamplesNeon, doubleAndBlendRowsNeon};
#endif

#if VIDEOHDR_HAVE_X86_SIMD
void lookupWeightsSse41(const uint8_t *a, const uint8_t *b, const uint8_t *table, uint8_t *weights,
                        int32_t count);
void blendLumaSse41(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                    uint8_t *out, int32_t count);
void blendChromaRowSse41(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                         uint8_t *out, int32_t count);
void lookupEvenSamplesSse41(const uint8_t *bright, const uint8_t *dark, int32_t stride,
                            const uint8_t *table, uint8_t *weights, int32_t count, int32_t rows);
void doubleAndBlendRowsSse41(FrameRows bright, FrameRows dark, const uint8_t *weights,
                             uint8_t *doubled, OutputRows out, int32_t stride);
inline constexpr FusionKernels kFusionSse41 = {lookupWeightsSse41, blendLumaSse41,
                                               blendChromaRowSse41, lookupEvenSamplesSse41,
                                               doubleAndBlendRowsSse41};

void lookupWeightsAvx2(const uint8_t *a, const uint8_t *b, const uint8_t *table, uint8_t *weights,
                       int32_t count);
void blendLumaAvx2(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights, uint8_t *out,
                   int32_t count);
void blendChromaRowAvx2(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                        uint8_t *out, int32_t count);
void lookupEvenSamplesAvx2(const uint8_t *bright, const uint8_t *dark, int32_t stride,
                           const uint8_t *table, uint8_t *weights, int32_t count, int32_t rows);
// The row pair runs its SSE4.1 code: bound by memory, it is no faster in
// 32-byte steps, and slower where its five rows start 16 bytes past a 32-byte
// boundary (glibc's large blocks start 16 bytes into a page), as every other
// 32-byte store then straddles two cache lines.
inline constexpr FusionKernels kFusionAvx2 = {lookupWeightsAvx2, blendLumaAvx2, blendChromaRowAvx2,
                                              lookupEvenSamplesAvx2, doubleAndBlendRowsSse41};
#endif

// The whole kernel on the context's geometry, tables and planes, run on the
// plane and row kernels of `kernels`.
void exposureFusion(const FusionContext &ctx, const uint8_t *current, const uint8_t *previous,
                    uint8_t *output, const Kernels &kernels);

}  // namespace videohdr

#endif  // VIDEOHDR_FUSION_EXPOSURE_FUSION_H
