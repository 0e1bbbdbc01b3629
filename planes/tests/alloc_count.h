// Counts the C allocator calls made from this test program's own objects and
// the library linked into it (the program is linked with --wrap for malloc,
// calloc and realloc).
#ifndef VIDEOHDR_PLANES_TESTS_ALLOC_COUNT_H
#define VIDEOHDR_PLANES_TESTS_ALLOC_COUNT_H

namespace alloc_count {
long allocations();
}

#endif  // VIDEOHDR_PLANES_TESTS_ALLOC_COUNT_H
