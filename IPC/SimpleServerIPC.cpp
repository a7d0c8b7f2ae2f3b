// The server end of the line protocol.
#include "IPC/SimpleServerIPC.h"

#include <errno.h>
#include <string.h>

#include "Util/Log.h"

namespace KTN {

bool SimpleServerIPC::SkipRestOfLine() {
  if (!LineCut()) return false;
  int c = getc(mReadStream);
  if (c == EOF || c == '\n') return false;  // the line fitted the buffer exactly
  while (c != EOF && c != '\n') c = getc(mReadStream);
  return true;
}

long SimpleServerIPC::Run() {
  bool stop = false;
  for (;;) {
    const char* command = nullptr;
    const char* argument = nullptr;
    if (long rc = ReadLine(command, argument)) {
      KTN_LOG("ReadLine returned %ld", rc);
      return rc;
    }
    long status = 0;
    if (SkipRestOfLine()) {
      // Executing the part that fitted would act on a cut argument (a path, a size), and
      // the rest must not read as commands of its own.
      if (strlen(command) > static_cast<size_t>(kMaxCommandLength)) mLineBuffer[kMaxCommandLength] = '\0';
      KTN_LOG("A line of more than %d characters (\"%s ...\") refused whole", kLineBufferSize - 1, command);
      status = EINVAL;
    } else {
      status = Execute(command, argument, &stop);
    }
    if (long rc = Acknowledge(command, status)) {
      KTN_LOG("acknowledge(\"%s\") returned %ld", command, rc);
      return rc;
    }
    if (stop) return 0;
  }
}

}  // namespace KTN
