// Attacker: a forked process of another account (by default nobody, the
// service's account that owns the installation's folder in the attacks on
// runs of root), which prepares an attack, reports that it is ready and
// finishes it when the test says so.
//
// Thread safety: one object, one thread. POSIX only.
#pragma once

#include <sys/types.h>

#include <functional>

namespace korvane::hardening {

inline constexpr uid_t nobody = 65534;
inline constexpr gid_t nogroup = 65534;

// The account a forked process runs as.
struct Account {
  uid_t user = nobody;
  gid_t group = nogroup;
};

// A process of `account`. It runs `prepare`, reports that it is ready, and
// then, when told to go (or when the test ends), runs `finish` and exits.
// Whatever `prepare` opens stays open until then.
class Attacker {
 public:
  explicit Attacker(
      const std::function<void()>& prepare, const std::function<void()>& finish = [] {},
      Account account = {});
  ~Attacker();
  Attacker(const Attacker&) = delete;
  Attacker& operator=(const Attacker&) = delete;

  // Waits (at most 10 seconds) until `prepare` has run.
  bool ready() const;

  // Lets it finish; returns its exit status.
  int finish();

 private:
  pid_t pid_ = -1;
  int readyFd_ = -1;
  int goFd_ = -1;
};

// Does `act` as the user nobody, to its end.
void asAttacker(const std::function<void()>& act);

// Fails the test (from any process) when a system call's `result` is not 0.
void mustSucceed(int result, const char* what);

}  // namespace korvane::hardening
