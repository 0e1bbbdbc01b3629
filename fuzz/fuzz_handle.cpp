// Handle sequences on both sides of the motion search's narrowest width.
#include "handle_sequence.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  return fuzz::runHandleSequence(data, size, {true, 160, 40, 40, 9, size_t{1} << 23});
}
