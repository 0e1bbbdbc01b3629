#include "frame_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "libyuv/planar_functions.h"
#include "tool_error.h"
#include "y4m.h"

namespace vhtool {
namespace {

constexpr size_t kStdioBuffer = 1 << 20;

enum class LineEnd { kLine, kEndOfInput, kInputEndsInside, kTooLong };

// Reads up to the next newline (not stored) or kY4mMaxLine bytes.
LineEnd readLine(FILE *file, std::string *line) {
  line->clear();
  for (;;) {
    const int c = std::getc(file);
    if (c == EOF) return line->empty() ? LineEnd::kEndOfInput : LineEnd::kInputEndsInside;
    if (c == '\n') return LineEnd::kLine;
    if (line->size() == kY4mMaxLine) return LineEnd::kTooLong;
    line->push_back(static_cast<char>(c));
  }
}

// A file to write, opened without emptying it: created when missing (then
// *created is set), else opened as it is. -1 with errno on failure.
int openForWriting(const std::string &path, bool *created) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  *created = fd >= 0;
  if (fd < 0 && errno == EEXIST) fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
  return fd;
}

}  // namespace

Stream::Stream(const std::string &path, bool write) {
  if (path == "-") {
    name_ = write ? "standard output" : "standard input";
    file_ = write ? stdout : stdin;
    started_ = true;
  } else {
    path_ = name_ = path;
    if (write) {
      const int fd = openForWriting(path, &created_);
      file_ = fd >= 0 ? fdopen(fd, "wb") : nullptr;
      if (fd >= 0 && !file_) ::close(fd);
    } else {
      file_ = std::fopen(path.c_str(), "rb");
      started_ = true;
    }
    if (!file_) {
      throw ToolError("cannot open '" + path + "'" + (write ? " for writing" : "") + ": " +
                      std::strerror(errno));
    }
    owned_ = true;
  }
  std::setvbuf(file_, nullptr, _IOFBF, kStdioBuffer);
}

Stream::~Stream() {
  if (owned_ && file_) std::fclose(file_);
  if (created_ && !started_) std::remove(path_.c_str());
}

void Stream::start() {
  if (started_) return;
  started_ = true;
  // Only a regular file has contents to replace; a pipe or a device (such as
  // /dev/null) is written as it is.
  struct stat st;
  const int fd = fileno(file_);
  if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && ftruncate(fd, 0) != 0) {
    throw ToolError("cannot write " + name_ + ": " + std::strerror(errno));
  }
}

void Stream::put(const void *bytes, size_t count) {
  start();
  if (std::fwrite(bytes, 1, count, file_) == count) return;
  checkError("write");
  throw ToolError("cannot write " + name_);
}

void Stream::checkError(const char *what) const {
  if (std::ferror(file_)) {
    throw ToolError("cannot " + std::string(what) + " " + name_ + ": " + std::strerror(errno));
  }
}

void Stream::close() {
  if (!file_) return;
  start();
  const bool failed = std::fflush(file_) != 0 || std::ferror(file_);
  const int error = errno;
  if (owned_) std::fclose(file_);
  file_ = nullptr;
  if (failed) throw ToolError("cannot write " + name_ + ": " + std::strerror(error));
}

Frame makeFrame(const Geometry &g) {
  Frame frame;
  frame.bytes.assign(g.frameBytes() + kFrameSlack, 0);
  return frame;
}

FrameReader::FrameReader(const std::string &path, Layout layout, const Geometry &geometry)
    : stream_(path, false) {
  info_.layout = layout;
  if (layout == Layout::kY4m) {
    readY4mHeader(geometry);
  } else {
    refuseEmptyInput();
    info_.geometry = geometry;
    estimateFrames(0);
  }
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
  const LineEnd end = readLine(stream_.file(), &line);
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
  info_.geometry = {header.width, header.height, padding.stride ? padding.stride : header.width,
                    padding.scanline ? padding.scanline : header.height};
  estimateFrames(line.size() + 1);
}

void FrameReader::estimateFrames(size_t headerBytes) {
  struct stat st;
  if (fstat(fileno(stream_.file()), &st) != 0 || !S_ISREG(st.st_mode)) return;
  const Geometry &g = info_.geometry;
  // A Y4M frame usually has a bare "FRAME\n" line in front of its planes.
  const size_t perFrame = info_.layout == Layout::kY4m
                              ? y4mFrameDataBytes(g.width, g.height) + sizeof kY4mFrameMagic
                              : g.frameBytes();
  const size_t size = static_cast<size_t>(st.st_size);
  if (perFrame > 0 && size >= headerBytes) expectedFrames_ = (size - headerBytes) / perFrame;
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
  const bool got = info_.layout == Layout::kY4m ? readY4mFrame(frame) : readRawFrame(frame);
  if (got) ++framesRead_;
  return got;
}

bool FrameReader::readRawFrame(Frame *frame) {
  const size_t expected = info_.geometry.frameBytes();
  const size_t got = std::fread(frame->data(), 1, expected, stream_.file());
  stream_.checkError("read");
  if (got == 0) return false;
  if (got < expected) truncated(got, expected);
  return true;
}

bool FrameReader::readY4mFrame(Frame *frame) {
  std::string line;
  const LineEnd end = readLine(stream_.file(), &line);
  stream_.checkError("read");
  if (end == LineEnd::kEndOfInput) return false;
  const Geometry &g = info_.geometry;
  const size_t expected = y4mFrameDataBytes(g.width, g.height);
  if (end == LineEnd::kInputEndsInside) truncated(0, expected);
  const std::string magic = kY4mFrameMagic;
  if (end == LineEnd::kTooLong || line.compare(0, magic.size(), magic) != 0 ||
      (line.size() > magic.size() && line[magic.size()] != ' ')) {
    throw ToolError(name() + ": malformed frame header at frame " + std::to_string(framesRead_) +
                    " (expected FRAME)");
  }
  frame->y4mParams = line.substr(magic.size());

  // The planes as the stream holds them, then into the frame's layout: luma
  // rows at the frame's stride, the two chroma planes interleaved (U first:
  // NV12).
  planar_.resize(expected);
  const size_t got = std::fread(planar_.data(), 1, expected, stream_.file());
  stream_.checkError("read");
  if (got < expected) truncated(got, expected);
  const size_t lumaBytes = static_cast<size_t>(g.width) * g.height;
  const size_t chromaPlane = lumaBytes / 4;
  const int halfWidth = g.width / 2;
  libyuv::CopyPlane(planar_.data(), g.width, frame->data(), g.stride, g.width, g.height);
  libyuv::MergeUVPlane(planar_.data() + lumaBytes, halfWidth,
                       planar_.data() + lumaBytes + chromaPlane, halfWidth,
                       frame->data() + g.chromaOffset(), g.stride, halfWidth, g.height / 2);
  return true;
}

FrameWriter::FrameWriter(const std::string &path, const StreamInfo &info)
    : stream_(path, true), info_(info) {}

void FrameWriter::begin() {
  if (begun_) return;
  begun_ = true;
  stream_.start();
  if (info_.layout != Layout::kY4m) return;
  const std::string header = info_.y4mHeader + "\n";
  stream_.put(header.data(), header.size());
}

void FrameWriter::finish() {
  begin();
  stream_.close();
}

void FrameWriter::write(const Frame &frame) {
  begin();
  const Geometry &g = info_.geometry;
  if (info_.layout != Layout::kY4m) {
    stream_.put(frame.data(), g.frameBytes());
    return;
  }
  const std::string line = kY4mFrameMagic + frame.y4mParams + "\n";
  stream_.put(line.data(), line.size());
  const size_t lumaBytes = static_cast<size_t>(g.width) * g.height;
  const size_t chromaPlane = lumaBytes / 4;
  planar_.resize(lumaBytes + 2 * chromaPlane);
  const int halfWidth = g.width / 2;
  libyuv::CopyPlane(frame.data(), g.stride, planar_.data(), g.width, g.width, g.height);
  libyuv::SplitUVPlane(frame.data() + g.chromaOffset(), g.stride, planar_.data() + lumaBytes,
                       halfWidth, planar_.data() + lumaBytes + chromaPlane, halfWidth, halfWidth,
                       g.height / 2);
  stream_.put(planar_.data(), planar_.size());
}

}  // namespace vhtool
