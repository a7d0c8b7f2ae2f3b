// An anonymous pipe whose two descriptors are closed when the object goes, unless taken.
#pragma once

namespace KTN {

// Open and the Close operations print nothing: they return the errno of the failed call,
// which their caller reports in the name of the operation it is in.
class Pipe {
 public:
  Pipe() = default;
  // Closes the ends still held; a failure here, where no caller can report it, has its own line.
  ~Pipe();

  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  // Creates the pipe with both ends close-on-exec, so no other child inherits them.
  // 0 or the errno of the failed pipe2.
  long Open();

  // The descriptors, or -1.
  int ReadEnd() const { return mReadEnd; }
  int WriteEnd() const { return mWriteEnd; }

  // Hands a descriptor's ownership to the caller (a stream that will close it).
  int TakeReadEnd();
  int TakeWriteEnd();

  // Closes one end now (the end a child process has inherited). 0 or the errno of the
  // failed close; the descriptor is given up either way.
  long CloseReadEnd();
  long CloseWriteEnd();
  // Closes both ends still held: 0 or the errno of the first failed close.
  long Close();

 private:
  int mReadEnd = -1;
  int mWriteEnd = -1;
};

}  // namespace KTN
