// A take through a break of the tape's timecode, end to end: the break in the take's events sidecar as the plug-in found it, and a timecode track that gives every frame the card's timecode, as ffprobe and mediainfo read it.
#include <gtest/gtest.h>

#include <stdio.h>

#include <sstream>
#include <string>
#include <vector>

#include "Movie/MovieSidecars.h"
#include "Movie/TimecodeTrack.h"
#include "Signal/SignalEvent.h"
#include "Simulator/SimulatedCardLoader.h"
#include "Testing/MovieProbe.h"
#include "tests/HostProgramProcess.h"
#include "tests/HostProgramTest.h"

namespace KTN {
namespace {

class TimecodeBreakTest : public HostProgramTest {};

// The card's timecode jumps 100 frames at its frame 50 (01:00:01:24, then 01:00:06:00) of a
// four-second take of 1080i50 in uncompressed 10-bit 4:2:2: the events sidecar holds that one
// break at the movie's slot of the card's frame 50, and the timecode track has two samples,
// the second from that slot on at the card's timecode after the jump, so every frame after
// it carries the card's timecode; mediainfo reads the take's first timecode.
TEST_F(TimecodeBreakTest, EveryFrameAfterAJumpCarriesTheCardsTimecode) {
  SetSimulatedCardEnvironment({{"VELDRAN_SIM_SPEED", "1"}, {"VELDRAN_SIM_EVENTS", "tcjump@50+100"}});
  const std::string movie = mFolder + "/jump.mov";
  ASSERT_NO_FATAL_FAILURE(
      RecordTake(movie, {"--seconds", "4", "--standard", "HD 1080i 50", "--format", "Uncompressed 10-bit 4:2:2"}, 120));

  // The take's first timecode, and so the movie slot of the card's frame 50 (the take starts
  // a frame or so after the card's streams, at 01:00:00:00).
  std::vector<TimecodeRun> runs;
  ASSERT_EQ(0, TimecodeTrack::ReadRuns(movie, runs));
  ASSERT_FALSE(runs.empty());
  const int64_t start = FrameAt25(runs[0].text);
  const int64_t startOffset = start - FrameAt25("01:00:00:00");
  ASSERT_GE(startOffset, 0);
  ASSERT_LT(startOffset, 50) << runs[0].text;
  const int64_t jumpSlot = 50 - startOffset;
  EXPECT_EQ(runs[0].text, CommandOutput("mediainfo --Inform='Other;%TimeCode_FirstFrame%' " + ShellQuoted(movie)));

  std::vector<SignalEvent> breaks;
  std::istringstream lines(ReadText(MovieSidecars::Events(movie)));
  std::string line;
  while (std::getline(lines, line)) {
    SignalEvent event;
    ASSERT_TRUE(SignalEvent::Parse(line, &event)) << line;
    if (event.kind == SignalEvent::Kind::kTimecodeBreak) breaks.push_back(event);
  }
  ASSERT_EQ(1u, breaks.size()) << ReadText(MovieSidecars::Events(movie));
  EXPECT_NEAR(jumpSlot, breaks[0].slot, 1);
  EXPECT_EQ(1, breaks[0].frames);
  EXPECT_EQ("01:00:01:24", breaks[0].before);
  EXPECT_EQ("01:00:06:00", breaks[0].after);

  // ffprobe's timecode packets: from each packet's time on, frames count on from its number.
  std::string timeBase = Ffprobe(movie, "-select_streams d:0 -show_entries stream=time_base");
  int num = 0, den = 0;
  ASSERT_EQ(2, sscanf(timeBase.c_str(), "%d/%d", &num, &den)) << timeBase;
  ASSERT_GT(den, 0);
  struct Packet {
    int64_t slot;
    int64_t frame;
  };
  std::vector<Packet> packets;
  std::istringstream probed(
      CommandOutput("ffprobe -v error -select_streams d:0 -show_packets -show_data " + ShellQuoted(movie)));
  int64_t pts = -1;
  while (std::getline(probed, line)) {
    if (line.compare(0, 4, "pts=") == 0) pts = std::stoll(line.substr(4));
    unsigned high = 0, low = 0;
    if (sscanf(line.c_str(), "00000000: %4x %4x", &high, &low) == 2) {
      packets.push_back(Packet{pts * num * 25 / den, static_cast<int64_t>(high << 16 | low)});
    }
  }
  ASSERT_EQ(2u, packets.size());
  EXPECT_EQ(0, packets[0].slot);
  EXPECT_EQ(start, packets[0].frame);
  EXPECT_EQ(breaks[0].slot, packets[1].slot);
  EXPECT_EQ(FrameAt25("01:00:06:00"), packets[1].frame);
  // The card gave its frame n the timecode 01:00:00:00 + n (+ 100 from frame 50 on); the
  // movie's slot s is the card's frame s + startOffset.
  const int64_t slots = std::stoll(Ffprobe(movie, "-select_streams v:0 -count_packets -show_entries stream=nb_read_packets"));
  ASSERT_GT(slots, jumpSlot + 1);
  for (int64_t slot = packets[1].slot; slot < slots; ++slot) {
    const int64_t card = FrameAt25("01:00:00:00") + slot + startOffset + 100;
    ASSERT_EQ(card, packets[1].frame + (slot - packets[1].slot)) << "slot " << slot;
  }
}

}  // namespace
}  // namespace KTN
