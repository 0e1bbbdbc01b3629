// Internal pieces of the alignment subsystem shared between its sources.
#ifndef VIDEOHDR_ALIGN_INTERNAL_H
#define VIDEOHDR_ALIGN_INTERNAL_H

#include <cstddef>
#include <cstdint>

#include "../videohdr.h"

namespace videohdr {

// Bytes allocated past the workspace's last region so that vector loads that
// run past it (the gradient sums over the blend buffer) stay inside the block.
constexpr size_t kWorkspaceSlack = 64;

// Writes `curFrame` (luma w x h, chroma at w * h with h / 2 rows of pitch w)
// into `outFrame` and lays the previous frame moved by (dx, dy) over it: out
// pixel (x, y) = prev pixel (x + dx, y + dy) wherever that lies in the frame.
void writeAlignedFrame(int32_t w, int32_t h, int32_t dx, int32_t dy, const uint8_t *prevFrame,
                       const uint8_t *curFrame, uint8_t *outFrame);

// Filters a found shift against the one applied to the previous frame pair:
// it may start from rest by at most 4, may not reverse, and may not turn from
// one pure axis to the other.
void filterShift(int32_t foundDx, int32_t foundDy, int32_t lastDx, int32_t lastDy, int32_t *dx,
                 int32_t *dy);

// True when the context has a workspace carved for one to four levels of a
// non-empty frame; otherwise alignment writes the previous frame unmoved.
bool workspaceUsable(const AlignContext *ctx);

// True when the workspace is usable and its coarsest level is wide enough for
// the motion search's counting layout (129 pixels: 1,032 at level 0 with four
// levels). Narrower frames still get their bitmaps, but a zero shift.
bool searchSupported(const AlignContext *ctx);

// The workspace layout. The first kWorkspaceHeadBytes are left free; the
// regions of kWorkspaceLayout follow back to back in table order, a per-level
// region once for each of the context's levels. calCpuDataAlignMem sizes the
// block for four levels; with fewer the end of the block is left unused.
constexpr uint32_t kWorkspaceHeadBytes = 212;

enum class RegionSize {
  History,      // the five-float misalignment history: 20 bytes
  LevelArray,   // one int32 per level
  Image,        // w * h bytes
  Bitmap,       // 16 * W * (h + 1): four level-0 bitmaps with a spare row
  HistTable,    // 256 words
  MapTable,     // 257 words: the level mapping
  ImageAndHalf  // (3 * w * h) >> 1 bytes
};

// The sizes that depend on the geometry, in 32-bit arithmetic.
struct RegionGeometry {
  uint32_t image;       // w * h
  uint32_t bitmap;      // 16 * W * (h + 1)
  uint32_t levelArray;  // 4 * levels
};

struct WorkspaceRegion {
  const char *name;
  RegionSize size;
  bool perLevel;     // one region per level
  size_t alignment;  // what its elements need; the fixed layout pads nothing
  void (*place)(AlignContext &ctx, int32_t level, uint8_t *start);
  const void *(*start)(const AlignContext &ctx, int32_t level);
};

extern const WorkspaceRegion kWorkspaceLayout[];
extern const size_t kWorkspaceRegionCount;

uint32_t regionBytes(RegionSize size, const RegionGeometry &g);

// Carves the workspace into the context's regions and fills the per-level
// widths, heights and pitches: InitPara without its two image copies.
void carveWorkspace(AlignContext *ctx);

// Sets every level's shift to (0, 0).
void storeZeroShift(AlignContext *ctx);

}  // namespace videohdr

#endif  // VIDEOHDR_ALIGN_INTERNAL_H
