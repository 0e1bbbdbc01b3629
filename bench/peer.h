// A peer that does the same job with a general-purpose library, for scale:
// built with OpenCV's photo module when the machine has it, absent otherwise.
#ifndef VIDEOHDR_BENCH_PEER_H
#define VIDEOHDR_BENCH_PEER_H

#include <benchmark/benchmark.h>

#include <cstdint>

namespace videohdr_bench {

// Fuses one bright/dark pair of the handheld scene per iteration.
using PeerFunction = void (*)(benchmark::State &, int32_t width, int32_t height);

// Null when the build has no peer.
PeerFunction peerBenchmark();
const char *peerName();

}  // namespace videohdr_bench

#endif  // VIDEOHDR_BENCH_PEER_H
