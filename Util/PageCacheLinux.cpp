// A file's share of the page cache on Linux: statfs for memory-backed folders, mincore, posix_fadvise.
#include "Util/PageCache.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <vector>

namespace KTN {
namespace Util {

namespace {

// Kinds of file system whose files are their pages (linux/magic.h).
constexpr long kMemoryFileSystems[] = {
    0x01021994,  // tmpfs (and /dev/shm)
    static_cast<long>(0x858458f6),  // ramfs
    static_cast<long>(0x958458f6),  // hugetlbfs
};

}  // namespace

bool PageCache::IsMemoryBacked(int fd) {
  struct statfs system;
  if (fstatfs(fd, &system) != 0) return true;  // unknown: never drop
  for (long kind : kMemoryFileSystems) {
    if (static_cast<long>(system.f_type) == kind) return true;
  }
  return false;
}

uint64_t PageCache::ResidentBytes(int fd, uint64_t size) {
  if (size == 0) return 0;
  const uint64_t page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  void* mapping = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
  if (mapping == MAP_FAILED) return 0;
  std::vector<unsigned char> resident((size + page - 1) / page);
  uint64_t pages = 0;
  if (mincore(mapping, size, resident.data()) == 0) {
    for (unsigned char state : resident) pages += state & 1;
  }
  munmap(mapping, size);
  return pages * page;
}

void PageCache::DropClean(int fd, uint64_t offset, uint64_t size) {
  if (size == 0 || IsMemoryBacked(fd)) return;
  posix_fadvise(fd, static_cast<off_t>(offset), static_cast<off_t>(size), POSIX_FADV_DONTNEED);
}

void PageCache::ReadSparsely(int fd) {
  posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
}

}  // namespace Util
}  // namespace KTN
