// The client end of the line protocol.
#include "IPC/SimpleClientIPC.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "IPC/SigpipeBlock.h"
#include "Util/Log.h"

namespace KTN {

namespace {

// Holds the client's exchange hooks for one whole exchange, released on every way out.
class ExchangeScope {
 public:
  explicit ExchangeScope(SimpleClientIPC* client) : mClient(client) { mClient->Lock(); }
  ~ExchangeScope() { mClient->Unlock(); }

 private:
  SimpleClientIPC* mClient;
};

}  // namespace

long SimpleClientIPC::SendCommandSync(const char* command, const char* argument) {
  ExchangeScope exchange(this);
  if (!command) {
    KTN_LOG("NULL command string");
    return EINVAL;
  }
  if (strlen(command) > kMaxCommandLength) {
    KTN_LOG("Command string \"%s\" too long (max %d)", command, kMaxCommandLength);
    return EINVAL;
  }
  if (argument && strlen(argument) > kMaxArgumentLength) {
    KTN_LOG("Argument string \"%s\" too long (max %d)", argument, kMaxArgumentLength);
    return EINVAL;
  }
  // One line is one command: a line break in the argument would make the rest of it a
  // command of its own.
  if (argument && strpbrk(argument, "\n\r")) {
    KTN_LOG("Argument of %s holds a line break: refused", command);
    return EINVAL;
  }
  if (mWriteStream) {
    // A dead server shows up as an unreadable acknowledgement below, not as a signal.
    SigpipeBlock noSigpipe;
    fprintf(mWriteStream, "%s%s%s\n", command, argument ? " " : "", argument ? argument : "");
    fflush(mWriteStream);
  }
  if (long rc = AwaitAnswer(command)) return rc;
  const char* answer = nullptr;
  const char* status = nullptr;
  if (long rc = ReadLine(answer, status)) {
    KTN_LOG("ReadLine returned %ld", rc);
    return rc;
  }
  if (strcmp(answer, command) != 0) {
    KTN_LOG("Bad acknowledgement \"%s\" for command \"%s\"", answer, command);
    return EINVAL;
  }
  if (!status) {
    KTN_LOG("Missing acknowledgement status");
    return EINVAL;
  }
  return strtol(status, nullptr, 10);
}

long SimpleClientIPC::SendCommandSync(const char* command, long long value) {
  char text[24];
  snprintf(text, sizeof text, "%lld", value);
  return SendCommandSync(command, static_cast<const char*>(text));
}

long SimpleClientIPC::SendCommandSync(const char* command, unsigned long long value) {
  char text[24];
  snprintf(text, sizeof text, "%llu", value);
  return SendCommandSync(command, static_cast<const char*>(text));
}

}  // namespace KTN
