// Histogram matching: remaps one plane's grey levels towards the distribution
// of another through a level mapping built from the two cumulative histograms.
#include <cstddef>
#include <cstring>

#include "../videohdr.h"

namespace {

constexpr int kLevels = 256;
// How far apart two cumulative counts may be for the reference level to take
// part in a level's mapped value.
constexpr uint32_t kBand = 1037;

// |a - b| <= kBand, the difference taken as a signed 32-bit number.
bool insideBand(uint32_t a, uint32_t b) {
  const int32_t d = static_cast<int32_t>(a - b);
  const uint32_t magnitude = d < 0 ? 0u - static_cast<uint32_t>(d) : static_cast<uint32_t>(d);
  return magnitude <= kBand;
}

// Unsigned on purpose: a target count near 2^32 would wrap past every
// reference count, and the mapping must then behave as it always has.
bool referenceAbove(uint32_t targetCount, uint32_t referenceCount) {
  return targetCount + kBand < referenceCount;
}

// The histogram-weighted mean of the reference levels whose cumulative count
// lies within the band of `targetCount`. Level 0 weighs double when it is
// inside: the count starts with it and the scan adds it again. With no level
// inside, the answer is the level at which the scan stopped (0 when it ran
// through every level).
uint32_t mappedLevel(uint32_t targetCount, const uint32_t *refHist, const uint32_t *refCum) {
  const bool zeroInside = insideBand(targetCount, refCum[0]);
  if (!zeroInside && referenceAbove(targetCount, refCum[0])) return 0;
  uint32_t n = zeroInside ? refHist[0] : 0;
  uint32_t s = 0;
  uint32_t stoppedAt = 0;
  for (uint32_t j = 0; j < kLevels; ++j) {
    if (insideBand(targetCount, refCum[j])) {
      n += refHist[j];
      s += j * refHist[j];
    } else if (referenceAbove(targetCount, refCum[j])) {
      // Cumulative counts only grow: no later level can be inside.
      stoppedAt = j;
      break;
    }
  }
  return n == 0 ? stoppedAt : s / n;
}

void runningSum(uint32_t *table) {
  for (int i = 1; i < kLevels; ++i) table[i] += table[i - 1];
}

}  // namespace

extern "C" int32_t HistMatching(AlignContext *context, const uint8_t *refPlane, uint8_t *dstPlane,
                                int32_t width, int32_t height) {
  uint32_t *refHist = context->histTable0;
  uint32_t *refCum = context->histTable1;
  uint32_t *dstCum = context->histTable2;
  uint32_t *mapping = context->histTable3;
  std::memset(refHist, 0, kLevels * sizeof(uint32_t));
  std::memset(refCum, 0, kLevels * sizeof(uint32_t));
  std::memset(dstCum, 0, kLevels * sizeof(uint32_t));
  std::memset(mapping + 1, 0, kLevels * sizeof(uint32_t));

  // Rows and columns (not a flat pixel count), so that negative dimensions
  // touch no pixel at all; without columns the rows are not walked either
  // (a negative width with a height near 2^31 would spin for seconds).
  const bool hasPixels = width >= 1 && height >= 1;
  for (int32_t y = 0; hasPixels && y < height; ++y) {
    const size_t row = static_cast<size_t>(y) * static_cast<size_t>(width);
    for (int32_t x = 0; x < width; ++x) {
      ++refHist[refPlane[row + x]];
      ++dstCum[dstPlane[row + x]];
    }
  }
  std::memcpy(refCum, refHist, kLevels * sizeof(uint32_t));
  runningSum(refCum);
  runningSum(dstCum);

  // The mapping sits one entry up, and entry 0 repeats entry 1: a pixel of
  // value v >= 1 takes the level mapped for v - 1. Remapped planes have
  // always come out this way, so the offset stays.
  for (int i = 0; i < kLevels; ++i) mapping[i + 1] = mappedLevel(dstCum[i], refHist, refCum);
  mapping[0] = mapping[1];

  const int32_t pixels =
      static_cast<int32_t>(static_cast<uint32_t>(width) * static_cast<uint32_t>(height));
  if (pixels < 1) return pixels;
  // A negative width can still give a positive 32-bit product (with a
  // negative height, or by wrapping); such a plane has no pixels, and its
  // row addresses must not even be formed.
  if (!hasPixels) return 0;
  for (int32_t y = 0; y < height; ++y) {
    uint8_t *row = dstPlane + static_cast<size_t>(y) * static_cast<size_t>(width);
    for (int32_t x = 0; x < width; ++x) row[x] = static_cast<uint8_t>(mapping[row[x]]);
  }
  return 0;
}
