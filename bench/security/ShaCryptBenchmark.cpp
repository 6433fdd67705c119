// Measures sha512Crypt and sha256Crypt against the system's libcrypt and
// sha512Crypt against its floor (OpensslSha512Crypt: OpenSSL's SHA-512
// compression on a round loop whose blocks are padded once), and the
// SHA-512 and SHA-256 digests against OpenSSL's EVP digests.
//
// The "own/..", "libcrypt/..", "floor/.." and "openssl/.." benchmarks give
// the usual times. The "ratio/.." benchmarks run the own and the reference
// code in turn within each iteration, each as a batch of calls lasting a few
// milliseconds, and keep the least time per call of each; their ratio
// (below 1: faster than the reference) is printed at the end next to the
// goal set for it. Alternating and taking the least keeps the comparison
// fair on a machine with other load: a batch that was interrupted or slowed
// down is simply not the least.
#include <benchmark/benchmark.h>
#include <crypt.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/security/OpensslSha512Crypt.h"
#include "security/Sha256.h"
#include "security/Sha512.h"
#include "security/ShaCryptFunctions.h"

namespace {

using korvane::security::CryptFunction;

constexpr char salt[] = "0123456789abcdef";
constexpr std::size_t rounds = 5000;

std::string makeKey(std::size_t length) {
  std::string key(length, '\0');
  for (std::size_t i = 0; i < length; ++i) key[i] = static_cast<char>('!' + i % 90);
  return key;
}

double nowNanoseconds() {
  return std::chrono::duration<double, std::nano>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// The calls under comparison, each a self-contained closure, and how many
// calls make one timed batch.
// `goal` is the greatest ratio aimed at, 0 for none.
struct Subject {
  std::function<void()> own;
  std::function<void()> reference;
  int batch = 1;
  double goal = 0;
};

Subject cryptSubject(int tag, std::size_t keyLength) {
  auto key = std::make_shared<std::string>(makeKey(keyLength));
  auto setting = std::make_shared<std::string>("$");
  *setting += std::to_string(tag);
  *setting += '$';
  *setting += salt;
  *setting += '$';
  auto data = std::make_shared<crypt_data>();
  CryptFunction* crypt = tag == 6 ? korvane::security::sha512Crypt : korvane::security::sha256Crypt;
  return {[key, crypt] {
            std::array<char, 124> buffer;
            benchmark::DoNotOptimize(crypt(key->data(), key->size(), salt, sizeof salt - 1, rounds,
                                           false, buffer.data(), buffer.size()));
            benchmark::ClobberMemory();
          },
          [key, setting, data] {
            benchmark::DoNotOptimize(crypt_r(key->c_str(), setting->c_str(), data.get()));
            benchmark::ClobberMemory();
          },
          1, tag == 5 ? 0.5 : 0};
}

// sha512Crypt against its floor; the floor's hash string is checked
// against sha512Crypt's before anything is timed.
Subject floorSubject(std::size_t keyLength) {
  auto key = std::make_shared<std::string>(makeKey(keyLength));
  auto floor = std::make_shared<korvane::bench::OpensslSha512Crypt>(*key, salt, rounds);
  std::array<char, 124> buffer;
  const char* own = korvane::security::sha512Crypt(key->data(), key->size(), salt, sizeof salt - 1,
                                                   rounds, false, buffer.data(), buffer.size());
  if (own == nullptr || floor->hash() != own) {
    std::fprintf(stderr, "the floor's hash differs from sha512Crypt's for a %zu-byte key\n",
                 keyLength);
    std::exit(1);
  }
  return {[key] {
            std::array<char, 124> result;
            benchmark::DoNotOptimize(korvane::security::sha512Crypt(key->data(), key->size(), salt,
                                                                    sizeof salt - 1, rounds, false,
                                                                    result.data(), result.size()));
            benchmark::ClobberMemory();
          },
          [floor] {
            benchmark::DoNotOptimize(floor->hash().data());
            benchmark::ClobberMemory();
          },
          1, 1.05};
}

template <typename Hash>
Subject digestSubject(const EVP_MD* md, std::size_t length, double goal) {
  auto message = std::make_shared<std::string>(makeKey(length));
  return {[message] {
            Hash context;
            context.update(*message);
            typename Hash::Digest digest;
            context.finish(digest);
            benchmark::DoNotOptimize(digest);
          },
          [message, md] {
            std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
            unsigned int digestLength = 0;
            EVP_Digest(message->data(), message->size(), digest.data(), &digestLength, md, nullptr);
            benchmark::DoNotOptimize(digest);
          },
          // About two milliseconds a batch.
          static_cast<int>(std::max<std::size_t>(1, 4000000 / (length + 1000))), goal};
}

void runOwn(benchmark::State& state, const Subject& subject, std::size_t bytes) {
  for (auto _ : state) subject.own();
  if (bytes > 0) state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void runReference(benchmark::State& state, const Subject& subject, std::size_t bytes) {
  for (auto _ : state) subject.reference();
  if (bytes > 0) state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void runPaired(benchmark::State& state, const Subject& subject) {
  state.counters["goal"] = subject.goal;
  double ownLeast = std::numeric_limits<double>::infinity();
  double referenceLeast = ownLeast;
  for (auto _ : state) {
    const double start = nowNanoseconds();
    for (int i = 0; i < subject.batch; ++i) subject.own();
    const double middle = nowNanoseconds();
    for (int i = 0; i < subject.batch; ++i) subject.reference();
    const double end = nowNanoseconds();
    ownLeast = std::min(ownLeast, (middle - start) / subject.batch);
    referenceLeast = std::min(referenceLeast, (end - middle) / subject.batch);
  }
  state.counters["own_us"] = ownLeast / 1e3;
  state.counters["reference_us"] = referenceLeast / 1e3;
  state.counters["ratio"] = ownLeast / referenceLeast;
}

// Collects the ratio counters for the table at the end.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const auto ratio = run.counters.find("ratio");
      if (ratio == run.counters.end()) continue;
      rows_.push_back({run.run_name.function_name, run.counters.at("own_us").value,
                       run.counters.at("reference_us").value, ratio->second.value,
                       run.counters.at("goal").value});
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void printTable() const {
    std::printf("\nleast time per call, own and reference alternating:\n");
    std::printf("%-40s %14s %14s %8s %8s\n", "comparison", "own (us)", "reference (us)", "ratio",
                "goal");
    for (const Row& row : rows_) {
      std::printf("%-40s %14.1f %14.1f %8.3f", row.name.c_str(), row.own, row.reference, row.ratio);
      if (row.goal > 0) {
        std::printf(" %s %5.2f %s", row.goal < 1 ? "< " : "<=", row.goal,
                    row.ratio <= row.goal ? "met" : "not met");
      }
      std::printf("\n");
    }
  }

 private:
  struct Row {
    std::string name;
    double own;
    double reference;
    double ratio;
    double goal;
  };
  std::vector<Row> rows_;
};

void registerSubject(const std::string& name, const std::string& referenceName,
                     const Subject& subject, std::size_t bytes, benchmark::TimeUnit unit,
                     bool timeOwn = true) {
  if (timeOwn) {
    benchmark::RegisterBenchmark(("own/" + name).c_str(), runOwn, subject, bytes)->Unit(unit);
  }
  benchmark::RegisterBenchmark((referenceName + "/" + name).c_str(), runReference, subject, bytes)
      ->Unit(unit);
  benchmark::RegisterBenchmark(("ratio/" + name + "/" + referenceName).c_str(), runPaired, subject)
      ->Unit(unit)
      ->MinTime(3.0);
}

void registerAll() {
  for (const std::size_t keyLength : {28U, 64U, 200U}) {
    for (const int tag : {6, 5}) {
      std::string name = tag == 6 ? "sha512Crypt/key" : "sha256Crypt/key";
      name += std::to_string(keyLength);
      registerSubject(name, "libcrypt", cryptSubject(tag, keyLength), 0, benchmark::kMillisecond);
      if (tag == 6) {
        registerSubject(name, "floor", floorSubject(keyLength), 0, benchmark::kMillisecond, false);
      }
    }
  }
  for (const std::size_t length : {128U, 16384U}) {
    const std::string size = std::to_string(length);
    registerSubject(
        "sha512/" + size, "openssl",
        digestSubject<korvane::security::Sha512>(EVP_sha512(), length, length > 128 ? 1.05 : 0),
        length, benchmark::kMicrosecond);
    registerSubject(
        "sha256/" + size, "openssl",
        digestSubject<korvane::security::Sha256>(EVP_sha256(), length, length > 128 ? 1.25 : 0),
        length, benchmark::kMicrosecond);
  }
}

}  // namespace

int main(int argc, char** argv) {
  registerAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  reporter.printTable();
  return 0;
}
