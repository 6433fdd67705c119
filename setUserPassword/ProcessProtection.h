// protectProcessMemory: keeps the passwords this process holds out of core
// dumps and away from debuggers of other unprivileged processes.
//
// Linux: the process is made non-dumpable (which also refuses ptrace
// attachment by processes of the same user) and its core size limit set to
// zero. Windows: nothing to do; another user's process cannot read ours,
// and crash dumps are an administrator's setting.
//
// Thread safety: call once, early in main.
#pragma once

namespace korvane::setUserPassword {

// Never throws: a failure leaves the process as protected as the system
// allows.
void protectProcessMemory() noexcept;

}  // namespace korvane::setUserPassword
