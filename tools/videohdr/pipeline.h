// Feeds a stream through the library frame by frame, the way a camera app
// does, and measures what it did: the shifts of the motion search, which input
// was the brighter, the time spent in the library.
#ifndef VIDEOHDR_TOOL_PIPELINE_H
#define VIDEOHDR_TOOL_PIPELINE_H

#include <cstdint>
#include <functional>
#include <string>

#include "frame_io.h"

namespace vhtool {

struct FrameStats {
  int64_t index = 0;
  bool fused = false;                    // false for the first frame, which only primes the handle
  int32_t foundDx = 0, foundDy = 0;      // what the search found
  int32_t appliedDx = 0, appliedDy = 0;  // what was applied after the jump filter
  bool currentBrighter = true;
  double ms = 0;  // time inside videohdr_planes_process_to
};

struct RunSummary {
  int64_t frames = 0;
  double totalMs = 0;
  double worstMs = 0;
};

struct RunOptions {
  std::string statsPath;  // CSV, one row per frame; empty for none
  bool progress = false;  // progress bar on stderr
  // Called after each frame with the library's result in `frame` (of the
  // output layout).
  std::function<void(const FrameStats &, const Frame &frame)> onFrame;
};

// Processes every frame of `reader` in order through the camera-plane entry
// point into a frame of `output` (the frame read itself when it has that
// layout) and writes each to `writer` (when not null). Throws ToolError; the
// frames processed before the error are written.
RunSummary processStream(FrameReader &reader, const FrameLayout &output, FrameWriter *writer,
                         const RunOptions &options);

// "64 frames, 95.1 frames/s in the library, mean 10.51 ms, worst 14.20 ms per frame"
std::string summaryLine(const RunSummary &summary);

}  // namespace vhtool

#endif  // VIDEOHDR_TOOL_PIPELINE_H
