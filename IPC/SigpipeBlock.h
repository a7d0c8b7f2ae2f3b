// Keeps a write into a closed pipe from raising SIGPIPE in this process, for one block.
#pragma once

#include <signal.h>

namespace KTN {

// Blocks SIGPIPE on the calling thread for the guard's life; at the end, consumes a
// SIGPIPE the block's writes raised (never one that was pending before) and restores the
// thread's signal mask. The process's signal dispositions are never touched, so the
// host's own handling of SIGPIPE stays as it was. The write itself fails with EPIPE.
class SigpipeBlock {
 public:
  SigpipeBlock();
  ~SigpipeBlock();

  SigpipeBlock(const SigpipeBlock&) = delete;
  SigpipeBlock& operator=(const SigpipeBlock&) = delete;

 private:
  sigset_t mPreviousMask;
  bool mWasPending = false;
};

}  // namespace KTN
