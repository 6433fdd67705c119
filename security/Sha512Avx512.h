// The SHA-512 compression for x86-64 processors with AVX-512 (F, VL and
// BW), BMI1 and BMI2, written as inline assembly: with compiled rounds the
// compiler's choice of registers and order left it 4 to 8% slower than the
// same instructions laid out by hand, and which rounds it spilled changed
// with unrelated code. Sha512.cpp offers it where the processor has these
// extensions (KORVANE_SHA512_AVX512_ASSEMBLY is 1 where it is built: GCC
// or clang on x86-64).
//
// Internal to the security library. Thread safety: reentrant; each call
// uses only its arguments.
#pragma once

#include <cstddef>

#include "security/Sha512.h"
#include "utils/core/Processor.h"

#define KORVANE_SHA512_AVX512_ASSEMBLY KORVANE_X86_64_GNU

namespace korvane::security {

#if KORVANE_SHA512_AVX512_ASSEMBLY

// Folds `blockCount` whole blocks into `state`, two at a time (both
// schedules expanded together) and a last odd one alone. `scratch` holds
// Sha512Traits::scratchWords words, 64-byte aligned; it is left holding
// schedule words, which the caller wipes.
// REQUIRES: the processor has AVX-512 F, VL and BW, BMI1 and BMI2.
void compressBlocksAvx512(Sha512::State& state, const unsigned char* blocks, std::size_t blockCount,
                          Sha512Traits::Word* scratch) noexcept;

#endif

}  // namespace korvane::security
