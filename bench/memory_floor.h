// The memory floor the per-frame call is judged against: the least traffic a
// two-frame fusion could make (read three frames, write one), and a plain
// copy of a frame, both over a pool of frames too large for the last-level
// cache, so that every pass reads from and writes to memory as a camera's
// freshly delivered frame would.
#ifndef VIDEOHDR_BENCH_MEMORY_FLOOR_H
#define VIDEOHDR_BENCH_MEMORY_FLOOR_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace videohdr_bench {

// out = a ^ b ^ c, 16 bytes per step (one load per input and one store per
// output byte, nothing more); n is a multiple of 16.
void readThreeWriteOne(const uint8_t *a, const uint8_t *b, const uint8_t *c, uint8_t *out,
                       size_t n);

// Largest cache of the machine in bytes (32 MiB when it cannot be found).
size_t lastLevelCacheBytes();

// `count` buffers of `bytes` bytes each (count chosen so that together they
// are at least four times the last-level cache and a multiple of four), with
// their pages touched. Passes that use buffer i, i + 1, ... in turn find each
// one evicted since its last use.
class BufferPool {
 public:
  explicit BufferPool(size_t bytes);
  size_t count() const { return buffers_.size(); }
  size_t bytes() const { return bytes_; }
  uint8_t *operator[](size_t i) { return buffers_[i % buffers_.size()].data(); }

 private:
  size_t bytes_;
  std::vector<std::vector<uint8_t>> buffers_;
};

// The run's pool of buffers of `bytes` bytes, made on first use. Benchmarks
// share pools (each one is several times the last-level cache); `role` keeps
// apart the pools of one size that a benchmark uses at the same time (its
// inputs and its outputs).
BufferPool &sharedPool(size_t bytes, int role = 0);

}  // namespace videohdr_bench

#endif  // VIDEOHDR_BENCH_MEMORY_FLOOR_H
