// A one-level alignment context that holds only the two bitmaps the candidate
// count compares: curBitmap[0] (the reference R) and movedBitmap[0] (S). Each is
// exactly h rows of (w + 63) >> 5 words in an allocation of its own, so a read
// past the last row is caught by AddressSanitizer.
#ifndef VIDEOHDR_TESTS_BITMAP_PAIR_H
#define VIDEOHDR_TESTS_BITMAP_PAIR_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "videohdr.h"

class BitmapPair {
 public:
  BitmapPair(int32_t w, int32_t h)
      : w_(w),
        h_(h),
        words_((w + 63) >> 5),
        pitch_(words_ * 4),
        cur_(size_t(h) * words_),
        moved_(size_t(h) * words_) {
    std::memset(&ctx_, 0, sizeof ctx_);
    ctx_.width = w;
    ctx_.height = h;
    ctx_.levels = 1;
    ctx_.searchStep = 2;
    ctx_.levelWidth = &w_;
    ctx_.levelHeight = &h_;
    ctx_.levelPitch = &pitch_;
    ctx_.levelDx = &dx_;
    ctx_.levelDy = &dy_;
    ctx_.curBitmap[0] = cur_.data();
    ctx_.movedBitmap[0] = moved_.data();
  }
  BitmapPair(const BitmapPair &) = delete;
  BitmapPair &operator=(const BitmapPair &) = delete;

  AlignContext *context() { return &ctx_; }
  int32_t width() const { return w_; }
  int32_t height() const { return h_; }
  int32_t words() const { return words_; }

  // Row y of the reference (R) and of the moved previous bitmap (S).
  uint32_t *cur(int32_t y) { return cur_.data() + size_t(y) * words_; }
  uint32_t *moved(int32_t y) { return moved_.data() + size_t(y) * words_; }
  const uint32_t *cur(int32_t y) const { return cur_.data() + size_t(y) * words_; }
  const uint32_t *moved(int32_t y) const { return moved_.data() + size_t(y) * words_; }

  // Random words everywhere, pad words and bits past the last pixel included.
  void fillRandom(std::mt19937 &rng) {
    for (auto &v : cur_) v = rng();
    for (auto &v : moved_) v = rng();
  }
  void clear() {
    std::fill(cur_.begin(), cur_.end(), 0u);
    std::fill(moved_.begin(), moved_.end(), 0u);
  }

  int32_t count(int32_t dy, int32_t dx) { return xorTwoPyramid_New(&ctx_, 0, 0, 0, dy, dx); }

 private:
  AlignContext ctx_;
  int32_t w_, h_, words_, pitch_;
  int32_t dx_ = 0, dy_ = 0;
  std::vector<uint32_t> cur_, moved_;
};

// Pixel x of a packed row: word x / 32, bit 31 - x % 32.
inline int bitAt(const uint32_t *row, int32_t x) { return (row[x >> 5] >> (31 - (x & 31))) & 1; }
inline void setBit(uint32_t *row, int32_t x) { row[x >> 5] |= 0x80000000u >> (x & 31); }

#endif  // VIDEOHDR_TESTS_BITMAP_PAIR_H
