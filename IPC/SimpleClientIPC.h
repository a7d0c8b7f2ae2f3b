// The client end of the line protocol: one command, then block for its acknowledgement.
#pragma once

#include "IPC/SimpleEndpointIPC.h"

namespace KTN {

class SimpleClientIPC : public SimpleEndpointIPC {
 public:
  // Hooks around each whole exchange; nothing here. A client shared between threads
  // overrides them to make each exchange atomic.
  virtual void Lock() {}
  virtual void Unlock() {}
  // Called with the command sent, before its acknowledgement is read, for at most
  // budgetMillis (negative: no budget of its own): 0 to read the answer now, 115
  // (EINPROGRESS) when the budget ran out before it came, or an errno value to give up on
  // it. Nothing here (the read blocks); a client of a real server bounds the wait.
  virtual long AwaitAnswer(const char* command, int budgetMillis) {
    (void)command;
    (void)budgetMillis;
    return 0;
  }

  // Sends "<command> <argument>" (argument may be null) and waits for the answer. Returns
  // the acknowledged status, 22 for a refused command (null, command over 32 or argument
  // over 4096 characters, an argument holding a line feed: nothing is written) or a bad
  // acknowledgement, 5 when no acknowledgement can be read (the server has gone), 16
  // (EBUSY) while the answer to a command sent with SendCommand is still to be received.
  // A server that has gone away never raises SIGPIPE in the caller's process. Allocates
  // nothing.
  virtual long SendCommandSync(const char* command, const char* argument);
  // The value as decimal text, formatted on the stack and sent through the string form.
  virtual long SendCommandSync(const char* command, long long value);
  virtual long SendCommandSync(const char* command, unsigned long long value);

  // The same exchange in two halves, for a caller that must not block for long: sends
  // the command line (refusals and their statuses as for SendCommandSync) and returns;
  // ReceiveAnswer then collects the answer. No other command may be sent in between
  // (16, EBUSY). command must be one of the recorder's command words.
  long SendCommand(const char* command, unsigned long long value);
  // Waits up to budgetMillis (negative: as long as the server is working on it) for the
  // answer to the command SendCommand sent: 0 with status holding the acknowledged status,
  // 115 (EINPROGRESS) when the budget ran out first (call again; the exchange goes on), or
  // the exchange's failure (5, 22, 110), which ends it.
  long ReceiveAnswer(int budgetMillis, long& status);
  // Whether SendCommand's answer is still to be received.
  bool AnswerPending() const { return mPendingCommand != nullptr; }

 protected:
  // Called after every command line has been written (the wait for its answer starts).
  virtual void CommandSent() {}

 private:
  // Checks and writes one command line; 0 or the refusal's status. Failure lines carry
  // the name of the operation the caller is in.
  long WriteCommand(const char* caller, const char* command, const char* argument);
  // Reads and checks the acknowledgement of command; status receives its status.
  long ReadAnswer(const char* caller, const char* command, long& status);

  const char* mPendingCommand = nullptr;  // sent by SendCommand, answer not yet read
};

}  // namespace KTN
