// videohdr demo: a clip from the bundled bracketed photographs with a known
// hand shake, run through the library, with a contact sheet and a report of
// how well the motion search recovered the shake.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>

#include "clip.h"
#include "commands.h"
#include "image_io.h"
#include "libyuv/convert_argb.h"
#include "libyuv/scale.h"
#include "pipeline.h"
#include "tool_error.h"

namespace vhtool {
namespace {

namespace fs = std::filesystem;

// Rows of half-size thumbnails: bright input, dark input, fused output.
class ContactSheet {
 public:
  static constexpr int32_t kColumns = 3;
  static constexpr int32_t kGap = 8;
  static constexpr uint8_t kBackground = 40;

  // Frames of `frame`, packed I420.
  ContactSheet(const FrameLayout &frame, int32_t rows)
      : frame_(frame),
        thumbWidth_((frame.geometry.width / 2) & ~1),
        thumbHeight_((frame.geometry.height / 2) & ~1),
        width_(kColumns * thumbWidth_ + (kColumns + 1) * kGap),
        height_(rows * thumbHeight_ + (rows + 1) * kGap),
        rgb_(static_cast<size_t>(width_) * height_ * 3, kBackground),
        thumb_(static_cast<size_t>(thumbWidth_) * thumbHeight_ * 3 / 2) {}

  void place(int32_t row, int32_t column, Frame &frame) {
    const Planes in = planesOf(frame_, frame.data());
    const Planes t =
        planesOf(packedLayout(PixelFormat::kI420, thumbWidth_, thumbHeight_), thumb_.data());
    const Geometry &g = frame_.geometry;
    libyuv::I420Scale(in.y, in.yRowStride, in.u, in.uvRowStride, in.v, in.uvRowStride, g.width,
                      g.height, t.y, t.yRowStride, t.u, t.uvRowStride, t.v, t.uvRowStride,
                      thumbWidth_, thumbHeight_, libyuv::kFilterBox);
    const int32_t x = kGap + column * (thumbWidth_ + kGap);
    const int32_t y = kGap + row * (thumbHeight_ + kGap);
    uint8_t *cell = rgb_.data() + (static_cast<size_t>(y) * width_ + x) * 3;
    libyuv::I420ToRAW(t.y, t.yRowStride, t.u, t.uvRowStride, t.v, t.uvRowStride, cell, width_ * 3,
                      thumbWidth_, thumbHeight_);
  }

  void save(const std::string &path) const { writePng(path, rgb_.data(), width_, height_); }

 private:
  FrameLayout frame_;
  int32_t thumbWidth_, thumbHeight_, width_, height_;
  std::vector<uint8_t> rgb_;
  std::vector<uint8_t> thumb_;
};

// Two fused frames of each scene, a third and two thirds of the way in.
std::vector<int32_t> contactFrames(const ClipPlan &plan) {
  std::vector<int32_t> frames;
  for (size_t s = 0; s < plan.firstFrame.size(); ++s) {
    const int32_t first = plan.firstFrame[s];
    const int32_t end = s + 1 < plan.firstFrame.size() ? plan.firstFrame[s + 1] : plan.frames();
    for (int32_t third = 1; third <= 2; ++third) {
      const int32_t n = std::max(first + 1, first + third * (end - first) / 3);
      if (n < end && (frames.empty() || frames.back() != n)) frames.push_back(n);
    }
  }
  return frames;
}

struct Tally {
  int32_t evenFound = 0, evenTotal = 0;
  int32_t oddNear = 0, oddTotal = 0;
  int32_t applied = 0, total = 0;
};

Tally tallyShifts(const ClipPlan &plan, const std::vector<FrameStats> &stats) {
  Tally t;
  for (const FrameStats &s : stats) {
    Offset sim;
    if (!s.fused || !plan.simulatedShift(static_cast<int32_t>(s.index), &sim)) continue;
    ++t.total;
    if (s.appliedDx == s.foundDx && s.appliedDy == s.foundDy) ++t.applied;
    if (sim.x % 2 == 0 && sim.y % 2 == 0) {
      ++t.evenTotal;
      if (s.foundDx == sim.x && s.foundDy == sim.y) ++t.evenFound;
    } else {
      ++t.oddTotal;
      if (std::abs(s.foundDx - sim.x) <= 1 && std::abs(s.foundDy - sim.y) <= 1) ++t.oddNear;
    }
  }
  return t;
}

// The clip run once more from frames laid out as a camera's buffers are:
// rows padded to kPadBytes more than the width, the chroma kPadRows rows past
// the luma. What the search finds and what comes out must not change.
constexpr int32_t kPadBytes = 64;
constexpr int32_t kPadRows = 16;

struct PaddedRun {
  Geometry geometry;
  int32_t fused = 0, sameShifts = 0;
  int32_t frames = 0, samePixels = 0;
};

// Runs `input` padded (into frames of the packed run's `layout`) and compares
// every frame with `output` and every shift with `packed`, the stats of the
// packed run.
PaddedRun runPadded(const std::string &input, const std::string &output, const FrameLayout &layout,
                    const std::vector<FrameStats> &packed) {
  PaddedRun run;
  const Geometry &g = layout.geometry;
  run.geometry = {g.width, g.height, g.width + kPadBytes, g.height + kPadRows};
  FrameReader reader(input, true, {PixelFormat::kNv12, run.geometry});
  FrameReader expectedReader(output, true, FrameLayout());
  Frame expected = makeFrame(expectedReader.info().frame);
  RunOptions options;
  options.onFrame = [&](const FrameStats &s, const Frame &frame) {
    if (!expectedReader.read(&expected)) throw ToolError(output + " ends early");
    ++run.frames;
    run.samePixels += frame.bytes == expected.bytes;
    if (!s.fused) return;
    const FrameStats &p = packed.at(static_cast<size_t>(s.index));
    ++run.fused;
    run.sameShifts += s.foundDx == p.foundDx && s.foundDy == p.foundDy &&
                      s.appliedDx == p.appliedDx && s.appliedDy == p.appliedDy;
  };
  processStream(reader, layout, nullptr, options);
  return run;
}

void printReport(const ClipPlan &plan, const Tally &t, const PaddedRun &padded,
                 const RunSummary &summary, const std::vector<int32_t> &contact,
                 const fs::path &dir, double seconds) {
  const Geometry &g = plan.geometry;
  std::printf(
      "videohdr demo: %d frames of %dx%d, exposures alternating (even frames bright), "
      "simulated hand shake up to %d px\n",
      plan.frames(), g.width, g.height, plan.amplitude);
  for (size_t s = 0; s < plan.scenes.size(); ++s) {
    const int32_t end = s + 1 < plan.scenes.size() ? plan.firstFrame[s + 1] : plan.frames();
    std::printf("  frames %d-%d: %s (dark %s, bright %s)\n", plan.firstFrame[s], end - 1,
                plan.scenes[s].name.c_str(), fs::path(plan.scenes[s].darkPath).filename().c_str(),
                fs::path(plan.scenes[s].brightPath).filename().c_str());
  }
  std::printf("  search, even shifts: found exactly in %d of %d frames\n", t.evenFound,
              t.evenTotal);
  std::printf(
      "  search, odd shifts: found within 1 px in %d of %d frames "
      "(the search moves in steps of 2 px)\n",
      t.oddNear, t.oddTotal);
  std::printf(
      "  the library's jump filter applied the found shift in %d of %d "
      "frames\n",
      t.applied, t.total);
  std::printf(
      "  padded camera layout (rows of %d bytes, chroma %d rows past the luma): the same "
      "shifts in %d of %d fused frames, the same pixels in %d of %d frames\n",
      padded.geometry.stride, padded.geometry.scanline - g.height, padded.sameShifts, padded.fused,
      padded.samePixels, padded.frames);
  std::printf("  library: %s\n", summaryLine(summary).c_str());
  std::printf("  wrote %s/{input.y4m, output.y4m, stats.csv, shake.csv, contact.png}\n",
              dir.string().c_str());
  std::printf("  contact.png rows: frames");
  for (int32_t n : contact) std::printf(" %d", n);
  std::printf("; columns: bright input, dark input, fused output\n");
  std::printf("  done in %.1f s\n", seconds);
}

}  // namespace

int runDemo(const DemoOptions &options) {
  const auto start = std::chrono::steady_clock::now();
  const ClipPlan plan = planClip(loadScenes(options.photosDir), options.frames, options.shake);
  const fs::path dir = options.outDir;
  std::error_code error;
  fs::create_directories(dir, error);
  if (error) throw ToolError("cannot create '" + dir.string() + "': " + error.message());
  const std::string input = (dir / "input.y4m").string();
  requireGeometry(plan.geometry, input);
  writeClip(plan, input);
  writeShakeCsv(plan, (dir / "shake.csv").string());

  const std::vector<int32_t> contact = contactFrames(plan);
  std::map<int32_t, Frame> fused;
  std::vector<FrameStats> stats;
  RunOptions run;
  run.statsPath = (dir / "stats.csv").string();
  run.progress = options.progress;
  run.onFrame = [&](const FrameStats &s, const Frame &frame) {
    stats.push_back(s);
    for (int32_t n : contact) {
      if (n == s.index) fused[n] = frame;
    }
  };
  FrameReader reader(input, true, FrameLayout());
  const StreamInfo output = outputStream(reader.info(), true, PixelFormat::kI420);
  FrameWriter writer((dir / "output.y4m").string(), output);
  const RunSummary summary = processStream(reader, output.frame, &writer, run);
  writer.finish();
  const PaddedRun padded = runPadded(input, (dir / "output.y4m").string(), output.frame, stats);

  ContactSheet sheet(clipLayout(plan), static_cast<int32_t>(contact.size()));
  Frame frame = makeFrame(clipLayout(plan));
  for (size_t row = 0; row < contact.size(); ++row) {
    const int32_t n = contact[row];
    for (int32_t shown : {n, n - 1}) {
      renderFrame(plan, shown, &frame);
      sheet.place(static_cast<int32_t>(row), ClipPlan::isBright(shown) ? 0 : 1, frame);
    }
    sheet.place(static_cast<int32_t>(row), 2, fused.at(n));
  }
  sheet.save((dir / "contact.png").string());

  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  printReport(plan, tallyShifts(plan, stats), padded, summary, contact, dir, seconds);
  return 0;
}

}  // namespace vhtool
