// Tests of WriteBehind: a file written through it holds no more than its window of the page cache on a disk, and all of it in memory.
#include "Server/WriteBehind.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "Util/FileIo.h"
#include "Util/PageCache.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

using Util::PageCache;
using Util::ScratchFolder;

constexpr uint64_t kPage = 4096;
constexpr uint64_t kWindow = 4 << 20;
constexpr uint64_t kBlock = 700000;  // about one SD frame, not a whole number of pages
constexpr int kBlocks = 150;         // about 100 MB in all

// Writes kBlocks blocks to a new file in folder through a WriteBehind of kWindow, and
// returns the most pages of it resident after any block; residentAtEnd receives the pages
// resident once all is written.
uint64_t MostResidentPages(const ScratchFolder& folder, uint64_t& residentAtEnd, bool& memoryBacked) {
  const std::string path = folder.File("take.mov");
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  EXPECT_GE(fd, 0);
  if (fd < 0) return 0;
  int reader = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  memoryBacked = PageCache::IsMemoryBacked(fd);
  std::vector<uint8_t> block(kBlock, 0x5a);
  WriteBehind behind(kWindow);
  behind.Start(fd, path, 0);
  uint64_t most = 0, written = 0;
  for (int i = 0; i < kBlocks; ++i) {
    EXPECT_EQ(Util::FileIo::WriteAll(fd, block.data(), block.size()), 0);
    written += block.size();
    EXPECT_EQ(behind.Written(written), 0);
    most = std::max(most, PageCache::ResidentBytes(reader, written) / kPage);
  }
  behind.Stop();
  residentAtEnd = PageCache::ResidentBytes(reader, written) / kPage;
  close(reader);
  close(fd);
  struct stat status;
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(static_cast<uint64_t>(status.st_size), written) << "every byte written stays in the file";
  return most;
}

// On a disk the file holds at most its window of the cache (and a chunk or two more, with
// the block being written) while it is written, though it is 25 times larger.
TEST(WriteBehindTest, AFileOnTheDiskHoldsNoMoreThanItsWindowOfTheCache) {
  ScratchFolder folder(ScratchFolder::Where::kDisk);
  uint64_t atEnd = 0;
  bool memoryBacked = false;
  const uint64_t most = MostResidentPages(folder, atEnd, memoryBacked);
  if (memoryBacked) GTEST_SKIP() << "the build's scratch folder is in memory: " << folder.Path();
  EXPECT_LE(most, (kWindow + 2 * kBlock) / kPage) << "pages of the file resident at most while it was written";
  EXPECT_GT(most, 0u);
}

// In memory (tmpfs) the pages are the file: none is dropped.
TEST(WriteBehindTest, AFileInMemoryKeepsEveryPage) {
  ScratchFolder folder(ScratchFolder::Where::kMemory);
  uint64_t atEnd = 0;
  bool memoryBacked = false;
  MostResidentPages(folder, atEnd, memoryBacked);
  ASSERT_TRUE(memoryBacked) << folder.Path();
  EXPECT_EQ(atEnd, (kBlock * kBlocks + kPage - 1) / kPage);
}

}  // namespace
}  // namespace KTN
