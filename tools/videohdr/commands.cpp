#include "commands.h"

#include <cstdio>
#include <filesystem>

#include "clip.h"
#include "pipeline.h"
#include "tool_error.h"

namespace vhtool {
namespace {

// Whether two paths name one file: the same file when both exist, else the
// same path once made absolute (an output not created yet).
bool sameFile(const std::string &a, const std::string &b) {
  namespace fs = std::filesystem;
  if (a == "-" || b == "-") return false;
  std::error_code error, errorA, errorB;
  if (fs::equivalent(a, b, error)) return true;
  const fs::path pathA = fs::weakly_canonical(a, errorA), pathB = fs::weakly_canonical(b, errorB);
  return !errorA && !errorB && pathA == pathB;
}

// The input and the outputs must be distinct files: one written over
// another would lose it.
void refuseOverwriting(const ProcessOptions &o) {
  if (sameFile(o.input, o.output)) {
    throw ToolError("the output '" + o.output + "' is the input: it would be overwritten");
  }
  if (o.statsPath.empty()) return;
  for (const std::string *other : {&o.input, &o.output}) {
    if (sameFile(o.statsPath, *other)) {
      throw ToolError("--stats '" + o.statsPath + "' is the " +
                      (other == &o.input ? "input" : "output") + ": it would be overwritten");
    }
  }
}

}  // namespace

void requireGeometry(const Geometry &g, const std::string &source) {
  const GeometryCheck check = checkGeometry(g);
  if (!check.error.empty()) throw ToolError(source + ": " + check.error);
  for (const std::string &warning : check.warnings) {
    std::fprintf(stderr, "videohdr: warning: %s: %s\n", source.c_str(), warning.c_str());
  }
}

// The output as asked for; by default the input's stream format.
StreamInfo outputOf(const ProcessOptions &o, const StreamInfo &input) {
  if (o.outFormat.empty()) return outputStream(input, input.y4m, input.frame.format);
  const bool y4m = o.outFormat == "y4m";
  return outputStream(input, y4m, y4m ? PixelFormat::kI420 : formatNamed(o.outFormat));
}

int runProcess(const ProcessOptions &options) {
  refuseOverwriting(options);
  FrameReader reader =
      openInput(options.input, options.size, options.format, options.stride, options.scanline);
  requireGeometry(reader.info().frame.geometry, reader.name());

  // Opened, not yet written: processStream opens the stats file before the
  // first frame empties either.
  const StreamInfo output = outputOf(options, reader.info());
  FrameWriter writer(options.output, output);
  RunOptions run;
  run.statsPath = options.statsPath;
  run.progress = options.progress;
  const RunSummary summary = processStream(reader, output.frame, &writer, run);
  writer.finish();
  if (options.progress || !options.statsPath.empty()) {
    std::fprintf(stderr, "videohdr: %s\n", summaryLine(summary).c_str());
  }
  return 0;
}

int runMakeClip(const MakeClipOptions &options) {
  std::vector<Scene> scenes;
  scenes.push_back(loadPair(options.darkPath, options.brightPath));
  const ClipPlan plan = planClip(std::move(scenes), options.frames, options.shake);
  requireGeometry(plan.geometry, options.output == "-" ? "standard output" : options.output);
  writeClip(plan, options.output);
  if (!options.shakeCsv.empty()) writeShakeCsv(plan, options.shakeCsv);
  std::fprintf(stderr, "videohdr: %d frames of %dx%d, shake up to %d px, even frames bright\n",
               plan.frames(), plan.geometry.width, plan.geometry.height, plan.amplitude);
  return 0;
}

}  // namespace vhtool
