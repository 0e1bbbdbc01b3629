#include "pipeline.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>

#include "progress.h"
#include "tool_error.h"
#include "videohdr.h"

namespace vhtool {
namespace {

struct HandleRelease {
  void operator()(VideoHdrHandle *handle) const { Video_HDR_Release(handle); }
};
using Handle = std::unique_ptr<VideoHdrHandle, HandleRelease>;

// The fusion's own choice of the brighter exposure: luma sums at every 4th
// byte of every 32nd row of the handle's copy of the current frame and of the
// aligned previous frame, the current frame winning ties.
bool currentIsBrighter(const uint8_t *current, const uint8_t *alignedPrevious, const Geometry &g) {
  int64_t sumCurrent = 0;
  int64_t sumPrevious = 0;
  for (int32_t y = 0; y < g.height; y += 32) {
    for (int32_t x = 0; x < g.stride; x += 4) {
      sumCurrent += current[static_cast<size_t>(y) * g.stride + x];
      sumPrevious += alignedPrevious[static_cast<size_t>(y) * g.stride + x];
    }
  }
  return sumCurrent >= sumPrevious;
}

// Reads what the library left in the handle after a fused frame. `count` is
// the frame counter before the call: its parity picked the history buffer
// that took the current frame.
void readHandle(const VideoHdrHandle &handle, int32_t count, const Geometry &g, FrameStats *stats) {
  const AlignContext *align = handle.alignContext;
  if (align) {
    stats->foundDx = align->levelDx[0];
    stats->foundDy = align->levelDy[0];
    stats->appliedDx = align->lastDx;
    stats->appliedDy = align->lastDy;
  }
  const uint8_t *current = (count & 1) ? handle.frameBuf1 : handle.frameBuf0;
  stats->currentBrighter = currentIsBrighter(current, handle.alignedBuf, g);
}

class StatsFile {
 public:
  explicit StatsFile(const std::string &path) {
    if (path.empty()) return;
    out_.open(path);
    if (!out_) throw ToolError("cannot open '" + path + "' for writing");
    out_ << "frame,found_dx,found_dy,applied_dx,applied_dy,brighter,ms\n";
  }
  void row(const FrameStats &s) {
    if (!out_.is_open()) return;
    out_ << s.index << ',';
    if (s.fused) {
      out_ << s.foundDx << ',' << s.foundDy << ',' << s.appliedDx << ',' << s.appliedDy << ','
           << (s.currentBrighter ? "current" : "previous");
    } else {
      out_ << ",,,,";
    }
    char ms[32];
    std::snprintf(ms, sizeof ms, ",%.3f\n", s.ms);
    out_ << ms;
  }

 private:
  std::ofstream out_;
};

}  // namespace

RunSummary processStream(FrameReader &reader, FrameWriter &writer, const RunOptions &options) {
  const Geometry &g = reader.info().geometry;
  Handle handle(Video_HDR_Initial());
  if (!handle) throw ToolError("out of memory: cannot create a videohdr handle");
  StatsFile stats(options.statsPath);
  Progress progress(options.progress, reader.expectedFrames());
  RunSummary summary;
  Frame frame = makeFrame(g);
  while (reader.read(&frame)) {
    FrameStats s;
    s.index = summary.frames;
    const int32_t count = handle->frameCount;
    const auto start = std::chrono::steady_clock::now();
    Video_HDR_Process(handle.get(), frame.data(), static_cast<int32_t>(s.index), 1, g.width,
                      g.height, g.stride, g.scanline);
    s.ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    s.fused = count != 0;
    if (s.fused) readHandle(*handle, count, g, &s);
    writer.write(frame);
    stats.row(s);
    if (options.onFrame) options.onFrame(s, frame);
    ++summary.frames;
    summary.totalMs += s.ms;
    summary.worstMs = std::max(summary.worstMs, s.ms);
    progress.update(summary.frames);
  }
  return summary;
}

std::string summaryLine(const RunSummary &summary) {
  const double mean = summary.frames ? summary.totalMs / summary.frames : 0;
  const double fps = summary.totalMs > 0 ? 1000.0 * summary.frames / summary.totalMs : 0;
  char line[160];
  std::snprintf(line, sizeof line,
                "%lld frames, %.1f frames/s in the library, mean %.2f ms, worst %.2f ms per frame",
                static_cast<long long>(summary.frames), fps, mean, summary.worstMs);
  return line;
}

}  // namespace vhtool
