// ProcessorFeatures: the instruction set extensions this processor offers
// and the operating system lets programs use, asked once, for the code
// that picks a faster variant of itself at run time (the SHA-2
// compressions, the JSON scan kernels).
//
// Not through the compiler's processor checks: those fill a table of every
// feature at program start-up, a few dozen CPUID instructions that each
// leave a virtual machine (microseconds apiece), for every run of the
// program whether or not it hashes anything. Where the C library keeps the
// table its dynamic loader filled (glibc, in GCC builds), that table is
// read, at no cost; elsewhere the processor is asked directly with CPUID
// (three leaves) and XGETBV. On other processors every feature is false.
//
// Thread safety: processorFeatures() may be called from any thread.
#pragma once

namespace korvane::utils::core {

struct ProcessorFeatures {
  bool ssse3 = false;
  bool sse41 = false;
  bool avx2 = false;  // with the vector registers' state saved by the system
  bool bmi1 = false;
  bool bmi2 = false;
  bool avx512f = false;  // likewise for the 512-bit registers
  bool avx512vl = false;
  bool avx512bw = false;
  bool sha = false;  // the SHA-1/SHA-256 instructions
};

// The features of this processor, found on the first call.
const ProcessorFeatures& processorFeatures() noexcept;

}  // namespace korvane::utils::core
