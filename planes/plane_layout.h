// How a caller's three planes lie in memory: the checks that keep a frame
// well defined, the bytes each plane spans, and whether the planes already
// are one frame of the library's own layout.
#ifndef VIDEOHDR_PLANES_PLANE_LAYOUT_H
#define VIDEOHDR_PLANES_PLANE_LAYOUT_H

#include <cstdint>

namespace vhplanes {

// A frame's three planes. `Byte` is const for planes the call only reads
// (the out-of-place call's input), so the compiler keeps them unwritten.
template <typename Byte>
struct Planes {
  Byte *y;
  Byte *u;
  Byte *v;
  int32_t yRowStride;
  int32_t uvRowStride;
  int32_t uvPixelStride;
  int32_t width;
  int32_t height;

  // Every check and layout question reads planes only.
  operator Planes<const uint8_t>() const {
    return {y, u, v, yRowStride, uvRowStride, uvPixelStride, width, height};
  }
};
using PlaneSet = Planes<uint8_t>;
using SourcePlanes = Planes<const uint8_t>;

// A frame's chroma planes in the order their samples take in a packed pair.
template <typename Byte>
struct ChromaOrder {
  Byte *first;
  Byte *second;
};

// VIDEOHDR_PLANES_OK or ERR_BAD_SIZE.
int32_t checkFrameSize(int32_t width, int32_t height);

// VIDEOHDR_PLANES_OK, ERR_PIXEL_STRIDE or ERR_ROW_STRIDE, for a valid size.
int32_t checkStrides(int32_t width, int32_t yRowStride, int32_t uvRowStride, int32_t uvPixelStride);

// Bytes from a plane's first byte to the end of its last sample, for strides
// that passed checkStrides.
int64_t lumaPlaneBytes(int32_t width, int32_t height, int32_t yRowStride);
int64_t chromaPlaneBytes(int32_t width, int32_t height, int32_t uvRowStride, int32_t uvPixelStride);

// True when two planes share a byte, u and v that interleave excepted.
bool planesOverlap(const SourcePlanes &p);

// True when a plane of one frame shares a byte with a plane of the other.
bool framesOverlap(const SourcePlanes &a, const SourcePlanes &b);

// The same planes at the same strides.
bool sameFrame(const SourcePlanes &a, const SourcePlanes &b);

// u and v one byte apart at pixel stride 2: one interleaved buffer, V first
// (NV21) when v comes first, else U first (NV12).
bool chromaInterleaved(const SourcePlanes &p);

// Whether the packed frame of these planes holds V first in each chroma pair:
// interleaved planes keep their own order; all others pack U first (NV12).
bool packsVFirst(const SourcePlanes &p);

// The planes in the order of a packed pair that holds V first or U first.
template <typename Byte>
ChromaOrder<Byte> chromaInOrder(const Planes<Byte> &p, bool vFirst) {
  return vFirst ? ChromaOrder<Byte>{p.v, p.u} : ChromaOrder<Byte>{p.u, p.v};
}

// When the planes already are one NV12 or NV21 buffer that Video_HDR_Process
// can take (both row strides equal to the width, interleaved chroma a whole
// number of luma rows after y, at most VIDEOHDR_PLANES_MAX_GAP_ROWS rows past
// the luma): the number of rows from y to the chroma. Otherwise 0.
int32_t chromaRowsAfterLuma(const SourcePlanes &p);

}  // namespace vhplanes

#endif  // VIDEOHDR_PLANES_PLANE_LAYOUT_H
