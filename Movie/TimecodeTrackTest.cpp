// A take's timecode track through breaks of the tape's timecode: one sample a run, as the stamp writes it and as readers read it back.
#include "Movie/TimecodeTrack.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Movie/FakeTake.h"
#include "Movie/InPlaceIndex.h"
#include "Movie/MovieStamp.h"
#include "Testing/MovieProbe.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

// A finished take of `slots` pictures at 29.97 (FakeTake's rate), without timecode.
void FinishedTake(const std::string& path, uint64_t slots) {
  FakeTake take(path);
  for (uint64_t slot = 0; slot < slots; ++slot) take.Picture(slot);
  ASSERT_EQ(0, InPlaceIndex::Write(path));
}

MovieStamp StampAt2997(const std::string& start, std::vector<TimecodeRun> breaks) {
  MovieStamp stamp;
  stamp.startTimecode = start;
  stamp.frameDuration = FakeTake::kFrame;
  stamp.timescale = FakeTake::kPictureScale;
  stamp.timecodeBreaks = std::move(breaks);
  return stamp;
}

// What ffprobe reads of the timecode track's packets: "<slot>:<frame number>" each, the
// slot from the packet's time (in slots of 1001 / 30000 s), the number from its four bytes.
std::vector<std::string> ProbedTimecodeSamples(const std::string& path) {
  const std::string text = CommandOutput("ffprobe -v error -select_streams d -show_packets -show_data " +
                                         ShellQuoted(path));
  std::vector<std::string> samples;
  std::istringstream lines(text);
  std::string line, pts;
  while (std::getline(lines, line)) {
    if (line.compare(0, 4, "pts=") == 0) pts = std::to_string(std::stoll(line.substr(4)) / FakeTake::kFrame);
    unsigned a = 0, b = 0;
    if (sscanf(line.c_str(), "00000000: %4x %4x", &a, &b) == 2) samples.push_back(pts + ":" + std::to_string(a << 16 | b));
  }
  return samples;
}

std::string FileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string Texts(const std::vector<TimecodeRun>& runs) {
  std::string text;
  for (const TimecodeRun& run : runs) text += std::to_string(run.slot) + "=" + run.text + " ";
  return text;
}

// Two breaks: three samples, each lasting its run's slots (the last to the movie's end),
// read back as the runs they were, and by ffprobe and mediainfo from their first frames.
TEST(TimecodeTrackTest, OneSampleForEachUnbrokenRun) {
  Util::ScratchFolder folder;
  const std::string path = folder.File("take.mov");
  FinishedTake(path, 100);
  ASSERT_EQ(0, StampAt2997("01:00:00:00", {{40, "02:00:00:00"}, {70, "01:00:10:00"}}).Apply(path));

  std::vector<TimecodeRun> runs;
  ASSERT_EQ(0, TimecodeTrack::ReadRuns(path, runs));
  EXPECT_EQ("0=01:00:00:00 40=02:00:00:00 70=01:00:10:00 ", Texts(runs));
  // 30 frames a second, not dropping: 01:00:00:00 is frame 108000.
  const std::vector<std::string> expected = {"0:108000", "40:216000", "70:108300"};
  EXPECT_EQ(expected, ProbedTimecodeSamples(path));
  EXPECT_EQ("01:00:00:00", CommandOutput("mediainfo --Inform='Other;%TimeCode_FirstFrame%' " + ShellQuoted(path)));
  EXPECT_EQ("100", Ffprobe(path, "-select_streams v:0 -count_packets -show_entries stream=nb_read_packets"));
}

// Without a break the track is the one sample it always was; a break at or past the movie's
// end, or one that is no timecode, is left out.
TEST(TimecodeTrackTest, AStartAloneIsOneRun) {
  Util::ScratchFolder folder;
  const std::string path = folder.File("take.mov");
  FinishedTake(path, 20);
  ASSERT_EQ(0, StampAt2997("10:00:00:00", {{20, "11:00:00:00"}}).Apply(path));
  std::vector<TimecodeRun> runs;
  ASSERT_EQ(0, TimecodeTrack::ReadRuns(path, runs));
  EXPECT_EQ("0=10:00:00:00 ", Texts(runs));
  EXPECT_EQ(std::vector<std::string>{"0:1080000"}, ProbedTimecodeSamples(path));

  // Stamped again (as repair does), the earlier track is replaced.
  ASSERT_EQ(0, StampAt2997("10:00:00:00", {{5, "not a timecode"}, {10, "10:00:01:00"}}).Apply(path));
  ASSERT_EQ(0, TimecodeTrack::ReadRuns(path, runs));
  EXPECT_EQ("0=10:00:00:00 10=10:00:01:00 ", Texts(runs));
}

// Drop frame at 29.97: the runs count as the tape does, skipping frames 00 and 01 of each
// minute but every tenth.
TEST(TimecodeTrackTest, DropFrameRunsCountAsTheTape) {
  Util::ScratchFolder folder;
  const std::string path = folder.File("take.mov");
  FinishedTake(path, 60);
  ASSERT_EQ(0, StampAt2997("00:00:59;28", {{30, "00:01:00;02"}}).Apply(path));
  std::vector<TimecodeRun> runs;
  ASSERT_EQ(0, TimecodeTrack::ReadRuns(path, runs));
  EXPECT_EQ("0=00:00:59;28 30=00:01:00;02 ", Texts(runs));
  const std::vector<std::string> expected = {"0:1798", "30:1800"};
  EXPECT_EQ(expected, ProbedTimecodeSamples(path)) << "00:01:00;02 is the 1800th frame when dropping";
  EXPECT_EQ("00:00:59;28", CommandOutput("mediainfo --Inform='Other;%TimeCode_FirstFrame%' " + ShellQuoted(path)));
}

// 59.94 counts 60 labels a second and drops four at each minute.
TEST(TimecodeTrackTest, CountsAt5994DropFrame) {
  TimecodeTrack track;
  ASSERT_TRUE(track.Set(1001, 60000, true, "00:00:59;58"));
  EXPECT_EQ(3598u, track.FirstFrame());
  EXPECT_TRUE(track.AddRun(2, "00:01:00;04"));
  EXPECT_FALSE(track.AddRun(3, "00:01:00;60")) << "no such label at 60";
  EXPECT_FALSE(track.AddRun(3, "00:02:00;03")) << "a label the count drops";
  EXPECT_FALSE(track.AddRun(2, "00:02:00;04")) << "a run comes after the last";
  EXPECT_EQ(2u, track.Samples());
  BoxWriter samples;
  track.WriteSamples(samples);
  const std::vector<uint8_t> expected = {0, 0, 0x0E, 0x0E, 0, 0, 0x0E, 0x10};
  EXPECT_EQ(expected, samples.bytes) << "3598, then 3600: ;04 follows ;59 of the minute before";
  EXPECT_FALSE(track.Set(1001, 60000, true, "00:01:00;00")) << "nor does a start have one";
}

// A stamp cut off while it wrote its index leaves the movie as it was before: every cut of
// what it appends still reads, with the old index.
TEST(TimecodeTrackTest, AStampCutOffLeavesAReadableMovie) {
  Util::ScratchFolder folder;
  const std::string path = folder.File("take.mov");
  FinishedTake(path, 30);
  const std::string before = FileBytes(path);
  ASSERT_EQ(0, StampAt2997("01:00:00:00", {{10, "05:00:00:00"}}).Apply(path));
  const std::string after = FileBytes(path);
  ASSERT_GT(after.size(), before.size());
  const size_t appended = after.size() - before.size();
  for (size_t cut : {size_t{4}, size_t{12}, appended / 2, appended - 1}) {
    SCOPED_TRACE("cut after " + std::to_string(cut) + " bytes of the stamp");
    const std::string cutPath = folder.File("cut.mov");
    std::ofstream(cutPath, std::ios::binary) << before << after.substr(before.size(), cut);
    EXPECT_EQ("30", Ffprobe(cutPath, "-select_streams v:0 -count_packets -show_entries stream=nb_read_packets"));
  }
}

}  // namespace
}  // namespace KTN
