// kestrin-capture: drives the Kestrin Capture plug-in the way the video editor does.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <QtGlobal>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
}

#include "Host/CardInfo.h"
#include "Host/CommandOptions.h"
#include "Host/GuiCommand.h"
#include "Host/HostSettingsFile.h"
#include "Host/JsonLinesPresenter.h"
#include "Host/MoviePath.h"
#include "Host/OptionParser.h"
#include "Host/PluginHost.h"
#include "Host/RecordingRate.h"
#include "Host/RecordSession.h"
#include "Host/ReportCommand.h"
#include "Host/StopSignals.h"
#include "Host/TakeVerification.h"
#include "Host/VerifyCommand.h"
#include "Host/WholeNumber.h"
#include "Finish/MovieFinisher.h"
#include "FrameHash/FrameHashLine.h"
#include "FrameHash/SidecarTrim.h"
#include "Movie/MovieLock.h"
#include "Movie/MovieStamp.h"
#include "Movie/MovieSummary.h"
#include "Settings/CaptureSettings.h"
#include "Settings/CaptureTables.h"
#include "Util/TimeCode.h"
#include "Util/TimecodeText.h"

namespace {

using namespace KTN;

// A bad command line of command (null: no command, or none of the program's), said with its
// usage; exit status 2.
int Refuse(const char* command, const std::string& problem) {
  fputs(CommandOptions::Refusal(problem, command ? CommandOptions::Find(command) : nullptr).c_str(), stderr);
  return 2;
}

// Reads a command's options by the table: false with the exit status in *status when the
// command is done (its --help said, or a bad option said with the usage).
bool ReadOptions(const char* name, int argc, char** argv, ParsedOptions& parsed, int* status) {
  return OptionParser::Read(name, argc, argv, parsed, status,
                            [name](const std::string& problem) { return Refuse(name, problem); });
}

// A standard by its menu name (any case) or its row; -1 when there is none.
int FindStandard(const std::string& text) {
  long row = 0;
  if (ParseWhole(text.c_str(), 0, static_cast<long>(kSupportedStandardCount) - 1, row)) {
    return IsNamedStandardIndex(static_cast<int>(row)) ? static_cast<int>(row) : -1;
  }
  for (size_t i = 0; i < kSupportedStandardCount; ++i) {
    if (gSupportedStandards[i].name && strcasecmp(gSupportedStandards[i].name, text.c_str()) == 0) return static_cast<int>(i);
  }
  return -1;
}

int FindFormat(const std::string& text) {
  long row = 0;
  if (ParseWhole(text.c_str(), 0, static_cast<long>(kSupportedPixelFormatCount) - 1, row)) return static_cast<int>(row);
  for (size_t i = 0; i < kSupportedPixelFormatCount; ++i) {
    if (strcasecmp(gSupportedPixelFormats[i].name, text.c_str()) == 0) return static_cast<int>(i);
  }
  return -1;
}

// The rows a settings record was made from, found by its values as the settings dialog does.
int CurrentStandard(const CaptureSettings& s) {
  int found = 1;
  for (size_t i = 0; i < kSupportedStandardCount; ++i) {
    if (s.IsOfStandard(gSupportedStandards[i])) found = static_cast<int>(i);
  }
  return found;
}

int CurrentFormat(const CaptureSettings& s) {
  for (size_t i = 0; i < kSupportedPixelFormatCount; ++i) {
    if (gSupportedPixelFormats[i].codecType == s.codecType) return static_cast<int>(i);
  }
  return 0;
}

std::string AllowedFormats(int standard) {
  std::string list;
  for (size_t f = 0; f < kSupportedPixelFormatCount; ++f) {
    if (gSupportedStandards[standard].allowedFormats & (1u << f)) list += (list.empty() ? "\"" : ", \"") + std::string(gSupportedPixelFormats[f].name) + "\"";
  }
  return list;
}

int Record(int argc, char** argv) {
  auto usage = [](const std::string& problem) { return Refuse("record", problem); };
  std::string movie, standardText, formatText, inText, bundle = PluginHost::DefaultBundlePath();
  long channels = 0, bits = 0, frames = 0;
  double seconds = 0;
  bool abortOnDrop = false, noAudio = false, overwrite = false, verify = false, json = false;
  ParsedOptions parsed;
  int status = 0;
  if (!ReadOptions("record", argc, argv, parsed, &status)) return status;
  if (!parsed.operands.empty()) return usage("record: unexpected argument " + parsed.operands[0] + " (the movie is given with -o)");
  for (const GivenOption& given : parsed.given) {
    const std::string& option = given.name;
    const char* text = given.value.c_str();
    if (option == "output") {
      movie = text;
    } else if (option == "standard") {
      standardText = text;
    } else if (option == "format") {
      formatText = text;
    } else if (option == "channels") {
      if (!ParseWhole(text, 2, 16, channels) || (channels != 2 && channels != 8 && channels != 16)) {
        return usage("--channels must be 2, 8 or 16");
      }
    } else if (option == "bits") {
      if (!ParseWhole(text, 16, 32, bits) || (bits != 16 && bits != 24 && bits != 32)) {
        return usage("--bits must be 16, 24 or 32");
      }
    } else if (option == "frames") {
      if (!ParseWhole(text, 1, 0x7FFFFFFE, frames)) return usage("--frames must be a whole number from 1");
    } else if (option == "seconds") {
      char* end = nullptr;
      if (!*text || (seconds = strtod(text, &end), *end) || !std::isfinite(seconds) || seconds <= 0 || seconds > 86400) {
        return usage("--seconds must be a number of seconds above 0, at most a day");
      }
    } else if (option == "in") {
      inText = text;
    } else if (option == "abort-on-drop") {
      abortOnDrop = true;
    } else if (option == "no-audio") {
      noAudio = true;
    } else if (option == "overwrite") {
      overwrite = true;
    } else if (option == "plugin") {
      bundle = text;
    } else if (option == "verify") {
      verify = true;
    } else if (option == "progress") {
      if (given.value != "line" && given.value != "json") return usage("--progress must be line or json");
      json = given.value == "json";
    }
  }
  // With --progress json, standard output carries only the JSON lines, the last of them
  // the end of the take: whatever happens once the options are read, it is written.
  RecordEnd end;
  auto ended = [&end, &movie, json](int status, const std::string& error) {
    if (json) {
      end.moviePath = movie;
      end.status = status;
      end.error = error;
      JsonLinesPresenter::Write(stdout, JsonLinesPresenter::EndLine(end));
    }
    return status;
  };
  // A command line refused once its options were read: its usage, and the end object.
  auto refused = [&usage, &ended](const std::string& problem) {
    usage(problem);
    return ended(2, problem);
  };
  if (movie.empty()) return refused("record needs -o MOVIE");
  std::string pathProblem;
  if (!MoviePath::MakeAbsolute(movie, &pathProblem)) return refused(pathProblem);
  if (frames && seconds > 0) return refused("give --frames or --seconds, not both");
  if (movie.find_first_of("\n\r") != std::string::npos) return refused("a movie path cannot hold a line break");
  pathProblem = MoviePath::Problem(movie);
  if (pathProblem.empty() && !overwrite && MoviePath::Exists(movie)) {
    pathProblem = "it exists already (give -y or --overwrite to replace it)";
  }
  if (!pathProblem.empty()) {
    const std::string line = "cannot record to " + movie + ": " + pathProblem;
    fprintf(stderr, "kestrin-capture: %s\n", line.c_str());
    return ended(5, line);
  }

  // The blob the editor keeps with its preferences; options change it. One the plug-in
  // cannot record with is not silently replaced: the take would not be what the user chose.
  std::string settingsProblem;
  CaptureSettings settings = HostSettingsOrDefaults(&settingsProblem);
  if (!settingsProblem.empty() && (standardText.empty() || formatText.empty())) {
    const std::string line = settingsProblem + ": give --standard and --format to replace them, or remove the file";
    fprintf(stderr, "kestrin-capture: %s\n", line.c_str());
    return ended(2, line);
  }
  if (!standardText.empty() || !formatText.empty() || channels || bits) {
    int standard = standardText.empty() ? CurrentStandard(settings) : FindStandard(standardText);
    if (standard < 0) return refused("no standard \"" + standardText + "\" (see kestrin-capture info for the list)");
    int format = formatText.empty() ? CurrentFormat(settings) : FindFormat(formatText);
    if (format < 0) return refused("no format \"" + formatText + "\"");
    if (!(gSupportedStandards[standard].allowedFormats & (1u << format))) {
      return refused("\"" + std::string(gSupportedPixelFormats[format].name) + "\" cannot be recorded with \"" +
                   gSupportedStandards[standard].name + "\"; choose one of " + AllowedFormats(standard));
    }
    settings = SignedCaptureSettings(standard, format,
                                     channels ? static_cast<int>(channels) : static_cast<int>(settings.audioChannels),
                                     bits ? static_cast<int>(bits) : static_cast<int>(settings.audioSampleType), 48000);
  }
  std::string saved = SaveHostSettings(settings);
  if (!saved.empty()) fprintf(stderr, "kestrin-capture: warning: %s\n", saved.c_str());

  double frameRate = static_cast<double>(settings.timeScale) / settings.frameDuration;
  const int pairs = FramesPerCount(settings);  // above 30 fps the host counts frame pairs
  RecordRequest request;
  request.moviePath = movie;
  request.audio = !noAudio;
  request.abortOnDrop = abortOnDrop;
  if (seconds > 0) {
    // A length shorter than one frame would round to no limit at all.
    if (seconds * frameRate < 1 - 1e-9) {
      return refused("--seconds must be at least one frame (" + std::to_string(1 / frameRate).substr(0, 6) + " s at this standard)");
    }
    frames = std::max(1L, std::lround(seconds * frameRate / pairs));
  }
  if (frames) request.frames = static_cast<int32_t>(frames);
  if (!inText.empty()) {
    if (!frames) return refused("--in needs --frames or --seconds");
    Util::TimeCode tc = {};
    std::string problem;
    if (!Util::TimecodeText::ParseAtPictureRate(inText, settings.frameDuration, settings.timeScale, tc, &problem)) {
      return refused("--in: " + problem);
    }
    request.hasInPoint = true;
    request.timecodeRate = tc.framesPerSecond;
    request.dropFrame = tc.dropFrame;
    request.inPointFrames = Util::ConvertTimeCodeToFrameCount(&tc);
  }
  if (frames) request.timeLimitSeconds = 2.0 * frames * pairs / frameRate + (request.hasInPoint ? 120 : 30);

  PluginHost host;
  std::string loaded = host.Load(bundle);
  if (!loaded.empty()) {
    fprintf(stderr, "kestrin-capture: %s\n", loaded.c_str());
    return ended(3, loaded);
  }
  StopSignals::Install();
  RecordSession session(host, settings, StopSignals::Received(), true,
                        json ? ProgressDisplay::Output::kJsonLines : ProgressDisplay::Output::kStatusLine);
  RecordOutcome outcome = session.Run(request);
  end.frames = outcome.frames;
  end.startTimecode = outcome.startTimecode;
  end.warning = outcome.warning;
  end.movieRemoved = outcome.movieRemoved;
  end.started = outcome.started;
  if (outcome.droppedFrames) fprintf(stderr, "kestrin-capture: WARNING: frames were dropped; their places in the movie are kept empty\n");
  if (outcome.exitCode) {
    fprintf(stderr, "kestrin-capture: %s\n", outcome.error.c_str());
    return ended(outcome.exitCode, outcome.error);
  }
  if (outcome.movieRemoved) {
    fprintf(stderr, "kestrin-capture: nothing was recorded: the take ended before its first frame, and its empty movie was removed\n");
    return ended(0, std::string());
  }
  // The closing lines are for people; the end object carries the same for scripts.
  if (!json) {
    printf("Recorded %lld frames to %s%s%s\n", static_cast<long long>(outcome.frames), movie.c_str(),
           outcome.startTimecode.empty() ? "" : " from ", outcome.startTimecode.c_str());
    if (!outcome.frameHashes.empty()) printf("Frame hashes: %s\n", outcome.frameHashes.c_str());
  }
  if (verify) {
    // The take as the disk holds it, read again once it is complete and compared with the
    // hashes of what was written.
    fflush(stdout);
    end.verification = TakeVerification::Of(movie);
    end.verifyRan = true;
    if (!json) {
      status = end.verification.Report();
    } else {
      // Only a failure is a line on standard error; the outcome is in the end object.
      if (end.verification.result != TakeVerification::Result::kVerified) {
        fprintf(stderr, "kestrin-capture: %s\n", end.verification.line.c_str());
      }
      status = end.verification.ExitStatus();
    }
  }
  // The report picture, with the check's outcome when there was one. A take recorded whole
  // stays recorded whole when its picture cannot be drawn: that is a warning.
  std::string problem;
  const std::string report = WriteReportBeside(movie, &problem);
  if (report.empty()) {
    fprintf(stderr, "kestrin-capture: warning: %s\n", problem.c_str());
  } else if (!json) {
    printf("Report: %s\n", report.c_str());
  }
  return ended(status, status ? end.verification.line : std::string());
}

// Gives an interrupted recording its ordinary index, in place, and gives back what only the
// host side knew of it (its timecode, its field order) where the user says it.
int Repair(int argc, char** argv) {
  auto usage = [](const std::string& problem) { return Refuse("repair", problem); };
  std::string movie, timecode, fieldsText;
  ParsedOptions parsed;
  int status = 0;
  if (!ReadOptions("repair", argc, argv, parsed, &status)) return status;
  timecode = parsed.Value("timecode");
  fieldsText = parsed.Value("fields");
  if (parsed.operands.size() > 1) return usage("repair needs exactly one MOVIE");
  if (!parsed.operands.empty()) movie = parsed.operands[0];
  if (movie.empty()) return usage("repair needs exactly one MOVIE");
  if (!timecode.empty() && !Util::TimecodeText::IsTimecode(timecode)) return usage("--timecode must be a timecode HH:MM:SS:FF (HH:MM:SS;FF at drop frame)");
  MovieStamp stamp;
  if (fieldsText == "tt") stamp.fields = MovieStamp::Fields::kTopFirst;
  else if (fieldsText == "bb") stamp.fields = MovieStamp::Fields::kBottomFirst;
  else if (fieldsText == "progressive") stamp.fields = MovieStamp::Fields::kProgressive;
  else if (!fieldsText.empty()) return usage("--fields must be tt, bb or progressive");
  // Only a regular file that nobody is writing: a take still being recorded is finished by
  // its own recording, and repairing it meanwhile would hide its index from it. The lock is
  // held until the repair is done, so that no recording starts on the movie meanwhile.
  long openError = 0;
  std::string refused;
  int movieFd = MovieLock::OpenLocked(movie, O_RDWR, openError, refused);
  if (movieFd < 0) {
    fprintf(stderr, "kestrin-capture: cannot repair %s: %s%s\n", movie.c_str(), refused.c_str(),
            openError == EBUSY ? ": a take still being recorded is finished when its recording stops" : "");
    return 1;
  }
  std::unique_ptr<int, void (*)(int*)> movieLock(&movieFd, [](int* fd) { close(*fd); });
  // Only a movie can be repaired: anything else would be left as it is and called sound.
  MovieSummary summary;
  if (long rc = summary.Read(movie)) {
    fprintf(stderr, "kestrin-capture: cannot repair %s: %s\n", movie.c_str(), strerror(static_cast<int>(rc)));
    return 1;
  }
  if (summary.layout == MovieSummary::Layout::kNotAMovie) {
    fprintf(stderr, "kestrin-capture: cannot repair %s: it is not a movie (it has no movie header)\n", movie.c_str());
    return 1;
  }
  // The finisher says whether the movie needed it: a take cut off, or a finish or stamp cut off.
  bool repaired = false;
  if (long rc = MovieFinisher::Finish(movie, 0, 0, &repaired)) {
    fprintf(stderr, "kestrin-capture: cannot repair %s: %s\n", movie.c_str(), strerror(static_cast<int>(rc)));
    return 1;
  }
  if (long rc = summary.Read(movie)) {
    fprintf(stderr, "kestrin-capture: cannot read %s once repaired: %s\n", movie.c_str(), strerror(static_cast<int>(rc)));
    return 1;
  }
  // A field order the movie already says stays; a timecode given replaces the movie's.
  if (summary.hasFieldOrder) stamp.fields = MovieStamp::Fields::kKeep;
  stamp.startTimecode = timecode;
  stamp.frameDuration = summary.frameDuration;
  stamp.timescale = summary.videoTimescale;
  if (stamp.fields != MovieStamp::Fields::kKeep || !stamp.startTimecode.empty()) {
    if (long rc = stamp.Apply(movie)) {
      fprintf(stderr, "kestrin-capture: cannot restore the %s of %s: %s\n",
              timecode.empty() ? "field order" : "timecode and field order", movie.c_str(),
              rc == EOPNOTSUPP ? "the movie's rate or index does not allow it (see the line above)" : strerror(static_cast<int>(rc)));
      return 1;
    }
    repaired = true;
    summary.Read(movie);
  }
  // The sidecar of a take cut off describes the sample being written too, and its last
  // picture as long as it was then: it follows the movie as repaired.
  SidecarTrim::Result trimmed;
  if (long rc = SidecarTrim::Trim(movie, trimmed)) {
    fprintf(stderr, "kestrin-capture: cannot bring the frame hashes %s in line with %s: %s\n",
            FrameHashSidecarPath(movie).c_str(), movie.c_str(), strerror(static_cast<int>(rc)));
    return 1;
  }
  repaired = repaired || trimmed.changed;
  printf("%s %s\n", movie.c_str(), repaired ? "repaired" : "needs no repair");
  if (trimmed.undescribed) {
    fprintf(stderr, "kestrin-capture: %llu packets of %s have no line in its frame hashes: verify counts them as bad\n",
            static_cast<unsigned long long>(trimmed.undescribed), movie.c_str());
  }
  // What only the host knew and nobody gave back is said, not guessed.
  if (!summary.hasTimecode) {
    fprintf(stderr, "kestrin-capture: %s has no timecode track: give --timecode HH:MM:SS:FF of its first frame to restore it\n",
            movie.c_str());
  }
  if (!summary.hasFieldOrder) {
    fprintf(stderr, "kestrin-capture: %s does not say its field order: give --fields tt, bb or progressive to restore it\n",
            movie.c_str());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return Refuse(nullptr, "");
  std::string command = argv[1];
  // Each command reads its own name as argv[0], as getopt_long expects.
  if (command == "record") return Record(argc - 1, argv + 1);
  if (command == "info") {
    ParsedOptions parsed;
    int status = 0;
    if (!ReadOptions("info", argc - 1, argv + 1, parsed, &status)) return status;
    if (!parsed.operands.empty()) return Refuse("info", "info: unexpected argument " + parsed.operands[0]);
    return PrintCardInfo(stdout, parsed.Has("json"));
  }
  if (command == "repair") return Repair(argc - 1, argv + 1);
  if (command == "verify") return RunVerify(argc - 1, argv + 1);
  if (command == "report") return RunReport(argc - 1, argv + 1);
  if (command == "gui") return RunCaptureWindow(argc - 1, argv + 1);
  if (command == "-h" || command == "--help" || command == "help") {
    fputs(CommandOptions::ProgramHelp().c_str(), stdout);
    return 0;
  }
  if (command == "--version") {
    printf("kestrin-capture %s\nFFmpeg %s (libavformat %u.%u.%u)\nQt %s\n", KTN_VERSION, av_version_info(),
           AV_VERSION_MAJOR(avformat_version()), AV_VERSION_MINOR(avformat_version()), AV_VERSION_MICRO(avformat_version()),
           qVersion());
    return 0;
  }
  const std::string nearest = OptionParser::NearestCommand(command);
  return Refuse(nullptr, "unknown command " + command + (nearest.empty() ? "" : " (did you mean " + nearest + "?)"));
}
