// Handle sequences on small frames only: no motion search (it needs 1,032
// pixels), but every other stage of the handle and the fusion, at thousands of
// sequences a second. Heights up to 34 cross the fusion's 32-row sampling.
#include "handle_sequence.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  return fuzz::runHandleSequence(data, size, {false, 64, 34, 16, 5, size_t{1} << 16});
}
