// One named POSIX shared-memory segment: created by the plug-in, mapped by it and by the server.
#pragma once

#include <stddef.h>

namespace KTN {

// The segment names both the plug-in and the recording server use. Because they are fixed,
// there is at most one segment of each kind on the machine at a time.
extern const char* const kVideoShmKey;  // "com.kestrin-design.shmvideo"
extern const char* const kAudioShmKey;  // "com.kestrin-design.shmaudio"

namespace Core {

// Used by one thread at a time; takes no lock. Every operation returns 0 or an errno value
// (22 for misuse, which touches nothing in the system) and logs one line on failure.
class SharedMemory {
 public:
  // Keys longer than 31 characters are cut to 31; a null key makes every operation fail.
  explicit SharedMemory(const char* key);
  // Unmaps a mapping of this object, and removes the name if this object created it;
  // an object that only mapped or found the segment leaves the name alone.
  virtual ~SharedMemory();

  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  // Creates the segment exclusively (owner read/write only) with size bytes; does not map.
  // A segment left over from another run fails with 17 (EEXIST) but is then known to
  // exist, so Unlink can remove it.
  long Create(unsigned long long size);
  // Opens the existing segment and maps all of it; address receives the start or null.
  long Map(void*& address, bool readOnly);
  long Unmap();
  long Unlink();

  // The current mapping, or null and 0 when not mapped.
  void* Address() const { return mAddress; }
  unsigned long long Size() const { return mSize; }
  const char* Key() const { return mKey; }

 private:
  static constexpr size_t kMaxKeyLength = 31;

  char mKey[kMaxKeyLength + 1];
  void* mAddress = nullptr;
  unsigned long long mSize = 0;  // bytes; meaningful only while mapped
  bool mCreated = false;         // this object created the segment and sized it
  bool mExists = false;          // the segment is known to exist, created here or found
};

}  // namespace Core
}  // namespace KTN
