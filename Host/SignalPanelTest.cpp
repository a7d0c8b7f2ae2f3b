// Tests of the capture window's signal view: a level meter's peak, hold and full-scale red, and the panel following a take's sidecars.
// The test program's offscreen QApplication is registered once, in CaptureReadoutTest.cpp.
#include <gtest/gtest.h>

#include <QImage>
#include <QListWidget>
#include <chrono>
#include <fstream>
#include <limits>
#include <string>

#include "Host/LevelMeter.h"
#include "Host/SignalPanel.h"
#include "Movie/MovieSidecars.h"
#include "Signal/SlotLevels.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

using std::chrono::milliseconds;

// Pixels of the meter drawn in a strong red.
int RedPixels(LevelMeter& meter) {
  meter.resize(meter.sizeHint());
  const QImage image = meter.grab().toImage();
  int red = 0;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      const QColor colour = image.pixelColor(x, y);
      red += colour.red() >= 220 && colour.green() <= 60 && colour.blue() <= 60;
    }
  }
  return red;
}

TEST(LevelMeterTest, HoldsThePeakForTwoSeconds) {
  LevelMeter meter(2, nullptr);
  EXPECT_EQ(2, meter.Channel());
  EXPECT_EQ("no level", meter.Snapshot());
  const auto start = std::chrono::steady_clock::time_point() + std::chrono::hours(1);
  meter.ShowPeak(-20.0f, start);
  EXPECT_EQ("peak -20.0 dBFS, hold -20.0 dBFS", meter.Snapshot());
  meter.ShowPeak(-std::numeric_limits<float>::infinity(), start + milliseconds(1000));
  EXPECT_EQ("peak -inf dBFS, hold -20.0 dBFS", meter.Snapshot());
  meter.ShowPeak(-35.5f, start + milliseconds(1900));
  EXPECT_EQ("peak -35.5 dBFS, hold -20.0 dBFS", meter.Snapshot());
  meter.ShowPeak(-36.0f, start + milliseconds(2100));
  EXPECT_EQ("peak -36.0 dBFS, hold -36.0 dBFS", meter.Snapshot()) << "the hold ends after two seconds";
  meter.ShowPeak(-12.0f, start + milliseconds(2200));
  EXPECT_EQ("peak -12.0 dBFS, hold -12.0 dBFS", meter.Snapshot()) << "a higher peak is held at once";
  meter.Clear();
  EXPECT_EQ("no level", meter.Snapshot());
}

TEST(LevelMeterTest, AFullScalePeakIsRedUntilItsHoldEnds) {
  LevelMeter meter(1, nullptr);
  const auto start = std::chrono::steady_clock::time_point() + std::chrono::hours(1);
  meter.ShowPeak(-0.2f, start);
  EXPECT_EQ("peak -0.2 dBFS, hold -0.2 dBFS", meter.Snapshot());
  const int belowFullScale = RedPixels(meter);
  meter.ShowPeak(-0.05f, start + milliseconds(250));
  EXPECT_EQ("peak -0.1 dBFS, hold -0.1 dBFS, full scale", meter.Snapshot());
  EXPECT_GT(RedPixels(meter), belowFullScale) << "the bar's top and the hold drawn red";
  meter.ShowPeak(-30.0f, start + milliseconds(2000));
  EXPECT_EQ("peak -30.0 dBFS, hold -0.1 dBFS, full scale", meter.Snapshot());
  meter.ShowPeak(-30.0f, start + milliseconds(2300));
  EXPECT_EQ("peak -30.0 dBFS, hold -30.0 dBFS", meter.Snapshot());
}

void Append(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::app) << text;
}

TEST(SignalPanelTest, ShowsTheTakesPeaksAndEventsAndClearsAtTheNextTake) {
  Util::ScratchFolder folder;
  const std::string movie = folder.File("take.mov");
  SignalPanel panel(nullptr);
  panel.ShowChannels(2);
  EXPECT_EQ("meter 1: no level\nmeter 2: no level\n", panel.Snapshot());
  panel.Follow(movie, 1, 25);
  panel.SetStartTimecode("01:00:00:00");
  panel.Refresh();  // nothing written yet
  EXPECT_EQ("meter 1: no level\nmeter 2: no level\n", panel.Snapshot());

  std::string levels = SlotLevels::Header(25, 1, 2);
  for (int slot = 0; slot < 20; ++slot) levels += "S " + std::to_string(slot) + " -20.0 -23.0 -inf -inf\n";
  Append(MovieSidecars::Levels(movie), levels);
  Append(MovieSidecars::Events(movie), "{\"kind\":\"silence\",\"slot\":0,\"frames\":20,\"channel\":2}\n");
  panel.Refresh();
  EXPECT_EQ("meter 1: peak -20.0 dBFS, hold -20.0 dBFS\nmeter 2: peak -inf dBFS, hold -inf dBFS\n"
            "event 1: 01:00:00:00  silence on channel 2 for 20 frames\n",
            panel.Snapshot());
  Append(MovieSidecars::Events(movie), "{\"kind\":\"black\",\"slot\":60,\"frames\":25}\n");
  panel.Refresh();
  const QListWidget* list = panel.findChild<QListWidget*>("signalEvents");
  ASSERT_NE(nullptr, list);
  ASSERT_EQ(2, list->count());
  EXPECT_EQ("01:00:02:10  black for 25 frames", list->item(1)->text().toStdString()) << "newest last";

  panel.Follow(folder.File("next.mov"), 1, 25);
  EXPECT_EQ("meter 1: no level\nmeter 2: no level\n", panel.Snapshot());
}

// A clip in the slots written between two refreshes shows, however many quieter slots came
// after it before the next look.
TEST(SignalPanelTest, AClipBetweenTwoRefreshesIsShown) {
  Util::ScratchFolder folder;
  const std::string movie = folder.File("take.mov");
  SignalPanel panel(nullptr);
  panel.Follow(movie, 1, 25);
  std::string levels = SlotLevels::Header(25, 1, 2);
  for (int slot = 0; slot < 10; ++slot) levels += "S " + std::to_string(slot) + " -30.0 -33.0 -30.0 -33.0\n";
  Append(MovieSidecars::Levels(movie), levels);
  panel.Refresh();
  EXPECT_EQ("meter 1: peak -30.0 dBFS, hold -30.0 dBFS\nmeter 2: peak -30.0 dBFS, hold -30.0 dBFS\n", panel.Snapshot());

  // One slot at full scale on channel 1, then two seconds of the quieter sound.
  levels = "S 10 0.0 -3.0 -30.0 -33.0\n";
  for (int slot = 11; slot < 61; ++slot) levels += "S " + std::to_string(slot) + " -30.0 -33.0 -30.0 -33.0\n";
  Append(MovieSidecars::Levels(movie), levels);
  panel.Refresh();
  EXPECT_EQ("meter 1: peak 0.0 dBFS, hold 0.0 dBFS, full scale\nmeter 2: peak -30.0 dBFS, hold -30.0 dBFS\n",
            panel.Snapshot());
  panel.Refresh();  // nothing written since: the meters keep what they show
  EXPECT_EQ("meter 1: peak 0.0 dBFS, hold 0.0 dBFS, full scale\nmeter 2: peak -30.0 dBFS, hold -30.0 dBFS\n",
            panel.Snapshot());
}

}  // namespace
}  // namespace KTN
