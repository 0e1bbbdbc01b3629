// Random sequences of create, init, process and destroy on the library's
// handle, with geometry inside and outside the documented limits and random
// frame contents. Frames the header says are refused must come back untouched
// with 0; every other frame lives in a buffer of exactly its documented size,
// so that the sanitizers see any byte the library reads or writes outside it.
#ifndef VIDEOHDR_FUZZ_HANDLE_SEQUENCE_H
#define VIDEOHDR_FUZZ_HANDLE_SEQUENCE_H

#include <cstddef>
#include <cstdint>

namespace fuzz {

// The geometry a sequence draws, besides the occasional arbitrary one.
struct HandleSizes {
  bool searchWidths;  // half the frames 1032 to 1100 pixels wide: the motion search runs
  int32_t maxWidth;   // the other frames
  int32_t maxHeight;
  int32_t maxPadding;      // stride - width
  int32_t maxPaddingRows;  // scanline - height
  // Frames the handle takes but that span more bytes are skipped: an
  // arbitrary geometry with a huge scanline runs the code of a small one, on
  // up to half a gigabyte.
  size_t maxFrameBytes;
};

int runHandleSequence(const uint8_t *data, size_t size, const HandleSizes &sizes);

}  // namespace fuzz

#endif  // VIDEOHDR_FUZZ_HANDLE_SEQUENCE_H
