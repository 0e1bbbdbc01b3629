#include "plane_copy.h"

#include <cstring>

namespace vhplanes {
namespace {

void copyRows(uint8_t *dst, ptrdiff_t dstStride, const uint8_t *src, ptrdiff_t srcStride,
              int32_t bytes, int32_t rows) {
  for (int32_t r = 0; r < rows; ++r)
    std::memcpy(dst + r * dstStride, src + r * srcStride, static_cast<size_t>(bytes));
}

// One row of chroma pairs from two planes whose samples are kPixelStride
// bytes apart, and back. A compile-time pixel stride lets the compiler
// vectorise both directions.
template <int kPixelStride>
void interleaveRow(uint8_t *pairs, const uint8_t *first, const uint8_t *second, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    pairs[2 * i] = first[kPixelStride * i];
    pairs[2 * i + 1] = second[kPixelStride * i];
  }
}

template <int kPixelStride>
void deinterleaveRow(const uint8_t *pairs, uint8_t *first, uint8_t *second, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    first[kPixelStride * i] = pairs[2 * i];
    second[kPixelStride * i] = pairs[2 * i + 1];
  }
}

// One row of chroma pairs into interleaved planes of the other order (NV21
// pairs into an NV12 buffer): each pair's two bytes swapped. As 16-bit
// byte swaps the compiler vectorises it; a sample-by-sample loop at pixel
// stride 2 it does not.
void swapPairsRow(uint8_t *dst, const uint8_t *pairs, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    uint16_t pair;
    std::memcpy(&pair, pairs + 2 * i, 2);
    pair = static_cast<uint16_t>(pair << 8 | pair >> 8);
    std::memcpy(dst + 2 * i, &pair, 2);
  }
}

// The packed chroma plane's rows: width bytes each, height / 2 of them.
struct ChromaRows {
  ptrdiff_t packedStride;
  ptrdiff_t planeStride;
  int32_t pairs;
  int32_t rows;
};

ChromaRows chromaRows(const SourcePlanes &p) {
  return {p.width, p.uvRowStride, p.width / 2, p.height / 2};
}

}  // namespace

void gatherFrame(const SourcePlanes &p, uint8_t *packed, ptrdiff_t chromaOffset) {
  copyRows(packed, p.width, p.y, p.yRowStride, p.width, p.height);
  const ChromaOrder<const uint8_t> c = chromaInOrder(p, packsVFirst(p));
  const ChromaRows rows = chromaRows(p);
  uint8_t *chroma = packed + chromaOffset;
  if (chromaInterleaved(p)) {
    // One buffer of pairs already: whole rows, both planes' samples at once.
    copyRows(chroma, rows.packedStride, c.first, rows.planeStride, p.width, rows.rows);
    return;
  }
  auto *row = p.uvPixelStride == 1 ? interleaveRow<1> : interleaveRow<2>;
  for (int32_t r = 0; r < rows.rows; ++r) {
    const ptrdiff_t src = r * rows.planeStride;
    row(chroma + r * rows.packedStride, c.first + src, c.second + src, rows.pairs);
  }
}

void scatterFrame(const uint8_t *packed, ptrdiff_t chromaOffset, bool vFirstPairs,
                  const PlaneSet &p) {
  copyRows(p.y, p.yRowStride, packed, p.width, p.width, p.height);
  const ChromaOrder<uint8_t> c = chromaInOrder(p, vFirstPairs);
  const ChromaRows rows = chromaRows(p);
  const uint8_t *chroma = packed + chromaOffset;
  if (chromaInterleaved(p)) {
    // Interleaved planes: whole rows at once, in the pairs' own order or
    // with each pair swapped.
    if (c.first + 1 == c.second) {
      copyRows(c.first, rows.planeStride, chroma, rows.packedStride, p.width, rows.rows);
      return;
    }
    for (int32_t r = 0; r < rows.rows; ++r)
      swapPairsRow(c.second + r * rows.planeStride, chroma + r * rows.packedStride, rows.pairs);
    return;
  }
  // Separate planes: sample by sample, at the planes' pixel stride.
  auto *row = p.uvPixelStride == 1 ? deinterleaveRow<1> : deinterleaveRow<2>;
  for (int32_t r = 0; r < rows.rows; ++r) {
    const ptrdiff_t dst = r * rows.planeStride;
    row(chroma + r * rows.packedStride, c.first + dst, c.second + dst, rows.pairs);
  }
}

}  // namespace vhplanes
