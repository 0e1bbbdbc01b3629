#include "frame_io.h"

#include <sys/stat.h>

#include "tool_error.h"
#include "y4m.h"

namespace vhtool {
namespace {

enum class LineEnd { kLine, kEndOfInput, kInputEndsInside, kTooLong };

// Reads up to the next newline (not stored) or kY4mMaxLine bytes; adds the
// bytes taken to *position.
LineEnd readLine(FILE *file, std::string *line, uint64_t *position) {
  line->clear();
  for (;;) {
    const int c = std::getc(file);
    if (c == EOF) return line->empty() ? LineEnd::kEndOfInput : LineEnd::kInputEndsInside;
    ++*position;
    if (c == '\n') return LineEnd::kLine;
    if (line->size() == kY4mMaxLine) return LineEnd::kTooLong;
    line->push_back(static_cast<char>(c));
  }
}

FrameLayout rawLayout(const std::string &size, PixelFormat format, int32_t stride,
                      int32_t scanline) {
  Geometry g;
  if (!parseSize(size, &g.width, &g.height)) {
    throw ToolError("--size '" + quoted(size) + "' is not WxH (for example 1920x1080)");
  }
  // Raw I420 comes from ffmpeg and other tools, packed; only a camera's
  // semi-planar buffers are described with their padding here.
  if (format == PixelFormat::kI420 && (stride || scanline)) {
    throw ToolError(
        "--stride and --scanline describe nv12 and nv21 frames; i420 frames are read "
        "packed");
  }
  g.stride = stride ? stride : g.width;
  g.scanline = scanline ? scanline : g.height;
  return {format, g};
}

}  // namespace

Frame makeFrame(const FrameLayout &layout) {
  Frame frame;
  frame.bytes.assign(layout.frameBytes(), 0);
  return frame;
}

FrameReader openInput(const std::string &path, const std::string &size, PixelFormat format,
                      int32_t stride, int32_t scanline) {
  if (size.empty()) return FrameReader(path, true, {PixelFormat::kNv12, {0, 0, stride, scanline}});
  return FrameReader(path, false, rawLayout(size, format, stride, scanline));
}

StreamInfo outputStream(const StreamInfo &input, bool y4m, PixelFormat format) {
  const Geometry &g = input.frame.geometry;
  StreamInfo output;
  output.y4m = y4m;
  if (y4m) {
    output.frame = packedLayout(PixelFormat::kI420, g.width, g.height);
    output.y4mHeader = input.y4m ? input.y4mHeader : y4mStreamHeader(g.width, g.height);
  } else if (!input.y4m && input.frame.format == format) {
    output.frame = input.frame;
  } else {
    output.frame = packedLayout(format, g.width, g.height);
  }
  return output;
}

FrameReader::FrameReader(const std::string &path, bool y4m, const FrameLayout &layout)
    : stream_(path, false) {
  info_.y4m = y4m;
  if (y4m) {
    readY4mHeader(layout.geometry);
    requireGeometry();
  } else {
    info_.frame = layout;
    requireGeometry();
    refuseEmptyInput();
  }
  estimateFrames(position_);
}

void FrameReader::requireGeometry() const {
  const GeometryCheck check = checkGeometry(info_.frame.geometry);
  if (!check.error.empty()) throw ToolError(name() + ": " + check.error);
}

// An empty input is an error in either layout (a Y4M stream without even its
// header cannot be one): most often the program in front of a pipe failed,
// and an empty output with success would hide that.
void FrameReader::refuseEmptyInput() {
  const int c = std::getc(stream_.file());
  stream_.checkError("read");
  if (c == EOF) throw ToolError(name() + ": empty input");
  std::ungetc(c, stream_.file());
}

void FrameReader::readY4mHeader(const Geometry &padding) {
  std::string line;
  const LineEnd end = readLine(stream_.file(), &line, &position_);
  stream_.checkError("read");
  if (end == LineEnd::kEndOfInput) throw ToolError(name() + ": empty input");
  Y4mHeader header;
  std::string problem = parseY4mHeader(line, &header);
  if (problem.empty() && end == LineEnd::kTooLong) {
    problem =
        "malformed Y4M header: no end of line within " + std::to_string(kY4mMaxLine) + " bytes";
  } else if (problem.empty() && end == LineEnd::kInputEndsInside) {
    problem = "malformed Y4M header: the input ends inside it";
  }
  if (!problem.empty()) throw ToolError(name() + ": " + problem);
  info_.y4mHeader = header.line;
  info_.frame = packedLayout(PixelFormat::kI420, header.width, header.height);
  if (padding.stride || padding.scanline) {
    info_.frame = {PixelFormat::kNv12,
                   {header.width, header.height, padding.stride ? padding.stride : header.width,
                    padding.scanline ? padding.scanline : header.height}};
  }
}

void FrameReader::estimateFrames(size_t headerBytes) {
  struct stat st;
  if (fstat(fileno(stream_.file()), &st) != 0 || !S_ISREG(st.st_mode)) return;
  const Geometry &g = info_.frame.geometry;
  // A Y4M frame usually has a bare "FRAME\n" line in front of its planes.
  const size_t perFrame = info_.y4m ? y4mFrameDataBytes(g.width, g.height) + sizeof kY4mFrameMagic
                                    : info_.frame.frameBytes();
  const size_t size = static_cast<size_t>(st.st_size);
  if (size >= headerBytes) expectedFrames_ = (size - headerBytes) / perFrame;
}

void FrameReader::truncated(size_t got, size_t expected) const {
  const std::string frames = std::to_string(framesRead_);
  const std::string before = framesRead_ == 0 ? "there is no complete frame, nothing was written"
                             : framesRead_ == 1
                                 ? "the 1 complete frame before it was written"
                                 : "the " + frames + " complete frames before it were written";
  throw ToolError(name() + ": frame " + frames + " is truncated (" + std::to_string(got) + " of " +
                  std::to_string(expected) + " bytes); " + before);
}

bool FrameReader::read(Frame *frame) {
  const bool got = info_.y4m ? readY4mFrame(frame) : readRawFrame(frame);
  if (got) ++framesRead_;
  return got;
}

size_t FrameReader::readBytes(uint8_t *into, size_t count) {
  const size_t got = std::fread(into, 1, count, stream_.file());
  stream_.checkError("read");
  position_ += got;
  return got;
}

bool FrameReader::readRawFrame(Frame *frame) {
  const size_t expected = info_.frame.frameBytes();
  const size_t got = readBytes(frame->data(), expected);
  if (got == 0) return false;
  if (got < expected) truncated(got, expected);
  return true;
}

bool FrameReader::readY4mFrame(Frame *frame) {
  const uint64_t lineStart = position_;
  std::string line;
  const LineEnd end = readLine(stream_.file(), &line, &position_);
  stream_.checkError("read");
  if (end == LineEnd::kEndOfInput) return false;
  const Geometry &g = info_.frame.geometry;
  const size_t expected = y4mFrameDataBytes(g.width, g.height);
  if (end == LineEnd::kInputEndsInside) truncated(0, expected);
  const std::string magic = kY4mFrameMagic;
  const auto at = [&] {
    return name() + ": frame " + std::to_string(framesRead_) + " at byte " +
           std::to_string(lineStart);
  };
  if (line.compare(0, magic.size(), magic) != 0 ||
      (line.size() > magic.size() && line[magic.size()] != ' ')) {
    // Most often the frames before are not the size the header says.
    throw ToolError(at() + ": expected a FRAME line, found '" + quoted(line) + "' (a frame of " +
                    std::to_string(g.width) + "x" + std::to_string(g.height) + " 4:2:0 is " +
                    std::to_string(expected) + " bytes)");
  }
  if (end == LineEnd::kTooLong) {
    throw ToolError(at() + ": FRAME line longer than " + std::to_string(kY4mMaxLine) + " bytes");
  }
  frame->y4mParams = line.substr(magic.size());

  // The planes as the stream holds them: straight into a packed I420 frame,
  // else through planar_ into the frame's layout.
  const FrameLayout planar = packedLayout(PixelFormat::kI420, g.width, g.height);
  const bool direct = info_.frame == planar;
  if (!direct) planar_.resize(expected);
  const size_t got = readBytes(direct ? frame->data() : planar_.data(), expected);
  if (got < expected) truncated(got, expected);
  if (!direct) copyPixels(planar, planar_.data(), info_.frame, frame->data());
  return true;
}

FrameWriter::FrameWriter(const std::string &path, const StreamInfo &info)
    : stream_(path, true), info_(info) {}

void FrameWriter::begin() {
  if (begun_) return;
  begun_ = true;
  stream_.start();
  if (!info_.y4m) return;
  const std::string header = info_.y4mHeader + "\n";
  stream_.put(header.data(), header.size());
}

void FrameWriter::finish() {
  begin();
  stream_.close();
}

void FrameWriter::write(const Frame &frame) {
  begin();
  if (info_.y4m) {
    const std::string line = kY4mFrameMagic + frame.y4mParams + "\n";
    stream_.put(line.data(), line.size());
  }
  stream_.put(frame.data(), info_.frame.frameBytes());
}

}  // namespace vhtool
