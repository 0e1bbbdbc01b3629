// The per-frame call split into its stages, so that the instruction-count
// runner can tell what each one costs inside the whole call.
//
// The stages run the library's own pieces (exported calls, internal
// functions and kernel-table members of the static library) in the order
// Video_HDR_Process runs them, on the frame the fixture loaded last. They
// follow the paths the call takes at the camera sizes (1920x1080, 2048x1280):
// luma sums taken while the grey images are copied, and the fusion's
// whole-block path. stagesReproduceCall tells whether they still give the
// call's bytes (after a change to the driver, or at another size).
#ifndef VIDEOHDR_BENCH_STAGES_H
#define VIDEOHDR_BENCH_STAGES_H

#include <cstddef>
#include <memory>
#include <vector>

#include "fixture.h"

namespace videohdr_bench {

struct StagePass;

struct Stage {
  const char *name;
  void (*run)(StagePass &);
};

// In the call's order.
const std::vector<Stage> &frameStages();

// Runs the first `count` stages on the frame in the fixture's caller buffer,
// as the next call would, but with the fused frame going to the spare frame.
// They write only what the call rewrites before it reads it, and the applied
// shift that getScanData carries to the next frame is put back, so the call
// that follows runs as if they had not. Answers the shift they applied (the
// one from before when getScanData is not among them).
Offset runStages(Fixture &f, size_t count);

// One stage on its own, for timing it: the constructor runs the stages before
// `index` on the frame in the fixture's caller buffer, and run() then runs
// stage `index` on what they left, as often as wanted (a stage rewrites
// everything it writes from what the stages before it left, so every run does
// the same work). The destructor puts back the applied shift, as runStages
// does.
class StageRunner {
 public:
  StageRunner(Fixture &f, size_t index);
  ~StageRunner();
  StageRunner(const StageRunner &) = delete;
  StageRunner &operator=(const StageRunner &) = delete;
  void run();

 private:
  Fixture &fixture_;
  std::unique_ptr<StagePass> pass_;
  const Stage &stage_;
  Offset before_;
};

// Loads the next frame of the sequence, runs all stages and then the call on
// it, and answers whether both gave the same fused frame and applied shift.
bool stagesReproduceCall(Fixture &f);

}  // namespace videohdr_bench

#endif  // VIDEOHDR_BENCH_STAGES_H
