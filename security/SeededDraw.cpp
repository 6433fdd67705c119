#include "security/SeededDraw.h"

#include <random>

#include "security/ImplementationList.h"
#include "utils/core/Processor.h"
#include "utils/core/ProcessorFeatures.h"

namespace korvane::security {

namespace {

// Each variant inlines the engine and the distribution with everything
// they call (flatten), so that their code is compiled for that variant: a
// shared out-of-line copy would serve all of them alike. Hence the two
// lines repeated.
[[gnu::flatten]] int drawPortable(std::uint32_t seed, int highest) noexcept {
  std::mt19937 engine(seed);
  return std::uniform_int_distribution<int>(0, highest)(engine);
}

#if KORVANE_X86_64_GNU

// An optimised GCC build vectorises the regeneration of the 624 words here.
#define KORVANE_SEEDED_DRAW_AVX2 __attribute__((target("avx2,bmi2"), flatten))

KORVANE_SEEDED_DRAW_AVX2 int drawAvx2(std::uint32_t seed, int highest) noexcept {
  std::mt19937 engine(seed);
  return std::uniform_int_distribution<int>(0, highest)(engine);
}

#undef KORVANE_SEEDED_DRAW_AVX2

#endif

using Supported = ImplementationList<SeededDrawImplementation, 2>;

Supported findSupported() noexcept {
  Supported supported;
#if KORVANE_X86_64_GNU
  const utils::core::ProcessorFeatures& processor = utils::core::processorFeatures();
  if (processor.avx2 && processor.bmi2) supported.add({"avx2", drawAvx2});
#endif
  supported.add({"portable", drawPortable});
  return supported;
}

}  // namespace

std::span<const SeededDrawImplementation> seededDrawImplementations() noexcept {
  static const Supported supported = findSupported();
  return supported.view();
}

const SeededDrawImplementation& seededDrawImplementation() noexcept {
  return seededDrawImplementations().front();
}

int seededDraw(std::uint32_t seed, int highest) noexcept {
  return seededDrawImplementation().draw(seed, highest);
}

}  // namespace korvane::security
