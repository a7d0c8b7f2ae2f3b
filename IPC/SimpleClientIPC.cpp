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

long SimpleClientIPC::WriteCommand(const char* caller, const char* command, const char* argument) {
  if (!command) {
    KTN_LOG_AS(caller, "NULL command string");
    return EINVAL;
  }
  if (strlen(command) > kMaxCommandLength) {
    KTN_LOG_AS(caller, "Command string \"%s\" too long (max %d)", command, kMaxCommandLength);
    return EINVAL;
  }
  if (argument && strlen(argument) > kMaxArgumentLength) {
    KTN_LOG_AS(caller, "Argument string \"%s\" too long (max %d)", argument, kMaxArgumentLength);
    return EINVAL;
  }
  // One line is one command: a line feed in the argument would make the rest of it a
  // command of its own. A carriage return is an ordinary character of the argument.
  if (argument && strchr(argument, '\n')) {
    KTN_LOG_AS(caller, "Argument of %s holds a line feed: refused", command);
    return EINVAL;
  }
  if (mPendingCommand) {
    KTN_LOG_AS(caller, "%s sent while the answer to %s is still to come", command, mPendingCommand);
    return EBUSY;
  }
  if (mWriteStream) {
    // A dead server shows up as an unreadable acknowledgement below, not as a signal.
    SigpipeBlock noSigpipe;
    fprintf(mWriteStream, "%s%s%s\n", command, argument ? " " : "", argument ? argument : "");
    fflush(mWriteStream);
  }
  CommandSent();
  return 0;
}

long SimpleClientIPC::ReadAnswer(const char* caller, const char* command, long& status) {
  const char* answer = nullptr;
  const char* text = nullptr;
  if (long rc = ReadLine(answer, text)) {
    KTN_LOG_AS(caller, "ReadLine returned %ld", rc);
    return rc;
  }
  if (strcmp(answer, command) != 0) {
    KTN_LOG_AS(caller, "Bad acknowledgement \"%s\" for command \"%s\"", answer, command);
    return EINVAL;
  }
  if (!text) {
    KTN_LOG_AS(caller, "Missing acknowledgement status");
    return EINVAL;
  }
  status = strtol(text, nullptr, 10);
  return 0;
}

long SimpleClientIPC::SendCommandSync(const char* command, const char* argument) {
  ExchangeScope exchange(this);
  if (long rc = WriteCommand(__func__, command, argument)) return rc;
  if (long rc = AwaitAnswer(command, -1)) return rc;
  long status = 0;
  if (long rc = ReadAnswer(__func__, command, status)) return rc;
  return status;
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

long SimpleClientIPC::SendCommand(const char* command, unsigned long long value) {
  ExchangeScope exchange(this);
  char text[24];
  snprintf(text, sizeof text, "%llu", value);
  if (long rc = WriteCommand(__func__, command, text)) return rc;
  mPendingCommand = command;
  return 0;
}

long SimpleClientIPC::ReceiveAnswer(int budgetMillis, long& status) {
  ExchangeScope exchange(this);
  if (!mPendingCommand) {
    KTN_LOG("No command waits for its answer");
    return EINVAL;
  }
  const char* command = mPendingCommand;
  long rc = AwaitAnswer(command, budgetMillis);
  if (rc == EINPROGRESS) return rc;
  mPendingCommand = nullptr;  // answered, or given up
  if (rc) return rc;
  return ReadAnswer(__func__, command, status);
}

}  // namespace KTN
