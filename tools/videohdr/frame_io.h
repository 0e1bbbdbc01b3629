// Reading and writing frame streams: Y4M (8-bit 4:2:0, planar) or raw NV12,
// NV21 or I420 frames, from files or from standard input and output.
#ifndef VIDEOHDR_TOOL_FRAME_IO_H
#define VIDEOHDR_TOOL_FRAME_IO_H

#include <cstdint>
#include <string>
#include <vector>

#include "frame_layout.h"
#include "stream.h"

namespace vhtool {

// One frame: exactly the bytes of its layout, so that the sanitizers see any
// byte touched outside them.
struct Frame {
  std::vector<uint8_t> bytes;
  std::string y4mParams;  // what followed FRAME on its line, passed through
  uint8_t *data() { return bytes.data(); }
  const uint8_t *data() const { return bytes.data(); }
};

// A frame buffer for `layout`, zeroed.
Frame makeFrame(const FrameLayout &layout);

struct StreamInfo {
  bool y4m = false;
  // The frames in memory; of raw streams also in the stream. A Y4M stream
  // holds packed I420 frames.
  FrameLayout frame;
  std::string y4mHeader;  // the header line, without its newline
};

class FrameReader;

// The input as the command line describes it: raw frames of `size` ("WxH"),
// `format`, `stride` and `scanline` (0: the width, the height) when a size is
// given, else Y4M (padded in memory to the stride and scanline when given).
// Throws ToolError.
FrameReader openInput(const std::string &path, const std::string &size, PixelFormat format,
                      int32_t stride, int32_t scanline);

// The output for `input`: a Y4M stream (with the input's header, or the
// tool's for raw input) or raw frames of `format`. Raw frames of the input's
// own raw format keep its layout, padding included: they are processed where
// they were read, as a camera app processes its buffers. Every other output is
// packed (stride = width), as ffmpeg's rawvideo and every Y4M reader take it.
StreamInfo outputStream(const StreamInfo &input, bool y4m, PixelFormat format);

class FrameReader {
 public:
  // Opens `path` ("-" for standard input). Raw input has frames of `layout`.
  // Y4M takes its width and height from the header and lays its frames out in
  // memory as packed I420, or, when `layout` has a stride or a scanline (not
  // 0), as NV12 with them (padded rows, as a camera's buffers have them).
  // Throws ToolError, for a geometry the library cannot take too: no frame
  // buffer is made before that check.
  FrameReader(const std::string &path, bool y4m, const FrameLayout &layout);
  const StreamInfo &info() const { return info_; }
  const std::string &name() const { return stream_.name(); }
  // Frames in the input when it is a regular file, else -1.
  int64_t expectedFrames() const { return expectedFrames_; }
  // Reads the next frame into `frame` (made for info().frame); false at the
  // end of the input. Throws ToolError for a truncated or malformed frame.
  bool read(Frame *frame);

 private:
  void readY4mHeader(const Geometry &padding);
  void refuseEmptyInput();
  void requireGeometry() const;
  bool readY4mFrame(Frame *frame);
  bool readRawFrame(Frame *frame);
  // Reads `count` bytes; answers how many there were.
  size_t readBytes(uint8_t *into, size_t count);
  void estimateFrames(size_t headerBytes);
  [[noreturn]] void truncated(size_t got, size_t expected) const;

  Stream stream_;
  StreamInfo info_;
  int64_t framesRead_ = 0;
  int64_t expectedFrames_ = -1;
  uint64_t position_ = 0;        // bytes read, for messages
  std::vector<uint8_t> planar_;  // a Y4M frame as the stream holds it, when laid out otherwise
};

class FrameWriter {
 public:
  // Opens `path` ("-" for standard output) as Stream does: nothing is written
  // before the first frame or finish(), which start with the Y4M header.
  FrameWriter(const std::string &path, const StreamInfo &info);
  // `frame` has the layout of the `info.frame` given.
  void write(const Frame &frame);
  void finish();

 private:
  void begin();

  Stream stream_;
  StreamInfo info_;
  bool begun_ = false;
};

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_FRAME_IO_H
