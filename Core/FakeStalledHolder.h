// Test support: another process holding a segment name, as a stalled or hostile holder would.
#pragma once

#include <sys/types.h>

#include <string>

namespace KTN {
namespace Core {

// A child process, named "stalled-holder", that takes the lock of a segment name (as another
// user, when one is given) and keeps it, or uses it and lets it go again; either way it then
// waits, doing nothing, until it is killed outright (SIGKILL, as a host process can be) — at
// the latest when this object ends. Used from one thread.
class FakeStalledHolder {
 public:
  enum class Use { kHold, kUseAndLetGo };

  // Waits up to ten seconds for the name, which a recording holds only briefly at a time.
  explicit FakeStalledHolder(const std::string& key, Use use = Use::kHold, uid_t user = static_cast<uid_t>(-1));
  ~FakeStalledHolder();

  FakeStalledHolder(const FakeStalledHolder&) = delete;
  FakeStalledHolder& operator=(const FakeStalledHolder&) = delete;

  // The child once it has held the name (and holds it still, for kHold); -1 when it could not.
  pid_t Pid() const { return mPid; }
  // It has not been killed, and has not ended (an end is collected here).
  bool Alive();
  // Kills it outright and waits for its end.
  void Kill();

 private:
  pid_t mPid = -1;
};

}  // namespace Core
}  // namespace KTN
