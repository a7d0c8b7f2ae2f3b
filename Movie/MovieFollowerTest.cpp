// The follower and the summary of a take: what it holds as it grows, cut off or finished, a last picture lengthened in place, and fragments it cannot describe.
#include "Movie/MovieFollower.h"

#include <gtest/gtest.h>

#include <errno.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Movie/FakeTake.h"
#include "Movie/InPlaceIndex.h"
#include "Movie/MovieSummary.h"
#include "Util/CapturedStderr.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

constexpr uint32_t kFrame = FakeTake::kFrame;

// Bytes this process has read so far, as the kernel counts them.
uint64_t BytesRead() {
  std::ifstream io("/proc/self/io");
  std::string key;
  uint64_t value = 0;
  while (io >> key >> value) {
    if (key == "rchar:") return value;
  }
  return 0;
}

TEST(MovieFollowerTest, ALengthenedLastPictureCountsItsEmptySlotsAtOnceAndOnce) {
  Util::ScratchFolder folder;
  std::string path = folder.File("take.mov");
  FakeTake take(path);
  for (uint64_t slot = 0; slot < 5; ++slot) {
    take.Picture(slot);
    take.Sound(slot * 1602, 1602);
  }
  MovieFollower follower(path);
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(5u, follower.Summary().pictures);
  EXPECT_EQ(5u, follower.Summary().pictureSlots);

  // 25 slots given up after the last picture: it holds the screen through them, and sound
  // written after it does not hide it.
  take.LastPictureLasts(26 * kFrame);
  take.Sound(5 * 1602, 1602);
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(5u, follower.Summary().pictures) << "the lengthened picture counts once";
  EXPECT_EQ(30u, follower.Summary().pictureSlots);
  EXPECT_EQ(25u, follower.Summary().EmptySlots());
  EXPECT_EQ(kFrame, follower.Summary().frameDuration) << "a lengthened picture is no frame measure";
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(5u, follower.Summary().pictures) << "nor on the next update";
  EXPECT_EQ(30u, follower.Summary().pictureSlots);

  // More given up: the same picture again.
  take.LastPictureLasts(31 * kFrame);
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(35u, follower.Summary().pictureSlots);
  EXPECT_EQ(30u, follower.Summary().EmptySlots());

  // The next picture comes where the empty slots end; then it is the one read again.
  take.Picture(35);
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(6u, follower.Summary().pictures);
  EXPECT_EQ(36u, follower.Summary().pictureSlots);
  EXPECT_EQ(30u, follower.Summary().EmptySlots());
  take.LastPictureLasts(4 * kFrame);
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(6u, follower.Summary().pictures);
  EXPECT_EQ(39u, follower.Summary().pictureSlots);
  EXPECT_EQ(33u, follower.Summary().EmptySlots());
}

// A duration read while it was being rewritten (a mix of the old and the new bytes) is
// not kept: the next update reads the one written.
TEST(MovieFollowerTest, ADurationReadHalfRewrittenIsSetRightByTheNextUpdate) {
  Util::ScratchFolder folder;
  std::string path = folder.File("take.mov");
  FakeTake take(path);
  for (uint64_t slot = 0; slot < 3; ++slot) take.Picture(slot);
  MovieFollower follower(path);
  ASSERT_EQ(0, follower.Update());
  take.LastPictureLasts(0x00006500 | (kFrame & 0xFF));  // high bytes new, low byte old
  ASSERT_EQ(0, follower.Update());
  EXPECT_GT(follower.Summary().pictureSlots, 12u);
  take.LastPictureLasts(10 * kFrame);
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(12u, follower.Summary().pictureSlots);
  EXPECT_EQ(3u, follower.Summary().pictures);
}

// Following a long take costs what was added and the last picture's header, never the
// take again.
TEST(MovieFollowerTest, AnUpdateReadsTheNewFragmentsAndOneHeaderOnly) {
  Util::ScratchFolder folder;
  std::string path = folder.File("take.mov");
  FakeTake take(path);
  for (uint64_t slot = 0; slot < 2000; ++slot) {
    take.Picture(slot);
    take.Sound(slot * 1602, 1602);
  }
  MovieFollower follower(path);
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(2000u, follower.Summary().pictures);
  take.LastPictureLasts(3 * kFrame);
  uint64_t before = BytesRead();
  ASSERT_EQ(0, follower.Update());
  uint64_t read = BytesRead() - before;
  EXPECT_EQ(2002u, follower.Summary().pictureSlots);
  EXPECT_GT(read, 0u);
  EXPECT_LT(read, 1024u) << "one fragment header, not the take's " << 4000 << " fragments";
}

// A take followed while it is written: each update adds the fragments completed since
// (not one that is still being written), and the finished movie is read anew.
TEST(MovieFollowerTest, AFollowerCountsATakeAsItGrows) {
  Util::ScratchFolder folder;
  std::string path = folder.File("growing.mov");
  FakeTake take(path);
  MovieFollower follower(path);
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(MovieSummary::Layout::kFragments, follower.Summary().layout);
  EXPECT_EQ(0u, follower.Summary().pictures);
  for (uint64_t slot = 0; slot < 5; ++slot) take.Picture(slot);
  std::vector<uint8_t> half = FakeTake::Fragment(FakeTake::kPictureTrack, 7 * kFrame, kFrame, FakeTake::kPictureBytes);
  take.Append(std::vector<uint8_t>(half.begin(), half.begin() + static_cast<long>(half.size() / 2)));
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(5u, follower.Summary().pictures) << "the fragment being written is not counted yet";
  take.Append(std::vector<uint8_t>(half.begin() + static_cast<long>(half.size() / 2), half.end()));
  for (uint64_t slot = 8; slot < 10; ++slot) take.Picture(slot);
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(8u, follower.Summary().pictures);
  EXPECT_EQ(10u, follower.Summary().pictureSlots) << "two slots without their pictures";
  EXPECT_EQ(kFrame, follower.Summary().frameDuration);
  EXPECT_EQ(FakeTake::kPictureScale, follower.Summary().videoTimescale);
  ASSERT_EQ(0, InPlaceIndex::Write(path));
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(MovieSummary::Layout::kFinished, follower.Summary().layout);
  EXPECT_EQ(8u, follower.Summary().pictures);
  EXPECT_EQ(10u, follower.Summary().pictureSlots);
}

// The same pictures, slots and sound in the finished movie and in its fragments cut off
// before the finish; nothing of a file that is no movie; one line for one that is not there.
TEST(MovieFollowerTest, TheSummaryOfATakeFinishedOrCutOff) {
  Util::ScratchFolder folder;
  std::string path = folder.File("take.mov");
  std::string cut = folder.File("cut.mov");
  FakeTake take(path);
  uint64_t pictures = 0;
  for (uint64_t slot = 0; slot < 12; ++slot) {
    if (slot % 5 != 1) {  // every fifth slot without its picture, the last one among them
      take.Picture(slot);
      ++pictures;
    }
    take.Sound(slot * 1602, 1602);
  }
  take.LastPictureLasts(2 * kFrame);  // the last slot, given up, held by the picture before it
  std::filesystem::copy_file(path, cut);
  ASSERT_EQ(0, InPlaceIndex::Write(path));
  for (const std::string& movie : {path, cut}) {
    SCOPED_TRACE(movie);
    MovieSummary summary;
    ASSERT_EQ(0, summary.Read(movie));
    EXPECT_EQ(movie == path ? MovieSummary::Layout::kFinished : MovieSummary::Layout::kFragments, summary.layout);
    EXPECT_EQ(pictures, summary.pictures);
    EXPECT_EQ(12u, summary.pictureSlots);
    EXPECT_EQ(12u * 1602, summary.soundFrames);
    EXPECT_EQ(48000u, summary.soundRate);
    EXPECT_FALSE(summary.hasTimecode);
    EXPECT_FALSE(summary.hasFieldOrder);
  }
  std::string text = folder.File("notes.mov");
  { std::ofstream(text) << "not a movie at all\n"; }
  MovieSummary none;
  ASSERT_EQ(0, none.Read(text));
  EXPECT_EQ(MovieSummary::Layout::kNotAMovie, none.layout);
  Util::CapturedStderr captured;
  EXPECT_EQ(ENOENT, none.Read(folder.File("absent.mov")));
  EXPECT_NE(std::string::npos, captured.Text().find("open(")) << "one line names the failed call";
}

// A fragment the box layer cannot describe (a track the movie does not have, a run of
// samples past its data) counts no sample, the fragments around it count as usual, and a
// count read from the file bounds no work.
TEST(MovieFollowerTest, AFragmentThatCannotBeDescribedCountsNothing) {
  Util::ScratchFolder folder;
  std::string path = folder.File("take.mov");
  FakeTake take(path);
  take.Picture(0);
  take.Append(FakeTake::Fragment(7, 0, kFrame, FakeTake::kPictureBytes));  // no track 7
  take.Picture(1);
  // Four thousand million samples of no bytes, all taking the defaults, in 8 bytes of data.
  std::vector<uint8_t> endless = FakeTake::Fragment(FakeTake::kPictureTrack, 2 * kFrame, kFrame, 8);
  const std::string trun = "trun";
  const size_t count = std::search(endless.begin(), endless.end(), trun.begin(), trun.end()) - endless.begin() + 8;
  for (size_t i : {count, count + 1, count + 2, count + 3}) endless[i] = 0xFF;  // after the run's type and flags
  take.Append(endless);
  take.Picture(3);
  MovieFollower follower(path);
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(3u, follower.Summary().pictures);
  EXPECT_EQ(4u, follower.Summary().pictureSlots);
  take.Picture(4);
  ASSERT_EQ(0, follower.Update());
  EXPECT_EQ(4u, follower.Summary().pictures) << "and goes on after them";
}

}  // namespace
}  // namespace KTN
