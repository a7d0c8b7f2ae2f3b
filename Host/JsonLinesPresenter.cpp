// A recording's progress for scripts: one JSON object a line.
#include "Host/JsonLinesPresenter.h"

#include <sys/stat.h>

#include "Host/CommandOptions.h"
#include "Host/InPointStatus.h"
#include "Host/TakeReport.h"
#include "Movie/MovieSummary.h"
#include "Util/JsonWriter.h"

namespace KTN {

namespace {

// A script polling the take is told at most this often: four times a second.
constexpr auto kProgressInterval = std::chrono::milliseconds(250);

}  // namespace

JsonLinesPresenter::JsonLinesPresenter(FILE* out, FILE* notes) : mOut(out), mNotes(notes) {}

void JsonLinesPresenter::Write(FILE* out, const std::string& line) {
  fputs((line + "\n").c_str(), out);
  fflush(out);
}

std::string JsonLinesPresenter::ProgressLine(const ProgressFigures::Figures& figures) {
  const InPointStatus inPoint(figures.status);
  Util::JsonWriter json;
  json.BeginObject();
  json.Key("type").String("progress");
  json.Key("waiting").Bool(figures.waiting);
  json.Key("status").String(figures.status);
  json.Key("in_point").StringOrNull(figures.waiting ? inPoint.InPoint() : std::string());
  json.Key("signal_timecode").StringOrNull(figures.waiting ? inPoint.Signal() : std::string());
  json.Key("elapsed_seconds").Double(figures.elapsedSeconds);
  json.Key("frames").Integer(figures.frames);
  json.Key("expected_frames");
  figures.expected > 0 ? json.Integer(figures.expected) : json.Null();
  json.Key("slots").Integer(figures.slots);
  json.Key("pictures").Integer(figures.pictures);
  json.Key("dropped").Integer(figures.dropped);
  json.Key("fps").Double(figures.fps, 1);
  json.Key("disk_seconds_left");
  figures.diskSecondsLeft < 0 ? json.Null() : json.Double(figures.diskSecondsLeft, 1);
  json.Key("peak_dbfs").BeginArray();
  for (float peak : figures.peaks) json.Double(peak, LiveSignal::kDbDecimals);  // -inf as null
  json.EndArray();
  return json.EndObject().Text();
}

std::string JsonLinesPresenter::EventLine(const LiveSignal::Found& found) {
  Util::JsonWriter json;
  json.BeginObject().Key("type").String("event");
  LiveSignal::EventMembers(json, found.timecode, found.event);
  return json.EndObject().Text();
}

std::string JsonLinesPresenter::EndLine(const RecordEnd& end) {
  Util::JsonWriter json;
  json.BeginObject();
  json.Key("type").String("end");
  json.Key("status").Integer(end.status);
  json.Key("meaning").String(CommandOptions::ExitMeaning(end.status));
  json.Key("error").StringOrNull(end.error);
  json.Key("warning").StringOrNull(end.warning);
  json.Key("movie").StringOrNull(end.moviePath);
  json.Key("movie_removed").Bool(end.movieRemoved);
  json.Key("frames").Integer(end.frames);
  // What the movie holds as it is now, read from its own index.
  MovieSummary movie;
  struct stat info;
  const bool read = end.started && !end.movieRemoved && !end.moviePath.empty() && stat(end.moviePath.c_str(), &info) == 0 &&
                    S_ISREG(info.st_mode) && movie.Read(end.moviePath) == 0 &&
                    movie.layout != MovieSummary::Layout::kNotAMovie;
  for (const auto& count : {std::make_pair("slots", movie.pictureSlots), std::make_pair("pictures", movie.pictures),
                            std::make_pair("dropped", movie.EmptySlots())}) {
    json.Key(count.first);
    read ? json.Integer(static_cast<int64_t>(count.second)) : json.Null();
  }
  json.Key("start_timecode").StringOrNull(end.startTimecode);
  json.Key("sidecars");
  TakeReport::WriteSidecars(json, end.moviePath, end.started);
  json.Key("verification");
  if (end.verifyRan) {
    end.verification.WriteJson(json);
  } else {
    json.Null();
  }
  return json.EndObject().Text();
}

void JsonLinesPresenter::Show(const ProgressFigures::Figures& figures, Clock::time_point now) {
  if (mWritten && now - mLastWritten < kProgressInterval) return;
  mWritten = true;
  mLastWritten = now;
  Write(mOut, ProgressLine(figures));
}

void JsonLinesPresenter::Event(const LiveSignal::Found& found, Clock::time_point) { Write(mOut, EventLine(found)); }

void JsonLinesPresenter::Note(const std::string& line, Clock::time_point) { Write(mNotes, line); }

void JsonLinesPresenter::Finish(Clock::time_point) { fflush(mOut); }

}  // namespace KTN
