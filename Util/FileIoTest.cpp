// Tests of whole reads, writes and copies: signals, short calls, calls that move nothing, the end of a file.
#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "Util/FileIo.h"
#include "Util/ProcStat.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace Util {
namespace {

std::atomic<int> sSignals{0};

void CountSignal(int) {
  sSignals.fetch_add(1);
}

// SIGUSR1 counted, and not restarting the call it interrupts: a blocked read or write
// returns with what it moved, or with EINTR when it moved nothing. Put back afterwards.
class InterruptingSignal {
 public:
  InterruptingSignal() {
    sSignals = 0;
    struct sigaction action = {};
    action.sa_handler = CountSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART
    sigaction(SIGUSR1, &action, &mPrevious);
  }
  ~InterruptingSignal() { sigaction(SIGUSR1, &mPrevious, nullptr); }

 private:
  struct sigaction mPrevious;
};

// The two ends of a pipe, closed with the object; either may be closed early.
struct TestPipe {
  int ends[2] = {-1, -1};
  TestPipe() { EXPECT_EQ(0, pipe(ends)); }
  ~TestPipe() {
    CloseRead();
    CloseWrite();
  }
  int Read() const { return ends[0]; }
  int Write() const { return ends[1]; }
  void CloseRead() {
    if (ends[0] >= 0) close(ends[0]);
    ends[0] = -1;
  }
  void CloseWrite() {
    if (ends[1] >= 0) close(ends[1]);
    ends[1] = -1;
  }
  int Queued() const {
    int bytes = -1;
    ioctl(ends[0], FIONREAD, &bytes);
    return bytes;
  }
};

// Waits, a minute at most, until condition holds.
template <typename Condition>
bool WaitFor(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Whether thread tid of this process sleeps (in these tests: blocked in its read or write).
bool Sleeping(long tid) {
  std::string path = "/proc/self/task/" + std::to_string(tid) + "/stat";
  ProcStat stat;
  return ProcStat::Read(path.c_str(), stat) && stat.state == 'S';
}

std::vector<uint8_t> Pattern(size_t size) {
  std::vector<uint8_t> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 251);
  return bytes;
}

TEST(FileIoTest, AWriteCutShortAndThenInterruptedBySignalsGoesOnToTheLastByte) {
  InterruptingSignal signal;
  TestPipe pipe;
  const int capacity = fcntl(pipe.Write(), F_GETPIPE_SZ);
  ASSERT_GT(capacity, 0);
  const std::vector<uint8_t> sent = Pattern(static_cast<size_t>(capacity) * 4);
  std::atomic<long> writerTid{0};
  std::atomic<bool> writerDone{false};
  long written = -1;
  std::thread writer([&] {
    writerTid = static_cast<long>(syscall(SYS_gettid));
    written = FileIo::WriteAll(pipe.Write(), sent.data(), sent.size());
    pipe.CloseWrite();  // the reader below meets the end, also after a write that gave up
    writerDone = true;
  });
  // The first signal meets a write that has filled the pipe: it returns short. The second
  // meets the write that follows it, which has moved nothing yet: it fails with EINTR.
  for (int round = 1; round <= 2; ++round) {
    bool blocked = WaitFor([&] {
      return writerDone || (writerTid != 0 && pipe.Queued() == capacity && Sleeping(writerTid));
    });
    if (!blocked || writerDone) {
      ADD_FAILURE() << "the write ended before signal " << round;
      break;
    }
    pthread_kill(writer.native_handle(), SIGUSR1);
    if (!WaitFor([&] { return sSignals == round; })) {
      ADD_FAILURE() << "signal " << round << " did not come";
      break;
    }
  }
  std::vector<uint8_t> received(sent.size() + 1);
  size_t got = 0;
  EXPECT_EQ(ENODATA, FileIo::ReadAll(pipe.Read(), received.data(), received.size(), -1, &got));
  writer.join();
  EXPECT_EQ(2, sSignals);
  EXPECT_EQ(0, written);
  ASSERT_EQ(sent.size(), got);
  received.resize(got);
  EXPECT_TRUE(sent == received) << "every byte once, in order";
}

TEST(FileIoTest, AReadInterruptedByASignalAndThenCutShortGoesOnUntilAllHaveCome) {
  InterruptingSignal signal;
  TestPipe pipe;
  std::atomic<long> readerTid{0};
  std::atomic<bool> readerDone{false};
  char received[11] = {};
  long read = -1;
  size_t got = 0;
  std::thread reader([&] {
    readerTid = static_cast<long>(syscall(SYS_gettid));
    read = FileIo::ReadAll(pipe.Read(), received, 10, -1, &got);
    readerDone = true;
  });
  // Nothing has come: the read fails with EINTR.
  EXPECT_TRUE(WaitFor([&] { return readerDone || (readerTid != 0 && Sleeping(readerTid)); }));
  EXPECT_FALSE(readerDone);
  pthread_kill(reader.native_handle(), SIGUSR1);
  EXPECT_TRUE(WaitFor([&] { return sSignals == 1; }));
  // Four bytes: the read returns short; the next one waits for the other six.
  EXPECT_EQ(0, FileIo::WriteAll(pipe.Write(), "0123", 4));
  EXPECT_TRUE(WaitFor([&] { return readerDone || (pipe.Queued() == 0 && Sleeping(readerTid)); }));
  EXPECT_FALSE(readerDone);
  EXPECT_EQ(0, FileIo::WriteAll(pipe.Write(), "456789", 6));
  pipe.CloseWrite();  // a read that gave up early does not leave this test waiting
  reader.join();
  EXPECT_EQ(0, read);
  EXPECT_EQ(10u, got);
  EXPECT_STREQ("0123456789", received);
}

TEST(FileIoTest, ACallThatMovesNothingIsAnErrorForAWriteAndTheEndForARead) {
  // Three bytes, then nothing: the loop stops at once, whichever way the bytes go.
  for (FileIo::Direction direction : {FileIo::Direction::kWrite, FileIo::Direction::kRead}) {
    int calls = 0;
    size_t done = 99;
    long rc = FileIo::Transfer(
        10, direction,
        [&](size_t moved) -> ssize_t {
          ++calls;
          if (calls > 100) return -1;  // a loop that spins would end here, with errno unchanged
          return moved == 0 ? 3 : 0;
        },
        &done);
    EXPECT_EQ(direction == FileIo::Direction::kWrite ? EIO : ENODATA, rc);
    EXPECT_EQ(2, calls);
    EXPECT_EQ(3u, done);
  }
}

TEST(FileIoTest, ShortCallsGoOnFromWhereTheyStoppedAndAFailureStopsAtOnce) {
  std::vector<size_t> asked;
  size_t done = 0;
  long rc = FileIo::Transfer(
      10, FileIo::Direction::kWrite,
      [&](size_t moved) -> ssize_t {
        asked.push_back(moved);
        if (asked.size() == 2) {
          errno = EINTR;
          return -1;
        }
        if (moved < 9) return moved == 0 ? 4 : 5;
        errno = ENOSPC;
        return -1;
      },
      &done);
  EXPECT_EQ(ENOSPC, rc);
  EXPECT_EQ(9u, done);
  EXPECT_EQ((std::vector<size_t>{0, 4, 4, 9}), asked) << "EINTR asks again for the same bytes";
}

TEST(FileIoTest, AFullDeviceAndAFullPipeSayWhy) {
  int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  EXPECT_EQ(ENOSPC, FileIo::WriteAll(full, "x", 1));
  close(full);

  TestPipe pipe;
  ASSERT_EQ(0, fcntl(pipe.Write(), F_SETFL, O_NONBLOCK));
  const int capacity = fcntl(pipe.Write(), F_GETPIPE_SZ);
  const std::vector<uint8_t> bytes = Pattern(static_cast<size_t>(capacity) + 1);
  EXPECT_EQ(EAGAIN, FileIo::WriteAll(pipe.Write(), bytes.data(), bytes.size())) << "not a wait, not a spin";
  EXPECT_EQ(capacity, pipe.Queued());
}

TEST(FileIoTest, AWriteThatReachesTheFileSizeLimitIsCutShortThenRefused) {
  ScratchFolder folder;
  const std::string path = folder.File("limited");
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // The first write takes the 100 bytes below the limit; the next one fails (EFBIG).
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {100, 100};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(100);
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) _exit(101);
    const std::vector<uint8_t> bytes = Pattern(150);
    _exit(static_cast<int>(FileIo::WriteAll(fd, bytes.data(), bytes.size())));
  }
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(EFBIG, WEXITSTATUS(status));
  struct stat info;
  ASSERT_EQ(0, stat(path.c_str(), &info));
  EXPECT_EQ(100, info.st_size);
}

TEST(FileIoTest, TheEndOfAFileOrAPipeGivesTheBytesReadSoFar) {
  ScratchFolder folder;
  int fd = open(folder.File("ten").c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(0, FileIo::WriteAll(fd, "0123456789", 10));
  char bytes[20] = {};
  size_t got = 99;
  EXPECT_EQ(0, FileIo::ReadAll(fd, bytes, 4, 6, &got));
  EXPECT_EQ(4u, got);
  EXPECT_EQ("6789", std::string(bytes, 4));
  EXPECT_EQ(ENODATA, FileIo::ReadAll(fd, bytes, 20, 2, &got));
  EXPECT_EQ(8u, got);
  EXPECT_EQ("23456789", std::string(bytes, 8));
  EXPECT_EQ(ENODATA, FileIo::ReadAll(fd, bytes, 1, 10, &got));
  EXPECT_EQ(0u, got);
  close(fd);

  TestPipe pipe;
  ASSERT_EQ(0, FileIo::WriteAll(pipe.Write(), "abc", 3));
  pipe.CloseWrite();
  EXPECT_EQ(ENODATA, FileIo::ReadAll(pipe.Read(), bytes, 20, -1, &got));
  EXPECT_EQ(3u, got);
  EXPECT_EQ("abc", std::string(bytes, 3));
}

TEST(FileIoTest, PartsAreWrittenJoinedAtTheOffsetAndEmptyOnesPassedOver) {
  ScratchFolder folder;
  int fd = open(folder.File("parts").c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(0, FileIo::WriteAll(fd, "-----", 5));
  // More parts than one call takes, some of them empty.
  std::string text;
  std::vector<std::string> words;
  for (int i = 0; i < 40; ++i) words.push_back(i % 3 == 0 ? std::string() : std::to_string(i));
  std::vector<struct iovec> parts;
  for (std::string& word : words) {
    parts.push_back({&word[0], word.size()});
    text += word;
  }
  ASSERT_EQ(0, FileIo::WriteAllParts(fd, parts.data(), static_cast<int>(parts.size()), 2));
  EXPECT_EQ(5, lseek(fd, 0, SEEK_CUR)) << "a write at an offset leaves the position";
  std::string back(2 + text.size(), '\0');
  ASSERT_EQ(0, FileIo::ReadAll(fd, &back[0], back.size(), 0));
  EXPECT_EQ("--" + text, back);
  close(fd);
}

TEST(FileIoTest, ACopyEndsWithTheFileItCopiesAndRefusesWhatTheKernelCannotCopy) {
  ScratchFolder folder;
  int from = open(folder.File("from").c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  int to = open(folder.File("to").c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  ASSERT_GE(from, 0);
  ASSERT_GE(to, 0);
  ASSERT_EQ(0, FileIo::WriteAll(from, "0123456789", 10));
  size_t copied = 99;
  EXPECT_EQ(ENODATA, FileIo::CopyAll(to, from, 4, 20, &copied));
  EXPECT_EQ(6u, copied);
  char back[6] = {};
  ASSERT_EQ(0, FileIo::ReadAll(to, back, 6, 0));
  EXPECT_EQ("456789", std::string(back, 6));

  // Into a file opened to append the kernel does not copy: nothing is copied, and the
  // caller copies itself.
  int appending = open(folder.File("to").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  ASSERT_GE(appending, 0);
  EXPECT_EQ(EINVAL, FileIo::CopyAll(appending, from, 0, 10, &copied));
  EXPECT_EQ(0u, copied);
  close(appending);
  close(from);
  close(to);
}

}  // namespace
}  // namespace Util
}  // namespace KTN
