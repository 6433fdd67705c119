// Hashing on a thread whose whole stack is smaller than the key: any buffer
// sized by the key on the stack would overflow it.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <string>

#include "security/ShaCrypt.h"

namespace korvane::security {
namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KORVANE_UNDER_ADDRESS_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define KORVANE_UNDER_ADDRESS_SANITIZER 1
#endif

constexpr std::size_t keyLength = 16 * 1024;
#if defined(KORVANE_UNDER_ADDRESS_SANITIZER)
// The sanitizer pads every stack object with poisoned zones, which takes
// several times the stack; under it the check is a looser one.
constexpr std::size_t stackSize = 64 * 1024;
#else
constexpr std::size_t stackSize = 16 * 1024;
#endif

struct Job {
  std::string key;
  ShaCrypt::HashString result;
};

void* hashOnThread(void* argument) {
  auto* job = static_cast<Job*>(argument);
  job->result = ShaCrypt(6, 1000, "smallStack").hash(job->key);
  return nullptr;
}

TEST(ShaCryptPosixTest, LongKeyOnASmallStack) {
  Job job;
  job.key.resize(keyLength);
  for (std::size_t i = 0; i < keyLength; ++i) job.key[i] = static_cast<char>('a' + i % 26);

  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, stackSize), 0);
  pthread_t thread;
  const int created = pthread_create(&thread, &attributes, hashOnThread, &job);
  pthread_attr_destroy(&attributes);
  ASSERT_EQ(created, 0) << std::strerror(created);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);

  ASSERT_EQ(job.result.size(), 3U + 12U + 11U + 86U);
  EXPECT_EQ(job.result.view().substr(0, 26), "$6$rounds=1000$smallStack$");
  // The same key hashed on this thread's ordinary stack.
  EXPECT_EQ(job.result, ShaCrypt(6, 1000, "smallStack").hash(job.key));
}

}  // namespace
}  // namespace korvane::security
