// Test support: a program run to its end, with what it wrote.
#pragma once

#include <string>
#include <vector>

namespace KTN {

// Runs in the calling thread; the child's output and standard error go through files of a
// folder the caller owns (a test's scratch folder), so nothing is left elsewhere.
class ProgramRun {
 public:
  // Runs arguments[0] (a path, or a name looked up in PATH) with the rest as its arguments
  // and this process's environment with settings ("NAME=value") added, standard input from
  // /dev/null, in workingFolder (folder when empty). One still running after seconds is killed.
  static ProgramRun Of(const std::vector<std::string>& arguments, const std::vector<std::string>& settings,
                       const std::string& folder, double seconds, const std::string& workingFolder = "");

  int status = -1;  // its exit status; -1 when it did not end by itself in time, or never started
  std::string output;
  std::string error;
};

}  // namespace KTN
