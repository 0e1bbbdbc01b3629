// Reading and writing frame streams: Y4M (8-bit 4:2:0, converted to and from
// the library's semi-planar layout) or raw NV12/NV21 frames, from files or
// from standard input and output.
#ifndef VIDEOHDR_TOOL_FRAME_IO_H
#define VIDEOHDR_TOOL_FRAME_IO_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "geometry.h"

namespace vhtool {

enum class Layout { kY4m, kNv12, kNv21 };

// Bytes after each frame buffer, so that the library's block loops never reach
// past the tool's allocation whatever the row length.
constexpr size_t kFrameSlack = 64;

// One frame in the library's layout (geometry of its stream), with slack.
struct Frame {
  std::vector<uint8_t> bytes;
  std::string y4mParams;  // what followed FRAME on its line, passed through
  uint8_t *data() { return bytes.data(); }
  const uint8_t *data() const { return bytes.data(); }
};

struct StreamInfo {
  Layout layout = Layout::kY4m;
  Geometry geometry;      // of the frames in memory (and of raw frames in the stream)
  std::string y4mHeader;  // the header line, without its newline
};

// A stdio stream that is closed on destruction unless it is stdin or stdout.
// A file opened for writing is created when missing but not emptied before
// its first bytes (start): a command opens every output before it writes to
// any, so that one that cannot be opened leaves the others as they were. A
// file this stream created and never started is removed again.
class Stream {
 public:
  Stream(const std::string &path, bool write);
  ~Stream();
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;
  FILE *file() const { return file_; }
  const std::string &name() const { return name_; }
  // Throws ToolError when the stream saw an error; `what` is "read" or "write".
  void checkError(const char *what) const;
  // Empties a regular file opened for writing; once, before its first bytes.
  void start();
  // Starts, then writes; throws ToolError.
  void put(const void *bytes, size_t count);
  // Flushes and closes, reporting a failure.
  void close();

 private:
  std::string path_;
  std::string name_;
  FILE *file_ = nullptr;
  bool owned_ = false;
  bool created_ = false;
  bool started_ = false;
};

class FrameReader {
 public:
  // Opens `path` ("-" for standard input). Raw layouts take `geometry`; Y4M
  // takes its width and height from the header and lays its frames out in
  // memory with `geometry`'s stride and scanline where they are not 0 (padded
  // rows, as a camera's buffers have them). Throws ToolError.
  FrameReader(const std::string &path, Layout layout, const Geometry &geometry);
  const StreamInfo &info() const { return info_; }
  const std::string &name() const { return stream_.name(); }
  // Frames in the input when it is a regular file, else -1.
  int64_t expectedFrames() const { return expectedFrames_; }
  // Reads the next frame into `frame`; false at the end of the input. Throws
  // ToolError for a truncated or malformed frame.
  bool read(Frame *frame);

 private:
  void readY4mHeader(const Geometry &padding);
  void refuseEmptyInput();
  bool readY4mFrame(Frame *frame);
  bool readRawFrame(Frame *frame);
  void estimateFrames(size_t headerBytes);
  [[noreturn]] void truncated(size_t got, size_t expected) const;

  Stream stream_;
  StreamInfo info_;
  int64_t framesRead_ = 0;
  int64_t expectedFrames_ = -1;
  std::vector<uint8_t> planar_;  // a Y4M frame as the stream holds it
};

class FrameWriter {
 public:
  // Opens `path` ("-" for standard output) as Stream does: nothing is written
  // before the first frame or finish(), which start with the Y4M header.
  FrameWriter(const std::string &path, const StreamInfo &info);
  void write(const Frame &frame);
  void finish();

 private:
  void begin();

  Stream stream_;
  StreamInfo info_;
  bool begun_ = false;
  std::vector<uint8_t> planar_;
};

// A frame buffer for `g`, zeroed, with the slack.
Frame makeFrame(const Geometry &g);

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_FRAME_IO_H
