// runUnprivileged: runs a test body under the rights of an ordinary user,
// so that permission checks apply even when the tests run as root (as CI
// does). As root, the body runs in a forked child that first hands
// `ownedPaths` to the user "nobody" and then drops to that user; otherwise
// it runs in place. Assertions in the body count as usual.
//
// Thread safety: call from the test's main thread.
#pragma once

#include <filesystem>
#include <functional>
#include <vector>

namespace korvane::testing {

void runUnprivileged(const std::function<void()>& body,
                     const std::vector<std::filesystem::path>& ownedPaths);

}  // namespace korvane::testing
