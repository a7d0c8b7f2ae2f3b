// The server end of the line protocol: read a command, execute it, acknowledge it.
#pragma once

#include "IPC/SimpleEndpointIPC.h"

namespace KTN {

class SimpleServerIPC : public SimpleEndpointIPC {
 public:
  // Serves commands on the calling thread until a command sets stop (0, after that
  // command's acknowledgement) or the input ends (5) or an acknowledgement fails (errno).
  // A line longer than the buffer (kLineBufferSize - 1 characters and its line feed) is
  // read to its end and refused whole: one answer, 22, under its first word (cut to
  // kMaxCommandLength), and no part of it is executed.
  virtual long Run();
  // Executes one command; argument is null when the line had no space. The result is
  // the acknowledged status. Setting *stop ends Run after the acknowledgement.
  virtual long Execute(const char* command, const char* argument, bool* stop) = 0;

 private:
  // After a line that filled the buffer, reads the rest of it up to and with its line
  // feed. True when the line held more than the buffer.
  bool SkipRestOfLine();
};

}  // namespace KTN
