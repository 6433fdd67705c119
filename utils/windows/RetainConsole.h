// retainConsole: keeps a console window open long enough to be read.
//
// Called right before the process ends after printing something the user
// must see. On Windows, when this process is the only one attached to its
// console (it was started from Explorer, whose console closes with it), it
// waits for a key; otherwise, and on every other system, it returns at
// once. It never throws and never changes the exit status.
//
// Thread safety: call from the main thread.
#pragma once

namespace korvane::utils::windows {

void retainConsole() noexcept;

}  // namespace korvane::utils::windows
