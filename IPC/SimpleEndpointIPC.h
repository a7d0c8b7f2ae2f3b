// One end of the line protocol: reads command lines, writes acknowledgement lines.
#pragma once

#include <stdio.h>

namespace KTN {

// Lines are plain bytes on buffered streams: "<command>[ <argument>]\n" one way,
// "<command> <status>\n" the other. The endpoint neither owns nor closes its streams.
class SimpleEndpointIPC {
 public:
  // Longest command word and argument text, in characters.
  static constexpr int kMaxCommandLength = 32;
  static constexpr int kMaxArgumentLength = 4096;
  // Command, space, argument and line feed.
  static constexpr int kLineBufferSize = kMaxCommandLength + 1 + kMaxArgumentLength + 1;

  SimpleEndpointIPC() = default;
  virtual ~SimpleEndpointIPC() = default;

  SimpleEndpointIPC(const SimpleEndpointIPC&) = delete;
  SimpleEndpointIPC& operator=(const SimpleEndpointIPC&) = delete;

  // Stores the streams (borrowed); always 0. Must come before any other operation.
  virtual long Init(FILE* readStream, FILE* writeStream);
  // Reads one line and splits it at its first space. command and argument point into the
  // endpoint's buffer until the next ReadLine; argument is null when the line has no
  // space. A line longer than the buffer comes back in pieces (LineCut tells the first
  // piece). 0, or 5 at end of stream.
  virtual long ReadLine(const char*& command, const char*& argument);
  // Writes "<command> <status>\n" and flushes. 0 or the errno of the failed write.
  virtual long Acknowledge(const char* command, long status);

 protected:
  // Whether the last line read filled the buffer before its line feed: the rest of the
  // line, if any, is still in the stream.
  bool LineCut() const { return mLineCut; }

  FILE* mReadStream = nullptr;
  FILE* mWriteStream = nullptr;
  char mLineBuffer[kLineBufferSize];

 private:
  bool mLineCut = false;
};

}  // namespace KTN
