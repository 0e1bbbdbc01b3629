#include "pipeline.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

#include "progress.h"
#include "tool_error.h"
#include "videohdr_planes.h"

namespace vhtool {
namespace {

struct PlanesRelease {
  void operator()(VideoHdrPlanes *planes) const { videohdr_planes_destroy(planes); }
};
using Planes = std::unique_ptr<VideoHdrPlanes, PlanesRelease>;

Planes createPlanes(const Geometry &g) {
  VideoHdrPlanes *planes = nullptr;
  const int32_t status = videohdr_planes_create(g.width, g.height, &planes);
  if (status != VIDEOHDR_PLANES_OK) {
    throw ToolError(std::string("cannot process ") + std::to_string(g.width) + "x" +
                    std::to_string(g.height) + " frames: " + videohdr_planes_status_text(status));
  }
  return Planes(planes);
}

// One frame of the stream's semi-planar layout, handed over as a camera's
// three planes: the chroma pairs interleaved, V first for NV21. `index` is
// the frame's number in the stream, for the message.
VideoHdrPlanesResult processFrame(VideoHdrPlanes *planes, Frame *frame, const StreamInfo &info,
                                  int64_t index) {
  const Geometry &g = info.geometry;
  uint8_t *y = frame->data();
  uint8_t *chroma = y + g.chromaOffset();
  const bool vFirst = info.layout == Layout::kNv21;
  VideoHdrPlanesResult r;
  videohdr_planes_process(planes, y, g.stride, vFirst ? chroma + 1 : chroma,
                          vFirst ? chroma : chroma + 1, g.stride, 2, g.width, g.height, &r);
  if (r.status < 0 || r.status == VIDEOHDR_PLANES_REFUSED) {
    throw ToolError("the library did not take frame " + std::to_string(index) + ": " +
                    videohdr_planes_status_text(r.status));
  }
  return r;
}

// The --stats CSV. Opened with the frame output, before either is written:
// a path that cannot be opened stops the run before any output is emptied;
// like the frame output, it is emptied with its first row (or at the end of
// an input without frames).
class StatsFile {
 public:
  explicit StatsFile(const std::string &path) {
    if (!path.empty()) out_ = std::make_unique<Stream>(path, true);
  }
  void row(const FrameStats &s) {
    if (!out_) return;
    begin();
    char line[160];
    if (s.fused) {
      std::snprintf(line, sizeof line, "%lld,%d,%d,%d,%d,%s,%.3f\n",
                    static_cast<long long>(s.index), s.foundDx, s.foundDy, s.appliedDx, s.appliedDy,
                    s.currentBrighter ? "current" : "previous", s.ms);
    } else {
      std::snprintf(line, sizeof line, "%lld,,,,,,%.3f\n", static_cast<long long>(s.index), s.ms);
    }
    put(line);
  }
  void finish() {
    if (!out_) return;
    begin();
    out_->close();
  }

 private:
  void begin() {
    if (begun_) return;
    begun_ = true;
    put("frame,found_dx,found_dy,applied_dx,applied_dy,brighter,ms\n");
  }
  void put(const std::string &text) { out_->put(text.data(), text.size()); }

  std::unique_ptr<Stream> out_;
  bool begun_ = false;
};

}  // namespace

RunSummary processStream(FrameReader &reader, FrameWriter *writer, const RunOptions &options) {
  const Geometry &g = reader.info().geometry;
  Planes planes = createPlanes(g);
  StatsFile stats(options.statsPath);
  Progress progress(options.progress, reader.expectedFrames());
  RunSummary summary;
  Frame frame = makeFrame(g);
  while (reader.read(&frame)) {
    FrameStats s;
    s.index = summary.frames;
    const auto start = std::chrono::steady_clock::now();
    const VideoHdrPlanesResult r =
        processFrame(planes.get(), &frame, reader.info(), summary.frames);
    s.ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    s.fused = r.status == VIDEOHDR_PLANES_PROCESSED;
    s.foundDx = r.foundDx;
    s.foundDy = r.foundDy;
    s.appliedDx = r.appliedDx;
    s.appliedDy = r.appliedDy;
    s.currentBrighter = r.currentBrighter != 0;
    if (writer) writer->write(frame);
    stats.row(s);
    if (options.onFrame) options.onFrame(s, frame);
    ++summary.frames;
    summary.totalMs += s.ms;
    summary.worstMs = std::max(summary.worstMs, s.ms);
    progress.update(summary.frames);
  }
  stats.finish();
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
