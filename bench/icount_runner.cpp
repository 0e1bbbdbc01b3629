// Runs one measured operation a given number of times on a primed fixture, or
// does all the same preparation and skips the operation, so that the
// difference of two instruction counts under qemu (bench/qemu-icount) is the
// operation's own cost.
//
//   videohdr_icount list
//   videohdr_icount [--scene=pan|handheld] CASE WIDTH HEIGHT REPS run|skip
//   videohdr_icount [--scene=pan|handheld] check-stages WIDTH HEIGHT FRAMES
//
// The scene is the synthetic pan unless given (see scene.h). CASE is
//   frame        the per-frame call on the next frame of the sequence (the
//                frame is rendered into the caller's buffer either way);
//   stage/NAME   one stage of the per-frame call (stages.h): every repetition
//                runs the stages up to and including NAME (run) or up to
//                before it (skip) on the next frame, and then the whole call
//                on that frame, so each stage sees the state a running camera
//                leaves and the difference is the stage's own cost;
//   a kernel     from `list`, on the state the fixture's first frames left.
// Nothing is printed in these modes, so both runs do the same start-up and
// exit work. check-stages runs the stages and the call on FRAMES frames,
// says whether the stages give the call's bytes (exit status 1 if not), and
// what the search made of the camera's moves.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fixture.h"
#include "log_sink.h"
#include "shift_tally.h"
#include "stages.h"

namespace {

using namespace videohdr_bench;

void discardLogLine(int, const char *, const char *) {}

int usage() {
  std::fprintf(stderr,
               "usage: videohdr_icount list\n"
               "       videohdr_icount [--scene=pan|handheld] CASE WIDTH HEIGHT REPS run|skip\n"
               "       videohdr_icount [--scene=pan|handheld] check-stages WIDTH HEIGHT FRAMES\n");
  return 2;
}

void list() {
  std::printf("frame\n");
  for (const Stage &s : frameStages()) std::printf("stage/%s\n", s.name);
  for (const KernelCase &k : kernelCases()) std::printf("%s\n", k.name);
}

// Where stage NAME ("stage/..." as listed) comes in the call, or -1.
int stageIndex(const std::string &name) {
  const std::vector<Stage> &stages = frameStages();
  for (size_t i = 0; i < stages.size(); ++i)
    if (name == std::string("stage/") + stages[i].name) return static_cast<int>(i);
  return -1;
}

const KernelCase *findKernel(const std::string &name) {
  for (const KernelCase &k : kernelCases())
    if (name == k.name) return &k;
  return nullptr;
}

int checkStages(Fixture &fixture, int32_t frames) {
  ShiftTally tally;
  for (int32_t i = 0; i < frames; ++i) {
    if (!stagesReproduceCall(fixture)) {
      std::printf("the stages differ from the call on frame %d\n", fixture.nextIndex() - 1);
      return 1;
    }
    tally.add(lastFrameShifts(fixture));
  }
  std::printf("the stages give the call's bytes on %d frames\n", frames);
  tally.print(stdout);
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc == 2 && std::strcmp(argv[1], "list") == 0) {
    list();
    return 0;
  }
  SceneKind scene = SceneKind::Pan;
  int first = 1;
  if (argc > 1 && std::strncmp(argv[1], "--scene=", 8) == 0) {
    if (!parseSceneName(argv[1] + 8, &scene)) return usage();
    first = 2;
  }
  const int args = argc - first;
  if (args != 4 && args != 5) return usage();
  const std::string name = argv[first];
  const int32_t width = std::atoi(argv[first + 1]), height = std::atoi(argv[first + 2]);
  const int32_t reps = std::atoi(argv[first + 3]);
  videohdr::setLogSink(discardLogLine);
  if (name == "check-stages" && args == 4) {
    Fixture fixture(scene, width, height);
    return checkStages(fixture, reps);
  }
  if (args != 5) return usage();
  const bool skip = std::strcmp(argv[first + 4], "skip") == 0;
  const KernelCase *kernel = findKernel(name);
  const int stage = stageIndex(name);
  if (name != "frame" && stage < 0 && !kernel) return usage();

  Fixture fixture(scene, width, height);
  for (int32_t r = 0; r < reps; ++r) {
    if (kernel) {
      if (!skip) kernel->run(fixture);
      continue;
    }
    fixture.loadNextFrame();
    if (stage >= 0) runStages(fixture, static_cast<size_t>(stage + (skip ? 0 : 1)));
    if (stage >= 0 || !skip) fixture.process(fixture.frame());
  }
  return 0;
}
