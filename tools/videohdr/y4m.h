// YUV4MPEG2 stream headers: parsed for the frame size and checked for a chroma
// format the library takes (8-bit 4:2:0); every tag is kept verbatim so that it
// passes through to the output. A Y4M stream holds planar frames (I420 order):
// the format has no tag for semi-planar NV12 or NV21 that readers agree on.
#ifndef VIDEOHDR_TOOL_Y4M_H
#define VIDEOHDR_TOOL_Y4M_H

#include <cstdint>
#include <string>

namespace vhtool {

constexpr const char kY4mMagic[] = "YUV4MPEG2";
constexpr const char kY4mFrameMagic[] = "FRAME";
// Longest header or frame line accepted: real ones are well under 100 bytes.
constexpr size_t kY4mMaxLine = 4096;

struct Y4mHeader {
  int32_t width = 0;
  int32_t height = 0;
  std::string line;  // the header line without its newline
};

// Parses a stream header line (without the newline) into `header`. Answers an
// empty string, or what is wrong with the line.
std::string parseY4mHeader(const std::string &line, Y4mHeader *header);

// The header of a stream the tool makes (a clip, or raw frames written as
// Y4M): 30 frames a second, the usual camera rate (raw frames carry none);
// C420jpeg, what ffmpeg writes when the chroma siting is not known.
std::string y4mStreamHeader(int32_t width, int32_t height);

// The frame size of one 4:2:0 frame in a Y4M stream (planar, no padding).
inline size_t y4mFrameDataBytes(int32_t width, int32_t height) {
  const size_t luma = static_cast<size_t>(width) * height;
  return luma + luma / 2;
}

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_Y4M_H
