// Prints a digest of every buffer the per-frame call leaves behind (the
// caller's frame, the three frame buffers, the alignment workspace and the
// fusion planes) after each frame of a scene's sequence, with the camera's
// move and the shifts the alignment found and applied, and at the end how
// often the search found the move. Two builds that print the same lines
// produced the same bytes: optimisations are checked against the commit
// before them this way, on full-size frames.
//
//   videohdr_digest [--scene=pan|handheld] WIDTH HEIGHT FRAMES
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fixture.h"
#include "log_sink.h"
#include "shift_tally.h"

namespace {

using namespace videohdr_bench;

uint64_t fnv1a(const uint8_t *p, size_t n, uint64_t h = 1469598103934665603ull) {
  for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
  return h;
}

unsigned long long digest(const uint8_t *p, size_t n) {
  return static_cast<unsigned long long>(fnv1a(p, n));
}

void discardLogLine(int, const char *, const char *) {}

int usage() {
  std::fprintf(stderr, "usage: videohdr_digest [--scene=pan|handheld] WIDTH HEIGHT FRAMES\n");
  return 2;
}

void printFrame(Fixture &f, const FrameShifts &s) {
  const Geometry &g = f.geometry();
  const size_t plane = static_cast<size_t>(g.stride) * g.scanline;
  const VideoHdrHandle *h = f.handle();
  const FusionContext *fc = h->fusionContext;
  std::printf(
      "frame %d: out %016llx history %016llx work %016llx planes %016llx %016llx %016llx "
      "moved %d,%d found %d,%d applied %d,%d\n",
      f.nextIndex() - 1, digest(f.frame(), g.frameBytes()),
      digest(h->frameBuf0, VIDEOHDR_FRAME_BLOCK_BYTES),
      digest(f.align()->workBuf, f.align()->workSize), digest(fc->weightPlanes[0], 4 * plane),
      digest(fc->halfWeightPlanes[0], plane & ~size_t{3}), digest(fc->toneCurves[0], 2048),
      s.moved.x, s.moved.y, s.found.x, s.found.y, s.applied.x, s.applied.y);
}

}  // namespace

int main(int argc, char **argv) {
  SceneKind scene = SceneKind::Pan;
  int first = 1;
  if (argc > 1 && std::strncmp(argv[1], "--scene=", 8) == 0) {
    if (!parseSceneName(argv[1] + 8, &scene)) return usage();
    first = 2;
  }
  if (argc - first != 3) return usage();
  videohdr::setLogSink(discardLogLine);
  Fixture f(scene, std::atoi(argv[first]), std::atoi(argv[first + 1]));
  ShiftTally tally;
  for (int i = 0; i < std::atoi(argv[first + 2]); ++i) {
    f.processNextFrame();
    const FrameShifts s = lastFrameShifts(f);
    printFrame(f, s);
    tally.add(s);
  }
  tally.print(stdout);
  return 0;
}
