// Test support: a program run to its end, with what it wrote.
#include "Testing/ProgramRun.h"

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

namespace KTN {

namespace {

std::string ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace

ProgramRun ProgramRun::Of(const std::vector<std::string>& arguments, const std::vector<std::string>& settings,
                          const std::string& folder, double seconds, const std::string& workingFolder) {
  ProgramRun run;
  if (arguments.empty()) return run;
  const std::string outFile = folder + "/program-output.txt", errFile = folder + "/program-error.txt";
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    int in = open("/dev/null", O_RDONLY);
    int out = open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (in < 0 || out < 0 || err < 0 || dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(126);
    if (chdir((workingFolder.empty() ? folder : workingFolder).c_str()) != 0) _exit(126);
    for (const std::string& setting : settings) putenv(const_cast<char*>(setting.c_str()));
    execvp(argv[0], argv.data());
    _exit(127);
  }
  if (pid < 0) return run;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  int status = 0;
  bool ended = false;
  while (!(ended = waitpid(pid, &status, WNOHANG) == pid) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (!ended) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  } else if (WIFEXITED(status)) {
    run.status = WEXITSTATUS(status);
  }
  run.output = ReadText(outFile);
  run.error = ReadText(errFile);
  return run;
}

}  // namespace KTN
