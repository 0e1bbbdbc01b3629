// Buffers for the plane-operation fuzz targets: each is one heap block of
// exactly the bytes a call may touch, so that AddressSanitizer reports the
// first byte read or written outside them. A plane may have bytes before it
// (a filter with a small border reads rows above its source); `plane()` points
// past them.
#ifndef VIDEOHDR_FUZZ_EXACT_BUFFER_H
#define VIDEOHDR_FUZZ_EXACT_BUFFER_H

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "kernels.h"

// The targets' own pixel loops: they compare sizes, not the fuzzer's input,
// so tracing them for coverage would only slow every run.
#define FUZZ_PIXEL_LOOP __attribute__((no_sanitize("coverage")))

namespace fuzz {

// Every kernel table instance the build has and this processor runs, the
// portable reference first.
inline const std::vector<const videohdr::Kernels *> kInstances = [] {
  std::vector<const videohdr::Kernels *> runnable;
  for (const auto &instance : videohdr::kKernelInstances)
    if (videohdr::processorRuns(instance.isa)) runnable.push_back(instance.kernels);
  return runnable;
}();

class ExactBuffer {
 public:
  ExactBuffer(size_t before, size_t bytes)
      : before_(before), size_(before + bytes), bytes_(new uint8_t[size_]) {}
  ExactBuffer(const ExactBuffer &other) : ExactBuffer(other.before_, other.size_ - other.before_) {
    std::memcpy(bytes_.get(), other.bytes_.get(), size_);
  }
  // Takes the other buffer's bytes; both must have the same layout.
  ExactBuffer &operator=(const ExactBuffer &other) {
    if (size_ != other.size_ || before_ != other.before_) std::abort();
    std::memcpy(bytes_.get(), other.bytes_.get(), size_);
    return *this;
  }

  uint8_t *plane() { return bytes_.get() + before_; }
  const uint8_t *plane() const { return bytes_.get() + before_; }
  size_t size() const { return size_; }
  bool operator==(const ExactBuffer &other) const {
    return size_ == other.size_ && std::memcmp(bytes_.get(), other.bytes_.get(), size_) == 0;
  }
  bool operator!=(const ExactBuffer &other) const { return !(*this == other); }
  uint8_t at(ptrdiff_t i) const { return bytes_[static_cast<size_t>(before_ + i)]; }

  // Random bytes from a seed the fuzzer picks, in one of a few textures:
  // noise, black and white, a constant, or noise held to a mask.
  FUZZ_PIXEL_LOOP void fill(FuzzedDataProvider &in) {
    uint32_t state = in.ConsumeIntegral<uint32_t>();
    const int mode = in.ConsumeIntegralInRange<int>(0, 3);
    const uint8_t mask = in.ConsumeIntegral<uint8_t>();
    for (size_t i = 0; i < size_; ++i) {
      state = state * 1664525u + 1013904223u;
      const uint8_t noise = static_cast<uint8_t>(state >> 24);
      bytes_[i] = mode == 0   ? noise
                  : mode == 1 ? static_cast<uint8_t>((state >> 31) * 255)
                  : mode == 2 ? mask
                              : static_cast<uint8_t>(noise & mask);
    }
  }

 private:
  size_t before_;
  size_t size_;
  std::unique_ptr<uint8_t[]> bytes_;
};

// A plane's byte count for signed dimensions: 0 when either is not positive.
inline size_t planeBytes(int64_t rows, int64_t pitch) {
  return rows > 0 && pitch > 0 ? static_cast<size_t>(rows * pitch) : 0;
}

// A fuzz finding that is not a sanitizer report: a wrong byte.
[[noreturn]] inline void fail(const char *what) {
  std::fprintf(stderr, "fuzz check failed: %s\n", what);
  std::abort();
}

}  // namespace fuzz

#endif  // VIDEOHDR_FUZZ_EXACT_BUFFER_H
