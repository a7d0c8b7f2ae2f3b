// Benchmark of sustained recording to the real disk at real time: 60 s of the heaviest HD
// stream, then 60 s of 2K RGB. Prints the disk's own sequential write rate beside the
// stream's, the dropped frames, the host's and the server's memory over the take, and the
// longest service call.
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "Host/PluginHost.h"
#include "Host/PluginSession.h"
#include "Testing/MovieProbe.h"
#include "Settings/CaptureTables.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Util/RowBytes.h"

namespace {

using namespace KTN;
using Clock = std::chrono::steady_clock;

struct SustainCase {
  int standard;  // row of the standards table
  int format;    // row of the formats table
};

const SustainCase kCases[] = {
    {18, 1},  // HD 1080p 60, Uncompressed 10-bit 4:2:2
    {25, 2},  // 2K 1556p 25, Uncompressed RGB 10-bit 4:4:4
};

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

// The recording server among this process's children, or -1.
pid_t ServerPid() {
  std::string children;
  FILE* file = fopen(("/proc/self/task/" + std::to_string(getpid()) + "/children").c_str(), "r");
  if (!file) return -1;
  char buffer[256];
  while (fgets(buffer, sizeof buffer, file)) children += buffer;
  fclose(file);
  return children.empty() ? -1 : static_cast<pid_t>(atoi(children.c_str()));
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
  close(fd);
  unlink(path.c_str());
  return blocks * 8.0 / seconds;
}

int RunCase(const SustainCase& sustain, const std::string& folder, double seconds) {
  CaptureSettings settings = SignedCaptureSettings(sustain.standard, sustain.format, 2, 24, 48000);
  const SupportedStandard& standard = gSupportedStandards[sustain.standard];
  const double rate = static_cast<double>(settings.timeScale) / settings.frameDuration;
  const int pairs = rate > 30 ? 2 : 1;
  const uint32_t deviceFormat = settings.codecType;  // v210 and r210 arrive as themselves
  const double frameBytes = static_cast<double>(Util::RowBytes(deviceFormat, standard.width)) * standard.height;
  const double diskRate = DiskWriteRate(folder);
  printf("  %s, %s: stream %.0f MB/s, disk %.0f MB/s (2 GiB written and synced)\n", standard.name,
         gSupportedPixelFormats[sustain.format].name, frameBytes * rate / 1e6, diskRate * 1.048576);
  fflush(stdout);

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
  const Clock::time_point stopping = Clock::now();
  std::string stopped = session.StopRecording();
  const double stopSeconds = Since(stopping);
  if (failure.empty()) failure = stopped;
  const bool warned = session.DroppedFrames();
  session.Close();
  std::string counted = Ffprobe(request.moviePath, "-count_packets -select_streams v:0 -show_entries stream=nb_read_packets");
  std::filesystem::remove(request.moviePath);
  const int pictures = atoi(counted.c_str());
  printf("    %d of %d frames recorded, %d dropped%s; longest service call %.2f s (target <= 1.0%s); stop %.1f s\n",
         pictures, slots, slots - pictures, warned ? " (reported)" : "", longestService,
         longestService <= 1.0 ? "" : " MISSED", stopSeconds);
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
