// The one-writer lock of a movie file: who may write a take, and who is writing it now.
#pragma once

#include <string>

namespace KTN {

// A take is written by one process at a time. The process that writes a movie holds an
// advisory lock (flock) on its open descriptor from before its first byte until the movie is
// finished and closed; every tool of ours that writes or truncates a movie (the recording
// server, the plug-in creating the file, the stamp, repair, the host program's overwrite)
// takes the lock first, or refuses. The lock belongs to the open file: it ends when the last
// descriptor of that open ends, so a killed writer leaves no lock behind. Any thread.
class MovieLock {
 public:
  // Takes the lock on fd without waiting: 0, 16 (EBUSY) when another open of the file holds
  // it (no line: the caller says who, with Holder), or flock's errno with one line.
  static long TryLock(int fd);
  // Lets go of the lock on fd (closing the last descriptor does the same).
  static void Unlock(int fd);

  // Who holds the lock of the file open on fd, or at path, in the user's words: "process 1234
  // (QTRecordServer) of user ana". Empty when nobody does, or when it cannot be told.
  static std::string Holder(int fd);
  static std::string Holder(const std::string& path);

  // Opens the movie at path with flags (O_CREAT creates it, 0644) without ever waiting, and
  // only when it is a regular file: a FIFO, a device or a folder there is not opened at all
  // (opening some devices acts on them), nor kept should one appear meanwhile. The
  // descriptor (O_NONBLOCK, close-on-exec), or -1 with error set: open's errno, or 22 for
  // anything but a regular file; one failure line each when report is set.
  static int OpenRegular(const std::string& path, int flags, long& error, bool report = true);
  // Opens the movie at path as OpenRegular does and takes its lock without waiting, for a
  // tool that reads or mends a finished take: the descriptor holding the lock (closing it
  // lets go), or -1 with error set and why saying it in the user's words ("it is a FIFO, not
  // a regular file", "it is being written by process 4242 (QTRecordServer) of user ana", or
  // the errno's text; 16 (EBUSY) for a movie another process writes). No failure line: the
  // caller says what it wanted to do.
  static int OpenLocked(const std::string& path, int flags, long& error, std::string& why);
  // The movie at path made ready for a new take: created, or emptied once its lock is held.
  // The descriptor, open for writing and holding the lock (closing it lets go), or -1 with
  // error set: as OpenRegular, or 16 (EBUSY) when another process writes the movie, which is
  // then left untouched; one failure line each, naming the writer.
  static int CreateEmptied(const std::string& path, long& error);
  // Removes the movie at path, and its sidecars, when it holds no sample (empty, or headers alone) and nobody
  // writes it: what a take that never began leaves. Anything else there is left alone. True
  // when it was removed.
  static bool RemoveIfUnrecorded(const std::string& path);
};

}  // namespace KTN
