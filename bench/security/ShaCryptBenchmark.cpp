// Measures sha512Crypt and sha256Crypt against the system's libcrypt, and
// the SHA-512 and SHA-256 digests against OpenSSL's EVP digests, then
// prints each own/reference time ratio (below 1: faster than the reference).
#include <benchmark/benchmark.h>
#include <crypt.h>
#include <openssl/evp.h>

#include <array>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "security/Sha256.h"
#include "security/Sha512.h"
#include "security/ShaCryptFunctions.h"

namespace {

using korvane::security::CryptFunction;

constexpr char kSalt[] = "0123456789abcdef";

std::string makeKey(std::size_t length) {
  std::string key(length, '\0');
  for (std::size_t i = 0; i < length; ++i) key[i] = static_cast<char>('!' + i % 90);
  return key;
}

void ownCrypt(benchmark::State& state, CryptFunction* crypt, std::size_t keyLength) {
  const std::string key = makeKey(keyLength);
  std::array<char, 124> buffer;
  for (auto _ : state) {
    benchmark::DoNotOptimize(crypt(key.data(), key.size(), kSalt, sizeof kSalt - 1, 5000, false,
                                   buffer.data(), buffer.size()));
    benchmark::ClobberMemory();
  }
}

void systemCrypt(benchmark::State& state, int tag, std::size_t keyLength) {
  const std::string key = makeKey(keyLength);
  std::string setting = "$";
  setting += std::to_string(tag);
  setting += '$';
  setting += kSalt;
  setting += '$';
  auto data = std::make_unique<crypt_data>();
  for (auto _ : state) {
    benchmark::DoNotOptimize(crypt_r(key.c_str(), setting.c_str(), data.get()));
    benchmark::ClobberMemory();
  }
}

template <typename Hash>
void ownDigest(benchmark::State& state, std::size_t length) {
  const std::string message = makeKey(length);
  typename Hash::Digest digest;
  for (auto _ : state) {
    Hash context;
    context.update(message);
    context.finish(digest);
    benchmark::DoNotOptimize(digest);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * length));
}

void opensslDigest(benchmark::State& state, const EVP_MD* md, std::size_t length) {
  const std::string message = makeKey(length);
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
  unsigned int digestLength = 0;
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  for (auto _ : state) {
    EVP_DigestInit_ex(context, md, nullptr);
    EVP_DigestUpdate(context, message.data(), message.size());
    EVP_DigestFinal_ex(context, digest.data(), &digestLength);
    benchmark::DoNotOptimize(digest);
  }
  EVP_MD_CTX_free(context);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * length));
}

// Keeps every run's time per iteration for the ratio table.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) times_[run.benchmark_name()] = run.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }
  const std::map<std::string, double>& times() const { return times_; }

 private:
  std::map<std::string, double> times_;
};

// Pairs of (own, reference) benchmark names.
std::vector<std::pair<std::string, std::string>> registerAll() {
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const std::size_t keyLength : {28, 64, 200}) {
    std::string suffix = "/key";
    suffix += std::to_string(keyLength);
    for (const int tag : {6, 5}) {
      const std::string scheme = tag == 6 ? "sha512Crypt" : "sha256Crypt";
      const std::string own = "own/" + scheme + suffix;
      const std::string reference = "libcrypt/" + scheme + suffix;
      benchmark::RegisterBenchmark(own.c_str(), ownCrypt,
                                   tag == 6 ? korvane::security::sha512Crypt
                                            : korvane::security::sha256Crypt,
                                   keyLength)
          ->Unit(benchmark::kMillisecond);
      benchmark::RegisterBenchmark(reference.c_str(), systemCrypt, tag, keyLength)
          ->Unit(benchmark::kMillisecond);
      pairs.emplace_back(own, reference);
    }
  }
  for (const std::size_t length : {128, 16384}) {
    std::string suffix = "/";
    suffix += std::to_string(length);
    benchmark::RegisterBenchmark(("own/sha512" + suffix).c_str(), ownDigest<korvane::security::Sha512>, length);
    benchmark::RegisterBenchmark(("openssl/sha512" + suffix).c_str(), opensslDigest, EVP_sha512(), length);
    benchmark::RegisterBenchmark(("own/sha256" + suffix).c_str(), ownDigest<korvane::security::Sha256>, length);
    benchmark::RegisterBenchmark(("openssl/sha256" + suffix).c_str(), opensslDigest, EVP_sha256(), length);
    pairs.emplace_back("own/sha512" + suffix, "openssl/sha512" + suffix);
    pairs.emplace_back("own/sha256" + suffix, "openssl/sha256" + suffix);
  }
  return pairs;
}

}  // namespace

int main(int argc, char** argv) {
  const auto pairs = registerAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();

  std::printf("\n%-28s %-30s %s\n", "own", "reference", "own/reference");
  for (const auto& [own, reference] : pairs) {
    const auto ownTime = reporter.times().find(own);
    const auto referenceTime = reporter.times().find(reference);
    if (ownTime == reporter.times().end() || referenceTime == reporter.times().end()) continue;
    std::printf("%-28s %-30s %.3f\n", own.c_str(), reference.c_str(),
                ownTime->second / referenceTime->second);
  }
  return 0;
}
