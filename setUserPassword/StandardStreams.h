// Standard output and standard error as the tool's messages need them: names
// and paths shown with their real characters. The messages are UTF-8 text;
// a redirected stream carries those bytes as they are.
//
// Thread safety: call once from the main thread, before anything is printed.
#pragma once

namespace korvane::setUserPassword {

// Windows: std::cout and std::cerr, where they are a console, write through
// the console's UTF-16 interface, so that no console code page changes a
// character. POSIX: nothing to do; the terminal takes UTF-8 itself.
void prepareStandardStreams();

}  // namespace korvane::setUserPassword
