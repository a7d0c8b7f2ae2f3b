// A take's timecode runs as pictures are handed over: breaks found at the tape's counting (drop frame, midnight, dropped slots) and told to the events sidecar.
#include "Record/TakeTimecodeRuns.h"

#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "Movie/MovieSidecars.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

std::string FileText(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// At 59.94 drop frame the labels skip ;00 to ;03 at each minute but every tenth: that is no
// break, nor is a slot dropped between two pictures; a jump is, once.
TEST(TakeTimecodeRunsTest, DropFrameAt5994BreaksOnlyWhereTheTapeJumps) {
  Util::ScratchFolder folder;
  const std::string movie = folder.File("take.mov");
  TakeTimecodeRuns runs;
  runs.Begin(movie, 1001, 60000);
  EXPECT_FALSE(runs.Picture(0, "00:00:59;58"));
  EXPECT_FALSE(runs.Picture(1, "00:00:59;59"));
  EXPECT_FALSE(runs.Picture(2, "00:01:00;04")) << "the labels the count drops";
  EXPECT_FALSE(runs.Picture(4, "00:01:00;06")) << "slot 3 was dropped between them";
  EXPECT_FALSE(runs.Picture(5, "")) << "a picture without timecode breaks nothing";
  EXPECT_TRUE(runs.Picture(6, "00:10:00;00"));
  EXPECT_FALSE(runs.Picture(7, "00:10:00;01"));
  ASSERT_EQ(2u, runs.Runs().size());
  EXPECT_EQ(6, runs.Breaks().at(0).slot);
  EXPECT_EQ("00:10:00;00", runs.Breaks().at(0).text);
  EXPECT_EQ("{\"kind\":\"timecode-break\",\"slot\":6,\"frames\":1,\"before\":\"00:01:00;07\",\"after\":\"00:10:00;00\"}\n",
            FileText(MovieSidecars::Events(movie)))
      << "before: what the run before gives slot 5";

  // A new take forgets the last one's runs.
  const std::string next = folder.File("next.mov");
  runs.Begin(next, 1, 25);
  EXPECT_FALSE(runs.Picture(0, "23:59:59:23"));
  EXPECT_FALSE(runs.Picture(1, "23:59:59:24"));
  EXPECT_FALSE(runs.Picture(2, "00:00:00:00")) << "midnight is no break";
  EXPECT_TRUE(runs.Picture(4, "00:00:00:01")) << "a timecode that stands still over a dropped slot is";
  EXPECT_EQ(2u, runs.Runs().size());
  EXPECT_EQ("{\"kind\":\"timecode-break\",\"slot\":4,\"frames\":1,\"before\":\"00:00:00:01\",\"after\":\"00:00:00:01\"}\n",
            FileText(MovieSidecars::Events(next)));
}

// The first picture with a timecode need not be the take's first slot (the slots before it
// were given up, or their pictures carried none): its run starts at its own slot.
TEST(TakeTimecodeRunsTest, FirstRunStartsAtTheFirstTimecodedPicture) {
  Util::ScratchFolder folder;
  const std::string movie = folder.File("take.mov");
  TakeTimecodeRuns runs;
  runs.Begin(movie, 1, 25);
  EXPECT_FALSE(runs.Picture(1, ""));
  EXPECT_FALSE(runs.Picture(2, "01:00:00:00"));
  EXPECT_FALSE(runs.Picture(3, "01:00:00:01"));
  EXPECT_TRUE(runs.Picture(5, "02:00:00:00"));
  ASSERT_EQ(2u, runs.Runs().size());
  EXPECT_EQ(2, runs.Runs().at(0).slot);
  EXPECT_EQ("01:00:00:00", runs.Runs().at(0).text);
  EXPECT_EQ("{\"kind\":\"timecode-break\",\"slot\":5,\"frames\":1,\"before\":\"01:00:00:02\",\"after\":\"02:00:00:00\"}\n",
            FileText(MovieSidecars::Events(movie)))
      << "before: what the first run gives slot 4";
}

// A rate no timecode counts keeps no runs: its pictures' timecodes need not be read.
TEST(TakeTimecodeRunsTest, NoRunsAtARateNoTimecodeCounts) {
  Util::ScratchFolder folder;
  TakeTimecodeRuns runs;
  runs.Begin(folder.File("odd.mov"), 1, 7);
  EXPECT_FALSE(runs.Counting());
  EXPECT_FALSE(runs.Picture(0, "01:00:00:00"));
  EXPECT_TRUE(runs.Runs().empty());
  runs.Begin(folder.File("pal.mov"), 1, 25);
  EXPECT_TRUE(runs.Counting());
}

}  // namespace
}  // namespace KTN
