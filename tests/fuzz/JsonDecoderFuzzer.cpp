// Fuzz target for the JSON decoder. Every input is walked several ways:
// by skipping, through the typed views (with a one-byte and a large stream
// buffer), and in a walk that reads UUIDs, moves names out and abandons
// views half-read. The scan kernels of every level are compared too: the
// plain ones on the whole input against the SSE2 and AVX2 ones on the input
// split at a point chosen from it. Decoder errors are expected; anything else (a crash, a
// std::logic_error from a correct walk, or two walks that disagree) is a
// finding.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/utils/json/MemoryStreams.h"
#include "tests/utils/json/Walk.h"
#include "utils/json/ScanKernels.h"
#include "utils/json/decoder/Document.h"

namespace {

using korvane::utils::json::decoder::Document;
using korvane::utils::json::decoder::Exception;
using korvane::utils::json::decoder::Kind;
using korvane::utils::json::decoder::Member;
using korvane::utils::json::decoder::Value;
using korvane::utils::json::detail::bestScanLevel;
using korvane::utils::json::detail::ScanLevel;
using korvane::utils::json::detail::setScanLevel;
using korvane::utils::json::test::MemoryInputStream;
using korvane::utils::json::test::SplitInputStream;

template <typename Walk>
std::string outcomeOf(korvane::utils::io::InputStream<char>& stream, Walk walk) {
  Document document(stream, "fuzz.json");
  try {
    walk(document);
  } catch (const Exception& error) {
    // Sticky: the same error again.
    try {
      document.finish();
    } catch (const Exception& again) {
      if (std::string(again.what()) != error.what()) std::abort();
      return std::string("error: ") + error.what();
    }
    std::abort();
  }
  return "ok";
}

template <typename Walk>
std::string outcome(const std::string& text, std::size_t bufferSize, Walk walk) {
  MemoryInputStream stream(text, bufferSize);
  return outcomeOf(stream, walk);
}

// The typed walk and the skipping walk at `level`, the input split at `split`.
std::string levelOutcome(const std::string& text, ScanLevel level, std::size_t split) {
  const ScanLevel previous = setScanLevel(level);
  using korvane::utils::json::test::walkSkipping;
  using korvane::utils::json::test::walkTyped;
  SplitInputStream typedStream(text, split);
  std::string result = outcomeOf(typedStream, [](Document& d) { walkTyped(d, true); });
  SplitInputStream skippedStream(text, split);
  result += "\n" + outcomeOf(skippedStream, [](Document& d) { walkSkipping(d); });
  setScanLevel(previous);
  return result;
}

void compareLevels(const std::string& text) {
  const std::string plain = levelOutcome(text, ScanLevel::plain, text.size());
  const std::size_t split =
      text.empty()
          ? 0
          : (static_cast<unsigned char>(text.back()) * 131u + text.size()) % (text.size() + 1);
  for (const ScanLevel level : {ScanLevel::sse2, ScanLevel::avx2}) {
    if (level > bestScanLevel()) continue;
    const std::string fast = levelOutcome(text, level, split);
    if (fast != plain) {
      std::fprintf(stderr, "levels disagree (level %d, split %zu):\n  %s\n  %s\n",
                   static_cast<int>(level), split, plain.c_str(), fast.c_str());
      std::abort();
    }
  }
}

// Reads what it can in unusual ways; only decoder errors may escape.
void wanderValue(Value& value, int& budget) {
  if (--budget < 0) return;
  switch (value.kind()) {
    case Kind::object: {
      auto object = value.asObject();
      int index = 0;
      for (Member& member : object) {
        std::string name = std::move(member.name());
        if (name.size() == 36) {
          try {
            member.value().toUuid();
          } catch (const Exception&) {
            throw;
          }
        } else if (++index % 3 == 0) {
          break;  // abandon the rest of the object
        } else {
          wanderValue(member.value(), budget);
        }
      }
      break;
    }
    case Kind::array: {
      int index = 0;
      for (Value& element : value.asArray()) {
        if (++index % 4 == 0) continue;  // left unread: skipped by the walk
        wanderValue(element, budget);
      }
      break;
    }
    case Kind::string: {
      auto text = value.asString();
      int count = 0;
      for (const char c : text) {
        if (++count > 5 && c == 'x') break;  // abandoned half-read
      }
      break;
    }
    default:
      value.skip();
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  using korvane::utils::json::test::walkSkipping;
  using korvane::utils::json::test::walkTyped;

  const std::string skipped = outcome(text, 4096, [](Document& d) { walkSkipping(d); });
  const std::string skippedSmall = outcome(text, 1, [](Document& d) { walkSkipping(d); });
  const std::string typed = outcome(text, 4096, [](Document& d) { walkTyped(d); });
  const std::string typedSmall = outcome(text, 3, [](Document& d) { walkTyped(d); });
  const std::string typedRuns = outcome(text, 2, [](Document& d) { walkTyped(d, true); });
  // Member names over 64 KiB are refused only when they are read.
  const bool comparable = size < 60000;
  if (skipped != skippedSmall || typed != typedSmall || typed != typedRuns ||
      (comparable && skipped != typed)) {
    std::fprintf(stderr, "walks disagree:\n  %s\n  %s\n  %s\n  %s\n", skipped.c_str(),
                 skippedSmall.c_str(), typed.c_str(), typedSmall.c_str());
    std::abort();
  }

  compareLevels(text);

  outcome(text, 2, [](Document& d) {
    int budget = 10000;
    wanderValue(d.root(), budget);
    d.finish();
  });
  return 0;
}
