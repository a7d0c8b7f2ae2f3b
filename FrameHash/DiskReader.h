// A stretch of a file read from the disk itself, past the page cache, in large blocks on a thread of its own.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace KTN {

// Reads with O_DIRECT into aligned buffers, so that what is checked is what the disk holds,
// not a copy in memory. A file system that refuses O_DIRECT (EINVAL) is read ordinarily
// after the file's clean pages are dropped, and each block's pages are dropped again once
// read; a file in a memory-backed folder is read from memory, its only copy. The reading
// thread runs ahead of the consumer by up to kBlocks - 1 blocks, so reading and the
// consumer's work overlap. One consumer thread calls Next; the object owns its thread,
// buffers and descriptor.
class DiskReader {
 public:
  static constexpr size_t kBlockBytes = 16u << 20;
  static constexpr size_t kBlocks = 3;
  static constexpr size_t kAlignment = 4096;

  DiskReader() = default;
  ~DiskReader();
  DiskReader(const DiskReader&) = delete;
  DiskReader& operator=(const DiskReader&) = delete;

  // Opens the file at path: 0, or open's errno with one failure line.
  long Open(const std::string& path);
  // Starts reading bytes [begin, end): 0, or errno (no memory, no thread) with one failure line.
  long Start(uint64_t begin, uint64_t end);

  // A block of the stretch, in order: where it starts in the file and its bytes, valid until
  // the next call.
  struct Block {
    uint64_t offset = 0;
    const uint8_t* data = nullptr;
    size_t size = 0;
  };
  // The next block; false once the stretch has been handed out, the file ended, or a read
  // failed (Error says which).
  bool Next(Block& block);
  // 0, or the errno a read failed with (its failure line written).
  long Error();

  uint64_t BytesRead() const { return mBytesRead; }

 private:
  void ReadLoop();
  // Drops to ordinary reads for a file system that refuses O_DIRECT: 0 or errno.
  long ReadOrdinarily();

  std::string mPath;
  int mFd = -1;
  bool mDirect = false;  // reading past the page cache (O_DIRECT)
  uint64_t mBegin = 0, mEnd = 0;
  uint64_t mBytesRead = 0;  // written by the reading thread; read once it has ended

  struct Filled {
    uint8_t* buffer;
    uint64_t offset;  // of the buffer's first byte in the file
    size_t size;
  };
  std::vector<uint8_t*> mBuffers;  // owned (posix_memalign)
  // Protects mFree, mFilled, mLent, mDone, mStop and mError, shared by the reading thread
  // and the consumer.
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::vector<uint8_t*> mFree;
  std::deque<Filled> mFilled;
  uint8_t* mLent = nullptr;  // the block handed out last
  bool mDone = false;        // the reading thread has handed in its last block
  bool mStop = false;        // the consumer has gone
  long mError = 0;
  std::thread mThread;
};

}  // namespace KTN
