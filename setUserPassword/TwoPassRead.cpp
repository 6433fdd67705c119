#include "setUserPassword/TwoPassRead.h"

#include <span>
#include <utility>

#include "utils/io/FileInputStream.h"

namespace korvane::setUserPassword {

SearchPass readSkimmingFirst(
    utils::io::File file,
    const std::function<bool(const utils::json::decoder::Skimmer::Reader&)>& skim,
    const std::function<void(utils::io::InputStream<char>&)>& exact) {
  if (file.isRegularFile()) {
    if (skim([&file](std::span<char> into) { return file.read(into); })) return SearchPass::skim;
    file.rewind();
  }
  utils::io::FileInputStream<char> stream(std::move(file));
  exact(stream);
  return SearchPass::exact;
}

}  // namespace korvane::setUserPassword
