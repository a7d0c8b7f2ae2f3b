// One named POSIX shared-memory segment: created by the plug-in, mapped by it and by the server.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <vector>

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
  // Writes the parts, one after the other from the segment's first byte, through a
  // descriptor of the segment this object created: the kernel places the bytes in the
  // segment's fresh pages directly, without the page-by-page faults of filling a new
  // mapping. The parts must not reach past the size given to Create. 0 or errno, with
  // one failure line; 22 when this object did not create the segment.
  long Fill(const struct iovec* parts, int count);

  // For a reader that does not trust the segment's maker: opens the segment read-only and
  // keeps its descriptor, once it is known to be a plain segment (no link, FIFO or device:
  // 22, and the open never waits), to belong to owner, to be accessible to nobody else and
  // to hold exactly size bytes; otherwise it is refused (13 EACCES, or 22) before a byte
  // of it is read. The descriptor keeps the contents alive after the maker has removed the
  // name; it is closed with the object.
  long OpenTrusted(uid_t owner, unsigned long long size);
  // Copies all of a segment opened with OpenTrusted into bytes (resized to its size; the
  // capacity is kept from call to call) by reading its descriptor, never through a
  // mapping: a maker that shrinks the segment cannot fault the reader. 0, 61 (ENODATA)
  // with one line when the segment holds fewer bytes than it was opened with, or errno.
  long ReadOpened(std::vector<uint8_t>& bytes);
  long Unmap();
  long Unlink();

  // The current mapping, or null and 0 when not mapped.
  void* Address() const { return mAddress; }
  unsigned long long Size() const { return mSize; }
  const char* Key() const { return mKey; }
  // The descriptor OpenTrusted keeps (borrowed: the object closes it), or -1.
  int Descriptor() const { return mDescriptor; }
  // Bytes of the segment OpenTrusted opened; 0 before.
  unsigned long long OpenedSize() const { return mOpenedSize; }

 private:
  // Maps the open descriptor fd (length bytes); returns errno of a failed mmap unlogged,
  // so that the caller names itself in the message.
  long MapDescriptor(int fd, unsigned long long length, bool readOnly, void*& address);
  void CloseDescriptor();

  static constexpr size_t kMaxKeyLength = 31;

  char mKey[kMaxKeyLength + 1];
  void* mAddress = nullptr;
  unsigned long long mSize = 0;  // bytes; meaningful only while mapped
  bool mCreated = false;         // this object created the segment and sized it
  bool mExists = false;          // the segment is known to exist, created here or found
  int mDescriptor = -1;          // kept by OpenTrusted
  unsigned long long mOpenedSize = 0;
};

}  // namespace Core
}  // namespace KTN
