#include "utils/core/ProcessorFeatures.h"

#include <cstdint>

#include "utils/core/Processor.h"

// glibc's header (2.33 and later: CPU_FEATURE_ACTIVE) is written for C
// and uses _Bool, which GCC accepts in C++ and clang, in strict C++, does
// not; clang builds ask the processor themselves.
#if KORVANE_X86_64_GNU && !defined(__clang__) && defined(__has_include)
#if __has_include(<sys/platform/x86.h>)
#include <sys/platform/x86.h>
#ifdef CPU_FEATURE_ACTIVE
#define KORVANE_X86_GLIBC_TABLE 1
#endif
#endif
#endif
#ifndef KORVANE_X86_GLIBC_TABLE
#define KORVANE_X86_GLIBC_TABLE 0
#endif

#if KORVANE_X86_64_GNU && !KORVANE_X86_GLIBC_TABLE
#include <cpuid.h>
#define KORVANE_X86_CPUID 1
#else
#define KORVANE_X86_CPUID 0
#endif

namespace korvane::utils::core {

namespace {

#if KORVANE_X86_GLIBC_TABLE

// The C library's dynamic loader has asked the processor and the system
// already, before the program started; reading its table costs no CPUID.
// "Active" means usable: the system saves the registers' state. glibc may
// also switch a feature off (GLIBC_TUNABLES), which is then off here too;
// AVX-512 is taken only together with AVX2, as the variants built for it
// use both.
ProcessorFeatures detect() noexcept {
  ProcessorFeatures features;
  features.ssse3 = CPU_FEATURE_ACTIVE(SSSE3);
  features.sse41 = CPU_FEATURE_ACTIVE(SSE4_1);
  features.avx2 = CPU_FEATURE_ACTIVE(AVX2);
  features.bmi1 = CPU_FEATURE_ACTIVE(BMI1);
  features.bmi2 = CPU_FEATURE_ACTIVE(BMI2);
  features.avx512f = features.avx2 && CPU_FEATURE_ACTIVE(AVX512F);
  features.avx512vl = features.avx512f && CPU_FEATURE_ACTIVE(AVX512VL);
  features.avx512bw = features.avx512f && CPU_FEATURE_ACTIVE(AVX512BW);
  features.sha = CPU_FEATURE_ACTIVE(SHA);
  return features;
}

#elif KORVANE_X86_CPUID

constexpr bool bit(unsigned word, unsigned index) noexcept { return (word >> index & 1U) != 0; }

// The register state the system saves on a context switch (XCR0).
std::uint64_t savedRegisterState() noexcept {
  unsigned low = 0;
  unsigned high = 0;
  __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return static_cast<std::uint64_t>(high) << 32 | low;
}

ProcessorFeatures detect() noexcept {
  ProcessorFeatures features;
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0) return features;
  features.ssse3 = bit(ecx, 9);
  features.sse41 = bit(ecx, 19);
  // The XMM and YMM state (bits 1 and 2), and for AVX-512 also the opmask
  // and the upper ZMM state (bits 5 to 7), must be saved by the system.
  // XGETBV exists only where the system enabled it (OSXSAVE, bit 27).
  const std::uint64_t saved = bit(ecx, 27) ? savedRegisterState() : 0;
  const bool avxState = bit(ecx, 28) && (saved & 0x06) == 0x06;
  const bool avx512State = avxState && (saved & 0xE6) == 0xE6;
  if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0) return features;
  features.avx2 = avxState && bit(ebx, 5);
  features.bmi1 = bit(ebx, 3);
  features.bmi2 = bit(ebx, 8);
  features.avx512f = avx512State && bit(ebx, 16);
  features.avx512vl = features.avx512f && bit(ebx, 31);
  features.avx512bw = features.avx512f && bit(ebx, 30);
  features.sha = bit(ebx, 29);
  return features;
}

#else

ProcessorFeatures detect() noexcept { return {}; }

#endif

}  // namespace

const ProcessorFeatures& processorFeatures() noexcept {
  static const ProcessorFeatures features = detect();
  return features;
}

}  // namespace korvane::utils::core
