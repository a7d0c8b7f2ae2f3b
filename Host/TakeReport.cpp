// A take's report figures gathered from its movie and sidecars, and said in lines.
#include "Host/TakeReport.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

#include "Host/LiveSignal.h"
#include "Movie/MovieLock.h"
#include "Movie/MovieSidecars.h"
#include "Signal/SlotTimecodes.h"
#include "Signal/TakeSignal.h"
#include "Util/JsonWriter.h"

namespace KTN {

long TakeReport::Read(const std::string& path, std::string* problem) {
  // The movie is read under its lock, so a take still being recorded is refused rather than
  // reported half-written.
  long error = 0;
  std::string why;
  int fd = MovieLock::OpenLocked(path, O_RDONLY, error, why);
  if (fd < 0) {
    *problem = "cannot report on " + path + ": " + why +
               (error == EBUSY ? ": report on a take once its recording has stopped" : "");
    return error ? error : EIO;
  }
  MovieSummary movie;
  long rc = movie.Read(path);
  if (rc == 0 && movie.layout == MovieSummary::Layout::kNotAMovie) {
    *problem = "cannot report on " + path + ": it is not a movie (it has no movie header)";
    rc = EINVAL;
  } else if (rc) {
    *problem = "cannot report on " + path + ": " + strerror(static_cast<int>(rc));
  }
  if (rc == 0) {
    TakeSignal signal(path);
    if ((rc = signal.Update()) != 0) {
      *problem = "cannot read the signal's sidecars of " + path + ": " + strerror(static_cast<int>(rc));
    } else {
      Gather(path, movie, signal);
    }
  }
  close(fd);
  return rc;
}

void TakeReport::Gather(const std::string& path, const MovieSummary& movie, TakeSignal& signal) {
  moviePath = path;
  summary = movie;
  eventsThere = signal.EventsFound();
  levelsThere = signal.LevelsFound();
  pictures = signal.ReleasePictures();
  sounds = signal.ReleaseSounds();

  // Each event's timecode: the movie's start, run on through every break the take had.
  const std::vector<SignalEvent> bySlot = signal.EventsBySlot();
  SlotTimecodes timecodes;
  if (summary.hasTimecode && timecodes.Start(summary.frameDuration, summary.videoTimescale, summary.startTimecode)) {
    timecodes.AddBreaks(bySlot);
  }
  events.clear();
  for (const SignalEvent& event : bySlot) events.push_back({event, timecodes.Text(event.slot)});

  // Peak: the highest of the slots'. RMS: the slots' mean power, which is the RMS of the
  // whole take when every slot holds as many samples.
  const size_t count = static_cast<size_t>(std::max(0, signal.Channels()));
  std::vector<float> peaks(count, -std::numeric_limits<float>::infinity());
  std::vector<double> power(count, 0);
  std::vector<uint64_t> slots(count, 0);
  for (const SoundLevels& sound : sounds) {
    for (size_t c = 0; c < count && c < sound.peakDb.size() && c < sound.rmsDb.size(); ++c) {
      peaks[c] = std::max(peaks[c], sound.peakDb[c]);
      power[c] += std::isinf(sound.rmsDb[c]) ? 0.0 : pow(10.0, sound.rmsDb[c] / 10.0);
      ++slots[c];
    }
  }
  channels.assign(count, Channel());
  for (size_t c = 0; c < count; ++c) {
    channels[c].peakDb = peaks[c];
    const double mean = slots[c] ? power[c] / static_cast<double>(slots[c]) : 0.0;
    channels[c].rmsDb = mean > 0 ? static_cast<float>(10.0 * log10(mean)) : -std::numeric_limits<float>::infinity();
  }

  verified = TakeVerification::Last(path, &verification);
}

int64_t TakeReport::Slots() const {
  int64_t slots = static_cast<int64_t>(summary.pictureSlots);
  for (const PictureLevels& picture : pictures) slots = std::max(slots, picture.slot + 1);
  for (const SoundLevels& sound : sounds) slots = std::max(slots, sound.slot + 1);
  return std::max<int64_t>(slots, 1);
}

std::string TakeReport::VerifyLine() const {
  if (!verified) return "verify: not run";
  // "2026-11-24T16:20:05+0000" said to the minute.
  std::string when = verification.checkedAt.substr(0, 16);
  if (when.size() > 10 && when[10] == 'T') when[10] = ' ';
  const std::string at = when.empty() ? "" : " (" + when + ")";
  switch (verification.result) {
    case TakeVerification::Result::kVerified:
      return "verify: passed" + at;
    case TakeVerification::Result::kDiffers:
      return "verify: FAILED: " + verification.line + at;
    case TakeVerification::Result::kNotChecked:
      break;
  }
  return "verify: could not check: " + verification.line + at;
}

std::string TakeReport::Text() const {
  std::string text = "Movie: " + moviePath + "\n";
  char line[160];
  snprintf(line, sizeof line, "Slots: %llu at %.5g fps", static_cast<unsigned long long>(summary.pictureSlots),
           summary.PictureRate());
  text += line;
  text += summary.hasTimecode ? ", from " + summary.startTimecode + "\n" : ", without timecode\n";
  text += "Pictures: " + std::to_string(summary.pictures) + "\n";
  text += "Dropped slots: " + std::to_string(summary.EmptySlots()) + "\n";
  if (!eventsThere) {
    text += "Events: not there (the take was recorded without its signal's events)\n";
  } else {
    text += "Events: " + std::to_string(events.size()) + "\n";
    for (const Event& event : events) text += LiveSignal::EventLine(event.timecode, event.event) + "\n";
  }
  if (!levelsThere) {
    text += "Levels: not there (the take was recorded without its levels)\n";
  } else if (channels.empty()) {
    text += "Sound: none\n";
  } else {
    for (size_t c = 0; c < channels.size(); ++c) {
      text += "Channel " + std::to_string(c + 1) + ": peak " + LiveSignal::DbText(channels[c].peakDb) + ", RMS " +
              LiveSignal::DbText(channels[c].rmsDb) + "\n";
    }
  }
  return text + VerifyLine() + "\n";
}

std::string TakeReport::Json() const {
  Util::JsonWriter json;
  json.BeginObject();
  json.Key("movie").String(moviePath);
  json.Key("slots").Integer(static_cast<int64_t>(summary.pictureSlots));
  json.Key("fps").Double(summary.PictureRate());
  json.Key("frame_duration").Integer(summary.frameDuration);
  json.Key("timescale").Integer(summary.videoTimescale);
  json.Key("start_timecode");
  summary.hasTimecode ? json.String(summary.startTimecode) : json.Null();
  json.Key("pictures").Integer(static_cast<int64_t>(summary.pictures));
  json.Key("dropped").Integer(static_cast<int64_t>(summary.EmptySlots()));
  json.Key("events");
  if (eventsThere) {
    json.BeginArray();
    for (const Event& event : events) {
      json.BeginObject();
      LiveSignal::EventMembers(json, event.timecode, event.event);
      json.EndObject();
    }
    json.EndArray();
  } else {
    json.Null();
  }
  json.Key("channels");
  if (levelsThere) {
    json.BeginArray();
    for (size_t c = 0; c < channels.size(); ++c) {
      json.BeginObject().Key("channel").Integer(static_cast<int64_t>(c + 1));
      json.Key("peak_dbfs").Double(channels[c].peakDb, LiveSignal::kDbDecimals);
      json.Key("rms_dbfs").Double(channels[c].rmsDb, LiveSignal::kDbDecimals);
      json.EndObject();
    }
    json.EndArray();
  } else {
    json.Null();
  }
  json.Key("verification");
  if (verified) {
    verification.WriteJson(json);
  } else {
    json.Null();
  }
  json.Key("sidecars");
  WriteSidecars(json, moviePath);
  return json.EndObject().Text();
}

void TakeReport::WriteSidecars(Util::JsonWriter& json, const std::string& moviePath, bool ours) {
  const std::pair<const char*, std::string> sidecars[] = {
      {"frame_hashes", MovieSidecars::FrameHashes(moviePath)}, {"levels", MovieSidecars::Levels(moviePath)},
      {"events", MovieSidecars::Events(moviePath)},          {"verification", MovieSidecars::Verification(moviePath)},
      {"report_picture", MovieSidecars::Report(moviePath)},
  };
  json.BeginObject();
  for (const auto& sidecar : sidecars) {
    struct stat info;
    json.Key(sidecar.first);
    ours && stat(sidecar.second.c_str(), &info) == 0 ? json.String(sidecar.second) : json.Null();
  }
  json.EndObject();
}

}  // namespace KTN
