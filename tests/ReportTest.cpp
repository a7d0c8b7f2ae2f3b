// The host program's report of a recorded take: its lines on standard output, its picture with each event's marker where its slot lies, the picture record writes beside the take, and what cannot be reported refused in one line.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <QImage>

#include "Host/ReportPicture.h"
#include "Movie/MovieSidecars.h"
#include "Movie/MovieSummary.h"
#include "Signal/SignalEvent.h"
#include "tests/HostProgramProcess.h"
#include "tests/HostProgramTest.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;

// What a run of the host program said and its exit status (-1: it did not end in time).
struct Ran {
  int exit = -1;
  std::string out, err;
};

Ran RunProgram(const std::vector<std::string>& arguments, const std::string& folder, double seconds = 60) {
  Ran ran;
  const int status = RunHostProgram(arguments, folder, seconds, ran.out, ran.err);
  ran.exit = status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return ran;
}

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
}

// Whether the picture has colour within two pixels of x, at row y.
bool ColourNear(const QImage& image, int x, int y, QRgb colour) {
  for (int dx = -2; dx <= 2; ++dx) {
    if (x + dx >= 0 && x + dx < image.width() && (image.pixel(x + dx, y) & 0xffffff) == (colour & 0xffffff)) return true;
  }
  return false;
}

// A bounded take of four seconds of DV PAL (100 slots, about 15 MB) with stereo sound, the
// card playing the scripted faults: black from its frame 40 for 10 frames, silence from 60
// for 30.
class ReportTest : public HostProgramTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(HostProgramTest::SetUp());
    SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}, {"VELDRAN_SIM_EVENTS", "black@40+10,silence@60+30"}});
    mMovie = mScratch->File("take.mov");
    mRecorded = RunProgram({"record", "-o", mMovie, "--seconds", "4", "--standard", "PAL 4x3", "--format", "DV PAL"}, mFolder, 90);
    ASSERT_EQ(mRecorded.exit, 0) << mRecorded.err;
    ASSERT_EQ(mSummary.Read(mMovie), 0);
    ASSERT_EQ(mSummary.pictureSlots, 100u);
    ASSERT_TRUE(mSummary.hasTimecode);
    // The card's frame 0 is 01:00:00:00; the take starts a frame or so after its streams.
    mFirstSlotOfCard = FrameAt25(mSummary.startTimecode) - FrameAt25("01:00:00:00");
  }

  // Whether the picture has kind's colour in the marker lane (near its bottom, where only the
  // ticks reach) at slot's x.
  bool HasMarker(const QImage& picture, int channels, int64_t slot, SignalEvent::Kind kind) {
    return ColourNear(picture, ReportPicture::SlotX(slot, static_cast<int64_t>(mSummary.pictureSlots)),
                      ReportPicture::MarkerLaneTop(channels) + ReportPicture::kMarkerLaneHeight - 3,
                      ReportPicture::KindColour(kind));
  }
  void ExpectMarker(const QImage& picture, int channels, int64_t slot, SignalEvent::Kind kind) {
    EXPECT_TRUE(HasMarker(picture, channels, slot, kind))
        << SignalEvent::KindName(kind) << " at slot " << slot << " (x "
        << ReportPicture::SlotX(slot, static_cast<int64_t>(mSummary.pictureSlots)) << ")";
  }

  std::string mMovie;
  Ran mRecorded;
  MovieSummary mSummary;
  int64_t mFirstSlotOfCard = 0;
};

TEST_F(ReportTest, RecordNamesTheReportPictureItWroteBesideTheTake) {
  EXPECT_NE(mRecorded.out.find("\nReport: " + MovieSidecars::Report(mMovie) + "\n"), std::string::npos) << mRecorded.out;
  QImage picture(QString::fromStdString(MovieSidecars::Report(mMovie)));
  ASSERT_FALSE(picture.isNull());
  EXPECT_EQ(picture.width(), ReportPicture::kWidth);
}

TEST_F(ReportTest, HandMadeSidecarsAreSaidAndDrawnWhereTheirSlotsLie) {
  // Levels and events written by hand beside the real take: channel 1 at -20 dBFS peak and
  // -23 RMS, channel 2 at -6 and -9 with one slot at -1; black at slot 12, freeze at 70.
  std::string levels = "# kestrin-capture levels 1\n# rate 25/1\n# channels 2\n";
  for (int s = 0; s < 100; ++s) {
    levels += "P " + std::to_string(s) + " 40.0 5.0 95.0 " + (s ? "-40.0" : "-") + "\n";
    levels += "S " + std::to_string(s) + " -20.0 -23.0 " + (s == 50 ? "-1.0" : "-6.0") + " -9.0\n";
  }
  WriteText(MovieSidecars::Levels(mMovie), levels);
  WriteText(MovieSidecars::Events(mMovie),
            "{\"kind\":\"freeze\",\"slot\":70,\"frames\":5}\n{\"kind\":\"black\",\"slot\":12,\"frames\":10}\n");
  const std::string png = mScratch->File("report.png");
  Ran report = RunProgram({"report", mMovie, "-o", png}, mFolder);
  ASSERT_EQ(report.exit, 0) << report.err;
  const int64_t start = FrameAt25(mSummary.startTimecode);
  EXPECT_EQ(report.out, "Movie: " + mMovie + "\nSlots: 100 at 25 fps, from " + mSummary.startTimecode +
                            "\nPictures: 100\nDropped slots: 0\nEvents: 2\n" + TimecodeAt25(start + 12) +
                            "  black for 10 frames\n" + TimecodeAt25(start + 70) +
                            "  freeze for 5 frames\nChannel 1: peak -20.0 dBFS, RMS -23.0 dBFS\n"
                            "Channel 2: peak -1.0 dBFS, RMS -9.0 dBFS\nverify: not run\n");
  EXPECT_EQ(UserLines(report.err), std::vector<std::string>{}) << report.err;

  QImage picture(QString::fromStdString(png));
  ASSERT_FALSE(picture.isNull());
  EXPECT_GE(picture.width(), 800);
  // The picture's layout is the one its header describes, worked out here from its named
  // sizes: slot 12 of 100 lies 12% of the way across the plot, and the marker lane lies under
  // the title, the two sound strips and the luma strip.
  const int x12 = ReportPicture::kPlotLeft + 12 * (ReportPicture::kPlotRight - ReportPicture::kPlotLeft) / 100;
  EXPECT_EQ(x12, ReportPicture::SlotX(12, 100));
  EXPECT_EQ(ReportPicture::kTitleHeight + 2 * (ReportPicture::kStripHeight + ReportPicture::kLaneGap) +
                ReportPicture::kLumaHeight + ReportPicture::kLaneGap,
            ReportPicture::MarkerLaneTop(2));
  ExpectMarker(picture, 2, 12, SignalEvent::Kind::kBlack);
  ExpectMarker(picture, 2, 70, SignalEvent::Kind::kFreeze);
  // Nothing happened at slot 40: no marker of either kind there.
  EXPECT_FALSE(HasMarker(picture, 2, 40, SignalEvent::Kind::kBlack));
  EXPECT_FALSE(HasMarker(picture, 2, 40, SignalEvent::Kind::kFreeze));
  // The black event's picture was decoded: its thumbnail under the tick is not the background.
  const QRgb background = picture.pixel(2, picture.height() - 2);
  int decoded = 0;
  for (int x = x12 - 20; x <= x12 + 20; ++x) decoded += picture.pixel(x, ReportPicture::ThumbnailTop(2) + 20) != background;
  EXPECT_GT(decoded, 30);

  fs::create_directories(TEST_ARTIFACTS);
  fs::copy_file(png, std::string(TEST_ARTIFACTS) + "/report-hand-made.png", fs::copy_options::overwrite_existing);
}

TEST_F(ReportTest, TheScriptedFaultsAreReportedWhereTheyHappened) {
  ASSERT_TRUE(fs::exists(MovieSidecars::Events(mMovie))) << "the recording wrote no events sidecar";
  const std::string png = mScratch->File("report.png");
  Ran report = RunProgram({"report", mMovie, "-o", png}, mFolder);
  ASSERT_EQ(report.exit, 0) << report.err;
  const int64_t blackSlot = 40 - mFirstSlotOfCard, silenceSlot = 60 - mFirstSlotOfCard;
  const int64_t start = FrameAt25(mSummary.startTimecode);
  EXPECT_EQ(LinesWith(report.out, "black"),
            std::vector<std::string>{TimecodeAt25(start + blackSlot) + "  black for 10 frames"})
      << report.out;
  const std::vector<std::string> silence = LinesWith(report.out, "silence on channel 1");
  EXPECT_EQ(silence, std::vector<std::string>{TimecodeAt25(start + silenceSlot) + "  silence on channel 1 for 30 frames"})
      << report.out;
  QImage picture(QString::fromStdString(png));
  ASSERT_FALSE(picture.isNull());
  ExpectMarker(picture, 2, blackSlot, SignalEvent::Kind::kBlack);
  ExpectMarker(picture, 2, silenceSlot, SignalEvent::Kind::kSilence);
  fs::create_directories(TEST_ARTIFACTS);
  fs::copy_file(png, std::string(TEST_ARTIFACTS) + "/report.png", fs::copy_options::overwrite_existing);
}

TEST_F(ReportTest, TheLastVerifyIsSaid) {
  Ran report = RunProgram({"report", mMovie}, mFolder);
  EXPECT_EQ(LinesWith(report.out, "verify:"), std::vector<std::string>{"verify: not run"}) << report.out;
  Ran verify = RunProgram({"verify", mMovie}, mFolder);
  ASSERT_EQ(verify.exit, 0) << verify.err;
  report = RunProgram({"report", mMovie}, mFolder);
  const std::vector<std::string> said = LinesWith(report.out, "verify:");
  ASSERT_EQ(said.size(), 1u) << report.out;
  EXPECT_EQ(said[0].rfind("verify: passed (", 0), 0u) << said[0];
}

TEST_F(ReportTest, WhatCannotBeReportedIsRefusedInOneLine) {
  Ran missing = RunProgram({"report", mScratch->File("none.mov")}, mFolder);
  EXPECT_EQ(missing.exit, 6);
  EXPECT_EQ(UserLines(missing.err).size(), 1u) << missing.err;
  EXPECT_EQ(missing.out, "");
  WriteText(mScratch->File("text.mov"), "not a movie at all, only text");
  Ran notAMovie = RunProgram({"report", mScratch->File("text.mov")}, mFolder);
  EXPECT_EQ(notAMovie.exit, 6);
  EXPECT_EQ(UserLines(notAMovie.err),
            std::vector<std::string>{"kestrin-capture: cannot report on " + mScratch->File("text.mov") +
                                     ": it is not a movie (it has no movie header)"});
  Ran unwritable = RunProgram({"report", mMovie, "-o", mScratch->File("no-such-folder/report.png")}, mFolder);
  EXPECT_EQ(unwritable.exit, 6);
  EXPECT_EQ(UserLines(unwritable.err).size(), 1u) << unwritable.err;
}

}  // namespace
}  // namespace KTN
