// Benchmark of sustained recording to the real disk at real time: 60 s of the heaviest HD
// stream, then 60 s of 2K RGB, then 60 s of 1080i50 while another process reads a 4 GB file
// from the same disk (an editor playing media). Prints the disk's own sequential write rate
// beside the stream's, the dropped frames, the longest service call, the take's footprint
// in the page cache (its most resident bytes, and the most dirty and under write-back above
// where they were), the host's and the server's memory, and what Stop costs: its time and
// the bytes it reads.
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Host/PluginHost.h"
#include "Host/PluginSession.h"
#include "Movie/MovieFollower.h"
#include "Testing/MovieProbe.h"
#include "Settings/CaptureTables.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Util/PageCache.h"
#include "Util/RowBytes.h"

namespace {

using namespace KTN;
using Clock = std::chrono::steady_clock;

struct SustainCase {
  const char* standard;  // name of a row of the standards table
  int format;            // row of the formats table
  bool reader;           // another process reads a 4 GB file from the same disk throughout
};

const SustainCase kCases[] = {
    {"HD 1080p 60", 1, false},      // Uncompressed 10-bit 4:2:2
    {"2K 1556p 25", 2, false},      // Uncompressed RGB 10-bit 4:4:4
    {"HD 1080i 50", 1, true},       // Uncompressed 10-bit 4:2:2, beside an editor playing media
};

// The most the take may hold of the page cache, and the most dirty pages it may add.
constexpr double kFootprintTargetMB = 256;

int StandardRow(const char* name) {
  for (int row = 0; row < static_cast<int>(kSupportedStandardCount); ++row) {
    if (gSupportedStandards[row].name && strcmp(gSupportedStandards[row].name, name) == 0) return row;
  }
  return -1;
}

double Since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Resident memory of a process in MB, or 0.
double ResidentMegabytes(pid_t pid) {
  std::string path = "/proc/" + std::to_string(pid) + "/status";
  FILE* file = fopen(path.c_str(), "r");
  if (!file) return 0;
  char line[256];
  double megabytes = 0;
  while (fgets(line, sizeof line, file)) {
    long kilobytes = 0;
    if (sscanf(line, "VmRSS: %ld kB", &kilobytes) == 1) megabytes = kilobytes / 1024.0;
  }
  fclose(file);
  return megabytes;
}

// A field of /proc/meminfo in MB.
double MeminfoMegabytes(const char* field) {
  FILE* file = fopen("/proc/meminfo", "r");
  if (!file) return 0;
  char line[256];
  double megabytes = 0;
  const size_t length = strlen(field);
  while (fgets(line, sizeof line, file)) {
    if (strncmp(line, field, length) == 0 && line[length] == ':') megabytes = atof(line + length + 1) / 1024.0;
  }
  fclose(file);
  return megabytes;
}

// Bytes a process has read: through read calls of any kind (rchar), and from storage (read_bytes).
struct ReadBytes {
  double calls = 0, storage = 0;
};
ReadBytes ProcessReadBytes(pid_t pid) {
  ReadBytes read;
  FILE* file = fopen(("/proc/" + std::to_string(pid) + "/io").c_str(), "r");
  if (!file) return read;
  char line[256];
  while (fgets(line, sizeof line, file)) {
    unsigned long long bytes = 0;
    if (sscanf(line, "rchar: %llu", &bytes) == 1) read.calls = static_cast<double>(bytes);
    if (sscanf(line, "read_bytes: %llu", &bytes) == 1) read.storage = static_cast<double>(bytes);
  }
  fclose(file);
  return read;
}

// The take's footprint in memory, sampled on a thread of its own (so the service calls are
// timed as the editor's): the most of the movie resident in the page cache, and the most
// dirty and under write-back above where they were when the take began. It follows the
// growing take once a second as the host program's status line does (its count of dropped
// frames), so that what the follower reads counts too.
class FootprintSampler {
 public:
  explicit FootprintSampler(std::string path)
      : mPath(std::move(path)), mDirtyBefore(MeminfoMegabytes("Dirty")),
        mWritebackBefore(MeminfoMegabytes("Writeback")), mThread([this] { Run(); }) {}
  ~FootprintSampler() { Stop(); }
  void Stop() {
    mStop = true;
    if (mThread.joinable()) mThread.join();
  }
  double residentMost = 0, dirtyMost = 0, writebackMost = 0;

 private:
  void Run() {
    int fd = -1;
    MovieFollower follower(mPath);
    Clock::time_point nextFollow = Clock::now();
    while (!mStop) {
      if (fd < 0) fd = open(mPath.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd >= 0 && Clock::now() >= nextFollow) {
        follower.Update();
        nextFollow += std::chrono::seconds(1);
      }
      if (fd >= 0) {
        struct stat status;
        if (fstat(fd, &status) == 0) {
          const double resident = Util::PageCache::ResidentBytes(fd, static_cast<uint64_t>(status.st_size)) / 1e6;
          residentMost = std::max(residentMost, resident);
        }
      }
      dirtyMost = std::max(dirtyMost, MeminfoMegabytes("Dirty") - mDirtyBefore);
      writebackMost = std::max(writebackMost, MeminfoMegabytes("Writeback") - mWritebackBefore);
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (fd >= 0) close(fd);
  }

  std::string mPath;
  double mDirtyBefore, mWritebackBefore;
  std::atomic<bool> mStop{false};
  std::thread mThread;
};

// Another process reading a file of the disk from start to end, over and over, through the
// page cache as a player does (dropping what it read behind it), until stopped.
class DiskReader {
 public:
  DiskReader(const std::string& folder, double gigabytes) : mPath(folder + "/media.bin") {
    int fd = open(mPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return;
    std::vector<uint8_t> block(8 << 20, 0x6b);
    const int blocks = static_cast<int>(gigabytes * 1024 / 8);
    for (int i = 0; i < blocks; ++i) {
      if (write(fd, block.data(), block.size()) != static_cast<ssize_t>(block.size())) break;
    }
    fsync(fd);
    Util::PageCache::DropClean(fd, 0, static_cast<uint64_t>(blocks) * block.size());
    close(fd);
    mChild = fork();
    if (mChild == 0) {
      setpgid(0, 0);  // a group of its own, ended whole with the dd it runs
      execl("/bin/sh", "sh", "-c", ("while :; do dd if='" + mPath + "' of=/dev/null bs=1M iflag=nocache 2>/dev/null; done").c_str(),
            static_cast<char*>(nullptr));
      _exit(127);
    }
  }
  ~DiskReader() {
    if (mChild > 0) {
      setpgid(mChild, mChild);  // in case the child has not run yet
      kill(-mChild, SIGKILL);
      waitpid(mChild, nullptr, 0);
    }
    unlink(mPath.c_str());
  }

 private:
  std::string mPath;
  pid_t mChild = -1;
};

// The recording server among this process's children, or -1.
pid_t ServerPid() {
  FILE* file = fopen(("/proc/self/task/" + std::to_string(getpid()) + "/children").c_str(), "r");
  if (!file) return -1;
  pid_t server = -1;
  int child = 0;
  while (server < 0 && fscanf(file, "%d", &child) == 1) {
    char name[64] = "";
    if (FILE* comm = fopen(("/proc/" + std::to_string(child) + "/comm").c_str(), "r")) {
      if (fgets(name, sizeof name, comm) && strncmp(name, "QTRecordServer", 14) == 0) server = child;
      fclose(comm);
    }
  }
  fclose(file);
  return server;
}

// The disk's own sequential write rate in MB/s: 2 GiB written in 8 MiB blocks and synced.
double DiskWriteRate(const std::string& folder) {
  std::string path = folder + "/disk-rate.bin";
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (fd < 0) return 0;
  std::vector<uint8_t> block(8 << 20, 0x5a);
  const int blocks = 256;
  auto start = Clock::now();
  for (int i = 0; i < blocks; ++i) {
    if (write(fd, block.data(), block.size()) != static_cast<ssize_t>(block.size())) break;
  }
  fsync(fd);
  double seconds = Since(start);
  Util::PageCache::DropClean(fd, 0, static_cast<uint64_t>(blocks) * block.size());
  close(fd);
  unlink(path.c_str());
  return blocks * 8.0 / seconds;
}

int RunCase(const SustainCase& sustain, const std::string& folder, double seconds) {
  const int row = StandardRow(sustain.standard);
  if (row < 0) {
    fprintf(stderr, "sustain: no standard %s\n", sustain.standard);
    return 1;
  }
  CaptureSettings settings = SignedCaptureSettings(row, sustain.format, 2, 24, 48000);
  const SupportedStandard& standard = gSupportedStandards[row];
  const double rate = static_cast<double>(settings.timeScale) / settings.frameDuration;
  const int pairs = rate > 30 ? 2 : 1;
  const uint32_t deviceFormat = settings.codecType;  // v210 and r210 arrive as themselves
  const double frameBytes = static_cast<double>(Util::RowBytes(deviceFormat, standard.width)) * standard.height;
  const double diskRate = DiskWriteRate(folder);
  printf("  %s, %s%s: stream %.0f MB/s, disk %.0f MB/s (2 GiB written and synced)\n", standard.name,
         gSupportedPixelFormats[sustain.format].name, sustain.reader ? ", another process reading 4 GB of the disk" : "",
         frameBytes * rate / 1e6, diskRate * 1.048576);
  fflush(stdout);
  std::unique_ptr<DiskReader> reader;
  if (sustain.reader) reader = std::make_unique<DiskReader>(folder, 4);

  SetSimulatedCardEnvironment({{"VELDRAN_SIM_TIMECODE", "none"}, {"VELDRAN_SIM_SPEED", "1"}});
  PluginHost host;
  std::string loaded = host.Load(KESTRIN_BUNDLE);
  if (!loaded.empty()) {
    fprintf(stderr, "sustain: %s\n", loaded.c_str());
    return 1;
  }
  PluginSession session(host, settings);
  std::string failure = session.Open();
  if (failure.empty()) failure = session.Activate();
  const int slots = static_cast<int>(seconds * rate) / pairs * pairs;
  RecordRequest request;
  request.moviePath = folder + "/sustain.mov";
  request.frames = slots / pairs;
  request.pluginCounts = true;
  auto footprint = std::make_unique<FootprintSampler>(request.moviePath);
  if (failure.empty()) failure = session.StartRecording(request);
  const pid_t server = ServerPid();
  const Clock::time_point start = Clock::now();
  double longestService = 0, hostAtTen = 0, serverAtTen = 0, hostMost = 0, serverMost = 0;
  double nextSample = 1;
  while (failure.empty()) {
    Clock::time_point called = Clock::now();
    int32_t rc = session.Service();
    longestService = std::max(longestService, Since(called));
    if (rc == rmFrameLimitReached) break;
    if (rc != rmNoErr) failure = "service: " + PluginSession::Describe(rc);
    double elapsed = Since(start);
    if (elapsed >= nextSample) {
      double hostMegabytes = ResidentMegabytes(getpid()), serverMegabytes = ResidentMegabytes(server);
      hostMost = std::max(hostMost, hostMegabytes);
      serverMost = std::max(serverMost, serverMegabytes);
      if (nextSample == 10) hostAtTen = hostMegabytes, serverAtTen = serverMegabytes;
      nextSample += 1;
    }
    if (elapsed > seconds * 3 + 60) failure = "no end in time";
    std::this_thread::sleep_for(std::chrono::milliseconds(10));  // the editor's idle rate
  }
  const double hostAtEnd = ResidentMegabytes(getpid()), serverAtEnd = ResidentMegabytes(server);
  // Stop: the server drains and finishes the movie with its index, the plug-in stamps it.
  const ReadBytes hostBefore = ProcessReadBytes(getpid()), serverBefore = ProcessReadBytes(server);
  const Clock::time_point stopping = Clock::now();
  std::string stopped = session.StopRecording();
  const double stopSeconds = Since(stopping);
  const ReadBytes hostAfter = ProcessReadBytes(getpid()), serverAfter = ProcessReadBytes(server);
  footprint->Stop();
  reader.reset();
  if (failure.empty()) failure = stopped;
  const bool warned = session.DroppedFrames();
  session.Close();
  struct stat movie;
  const double movieMB = stat(request.moviePath.c_str(), &movie) == 0 ? movie.st_size / 1e6 : 0;
  std::string counted = Ffprobe(request.moviePath, "-count_packets -select_streams v:0 -show_entries stream=nb_read_packets");
  std::filesystem::remove(request.moviePath);
  const int pictures = atoi(counted.c_str());
  auto missed = [](bool met) { return met ? "" : " MISSED"; };
  printf("    %d of %d frames recorded, %d dropped%s; longest service call %.2f s (target <= 0.5%s)\n", pictures, slots,
         slots - pictures, warned ? " (reported)" : "", longestService, missed(longestService <= 0.5));
  printf("    page cache MB, the take (%.0f MB) resident at most %.0f (target <= %.0f%s); dirty at most +%.0f (target <= "
         "%.0f%s), under write-back at most +%.0f\n",
         movieMB, footprint->residentMost, kFootprintTargetMB, missed(footprint->residentMost <= kFootprintTargetMB),
         footprint->dirtyMost, kFootprintTargetMB, missed(footprint->dirtyMost <= kFootprintTargetMB),
         footprint->writebackMost);
  printf("    stop %.2f s, reading %.1f MB (host %.1f, server %.1f; from the disk %.1f)\n", stopSeconds,
         (hostAfter.calls - hostBefore.calls + serverAfter.calls - serverBefore.calls) / 1e6,
         (hostAfter.calls - hostBefore.calls) / 1e6, (serverAfter.calls - serverBefore.calls) / 1e6,
         (hostAfter.storage - hostBefore.storage + serverAfter.storage - serverBefore.storage) / 1e6);
  printf("    memory MB, host: %.0f at 10 s, %.0f at the end, %.0f at most; server: %.0f, %.0f, %.0f%s\n", hostAtTen,
         hostAtEnd, hostMost, serverAtTen, serverAtEnd, serverMost, failure.empty() ? "" : (" error: " + failure).c_str());
  fflush(stdout);
  return failure.empty() && pictures == slots ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  // On the disk, not in memory: the take must reach the disk at its rate.
  std::string folder = argc > 1 && argv[1][0] != '-' ? argv[1] : "/var/tmp";
  double seconds = argc > 2 ? atof(argv[2]) : 60;
  folder += "/ktn-sustain-" + std::to_string(getpid());
  std::filesystem::create_directories(folder);
  printf("sustain: %.0f s of each stream at real time into %s\n", seconds, folder.c_str());
  fflush(stdout);  // before the children inherit the buffer
  int failures = 0;
  for (const SustainCase& sustain : kCases) {
    pid_t child = fork();
    if (child == 0) _exit(RunCase(sustain, folder, seconds));
    int status = 0;
    waitpid(child, &status, 0);
    failures += !WIFEXITED(status) || WEXITSTATUS(status) != 0;
  }
  std::filesystem::remove_all(folder);
  return failures ? 1 : 0;
}
