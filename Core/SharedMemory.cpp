// Named POSIX shared-memory segments for handing frames and audio to the recording server.
#include "Core/SharedMemory.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Util/FileIo.h"
#include "Util/FileKind.h"
#include "Util/Log.h"

namespace KTN {

const char* const kVideoShmKey = "com.kestrin-design.shmvideo";
const char* const kAudioShmKey = "com.kestrin-design.shmaudio";

namespace Core {

SharedMemory::SharedMemory(const char* key) {
  mKey[0] = '\0';
  if (!key) return;
  if (strlen(key) > kMaxKeyLength) {
    // Deliberately without a line feed: the caller's next failure line continues this one.
    Util::LogFailure(__func__, __LINE__, "Truncating key string to %u characters",
                     static_cast<unsigned>(kMaxKeyLength));
  }
  strncpy(mKey, key, kMaxKeyLength);
  mKey[kMaxKeyLength] = '\0';
}

SharedMemory::~SharedMemory() {
  CloseDescriptor();
  if (mAddress) {
    if (long rc = Unmap()) KTN_LOG("Unmap() returned %ld", rc);
  }
  if (mCreated) {
    if (long rc = Unlink()) KTN_LOG("Unlink() returned %ld", rc);
  }
}

long SharedMemory::Create(unsigned long long size) {
  if (!mKey[0]) {
    KTN_LOG("Invalid key");
    return EINVAL;
  }
  if (mCreated) {
    KTN_LOG("Shared memory already created");
    return EINVAL;
  }
  int fd = shm_open(mKey, O_RDWR | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
  if (fd < 0) {
    int error = errno;
    mExists = (error == 0 || error == EEXIST);
    if (error) {
      KTN_LOG("shm_open(%s) failed with errno %ld (%s)", mKey, static_cast<long>(error), strerror(error));
      return error;
    }
  } else {
    mExists = true;
  }
  long result = 0;
  if (ftruncate(fd, static_cast<off_t>(size)) != 0 && errno != 0) {
    result = errno;
    KTN_LOG("ftruncate(%d, %llu) failed with errno %ld (%s)", fd, size, result, strerror(errno));
  } else {
    mCreated = true;
  }
  // A descriptor numbered 0 is left open: it would be the process's standard input.
  if (fd > 0 && close(fd) != 0 && errno != 0) {
    KTN_LOG("close(%d) failed with errno %ld (%s)", fd, static_cast<long>(errno), strerror(errno));
  }
  return result;
}

long SharedMemory::Map(void*& address, bool readOnly) {
  if (!mKey[0]) {
    KTN_LOG("Invalid key");
    return EINVAL;
  }
  if (mAddress) {
    KTN_LOG("Shared memory already mapped at %p", mAddress);
    return EINVAL;
  }
  int fd = shm_open(mKey, readOnly ? O_RDONLY : O_RDWR, 0);
  if (fd < 0 && errno != 0) {
    long error = errno;
    KTN_LOG("shm_open(%s) failed with errno %ld (%s)", mKey, error, strerror(errno));
    return error;
  }
  long result = 0;
  struct stat info;
  if (fstat(fd, &info) != 0 && errno != 0) {
    result = errno;
    KTN_LOG("fstat(%d) failed with errno %ld (%s)", fd, result, strerror(errno));
  } else {
    unsigned long long length = static_cast<unsigned long long>(info.st_size);
    result = MapDescriptor(fd, length, readOnly, address);
    if (result) KTN_LOG("mmap(%llu, %d) failed with errno %ld (%s)", length, fd, result, strerror(result));
  }
  // The mapping outlives the descriptor; descriptor 0 is left open as in Create.
  if (fd > 0 && close(fd) != 0 && errno != 0) {
    KTN_LOG("close(%d) failed with errno %ld (%s)", fd, static_cast<long>(errno), strerror(errno));
  }
  if (address == MAP_FAILED) address = nullptr;
  return result;
}

long SharedMemory::Fill(const struct iovec* parts, int count) {
  if (!mKey[0] || !mCreated) {
    KTN_LOG("Invalid key or shared memory not created here");
    return EINVAL;
  }
  int fd = shm_open(mKey, O_RDWR | O_NOFOLLOW | O_CLOEXEC, 0);
  if (fd < 0) {
    long error = errno;
    KTN_LOG("shm_open(%s) failed with errno %ld (%s)", mKey, error, strerror(errno));
    return error;
  }
  long result = Util::FileIo::WriteAllParts(fd, parts, count, 0);
  if (result) KTN_LOG("pwritev(%s) failed with errno %ld (%s)", mKey, result, strerror(static_cast<int>(result)));
  close(fd);
  return result;
}

long SharedMemory::OpenTrusted(uid_t owner, unsigned long long size) {
  if (!mKey[0] || mAddress || mDescriptor >= 0) {
    KTN_LOG("Invalid key, or already mapped or opened");
    return EINVAL;
  }
  // O_NOFOLLOW: the name must be the segment itself. O_NONBLOCK: a FIFO put in its place
  // must not hold the open until someone writes to it.
  int fd = shm_open(mKey, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0);
  if (fd < 0) {
    long error = errno;
    KTN_LOG("shm_open(%s) failed with errno %ld (%s)", mKey, error, strerror(errno));
    return error;
  }
  long result = 0;
  struct stat info;
  if (fstat(fd, &info) != 0) {
    result = errno;
    KTN_LOG("fstat(%d) failed with errno %ld (%s)", fd, result, strerror(errno));
  } else if (!S_ISREG(info.st_mode)) {
    result = EINVAL;
    KTN_LOG("Segment %s is %s, not a segment: refused", mKey, Util::FileKind(info.st_mode));
  } else if (info.st_uid != owner || (info.st_mode & 077) != 0) {
    result = EACCES;
    KTN_LOG("Segment %s belongs to user %u with mode %o: refused", mKey, static_cast<unsigned>(info.st_uid),
            static_cast<unsigned>(info.st_mode & 07777));
  } else if (static_cast<unsigned long long>(info.st_size) != size) {
    result = EINVAL;
    KTN_LOG("Segment %s holds %llu bytes, not the %llu announced", mKey,
            static_cast<unsigned long long>(info.st_size), size);
  }
  if (result) {
    close(fd);
    return result;
  }
  mDescriptor = fd;
  mOpenedSize = size;
  return 0;
}

long SharedMemory::ReadOpened(std::vector<uint8_t>& bytes) {
  if (mDescriptor < 0) {
    KTN_LOG("Shared memory not opened");
    return EINVAL;
  }
  bytes.resize(mOpenedSize);
  size_t done = 0;
  long rc = Util::FileIo::ReadAll(mDescriptor, bytes.data(), mOpenedSize, 0, &done);
  if (rc == ENODATA) {
    KTN_LOG("Segment %s shrank to %llu of the %llu bytes it was opened with", mKey, static_cast<unsigned long long>(done),
            mOpenedSize);
  } else if (rc) {
    KTN_LOG("pread(%s, %llu) failed with errno %ld (%s)", mKey, static_cast<unsigned long long>(done), rc,
            strerror(static_cast<int>(rc)));
  }
  return rc;
}

void SharedMemory::CloseDescriptor() {
  if (mDescriptor >= 0) close(mDescriptor);
  mDescriptor = -1;
}

long SharedMemory::MapDescriptor(int fd, unsigned long long length, bool readOnly, void*& address) {
  address = mmap(nullptr, length, readOnly ? PROT_READ : PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (address != MAP_FAILED) {
    mAddress = address;
    mSize = length;
    return 0;
  }
  return errno;
}

long SharedMemory::Unmap() {
  if (!mKey[0]) {
    KTN_LOG("Invalid key");
    return EINVAL;
  }
  if (!mAddress) {
    KTN_LOG("Shared memory not mapped");
    return EINVAL;
  }
  if (munmap(mAddress, mSize) != 0 && errno != 0) {
    long error = errno;
    KTN_LOG("munmap(%p, %llu) failed with %ld (%s)", mAddress, mSize, error, strerror(errno));
    return error;
  }
  mAddress = nullptr;
  mSize = 0;
  return 0;
}

long SharedMemory::Unlink() {
  if (!mKey[0]) {
    KTN_LOG("Invalid key");
    return EINVAL;
  }
  if (!mCreated && !mExists) {
    KTN_LOG("Shared memory not created and not pre-existing");
    return EINVAL;
  }
  if (shm_unlink(mKey) != 0 && errno != 0) {
    long error = errno;
    KTN_LOG("shm_unlink(%s) failed with %ld (%s)", mKey, error, strerror(errno));
    return error;
  }
  mCreated = false;
  mExists = false;
  return 0;
}

}  // namespace Core
}  // namespace KTN
