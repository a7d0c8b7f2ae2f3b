// Tests of reading the plug-in's in-point reports: each report, its timecodes, drop frame.
#include <gtest/gtest.h>

#include "Host/InPointStatus.h"

namespace KTN {
namespace {

using State = InPointStatus::State;

TEST(InPointStatusTest, TheOrdinaryReportsAreNoInPointReports) {
  for (const char* text : {"", "Recording to disk", "Recording to disk (WARNING: Dropped frames detected)"}) {
    InPointStatus status(text);
    EXPECT_EQ(State::kNone, status.Which()) << text;
    EXPECT_EQ("", status.InPoint()) << text;
  }
}

TEST(InPointStatusTest, WaitingBeforeAndAfterTheFirstFrame) {
  InPointStatus unseen("Waiting for 01:00:00:05");
  EXPECT_EQ(State::kWaiting, unseen.Which());
  EXPECT_EQ("01:00:00:05", unseen.InPoint());
  EXPECT_EQ("", unseen.Signal());
  InPointStatus seen("Waiting for 01:00:00;00 (signal at 00:59:58;12)");
  EXPECT_EQ(State::kWaiting, seen.Which());
  EXPECT_EQ("01:00:00;00", seen.InPoint());
  EXPECT_EQ("00:59:58;12", seen.Signal());
}

TEST(InPointStatusTest, PassedDeckAndNoTimecode) {
  InPointStatus passed("Waiting for 01:00:00:05: the signal has passed it (signal at 01:00:00:09)");
  EXPECT_EQ(State::kPassed, passed.Which());
  EXPECT_EQ("01:00:00:05", passed.InPoint());
  EXPECT_EQ("01:00:00:09", passed.Signal());
  InPointStatus deck("Waiting for 01:00:00:05: the signal carries no timecode (the deck decides)");
  EXPECT_EQ(State::kDeckDecides, deck.Which());
  EXPECT_EQ("01:00:00:05", deck.InPoint());
  EXPECT_EQ("", deck.Signal());
  InPointStatus started("The signal carries no timecode: recorded from its first frame, not from 01:00:00;05");
  EXPECT_EQ(State::kStartedWithoutTimecode, started.Which());
  EXPECT_EQ("01:00:00;05", started.InPoint());
}

TEST(InPointStatusTest, ATakeWaitsUntilItHasBegun) {
  for (const char* text : {"Waiting for 01:00:00:05", "Waiting for 01:00:00;00 (signal at 00:59:58;12)",
                           "Waiting for 01:00:00:05: the signal has passed it (signal at 01:00:00:09)",
                           "Waiting for 01:00:00:05: the signal carries no timecode (the deck decides)"}) {
    EXPECT_TRUE(InPointStatus(text).Waiting()) << text;
  }
  for (const char* text : {"", "Recording to disk", "Recording to disk (WARNING: Dropped frames detected)",
                           "The signal carries no timecode: recorded from its first frame, not from 01:00:00;05"}) {
    EXPECT_FALSE(InPointStatus(text).Waiting()) << text;
  }
}

}  // namespace
}  // namespace KTN
