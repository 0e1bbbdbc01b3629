// Moving a frame between the caller's planes and the packed work frame
// (stride = width, chroma pairs interleaved `chromaOffset` bytes from the
// start). Only the planes' sample bytes are read or written.
#ifndef VIDEOHDR_PLANES_PLANE_COPY_H
#define VIDEOHDR_PLANES_PLANE_COPY_H

#include <cstddef>
#include <cstdint>

#include "plane_layout.h"

namespace vhplanes {

// Packs the planes' samples, each chroma pair in the planes' own order
// (packsVFirst).
void gatherFrame(const SourcePlanes &planes, uint8_t *packed, ptrdiff_t chromaOffset);

// Writes a packed frame whose chroma pairs hold V first (vFirstPairs) or U
// first into the planes' samples, each sample into its own plane whatever
// the planes' order.
void scatterFrame(const uint8_t *packed, ptrdiff_t chromaOffset, bool vFirstPairs,
                  const PlaneSet &planes);

}  // namespace vhplanes

#endif  // VIDEOHDR_PLANES_PLANE_COPY_H
