// An anonymous pipe whose two descriptors are closed when the object goes, unless taken.
#pragma once

namespace KTN {

class Pipe {
 public:
  Pipe() = default;
  ~Pipe();

  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  // Creates the pipe with both ends close-on-exec, so no other child inherits them.
  // 0 or the errno of the failed call, with one failure line.
  long Open();

  // The descriptors, or -1.
  int ReadEnd() const { return mReadEnd; }
  int WriteEnd() const { return mWriteEnd; }

  // Hands a descriptor's ownership to the caller (a stream that will close it).
  int TakeReadEnd();
  int TakeWriteEnd();

  // Closes one end now (the end a child process has inherited).
  void CloseReadEnd();
  void CloseWriteEnd();

 private:
  int mReadEnd = -1;
  int mWriteEnd = -1;
};

}  // namespace KTN
