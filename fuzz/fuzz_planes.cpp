// The camera-plane entry point in place (planes_sequence.h).
#include "planes_sequence.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  return fuzz::runPlanesSequence(data, size, fuzz::PlanesCall::kInPlace);
}
