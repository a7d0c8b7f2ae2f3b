// The progress of a take shown two ways from one gathering: the figures and events handed to a presenter, the status line's text, and the JSON lines with their rate and their end.
#include "Host/ProgressDisplay.h"

#include <gtest/gtest.h>

#include <stdio.h>

#include <chrono>
#include <algorithm>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "Host/CommandOptions.h"
#include "Host/FakeProgressPresenter.h"
#include "Host/JsonLinesPresenter.h"
#include "Host/StatusLinePresenter.h"
#include "Movie/MovieSidecars.h"
#include "Signal/SlotLevels.h"
#include "Util/JsonWriter.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

using Clock = ProgressFigures::Clock;

void Append(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::app) << text; }

// Everything written to a temporary file so far.
std::string Written(FILE* file) {
  fflush(file);
  std::string text(static_cast<size_t>(ftell(file)), '\0');
  rewind(file);
  text.resize(fread(&text[0], 1, text.size(), file));
  fseek(file, 0, SEEK_END);
  return text;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t from = 0;
  for (size_t end; (end = text.find('\n', from)) != std::string::npos; from = end + 1) lines.push_back(text.substr(from, end - from));
  return lines;
}

ProgressFigures::Figures Recording() {
  ProgressFigures::Figures figures;
  figures.status = "Recording to disk";
  figures.elapsedSeconds = 5.25;
  figures.frames = 131;
  figures.expected = 250;
  figures.fps = 25.04;
  figures.slots = 125;
  figures.pictures = 123;
  figures.dropped = 2;
  figures.diskSecondsLeft = 7980.0;
  figures.peaks = {-20.04f, -std::numeric_limits<float>::infinity()};
  return figures;
}

TEST(ProgressPresenterTest, TheDisplayHandsTheGatheredFiguresAndEachEventToItsPresenter) {
  Util::ScratchFolder folder;
  const std::string movie = folder.File("take.mov");
  std::string levels = SlotLevels::Header(25, 1, 2);
  for (int slot = 0; slot < 25; ++slot) levels += "S " + std::to_string(slot) + " -20.0 -23.0 -6.0 -9.0\n";
  Append(MovieSidecars::Levels(movie), levels);
  Append(MovieSidecars::Events(movie), "{\"kind\":\"black\",\"slot\":40,\"frames\":25}\n");
  CaptureSettings settings = {};
  settings.Fill(19, 1, 2, 24, 48000);  // HD 1080i 50
  FakeProgressPresenter::Calls calls;
  {
    ProgressDisplay display(std::unique_ptr<ProgressPresenter>(new FakeProgressPresenter(&calls)), movie, settings);
    display.SetStartTimecode("01:00:00:00");
    display.Update("Recording to disk", 25, 50);
    ASSERT_EQ(1u, calls.shown.size());
    EXPECT_FALSE(calls.shown[0].waiting);
    EXPECT_EQ(25, calls.shown[0].frames);
    EXPECT_EQ(50, calls.shown[0].expected);
    ASSERT_EQ(2u, calls.shown[0].peaks.size());
    EXPECT_FLOAT_EQ(-20.0f, calls.shown[0].peaks[0]);
    EXPECT_FLOAT_EQ(-6.0f, calls.shown[0].peaks[1]);
    ASSERT_EQ(1u, calls.events.size());
    EXPECT_EQ(SignalEvent::Kind::kBlack, calls.events[0].event.kind);
    EXPECT_EQ("01:00:01:15", calls.events[0].timecode);

    display.Update("Waiting for 01:00:00:05 (signal at 00:59:59:01)", 25, 50);
    ASSERT_EQ(2u, calls.shown.size());
    EXPECT_TRUE(calls.shown[1].waiting);
    display.Note("kestrin-capture: warning: something");
    EXPECT_EQ(std::vector<std::string>{"kestrin-capture: warning: something"}, calls.notes);

    Append(MovieSidecars::Events(movie), "{\"kind\":\"silence\",\"slot\":80,\"frames\":20,\"channel\":1}\n");
    display.FinalEvents();
    EXPECT_EQ(1, calls.finished);
    ASSERT_EQ(2u, calls.events.size()) << "the events written as the take finished come after it";
    EXPECT_EQ("01:00:03:05", calls.events[1].timecode);
    EXPECT_EQ(1, calls.events[1].event.channel);
  }
}

TEST(ProgressPresenterTest, TheStatusLineSaysTheFigures) {
  EXPECT_EQ("0:00:05 | 131/250 frames | 25.0 fps | 2 dropped | peak -20.0 dBFS | disk: 2 h 13 min left",
            StatusLinePresenter::Text(Recording()));
  ProgressFigures::Figures figures = Recording();
  figures.expected = 0;
  figures.peaks.clear();
  figures.diskSecondsLeft = -1;
  EXPECT_EQ("0:00:05 | 131 frames | 25.0 fps | 2 dropped | disk: time left unknown", StatusLinePresenter::Text(figures));
}

TEST(ProgressPresenterTest, AProgressLineHoldsTheSameFigures) {
  EXPECT_EQ("{\"type\":\"progress\",\"waiting\":false,\"status\":\"Recording to disk\",\"in_point\":null,"
            "\"signal_timecode\":null,\"elapsed_seconds\":5.250,\"frames\":131,\"expected_frames\":250,\"slots\":125,"
            "\"pictures\":123,\"dropped\":2,\"fps\":25.0,\"disk_seconds_left\":7980.0,\"peak_dbfs\":[-20.0,null]}",
            JsonLinesPresenter::ProgressLine(Recording()));
  ProgressFigures::Figures waiting;
  waiting.waiting = true;
  waiting.status = "Waiting for 01:00:00;00 (signal at 00:59:58;12)";
  EXPECT_EQ("{\"type\":\"progress\",\"waiting\":true,\"status\":\"Waiting for 01:00:00;00 (signal at 00:59:58;12)\","
            "\"in_point\":\"01:00:00;00\",\"signal_timecode\":\"00:59:58;12\",\"elapsed_seconds\":0.000,\"frames\":0,"
            "\"expected_frames\":null,\"slots\":0,\"pictures\":0,\"dropped\":0,\"fps\":0.0,\"disk_seconds_left\":null,"
            "\"peak_dbfs\":[]}",
            JsonLinesPresenter::ProgressLine(waiting));
}

TEST(ProgressPresenterTest, ProgressLinesComeAtMostFourASecondAndEventsAtOnce) {
  FILE* out = tmpfile();
  FILE* notes = tmpfile();
  ASSERT_NE(nullptr, out);
  ASSERT_NE(nullptr, notes);
  JsonLinesPresenter presenter(out, notes);
  const Clock::time_point start = Clock::now();
  LiveSignal::Found jump;
  jump.event.kind = SignalEvent::Kind::kTimecodeBreak;
  jump.event.slot = 100;
  jump.event.frames = 1;
  jump.event.before = "01:00:03:24";
  jump.event.after = "10:00:00:00";
  jump.timecode = "10:00:00:00";
  // Two seconds of service calls every 10 ms, an event in the middle.
  for (int ms = 0; ms <= 2000; ms += 10) {
    if (ms == 1000) presenter.Event(jump, start + std::chrono::milliseconds(ms));
    presenter.Show(Recording(), start + std::chrono::milliseconds(ms));
  }
  presenter.Note("kestrin-capture: warning: the signal carries no timecode", start);
  presenter.Finish(start + std::chrono::milliseconds(2000));
  const std::vector<std::string> lines = Lines(Written(out));
  int progress = 0, events = 0;
  for (const std::string& line : lines) {
    progress += line.rfind("{\"type\":\"progress\",", 0) == 0;
    events += line.rfind("{\"type\":\"event\",", 0) == 0;
  }
  EXPECT_EQ(9, progress) << "at 0, 250, ... 2000 ms";
  EXPECT_EQ(1, events);
  EXPECT_EQ(lines.size(), static_cast<size_t>(progress + events)) << "nothing else on standard output";
  EXPECT_NE(std::find(lines.begin(), lines.end(),
                      "{\"type\":\"event\",\"kind\":\"timecode-break\",\"slot\":100,\"frames\":1,\"timecode\":\"10:00:00:00\","
                      "\"before\":\"01:00:03:24\",\"after\":\"10:00:00:00\",\"sentence\":\"timecode break: 01:00:03:24 then "
                      "10:00:00:00\"}"),
            lines.end());
  EXPECT_EQ("kestrin-capture: warning: the signal carries no timecode\n", Written(notes));
  fclose(out);
  fclose(notes);
}

// A take that never started says nothing of the file at its path, which is not the take's
// (here another tool's take that the recording would not replace, with its frame hashes).
TEST(ProgressPresenterTest, TheEndOfATakeThatLeftNoMovieSaysItsStatusAndNothingOfAMovie) {
  Util::ScratchFolder folder;
  RecordEnd end;
  end.status = 11;
  end.error = "the signal is at 01:00:10:01, past the in-point 01:00:00:00: nothing was recorded";
  end.moviePath = folder.File("take \"one\".mov");
  std::ofstream(end.moviePath) << "another tool's take";
  std::ofstream(MovieSidecars::FrameHashes(end.moviePath)) << "#format: frame checksums\n";
  EXPECT_EQ("{\"type\":\"end\",\"status\":11,\"meaning\":" + Util::JsonWriter::Quoted(CommandOptions::ExitMeaning(11)) +
                ",\"error\":\"the signal is at 01:00:10:01, past the in-point 01:00:00:00: nothing was recorded\","
                "\"warning\":null,\"movie\":" + Util::JsonWriter::Quoted(end.moviePath) +
                ",\"movie_removed\":false,\"frames\":0,\"slots\":null,\"pictures\":null,\"dropped\":null,"
                "\"start_timecode\":null,\"sidecars\":{\"frame_hashes\":null,\"levels\":null,\"events\":null,"
                "\"verification\":null,\"report_picture\":null},\"verification\":null}",
            JsonLinesPresenter::EndLine(end));
  EXPECT_NE(std::string(CommandOptions::ExitMeaning(11)), "");
}

}  // namespace
}  // namespace KTN
