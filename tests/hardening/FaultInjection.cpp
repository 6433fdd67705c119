// A preloadable library (LD_PRELOAD) that makes one chosen system call of
// the program under test fail, so that the tests can see what the program
// does when a disk fills up, a device reports an I/O error, a permission is
// refused or a call is interrupted — things that cannot be provoked for
// real when the tests run as root.
//
// Configuration, read from the environment once:
//   KORVANE_FAULT=<call>:<n>:<action>   the n-th (1-based) call of <call>
//       fails. <call> is open, read, write, fsync, rename, close, flock,
//       fchmod, fchown, ftruncate, unlink, readlink, getxattr or listxattr
//       (each covers its variants: openat, fdatasync, renameat, readlinkat,
//       fgetxattr, flistxattr, ...). <action> is an errno name (ENOSPC, EIO,
//       EACCES, EINTR, EROFS, EDQUOT, EPERM, EXDEV, EBUSY, ENODATA, ERANGE) or
//       STALL, which blocks the call forever (to catch the program in the
//       middle of its work), or PAUSE, which holds the call until a byte
//       can be read from the FIFO KORVANE_FAULT_RESUME and then lets it
//       succeed (so that a test can act at that moment). Up to four faults separated by commas
//       strike one after the other: the calls of a later one are counted from the moment the one
//       before it struck.
//   KORVANE_FAULT_DIR=<dir>   only calls on <dir> itself, on paths below it
//       and on descriptors opened there count; the loader's and the C
//       library's own calls are left alone.
//   KORVANE_CALL_LOG=<file>   every open of a path in <dir> appends
//       "open <path> <mode>" (mode r: read only, w: for writing,
//       p: O_PATH, a name only), every read(2) of a descriptor opened
//       there that returns bytes "read <path> <count>", so that a test can
//       see how often each file is opened and read (KORVANE_FAULT may then
//       be left unset).
//   KORVANE_FAULT_REPORT=<file>   when a fault strikes, one line is
//       appended: "<call> <path> <written> <afterRename>", where <written>
//       tells whether the descriptor was opened for writing (for close:
//       and its file still has a name) and <afterRename> whether a rename
//       into <dir> had already succeeded.
//
// Every failing call behaves as the kernel would: a failing close still
// releases the descriptor; other calls do nothing before failing.
//
// Thread safety: the program reads and writes large files on worker
// threads. The counting of calls and the report are guarded by one lock (a
// stalled or paused call waits without holding it); the configuration is
// read by the first call, made before any worker starts, and a
// descriptor's entry is only touched by the thread that uses it.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

enum Call {
  callOpen,
  callRead,
  callWrite,
  callFsync,
  callRename,
  callClose,
  callFlock,
  callFchmod,
  callFchown,
  callFtruncate,
  callUnlink,
  callReadlink,
  callGetxattr,
  callListxattr,
  callCount
};

constexpr const char* callNames[callCount] = {
    "open",   "read",   "write",     "fsync",  "rename",   "close",    "flock",
    "fchmod", "fchown", "ftruncate", "unlink", "readlink", "getxattr", "listxattr"};

constexpr int stallAction = -1;
constexpr int pauseAction = -2;
constexpr int maxTracked = 1024;
constexpr std::size_t maxPath = 512;
constexpr int maxFaults = 4;

struct Tracked {
  bool inDirectory;
  bool written;
  char path[maxPath];
};

struct Fault {
  int call = -1;
  long index = 0;
  int action = 0;
};

struct Configuration {
  bool loaded = false;
  Fault faults[maxFaults];
  int faultCount = 0;
  char directory[maxPath] = {};
  std::size_t directoryLength = 0;
  char report[maxPath] = {};
  char resume[maxPath] = {};
  char callLog[maxPath] = {};
};

Configuration configuration;
long seen[callCount];
int struck = 0;  // the faults that have struck so far
bool afterRename = false;
Tracked tracked[maxTracked];
std::mutex bookkeeping;  // guards seen, struck and afterRename

template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

int errnoByName(const char* name) {
  static constexpr struct {
    const char* name;
    int value;
  } names[] = {{"ENOSPC", ENOSPC},    {"EIO", EIO},       {"EACCES", EACCES},
               {"EINTR", EINTR},      {"EROFS", EROFS},   {"EDQUOT", EDQUOT},
               {"EPERM", EPERM},      {"EXDEV", EXDEV},   {"EBUSY", EBUSY},
               {"ENODATA", ENODATA},  {"ERANGE", ERANGE}, {"STALL", stallAction},
               {"PAUSE", pauseAction}};
  for (const auto& entry : names) {
    if (std::strcmp(entry.name, name) == 0) return entry.value;
  }
  return std::atoi(name);
}

void copyBounded(char* to, const char* from) {
  std::strncpy(to, from, maxPath - 1);
  to[maxPath - 1] = '\0';
}

void load() {
  if (configuration.loaded) return;
  configuration.loaded = true;
  const char* fault = std::getenv("KORVANE_FAULT");
  const char* directory = std::getenv("KORVANE_FAULT_DIR");
  if (directory == nullptr) return;
  if (fault == nullptr) fault = "";
  char specs[256];
  std::strncpy(specs, fault, sizeof specs - 1);
  specs[sizeof specs - 1] = '\0';
  for (char* spec = specs;
       *specs != '\0' && spec != nullptr && configuration.faultCount < maxFaults;) {
    char* comma = std::strchr(spec, ',');
    if (comma != nullptr) *comma = '\0';
    char* firstColon = std::strchr(spec, ':');
    char* secondColon = firstColon ? std::strchr(firstColon + 1, ':') : nullptr;
    if (secondColon == nullptr) return;
    *firstColon = '\0';
    *secondColon = '\0';
    Fault& parsed = configuration.faults[configuration.faultCount++];
    for (int call = 0; call < callCount; ++call) {
      if (std::strcmp(spec, callNames[call]) == 0) parsed.call = call;
    }
    parsed.index = std::atol(firstColon + 1);
    parsed.action = errnoByName(secondColon + 1);
    spec = comma != nullptr ? comma + 1 : nullptr;
  }
  copyBounded(configuration.directory, directory);
  configuration.directoryLength = std::strlen(configuration.directory);
  if (const char* report = std::getenv("KORVANE_FAULT_REPORT")) {
    copyBounded(configuration.report, report);
  }
  if (const char* resume = std::getenv("KORVANE_FAULT_RESUME")) {
    copyBounded(configuration.resume, resume);
  }
  if (const char* callLog = std::getenv("KORVANE_CALL_LOG")) {
    copyBounded(configuration.callLog, callLog);
  }
}

bool isInDirectory(const char* path) {
  load();
  const std::size_t length = configuration.directoryLength;
  if (path == nullptr || length == 0) return false;
  if (std::strncmp(path, configuration.directory, length) != 0) return false;
  return path[length] == '\0' || path[length] == '/';
}

bool isTrackedDescriptor(int fd) { return fd >= 0 && fd < maxTracked && tracked[fd].inDirectory; }

// Appends `line` to the file `to`, through the real calls.
void appendLine(const char* to, const char* line, int length) {
  if (to[0] == '\0' || length <= 0) return;
  const auto realOpen = next<int (*)(const char*, int, ...)>("open");
  const auto realWrite = next<ssize_t (*)(int, const void*, size_t)>("write");
  const auto realClose = next<int (*)(int)>("close");
  const int fd = realOpen(to, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (fd < 0) return;
  realWrite(fd, line, static_cast<size_t>(length));
  realClose(fd);
}

void writeReport(int call, const char* path, bool written) {
  char line[maxPath + 64];
  const int length = std::snprintf(line, sizeof line, "%s %s %d %d\n", callNames[call],
                                   path ? path : "-", written ? 1 : 0, afterRename ? 1 : 0);
  appendLine(configuration.report, line, length);
}

void logOpen(const char* path, int flags) {
  char line[maxPath + 16];
  // A descriptor of O_PATH only names the file: no read or write through it.
  const char mode = (flags & O_PATH) != 0 ? 'p' : (flags & O_ACCMODE) != O_RDONLY ? 'w' : 'r';
  const int length = std::snprintf(line, sizeof line, "open %s %c\n", path, mode);
  appendLine(configuration.callLog, line, length);
}

void logRead(int fd, ssize_t count) {
  if (count <= 0 || !isTrackedDescriptor(fd)) return;
  char line[maxPath + 32];
  const int length =
      std::snprintf(line, sizeof line, "read %s %ld\n", tracked[fd].path, static_cast<long>(count));
  appendLine(configuration.callLog, line, length);
}

// Counts a call of interest; true when this one is to fail (errno is set).
// A stalled call never returns.
bool strikes(Call call, const char* path, bool written) {
  load();
  Fault fault;
  {
    const std::lock_guard lock(bookkeeping);
    if (struck >= configuration.faultCount) return false;
    fault = configuration.faults[struck];
    if (fault.call != call) return false;
    if (++seen[call] != fault.index) return false;
    ++struck;
    for (long& count : seen) count = 0;
    writeReport(call, path, written);
  }
  if (fault.action == stallAction) {
    for (;;) ::pause();
  }
  if (fault.action == pauseAction) {
    // Opening a FIFO for reading waits for its writer.
    const int fd = next<int (*)(const char*, int, ...)>("open")(configuration.resume, O_RDONLY);
    char byte = 0;
    if (fd >= 0) {
      (void)next<ssize_t (*)(int, void*, size_t)>("read")(fd, &byte, 1);
      next<int (*)(int)>("close")(fd);
    }
    return false;
  }
  errno = fault.action;
  return true;
}

bool strikesDescriptor(Call call, int fd) {
  if (!isTrackedDescriptor(fd)) return false;
  return strikes(call, tracked[fd].path, tracked[fd].written);
}

void track(int fd, const char* path, int flags) {
  if (fd < 0 || fd >= maxTracked) return;
  tracked[fd].inDirectory = isInDirectory(path);
  tracked[fd].written = (flags & O_ACCMODE) != O_RDONLY;
  if (tracked[fd].inDirectory) copyBounded(tracked[fd].path, path);
}

mode_t modeArgument(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

// The path that `path` names relative to the directory descriptor `dirfd`
// (its folder read from /proc), in `buffer`; `path` itself when absolute
// or relative to the working directory.
const char* pathAt(int dirfd, const char* path, char (&buffer)[maxPath]) {
  if (path == nullptr || dirfd == AT_FDCWD || path[0] == '/') return path;
  char link[64];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", dirfd);
  // The real call: this library's own lookups are no calls of the program.
  const ssize_t length =
      next<ssize_t (*)(const char*, char*, size_t)>("readlink")(link, buffer, maxPath - 1);
  if (length <= 0) return "";
  buffer[length] = '\0';
  // An empty name (AT_EMPTY_PATH) is the descriptor's own file.
  if (std::strcmp(path, ".") == 0 || path[0] == '\0') return buffer;
  const std::size_t used = static_cast<std::size_t>(length);
  std::snprintf(buffer + used, maxPath - used, "/%s", path);
  return buffer;
}

int openAt(const char* name, int dirfd, const char* relative, int flags, mode_t mode) {
  char buffer[maxPath];
  const char* path = pathAt(dirfd, relative, buffer);
  const bool interesting = isInDirectory(path);
  if (interesting && strikes(callOpen, path, (flags & O_ACCMODE) != O_RDONLY)) return -1;
  const auto real = next<int (*)(int, const char*, int, ...)>(name);
  const int fd = real(dirfd, relative, flags, mode);
  if (fd >= 0) track(fd, interesting ? path : "", flags);
  if (fd >= 0 && interesting) logOpen(path, flags);
  return fd;
}

int openPlain(const char* name, const char* path, int flags, mode_t mode) {
  const bool interesting = isInDirectory(path);
  if (interesting && strikes(callOpen, path, (flags & O_ACCMODE) != O_RDONLY)) return -1;
  const auto real = next<int (*)(const char*, int, ...)>(name);
  const int fd = real(path, flags, mode);
  if (fd >= 0) track(fd, interesting ? path : "", flags);
  if (fd >= 0 && interesting) logOpen(path, flags);
  return fd;
}

int renameChecked(bool interesting, const char* path, int (*perform)(const void*),
                  const void* data) {
  if (interesting && strikes(callRename, path, true)) return -1;
  const int result = perform(data);
  if (result == 0 && interesting) {
    const std::lock_guard lock(bookkeeping);
    afterRename = true;
  }
  return result;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  return openPlain("open", path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  return openPlain("open64", path, flags, mode);
}

int __open_2(const char* path, int flags) { return openPlain("open", path, flags, 0); }
int __open64_2(const char* path, int flags) { return openPlain("open64", path, flags, 0); }

int openat(int dirfd, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  return openAt("openat", dirfd, path, flags, mode);
}

int openat64(int dirfd, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeArgument(flags, arguments);
  va_end(arguments);
  return openAt("openat64", dirfd, path, flags, mode);
}

ssize_t read(int fd, void* buffer, size_t size) {
  if (strikesDescriptor(callRead, fd)) return -1;
  const ssize_t count = next<ssize_t (*)(int, void*, size_t)>("read")(fd, buffer, size);
  logRead(fd, count);
  return count;
}

ssize_t write(int fd, const void* buffer, size_t size) {
  if (strikesDescriptor(callWrite, fd)) return -1;
  return next<ssize_t (*)(int, const void*, size_t)>("write")(fd, buffer, size);
}

int fsync(int fd) {
  if (strikesDescriptor(callFsync, fd)) return -1;
  return next<int (*)(int)>("fsync")(fd);
}

int fdatasync(int fd) {
  if (strikesDescriptor(callFsync, fd)) return -1;
  return next<int (*)(int)>("fdatasync")(fd);
}

int flock(int fd, int operation) {
  if (strikesDescriptor(callFlock, fd)) return -1;
  return next<int (*)(int, int)>("flock")(fd, operation);
}

int fchmod(int fd, mode_t mode) {
  if (strikesDescriptor(callFchmod, fd)) return -1;
  return next<int (*)(int, mode_t)>("fchmod")(fd, mode);
}

int fchown(int fd, uid_t owner, gid_t group) {
  if (strikesDescriptor(callFchown, fd)) return -1;
  return next<int (*)(int, uid_t, gid_t)>("fchown")(fd, owner, group);
}

int ftruncate(int fd, off_t length) {
  if (strikesDescriptor(callFtruncate, fd)) return -1;
  return next<int (*)(int, off_t)>("ftruncate")(fd, length);
}

int ftruncate64(int fd, off64_t length) {
  if (strikesDescriptor(callFtruncate, fd)) return -1;
  return next<int (*)(int, off64_t)>("ftruncate64")(fd, length);
}

int unlink(const char* path) {
  if (isInDirectory(path) && strikes(callUnlink, path, true)) return -1;
  return next<int (*)(const char*)>("unlink")(path);
}

int unlinkat(int dirfd, const char* relative, int flags) {
  char buffer[maxPath];
  const char* path = pathAt(dirfd, relative, buffer);
  if (isInDirectory(path) && strikes(callUnlink, path, true)) return -1;
  return next<int (*)(int, const char*, int)>("unlinkat")(dirfd, relative, flags);
}

ssize_t readlink(const char* path, char* buffer, size_t size) {
  if (isInDirectory(path) && strikes(callReadlink, path, false)) return -1;
  return next<ssize_t (*)(const char*, char*, size_t)>("readlink")(path, buffer, size);
}

ssize_t readlinkat(int dirfd, const char* relative, char* buffer, size_t size) {
  char resolved[maxPath];
  const char* path = pathAt(dirfd, relative, resolved);
  if (isInDirectory(path) && strikes(callReadlink, path, false)) return -1;
  return next<ssize_t (*)(int, const char*, char*, size_t)>("readlinkat")(dirfd, relative, buffer,
                                                                          size);
}

ssize_t getxattr(const char* path, const char* name, void* value, size_t size) {
  if (isInDirectory(path) && strikes(callGetxattr, path, false)) return -1;
  return next<ssize_t (*)(const char*, const char*, void*, size_t)>("getxattr")(path, name, value,
                                                                                size);
}

ssize_t lgetxattr(const char* path, const char* name, void* value, size_t size) {
  if (isInDirectory(path) && strikes(callGetxattr, path, false)) return -1;
  return next<ssize_t (*)(const char*, const char*, void*, size_t)>("lgetxattr")(path, name, value,
                                                                                 size);
}

ssize_t fgetxattr(int fd, const char* name, void* value, size_t size) {
  if (strikesDescriptor(callGetxattr, fd)) return -1;
  return next<ssize_t (*)(int, const char*, void*, size_t)>("fgetxattr")(fd, name, value, size);
}

ssize_t listxattr(const char* path, char* list, size_t size) {
  if (isInDirectory(path) && strikes(callListxattr, path, false)) return -1;
  return next<ssize_t (*)(const char*, char*, size_t)>("listxattr")(path, list, size);
}

ssize_t llistxattr(const char* path, char* list, size_t size) {
  if (isInDirectory(path) && strikes(callListxattr, path, false)) return -1;
  return next<ssize_t (*)(const char*, char*, size_t)>("llistxattr")(path, list, size);
}

ssize_t flistxattr(int fd, char* list, size_t size) {
  if (strikesDescriptor(callListxattr, fd)) return -1;
  return next<ssize_t (*)(int, char*, size_t)>("flistxattr")(fd, list, size);
}

int close(int fd) {
  // A file that has no name left (removed while open, as a temporary file
  // that a run throws away) loses nothing when closing it fails: it counts
  // as not written.
  struct stat status {};
  if (isTrackedDescriptor(fd) && tracked[fd].written && ::fstat(fd, &status) == 0 &&
      status.st_nlink == 0) {
    tracked[fd].written = false;
  }
  const bool fails = strikesDescriptor(callClose, fd);
  const int savedErrno = errno;
  if (fd >= 0 && fd < maxTracked) tracked[fd].inDirectory = false;
  // The descriptor is released even when close reports an error.
  const int result = next<int (*)(int)>("close")(fd);
  if (!fails) return result;
  errno = savedErrno;
  return -1;
}

int rename(const char* from, const char* to) {
  struct Arguments {
    const char* from;
    const char* to;
  } arguments{from, to};
  return renameChecked(
      isInDirectory(to), to,
      [](const void* data) {
        const auto* a = static_cast<const Arguments*>(data);
        return next<int (*)(const char*, const char*)>("rename")(a->from, a->to);
      },
      &arguments);
}

int renameat(int fromDir, const char* from, int toDir, const char* to) {
  struct Arguments {
    int fromDir;
    const char* from;
    int toDir;
    const char* to;
  } arguments{fromDir, from, toDir, to};
  char buffer[maxPath];
  const char* path = pathAt(toDir, to, buffer);
  return renameChecked(
      isInDirectory(path), path,
      [](const void* data) {
        const auto* a = static_cast<const Arguments*>(data);
        return next<int (*)(int, const char*, int, const char*)>("renameat")(a->fromDir, a->from,
                                                                             a->toDir, a->to);
      },
      &arguments);
}

int renameat2(int fromDir, const char* from, int toDir, const char* to, unsigned flags) {
  struct Arguments {
    int fromDir;
    const char* from;
    int toDir;
    const char* to;
    unsigned flags;
  } arguments{fromDir, from, toDir, to, flags};
  char buffer[maxPath];
  const char* path = pathAt(toDir, to, buffer);
  return renameChecked(
      isInDirectory(path), path,
      [](const void* data) {
        const auto* a = static_cast<const Arguments*>(data);
        return next<int (*)(int, const char*, int, const char*, unsigned)>("renameat2")(
            a->fromDir, a->from, a->toDir, a->to, a->flags);
      },
      &arguments);
}

}  // extern "C"
