// Benchmark of verify against the disk's own read rate: a 10 s take of 1080i50 10-bit with
// sound recorded to the disk with its sidecar, its cache dropped, then read whole by
// `dd iflag=direct` (16 MB blocks) and checked by `kestrin-capture verify` in the same run.
// Prints both rates in MB/s, their ratio (target: verify at 0.80 of dd or better) and
// verify's line. The take is removed at the end.
//
//   build/bench/verify [FOLDER]   (default: build/bench-scratch, on the build's disk)
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "FrameHash/FrameHashLine.h"
#include "Util/PageCache.h"

extern char** environ;

namespace {

using namespace KTN;
using Clock = std::chrono::steady_clock;

constexpr double kTargetRatio = 0.80;

struct Ran {
  int status = -1;   // the exit status, or -1: it did not end in time, or did not start
  double seconds = 0;
};

// Runs argv with its standard output in `output` (or thrown away) and its standard error in
// `errors` (or passed through), for `limit` seconds at most (then killed).
Ran RunChild(const std::vector<std::string>& words, const std::string& output, double limit,
             const std::string& errors = std::string()) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, output.empty() ? "/dev/null" : output.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (!errors.empty()) posix_spawn_file_actions_addopen(&actions, 2, errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::vector<char*> argv;
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  Ran ran;
  pid_t pid = -1;
  const Clock::time_point start = Clock::now();
  int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    fprintf(stderr, "verify: cannot start %s\n", argv[0]);
    return ran;
  }
  int status = 0;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::duration<double>(Clock::now() - start).count() > limit) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
      fprintf(stderr, "verify: %s did not end within %.0f s\n", argv[0], limit);
      return ran;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ran.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  ran.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return ran;
}

// Pushes the movie's pages to the disk and drops them from the page cache.
void DropCache(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0) return;
  struct stat info = {};
  fstat(fd, &info);
  fdatasync(fd);
  Util::PageCache::DropClean(fd, 0, static_cast<uint64_t>(info.st_size));
  close(fd);
}

// The last line of a file written as a status line (carriage returns) or as lines.
std::string LastLine(const std::string& path) {
  std::string text;
  if (FILE* file = fopen(path.c_str(), "r")) {
    char chunk[4096];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, file)) > 0) text.append(chunk, got);
    fclose(file);
  }
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  size_t end = text.find_last_of("\r\n");
  return end == std::string::npos ? text : text.substr(end + 1);
}

std::string FirstLine(const std::string& path) {
  std::string text;
  if (FILE* file = fopen(path.c_str(), "r")) {
    char line[1024];
    if (fgets(line, sizeof line, file)) text = line;
    fclose(file);
  }
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

int Bench(const std::string& folder) {
  const std::string movie = folder + "/take.mov";
  const std::string sidecar = FrameHashSidecarPath(movie);
  setenv("XDG_CONFIG_HOME", folder.c_str(), 1);  // the take's settings stay in its folder

  Ran recorded = RunChild({KESTRIN_CAPTURE, "record", "-o", movie, "--seconds", "10", "--standard", "HD 1080i 50",
                           "--format", "Uncompressed 10-bit 4:2:2", "-y"},
                          "", 300, folder + "/record.txt");
  if (recorded.status != 0) {
    fprintf(stderr, "verify: the take could not be recorded (exit status %d): %s\n", recorded.status,
            LastLine(folder + "/record.txt").c_str());
    return 1;
  }
  if (!std::filesystem::exists(sidecar)) {
    fprintf(stderr, "verify: the recording wrote no sidecar %s\n", sidecar.c_str());
    return 1;
  }
  const double megabytes = static_cast<double>(std::filesystem::file_size(movie)) / 1e6;
  printf("take: %.0f MB of 1080i50 10-bit with sound in %s\n", megabytes, folder.c_str());

  // Each read twice, alternately, from a dropped cache; the better of each counts.
  double ddBest = 0, verifyBest = 0;
  const std::string said = folder + "/verify.txt";
  int verifyStatus = -1;
  for (int round = 0; round < 2; ++round) {
    DropCache(movie);
    Ran dd = RunChild({"dd", "if=" + movie, "of=/dev/null", "bs=16M", "iflag=direct", "status=none"}, "", 300);
    if (dd.status == 0 && dd.seconds > 0) ddBest = std::max(ddBest, megabytes / dd.seconds);
    DropCache(movie);
    Ran verify = RunChild({KESTRIN_CAPTURE, "verify", movie}, said, 300);
    verifyStatus = verify.status;
    if (verify.status == 0 && verify.seconds > 0) verifyBest = std::max(verifyBest, megabytes / verify.seconds);
  }
  printf("dd if=MOVIE bs=16M iflag=direct: %.0f MB/s\n", ddBest);
  printf("kestrin-capture verify:         %.0f MB/s\n", verifyBest);
  printf("ratio: %.2f (target >= %.2f)\n", ddBest > 0 ? verifyBest / ddBest : 0, kTargetRatio);
  printf("verify said (exit status %d): %s\n", verifyStatus, FirstLine(said).c_str());
  return verifyStatus == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string root = argc > 1 ? argv[1] : KTN_BENCH_SCRATCH;
  std::error_code error;
  std::filesystem::create_directories(root, error);
  std::string pattern = root + "/verify-XXXXXX";
  if (!mkdtemp(&pattern[0])) {
    perror(("verify: mkdtemp in " + root).c_str());
    return 1;
  }
  int status = Bench(pattern);
  std::filesystem::remove_all(pattern, error);
  if (argc <= 1) std::filesystem::remove(root, error);  // the default folder, when nothing else is in it
  return status;
}
