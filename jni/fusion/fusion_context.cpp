// The fusion context: dimensions, tone-curve tables and weight planes, made
// once on a handle's first frame and freed when the handle is destroyed.
#include <math.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "videohdr.h"

namespace {

constexpr int32_t kToneCurveEntries = 256;
constexpr int32_t kToneCurveCount = 8;
constexpr size_t kToneCurveBlockBytes = kToneCurveEntries * kToneCurveCount;

// Extra bytes at the end of each plane block: the carving offsets stay as
// they are, and a vector block that runs a little past its last plane stays
// inside the allocation. It also keeps every block size non-zero, so a null
// from malloc always means failure.
constexpr size_t kPlaneBlockSlack = 64;

enum CurveDirection : int32_t { kRising = 0, kFalling = 1 };

// Conversion to int32 toward zero that saturates out-of-range values and maps
// NaN to 0 (a plain cast of such a float is undefined, and x86 and ARM
// disagree on what it gives), followed by the clamp to a byte.
uint8_t truncToByte(float value) {
  if (std::isnan(value)) return 0;
  int32_t truncated;
  if (value >= 2147483648.0f) {
    truncated = INT32_MAX;
  } else if (value < -2147483648.0f) {
    truncated = INT32_MIN;
  } else {
    truncated = static_cast<int32_t>(value);
  }
  if (truncated < 0) return 0;
  if (truncated > 255) return 255;
  return static_cast<uint8_t>(truncated);
}

uint8_t curveByte(float curveValue, int32_t direction) {
  return truncToByte((direction == kRising ? curveValue : 1.0f - curveValue) * 255.0f);
}

// x^1 is x itself: no libm call for a straight segment.
float powOrSelf(float x, float exponent) { return exponent == 1.0f ? x : powf(x, exponent); }

// The two-segment curve behind GenerateSCurve and the context's tables. The
// high segment divides by 255 - knee whatever the length, so only a
// 256-entry curve reaches its end value exactly. `1 - level` is formed and
// multiplied in double and rounded to float before `level` is added: the
// tables depend on that rounding order, bit for bit.
void fillToneCurve(uint8_t *curve, int32_t length, int32_t knee, float level, float lowGamma,
                   float highGamma, int32_t direction) {
  if (direction != kRising && direction != kFalling) return;
  for (int32_t i = 0; i < knee; ++i) {
    const float x = static_cast<float>(i) / static_cast<float>(knee);
    curve[i] = curveByte(powOrSelf(x, lowGamma) * level, direction);
  }
  const double highRange = 1.0 - static_cast<double>(level);
  const float highDivisor = static_cast<float>(255 - knee);
  for (int32_t i = knee; i < length; ++i) {
    const float y = static_cast<float>(i - knee) / highDivisor;
    const float rise = static_cast<float>(highRange * static_cast<double>(powOrSelf(y, highGamma)));
    curve[i] = curveByte(rise + level, direction);
  }
}

// The three tables the context carries; the kernel reads only the falling one.
struct CurveParams {
  int32_t knee;
  float level;
  float lowGamma;
  float highGamma;
  int32_t direction;
};
constexpr CurveParams kContextCurves[] = {
    {128, 0.7f, 1.2f, 1.0f / 1.2f, kRising},
    {92, 0.3f, 1.6f, 0.6f, kFalling},
    {120, 0.6f, 0.8f, 1.0f, kRising},
};

// Sets `planes[k]` to `block + k * planeBytes`.
void carvePlanes(uint8_t *planes[4], uint8_t *block, int32_t planeBytes) {
  for (int k = 0; k < 4; ++k) planes[k] = block + static_cast<ptrdiff_t>(k) * planeBytes;
}

// Allocates the four blocks and carves them; false (with nothing left
// allocated) when any allocation fails or the plane size is negative.
bool allocContextBlocks(FusionContext *context) {
  const int64_t planeBytes = static_cast<int64_t>(context->stride) * context->scanline;
  if (planeBytes < 0 || planeBytes > INT32_MAX / 4) return false;
  const int32_t fullBytes = static_cast<int32_t>(planeBytes);
  auto *tables = static_cast<uint8_t *>(std::calloc(kToneCurveBlockBytes, 1));
  auto *full =
      static_cast<uint8_t *>(std::malloc(4 * static_cast<size_t>(fullBytes) + kPlaneBlockSlack));
  // Zero-filled: the horizontal smoothing never writes the first and last
  // columns of its scratch plane (halfWeightPlanes[1]), yet the vertical
  // pass reads them, so the fused frame would otherwise depend on heap
  // garbage.
  auto *half = static_cast<uint8_t *>(
      std::calloc(static_cast<size_t>(fullBytes & ~3) + kPlaneBlockSlack, 1));
  auto *quarter = static_cast<uint8_t *>(
      std::malloc(4 * static_cast<size_t>(fullBytes >> 4) + kPlaneBlockSlack));
  if (!tables || !full || !half || !quarter) {
    std::free(tables);
    std::free(full);
    std::free(half);
    std::free(quarter);
    return false;
  }
  for (int k = 0; k < kToneCurveCount; ++k) context->toneCurves[k] = tables + k * kToneCurveEntries;
  carvePlanes(context->weightPlanes, full, fullBytes);
  carvePlanes(context->halfWeightPlanes, half, fullBytes >> 2);
  carvePlanes(context->quarterWeightPlanes, quarter, fullBytes >> 4);
  return true;
}

}  // namespace

extern "C" {

void GenerateSCurve(uint8_t *curve, int32_t length, int32_t knee, float level, float lowGamma,
                    float highGamma, int32_t direction) {
  fillToneCurve(curve, length, knee, level, lowGamma, highGamma, direction);
}

int32_t AllocFusionHandleParams(VideoHdrHandle *handle) {
  handle->fusionContext = nullptr;
  handle->fusionAux = nullptr;
  auto *context = static_cast<FusionContext *>(std::malloc(sizeof(FusionContext)));
  if (!context) return 1;
  context->width = handle->width;
  context->height = handle->height;
  context->stride = handle->stride;
  context->scanline = handle->scanline;
  if (!allocContextBlocks(context)) {
    std::free(context);
    return 1;
  }
  for (size_t k = 0; k < sizeof kContextCurves / sizeof kContextCurves[0]; ++k) {
    const CurveParams &p = kContextCurves[k];
    fillToneCurve(context->toneCurves[k], kToneCurveEntries, p.knee, p.level, p.lowGamma,
                  p.highGamma, p.direction);
  }
  handle->fusionContext = context;
  // A zero-length block kept beside the context and released with it. malloc
  // may answer null for size 0 without failing, so it is not checked.
  handle->fusionAux = std::malloc(0);
  return 1;
}

int32_t ReleaseFusionHandleParams(VideoHdrHandle *handle) {
  FusionContext *context = handle->fusionContext;
  if (context) {
    std::free(context->toneCurves[0]);
    std::free(context->weightPlanes[0]);
    std::free(context->halfWeightPlanes[0]);
    std::free(context->quarterWeightPlanes[0]);
    std::free(context);
  }
  std::free(handle->fusionAux);
  return 1;
}

}  // extern "C"
