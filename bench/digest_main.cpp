// Prints a digest of every buffer the per-frame call leaves behind (the
// caller's frame, the three frame buffers, the alignment workspace and the
// fusion planes) after each frame of the synthetic sequence. Two builds that
// print the same lines produced the same bytes: optimisations are checked
// against the commit before them this way, on full-size frames.
//
//   videohdr_digest WIDTH HEIGHT FRAMES
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "fixture.h"
#include "hdr_log.h"

namespace {

uint64_t fnv1a(const uint8_t *p, size_t n, uint64_t h = 1469598103934665603ull) {
  for (size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 1099511628211ull;
  return h;
}

void discardLogLine(int, const char *, const char *) {}

}  // namespace

int main(int argc, char **argv) {
  using namespace videohdr_bench;
  if (argc != 4) {
    std::fprintf(stderr, "usage: videohdr_digest WIDTH HEIGHT FRAMES\n");
    return 2;
  }
  videohdr::setLogSink(discardLogLine);
  Fixture f(std::atoi(argv[1]), std::atoi(argv[2]));
  const Geometry &g = f.geometry();
  const size_t plane = static_cast<size_t>(g.stride) * g.scanline;
  for (int i = 0; i < std::atoi(argv[3]); ++i) {
    f.processNextFrame();
    const VideoHdrHandle *h = f.handle();
    const FusionContext *fc = h->fusionContext;
    std::printf(
        "frame %d: out %016llx history %016llx work %016llx planes %016llx %016llx %016llx\n", i,
        static_cast<unsigned long long>(fnv1a(f.frame(), g.frameBytes())),
        static_cast<unsigned long long>(fnv1a(h->frameBuf0, VIDEOHDR_FRAME_BLOCK_BYTES)),
        static_cast<unsigned long long>(fnv1a(f.align()->workBuf, f.align()->workSize)),
        static_cast<unsigned long long>(fnv1a(fc->weightPlanes[0], 4 * plane)),
        static_cast<unsigned long long>(fnv1a(fc->halfWeightPlanes[0], plane & ~size_t{3})),
        static_cast<unsigned long long>(fnv1a(fc->toneCurves[0], 2048)));
  }
  return 0;
}
