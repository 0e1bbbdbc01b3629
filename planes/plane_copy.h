// Moving a frame between the caller's planes and the packed work frame
// (stride = width, chroma pairs interleaved `chromaOffset` bytes from the
// start). Only the planes' sample bytes are read or written.
#ifndef VIDEOHDR_PLANES_PLANE_COPY_H
#define VIDEOHDR_PLANES_PLANE_COPY_H

#include <cstddef>
#include <cstdint>

#include "plane_layout.h"

namespace vhplanes {

void gatherFrame(const PlaneSet &planes, uint8_t *packed, ptrdiff_t chromaOffset);
void scatterFrame(const uint8_t *packed, ptrdiff_t chromaOffset, const PlaneSet &planes);

}  // namespace vhplanes

#endif  // VIDEOHDR_PLANES_PLANE_COPY_H
