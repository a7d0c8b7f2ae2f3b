// The recording server's backlog: media handed over and waiting for the writer thread.
#pragma once

#include <stdint.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "Core/SharedMemory.h"

namespace KTN {

// One video frame or audio packet, still in the segment the plug-in filled; or, as a video
// item without a segment, word that the frame slots before position have no picture (they
// were given up or dropped).
struct MediaItem {
  bool video = false;
  std::unique_ptr<Core::SharedMemory> segment;  // opened read-only (OpenTrusted); null: empty slots
  int64_t position = 0;  // frame number (video) or first sample number (audio); empty slots: the next frame number
};

// Items are written in arrival order on one writer thread, so the command loop can answer
// as soon as a segment is mapped. Video is bounded by a byte budget; audio and empty slots
// are never dropped (they are small, and a gap in sound would break sync; empty slots tell
// the movie's readers at once of the pictures that will not come).
class WriteQueue {
 public:
  // Writes one item on the writer thread; 0 or an errno value.
  using Writer = std::function<long(MediaItem& item)>;

  // Starts the writer thread. writeDelayMillis holds back every write of media (a test knob that
  // stands for a slow disk).
  WriteQueue(uint64_t videoBudgetBytes, Writer writer, unsigned writeDelayMillis);
  // Drains and stops the writer thread.
  ~WriteQueue();

  WriteQueue(const WriteQueue&) = delete;
  WriteQueue& operator=(const WriteQueue&) = delete;

  // Queues a frame unless its bytes would take the video backlog over the budget; then it
  // is refused (false) and the caller drops it.
  bool PushVideo(MediaItem item);
  void PushAudio(MediaItem item);
  // Queues word that the video's slots before frame number nextFrame have no picture,
  // after the frames queued so far. Such word still waiting at the back of the queue is
  // moved on to nextFrame rather than repeated: a run of empty slots costs one item.
  void PushEmptySlots(int64_t nextFrame);

  // Blocks until every queued item has been written, then stops the writer thread.
  void Drain();

  // The first write error of this recording, or 0. Safe from any thread.
  long FirstError() const;

  uint64_t VideoBudgetBytes() const { return mVideoBudgetBytes; }

 private:
  void Push(MediaItem item);
  void WriterLoop();

  const uint64_t mVideoBudgetBytes;
  const Writer mWriter;
  const unsigned mWriteDelayMillis;

  // Protects mItems, mQueuedVideoBytes, mClosing and mFirstError.
  mutable std::mutex mLock;
  std::condition_variable mItemsChanged;
  std::deque<MediaItem> mItems;
  uint64_t mQueuedVideoBytes = 0;  // of items queued or being written
  bool mClosing = false;
  long mFirstError = 0;

  std::thread mThread;
};

}  // namespace KTN
