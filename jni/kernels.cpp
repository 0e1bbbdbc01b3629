// Which kernel instances this processor runs, and the choice of the one the
// library runs.
#include "kernels.h"

#if VIDEOHDR_HAVE_X86_SIMD
#include <cpuid.h>
#endif

namespace videohdr {

#if VIDEOHDR_HAVE_X86_SIMD
namespace {

// CPUID leaf 1, ECX.
constexpr unsigned kSsse3 = 1u << 9;
constexpr unsigned kSse41 = 1u << 19;
constexpr unsigned kPopcnt = 1u << 23;
constexpr unsigned kOsxsave = 1u << 27;
constexpr unsigned kAvx = 1u << 28;
// CPUID leaf 7, subleaf 0, EBX.
constexpr unsigned kBmi1 = 1u << 3;
constexpr unsigned kAvx2 = 1u << 5;
constexpr unsigned kBmi2 = 1u << 8;
// XCR0: the operating system saves the SSE and the AVX register state.
constexpr unsigned kXmmYmmState = 0x6;

bool hasAll(unsigned bits, unsigned wanted) { return (bits & wanted) == wanted; }

// The low word of XCR0; only called when OSXSAVE says XGETBV exists.
unsigned enabledRegisterState() {
  unsigned eax, edx;
  __asm__("xgetbv" : "=a"(eax), "=d"(edx) : "c"(0));
  return eax;
}

struct X86Features {
  bool sse41;
  bool avx2;
};

X86Features detectX86() {
  unsigned eax, ebx, ecx, edx;
  if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return {false, false};
  const unsigned leaf1 = ecx;
  X86Features f = {hasAll(leaf1, kSsse3 | kSse41), false};
  // AVX2 code needs the processor's support and the operating system's
  // consent to save the 256-bit registers on a context switch.
  if (!hasAll(leaf1, kPopcnt | kOsxsave | kAvx) || !hasAll(enabledRegisterState(), kXmmYmmState) ||
      !__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx))
    return f;
  f.avx2 = f.sse41 && hasAll(ebx, kAvx2 | kBmi1 | kBmi2);
  return f;
}

const X86Features &x86Features() {
  static const X86Features features = detectX86();
  return features;
}

const Kernels &chooseKernels() {
#if !defined(VIDEOHDR_X86_SIMD_MAX_SSE41)
  if (x86Features().avx2) return kAvx2Kernels;
#endif
  if (x86Features().sse41) return kSse41Kernels;
  return kPortableKernels;
}

}  // namespace

const Kernels &activeKernels() {
  static const Kernels &chosen = chooseKernels();
  return chosen;
}
#endif

bool processorRuns(InstructionSet isa) {
  switch (isa) {
#if VIDEOHDR_HAVE_X86_SIMD
    case InstructionSet::Sse41:
      return x86Features().sse41;
    case InstructionSet::Avx2:
      return x86Features().avx2;
#endif
    case InstructionSet::Portable:
      return true;
    case InstructionSet::Neon:
      return VIDEOHDR_HAVE_NEON;
    default:
      return false;
  }
}

}  // namespace videohdr
