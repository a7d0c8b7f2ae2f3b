// Tests of the server process client against a real child process (the stand-in server).
#include <gtest/gtest.h>

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "IPC/QTRecordClient.h"
#include "IPC/RecorderCommands.h"
#include "IPC/ServerProcess.h"
#include "Util/CapturedStderr.h"
#include "Util/ScratchFolder.h"
#include "Util/FourCC.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;
using Util::CapturedStderr;

int OpenDescriptorCount() {
  int count = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++count;
  }
  return count;
}

// A scratch folder holding a copy of the stand-in server under the given folder name.
class ServerFolder {
 public:
  explicit ServerFolder(const std::string& folderName) {
    mRoot = mScratch.Path();
    mFolder = mRoot + "/" + folderName;
    fs::create_directories(mFolder);
    fs::copy_file(FAKE_RECORD_SERVER, ServerPath());
  }
  ~ServerFolder() = default;
  std::string ServerPath() const { return mFolder + "/QTRecordServer"; }
  const std::string& Folder() const { return mFolder; }
  const std::string& Root() const { return mRoot; }

 private:
  Util::ScratchFolder mScratch;
  std::string mRoot;
  std::string mFolder;
};

std::string ReadFile(const std::string& path) {
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

// A client whose two streams can be put behind streams that note, in events, when each is
// closed and whether the server had ended and been waited for by then; closeError, when not
// 0, makes each close fail with that errno after the stream underneath has been closed.
class FakeWatchedClient : public QTRecordClient {
 public:
  void WatchStreams(std::vector<std::string>* events, int closeError) {
    mReadStream = Watch(mReadStream, "read stream", "r", events, closeError);
    mWriteStream = Watch(mWriteStream, "write stream", "w", events, closeError);
  }

 private:
  struct Watched {
    FILE* inner;
    const char* name;
    std::vector<std::string>* events;
    pid_t server;
    int closeError;
  };
  static ssize_t Read(void* cookie, char* buffer, size_t size) {
    return static_cast<ssize_t>(fread(buffer, 1, size, static_cast<Watched*>(cookie)->inner));
  }
  static ssize_t Write(void* cookie, const char* buffer, size_t size) {
    Watched* watched = static_cast<Watched*>(cookie);
    watched->events->push_back(std::string(watched->name) + " written: " + std::string(buffer, size));
    size_t written = fwrite(buffer, 1, size, watched->inner);
    fflush(watched->inner);
    return static_cast<ssize_t>(written);
  }
  static int Close(void* cookie) {
    Watched* watched = static_cast<Watched*>(cookie);
    bool ended = kill(watched->server, 0) != 0 && errno == ESRCH;
    watched->events->push_back(std::string(watched->name) + (ended ? " closed, server gone" : " closed, server there"));
    fclose(watched->inner);
    int error = watched->closeError;
    delete watched;
    if (error) {
      errno = error;
      return -1;
    }
    return 0;
  }
  FILE* Watch(FILE* inner, const char* name, const char* mode, std::vector<std::string>* events, int closeError) {
    cookie_io_functions_t functions = {Read, Write, nullptr, Close};
    return fopencookie(new Watched{inner, name, events, ServerPid(), closeError}, mode, functions);
  }
};

TEST(QTRecordClientTest, ServerRunsInItsOwnFolderEvenWithSpacesInThePath) {
  ServerFolder folder("My Disk/Kestrin Capture.bundle/Contents/Resources");
  std::string report = folder.Root() + "/where the server ran.txt";
  {
    QTRecordClient client;
    ASSERT_EQ(0, client.Init(folder.ServerPath().c_str()));
    EXPECT_GT(client.ServerPid(), 0);
    EXPECT_EQ(0, client.SetFilePath(report.c_str()));
    EXPECT_EQ(static_cast<long>(Util::FourCC("appl")), client.GetCodecManufacturer(static_cast<int>(Util::FourCC("jpeg"))));
    EXPECT_EQ(0, client.Exit());
  }
  EXPECT_EQ(folder.Folder(), ReadFile(report));
}

TEST(QTRecordClientTest, DestructionAfterExitReapsTheServerAndClosesEverything) {
  ServerFolder folder("A/B");
  int descriptorsBefore = OpenDescriptorCount();
  pid_t pid = 0;
  {
    QTRecordClient client;
    ASSERT_EQ(0, client.Init(folder.ServerPath().c_str()));
    pid = client.ServerPid();
    EXPECT_EQ(0, client.Begin());
    EXPECT_EQ(0, client.Exit());
  }
  EXPECT_EQ(-1, kill(pid, 0)) << "the server has been waited for";
  EXPECT_EQ(ESRCH, errno);
  EXPECT_EQ(descriptorsBefore, OpenDescriptorCount()) << "both streams and all pipe ends are closed";
}

// Destruction waits for the server to end before it closes anything: after Exit, the server
// still has its input and its answers are still read while it lingers.
TEST(QTRecordClientTest, DestructionWaitsForTheServerBeforeClosingItsPipes) {
  ServerFolder folder("order");
  std::string observed = folder.Root() + "/pipes.observe";
  {
    QTRecordClient client;
    ASSERT_EQ(0, client.Init(folder.ServerPath().c_str()));
    ASSERT_EQ(0, client.SetFilePath(observed.c_str()));
    ASSERT_EQ(0, client.Exit());
  }
  EXPECT_EQ("loop ended by Exit, input open, answers read", ReadFile(observed));
}

// Once the server has acknowledged Exit and ended, destruction closes the read stream, then
// the write stream, both after the server has been waited for, and sends nothing more.
TEST(QTRecordClientTest, AfterExitDestructionClosesTheReadStreamFirstOnceTheServerHasEnded) {
  ServerFolder folder("close order");
  std::vector<std::string> events;
  {
    FakeWatchedClient client;
    ASSERT_EQ(0, client.Init(folder.ServerPath().c_str()));
    ASSERT_EQ(0, client.Exit());
    client.WatchStreams(&events, 0);
  }
  EXPECT_EQ((std::vector<std::string>{"read stream closed, server gone", "write stream closed, server gone"}), events);
}

// The wait for the server returns when the process ends, not when its bound runs out: with a
// bound of almost 25 days, a server that ends at once is waited for at once. A watchdog
// fails the test instead of letting a wait that sits out its bound hang the run.
TEST(QTRecordClientTest, TheWaitForTheServerReturnsAsSoonAsItHasEnded) {
  int nothing = open("/dev/null", O_RDWR);
  ASSERT_GE(nothing, 0);
  auto server = std::make_shared<ServerProcess>();
  // Its input ends at once: the stand-in's loop reads the end of it and the process ends.
  ASSERT_EQ(0, server->Launch(FAKE_RECORD_SERVER, "/", nothing, nothing));
  close(nothing);
  auto ended = std::make_shared<std::promise<bool>>();
  std::future<bool> waited = ended->get_future();
  std::thread([server, ended] {
    bool hasEnded = false;
    long rc = server->WaitUntilExit(INT_MAX, hasEnded);
    ended->set_value(rc == 0 && hasEnded);
  }).detach();
  ASSERT_EQ(std::future_status::ready, waited.wait_for(std::chrono::seconds(30)))
      << "the wait sat out its bound after the server had ended";
  EXPECT_TRUE(waited.get());
  ASSERT_TRUE(WIFEXITED(server->ExitStatus()));
  EXPECT_EQ(1, WEXITSTATUS(server->ExitStatus())) << "its loop ended with the end of its input";
  EXPECT_EQ(-1, kill(server->Pid(), 0)) << "waited for";
}

// An owner that lets the client go without Exit: after a bounded wait the server is told
// to exit and its input ends, and destruction returns.
TEST(QTRecordClientTest, DestructionWithoutExitTellsTheServerAndReturns) {
  ServerFolder folder("no exit");
  std::string observed = folder.Root() + "/pipes.observe";
  pid_t pid = 0;
  {
    QTRecordClient client;
    ASSERT_EQ(0, client.Init(folder.ServerPath().c_str()));
    pid = client.ServerPid();
    ASSERT_EQ(0, client.SetFilePath(observed.c_str()));
  }
  EXPECT_EQ(-1, kill(pid, 0)) << "the server has ended and been waited for";
  EXPECT_EQ("loop ended by Exit, input ended, answers read", ReadFile(observed));
}

// A stream that cannot be closed is reported by the destructor, which closes both.
TEST(QTRecordClientTest, StreamsThatFailToCloseAreReportedByTheDestructor) {
  ServerFolder folder("close failures");
  std::vector<std::string> events;
  CapturedStderr captured;
  {
    FakeWatchedClient client;
    ASSERT_EQ(0, client.Init(folder.ServerPath().c_str()));
    ASSERT_EQ(0, client.Exit());
    client.WatchStreams(&events, EIO);
  }
  EXPECT_EQ("*** ~QTRecordClient[#]: fclose(mReadStream) returned 5\n"
            "*** ~QTRecordClient[#]: fclose(mWriteStream) returned 5\n",
            captured.Text());
  EXPECT_EQ(2u, events.size());
}

TEST(QTRecordClientTest, KilledServerAnswers5AndDestructionDoesNotHang) {
  ServerFolder folder("killed");
  sigset_t maskBefore;
  pthread_sigmask(SIG_SETMASK, nullptr, &maskBefore);
  {
    QTRecordClient client;
    ASSERT_EQ(0, client.Init(folder.ServerPath().c_str()));
    EXPECT_EQ(0, client.Begin());
    ASSERT_EQ(0, kill(client.ServerPid(), SIGKILL));
    CapturedStderr captured;
    EXPECT_EQ(5, client.Begin());
    // A long argument makes sure the write itself hits the closed pipe, with SIGPIPE at its
    // default action: the test process would die here if the client let the signal through.
    std::string path(4000, 'p');
    EXPECT_EQ(5, client.SetFilePath(path.c_str()));
    EXPECT_EQ(5, client.Stop());
    EXPECT_EQ("*** SendCommandSync[#]: ReadLine returned 5\n*** SendCommandSync[#]: ReadLine returned 5\n"
              "*** SendCommandSync[#]: ReadLine returned 5\n",
              captured.Text());
  }
  sigset_t maskAfter, pending;
  pthread_sigmask(SIG_SETMASK, nullptr, &maskAfter);
  sigpending(&pending);
  EXPECT_EQ(sigismember(&maskBefore, SIGPIPE), sigismember(&maskAfter, SIGPIPE)) << "signal mask restored";
  EXPECT_EQ(0, sigismember(&pending, SIGPIPE)) << "no SIGPIPE left pending";
  struct sigaction action;
  sigaction(SIGPIPE, nullptr, &action);
  EXPECT_EQ(SIG_DFL, action.sa_handler) << "the process's disposition was never changed";
}

// The exchange in two halves: the answer is collected in slices while the server works,
// and nothing else may be sent meanwhile.
TEST(QTRecordClientTest, SplitExchangeCollectsASlowAnswerInSlices) {
  ServerFolder folder("split");
  QTRecordClient client;
  ASSERT_EQ(0, client.Init(folder.ServerPath().c_str()));
  ASSERT_EQ(0, client.SendCommand(cmdMapAudio, 1500ull));  // answered after 1.5 s
  EXPECT_TRUE(client.AnswerPending());
  long status = -1;
  EXPECT_EQ(EINPROGRESS, client.ReceiveAnswer(100, status));
  EXPECT_EQ(-1, status);
  {
    CapturedStderr captured;
    EXPECT_EQ(EBUSY, client.Stop());
    EXPECT_EQ("*** SendCommandSync[#]: Stop sent while the answer to MapAudio is still to come\n", captured.Text());
  }
  long rc = EINPROGRESS;
  int slices = 0;
  while (rc == EINPROGRESS && slices < 1000) {
    rc = client.ReceiveAnswer(100, status);
    ++slices;
  }
  EXPECT_EQ(0, rc);
  EXPECT_EQ(0, status);
  EXPECT_FALSE(client.AnswerPending());
  EXPECT_EQ(0, client.Stop()) << "the next exchange is in step";
  EXPECT_EQ(0, client.Exit());
}

TEST(QTRecordClientTest, ReceivingWithoutACommandSentIsRefused) {
  ServerFolder folder("nothing-sent");
  QTRecordClient client;
  ASSERT_EQ(0, client.Init(folder.ServerPath().c_str()));
  long status = 0;
  CapturedStderr captured;
  EXPECT_EQ(EINVAL, client.ReceiveAnswer(100, status));
  EXPECT_EQ("*** ReceiveAnswer[#]: No command waits for its answer\n", captured.Text());
  EXPECT_EQ(0, client.Exit());
}

// Read and write system calls of this thread so far (other threads of the process, such as
// a sanitizer's, write on their own).
void SystemCalls(long long& reads, long long& writes) {
  std::ifstream io("/proc/thread-self/io");
  std::string key;
  long long value = 0;
  while (io >> key >> value) {
    if (key == "syscr:") reads = value;
    if (key == "syscw:") writes = value;
  }
}

// A prompt answer costs one read of the answer and one write of the command: the stream is
// buffered, and the server's state under /proc is not read for an answer that is on time.
TEST(QTRecordClientTest, AnExchangeCostsOneWriteAndOneRead) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer's own memory probes write on this thread; counted in the plain build";
#endif
  ServerFolder folder("economy");
  QTRecordClient client;
  ASSERT_EQ(0, client.Init(folder.ServerPath().c_str()));
  ASSERT_EQ(0, client.Begin());
  constexpr int kExchanges = 200;
  long long readsBefore = 0, writesBefore = 0, readsAfter = 0, writesAfter = 0;
  SystemCalls(readsBefore, writesBefore);
  for (int i = 0; i < kExchanges; ++i) ASSERT_EQ(0, client.MapVideo(1920ull * 1080 * 2));
  SystemCalls(readsAfter, writesAfter);
  EXPECT_LE(readsAfter - readsBefore, kExchanges + 2);  // the /proc/self/io read itself
  EXPECT_EQ(kExchanges, writesAfter - writesBefore) << "one write a command, on this thread";
  EXPECT_EQ(0, client.Exit());
}

// The descriptor limit at which exactly `room` more descriptors can be opened.
rlim_t LimitLeaving(int room) {
  std::vector<bool> open(4096, false);
  for (size_t fd = 0; fd < open.size(); ++fd) open[fd] = fcntl(static_cast<int>(fd), F_GETFD) != -1;
  int free = 0;
  rlim_t limit = 0;
  while (limit < open.size() && (free < room || open[limit])) free += !open[limit++];
  return limit;
}

// Out of descriptors, the pipes cannot be made: 12 with the client's own words, for the
// command pipe and then for the response pipe, in one line from Init and no other.
TEST(QTRecordClientTest, PipesThatCannotBeMadeAreReportedInTheClientsWords) {
  ServerFolder folder("no pipes");
  struct rlimit before;
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
  struct Case {
    int room;  // descriptors that may still be opened
    const char* line;
  };
  const Case cases[] = {
      {1, "*** Init[#]: Failed to allocate a command NSPipe\n"},
      {3, "*** Init[#]: Failed to allocate a response NSPipe\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    long rc = 0;
    std::string text;
    {
      QTRecordClient client;
      CapturedStderr captured;
      struct rlimit tight = before;
      tight.rlim_cur = LimitLeaving(c.room);
      ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &tight));
      rc = client.Init(folder.ServerPath().c_str());
      setrlimit(RLIMIT_NOFILE, &before);
      text = captured.Text();
    }
    EXPECT_EQ(ENOMEM, rc);
    EXPECT_EQ(c.line, text);
  }
}

TEST(QTRecordClientTest, LaunchFailureReturnsItsErrno) {
  int descriptorsBefore = OpenDescriptorCount();
  {
    QTRecordClient client;
    CapturedStderr captured;
    EXPECT_EQ(ENOENT, client.Init("/nonexistent/Kestrin/QTRecordServer"));
    EXPECT_EQ("*** Init[#]: posix_spawn failed with errno 2 (No such file or directory) for "
              "/nonexistent/Kestrin/QTRecordServer\n",
              captured.Text());
    CapturedStderr again;
    EXPECT_EQ(5, client.Begin()) << "no server: the command fails at once instead of waiting";
    again.Text();
  }
  EXPECT_EQ(descriptorsBefore, OpenDescriptorCount());
}

TEST(QTRecordClientTest, NonExecutableServerIsRefused) {
  ServerFolder folder("plain");
  fs::permissions(folder.ServerPath(), fs::perms::owner_read | fs::perms::owner_write);
  QTRecordClient client;
  CapturedStderr captured;
  long rc = client.Init(folder.ServerPath().c_str());
  std::string text = captured.Text();
  // As root the execute bit is still required, so this is EACCES for everyone.
  EXPECT_EQ(EACCES, rc) << text;
  EXPECT_EQ("*** Init[#]: posix_spawn failed with errno 13 (Permission denied) for " + folder.ServerPath() + "\n",
            text);
}

// A server that its owner has already waited for cannot be waited for again: the
// destructor reports that in its own name, once, and still closes everything.
TEST(QTRecordClientTest, AWaitThatFailsIsReportedByTheDestructor) {
  ServerFolder folder("reaped");
  int descriptorsBefore = OpenDescriptorCount();
  std::string text;
  pid_t pid = 0;
  {
    auto client = std::make_unique<QTRecordClient>();
    ASSERT_EQ(0, client->Init(folder.ServerPath().c_str()));
    pid = client->ServerPid();
    ASSERT_EQ(0, client->Exit());
    int status = 0;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    CapturedStderr captured;
    client.reset();
    text = captured.Text();
  }
  EXPECT_EQ("*** ~QTRecordClient[#]: waitpid(" + std::to_string(pid) + ") failed with errno 10 (No child processes)\n",
            text);
  EXPECT_EQ(descriptorsBefore, OpenDescriptorCount());
}

TEST(QTRecordClientTest, DestroyingAnUninitialisedClientDoesNothing) {
  int descriptorsBefore = OpenDescriptorCount();
  { QTRecordClient client; }
  EXPECT_EQ(descriptorsBefore, OpenDescriptorCount());
}

TEST(QTRecordClientTest, ExchangesFromSeveralThreadsStayWhole) {
  ServerFolder folder("threads");
  QTRecordClient client;
  ASSERT_EQ(0, client.Init(folder.ServerPath().c_str()));
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 250; ++i) {
        long expected = 0;
        long rc = (i + t) % 2 ? client.SetVideoWidth(i) : client.GetCodecManufacturer(static_cast<int>(Util::FourCC("jpeg")));
        expected = (i + t) % 2 ? 0 : static_cast<long>(Util::FourCC("appl"));
        if (rc != expected) ++failures;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(0, failures);
  EXPECT_EQ(0, client.Exit());
}

}  // namespace
}  // namespace KTN
