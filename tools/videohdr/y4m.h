// YUV4MPEG2 stream headers: parsed for the frame size and checked for a chroma
// format the library takes (8-bit 4:2:0); every tag is kept verbatim so that it
// passes through to the output.
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

// The frame size of one 4:2:0 frame in a Y4M stream (planar, no padding).
inline size_t y4mFrameDataBytes(int32_t width, int32_t height) {
  const size_t luma = static_cast<size_t>(width) * height;
  return luma + luma / 2;
}

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_Y4M_H
