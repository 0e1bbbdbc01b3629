// Runs one measured operation a given number of times on a primed fixture, or
// does all the same preparation and skips the operation, so that the
// difference of two instruction counts under qemu (bench/qemu-icount) is the
// operation's own cost.
//
//   videohdr_icount list
//   videohdr_icount [--scene=pan|handheld] CASE WIDTH HEIGHT REPS run|skip
//
// The scene is the synthetic pan unless given (see scene.h). CASE is "frame"
// (the per-frame call on the next frame of the sequence, the frame being
// rendered into the caller's buffer either way) or a kernel name from `list`
// (on the state the fixture's first frames left). Nothing is printed in
// either mode, so both runs do the same start-up and exit work.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fixture.h"
#include "hdr_log.h"

namespace {

void discardLogLine(int, const char *, const char *) {}

int usage() {
  std::fprintf(stderr,
               "usage: videohdr_icount list\n"
               "       videohdr_icount [--scene=pan|handheld] CASE WIDTH HEIGHT REPS run|skip\n");
  return 2;
}

}  // namespace

int main(int argc, char **argv) {
  using namespace videohdr_bench;
  if (argc == 2 && std::strcmp(argv[1], "list") == 0) {
    std::printf("frame\n");
    for (const KernelCase &k : kernelCases()) std::printf("%s\n", k.name);
    return 0;
  }
  SceneKind scene = SceneKind::Pan;
  int first = 1;
  if (argc > 1 && std::strncmp(argv[1], "--scene=", 8) == 0) {
    if (!parseSceneName(argv[1] + 8, &scene)) return usage();
    first = 2;
  }
  if (argc - first != 5) return usage();
  const std::string name = argv[first];
  const int32_t width = std::atoi(argv[first + 1]), height = std::atoi(argv[first + 2]);
  const int32_t reps = std::atoi(argv[first + 3]);
  const bool skip = std::strcmp(argv[first + 4], "skip") == 0;
  const KernelCase *kernel = nullptr;
  for (const KernelCase &k : kernelCases())
    if (name == k.name) kernel = &k;
  if (name != "frame" && !kernel) return usage();

  videohdr::setLogSink(discardLogLine);
  Fixture fixture(scene, width, height);
  for (int32_t r = 0; r < reps; ++r) {
    if (!kernel) {
      fixture.loadNextFrame();
      if (!skip) fixture.process(fixture.frame());
    } else if (!skip) {
      kernel->run(fixture);
    }
  }
  return 0;
}
