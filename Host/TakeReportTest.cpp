// The report's figures from hand-made sidecars: events by slot with their timecodes through a break, each channel's peak and RMS over the take, the last verify, and a take without sidecars.
#include "Host/TakeReport.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>
#include <string>

#include "Movie/MovieSidecars.h"
#include "Signal/SlotLevels.h"
#include "Signal/TakeSignal.h"
#include "Util/JsonWriter.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

void WriteText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
}

// A finished take of 100 slots at 25 fps from 10:00:00:00, as MovieSummary reads one.
MovieSummary HundredSlots() {
  MovieSummary movie;
  movie.layout = MovieSummary::Layout::kFinished;
  movie.pictures = 98;
  movie.pictureSlots = 100;
  movie.videoTimescale = 25000;
  movie.frameDuration = 1000;
  movie.soundFrames = 192000;
  movie.soundRate = 48000;
  movie.hasTimecode = true;
  movie.startTimecode = "10:00:00:00";
  return movie;
}

class TakeReportTest : public testing::Test {
 protected:
  void SetUp() override {
    mMovie = mFolder.File("take.mov");
    WriteText(mMovie, "not read: the summary is given");
  }
  TakeReport Gathered() {
    TakeSignal signal(mMovie);
    EXPECT_EQ(signal.Update(), 0);
    TakeReport report;
    report.Gather(mMovie, HundredSlots(), signal);
    return report;
  }

  Util::ScratchFolder mFolder;
  std::string mMovie;
};

TEST_F(TakeReportTest, EventsComeBySlotWithTheirTimecodesRunOnThroughABreak) {
  WriteText(MovieSidecars::Events(mMovie),
            "{\"kind\":\"silence\",\"slot\":60,\"frames\":30,\"channel\":2}\n"
            "{\"kind\":\"timecode-break\",\"slot\":50,\"frames\":1,\"before\":\"10:00:01:24\",\"after\":\"11:00:00:00\"}\n"
            "{\"kind\":\"black\",\"slot\":40,\"frames\":10}\n");
  const TakeReport report = Gathered();
  ASSERT_EQ(report.events.size(), 3u);
  EXPECT_EQ(report.events[0].timecode, "10:00:01:15");
  EXPECT_EQ(report.events[1].timecode, "11:00:00:00");
  EXPECT_EQ(report.events[2].timecode, "11:00:00:10");
  const std::string text = report.Text();
  EXPECT_NE(text.find("\nSlots: 100 at 25 fps, from 10:00:00:00\nPictures: 98\nDropped slots: 2\nEvents: 3\n"
                      "10:00:01:15  black for 10 frames\n"
                      "11:00:00:00  timecode break: 10:00:01:24 then 11:00:00:00\n"
                      "11:00:00:10  silence on channel 2 for 30 frames\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("Levels: not there"), std::string::npos) << text;
  EXPECT_NE(text.find("\nverify: not run\n"), std::string::npos) << text;
}

TEST_F(TakeReportTest, PeakIsTheHighestAndRmsThePowerMeanOfTheSlots) {
  // Channel 1: RMS -10 dB in one slot and silence in three: a quarter of -10 dB's power is
  // -16.02 dB. Channel 2: -20 dB throughout.
  WriteText(MovieSidecars::Levels(mMovie), "# kestrin-capture levels 1\n# rate 25/1\n# channels 2\n"
                                           "P 0 50.0 0.0 100.0 -\n"
                                           "S 0 -3.0 -10.0 -14.0 -20.0\n"
                                           "S 1 -inf -inf -12.0 -20.0\n"
                                           "S 2 -inf -inf -17.5 -20.0\n"
                                           "S 3 -inf -inf -19.0 -20.0\n");
  WriteText(MovieSidecars::Events(mMovie), "");
  const TakeReport report = Gathered();
  ASSERT_EQ(report.channels.size(), 2u);
  EXPECT_FLOAT_EQ(report.channels[0].peakDb, -3.0f);
  EXPECT_NEAR(report.channels[0].rmsDb, -16.0206, 0.001);
  EXPECT_FLOAT_EQ(report.channels[1].peakDb, -12.0f);
  EXPECT_NEAR(report.channels[1].rmsDb, -20.0, 0.001);
  const std::string text = report.Text();
  EXPECT_NE(text.find("\nEvents: 0\nChannel 1: peak -3.0 dBFS, RMS -16.0 dBFS\nChannel 2: peak -12.0 dBFS, RMS -20.0 dBFS\n"),
            std::string::npos)
      << text;
}

TEST_F(TakeReportTest, ASilentChannelIsMinusInfinity) {
  WriteText(MovieSidecars::Levels(mMovie), "# kestrin-capture levels 1\n# rate 25/1\n# channels 1\nS 0 -inf -inf\nS 1 -inf -inf\n");
  const TakeReport report = Gathered();
  EXPECT_NE(report.Text().find("Channel 1: peak -inf dBFS, RMS -inf dBFS\n"), std::string::npos) << report.Text();
}

TEST_F(TakeReportTest, ATakeWithoutSidecarsSaysWhatIsNotThere) {
  const TakeReport report = Gathered();
  const std::string text = report.Text();
  EXPECT_NE(text.find("Events: not there"), std::string::npos) << text;
  EXPECT_NE(text.find("Levels: not there"), std::string::npos) << text;
  EXPECT_NE(text.find("Dropped slots: 2\n"), std::string::npos) << text;
}

TEST_F(TakeReportTest, TheLastVerifyIsSaidForTheMovieItChecked) {
  struct stat movie;
  ASSERT_EQ(stat(mMovie.c_str(), &movie), 0);
  const std::string stamp = ",\"bytes\":" + std::to_string(movie.st_size) + ",\"modified\":" + std::to_string(movie.st_mtime) + "}\n";
  WriteText(MovieSidecars::Verification(mMovie),
            "{\"result\":\"verified\",\"line\":\"verified 98 pictures and 192000 sound samples\",\"checked\":"
            "\"2026-11-24T16:20:05+0000\"" + stamp);
  EXPECT_EQ(Gathered().VerifyLine(), "verify: passed (2026-11-24 16:20)");

  WriteText(MovieSidecars::Verification(mMovie),
            "{\"result\":\"differs\",\"line\":\"take.mov differs from its sidecar: picture 3 (10:00:00:03) is the first "
            "bad one\",\"checked\":\"2026-11-24T17:01:00+0000\"" + stamp);
  EXPECT_EQ(Gathered().VerifyLine(),
            "verify: FAILED: take.mov differs from its sidecar: picture 3 (10:00:00:03) is the first bad one (2026-11-24 17:01)");

  // A movie changed since (another size) was not checked as it is.
  WriteText(mMovie, "a movie recorded over it");
  EXPECT_EQ(Gathered().VerifyLine(), "verify: not run");
}

TEST_F(TakeReportTest, TheJsonSaysTheSameFiguresAsTheText) {
  WriteText(MovieSidecars::Events(mMovie),
            "{\"kind\":\"silence\",\"slot\":60,\"frames\":30,\"channel\":2}\n"
            "{\"kind\":\"timecode-break\",\"slot\":50,\"frames\":1,\"before\":\"10:00:01:24\",\"after\":\"11:00:00:00\"}\n");
  WriteText(MovieSidecars::Levels(mMovie), SlotLevels::Header(25, 1, 2) + "S 0 -3.0 -9.0 -inf -inf\nS 1 -6.0 -12.0 -inf -inf\n");
  const TakeReport report = Gathered();
  EXPECT_EQ(report.Json(),
            "{\"movie\":" + Util::JsonWriter::Quoted(mMovie) +
                ",\"slots\":100,\"fps\":25.000,\"frame_duration\":1000,\"timescale\":25000,"
                "\"start_timecode\":\"10:00:00:00\",\"pictures\":98,\"dropped\":2,\"events\":["
                "{\"kind\":\"timecode-break\",\"slot\":50,\"frames\":1,\"timecode\":\"11:00:00:00\","
                "\"before\":\"10:00:01:24\",\"after\":\"11:00:00:00\",\"sentence\":\"timecode break: 10:00:01:24 then 11:00:00:00\"},"
                "{\"kind\":\"silence\",\"slot\":60,\"frames\":30,\"channel\":2,\"timecode\":\"11:00:00:10\","
                "\"sentence\":\"silence on channel 2 for 30 frames\"}],"
                "\"channels\":[{\"channel\":1,\"peak_dbfs\":-3.0,\"rms_dbfs\":-10.2},{\"channel\":2,\"peak_dbfs\":null,"
                "\"rms_dbfs\":null}],\"verification\":null,\"sidecars\":{\"frame_hashes\":null,\"levels\":" +
                Util::JsonWriter::Quoted(MovieSidecars::Levels(mMovie)) +
                ",\"events\":" + Util::JsonWriter::Quoted(MovieSidecars::Events(mMovie)) +
                ",\"verification\":null,\"report_picture\":null}}");
  const std::string text = report.Text();
  EXPECT_NE(text.find("Channel 1: peak -3.0 dBFS, RMS -10.2 dBFS\nChannel 2: peak -inf dBFS, RMS -inf dBFS\n"),
            std::string::npos)
      << text;
}

TEST_F(TakeReportTest, TheJsonOfATakeWithoutSidecarsHasNullsWhereTheTextSaysNotThere) {
  const std::string json = Gathered().Json();
  EXPECT_NE(json.find(",\"events\":null,\"channels\":null,\"verification\":null,"), std::string::npos) << json;
}

TEST_F(TakeReportTest, TheJsonCarriesTheLastVerify) {
  struct stat movie;
  ASSERT_EQ(stat(mMovie.c_str(), &movie), 0);
  WriteText(MovieSidecars::Verification(mMovie),
            "{\"result\":\"differs\",\"line\":\"picture 3 is bad\",\"checked\":\"2026-11-24T17:01:00+0000\",\"bytes\":" +
                std::to_string(movie.st_size) + ",\"modified\":" + std::to_string(movie.st_mtime) + "}\n");
  const std::string json = Gathered().Json();
  EXPECT_NE(json.find(",\"verification\":{\"result\":\"differs\",\"passed\":false,\"line\":\"picture 3 is bad\","
                      "\"checked\":\"2026-11-24T17:01:00+00:00\"},\"sidecars\":{"),
            std::string::npos)
      << json;
}

}  // namespace
}  // namespace KTN
