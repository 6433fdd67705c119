#include "setUserPassword/PasswordFile.h"

#include <exception>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "setUserPassword/ConfigurationSearch.h"
#include "utils/core/Format.h"
#include "utils/io/File.h"
#include "utils/io/FileInputStream.h"
#include "utils/io/Replacement.h"
#include "utils/json/decoder/Document.h"
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

// Writes the new file's members as the old file's are read, with the one
// change applied. A failure to write ends the writing and is kept, to be
// thrown once the text has been read to its end. The closing brace is
// written when the object goes away; a failure then is kept by the stream
// for its flush().
class ChangedCopy {
 public:
  // The opening brace goes into the stream's empty buffer: it cannot fail.
  ChangedCopy(const PasswordChange& change, utils::io::OutputStream<char>& out)
      : change_(change),
        out_(out),
        entryName_(change.uuid),
        document_(std::ref(out), encoder::Format::indented),
        object_(document_.asObject()) {}

  // One member of the old file, which must have a string value.
  void add(decoder::Member& member) {
    decoder::Value& value = member.value();
    const std::string_view name = member.name().view();
    // The usual value, a plain string whole in the buffer, is read first
    // and in one step; any other is read after its name is written, in
    // pieces, so that it passes in constant memory.
    const std::optional<std::string_view> plain = value.takePlainString();
    if (entryName_.matches(name)) {
      if (change_.hash && !found_) write([&] { object_.add(name, *change_.hash); });
      found_ = true;
      if (!plain) value.asString().forEachPiece([](std::string_view, bool) {});
      return;
    }
    const encoder::Object::Escape nameEscape = escapeFor(member.name().escaped());
    if (plain) {
      // The name's escape serves both: a plain value has nothing to escape.
      write([&] { object_.add(name, *plain, nameEscape); });
      return;
    }
    write([&] { object_.beginMember(name, nameEscape); });
    value.asString().forEachPiece([&](std::string_view piece, bool escaped) {
      write([&] { object_.appendToValue(piece, escapeFor(escaped)); });
    });
    write([&] { object_.endMember(); });
  }

  // After the last member: the entry appended when the file had none.
  // Throws the failure to write, if any.
  void finish() {
    if (change_.hash && !found_) {
      write([&] { object_.add(change_.uuid.toString().view(), *change_.hash); });
    }
    rethrowFailure();
  }

  // Waits for the writes still under way first: one of them may have
  // failed before whatever ended the reading.
  void rethrowFailure() {
    write([&] { out_.settle(); });
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  // A name or piece read without an escape sequence holds nothing that
  // needs one: it is copied without a look.
  static encoder::Object::Escape escapeFor(bool escaped) noexcept {
    return escaped ? encoder::Object::Escape::needed : encoder::Object::Escape::none;
  }

  template <typename Write>
  void write(Write&& step) {
    if (failure_) return;
    try {
      step();
    } catch (...) {
      failure_ = std::current_exception();
    }
  }

  const PasswordChange& change_;
  utils::io::OutputStream<char>& out_;
  const EntryName entryName_;
  encoder::Document document_;
  encoder::Object object_;
  std::exception_ptr failure_;
  bool found_ = false;
};

// What is left of the text after creating the temporary file failed: an
// error in it is the one reported; any other failure to read it leaves the
// first failure reported.
void throwErrorInText(utils::io::InputStream<char>& stream, const std::filesystem::path& path) {
  try {
    PasswordFile::copy(stream, path);
  } catch (const decoder::Exception&) {
    throw;
  } catch (...) {
  }
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

void PasswordFile::check() const {
  std::optional<File> file = target().open(nullptr);
  if (!file) return;
  utils::io::FileInputStream<char> stream(std::move(*file));
  copy(stream, path_);
}

void PasswordFile::rewrite(const PasswordChange& change) const {
  const ReplacementTarget& file = target();
  ReplacedFile identity;
  std::optional<File> input = file.open(&identity);
  if (!input) {
    utils::io::Replacement temporary(file, std::nullopt);
    writeNewFile(change, temporary);
    temporary.commit();
    return;
  }
  std::optional<utils::io::Replacement> temporary;
  {
    // The file read is closed before the replace: Windows moves no file
    // over one that is open.
    utils::io::FileInputStream<char> stream(std::move(*input));
    try {
      temporary.emplace(file, std::move(identity));
    } catch (...) {
      throwErrorInText(stream, path_);
      throw;
    }
    try {
      copy(stream, path_, &change, &*temporary);
    } catch (const decoder::Exception&) {
      // Nothing of a file with an error in it is kept, whatever was written.
      temporary->discard();
      throw;
    }
  }
  temporary->commit();
}

void PasswordFile::copy(utils::io::InputStream<char>& stream, const std::filesystem::path& path,
                        const PasswordChange* change, utils::io::OutputStream<char>* out) {
  decoder::Document document(stream, path);
  if (change == nullptr || out == nullptr) {
    for (decoder::Member& member : document.readAsObject()) {
      decoder::Value& value = member.value();
      if (!value.takePlainString()) value.asString().forEachPiece([](std::string_view, bool) {});
    }
    document.finish();
    return;
  }
  ChangedCopy copy(*change, *out);
  try {
    for (decoder::Member& member : document.readAsObject()) copy.add(member);
    document.finish();
  } catch (const decoder::Exception&) {
    throw;
  } catch (...) {
    // A failure to read after one to write: the first is reported.
    copy.rethrowFailure();
    throw;
  }
  copy.finish();
}

void PasswordFile::writeNewFile(const PasswordChange& change, utils::io::OutputStream<char>& out) {
  encoder::Document document(std::ref(out), encoder::Format::indented);
  encoder::Object object = document.asObject();
  object.add("$schema", schemaUrl());
  if (change.hash) object.add(change.uuid.toString().view(), *change.hash);
}

}  // namespace korvane::setUserPassword
