// Benchmark of whole captures: the simulated card delivering faster than the pipeline can take
// frames, the real plug-in and server, a movie in a memory-backed folder. Prints, per format
// at its largest standard, the rate at which pictures reach the movie as a multiple of real
// time, the host's CPU time per picture (the simulated card's work included) against the
// fresh-segment floor, the server's, and peak memory. The uncompressed formats run twice,
// with the server hashing every packet into the take's sidecar and without, and what the
// hashing costs is printed: the real-time factor's ratio and the server's CPU per picture.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "Core/SharedMemory.h"
#include "Movie/MovieSidecars.h"
#include "Host/PluginHost.h"
#include "Host/PluginSession.h"
#include "Testing/MovieProbe.h"
#include "Settings/CaptureTables.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Util/RowBytes.h"

namespace {

using namespace KTN;
using Clock = std::chrono::steady_clock;

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

double CpuSeconds(int who) {
  rusage usage;
  getrusage(who, &usage);
  return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// The fresh-segment floor: what every hand-over of a frame of `bytes` must cost at least, a
// segment created, filled and removed, in milliseconds (median of 40). Both fills are
// measured (through a fresh mapping, and through the descriptor); the floor is the faster.
void FreshSegmentFloor(size_t bytes, double& mappedMillis, double& writtenMillis) {
  std::vector<uint8_t> frame(bytes, 0x5a);
  const char* key = "ktn.capture-bench.floor";
  std::vector<double> mapped, written;
  for (int i = 0; i < 40; ++i) {
    auto start = Clock::now();
    {
      Core::SharedMemory segment(key);
      void* address = nullptr;
      if (segment.Create(bytes) || segment.Map(address, false)) return;
      memcpy(address, frame.data(), bytes);
    }
    mapped.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    start = Clock::now();
    {
      Core::SharedMemory segment(key);
      struct iovec part = {frame.data(), bytes};
      if (segment.Create(bytes) || segment.Fill(&part, 1)) return;
    }
    written.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  mappedMillis = Median(mapped);
  writtenMillis = Median(written);
}

// What a case measured, handed from its process to the one that compares the two runs of a
// format: the rate as a multiple of real time, the server's CPU per picture (ms) and the
// stream's pictures a second.
struct CaseFigures {
  double multiple = 0;
  double serverMillis = 0;
  double rate = 0;
};

bool ReadFigures(const std::string& path, CaseFigures& figures) {
  std::ifstream file(path);
  return static_cast<bool>(file >> figures.multiple >> figures.serverMillis >> figures.rate);
}

// A copy of the plug-in bundle (in folder, named name) whose server runs the real one with
// options: the same plug-in and resources, only what the options leave out.
std::string BundleWithServerOptions(const std::string& folder, const std::string& name, const std::string& options) {
  namespace fs = std::filesystem;
  const std::string bundle = folder + "/" + name + ".bundle";
  const std::string real = KESTRIN_BUNDLE;
  fs::remove_all(bundle);
  fs::create_directories(bundle + "/Contents/Resources");
  fs::copy(real + "/Contents/Linux", bundle + "/Contents/Linux", fs::copy_options::recursive);
  for (const auto& entry : fs::directory_iterator(real + "/Contents/Resources")) {
    if (entry.path().filename() == "QTRecordServer") continue;
    fs::copy(entry.path(), bundle + "/Contents/Resources/" + entry.path().filename().string(), fs::copy_options::recursive);
  }
  const std::string server = bundle + "/Contents/Resources/QTRecordServer";
  std::ofstream(server) << "#!/bin/sh\nexec '" << real << "/Contents/Resources/QTRecordServer' " << options << " \"$@\"\n";
  fs::permissions(server, fs::perms::owner_all);
  return bundle;
}

// One capture, run in a child process so that its peak memory and CPU time are its own.
// hashes: "on" or "off" for the two runs of an uncompressed format, empty otherwise; figures:
// where its figures are written (empty: nowhere).
int RunCase(size_t format, const std::string& folder, const std::string& bundle, const std::string& hashes,
            const std::string& figuresPath) {
  int standard = LargestStandard(format);
  CaptureSettings settings = SignedCaptureSettings(standard, static_cast<int>(format), 2, 16, 48000);
  const double rate = static_cast<double>(settings.timeScale) / settings.frameDuration;
  const int pairs = rate > 30 ? 2 : 1;
  const uint32_t deviceFormat = settings.codecType == Util::FourCC("v210") || settings.codecType == Util::FourCC("r210")
                                    ? settings.codecType
                                    : Util::FourCC("2vuy");
  const size_t frameBytes =
      Util::RowBytes(deviceFormat, gSupportedStandards[standard].width) * gSupportedStandards[standard].height;
  double mappedFloor = 0, writtenFloor = 0;
  FreshSegmentFloor(frameBytes, mappedFloor, writtenFloor);
  const double floor = std::min(mappedFloor, writtenFloor);

  // Eight seconds of the standard, at most 3 GB of movie.
  int slots = static_cast<int>(std::min(8 * rate, 3e9 / static_cast<double>(frameBytes)));
  slots -= slots % pairs;
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_TIMECODE", "none"}, {"VELDRAN_SIM_SPEED", "8"}});
  PluginHost host;
  std::string loaded = host.Load(bundle);
  if (!loaded.empty()) {
    fprintf(stderr, "capture: %s\n", loaded.c_str());
    return 1;
  }
  PluginSession session(host, settings);
  std::string failure = session.Open();
  if (failure.empty()) failure = session.Activate();  // the card's ring is made here, before the clock starts
  RecordRequest request;
  request.moviePath = folder + "/capture.mov";
  request.frames = slots / pairs;
  request.pluginCounts = true;
  const double hostCpuBefore = CpuSeconds(RUSAGE_SELF);
  const Clock::time_point start = Clock::now();
  if (failure.empty()) failure = session.StartRecording(request);
  double longestService = 0;
  while (failure.empty()) {
    Clock::time_point called = Clock::now();
    int32_t rc = session.Service();
    longestService = std::max(longestService, std::chrono::duration<double>(Clock::now() - called).count());
    if (rc == rmFrameLimitReached) break;
    if (rc != rmNoErr) failure = "service: " + PluginSession::Describe(rc);
    if (Clock::now() - start > std::chrono::seconds(300)) failure = "no end after 300 s";
    std::this_thread::sleep_for(std::chrono::milliseconds(10));  // the editor's idle rate
  }
  std::string stopped = session.StopRecording();  // every picture written, the movie finished
  if (failure.empty()) failure = stopped;
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  const double hostCpu = CpuSeconds(RUSAGE_SELF) - hostCpuBefore;
  session.Close();
  const double serverCpu = CpuSeconds(RUSAGE_CHILDREN);  // the server, waited for at close
  rusage self, children;  // before any other child: a child forked from here starts as big as this process
  getrusage(RUSAGE_SELF, &self);
  getrusage(RUSAGE_CHILDREN, &children);
  std::string counted = Ffprobe(request.moviePath, "-count_packets -select_streams v:0 -show_entries stream=nb_read_packets");
  std::filesystem::remove(request.moviePath);
  for (const std::string& sidecar : MovieSidecars::All(request.moviePath)) std::filesystem::remove(sidecar);
  const double pictures = atof(counted.c_str());
  const double multiple = seconds > 0 ? pictures / seconds / rate : 0;
  const bool uncompressed = format <= 2;
  const bool dv = format >= 4 && format <= 7;
  // The floor allows 4x when four times the stream's frames fit a core's time at the floor.
  const bool floorAllowsFour = 4 * rate * floor < 1000;
  const double target = uncompressed ? (floorAllowsFour ? 4.0 : 2.5) : dv ? 6.0 : format == 3 ? 1.5 : 1.0;
  const double hostPerPicture = pictures ? 1000 * hostCpu / pictures : 0;
  printf("  %-31s %-16s %-10s %5.0f pictures %5.2fx real time (target %.1fx%s)  host %6.2f ms CPU/picture",
         gSupportedPixelFormats[format].name, gSupportedStandards[standard].name,
         hashes.empty() ? "" : ("hashes " + hashes).c_str(), pictures, multiple, target, multiple >= target ? "" : " MISSED",
         hostPerPicture);
  if (uncompressed) {
    printf(" = %4.2fx the floor of %5.2f ms (target <= 1.5%s; fill by mapping %5.2f, by descriptor %5.2f)",
           floor > 0 ? hostPerPicture / floor : 0.0, floor, hostPerPicture <= 1.5 * floor ? "" : " MISSED", mappedFloor,
           writtenFloor);
  }
  printf(", server %6.2f; longest service call %.2f s; peak %5.0f MB host, %5.0f MB server%s\n",
         pictures ? 1000 * serverCpu / pictures : 0.0, longestService, self.ru_maxrss / 1024.0,
         children.ru_maxrss / 1024.0, failure.empty() ? "" : (" error: " + failure).c_str());
  fflush(stdout);
  if (!figuresPath.empty()) {
    std::ofstream(figuresPath) << multiple << " " << (pictures ? 1000 * serverCpu / pictures : 0.0) << " " << rate << "\n";
  }
  return failure.empty() ? 0 : 1;
}

// Runs one case in a child process (this program again): whether it succeeded.
bool RunCaseProcess(const char* program, size_t format, const std::string& bundle, const std::string& hashes,
                    const std::string& figuresPath) {
  pid_t child = fork();
  if (child == 0) {
    std::string index = std::to_string(format);
    execl(program, program, "--case", index.c_str(), bundle.c_str(), hashes.empty() ? "-" : hashes.c_str(),
          figuresPath.empty() ? "-" : figuresPath.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// What the server's work on every sample costs a format: its real-time factor with hashing
// and measurement against the one with neither, and the server's CPU per picture that each
// adds, as a share of one core at the stream's rate, against its target (hashing's 5%;
// measurement's measureTarget, in percent, 0 for none).
void PrintServerCost(const CaseFigures& both, const CaseFigures& hashOnly, const CaseFigures& neither,
                     double measureTarget) {
  const double ratio = neither.multiple > 0 ? both.multiple / neither.multiple : 0;
  auto share = [&](double millis) { return millis * both.rate / 10; };  // ms x pictures a second, in % of 1000 ms
  const double hashing = hashOnly.serverMillis - neither.serverMillis;
  const double measuring = both.serverMillis - hashOnly.serverMillis;
  printf("  hashing and measurement: %.2fx the real-time factor without either (target >= 0.90%s); server at %.2f fps: "
         "hashing %+.2f ms/picture = %.1f%% of a core (target <= 5%%%s), measurement %+.2f ms/picture = %.1f%% of a core",
         ratio, ratio >= 0.90 ? "" : " MISSED", both.rate, hashing, share(hashing), share(hashing) <= 5 ? "" : " MISSED",
         measuring, share(measuring));
  if (measureTarget > 0) printf(" (target <= %.0f%%%s)", measureTarget, share(measuring) <= measureTarget ? "" : " MISSED");
  printf("; %.2f ms/picture with both, %.2f hashing only, %.2f neither\n", both.serverMillis, hashOnly.serverMillis,
         neither.serverMillis);
  fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  std::string folder = "/dev/shm/ktn-capture-bench";  // memory-backed
  if (argc == 3 && strcmp(argv[1], "--case") == 0) return RunCase(static_cast<size_t>(atoi(argv[2])), folder, KESTRIN_BUNDLE, "", "");
  if (argc == 6 && strcmp(argv[1], "--case") == 0) {
    const std::string hashes = strcmp(argv[4], "-") ? argv[4] : "", figures = strcmp(argv[5], "-") ? argv[5] : "";
    return RunCase(static_cast<size_t>(atoi(argv[2])), folder, argv[3], hashes, figures);
  }
  std::filesystem::create_directories(folder);
  printf("capture: pictures reaching the movie (in %s) with the card delivering at 8x real time;\n"
         "the floor is a fresh segment of one frame created, filled and removed (median of 40)\n",
         folder.c_str());
  fflush(stdout);  // before the cases' own lines
  const std::string hashOnly = BundleWithServerOptions(folder, "HashOnly", "--no-measure");
  const std::string neither = BundleWithServerOptions(folder, "Neither", "--no-frame-hash --no-measure");
  int failures = 0;
  for (size_t format = 0; format < 12; ++format) {  // ProRes (12, 13) is allowed by no standard
    if (argc == 2 && static_cast<size_t>(atoi(argv[1])) != format) continue;
    const bool uncompressed = format <= 2;
    if (!uncompressed) {
      failures += !RunCaseProcess(argv[0], format, KESTRIN_BUNDLE, "", "");
      continue;
    }
    // Three times, the same run: with the frame hashes and the measurement (as recorded), with
    // hashes only, and with neither, in one run so that the machine is the same.
    const std::string bothPath = folder + "/figures-both", hashPath = folder + "/figures-hash",
                      neitherPath = folder + "/figures-neither";
    for (const std::string& path : {bothPath, hashPath, neitherPath}) std::filesystem::remove(path);
    const bool ranBoth = RunCaseProcess(argv[0], format, KESTRIN_BUNDLE, "+measure", bothPath);
    const bool ranHash = RunCaseProcess(argv[0], format, hashOnly, "only", hashPath);
    const bool ranNeither = RunCaseProcess(argv[0], format, neither, "off", neitherPath);
    failures += !ranBoth + !ranHash + !ranNeither;
    CaseFigures both, hashed, none;
    if (ranBoth && ranHash && ranNeither && ReadFigures(bothPath, both) && ReadFigures(hashPath, hashed) &&
        ReadFigures(neitherPath, none)) {
      // The measurement's target is set at 1080p60 10-bit, the heaviest 'v210' stream.
      PrintServerCost(both, hashed, none, gSupportedPixelFormats[format].codecType == Util::FourCC("v210") ? 10 : 0);
    }
  }
  std::filesystem::remove_all(folder);
  return failures ? 1 : 0;
}
