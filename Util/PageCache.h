// A file's share of the page cache: how much of it is resident, whether its pages can be dropped, and dropping them.
#pragma once

#include <stdint.h>

namespace KTN {
namespace Util {

// No state; any thread. The descriptor is borrowed. None of these writes a failure line:
// each is advice about memory, and a take goes on the same whether it is taken or not.
class PageCache {
 public:
  // Whether the file lives in memory (tmpfs, ramfs): its pages are its only copy, so they
  // must never be dropped, and there is no disk to push them to.
  static bool IsMemoryBacked(int fd);
  // Bytes of the file's first size bytes that sit in the page cache, in whole pages; 0 when
  // the file cannot be mapped to ask.
  static uint64_t ResidentBytes(int fd, uint64_t size);
  // Drops bytes [offset, offset + size) from the page cache where they are already on the
  // disk (clean): a reader's pages, or a writer's once written back. Pages still to be
  // written stay. Nothing is dropped from a file that lives in memory.
  static void DropClean(int fd, uint64_t offset, uint64_t size);
  // Tells the kernel that the file will be read here and there (box headers far apart), so
  // that a read brings in its own pages and not a long read-ahead of samples around them.
  static void ReadSparsely(int fd);
};

}  // namespace Util
}  // namespace KTN
