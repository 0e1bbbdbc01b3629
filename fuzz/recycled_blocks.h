// Large zero-filled blocks for the fuzz targets that make handles. Every
// handle callocs an 11.8 MB frame block; under AddressSanitizer mapping,
// poisoning and unmapping a block of that size takes over a millisecond, more
// than a whole sequence of small frames. The fuzz targets are linked with
// --wrap=calloc and --wrap=free, and every calloc of 1 MiB or more is served
// from a mapping kept for the process's life: freed, its pages are dropped
// (they read as zero again) and made inaccessible until the next calloc of
// that size, so a use after free still faults. The block ends where an
// inaccessible page begins and the bytes before it in its first page are
// poisoned, so a stray access on either side is reported as on the heap.
#ifndef VIDEOHDR_FUZZ_RECYCLED_BLOCKS_H
#define VIDEOHDR_FUZZ_RECYCLED_BLOCKS_H

namespace fuzz {

// LeakSanitizer does not see these mappings: a target calls this when it has
// destroyed everything, and a block still in use fails the run as a leak.
void expectNoRecycledBlockInUse();

}  // namespace fuzz

#endif  // VIDEOHDR_FUZZ_RECYCLED_BLOCKS_H
