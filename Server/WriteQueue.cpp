// The recording server's backlog and its writer thread.
#include "Server/WriteQueue.h"

#include <chrono>

namespace KTN {

WriteQueue::WriteQueue(uint64_t videoBudgetBytes, Writer writer, unsigned writeDelayMillis)
    : mVideoBudgetBytes(videoBudgetBytes), mWriter(std::move(writer)), mWriteDelayMillis(writeDelayMillis) {
  mThread = std::thread(&WriteQueue::WriterLoop, this);
}

WriteQueue::~WriteQueue() {
  Drain();
}

bool WriteQueue::PushVideo(MediaItem item) {
  uint64_t bytes = item.segment->OpenedSize();
  {
    std::lock_guard<std::mutex> guard(mLock);
    if (mQueuedVideoBytes + bytes > mVideoBudgetBytes) return false;
    mQueuedVideoBytes += bytes;
  }
  Push(std::move(item));
  return true;
}

void WriteQueue::PushAudio(MediaItem item) {
  Push(std::move(item));
}

void WriteQueue::PushEmptySlots(int64_t nextFrame) {
  {
    std::lock_guard<std::mutex> guard(mLock);
    // The item at the back is not being written yet (the writer takes items off the front).
    if (!mItems.empty() && mItems.back().video && !mItems.back().segment) {
      if (nextFrame > mItems.back().position) mItems.back().position = nextFrame;
      return;
    }
    MediaItem item;
    item.video = true;
    item.position = nextFrame;
    mItems.push_back(std::move(item));
  }
  mItemsChanged.notify_one();
}

void WriteQueue::Push(MediaItem item) {
  {
    std::lock_guard<std::mutex> guard(mLock);
    mItems.push_back(std::move(item));
  }
  mItemsChanged.notify_one();
}

void WriteQueue::Drain() {
  {
    std::lock_guard<std::mutex> guard(mLock);
    mClosing = true;
  }
  mItemsChanged.notify_one();
  if (mThread.joinable()) mThread.join();
}

long WriteQueue::FirstError() const {
  std::lock_guard<std::mutex> guard(mLock);
  return mFirstError;
}

void WriteQueue::WriterLoop() {
  for (;;) {
    MediaItem item;
    {
      std::unique_lock<std::mutex> guard(mLock);
      mItemsChanged.wait(guard, [this] { return mClosing || !mItems.empty(); });
      if (mItems.empty()) return;  // closing and drained
      item = std::move(mItems.front());
      mItems.pop_front();
    }
    // The slow disk stands for media written; word of empty slots rewrites four bytes.
    if (mWriteDelayMillis && item.segment) std::this_thread::sleep_for(std::chrono::milliseconds(mWriteDelayMillis));
    uint64_t videoBytes = item.video && item.segment ? item.segment->OpenedSize() : 0;
    long rc = mWriter(item);
    std::lock_guard<std::mutex> guard(mLock);
    mQueuedVideoBytes -= videoBytes;
    if (rc && !mFirstError) mFirstError = rc;
  }
}

}  // namespace KTN
