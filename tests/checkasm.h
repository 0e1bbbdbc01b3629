// Differential test harness: runs a kernel of both kernel table instances
// (portable and NEON) on the same random inputs and compares every byte they
// leave in their destinations, which are surrounded by guard bytes that must
// survive. In the spirit of dav1d's checkasm and libyuv's C-versus-SIMD unit
// tests.
#ifndef VIDEOHDR_TESTS_CHECKASM_H
#define VIDEOHDR_TESTS_CHECKASM_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "kernels.h"

namespace checkasm {

// Both instances, the reference first.
inline const videohdr::Kernels *const kInstances[2] = {&videohdr::kPortableKernels,
                                                       &videohdr::kNeonKernels};

// A table of `members` function pointers: the suites assert it of each
// family, so that a kernel added to a table cannot go without a case.
template <typename Table>
constexpr bool hasMembers(size_t members) {
  return sizeof(Table) == members * sizeof(void (*)());
}

constexpr size_t kGuardBytes = 64;
constexpr uint8_t kGuardValue = 0xA5;

// A byte buffer with guard zones on both sides. data() points past the front
// guard; everything in [data(), data() + size()) is the caller's.
class Guarded {
 public:
  explicit Guarded(size_t size, size_t guard = kGuardBytes)
      : size_(size), guard_(guard), bytes_(size + 2 * guard, kGuardValue) {}
  uint8_t *data() { return bytes_.data() + guard_; }
  const uint8_t *data() const { return bytes_.data() + guard_; }
  size_t size() const { return size_; }
  void fill(uint8_t value) { std::memset(data(), value, size_); }
  void fillRandom(std::mt19937 &rng) {
    for (size_t i = 0; i < size_; ++i) data()[i] = static_cast<uint8_t>(rng());
  }
  // Index of the first guard byte that changed, or -1 when both zones are intact.
  long firstDamagedGuard() const {
    for (size_t i = 0; i < guard_; ++i) {
      if (bytes_[i] != kGuardValue) return static_cast<long>(i);
      if (bytes_[guard_ + size_ + i] != kGuardValue) return static_cast<long>(guard_ + size_ + i);
    }
    return -1;
  }

 private:
  size_t size_;
  size_t guard_;
  std::vector<uint8_t> bytes_;
};

// Index of the first differing byte, or -1.
inline long firstDifference(const uint8_t *a, const uint8_t *b, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (a[i] != b[i]) return static_cast<long>(i);
  return -1;
}

// Runs `run(kernels, outputs)` once per instance. Each run gets its own set of
// guarded destinations of the given sizes, both sets starting from the same
// random contents (so bytes a kernel must leave alone compare equal too).
// Expects identical destination bytes and intact guards; `what` names the case.
inline void expectVariantsMatch(
    const std::vector<size_t> &outputSizes, std::mt19937 &rng,
    const std::function<void(const videohdr::Kernels &, std::vector<uint8_t *> &)> &run,
    const std::string &what) {
  std::vector<Guarded> outs[2];
  std::vector<uint8_t *> ptrs[2];
  for (size_t size : outputSizes) {
    outs[0].emplace_back(size);
    outs[0].back().fillRandom(rng);
    outs[1].emplace_back(size);
    std::memcpy(outs[1].back().data(), outs[0].back().data(), size);
  }
  for (int v = 0; v < 2; ++v) {
    for (auto &g : outs[v]) ptrs[v].push_back(g.data());
    run(*kInstances[v], ptrs[v]);
  }
  for (size_t k = 0; k < outputSizes.size(); ++k) {
    long diff = firstDifference(outs[0][k].data(), outs[1][k].data(), outputSizes[k]);
    EXPECT_EQ(diff, -1) << what << ": output " << k << " differs at byte " << diff << " (portable "
                        << int(diff >= 0 ? outs[0][k].data()[diff] : 0) << ", neon "
                        << int(diff >= 0 ? outs[1][k].data()[diff] : 0) << ")";
    EXPECT_EQ(outs[0][k].firstDamagedGuard(), -1)
        << what << ": portable wrote outside output " << k;
    EXPECT_EQ(outs[1][k].firstDamagedGuard(), -1) << what << ": neon wrote outside output " << k;
  }
}

// Random bytes, optionally biased towards a few values so that comparisons,
// clamps and equal-value ties are exercised as well as the general case.
inline std::vector<uint8_t> randomBytes(size_t n, std::mt19937 &rng, bool biased = false) {
  std::vector<uint8_t> v(n);
  for (auto &b : v) {
    uint32_t r = rng();
    b = biased && (r & 0x300) == 0 ? static_cast<uint8_t>((r & 3) * 85) : static_cast<uint8_t>(r);
  }
  return v;
}

// Widths to try: every value in [lo, lo + dense) and then a spread of random
// ones up to hi, so that every remainder modulo 8, 16 and 32 is covered.
inline std::vector<int> widthsToTry(int lo, int hi, std::mt19937 &rng, int dense = 40,
                                    int sparse = 12) {
  std::vector<int> w;
  for (int x = lo; x < lo + dense && x <= hi; ++x) w.push_back(x);
  std::uniform_int_distribution<int> pick(lo, hi);
  for (int i = 0; i < sparse; ++i) w.push_back(pick(rng));
  return w;
}

}  // namespace checkasm

#endif  // VIDEOHDR_TESTS_CHECKASM_H
