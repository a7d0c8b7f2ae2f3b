// One-time initialisation: runs a routine exactly once per object, whichever thread asks first.
#pragma once

#include <pthread.h>

namespace KTN {
namespace Core {

class Once {
 public:
  // Constant-initialisable, so a static Once is usable before any constructor has run.
  constexpr explicit Once(void (*function)()) : mFunction(function), mControl(PTHREAD_ONCE_INIT) {}
  virtual ~Once() = default;

  Once(const Once&) = delete;
  Once& operator=(const Once&) = delete;

  // Runs the routine if no call has run it yet; every caller returns after it has finished.
  // Returns 0 or the error of pthread_once. Safe from any thread.
  long Call();

 private:
  void (*mFunction)();
  pthread_once_t mControl;
};

}  // namespace Core
}  // namespace KTN
