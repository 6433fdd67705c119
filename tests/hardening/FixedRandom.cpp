// A preloadable library (LD_PRELOAD) that makes the system's random source
// predictable: getrandom(2) fills every byte with 0x5a. The tests use it to
// know the name of the temporary file the program will create
// ("<password file>.5a5a5a5a-5a5a-4a5a-9a5a-5a5a5a5a5a5a") and plant a file
// or a link there first.
//
// Thread safety: reentrant.
#include <sys/random.h>
#include <sys/types.h>

#include <cstring>

extern "C" ssize_t getrandom(void* buffer, size_t length, unsigned int) {
  std::memset(buffer, 0x5a, length);
  return static_cast<ssize_t>(length);
}
