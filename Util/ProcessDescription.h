// Who a process is, in the user's words, from what /proc shows of it.
#pragma once

#include <string>

namespace KTN {
namespace Util {

// No state; safe from any thread.
class ProcessDescription {
 public:
  // "process 1234 (QTRecordServer) of user ana": the process's short name, and its user's
  // name (or number when the user has no name), as long as /proc shows them; "process
  // 1234" alone once the process has gone.
  static std::string Of(long pid);
};

}  // namespace Util
}  // namespace KTN
