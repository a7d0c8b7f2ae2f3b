// One-time initialisation over pthread_once.
#include "Core/Once.h"

#include "Util/Log.h"

namespace KTN {
namespace Core {

long Once::Call() {
  long rc = pthread_once(&mControl, mFunction);
  if (rc) KTN_LOG("pthread_once returned %ld", rc);
  return rc;
}

}  // namespace Core
}  // namespace KTN
