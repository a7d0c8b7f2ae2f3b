// How the recording server of this process ended, read while it is still an unreaped child.
#pragma once

namespace KTN {

// The plug-in reaps its recording server only when the recording is closed. Until then a
// server that died stays a child of this process, and its wait status says how it ended: by
// which signal, or with which exit status.
class RecordServerExit {
 public:
  // Finds the recording server (QTRecordServer) among the children of this process's
  // threads that has ended and is not yet reaped, and reads its wait status (as waitpid
  // gives it) without reaping it. A server that still runs is given up to waitMillis to
  // end (one whose pipes have just closed is in the middle of ending). 0, or ENOENT when
  // there is none (it runs on, or it was reaped): no failure line, since not finding one
  // is an answer.
  static long Find(int& waitStatus, int waitMillis);
};

}  // namespace KTN
