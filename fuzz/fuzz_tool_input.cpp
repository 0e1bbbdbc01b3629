// The tool's input side as its command line and its files give it: Y4M
// headers and frames, raw frames with their size, format, stride and scanline
// arguments (well-formed and small mostly, so that frames are read; any text
// and any number sometimes), then every frame written out in a random output
// format. Bad input must end in a ToolError with a one-line printable
// message: never a crash, another exception or an allocation the input can
// make unbounded. Frame buffers are exactly their layout's size, so the
// sanitizers see any stray byte.
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "frame_io.h"
#include "tool_error.h"
#include "y4m.h"

namespace {

using vhtool::PixelFormat;

[[noreturn]] void fail(const std::string &what) {
  std::fprintf(stderr, "fuzz check failed: %s\n", what.c_str());
  std::abort();
}

// A file in memory that the tool opens by name, as it opens any file (so
// that the regular-file paths, the frame estimate and the emptying of an
// output, run too).
class MemoryFile {
 public:
  explicit MemoryFile(const std::string &bytes) : fd_(memfd_create("stream", MFD_CLOEXEC)) {
    if (fd_ < 0 || write(fd_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
      fail("cannot make a memory file");
  }
  ~MemoryFile() { close(fd_); }
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;
  std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }
  size_t size() const {
    struct stat st;
    return fstat(fd_, &st) == 0 ? static_cast<size_t>(st.st_size) : 0;
  }

 private:
  int fd_;
};

std::string pickSize(FuzzedDataProvider &in) {
  if (in.ConsumeBool()) return in.ConsumeRandomLengthString(16);
  return std::to_string(in.ConsumeIntegralInRange<int>(-2, 70)) + "x" +
         std::to_string(in.ConsumeIntegralInRange<int>(-2, 40));
}

// --stride or --scanline: mostly not given, or a little above a small frame.
int32_t pickPadding(FuzzedDataProvider &in) {
  switch (in.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
    case 1:
      return 0;
    case 2:
      return in.ConsumeIntegralInRange<int32_t>(-1, 140);
    default:
      return in.ConsumeIntegral<int32_t>();
  }
}

PixelFormat pickFormat(FuzzedDataProvider &in) {
  return in.PickValueInArray({PixelFormat::kNv12, PixelFormat::kNv21, PixelFormat::kI420});
}

void checkMessage(const std::string &message) {
  if (message.empty()) fail("an empty message");
  for (const char c : message) {
    if (c < 0x20 || c > 0x7e) fail("a message with a byte outside printable ASCII: " + message);
  }
}

// The bytes the writer must have written for `frames` frames of `output`.
size_t outputBytes(const vhtool::StreamInfo &output, size_t frames, size_t frameParamBytes) {
  if (!output.y4m) return frames * output.frame.frameBytes();
  const size_t frameLine = sizeof vhtool::kY4mFrameMagic;  // "FRAME" and its newline
  return output.y4mHeader.size() + 1 + frames * (frameLine + output.frame.frameBytes()) +
         frameParamBytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  const std::string sizeArgument = in.ConsumeBool() ? "" : pickSize(in);
  const PixelFormat format = pickFormat(in);
  const int32_t stride = pickPadding(in), scanline = pickPadding(in);
  const bool outY4m = in.ConsumeBool();
  const PixelFormat outFormat = pickFormat(in);
  const MemoryFile input(in.ConsumeRemainingBytesAsString());
  const std::string earlier = "an earlier output";
  const MemoryFile output(earlier);
  size_t frames = 0, frameParamBytes = 0;
  try {
    vhtool::FrameReader reader =
        vhtool::openInput(input.path(), sizeArgument, format, stride, scanline);
    const vhtool::StreamInfo out = vhtool::outputStream(reader.info(), outY4m, outFormat);
    vhtool::FrameWriter writer(output.path(), out);
    vhtool::Frame frame = vhtool::makeFrame(reader.info().frame);
    vhtool::Frame converted = vhtool::makeFrame(out.frame);
    while (reader.read(&frame)) {
      vhtool::copyPixels(reader.info().frame, frame.data(), out.frame, converted.data());
      converted.y4mParams = frame.y4mParams;
      writer.write(converted);
      ++frames;
      frameParamBytes += frame.y4mParams.size();
    }
    writer.finish();
    if (!reader.info().y4m && frames * reader.info().frame.frameBytes() != input.size())
      fail("raw frames read do not add up to the input");
    if (output.size() != outputBytes(out, frames, frameParamBytes))
      fail("the output is not the frames written");
  } catch (const vhtool::ToolError &e) {
    checkMessage(e.what());
    if (frames == 0 && output.size() != earlier.size()) fail("an output emptied, with no frame");
  }
  return 0;
}
