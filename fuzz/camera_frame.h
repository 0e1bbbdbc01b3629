// A camera frame's three planes as the plane targets lay them out: each plane
// in one of a few buffers at an offset the fuzzer picks (planes that alias,
// overlap, sit one byte short of each other or far apart), every buffer
// exactly as large as the planes in it span; and what the plane header
// promises about such planes: the error they get, where their samples are.
#ifndef VIDEOHDR_FUZZ_CAMERA_FRAME_H
#define VIDEOHDR_FUZZ_CAMERA_FRAME_H

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <vector>

#include "exact_buffer.h"

namespace fuzz {

enum PlaneIndex { kY, kU, kV };

struct PlaneAt {
  int buffer;  // -1: a null plane
  int64_t offset;
};

struct FrameLayout {
  int32_t width, height, yRowStride, uvRowStride, uvPixelStride;
  PlaneAt plane[3];

  // Bytes plane p spans from its first byte, as the header counts them (at
  // least 1, so that even strides the call refuses get a buffer).
  int64_t span(int p) const;
  int64_t end(int p) const { return plane[p].offset + span(p); }
  // U and V one byte apart in one buffer at pixel stride 2.
  bool interleaved() const;
  // The chroma order of the packed frame: V first only for interleaved
  // planes that start with V.
  bool vFirst() const;
  // The error the header gives these strides, or VIDEOHDR_PLANES_OK.
  int32_t strideError() const;
  // The error the header gives these planes on their own, or VIDEOHDR_PLANES_OK.
  int32_t error() const;
  // Rows from the luma to the chroma when the planes are one buffer of the
  // library's layout, else 0.
  int32_t libraryRows() const;
};

bool sameFrame(const FrameLayout &a, const FrameLayout &b);
bool framesOverlap(const FrameLayout &a, const FrameLayout &b);

// A random layout of width x height planes in buffers firstBuffer and up.
FrameLayout drawFrame(FuzzedDataProvider &in, int32_t width, int32_t height, int firstBuffer);

// An output for `input`: the input itself, in buffers of its own, or in the
// input's luma buffer right after the input (a byte short, adjacent, apart).
FrameLayout drawOutput(FuzzedDataProvider &in, const FrameLayout &input);

// The buffers of one call's frames, filled with random bytes.
class FrameBuffers {
 public:
  // Sizes every buffer to the planes placed in it and moves their offsets so
  // that the first starts at 0 (each frame given once).
  FrameBuffers(std::vector<FrameLayout *> frames, FuzzedDataProvider &in);
  uint8_t *at(const PlaneAt &p) {
    return p.buffer < 0 ? nullptr : bytes[p.buffer].plane() + p.offset;
  }
  // Where each sample of a frame is, in the order of the packed frame
  // (stride = width, the chroma pairs right behind the luma, V or U first).
  std::vector<uint8_t *> samples(const FrameLayout &f, bool vFirst);
  bool operator==(const FrameBuffers &other) const { return bytes == other.bytes; }

 private:
  std::vector<ExactBuffer> bytes;
};

// A frame's samples as a packed frame, and a packed frame into a frame's
// samples (each U and V sample into its own plane).
std::vector<uint8_t> gather(const FrameLayout &f, FrameBuffers &buffers, bool vFirst);
void scatter(const std::vector<uint8_t> &packed, bool vFirst, const FrameLayout &f,
             FrameBuffers &buffers);

}  // namespace fuzz

#endif  // VIDEOHDR_FUZZ_CAMERA_FRAME_H
