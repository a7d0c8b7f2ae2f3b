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
  // Called with the command sent, before its acknowledgement is read: 0 to read it, or an
  // errno value to give up on it. Nothing here; a client of a real server bounds the wait.
  virtual long AwaitAnswer(const char* command) {
    (void)command;
    return 0;
  }

  // Sends "<command> <argument>" (argument may be null) and waits for the answer. Returns
  // the acknowledged status, 22 for a refused command (null, command over 32 or argument
  // over 4096 characters, an argument holding a line break: nothing is written) or a bad
  // acknowledgement, 5 when no acknowledgement can be read (the server has gone). A server that has gone away never
  // raises SIGPIPE in the caller's process. Allocates nothing.
  virtual long SendCommandSync(const char* command, const char* argument);
  // The value as decimal text, formatted on the stack and sent through the string form.
  virtual long SendCommandSync(const char* command, long long value);
  virtual long SendCommandSync(const char* command, unsigned long long value);
};

}  // namespace KTN
