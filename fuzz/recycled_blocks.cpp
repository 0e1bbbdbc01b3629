#include "recycled_blocks.h"

#include <sanitizer/asan_interface.h>
#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

#include "exact_buffer.h"

extern "C" void *__real_calloc(size_t count, size_t bytes);
extern "C" void __real_free(void *p);

namespace {

constexpr size_t kPage = 4096;
constexpr size_t kSmallestRecycled = size_t{1} << 20;
constexpr size_t kAlignment = 16;  // what malloc guarantees on the hosts we fuzz on

size_t roundUp(size_t n, size_t to) { return (n + to - 1) / to * to; }

// One mapping: `pageBytes` of pages for the block, then one inaccessible page.
struct Slot {
  uint8_t *pages = nullptr;
  size_t pageBytes = 0;
  uint8_t *block = nullptr;  // the block handed out, null while free
};

// A handle under test and its reference make two blocks at a time.
Slot g_slots[8];

Slot *slotFor(size_t pageBytes) {
  Slot *unmapped = nullptr;
  for (Slot &s : g_slots) {
    if (s.pages && !s.block && s.pageBytes == pageBytes) return &s;
    if (!s.pages && !unmapped) unmapped = &s;
  }
  if (!unmapped) return nullptr;
  void *p = mmap(nullptr, pageBytes + kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE,
                 -1, 0);
  if (p == MAP_FAILED) return nullptr;
  *unmapped = {static_cast<uint8_t *>(p), pageBytes, nullptr};
  return unmapped;
}

void *takeBlock(size_t bytes) {
  Slot *s = slotFor(roundUp(bytes, kPage));
  if (!s || mprotect(s->pages, s->pageBytes, PROT_READ | PROT_WRITE) != 0) return nullptr;
  const size_t aligned = roundUp(bytes, kAlignment);
  s->block = s->pages + s->pageBytes - aligned;
  ASAN_POISON_MEMORY_REGION(s->pages, static_cast<size_t>(s->block - s->pages));
  ASAN_POISON_MEMORY_REGION(s->block + bytes, aligned - bytes);
  return s->block;
}

Slot *slotHolding(const void *p) {
  for (Slot &s : g_slots) {
    const auto *b = static_cast<const uint8_t *>(p);
    if (s.pages && b >= s.pages && b < s.pages + s.pageBytes) return &s;
  }
  return nullptr;
}

void releaseBlock(Slot *s, void *p) {
  if (p != s->block) fuzz::fail("free of a recycled block that is not in use, or not at its start");
  madvise(s->pages, s->pageBytes, MADV_DONTNEED);
  mprotect(s->pages, s->pageBytes, PROT_NONE);
  s->block = nullptr;
}

}  // namespace

extern "C" void *__wrap_calloc(size_t count, size_t bytes) {
  size_t total;
  if (__builtin_mul_overflow(count, bytes, &total) || total < kSmallestRecycled)
    return __real_calloc(count, bytes);
  void *block = takeBlock(total);
  return block ? block : __real_calloc(count, bytes);
}

extern "C" void __wrap_free(void *p) {
  if (Slot *s = p ? slotHolding(p) : nullptr)
    releaseBlock(s, p);
  else
    __real_free(p);
}

namespace fuzz {

void expectNoRecycledBlockInUse() {
  for (const Slot &s : g_slots)
    if (s.block) fail("a frame block was not freed");
}

}  // namespace fuzz
