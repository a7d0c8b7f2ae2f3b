// Tests of the signal sidecars' lines, their following as they grow, and slot timecodes.
#include <fcntl.h>
#include <sys/stat.h>
#include <gtest/gtest.h>
#include <math.h>
#include <unistd.h>

#include <string>

#include "Movie/MovieSidecars.h"
#include "Signal/GrowingLines.h"
#include "Signal/SignalEvent.h"
#include "Signal/SlotLevels.h"
#include "Signal/SlotTimecodes.h"
#include "Signal/TakeSignal.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

TEST(SignalEventTest, LinesReadBackAsWritten) {
  SignalEvent black;
  black.kind = SignalEvent::Kind::kBlack;
  black.slot = 120;
  black.frames = 25;
  EXPECT_EQ("{\"kind\":\"black\",\"slot\":120,\"frames\":25}\n", black.Line());
  SignalEvent silence;
  silence.kind = SignalEvent::Kind::kSilence;
  silence.slot = 3;
  silence.frames = 50;
  silence.channel = 2;
  EXPECT_EQ("{\"kind\":\"silence\",\"slot\":3,\"frames\":50,\"channel\":2}\n", silence.Line());
  SignalEvent jump;
  jump.kind = SignalEvent::Kind::kTimecodeBreak;
  jump.slot = 400;
  jump.frames = 1;
  jump.before = "01:00:15:24";
  jump.after = "01:00:17:00";
  for (const SignalEvent& event : {black, silence, jump}) {
    SignalEvent read;
    ASSERT_TRUE(SignalEvent::Parse(event.Line(), &read)) << event.Line();
    EXPECT_EQ(event.Line(), read.Line());
  }
  EXPECT_EQ("black for 25 frames", black.Sentence());
  EXPECT_EQ("silence on channel 2 for 50 frames", silence.Sentence());
  EXPECT_EQ("timecode break: 01:00:15:24 then 01:00:17:00", jump.Sentence());
}

TEST(SignalEventTest, RefusesWhatIsNoWholeEvent) {
  SignalEvent event;
  for (const char* line : {"", "{", "{\"kind\":\"black\",\"slot\":1", "{\"kind\":\"blue\",\"slot\":1,\"frames\":2}",
                           "{\"kind\":\"black\",\"slot\":-1,\"frames\":2}", "{\"kind\":\"black\",\"frames\":2}",
                           "{\"kind\":\"silence\",\"slot\":1,\"frames\":2}",
                           "{\"kind\":\"black\",\"slot\":1.5,\"frames\":2}",
                           "{\"kind\":\"black\",\"slot\":1,\"frames\":2} x"}) {
    EXPECT_FALSE(SignalEvent::Parse(line, &event)) << line;
  }
  // Members it does not know are passed over; spaces are allowed.
  ASSERT_TRUE(SignalEvent::Parse("{ \"kind\" : \"freeze\", \"note\":\"x\", \"slot\":7, \"frames\":12 }\n", &event));
  EXPECT_EQ(SignalEvent::Kind::kFreeze, event.kind);
  EXPECT_EQ(7, event.slot);
  EXPECT_EQ(12, event.frames);
}

TEST(SlotLevelsTest, LinesReadBackAsWritten) {
  PictureLevels picture;
  picture.slot = 9;
  picture.mean = 34.06f;
  picture.minimum = 0;
  picture.maximum = 100;
  picture.changeDb = -57.25f;
  picture.hasChange = true;
  EXPECT_EQ("P 9 34.1 0.0 100.0 -57.2\n", SlotLevels::Line(picture));
  picture.changeDb = -INFINITY;
  EXPECT_EQ("P 9 34.1 0.0 100.0 -inf\n", SlotLevels::Line(picture));
  SoundLevels sound;
  sound.slot = 9;
  sound.peakDb = {-20.0f, -INFINITY};
  sound.rmsDb = {-23.0f, -INFINITY};
  EXPECT_EQ("S 9 -20.0 -23.0 -inf -inf\n", SlotLevels::Line(sound));

  int64_t num = 0, den = 0;
  int channels = -1;
  PictureLevels p;
  SoundLevels s;
  EXPECT_EQ(SlotLevels::LineKind::kRate, SlotLevels::Parse("# rate 30000/1001\n", &num, &den, &channels, &p, &s));
  EXPECT_EQ(30000, num);
  EXPECT_EQ(1001, den);
  EXPECT_EQ(SlotLevels::LineKind::kChannels, SlotLevels::Parse("# channels 2\n", &num, &den, &channels, &p, &s));
  EXPECT_EQ(2, channels);
  ASSERT_EQ(SlotLevels::LineKind::kPicture, SlotLevels::Parse(SlotLevels::Line(picture), &num, &den, &channels, &p, &s));
  EXPECT_TRUE(p.hasChange);
  EXPECT_TRUE(std::isinf(p.changeDb));
  ASSERT_EQ(SlotLevels::LineKind::kPicture, SlotLevels::Parse("P 0 1.0 0.0 2.0 -\n", &num, &den, &channels, &p, &s));
  EXPECT_FALSE(p.hasChange);
  ASSERT_EQ(SlotLevels::LineKind::kSound, SlotLevels::Parse(SlotLevels::Line(sound), &num, &den, &channels, &p, &s));
  ASSERT_EQ(2u, s.peakDb.size());
  EXPECT_FLOAT_EQ(-20.0f, s.peakDb[0]);
  EXPECT_TRUE(std::isinf(s.rmsDb[1]));
  for (const char* bad : {"P 1 2.0", "S 1 -20.0", "P x 1 2 3 -", "S 1 -20.0 -23.0 junk", "Q 1"}) {
    EXPECT_EQ(SlotLevels::LineKind::kNone, SlotLevels::Parse(bad, &num, &den, &channels, &p, &s)) << bad;
  }
}

void Append(const std::string& path, const std::string& text) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(static_cast<ssize_t>(text.size()), write(fd, text.data(), text.size()));
  close(fd);
}

TEST(TakeSignalTest, FollowsSidecarsAsTheyGrowAndTakesOnlyWholeLines) {
  Util::ScratchFolder folder;
  const std::string movie = folder.Path() + "/take.mov";
  TakeSignal signal(movie);
  ASSERT_EQ(0, signal.Update());  // no sidecars yet
  EXPECT_TRUE(signal.Events().empty());
  EXPECT_FALSE(signal.EventsFound());
  EXPECT_FALSE(signal.LevelsFound());
  Append(MovieSidecars::Levels(movie), SlotLevels::Header(25, 1, 2));
  ASSERT_EQ(0, signal.Update());
  EXPECT_FALSE(signal.EventsFound());
  EXPECT_TRUE(signal.LevelsFound());
  Append(MovieSidecars::Levels(movie), "P 0 30.0 0.0 100.0 -\nS 0 -20.0 -23.0 -20.0 -23.0\nP 1 30.0 0.0 10");
  Append(MovieSidecars::Events(movie), "{\"kind\":\"black\",\"slot\":5,\"frames\":3}\n{\"kind\":\"dro");
  ASSERT_EQ(0, signal.Update());
  EXPECT_EQ(25, signal.RateNumerator());
  EXPECT_EQ(2, signal.Channels());
  EXPECT_EQ(1u, signal.Pictures().size());
  EXPECT_EQ(1u, signal.Sounds().size());
  ASSERT_EQ(1u, signal.NewEvents());
  EXPECT_TRUE(signal.EventsFound());
  Append(MovieSidecars::Levels(movie), "0.0 -57.0\n");
  Append(MovieSidecars::Events(movie), "pped\",\"slot\":2,\"frames\":1}\n");
  ASSERT_EQ(0, signal.Update());
  ASSERT_EQ(2u, signal.Pictures().size());
  EXPECT_FLOAT_EQ(-57.0f, signal.Pictures()[1].changeDb);
  ASSERT_EQ(1u, signal.NewEvents());
  ASSERT_EQ(2u, signal.Events().size());
  EXPECT_EQ(SignalEvent::Kind::kDropped, signal.EventsBySlot()[0].kind);
  ASSERT_EQ(0, signal.Update());
  EXPECT_EQ(0u, signal.NewEvents());
  // A reader done with the take takes the levels over.
  EXPECT_EQ(2u, signal.ReleasePictures().size());
  EXPECT_EQ(1u, signal.ReleaseSounds().size());
  EXPECT_TRUE(signal.Pictures().empty());
  EXPECT_TRUE(signal.Sounds().empty());
}

// A sidecar cut back to nothing (the take recorded over) is read again from its start once,
// and what follows it is kept from then on.
TEST(TakeSignalTest, ASidecarCutBackIsReadAgainOnceAndKeptAfter) {
  Util::ScratchFolder folder;
  const std::string movie = folder.Path() + "/take.mov";
  const std::string events = MovieSidecars::Events(movie);
  Append(events, "{\"kind\":\"black\",\"slot\":5,\"frames\":3}\n{\"kind\":\"black\",\"slot\":50,\"frames\":3}\n");
  TakeSignal signal(movie);
  ASSERT_EQ(0, signal.Update());
  ASSERT_EQ(2u, signal.Events().size());
  ASSERT_EQ(0, truncate(events.c_str(), 0));
  Append(events, "{\"kind\":\"freeze\",\"slot\":7,\"frames\":12}\n");
  ASSERT_EQ(0, signal.Update());
  ASSERT_EQ(1u, signal.Events().size()) << "the lines of the take recorded over are gone";
  Append(events, "{\"kind\":\"dropped\",\"slot\":9,\"frames\":1}\n");
  ASSERT_EQ(0, signal.Update());
  ASSERT_EQ(2u, signal.Events().size()) << "the new take's lines stay";
  EXPECT_EQ(1u, signal.NewEvents());
  ASSERT_EQ(0, signal.Update());
  EXPECT_EQ(2u, signal.Events().size());
}

TEST(TakeSignalTest, RefusesASidecarThatIsNoRegularFile) {
  Util::ScratchFolder folder;
  const std::string movie = folder.Path() + "/take.mov";
  ASSERT_EQ(0, mkfifo(MovieSidecars::Events(movie).c_str(), 0600));
  TakeSignal signal(movie);
  EXPECT_EQ(EINVAL, signal.Update());
}

TEST(SlotTimecodesTest, RunsOnFromEachBreak) {
  SlotTimecodes timecodes;
  EXPECT_FALSE(timecodes.Start(1, 7, "01:00:00:00"));
  EXPECT_EQ("", timecodes.Text(3));
  ASSERT_TRUE(timecodes.Start(1, 25, "01:00:00:20"));
  EXPECT_EQ("01:00:00:20", timecodes.Text(0));
  EXPECT_EQ("01:00:01:00", timecodes.Text(5));
  timecodes.AddRun(100, "02:00:00:00");
  EXPECT_EQ("01:00:04:19", timecodes.Text(99));
  EXPECT_EQ("02:00:00:00", timecodes.Text(100));
  EXPECT_EQ("02:00:00:10", timecodes.Text(110));
  timecodes.AddRun(50, "junk");
  EXPECT_EQ("01:00:02:20", timecodes.Text(50));

  SlotTimecodes drop;
  ASSERT_TRUE(drop.Start(1001, 30000, "00:00:59;29"));
  EXPECT_EQ("00:01:00;02", drop.Text(1));
  SlotTimecodes midnight;
  ASSERT_TRUE(midnight.Start(1, 25, "23:59:59:24"));
  EXPECT_EQ("00:00:00:00", midnight.Text(1)) << "a day later, the same count";
  SlotTimecodes fifty;
  ASSERT_TRUE(fifty.Start(1, 50, "01:00:00:48"));
  EXPECT_EQ("01:00:01:00", fifty.Text(2));
}

TEST(SlotTimecodesTest, RunsOnFromTheBreaksAmongATakesEvents) {
  SignalEvent black;
  black.kind = SignalEvent::Kind::kBlack;
  black.slot = 10;
  black.after = "05:00:00:00";  // not a break: passed over
  SignalEvent later;
  later.kind = SignalEvent::Kind::kTimecodeBreak;
  later.slot = 80;
  later.after = "03:00:00:00";
  SignalEvent earlier = later;
  earlier.slot = 40;
  earlier.after = "02:00:00:00";
  SlotTimecodes timecodes;
  ASSERT_TRUE(timecodes.Start(1, 25, "01:00:00:00"));
  timecodes.AddBreaks({black, later, earlier});
  EXPECT_EQ("01:00:00:10", timecodes.Text(10));
  EXPECT_EQ("02:00:00:05", timecodes.Text(45));
  EXPECT_EQ("03:00:00:01", timecodes.Text(81));
}

// The runs as frame numbers at their counting, and back as (slot, text); drop frame only
// when the start says so, as the movie's timecode track counts.
TEST(SlotTimecodesTest, FramesAndRunsAtTheStartsCounting) {
  SlotTimecodes timecodes;
  EXPECT_EQ(-1, timecodes.Frame(0));
  EXPECT_EQ(-1, timecodes.FrameOf("00:00:00:00"));
  ASSERT_TRUE(timecodes.Start(1, 25, "00:00:01:00", 10));
  EXPECT_EQ(25, timecodes.Frame(10));
  EXPECT_EQ(30, timecodes.Frame(15));
  timecodes.AddRun(20, "00:01:00:00");
  EXPECT_EQ(1500, timecodes.Frame(20));
  EXPECT_EQ(1500, timecodes.FrameOf("00:01:00:00"));
  EXPECT_EQ(-1, timecodes.FrameOf("00:01:00;00"));
  ASSERT_EQ(2u, timecodes.Runs().size());
  EXPECT_EQ(10, timecodes.Runs().at(0).slot);
  EXPECT_EQ("00:00:01:00", timecodes.Runs().at(0).text);
  EXPECT_EQ(20, timecodes.Runs().at(1).slot);
  EXPECT_EQ("00:01:00:00", timecodes.Runs().at(1).text);

  SlotTimecodes straight;
  ASSERT_TRUE(straight.Start(1001, 30000, "00:00:59:29"));
  EXPECT_EQ("00:01:00:00", straight.Text(1)) << "29.97 without dropping";
  SlotTimecodes drop;
  ASSERT_TRUE(drop.Start(1001, 30000, "00:00:59;29"));
  EXPECT_EQ(1800, drop.FrameOf("00:01:00;02"));
}

}  // namespace
}  // namespace KTN
