// The host program as the user runs it: a child process, on a file or on a terminal of its own.
#include "tests/HostProgramProcess.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

namespace KTN {

namespace fs = std::filesystem;

// In a forked child: becomes the host program with arguments.
[[noreturn]] void ExecHostProgram(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  std::string program = KESTRIN_CAPTURE;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  execv(program.c_str(), argv.data());
  _exit(127);
}

namespace {

Child Start(const std::vector<std::string>& arguments, const std::string& folder, uid_t user, bool keepOutput) {
  Child child;
  child.errorFile = folder + "/stderr.txt";
  if (keepOutput) child.outputFile = folder + "/stdout.txt";
  child.pid = fork();
  if (child.pid == 0) {
    int error = open(child.errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(error, 2);
    int output = keepOutput ? open(child.outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644) : open("/dev/null", O_WRONLY);
    dup2(output, 1);
    if (user != static_cast<uid_t>(-1) && (setgid(user) != 0 || setuid(user) != 0)) _exit(126);
    ExecHostProgram(arguments);
  }
  return child;
}

}  // namespace

Child StartHostProgram(const std::vector<std::string>& arguments, const std::string& folder, uid_t user) {
  return Start(arguments, folder, user, false);
}

Child StartHostProgramWithOutput(const std::vector<std::string>& arguments, const std::string& folder) {
  return Start(arguments, folder, static_cast<uid_t>(-1), true);
}

StoppedAtEnd::~StoppedAtEnd() {
  if (child.pid <= 0 || waitpid(child.pid, nullptr, WNOHANG) != 0) return;  // reaped, or ended now
  StopWith(child.pid, SIGTERM, 30);
}

bool WaitForBytes(const std::string& path, uintmax_t bytes) {
  std::error_code ignored;
  for (auto until = std::chrono::steady_clock::now() + std::chrono::minutes(1); std::chrono::steady_clock::now() < until;) {
    if (fs::exists(path, ignored) && fs::file_size(path, ignored) >= bytes) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

int StopWith(pid_t pid, int signal, double seconds) {
  kill(pid, signal);
  int status = WaitFor(pid, seconds);
  if (status == -1) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  return status;
}

// The child's exit status, or -1 if it has not ended within seconds.
int WaitFor(pid_t pid, double seconds) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < deadline) {
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) return status;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return -1;
}

std::string ReadText(const std::string& path) {
  FILE* file = fopen(path.c_str(), "r");
  if (!file) return "";
  std::string text;
  char buffer[4096];
  size_t got;
  while ((got = fread(buffer, 1, sizeof buffer, file)) > 0) text.append(buffer, got);
  fclose(file);
  return text;
}

// The child processes of parent (started by any of its threads), ended but unreaped ones too.
std::vector<pid_t> ChildrenOf(pid_t parent) {
  std::vector<pid_t> pids;
  for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(parent) + "/task")) {
    std::string children = ReadText(task.path().string() + "/children");
    size_t start = 0;
    while (start < children.size()) {
      pid_t pid = static_cast<pid_t>(atoi(children.c_str() + start));
      if (pid > 0) pids.push_back(pid);
      size_t space = children.find(' ', start);
      if (space == std::string::npos) break;
      start = space + 1;
    }
  }
  return pids;
}

// The recording server among parent's children, or -1.
pid_t RunningServerOf(pid_t parent) {
  for (pid_t pid : ChildrenOf(parent)) {
    if (ReadText("/proc/" + std::to_string(pid) + "/comm") == "QTRecordServer\n") return pid;
  }
  return -1;
}

// The recording server the host program started, waiting up to four seconds for it.
pid_t ServerOf(pid_t host) {
  for (int i = 0; i < 200; ++i) {
    pid_t server = RunningServerOf(host);
    if (server > 0) return server;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return -1;
}

// The host program run to its end with its standard error on a pseudo-terminal: what it
// wrote there, and its exit status (-1 if it has not ended within seconds).
std::string RunOnATerminal(const std::vector<std::string>& arguments, double seconds, int& status) {
  int master = -1, slave = -1;
  struct winsize size = {};
  size.ws_row = 24;
  size.ws_col = 200;
  if (openpty(&master, &slave, nullptr, nullptr, &size) != 0) {
    ADD_FAILURE() << "openpty: " << strerror(errno);
    status = -1;
    return "";
  }
  pid_t pid = fork();
  if (pid == 0) {
    dup2(slave, 2);
    int null = open("/dev/null", O_RDWR);
    dup2(null, 0);
    dup2(null, 1);
    close(master);
    close(slave);
    ExecHostProgram(arguments);
  }
  close(slave);
  std::string text;
  status = -1;
  bool ended = false;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  // Read as it comes (a full terminal would hold the program up) until the program has ended
  // and all it wrote is read: the terminal then answers the end of its input.
  for (;;) {
    int waited = 0;
    if (!ended && waitpid(pid, &waited, WNOHANG) == pid) {
      status = waited;
      ended = true;
    }
    if (!ended && std::chrono::steady_clock::now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
      status = -1;
      break;
    }
    struct pollfd ready = {master, POLLIN, 0};
    int polled = poll(&ready, 1, 100);
    if (polled <= 0) {
      if (ended) break;
      continue;
    }
    char buffer[4096];
    ssize_t got = read(master, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      // Every end of the terminal closed: the program has ended, or is about to.
      if (!ended && (status = WaitFor(pid, seconds)) == -1) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
      }
      break;
    }
    text.append(buffer, static_cast<size_t>(got));
  }
  close(master);
  return text;
}

// The host program run to its end with its standard error in folder: its exit status (-1 if
// it has not ended within seconds) and what it wrote there.
int RunHostProgram(const std::vector<std::string>& arguments, const std::string& folder, double seconds,
                   std::string& error) {
  Child host = StartHostProgram(arguments, folder);
  int status = WaitFor(host.pid, seconds);
  if (status == -1) {
    kill(host.pid, SIGKILL);
    waitpid(host.pid, nullptr, 0);
  }
  error = ReadText(host.errorFile);
  return status;
}

int RunHostProgram(const std::vector<std::string>& arguments, const std::string& folder, double seconds,
                   std::string& output, std::string& error) {
  Child host = StartHostProgramWithOutput(arguments, folder);
  int status = WaitFor(host.pid, seconds);
  if (status == -1) {
    kill(host.pid, SIGKILL);
    waitpid(host.pid, nullptr, 0);
  }
  output = ReadText(host.outputFile);
  error = ReadText(host.errorFile);
  return status;
}

std::vector<std::string> LinesWith(const std::string& text, const std::string& part) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    if (line.find(part) != std::string::npos) lines.push_back(line);
    start = end + 1;
  }
  return lines;
}

std::vector<std::string> UserLines(const std::string& text) {
  std::vector<std::string> lines;
  for (const std::string& line : LinesWith(text, "kestrin-capture:")) {
    if (line.rfind("kestrin-capture:", 0) == 0) lines.push_back(line);
  }
  return lines;
}

TerminalProgram::~TerminalProgram() {
  if (mPid > 0 && !mEnded) {
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
  }
  if (mMaster >= 0) close(mMaster);
}

bool TerminalProgram::Start(const std::vector<std::string>& arguments) {
  struct winsize size = {};
  size.ws_row = 24;
  size.ws_col = 200;
  mPid = forkpty(&mMaster, nullptr, nullptr, &size);
  if (mPid < 0) {
    ADD_FAILURE() << "forkpty: " << strerror(errno);
    return false;
  }
  if (mPid == 0) ExecHostProgram(arguments);
  return true;
}

void TerminalProgram::Type(const std::string& keys) {
  if (mMaster < 0) return;
  if (write(mMaster, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
    ADD_FAILURE() << "typing on the terminal: " << strerror(errno);
  }
}

bool TerminalProgram::ReadSome(int millis) {
  if (mMaster < 0) return false;
  struct pollfd ready = {mMaster, POLLIN, 0};
  if (poll(&ready, 1, millis) <= 0) return true;
  char buffer[4096];
  ssize_t got = read(mMaster, buffer, sizeof buffer);
  if (got < 0 && errno == EINTR) return true;
  if (got <= 0) return false;  // every end of the terminal closed: the program has ended
  mText.append(buffer, static_cast<size_t>(got));
  return true;
}

bool TerminalProgram::WaitForText(const std::string& text, double seconds) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (mText.find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() > deadline || !ReadSome(100)) return mText.find(text) != std::string::npos;
  }
  return true;
}

void TerminalProgram::HangUp() {
  if (mMaster >= 0) close(mMaster);
  mMaster = -1;
}

int TerminalProgram::Finish(double seconds) {
  if (mEnded) return mStatus;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  for (;;) {
    int status = 0;
    if (waitpid(mPid, &status, WNOHANG) == mPid) {
      mEnded = true;
      mStatus = status;
      // What it wrote last is still in the terminal: read it until there is no more.
      size_t before;
      do {
        before = mText.size();
      } while (ReadSome(100) && mText.size() != before);
      return mStatus;
    }
    if (std::chrono::steady_clock::now() > deadline) {
      kill(mPid, SIGKILL);
      waitpid(mPid, nullptr, 0);
      mEnded = true;
      mStatus = -1;
      return mStatus;
    }
    if (!ReadSome(50)) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

}  // namespace KTN
