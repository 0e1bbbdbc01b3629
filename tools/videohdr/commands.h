// The tool's three commands. Each answers the process exit status and throws
// ToolError for anything the user has to fix.
#ifndef VIDEOHDR_TOOL_COMMANDS_H
#define VIDEOHDR_TOOL_COMMANDS_H

#include <cstdint>
#include <string>

#include "frame_io.h"

namespace vhtool {

struct ProcessOptions {
  std::string input;
  std::string output;
  std::string size;                         // WxH of raw frames; empty for Y4M input
  PixelFormat format = PixelFormat::kNv12;  // of raw input
  // "y4m", or a pixel format name for raw output; empty: the input's.
  std::string outFormat;
  // Bytes per luma row and rows from the frame start to the chroma plane (0:
  // the width and the height): of the raw stream's frames, or of the padded
  // frames a Y4M stream is laid out in before processing.
  int32_t stride = 0;
  int32_t scanline = 0;
  std::string statsPath;
  bool progress = false;  // progress bar and closing summary on stderr
};
int runProcess(const ProcessOptions &options);

struct DemoOptions {
  std::string outDir = "out/demo";
  std::string photosDir;
  int32_t frames = 64;
  int32_t shake = 20;
  bool progress = false;
};
int runDemo(const DemoOptions &options);

struct MakeClipOptions {
  std::string darkPath;
  std::string brightPath;
  std::string output;
  std::string shakeCsv;
  int32_t frames = 60;
  int32_t shake = 20;
};
int runMakeClip(const MakeClipOptions &options);

// Prints "videohdr: warning: ..." lines for a geometry the library takes with
// reservations; throws ToolError for one it cannot take.
void requireGeometry(const Geometry &g, const std::string &source);

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_COMMANDS_H
