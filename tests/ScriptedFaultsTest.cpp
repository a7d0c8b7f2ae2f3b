// The signal's events of real takes: each fault the simulated card is scripted to play is
// found once, of its kind, at its slot (within one), in 10-bit 1080i50 and in DV PAL; the
// clean bars give no event at all.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <ostream>
#include <string>
#include <vector>

#include "Movie/MovieSummary.h"
#include "Signal/SignalEvent.h"
#include "Signal/TakeSignal.h"
#include "tests/HostProgramProcess.h"
#include "tests/HostProgramTest.h"

namespace KTN {
namespace {

// What the card was told to play: kind from its first frame (the card's count) for frames.
struct Scripted {
  SignalEvent::Kind kind;
  int64_t first;
  int64_t frames;
  int channel;
};

struct Format {
  const char* name;
  const char* standard;
  const char* format;
};

std::ostream& operator<<(std::ostream& out, const Format& format) { return out << format.name; }

class ScriptedFaultsTest : public HostProgramTest, public testing::WithParamInterface<Format> {
 protected:
  // The card's frame the take's first slot was: its timecode less the card's first (01:00:00:00).
  static int64_t FirstCardFrame(const MovieSummary& summary) {
    const int64_t start = FrameAt25(summary.startTimecode);
    return start < 0 ? -1 : start - FrameAt25("01:00:00:00");
  }
};

// Every scripted fault is found once, of its kind (and channel), its first slot within one
// of the card's frame, its length within one; nothing else is found but the slots the
// machine left empty, if any.
TEST_P(ScriptedFaultsTest, EachScriptedFaultIsFoundOnceWhereItHappened) {
  SetSimulatedCardEnvironment(
      {{"VELDRAN_SIM_SPEED", "1"}, {"VELDRAN_SIM_EVENTS", "black@12+8,freeze@26+12,silence@44+30,clip@80+6"}});
  const std::vector<Scripted> script = {
      {SignalEvent::Kind::kBlack, 12, 8, 0},     {SignalEvent::Kind::kFreeze, 26, 12, 0},
      {SignalEvent::Kind::kSilence, 44, 30, 1},  {SignalEvent::Kind::kSilence, 44, 30, 2},
      {SignalEvent::Kind::kClipping, 80, 6, 1},
  };
  const std::string movie = mFolder + "/scripted.mov";
  ASSERT_NO_FATAL_FAILURE(
      RecordTake(movie, {"--standard", GetParam().standard, "--format", GetParam().format, "--frames", "100"}));
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(movie));
  const int64_t offset = FirstCardFrame(summary);
  ASSERT_GE(offset, 0) << summary.startTimecode;
  ASSERT_LT(offset, 12) << "the take started after the first fault";

  TakeSignal signal(movie);
  ASSERT_EQ(0, signal.Update());
  // Slots the machine left empty are dropped, and only those; they must not cut a fault's run
  // in two (a loaded machine may drop a frame elsewhere).
  std::vector<SignalEvent> found;
  int64_t dropped = 0;
  std::string all;
  for (const SignalEvent& event : signal.EventsBySlot()) {
    all += event.Line();
    if (event.kind != SignalEvent::Kind::kDropped) {
      found.push_back(event);
      continue;
    }
    dropped += event.frames;
    for (const Scripted& fault : script) {
      ASSERT_FALSE(event.slot < fault.first - offset + fault.frames && event.slot + event.frames > fault.first - offset)
          << "the machine dropped a frame of a scripted fault: " << event.Line();
    }
  }
  EXPECT_EQ(static_cast<int64_t>(summary.EmptySlots()), dropped);
  for (const Scripted& fault : script) {
    int matches = 0;
    for (const SignalEvent& event : found) {
      if (event.kind != fault.kind || event.channel != fault.channel) continue;
      ++matches;
      EXPECT_LE(std::abs(event.slot - (fault.first - offset)), 1) << event.Line();
      EXPECT_LE(std::abs(event.frames - fault.frames), 1) << event.Line();
    }
    EXPECT_EQ(1, matches) << SignalEvent::KindName(fault.kind) << " on channel " << fault.channel << " in:\n" << all;
  }
  EXPECT_EQ(script.size(), found.size()) << all;
  EXPECT_EQ(static_cast<size_t>(summary.pictures), signal.Pictures().size()) << "a levels line for every picture";
}

INSTANTIATE_TEST_SUITE_P(Formats, ScriptedFaultsTest,
                         testing::Values(Format{"Hd1080i50TenBit", "HD 1080i 50", "Uncompressed 10-bit 4:2:2"},
                                         Format{"DvPal", "PAL 4x3", "DV PAL"}),
                         [](const testing::TestParamInfo<Format>& info) { return std::string(info.param.name); });

// Ten seconds of the plain bars and tone: no event at all, unless the machine left slots
// empty, and then only those, as dropped.
TEST_F(ScriptedFaultsTest, TenSecondsOfCleanBarsHaveNoEvent) {
  const std::string movie = mFolder + "/clean.mov";
  ASSERT_NO_FATAL_FAILURE(
      RecordTake(movie, {"--standard", "HD 1080i 50", "--format", "Uncompressed 10-bit 4:2:2", "--frames", "250"}));
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(movie));
  EXPECT_EQ(250u, summary.pictureSlots);
  TakeSignal signal(movie);
  ASSERT_EQ(0, signal.Update());
  int64_t dropped = 0;
  for (const SignalEvent& event : signal.Events()) {
    EXPECT_EQ(SignalEvent::Kind::kDropped, event.kind) << event.Line();
    if (event.kind == SignalEvent::Kind::kDropped) dropped += event.frames;
  }
  EXPECT_EQ(static_cast<int64_t>(summary.EmptySlots()), dropped) << "dropped only where the movie has empty slots";
  EXPECT_EQ(static_cast<size_t>(summary.pictures), signal.Pictures().size());
  EXPECT_EQ(250u, signal.Sounds().size()) << "a levels line for every slot's sound";
  for (const SoundLevels& sound : signal.Sounds()) {
    ASSERT_EQ(2u, sound.peakDb.size());
    EXPECT_NEAR(-20.0, sound.peakDb[0], 0.2) << "slot " << sound.slot;
    EXPECT_NEAR(-23.0, sound.rmsDb[1], 0.2) << "slot " << sound.slot;
  }
}

}  // namespace
}  // namespace KTN
