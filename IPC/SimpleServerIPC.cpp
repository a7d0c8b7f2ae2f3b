// The server end of the line protocol.
#include "IPC/SimpleServerIPC.h"

#include "Util/Log.h"

namespace KTN {

long SimpleServerIPC::Run() {
  bool stop = false;
  for (;;) {
    const char* command = nullptr;
    const char* argument = nullptr;
    if (long rc = ReadLine(command, argument)) {
      KTN_LOG("ReadLine returned %ld", rc);
      return rc;
    }
    long status = Execute(command, argument, &stop);
    if (long rc = Acknowledge(command, status)) {
      KTN_LOG("acknowledge(\"%s\") returned %ld", command, rc);
      return rc;
    }
    if (stop) return 0;
  }
}

}  // namespace KTN
