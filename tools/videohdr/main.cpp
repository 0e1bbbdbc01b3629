// videohdr: runs the HDR video library over a clip on the desktop, the way a
// camera app records (one videohdr_planes_process_to call per frame, from the
// frame read into one of the output's format), and builds demo clips from
// bracketed photographs.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <filesystem>

#include "commands.h"
#include "host_log.h"
#include "tool_error.h"

namespace {

constexpr int kUsageError = 2;

// The bundled photographs: installed beside the tool (VIDEOHDR_PHOTOS_FROM_BIN
// from the directory of the running program), else the source tree's.
std::string bundledPhotos() {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  const fs::path installed = program.parent_path() / VIDEOHDR_PHOTOS_FROM_BIN;
  if (!error && fs::is_directory(installed, error)) return installed.lexically_normal().string();
  return VIDEOHDR_PHOTOS_DIR;
}

void addProcessOptions(CLI::App &app, vhtool::ProcessOptions &o, std::string &format) {
  app.add_option("input", o.input,
                 "Y4M (8-bit 4:2:0) or raw NV12/NV21/I420 frames; - for standard input");
  app.add_option("-o,--output", o.output,
                 "where the processed frames go, in the input's format unless --out-format; - "
                 "for standard output");
  app.add_option("--size", o.size, "raw input: frame size WxH (without it the input is Y4M)");
  app.add_option("--format", format, "raw input: nv12 (default), nv21 or i420")
      ->check(CLI::IsMember({"nv12", "nv21", "i420"}));
  app.add_option("--out-format", o.outFormat,
                 "y4m (planar 4:2:0), or raw nv12, nv21 or i420 frames (default: the input's); "
                 "the library writes the fused frame straight in this format")
      ->check(CLI::IsMember({"y4m", "nv12", "nv21", "i420"}));
  app.add_option("--stride", o.stride,
                 "bytes per luma row (default: the width): of raw nv12/nv21 frames; Y4M frames "
                 "are padded to it in memory, as camera buffers are")
      ->check(CLI::PositiveNumber);
  app.add_option("--scanline", o.scanline,
                 "rows from the frame start to the chroma plane (default: the height), as "
                 "--stride")
      ->check(CLI::PositiveNumber);
  app.add_option("--stats", o.statsPath,
                 "CSV with one row per frame: frame, found_dx, found_dy, applied_dx, applied_dy, "
                 "brighter, ms");
}

// --format describes raw input only.
void takeFormat(vhtool::ProcessOptions &o, const std::string &format) {
  if (format.empty()) return;
  if (o.size.empty()) throw vhtool::ToolError("--format describes raw frames: give --size too");
  o.format = vhtool::formatNamed(format);
}

}  // namespace

int main(int argc, char **argv) {
  // A closed pipe shows up as a write error with a message, not a silent death.
  std::signal(SIGPIPE, SIG_IGN);

  CLI::App app{
      "videohdr: HDR video from alternating exposures, on the desktop.\n"
      "  videohdr INPUT -o OUTPUT [OPTIONS]   every frame through videohdr_planes_process_to\n"
      "  videohdr demo [--out DIR]           the bundled demo\n"
      "  videohdr make-clip DARK.jpg BRIGHT.jpg -o CLIP.y4m   a shaken test clip"};
  vhtool::ProcessOptions process;
  std::string format;
  addProcessOptions(app, process, format);
  bool log = false;
  bool quiet = false;
  app.add_flag("--log", log, "show the library's log lines on stderr");
  app.add_flag("-q,--quiet", quiet, "no progress bar or summary");

  app.fallthrough();  // commands made from here on pass --log and --quiet up
  vhtool::DemoOptions demo;
  demo.photosDir = bundledPhotos();
  CLI::App *demoCommand =
      app.add_subcommand("demo",
                         "build a shaken clip from the bundled photographs, run it "
                         "and report how well the shake was found");
  demoCommand->add_option("--out", demo.outDir, "output directory")->capture_default_str();
  demoCommand->add_option("--photos", demo.photosDir, "directory of bracketed sets")
      ->capture_default_str();
  demoCommand->add_option("--frames", demo.frames, "clip length")
      ->capture_default_str()
      ->check(CLI::Range(2, 100000));
  demoCommand->add_option("--shake", demo.shake, "largest offset of the shake in pixels")
      ->capture_default_str()
      ->check(CLI::Range(0, 64));

  vhtool::MakeClipOptions clip;
  CLI::App *clipCommand = app.add_subcommand(
      "make-clip", "build an alternating-exposure Y4M clip with a simulated hand shake");
  clipCommand->add_option("dark", clip.darkPath, "the darker exposure (JPEG)")->required();
  clipCommand->add_option("bright", clip.brightPath, "the brighter exposure (JPEG)")->required();
  clipCommand->add_option("-o,--output", clip.output, "the clip (Y4M); - for standard output")
      ->required();
  clipCommand->add_option("--frames", clip.frames, "clip length")
      ->capture_default_str()
      ->check(CLI::Range(1, 100000));
  clipCommand->add_option("--shake", clip.shake, "largest offset of the shake in pixels")
      ->capture_default_str()
      ->check(CLI::Range(0, 64));
  clipCommand->add_option("--shake-csv", clip.shakeCsv,
                          "CSV of each frame's cut position and simulated shift");
  app.require_subcommand(0, 1);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &e) {
    return app.exit(e) == 0 ? 0 : kUsageError;
  }

  vhtool::echoLibraryLog(log);
  const bool terminal = isatty(STDERR_FILENO) && !quiet;
  try {
    if (demoCommand->parsed()) {
      demo.progress = terminal;
      return vhtool::runDemo(demo);
    }
    if (clipCommand->parsed()) return vhtool::runMakeClip(clip);
    if (process.input.empty() || process.output.empty()) {
      std::fprintf(stderr, "videohdr: give an INPUT and -o OUTPUT (see --help)\n");
      return kUsageError;
    }
    takeFormat(process, format);
    process.progress = terminal;
    return vhtool::runProcess(process);
  } catch (const std::exception &e) {  // ToolError, or out of memory
    std::fprintf(stderr, "videohdr: error: %s\n", e.what());
  }
  return 1;
}
