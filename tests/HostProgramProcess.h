// The host program as the user runs it: a child process, on a file or on a terminal of its own.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace KTN {

struct Child {
  pid_t pid = -1;
  std::string errorFile;
  std::string outputFile;  // empty when its output is thrown away
};

// In a forked child: becomes the host program with arguments.
[[noreturn]] void ExecHostProgram(const std::vector<std::string>& arguments);

// The host program with its standard error in folder/stderr.txt and its output thrown away;
// run as user (with the same number as its group) when one is given, which needs root.
Child StartHostProgram(const std::vector<std::string>& arguments, const std::string& folder,
                       uid_t user = static_cast<uid_t>(-1));
// As StartHostProgram, with its standard output kept in folder/stdout.txt.
Child StartHostProgramWithOutput(const std::vector<std::string>& arguments, const std::string& folder);

// A host program started in the background, stopped (SIGTERM, then SIGKILL if need be) when
// this ends unless it has ended already, so that a test that fails leaves no recording
// running behind it.
struct StoppedAtEnd {
  Child child;
  ~StoppedAtEnd();
};

// Waits until the file at path holds at least bytes (a take under way has frames written),
// for a minute at most, however loaded the machine; false if it never did.
bool WaitForBytes(const std::string& path, uintmax_t bytes);

// Sends the child signal and waits for its end: its exit status, or -1 when it has not ended
// within seconds (it is then killed).
int StopWith(pid_t pid, int signal, double seconds);

// The child's exit status, or -1 if it has not ended within seconds.
int WaitFor(pid_t pid, double seconds);

// A file's whole text ("" when it cannot be read).
std::string ReadText(const std::string& path);

// The child processes of parent (started by any of its threads), ended but unreaped ones too.
std::vector<pid_t> ChildrenOf(pid_t parent);
// The recording server among parent's children, or -1.
pid_t RunningServerOf(pid_t parent);
// The recording server the host program started, waiting up to four seconds for it.
pid_t ServerOf(pid_t host);

// The host program run to its end with its standard error in folder: its exit status (-1 if
// it has not ended within seconds, when it is killed) and what it wrote there.
int RunHostProgram(const std::vector<std::string>& arguments, const std::string& folder, double seconds,
                   std::string& error);
// As above, with what it wrote on its standard output too.
int RunHostProgram(const std::vector<std::string>& arguments, const std::string& folder, double seconds,
                   std::string& output, std::string& error);

// The host program run to its end with its standard error on a pseudo-terminal: what it
// wrote there, and its exit status (-1 if it has not ended within seconds).
std::string RunOnATerminal(const std::vector<std::string>& arguments, double seconds, int& status);

// The lines of text that hold part.
std::vector<std::string> LinesWith(const std::string& text, const std::string& part);
// The lines the host program wrote for its user (the diagnostics start with "***").
std::vector<std::string> UserLines(const std::string& text);

// The host program in a terminal of its own, as a user runs it in a terminal window: a new
// session whose controlling terminal is a pseudo-terminal, with standard input, output and
// error on it. A key typed there (Ctrl-C) makes the terminal signal the whole foreground
// process group, the recording server included, as a real terminal does. The program is
// killed, if still running, when this ends.
class TerminalProgram {
 public:
  TerminalProgram() = default;
  ~TerminalProgram();
  TerminalProgram(const TerminalProgram&) = delete;
  TerminalProgram& operator=(const TerminalProgram&) = delete;

  // Starts the program; false (with a test failure) when the terminal cannot be made.
  bool Start(const std::vector<std::string>& arguments);
  // Types keys on the terminal ("\x03" is Ctrl-C).
  void Type(const std::string& keys);
  // Reads what the program writes until text has appeared (true) or seconds have passed.
  bool WaitForText(const std::string& text, double seconds);
  // Hangs the terminal up, as closing a terminal window does.
  void HangUp();
  // Reads on until the program ends: its exit status, or -1 when it has not ended within
  // seconds (it is then killed).
  int Finish(double seconds);

  pid_t Pid() const { return mPid; }
  // Everything it has written so far.
  const std::string& Text() const { return mText; }

 private:
  // Reads what is there within millis; false at the terminal's end.
  bool ReadSome(int millis);

  pid_t mPid = -1;
  int mMaster = -1;
  bool mEnded = false;
  int mStatus = -1;
  std::string mText;
};

}  // namespace KTN
