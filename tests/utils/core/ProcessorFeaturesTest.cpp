#include <gtest/gtest.h>

#include "utils/core/ProcessorFeatures.h"

namespace korvane::utils::core {
namespace {

#if (defined(__GNUC__) || defined(__clang__)) && defined(__x86_64__)

// The compiler's own processor checks, which the product does not use
// (they run at every start-up), are the reference here.
TEST(ProcessorFeaturesTest, AgreesWithTheCompilersProcessorChecks) {
  __builtin_cpu_init();
  const ProcessorFeatures& features = processorFeatures();
  EXPECT_EQ(features.ssse3, __builtin_cpu_supports("ssse3") != 0);
  EXPECT_EQ(features.sse41, __builtin_cpu_supports("sse4.1") != 0);
  EXPECT_EQ(features.avx2, __builtin_cpu_supports("avx2") != 0);
  EXPECT_EQ(features.bmi1, __builtin_cpu_supports("bmi") != 0);
  EXPECT_EQ(features.bmi2, __builtin_cpu_supports("bmi2") != 0);
  EXPECT_EQ(features.avx512f, __builtin_cpu_supports("avx512f") != 0);
  EXPECT_EQ(features.avx512vl, __builtin_cpu_supports("avx512vl") != 0);
  EXPECT_EQ(features.avx512bw, __builtin_cpu_supports("avx512bw") != 0);
#ifndef __clang__  // clang 16's check does not know "sha"
  EXPECT_EQ(features.sha, __builtin_cpu_supports("sha") != 0);
#endif
}

// The wider extensions imply the register state the narrower ones need.
TEST(ProcessorFeaturesTest, WiderExtensionsImplyTheNarrowerOnes) {
  const ProcessorFeatures& features = processorFeatures();
  EXPECT_TRUE(!features.avx512vl || features.avx512f);
  EXPECT_TRUE(!features.avx512bw || features.avx512f);
  EXPECT_TRUE(!features.avx512f || features.avx2);
}

#else

TEST(ProcessorFeaturesTest, NothingIsClaimedOnOtherProcessors) {
  const ProcessorFeatures& features = processorFeatures();
  EXPECT_FALSE(features.avx2 || features.bmi1 || features.bmi2 || features.avx512f || features.sha);
}

#endif

TEST(ProcessorFeaturesTest, IsAskedOnce) { EXPECT_EQ(&processorFeatures(), &processorFeatures()); }

}  // namespace
}  // namespace korvane::utils::core
