#include "memory_floor.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <utility>

namespace videohdr_bench {
namespace {

typedef uint8_t Bytes16 __attribute__((vector_size(16)));

Bytes16 load16(const uint8_t *p) {
  Bytes16 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

}  // namespace

void readThreeWriteOne(const uint8_t *a, const uint8_t *b, const uint8_t *c, uint8_t *out,
                       size_t n) {
  for (size_t i = 0; i < n; i += 16) {
    Bytes16 v = load16(a + i) ^ load16(b + i) ^ load16(c + i);
    std::memcpy(out + i, &v, sizeof v);
  }
}

size_t lastLevelCacheBytes() {
  long best = 0;
#ifdef _SC_LEVEL3_CACHE_SIZE
  best = std::max({sysconf(_SC_LEVEL1_DCACHE_SIZE), sysconf(_SC_LEVEL2_CACHE_SIZE),
                   sysconf(_SC_LEVEL3_CACHE_SIZE), sysconf(_SC_LEVEL4_CACHE_SIZE)});
#endif
  return best > 0 ? static_cast<size_t>(best) : size_t{32} << 20;
}

BufferPool::BufferPool(size_t bytes) : bytes_(bytes) {
  size_t count = (4 * lastLevelCacheBytes() + bytes - 1) / bytes;
  count = std::max<size_t>(8, (count + 3) & ~size_t{3});
  buffers_.resize(count);
  for (size_t i = 0; i < count; ++i) buffers_[i].assign(bytes, static_cast<uint8_t>(i * 37 + 1));
}

BufferPool &sharedPool(size_t bytes, int role) {
  static std::map<std::pair<size_t, int>, std::unique_ptr<BufferPool>> pools;
  auto &p = pools[{bytes, role}];
  if (!p) p = std::make_unique<BufferPool>(bytes);
  return *p;
}

}  // namespace videohdr_bench
