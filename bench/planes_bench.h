// The camera-plane entry point at full size: in place, on padded rows, and
// from read-only camera planes into encoder layouts (the recording path).
#ifndef VIDEOHDR_BENCH_PLANES_BENCH_H
#define VIDEOHDR_BENCH_PLANES_BENCH_H

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace videohdr_bench {

// The cases' names, in the order planesCase takes their indexes.
std::vector<const char *> planesCaseNames();

// Case `index` on the handheld scene at width x height.
void planesCase(benchmark::State &state, int32_t width, int32_t height, size_t index);

}  // namespace videohdr_bench

#endif  // VIDEOHDR_BENCH_PLANES_BENCH_H
