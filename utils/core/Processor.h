// The one compile-time check of the processor the program is built for,
// used by every piece of code that has an x86-64 variant of itself:
//   KORVANE_X86_64      1 on x86-64 (GCC, clang or MSVC), where SSE2 is
//                       always there; 0 elsewhere.
//   KORVANE_X86_64_GNU  1 on x86-64 with GCC or clang, whose target
//                       attributes the variants chosen at run time (see
//                       ProcessorFeatures.h) need; 0 elsewhere.
//
// Thread safety: constants.
#pragma once

#if defined(__x86_64__) || defined(_M_X64)
#define KORVANE_X86_64 1
#else
#define KORVANE_X86_64 0
#endif

#if KORVANE_X86_64 && (defined(__GNUC__) || defined(__clang__))
#define KORVANE_X86_64_GNU 1
#else
#define KORVANE_X86_64_GNU 0
#endif
