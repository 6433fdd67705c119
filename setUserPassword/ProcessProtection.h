// protectProcessMemory: keeps the passwords this process holds out of core
// dumps and away from debuggers of other unprivileged processes.
//
// Linux: the process is made non-dumpable (which also refuses ptrace
// attachment by processes of the same user) and its core size limit set to
// zero. Windows: nothing to do; another user's process cannot read ours,
// and crash dumps are an administrator's setting.
//
// ignoreFileSizeSignal: a write past the file-size limit (RLIMIT_FSIZE on
// POSIX) fails with EFBIG and is reported like any other failure to write,
// on whichever thread makes it, instead of ending the process with a core
// and no word. Windows: nothing to do.
//
// Thread safety: call once, early in main, before any thread starts.
#pragma once

namespace korvane::setUserPassword {

// Never throws: a failure leaves the process as protected as the system
// allows.
void protectProcessMemory() noexcept;

void ignoreFileSizeSignal() noexcept;

}  // namespace korvane::setUserPassword
