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

struct StateRelease {
  void operator()(VideoHdrPlanes *planes) const { videohdr_planes_destroy(planes); }
};
using StatePointer = std::unique_ptr<VideoHdrPlanes, StateRelease>;

StatePointer createState(const Geometry &g) {
  VideoHdrPlanes *planes = nullptr;
  const int32_t status = videohdr_planes_create(g.width, g.height, &planes);
  if (status != VIDEOHDR_PLANES_OK) {
    throw ToolError(std::string("cannot process ") + std::to_string(g.width) + "x" +
                    std::to_string(g.height) + " frames: " + videohdr_planes_status_text(status));
  }
  return StatePointer(planes);
}

// One frame from `in` (of `inLayout`) into `out` (of `outLayout`), both handed
// over as a camera's three planes: the same buffer and layout is the in-place
// call. `index` is the frame's number in the stream, for the message.
VideoHdrPlanesResult processFrame(VideoHdrPlanes *planes, const FrameLayout &inLayout, Frame *in,
                                  const FrameLayout &outLayout, Frame *out, int64_t index) {
  const Planes i = planesOf(inLayout, in->data());
  const Planes o = planesOf(outLayout, out->data());
  const Geometry &g = inLayout.geometry;
  VideoHdrPlanesResult r;
  videohdr_planes_process_to(planes, i.y, i.yRowStride, i.u, i.v, i.uvRowStride, i.uvPixelStride,
                             o.y, o.yRowStride, o.u, o.v, o.uvRowStride, o.uvPixelStride, g.width,
                             g.height, &r);
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

RunSummary processStream(FrameReader &reader, const FrameLayout &output, FrameWriter *writer,
                         const RunOptions &options) {
  const FrameLayout &input = reader.info().frame;
  StatePointer state = createState(input.geometry);
  StatsFile stats(options.statsPath);
  Progress progress(options.progress, reader.expectedFrames());
  RunSummary summary;
  Frame frame = makeFrame(input);
  // A separate output frame only when the layouts differ: otherwise the
  // frame is processed where it was read.
  Frame converted = output == input ? Frame() : makeFrame(output);
  Frame &result = output == input ? frame : converted;
  while (reader.read(&frame)) {
    FrameStats s;
    s.index = summary.frames;
    const auto start = std::chrono::steady_clock::now();
    const VideoHdrPlanesResult r =
        processFrame(state.get(), input, &frame, output, &result, summary.frames);
    s.ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    s.fused = r.status == VIDEOHDR_PLANES_PROCESSED;
    s.foundDx = r.foundDx;
    s.foundDy = r.foundDy;
    s.appliedDx = r.appliedDx;
    s.appliedDy = r.appliedDy;
    s.currentBrighter = r.currentBrighter != 0;
    result.y4mParams = frame.y4mParams;
    if (writer) writer->write(result);
    stats.row(s);
    if (options.onFrame) options.onFrame(s, result);
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
