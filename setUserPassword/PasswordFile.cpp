#include "setUserPassword/PasswordFile.h"

#include <functional>
#include <span>
#include <string>
#include <utility>

#include "setUserPassword/ConfigurationSearch.h"
#include "setUserPassword/ExactReader.h"
#include "setUserPassword/SkimReader.h"
#include "setUserPassword/TwoPassRead.h"
#include "utils/core/Format.h"
#include "utils/io/File.h"
#include "utils/io/Replacement.h"
#include "utils/json/decoder/Exception.h"
#include "utils/json/encoder/Document.h"

#ifndef KORVANE_SCHEMA_HOST
#error "KORVANE_SCHEMA_HOST must name the documentation host"
#endif

namespace korvane::setUserPassword {

namespace {

namespace decoder = utils::json::decoder;
namespace encoder = utils::json::encoder;
using utils::core::Uuid;
using utils::io::File;
using utils::io::ReplacedFile;
using utils::io::ReplacementTarget;

// Tells the names of one UUID's entries: the texts that Uuid::fromString
// reads as that UUID, which are its canonical text with any hex digit in
// either case. Compared byte by byte, most names differ in the first.
class EntryName {
 public:
  explicit EntryName(const Uuid& uuid) : text_(uuid.toString().view()) {}

  bool matches(std::string_view name) const noexcept {
    if (name.size() != text_.size()) return false;
    for (std::size_t i = 0; i < name.size(); ++i) {
      const char c = name[i];
      const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
      if (lower != text_[i]) return false;
    }
    return true;
  }

 private:
  std::string text_;  // lower case
};

// The file's rules, for both passes: one object whose members all have
// string values. Only checked, without `out`; with it, each member is
// written as it is read, `change` applied on the way.
template <typename Reader>
void passMembers(Reader& reader, const PasswordChange* change, utils::io::OutputStream<char>* out) {
  using Value = typename Reader::Value;
  if (change == nullptr || out == nullptr) {
    reader.readDocument([&](std::string_view, Value& value) { reader.skipString(value); });
    return;
  }
  constexpr auto escape =
      Reader::yieldsRawText ? encoder::Object::Escape::none : encoder::Object::Escape::needed;
  const EntryName entryName(change->uuid);
  encoder::Document document(std::ref(*out), encoder::Format::indented);
  encoder::Object object = document.asObject();
  bool found = false;
  // The name is written before the value is read, which may move what it
  // points into (the fast pass's window).
  reader.readDocument([&](std::string_view name, Value& value) {
    if (entryName.matches(name)) {
      if (change->hash && !found) object.add(name, *change->hash);
      found = true;
      reader.skipString(value);
      return;
    }
    object.beginMember(name, escape);
    reader.readStringPieces(value,
                            [&](std::string_view piece) { object.appendToValue(piece, escape); });
    object.endMember();
  });
  if (change->hash && !found) object.add(change->uuid.toString().view(), *change->hash);
}

// Copies `input` to `temporary` with `change` applied: the fast pass first,
// and where it gives up, the exact pass into a new temporary file.
SearchPass copyChanged(File input, const PasswordChange& change, utils::io::Replacement& temporary,
                       const std::filesystem::path& path) {
  return readSkimmingFirst(
      std::move(input),
      [&](const decoder::Skimmer::Reader& reader) {
        return PasswordFile::skim(reader, &change, &temporary);
      },
      [&](utils::io::InputStream<char>& stream) {
        temporary.restart();
        PasswordFile::readExactly(stream, path, &change, &temporary);
      });
}

}  // namespace

std::string_view PasswordFile::schemaUrl() noexcept {
  return "https://" KORVANE_SCHEMA_HOST "/korvane/schema-korvane-passwords.json";
}

const ReplacementTarget& PasswordFile::target() const {
  if (!target_) {
    target_ = std::make_shared<const ReplacementTarget>(
        resolveConfigurationPath(path_, passwordFileName));
  }
  return *target_;
}

SearchPass PasswordFile::check() const {
  std::optional<File> file = target().open(nullptr);
  if (!file) return SearchPass::skim;
  return readSkimmingFirst(
      std::move(*file), [](const decoder::Skimmer::Reader& reader) { return skim(reader); },
      [&](utils::io::InputStream<char>& stream) { readExactly(stream, path_); });
}

SearchPass PasswordFile::rewrite(const PasswordChange& change) const {
  const ReplacementTarget& file = target();
  ReplacedFile identity;
  std::optional<File> input = file.open(&identity);
  std::optional<ReplacedFile> replaced;
  if (input) replaced = std::move(identity);
  const bool reading = input.has_value();
  std::optional<utils::io::Replacement> temporary;
  SearchPass pass = SearchPass::skim;
  try {
    temporary.emplace(file, std::move(replaced));
    if (input) {
      pass = copyChanged(std::move(*input), change, *temporary, path_);
    } else {
      writeNewFile(change, *temporary);
    }
  } catch (...) {
    // A failure to create or write the temporary file: what is left of the
    // text is checked first, and an error there is the one reported, with
    // nothing written, as when the file is read whole before writing.
    // A failure to read it meanwhile leaves the first failure reported.
    if (reading && (!temporary || temporary->writingFailed())) {
      try {
        check();
      } catch (const decoder::Exception&) {
        if (temporary) temporary->discard();
        throw;
      } catch (...) {
      }
    }
    throw;
  }
  temporary->commit();
  return pass;
}

bool PasswordFile::skim(const decoder::Skimmer::Reader& reader, const PasswordChange* change,
                        utils::io::OutputStream<char>* out, std::size_t window) {
  decoder::Skimmer skimmer(reader, window);
  SkimReader skimReader(skimmer);
  return skimmer.attempt([&] { passMembers(skimReader, change, out); });
}

void PasswordFile::readExactly(utils::io::InputStream<char>& stream,
                               const std::filesystem::path& path, const PasswordChange* change,
                               utils::io::OutputStream<char>* out) {
  ExactReader reader(stream, path);
  passMembers(reader, change, out);
}

void PasswordFile::writeNewFile(const PasswordChange& change, utils::io::OutputStream<char>& out) {
  encoder::Document document(std::ref(out), encoder::Format::indented);
  encoder::Object object = document.asObject();
  object.add("$schema", schemaUrl());
  if (change.hash) object.add(change.uuid.toString().view(), *change.hash);
}

}  // namespace korvane::setUserPassword
