#include "alloc_count.h"

#include <cstddef>

namespace {
long g_allocations = 0;
}

extern "C" {
void *__real_malloc(size_t bytes);
void *__real_calloc(size_t count, size_t bytes);
void *__real_realloc(void *p, size_t bytes);

void *__wrap_malloc(size_t bytes) {
  ++g_allocations;
  return __real_malloc(bytes);
}
void *__wrap_calloc(size_t count, size_t bytes) {
  ++g_allocations;
  return __real_calloc(count, bytes);
}
void *__wrap_realloc(void *p, size_t bytes) {
  ++g_allocations;
  return __real_realloc(p, bytes);
}
}  // extern "C"

long alloc_count::allocations() { return g_allocations; }
