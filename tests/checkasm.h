// Differential test harness: runs a kernel of every kernel table instance the
// build has and the processor runs (portable, NEON, SSE4.1, AVX2) on the same
// random inputs and compares every byte each leaves in its destinations with
// the portable reference's; the destinations are surrounded by guard bytes
// that must survive. In the spirit of dav1d's checkasm and libyuv's C-versus-SIMD unit
// tests.
#ifndef VIDEOHDR_TESTS_CHECKASM_H
#define VIDEOHDR_TESTS_CHECKASM_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kernels.h"

namespace checkasm {

// A table of `members` function pointers: each suite asserts it of the
// families it covers, so that a kernel added to a table cannot go untested.
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
  explicit Guarded(size_t size) : size_(size), bytes_(size + 2 * kGuardBytes, kGuardValue) {}
  uint8_t *data() { return bytes_.data() + kGuardBytes; }
  const uint8_t *data() const { return bytes_.data() + kGuardBytes; }
  size_t size() const { return size_; }
  void fillRandom(std::mt19937 &rng) {
    for (size_t i = 0; i < size_; ++i) data()[i] = static_cast<uint8_t>(rng());
  }
  std::vector<uint8_t> bytes() const { return std::vector<uint8_t>(data(), data() + size_); }
  bool guardsIntact() const {
    for (size_t i = 0; i < kGuardBytes; ++i)
      if (bytes_[i] != kGuardValue || bytes_[kGuardBytes + size_ + i] != kGuardValue) return false;
    return true;
  }

 private:
  size_t size_;
  std::vector<uint8_t> bytes_;
};

// The instances compared with the portable reference: every other one the
// build has and this processor runs (dav1d's checkasm loops over CPU flags
// the same way).
inline std::vector<const videohdr::KernelInstance *> testedInstances() {
  std::vector<const videohdr::KernelInstance *> tested;
  for (const auto &instance : videohdr::kKernelInstances)
    if (instance.isa != videohdr::InstructionSet::Portable && videohdr::processorRuns(instance.isa))
      tested.push_back(&instance);
  return tested;
}

using Run = std::function<void(const videohdr::Kernels &, std::vector<uint8_t *> &)>;

// Runs `run(kernels, outputs)` once for the portable instance and once for
// each tested one. Each run gets its own set of guarded destinations of the
// given sizes, all starting from the same random contents (so bytes a kernel
// must leave alone compare equal too). Expects identical destination bytes
// and intact guards; `what` names the case.
inline void expectVariantsMatch(const std::vector<size_t> &outputSizes, std::mt19937 &rng,
                                const Run &run, const std::string &what) {
  std::vector<Guarded> initial;
  for (size_t size : outputSizes) {
    initial.emplace_back(size);
    initial.back().fillRandom(rng);
  }
  auto runOn = [&](const videohdr::Kernels &kernels) {
    std::vector<Guarded> outs = initial;
    std::vector<uint8_t *> ptrs;
    for (auto &g : outs) ptrs.push_back(g.data());
    run(kernels, ptrs);
    return outs;
  };
  const std::vector<Guarded> reference = runOn(videohdr::kPortableKernels);
  for (size_t k = 0; k < outputSizes.size(); ++k)
    EXPECT_TRUE(reference[k].guardsIntact()) << what << ": portable wrote outside output " << k;
  for (const videohdr::KernelInstance *instance : testedInstances()) {
    const std::vector<Guarded> outs = runOn(*instance->kernels);
    for (size_t k = 0; k < outputSizes.size(); ++k) {
      EXPECT_EQ(reference[k].bytes(), outs[k].bytes())
          << what << ": " << instance->name << " output " << k;
      EXPECT_TRUE(outs[k].guardsIntact())
          << what << ": " << instance->name << " wrote outside output " << k;
    }
  }
}

// The same for a kernel that answers a value.
template <typename Result>
void expectSameResult(const std::function<Result(const videohdr::Kernels &)> &run,
                      const std::string &what) {
  const Result reference = run(videohdr::kPortableKernels);
  for (const videohdr::KernelInstance *instance : testedInstances())
    EXPECT_EQ(reference, run(*instance->kernels)) << what << ": " << instance->name;
}

// A case's name from its parts, separated by spaces.
template <typename... Parts>
std::string name(const Parts &...parts) {
  std::ostringstream s;
  ((s << parts << ' '), ...);
  return s.str();
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

inline std::vector<uint32_t> randomWords(size_t n, std::mt19937 &rng) {
  std::vector<uint32_t> v(n);
  for (uint32_t &word : v) word = rng();
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
