// Tests of SharedMemory against real POSIX segments in /dev/shm.
#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "Core/SharedMemory.h"
#include "Util/CapturedStderr.h"

namespace KTN {
namespace Core {
namespace {

using Util::CapturedStderr;

// A key of this test process only, so that parallel runs never meet.
std::string TestKey(const char* tag) {
  return "ktn." + std::to_string(getpid()) + "." + tag;
}

bool SegmentExists(const std::string& key) {
  struct stat info;
  return stat(("/dev/shm/" + key).c_str(), &info) == 0;
}

// Removes a segment a failed test may have left.
struct SegmentCleanup {
  std::string key;
  ~SegmentCleanup() { shm_unlink(key.c_str()); }
};

TEST(SharedMemoryTest, KeysAreTheSystemsNames) {
  EXPECT_STREQ("com.kestrin-design.shmvideo", kVideoShmKey);
  EXPECT_STREQ("com.kestrin-design.shmaudio", kAudioShmKey);
}

TEST(SharedMemoryTest, CreateMapFillAndReadBackReadOnly) {
  std::string key = TestKey("rt");
  SegmentCleanup cleanup{key};
  SharedMemory writer(key.c_str());
  ASSERT_EQ(0, writer.Create(4096));
  void* address = nullptr;
  ASSERT_EQ(0, writer.Map(address, false));
  ASSERT_NE(nullptr, address);
  EXPECT_EQ(4096u, writer.Size());
  memset(address, 0x5a, 4096);

  SharedMemory reader(key.c_str());
  void* view = nullptr;
  ASSERT_EQ(0, reader.Map(view, true));
  ASSERT_NE(nullptr, view);
  EXPECT_EQ(4096u, reader.Size());
  EXPECT_EQ(0x5a, static_cast<unsigned char*>(view)[0]);
  EXPECT_EQ(0x5a, static_cast<unsigned char*>(view)[4095]);
}

TEST(SharedMemoryTest, SegmentIsOwnerReadWriteOnly) {
  std::string key = TestKey("perm");
  SegmentCleanup cleanup{key};
  SharedMemory segment(key.c_str());
  ASSERT_EQ(0, segment.Create(16));
  struct stat info;
  ASSERT_EQ(0, stat(("/dev/shm/" + key).c_str(), &info));
  EXPECT_EQ(0600u, info.st_mode & 0777);
  EXPECT_EQ(16, info.st_size);
}

// Segments a wary reader meets: only its own user's, closed to others, of the size it was
// told, is mapped.
struct TrustCase {
  const char* tag;
  mode_t mode;         // permissions given to the segment after creation
  bool otherOwner;     // the reader expects a different owner
  long sizeDelta;      // the reader expects this many bytes more than the segment holds
  long expected;
  const char* message; // a piece of the one line logged, or null when nothing is
};

// What the recording server does with a segment it is told of: opens it as a wary reader,
// then reads it; bytes stay empty unless read.
long OpenAndRead(SharedMemory& reader, std::vector<uint8_t>& bytes, uid_t owner, unsigned long long size) {
  bytes.clear();
  if (long rc = reader.OpenTrusted(owner, size)) return rc;
  return reader.ReadOpened(bytes);
}

const TrustCase kTrustCases[] = {
    {"ok", 0600, false, 0, 0, nullptr},
    {"ro", 0400, false, 0, 0, nullptr},
    {"group", 0640, false, 0, EACCES, "with mode 640: refused"},
    {"world", 0606, false, 0, EACCES, "with mode 606: refused"},
    {"owner", 0600, true, 0, EACCES, ": refused"},
    {"short", 0600, false, 1, EINVAL, "holds 4096 bytes, not the 4097 announced"},
    {"long", 0600, false, -1, EINVAL, "holds 4096 bytes, not the 4095 announced"},
};

TEST(SharedMemoryTest, AWaryReaderTakesOnlyPrivateSegmentsOfTheAnnouncedSize) {
  for (const TrustCase& test : kTrustCases) {
    std::string key = TestKey(test.tag);
    SegmentCleanup cleanup{key};
    SharedMemory writer(key.c_str());
    ASSERT_EQ(0, writer.Create(4096)) << test.tag;
    ASSERT_EQ(0, chmod(("/dev/shm/" + key).c_str(), test.mode)) << test.tag;
    SharedMemory reader(key.c_str());
    std::vector<uint8_t> bytes;
    CapturedStderr captured;
    uid_t owner = test.otherOwner ? getuid() + 1 : getuid();
    EXPECT_EQ(test.expected, OpenAndRead(reader, bytes, owner, 4096 + test.sizeDelta)) << test.tag;
    std::string text = captured.Text();
    if (test.expected == 0) {
      EXPECT_EQ(4096u, bytes.size()) << test.tag;
      EXPECT_EQ("", text) << test.tag;
    } else {
      EXPECT_EQ(0u, bytes.size()) << test.tag;
      EXPECT_EQ(-1, reader.Descriptor()) << test.tag;
      EXPECT_NE(std::string::npos, text.find(test.message)) << test.tag << ": " << text;
    }
  }
}

TEST(SharedMemoryTest, AWaryReaderRefusesAMissingSegment) {
  SharedMemory reader(TestKey("absent").c_str());
  std::vector<uint8_t> bytes;
  CapturedStderr captured;
  EXPECT_EQ(ENOENT, OpenAndRead(reader, bytes, getuid(), 16));
  EXPECT_NE(std::string::npos, captured.Text().find("shm_open(")) << captured.Text();
}

TEST(SharedMemoryTest, CreatorRemovesTheNameWhenDestroyed) {
  std::string key = TestKey("gone");
  SegmentCleanup cleanup{key};
  {
    SharedMemory segment(key.c_str());
    ASSERT_EQ(0, segment.Create(64));
    void* address = nullptr;
    ASSERT_EQ(0, segment.Map(address, false));
    EXPECT_TRUE(SegmentExists(key));
  }
  EXPECT_FALSE(SegmentExists(key));
}

TEST(SharedMemoryTest, LongKeyIsTruncatedTo31Characters) {
  std::string key = TestKey("long");
  key.append(40 - key.size(), 'x');
  ASSERT_EQ(40u, key.size());
  std::string truncated = key.substr(0, 31);
  SegmentCleanup cleanup{truncated};
  CapturedStderr captured;
  SharedMemory segment(key.c_str());
  // No line feed: the next failure line would continue this one.
  EXPECT_EQ("*** SharedMemory[#]: Truncating key string to 31 characters", captured.Text());
  EXPECT_EQ(truncated, segment.Key());
  ASSERT_EQ(0, segment.Create(8));
  EXPECT_TRUE(SegmentExists(truncated));
}

TEST(SharedMemoryTest, StaleSegmentIsRecoveredByUnlinkThenCreate) {
  std::string key = TestKey("stale");
  SegmentCleanup cleanup{key};
  int fd = shm_open(key.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);  // left by an earlier run
  ASSERT_GE(fd, 0);
  close(fd);

  SharedMemory segment(key.c_str());
  CapturedStderr captured;
  EXPECT_EQ(17, segment.Create(32));
  EXPECT_EQ("*** Create[#]: shm_open(" + key + ") failed with errno 17 (File exists)\n", captured.Text());
  EXPECT_EQ(0, segment.Unlink());
  EXPECT_FALSE(SegmentExists(key));
  EXPECT_EQ(0, segment.Create(32));
  EXPECT_TRUE(SegmentExists(key));
}

TEST(SharedMemoryTest, MapOfEmptySegmentMapsNothing) {
  std::string key = TestKey("empty");
  SegmentCleanup cleanup{key};
  SharedMemory segment(key.c_str());
  ASSERT_EQ(0, segment.Create(0));
  void* address = reinterpret_cast<void*>(1);
  CapturedStderr captured;
  EXPECT_EQ(EINVAL, segment.Map(address, false));
  std::string text = captured.Text();
  EXPECT_EQ(nullptr, address);
  EXPECT_EQ(nullptr, segment.Address());
  EXPECT_TRUE(std::regex_match(text, std::regex("\\*\\*\\* Map\\[#\\]: mmap\\(0, [0-9]+\\) failed with errno 22 "
                                                "\\(Invalid argument\\)\n")))
      << text;
}

TEST(SharedMemoryTest, MapperUnmapsButLeavesTheName) {
  std::string key = TestKey("mapper");
  SegmentCleanup cleanup{key};
  SharedMemory creator(key.c_str());
  ASSERT_EQ(0, creator.Create(4096));
  void* view = nullptr;
  {
    SharedMemory mapper(key.c_str());
    ASSERT_EQ(0, mapper.Map(view, true));
    ASSERT_NE(nullptr, view);
    EXPECT_EQ(0, msync(view, 4096, MS_ASYNC));
  }
  // msync fails with ENOMEM on an address range that is no longer mapped.
  EXPECT_EQ(-1, msync(view, 4096, MS_ASYNC));
  EXPECT_EQ(ENOMEM, errno);
  EXPECT_TRUE(SegmentExists(key));
}

TEST(SharedMemoryTest, UnlinkOfUnknownSegmentIsRefused) {
  SharedMemory segment(TestKey("fresh").c_str());
  CapturedStderr captured;
  EXPECT_EQ(EINVAL, segment.Unlink());
  EXPECT_EQ("*** Unlink[#]: Shared memory not created and not pre-existing\n", captured.Text());
}

TEST(SharedMemoryTest, MisuseIsRefusedWithoutTouchingTheSystem) {
  SharedMemory keyless(nullptr);
  void* address = nullptr;
  {
    CapturedStderr captured;
    EXPECT_EQ(EINVAL, keyless.Create(8));
    EXPECT_EQ(EINVAL, keyless.Map(address, false));
    EXPECT_EQ(EINVAL, keyless.Unmap());
    EXPECT_EQ(EINVAL, keyless.Unlink());
    EXPECT_EQ("*** Create[#]: Invalid key\n*** Map[#]: Invalid key\n*** Unmap[#]: Invalid key\n"
              "*** Unlink[#]: Invalid key\n",
              captured.Text());
  }
  std::string key = TestKey("misuse");
  SegmentCleanup cleanup{key};
  SharedMemory segment(key.c_str());
  ASSERT_EQ(0, segment.Create(8));
  ASSERT_EQ(0, segment.Map(address, false));
  CapturedStderr captured;
  EXPECT_EQ(EINVAL, segment.Create(8));
  void* again = nullptr;
  EXPECT_EQ(EINVAL, segment.Map(again, false));
  EXPECT_EQ(0, segment.Unmap());
  EXPECT_EQ(EINVAL, segment.Unmap());
  char expected[256];
  snprintf(expected, sizeof expected,
           "*** Create[#]: Shared memory already created\n*** Map[#]: Shared memory already mapped at %p\n"
           "*** Unmap[#]: Shared memory not mapped\n",
           address);
  EXPECT_EQ(expected, captured.Text());
}

TEST(SharedMemoryTest, MapOfMissingSegmentNamesTheCall) {
  std::string key = TestKey("missing");
  SharedMemory segment(key.c_str());
  void* address = nullptr;
  CapturedStderr captured;
  EXPECT_EQ(ENOENT, segment.Map(address, true));
  EXPECT_EQ("*** Map[#]: shm_open(" + key + ") failed with errno 2 (No such file or directory)\n", captured.Text());
}

// Fill writes its parts back to back from the segment's start, through more parts than
// one system call takes and around empty ones.
TEST(SharedMemoryTest, FillWritesThePartsOneAfterTheOther) {
  std::string key = TestKey("fill");
  SegmentCleanup cleanup{key};
  std::vector<std::string> texts;
  for (int i = 0; i < 11; ++i) texts.push_back(i == 4 ? "" : std::string(static_cast<size_t>(1000 + i), static_cast<char>('a' + i)));
  std::vector<struct iovec> parts;
  std::string expected;
  for (std::string& text : texts) {
    parts.push_back({&text[0], text.size()});
    expected += text;
  }
  SharedMemory writer(key.c_str());
  ASSERT_EQ(0, writer.Create(expected.size()));
  ASSERT_EQ(0, writer.Fill(parts.data(), static_cast<int>(parts.size())));

  SharedMemory reader(key.c_str());
  void* view = nullptr;
  ASSERT_EQ(0, reader.Map(view, true));
  ASSERT_EQ(expected.size(), reader.Size());
  EXPECT_EQ(expected, std::string(static_cast<const char*>(view), expected.size()));
}

TEST(SharedMemoryTest, FillIsOnlyForTheSegmentsCreator) {
  std::string key = TestKey("fillother");
  SegmentCleanup cleanup{key};
  SharedMemory creator(key.c_str());
  ASSERT_EQ(0, creator.Create(16));
  SharedMemory other(key.c_str());
  char bytes[16] = {};
  struct iovec part = {bytes, sizeof bytes};
  CapturedStderr captured;
  EXPECT_EQ(EINVAL, other.Fill(&part, 1));
  EXPECT_EQ("*** Fill[#]: Invalid key or shared memory not created here\n", captured.Text());
}

// A reader that opened the segment keeps its contents after the maker removed the name,
// as the recording server does between its answer and its write.
TEST(SharedMemoryTest, OpenedSegmentOutlivesItsName) {
  std::string key = TestKey("opened");
  SegmentCleanup cleanup{key};
  std::string text(8192, 'k');
  struct iovec part = {&text[0], text.size()};
  SharedMemory reader(key.c_str());
  {
    SharedMemory writer(key.c_str());
    ASSERT_EQ(0, writer.Create(text.size()));
    ASSERT_EQ(0, writer.Fill(&part, 1));
    ASSERT_EQ(0, reader.OpenTrusted(getuid(), text.size()));
  }  // unlinked here
  EXPECT_FALSE(SegmentExists(key));
  ASSERT_GE(reader.Descriptor(), 0);
  EXPECT_EQ(text.size(), reader.OpenedSize());
  std::string read(text.size(), '\0');
  EXPECT_EQ(static_cast<ssize_t>(text.size()), pread(reader.Descriptor(), &read[0], read.size(), 0));
  EXPECT_EQ(text, read);
  std::vector<uint8_t> bytes;
  ASSERT_EQ(0, reader.ReadOpened(bytes));
  EXPECT_EQ(text, std::string(bytes.begin(), bytes.end()));
}

TEST(SharedMemoryTest, ReadOpenedNeedsAnOpenedSegment) {
  SharedMemory segment(TestKey("unopened").c_str());
  std::vector<uint8_t> bytes;
  CapturedStderr captured;
  EXPECT_EQ(EINVAL, segment.ReadOpened(bytes));
  EXPECT_EQ("*** ReadOpened[#]: Shared memory not opened\n", captured.Text());
}

// A segment its maker shrinks after the reader opened it is read as far as it goes and
// refused with one line: the reader never touches a page that is no longer there.
TEST(SharedMemoryTest, ASegmentShrunkAfterItWasOpenedIsRefusedWhenRead) {
  std::string key = TestKey("shrunk");
  SegmentCleanup cleanup{key};
  SharedMemory writer(key.c_str());
  ASSERT_EQ(0, writer.Create(3 * 4096));
  SharedMemory reader(key.c_str());
  ASSERT_EQ(0, reader.OpenTrusted(getuid(), 3 * 4096));
  int fd = shm_open(key.c_str(), O_RDWR, 0);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(0, ftruncate(fd, 4096));
  close(fd);
  std::vector<uint8_t> bytes;
  CapturedStderr captured;
  EXPECT_EQ(ENODATA, reader.ReadOpened(bytes));
  EXPECT_NE(std::string::npos, captured.Text().find("shrank to 4096 of the 12288 bytes it was opened with"))
      << captured.Text();
}

// A FIFO in a segment's place is refused at once, with a line saying what it is: the open
// does not wait for a writer. Should it wait, a writer is opened after a minute, which lets
// the old open go on to fail this test rather than hang it.
TEST(SharedMemoryTest, AFifoInTheSegmentsPlaceIsRefusedAtOnce) {
  std::string key = TestKey("fifo");
  SegmentCleanup cleanup{key};
  std::string path = "/dev/shm/" + key;
  ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
  std::atomic<bool> returned{false};
  std::atomic<bool> released{false};
  std::thread watchdog([&] {
    for (int i = 0; i < 600 && !returned; ++i) usleep(100 * 1000);
    if (returned) return;
    int writer = open(path.c_str(), O_WRONLY | O_NONBLOCK);
    released = writer >= 0;
    if (writer >= 0) close(writer);
  });
  SharedMemory reader(key.c_str());
  CapturedStderr captured;
  long rc = reader.OpenTrusted(getuid(), 0);
  returned = true;
  watchdog.join();
  EXPECT_FALSE(released) << "the open waited for a writer";
  EXPECT_EQ(EINVAL, rc);
  EXPECT_EQ(-1, reader.Descriptor());
  EXPECT_NE(std::string::npos, captured.Text().find("is a FIFO, not a segment: refused")) << captured.Text();
}

}  // namespace
}  // namespace Core
}  // namespace KTN
