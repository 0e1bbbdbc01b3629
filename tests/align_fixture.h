// An alignment context of a given size, built the way the first frame builds
// it, and its workspace carved from two black frames.
#ifndef VIDEOHDR_TESTS_ALIGN_FIXTURE_H
#define VIDEOHDR_TESTS_ALIGN_FIXTURE_H

#include <cstdint>
#include <cstring>
#include <vector>

#include "videohdr.h"

class AlignFixture {
 public:
  AlignFixture(int32_t width, int32_t height) {
    std::memset(&handle_, 0, sizeof handle_);
    handle_.width = width;
    handle_.height = height;
    handle_.stride = width;
    AllocAlignHandleParams(&handle_);
    load(std::vector<uint8_t>(size_t(width) * height, 0),
         std::vector<uint8_t>(size_t(width) * height, 0));
  }
  ~AlignFixture() { ReleaseAlignHandleParams(&handle_); }
  AlignFixture(const AlignFixture &) = delete;
  AlignFixture &operator=(const AlignFixture &) = delete;

  AlignContext *context() { return handle_.alignContext; }
  VideoHdrHandle *handle() { return &handle_; }
  int32_t width() const { return handle_.width; }
  int32_t height() const { return handle_.height; }

  // Loads w * h luma bytes of each frame into the workspace (InitPara).
  void load(const std::vector<uint8_t> &prevLuma, const std::vector<uint8_t> &curLuma) {
    InitPara(context(), prevLuma.data(), curLuma.data());
  }

 private:
  VideoHdrHandle handle_;
};

#endif  // VIDEOHDR_TESTS_ALIGN_FIXTURE_H
