// Internal pieces of the exposure fusion kernel: the bright/dark choice, the
// weight lookup, the two blends (each as a portable reference and a NEON
// version with the same bytes), and the two whole-kernel variants built from
// them and from the plane operations of plane_ops.h.
#ifndef VIDEOHDR_FUSION_EXPOSURE_FUSION_H
#define VIDEOHDR_FUSION_EXPOSURE_FUSION_H

#include <cstdint>

#include "../simd.h"
#include "../videohdr.h"

namespace videohdr {

struct ExposurePair {
  const uint8_t *bright;
  const uint8_t *dark;
};

// Sums the luma of every 4th byte of every 32nd row of both frames (all
// `stride` bytes of a row) and takes the frame with the larger sum as the
// bright one; equal sums keep `current` bright.
ExposurePair chooseBrightDark(const uint8_t *current, const uint8_t *previous, int32_t stride,
                              int32_t height);

// weights[i] = table[min(a[i], b[i])] for i < count.
void lookupWeightsPortable(const uint8_t *a, const uint8_t *b, const uint8_t *table,
                           uint8_t *weights, int32_t count);

// out[i] = (bright[i] * w + dark[i] * (255 - w)) >> 8 with w = weights[i], i < count.
void blendLumaPortable(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                       uint8_t *out, int32_t count);

// One chroma row of `count` bytes in blocks of 16 starting at b = 0, 16, ...:
// byte m of a block takes w = weights[b / 2 + (m & 7)], so both halves of a
// block reuse the same eight weights, and
// out[b + m] = (dark[b + m] * w + bright[b + m] * (255 - w)) >> 8.
// A partial last block reads only the weights its bytes use.
void blendChromaRowPortable(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                            uint8_t *out, int32_t count);

// The whole kernel on the context's geometry, tables and planes.
void exposureFusionPortable(const FusionContext &ctx, const uint8_t *current,
                            const uint8_t *previous, uint8_t *output);

#if VIDEOHDR_HAVE_NEON
void lookupWeightsNeon(const uint8_t *a, const uint8_t *b, const uint8_t *table, uint8_t *weights,
                       int32_t count);
void blendLumaNeon(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights, uint8_t *out,
                   int32_t count);
void blendChromaRowNeon(const uint8_t *bright, const uint8_t *dark, const uint8_t *weights,
                        uint8_t *out, int32_t count);
void exposureFusionNeon(const FusionContext &ctx, const uint8_t *current, const uint8_t *previous,
                        uint8_t *output);
#endif

}  // namespace videohdr

#endif  // VIDEOHDR_FUSION_EXPOSURE_FUSION_H
