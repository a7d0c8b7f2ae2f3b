// A take's signal followed while it records: event lines with their timecodes, the sound's peaks, and the status line that shows them.
#include "Host/LiveSignal.h"

#include <gtest/gtest.h>

#include <stdio.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "Host/ProgressDisplay.h"
#include "Movie/MovieSidecars.h"
#include "Signal/SlotLevels.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

void Append(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::app) << text;
}

std::string SoundLine(int64_t slot, const std::string& peaks) {
  return "S " + std::to_string(slot) + " " + peaks + "\n";
}

TEST(LiveSignalTest, EventsAreToldWithTheTimecodeOfTheirFirstSlot) {
  Util::ScratchFolder folder;
  const std::string movie = folder.File("take.mov");
  LiveSignal signal(movie, 1, 25);
  signal.SetStartTimecode("01:00:00:00");
  ASSERT_EQ(0, signal.Update());  // no sidecars yet
  EXPECT_TRUE(signal.NewLines().empty());
  Append(MovieSidecars::Events(movie), "{\"kind\":\"black\",\"slot\":60,\"frames\":25}\n{\"kind\":\"sil");
  ASSERT_EQ(0, signal.Update());
  EXPECT_EQ(std::vector<std::string>{"01:00:02:10  black for 25 frames"}, signal.NewLines());
  EXPECT_TRUE(signal.NewLines().empty()) << "each line is handed out once";
  // A break, found in the same read as an event after it: that event counts from the break.
  Append(MovieSidecars::Events(movie),
         "ence\",\"slot\":30,\"frames\":50,\"channel\":2}\n"
         "{\"kind\":\"freeze\",\"slot\":110,\"frames\":4}\n"
         "{\"kind\":\"timecode-break\",\"slot\":100,\"frames\":1,\"before\":\"01:00:03:24\",\"after\":\"10:00:00:00\"}\n");
  ASSERT_EQ(0, signal.Update());
  EXPECT_EQ((std::vector<std::string>{"01:00:01:05  silence on channel 2 for 50 frames",
                                      "10:00:00:10  freeze for 4 frames",
                                      "10:00:00:00  timecode break: 01:00:03:24 then 10:00:00:00"}),
            signal.NewLines());
}

TEST(LiveSignalTest, WithoutAStartTimecodeEventsAreToldBySlot) {
  Util::ScratchFolder folder;
  const std::string movie = folder.File("take.mov");
  LiveSignal signal(movie, 1, 25);
  Append(MovieSidecars::Events(movie), "{\"kind\":\"black\",\"slot\":1234,\"frames\":25}\n");
  ASSERT_EQ(0, signal.Update());
  EXPECT_EQ(std::vector<std::string>{"slot 1234  black for 25 frames"}, signal.NewLines());
  signal.SetStartTimecode("not a timecode");
  Append(MovieSidecars::Events(movie), "{\"kind\":\"dropped\",\"slot\":7,\"frames\":2}\n");
  ASSERT_EQ(0, signal.Update());
  EXPECT_EQ(std::vector<std::string>{"slot 7  dropped 2 frames"}, signal.NewLines());
}

TEST(LiveSignalTest, ThePeakIsTheHighestOfAnyChannelOverTheLastSecond) {
  Util::ScratchFolder folder;
  const std::string movie = folder.File("take.mov");
  LiveSignal signal(movie, 1, 25);
  ASSERT_EQ(0, signal.Update());
  EXPECT_EQ("", LiveSignal::PeakText(signal.ChannelPeaks(1.0))) << "nothing before the levels come";
  Append(MovieSidecars::Levels(movie), SlotLevels::Header(25, 1, 2));
  ASSERT_EQ(0, signal.Update());
  EXPECT_EQ("", LiveSignal::PeakText(signal.ChannelPeaks(1.0))) << "nothing before the first sound slot";
  std::string lines = SoundLine(0, "-3.0 -6.0 -40.0 -43.0");  // a second and more before the last slot
  for (int slot = 1; slot <= 30; ++slot) lines += SoundLine(slot, "-20.0 -23.0 -26.5 -29.0");
  lines += SoundLine(31, "-inf -inf -12.25 -15.0");
  Append(MovieSidecars::Levels(movie), lines);
  ASSERT_EQ(0, signal.Update());
  EXPECT_EQ("peak -12.2 dBFS", LiveSignal::PeakText(signal.ChannelPeaks(1.0)));
  std::vector<float> peaks = signal.ChannelPeaks(1.0);
  ASSERT_EQ(2u, peaks.size());
  EXPECT_FLOAT_EQ(-20.0f, peaks[0]);
  EXPECT_FLOAT_EQ(-12.25f, peaks[1]);
  peaks = signal.ChannelPeaks(0.01);  // at least the last slot
  ASSERT_EQ(2u, peaks.size());
  EXPECT_TRUE(std::isinf(peaks[0]));
  EXPECT_FLOAT_EQ(-12.25f, peaks[1]);
  peaks = signal.ChannelPeaks(10.0);
  EXPECT_FLOAT_EQ(-3.0f, peaks[0]);

  std::string silence;
  for (int slot = 32; slot <= 60; ++slot) silence += SoundLine(slot, "-inf -inf -inf -inf");
  Append(MovieSidecars::Levels(movie), silence);
  ASSERT_EQ(0, signal.Update());
  EXPECT_EQ("peak -inf dBFS", LiveSignal::PeakText(signal.ChannelPeaks(1.0)));
}

TEST(LiveSignalTest, ATakeWithoutSoundHasNoPeak) {
  Util::ScratchFolder folder;
  const std::string movie = folder.File("take.mov");
  LiveSignal signal(movie, 1, 25);
  Append(MovieSidecars::Levels(movie), SlotLevels::Header(25, 1, 0) + "P 0 30.0 0.0 100.0 -\n");
  ASSERT_EQ(0, signal.Update());
  TakeSignal levels(movie);
  ASSERT_EQ(0, levels.Update());
  EXPECT_EQ(0, levels.Channels());
  EXPECT_TRUE(signal.ChannelPeaks(1.0).empty());
  EXPECT_EQ("", LiveSignal::PeakText(signal.ChannelPeaks(1.0)));
}

TEST(LiveSignalTest, LevelsLieOnTheScaleFromItsFloorToFullScale) {
  EXPECT_FLOAT_EQ(0.0f, LiveSignal::LevelShare(-std::numeric_limits<float>::infinity()));
  EXPECT_FLOAT_EQ(0.0f, LiveSignal::LevelShare(std::numeric_limits<float>::quiet_NaN()));
  EXPECT_FLOAT_EQ(0.0f, LiveSignal::LevelShare(-75.0f));
  EXPECT_FLOAT_EQ(0.0f, LiveSignal::LevelShare(LiveSignal::kFloorDb));
  EXPECT_FLOAT_EQ(0.5f, LiveSignal::LevelShare(-30.0f));
  EXPECT_FLOAT_EQ(1.0f, LiveSignal::LevelShare(0.0f));
  EXPECT_FLOAT_EQ(1.0f, LiveSignal::LevelShare(3.0f));
}

// Not on a terminal, the status line and the event lines are plain lines; the events found
// once the take has stopped come after the last status line.
TEST(LiveSignalTest, TheStatusLineShowsThePeakAndEventsComeAsLinesOfTheirOwn) {
  Util::ScratchFolder folder;
  const std::string movie = folder.File("take.mov");
  std::string lines = SlotLevels::Header(25, 1, 2);
  for (int slot = 0; slot < 25; ++slot) lines += SoundLine(slot, "-20.0 -23.0 -20.0 -23.0");
  Append(MovieSidecars::Levels(movie), lines);
  Append(MovieSidecars::Events(movie), "{\"kind\":\"black\",\"slot\":40,\"frames\":25}\n");
  CaptureSettings settings = {};
  settings.Fill(19, 1, 2, 24, 48000);  // HD 1080i 50
  FILE* out = tmpfile();
  ASSERT_NE(nullptr, out);
  {
    ProgressDisplay display(ProgressDisplay::Output::kStatusLine, nullptr, out, movie, settings);
    display.SetStartTimecode("01:00:00:00");
    // A plain status line comes once a second: until the first is there (ten seconds at most).
    std::string text;
    for (int i = 0; i < 200 && text.find(" fps | ") == std::string::npos; ++i) {
      display.Update("Recording to disk", 25, 0);
      fflush(out);
      text.assign(static_cast<size_t>(ftell(out)), '\0');
      rewind(out);
      text.resize(fread(&text[0], 1, text.size(), out));
      fseek(out, 0, SEEK_END);
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(0u, text.find("01:00:01:15  black for 25 frames\n")) << text;
    EXPECT_NE(std::string::npos, text.find(" | 25 frames | ")) << text;
    EXPECT_NE(std::string::npos, text.find(" dropped | peak -20.0 dBFS | disk: ")) << text;
    Append(MovieSidecars::Events(movie), "{\"kind\":\"silence\",\"slot\":80,\"frames\":20,\"channel\":1}\n");
    display.FinalEvents();
  }
  std::string text(static_cast<size_t>(ftell(out)), '\0');
  rewind(out);
  text.resize(fread(&text[0], 1, text.size(), out));
  fclose(out);
  const std::string last = "01:00:03:05  silence on channel 1 for 20 frames\n";
  ASSERT_GE(text.size(), last.size()) << text;
  EXPECT_EQ(last, text.substr(text.size() - last.size())) << text;
}

}  // namespace
}  // namespace KTN
