// Random sequences on the camera-plane entry point: states of random sizes
// (refused ones too), frames of random layouts (strides, pixel strides 0 to 3,
// planes that alias, overlap, sit one byte short or far apart, null planes,
// other sizes), restarts and new states. Every answer is checked against the
// plane header: an error writes nothing; the first frame after create or
// restart is primed (copied, out of place); a processed frame changes only the
// samples, and on a sample of the sequences they are checked against the
// in-place call on a packed copy, run by a second state beside it.
#ifndef VIDEOHDR_FUZZ_PLANES_SEQUENCE_H
#define VIDEOHDR_FUZZ_PLANES_SEQUENCE_H

#include <cstddef>
#include <cstdint>

namespace fuzz {

enum class PlanesCall {
  kInPlace,     // videohdr_planes_process
  kOutOfPlace,  // videohdr_planes_process_to, input and output layouts drawn independently
};

int runPlanesSequence(const uint8_t *data, size_t size, PlanesCall call);

}  // namespace fuzz

#endif  // VIDEOHDR_FUZZ_PLANES_SEQUENCE_H
