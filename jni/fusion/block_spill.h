// Where the fusion's block loops spill, collected in one place.
//
// The block loops that define the fusion kernel run while a block's start is
// inside its row, so a row whose length is not a whole number of blocks is
// processed past its end. A spill into the next row of the same plane is
// rewritten when that row is processed (and the element-wise steps compute
// the same value for a byte whichever row's block reaches it); what the last
// row spills stays, and later steps read it. The row kernels themselves never
// run past the count they are given: the rules below reproduce every spill
// that stays inside a plane, each where it is needed, and nothing is ever
// written past the end of a plane.
#ifndef VIDEOHDR_FUSION_BLOCK_SPILL_H
#define VIDEOHDR_FUSION_BLOCK_SPILL_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "../videohdr.h"

namespace videohdr {

constexpr int32_t kByteBlock = 16;    // lookup, blends and doubling
constexpr int32_t kHalvingBlock = 8;  // output bytes per halving block

inline int32_t roundUp(int32_t value, int32_t block) { return (value + block - 1) / block * block; }

// H, W are the context's height and stride, h = H / 2 and w = W / 2; P is the
// full-resolution weight plane (pitch W, but pitch 2w after the doubling), Q0
// the half-resolution weight plane (pitch w).
struct FusionGeometry {
  int32_t height;          // H
  int32_t stride;          // W
  int32_t halfHeight;      // h
  int32_t halfWidth;       // w
  int32_t planeBytes;      // extent of P: stride * scanline
  int32_t halfPlaneBytes;  // extent of Q0 and of the smoothing's scratch plane
  int32_t lumaBytes;       // H * W: the caller's luma plane and the copies'
  int32_t chromaBytes;     // (H * W) / 2: the caller's chroma plane and the copies'
  ptrdiff_t chromaOffset;  // of the caller's chroma plane
};

inline FusionGeometry geometryOf(const FusionContext &ctx) {
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

// The lookup into P: the last row's 16-byte blocks run up to 15 bytes past the
// luma, which stay inside P when scanline > height. Answers the bytes of P the
// lookup leaves.
inline int32_t lookupBytes(const FusionGeometry &g) {
  if (g.lumaBytes == 0) return 0;
  return std::min(g.planeBytes, (g.height - 1) * g.stride + roundUp(g.stride, kByteBlock));
}

// The decimation into Q0: the last row's 8-byte block spills up to 7 point
// samples past the last half-resolution row. They stay in Q0 (up to the end of
// its plane), and the chroma blend of the last row reads them as weights when
// W is not a multiple of 16, so they are written as the block would write
// them. (The exported halving leaves them out: its plane holds the same point
// samples either way.)
inline void spillLastHalvedRow(const uint8_t *P, uint8_t *Q0, const FusionGeometry &g) {
  const int32_t h = g.halfHeight, w = g.halfWidth;
  const int32_t rowStart = (h - 1) * w;
  const int32_t end = std::min(roundUp(w, kHalvingBlock), g.halfPlaneBytes - rowStart);
  const uint8_t *evenRow = P + static_cast<ptrdiff_t>(2 * (h - 1)) * g.stride;
  for (int32_t c = w; c < end; ++c) Q0[rowStart + c] = evenRow[2 * c];
}

// The doubling back into P: when a 16-byte block is longer than two output
// rows (w < 4), the last source row's block runs past the 2h rows of P, into
// the luma row that the doubling does not cover when H is odd. Written as the
// block would write it.
inline void spillLastDoubledRow(const uint8_t *Q0, uint8_t *P, const FusionGeometry &g) {
  const int32_t h = g.halfHeight, w = g.halfWidth;
  const int32_t rowStart = (2 * h - 2) * (2 * w);
  const int32_t end = std::min(roundUp(2 * w, kByteBlock), g.planeBytes - rowStart);
  const uint8_t *lastRow = Q0 + (h - 1) * w;
  for (int32_t x = 4 * w; x < end; ++x) P[rowStart + x] = lastRow[x >> 1];
}

// The chroma blend of row r: W bytes, except that the last row's blocks run
// on into the chroma plane's extra half row when H is odd (up to the plane's
// end). The weights of a partial block are read where they lie: in the next
// weight row, or past the used part of Q0 for the last row.
inline int32_t chromaRowBytes(const FusionGeometry &g, int32_t r) {
  const int32_t W = g.stride;
  if (r < g.halfHeight - 1) return W;
  return std::min(roundUp(W, kByteBlock), g.chromaBytes - (g.halfHeight - 1) * W);
}

// The replicating doubling (the exported operation the kernel doubles P
// with) builds each even row in 16-byte blocks while the block start is below
// 2 * width, then copies the whole row (2 * stride bytes) to the odd row.
// Within the plane that leaves built bytes up to min(16 * ceil(width / 8),
// 2 * stride): when stride > width the last block's extra bytes (doubled
// source padding) stay in the row and are copied with it. Bytes a block
// writes past the row fall into the odd row (overwritten by the copy) or
// further rows (rebuilt by the next rows), or past the plane.
inline int32_t doubledRowBytes(int32_t width, int32_t stride) {
  if (width <= 0) return 0;
  const int64_t built = int64_t{kByteBlock} * ((int64_t{width} + 7) / 8);
  return static_cast<int32_t>(std::min<int64_t>(built, 2 * int64_t{stride}));
}

}  // namespace videohdr

#endif  // VIDEOHDR_FUSION_BLOCK_SPILL_H
