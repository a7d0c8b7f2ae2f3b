// Benchmark of whole captures: the simulated card delivering faster than the pipeline can take
// frames, the real plug-in and server, a movie in a memory-backed folder. Prints, per format
// at its largest standard, the rate at which frames reach the movie as a multiple of real
// time, CPU time per frame, and peak memory of host and server.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>

#include "Host/PluginHost.h"
#include "Host/RecordSession.h"
#include "Server/MovieProbe.h"
#include "Settings/CaptureTables.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Util/RowBytes.h"

namespace {

using namespace KTN;

// The standard with the most pixels a second that allows format.
int LargestStandard(size_t format) {
  int best = -1;
  double bestRate = 0;
  for (size_t s = 0; s < kSupportedStandardCount; ++s) {
    const SupportedStandard& standard = gSupportedStandards[s];
    if (!standard.name || !(standard.allowedFormats & (1u << format))) continue;
    double pixelsPerSecond = 1.0 * standard.width * standard.height * standard.timeScale / standard.frameDuration;
    if (pixelsPerSecond > bestRate) {
      bestRate = pixelsPerSecond;
      best = static_cast<int>(s);
    }
  }
  return best;
}

// One capture, run in a child process so that its peak memory and CPU time are its own.
int RunCase(size_t format, const std::string& folder) {
  int standard = LargestStandard(format);
  CaptureSettings settings = SignedCaptureSettings(standard, static_cast<int>(format), 2, 16, 48000);
  double rate = static_cast<double>(settings.timeScale) / settings.frameDuration;
  int pairs = rate > 30 ? 2 : 1;
  // Frames of the card's delivered size; about four seconds of the standard, at most 2 GB.
  uint32_t deviceFormat = settings.codecType == Util::FourCC("v210") || settings.codecType == Util::FourCC("r210")
                              ? settings.codecType
                              : Util::FourCC("2vuy");
  double frameBytes = static_cast<double>(Util::RowBytes(deviceFormat, gSupportedStandards[standard].width)) *
                      gSupportedStandards[standard].height;
  int frames = static_cast<int>(std::min(4 * rate, 2e9 / frameBytes));
  frames -= frames % pairs;
  // The signal runs a second longer: frames before the recording starts are not counted.
  std::string frameLimit = std::to_string(frames + static_cast<int>(rate));
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_TIMECODE", "none"}, {"VELDRAN_SIM_SPEED", "8"},
                               {"VELDRAN_SIM_FRAMES", frameLimit.c_str()}});
  PluginHost host;
  std::string loaded = host.Load(KESTRIN_BUNDLE);
  if (!loaded.empty()) {
    fprintf(stderr, "capture: %s\n", loaded.c_str());
    return 1;
  }
  std::atomic<bool> stop{false};
  RecordSession session(host, settings, stop, false);
  RecordRequest request;
  request.moviePath = folder + "/capture.mov";
  request.frames = frames / pairs;
  request.pluginCounts = true;
  request.timeLimitSeconds = 300;
  auto start = std::chrono::steady_clock::now();
  RecordOutcome outcome = session.Run(request);  // includes stop: every frame written, movie closed
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  ProbedMovie movie = ProbeMovie(request.moviePath, false);
  std::filesystem::remove(request.moviePath);
  rusage self, children;
  getrusage(RUSAGE_SELF, &self);
  getrusage(RUSAGE_CHILDREN, &children);  // the server, waited for at close
  auto cpu = [](const rusage& usage) {
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  };
  double written = static_cast<double>(movie.video.packets);
  double multiple = seconds > 0 ? written / seconds / rate : 0;
  const bool uncompressed = format <= 2;
  const double target = uncompressed ? 2.5 : 1.0;
  printf("  %-31s %-16s %5.0f frames %6.2fx real time (target %.1fx%s) %6.2f ms CPU/frame host, %6.2f server; "
         "peak %5.0f MB host, %5.0f MB server%s\n",
         gSupportedPixelFormats[format].name, gSupportedStandards[standard].name, written, multiple, target,
         multiple >= target ? "" : " MISSED", written ? 1000 * cpu(self) / written : 0.0,
         written ? 1000 * cpu(children) / written : 0.0, self.ru_maxrss / 1024.0, children.ru_maxrss / 1024.0,
         outcome.exitCode ? (" error: " + outcome.error).c_str() : "");
  fflush(stdout);
  return outcome.exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  std::string folder = "/dev/shm/ktn-capture-bench";  // memory-backed
  if (argc == 3 && strcmp(argv[1], "--case") == 0) return RunCase(static_cast<size_t>(atoi(argv[2])), folder);
  std::filesystem::create_directories(folder);
  printf("capture: frames reaching the movie (in %s) with the card delivering at 8x real time\n", folder.c_str());
  for (size_t format = 0; format < 12; ++format) {  // ProRes (12, 13) is allowed by no standard
    pid_t child = fork();
    if (child == 0) {
      std::string index = std::to_string(format);
      execl(argv[0], argv[0], "--case", index.c_str(), static_cast<char*>(nullptr));
      _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
  }
  std::filesystem::remove_all(folder);
  return 0;
}
