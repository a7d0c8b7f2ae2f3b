// The follower of a growing take: a last picture lengthened in place counts its empty slots at once and once.
#include "Movie/MovieFollower.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "Movie/BoxReader.h"
#include "Movie/BoxWriter.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

constexpr uint32_t kPictureTrack = 1;
constexpr uint32_t kSoundTrack = 2;
constexpr uint32_t kPictureScale = 30000;
constexpr uint32_t kFrame = 1001;  // one slot at 29.97
constexpr uint32_t kSoundRate = 48000;

// A track of a take's header: no sample, its handler and timescale.
void PutTrack(BoxWriter& out, uint32_t id, uint32_t handler, uint32_t timescale) {
  size_t trak = out.Begin(BoxType("trak"));
  size_t tkhd = out.Begin(BoxType("tkhd"));
  out.Put32(0);  // version and flags
  out.Put32(0);  // dates
  out.Put32(0);
  out.Put32(id);
  for (int i = 0; i < 4; ++i) out.Put32(0);
  out.End(tkhd);
  size_t mdia = out.Begin(BoxType("mdia"));
  size_t mdhd = out.Begin(BoxType("mdhd"));
  out.Put32(0);
  out.Put32(0);
  out.Put32(0);
  out.Put32(timescale);
  out.Put32(0);  // duration
  out.End(mdhd);
  size_t hdlr = out.Begin(BoxType("hdlr"));
  out.Put32(0);
  out.Put32(0);
  out.Put32(handler);
  for (int i = 0; i < 3; ++i) out.Put32(0);
  out.End(hdlr);
  size_t minf = out.Begin(BoxType("minf"));
  size_t stbl = out.Begin(BoxType("stbl"));
  size_t stts = out.Begin(BoxType("stts"));
  out.Put32(0);
  out.Put32(0);
  out.End(stts);
  size_t stsz = out.Begin(BoxType("stsz"));
  out.Put32(0);
  out.Put32(0);
  out.Put32(0);
  out.End(stsz);
  out.End(stbl);
  out.End(minf);
  out.End(mdia);
  out.End(trak);
}

// The header of a take that fragments follow: a picture track and a sound track.
std::vector<uint8_t> TakeHeader() {
  BoxWriter out;
  size_t ftyp = out.Begin(BoxType("ftyp"));
  out.Put32(BoxType("qt  "));
  out.Put32(0);
  out.End(ftyp);
  size_t moov = out.Begin(BoxType("moov"));
  PutTrack(out, kPictureTrack, BoxType("vide"), kPictureScale);
  PutTrack(out, kSoundTrack, BoxType("soun"), kSoundRate);
  size_t mvex = out.Begin(BoxType("mvex"));
  for (uint32_t id : {kPictureTrack, kSoundTrack}) {
    size_t trex = out.Begin(BoxType("trex"));
    out.Put32(0);
    out.Put32(id);
    out.Put32(1);
    out.Put32(0);
    out.Put32(0);
    out.Put32(0);
    out.End(trex);
  }
  out.End(mvex);
  out.End(moov);
  return out.bytes;
}

// One fragment of one sample, laid out as the recording server writes it: the sample's
// duration in its tfhd, a 64-bit decode time, and `size` bytes of sample. *durationAt
// receives where the duration field lies in the fragment.
std::vector<uint8_t> Fragment(uint32_t track, uint64_t time, uint32_t duration, uint32_t size, size_t* durationAt) {
  BoxWriter out;
  size_t moof = out.Begin(BoxType("moof"));
  size_t mfhd = out.Begin(BoxType("mfhd"));
  out.Put32(0);
  out.Put32(1);
  out.End(mfhd);
  size_t traf = out.Begin(BoxType("traf"));
  size_t tfhd = out.Begin(BoxType("tfhd"));
  out.Put32(0x020038);  // base is the moof; default duration, size and flags
  out.Put32(track);
  if (durationAt) *durationAt = out.bytes.size();
  out.Put32(duration);
  out.Put32(size);
  out.Put32(0);
  out.End(tfhd);
  size_t tfdt = out.Begin(BoxType("tfdt"));
  out.Put32(0x01000000);
  out.Put64(time);
  out.End(tfdt);
  size_t trun = out.Begin(BoxType("trun"));
  out.Put32(0x000001);
  out.Put32(1);
  size_t dataOffset = out.bytes.size();
  out.Put32(0);
  out.End(trun);
  out.End(traf);
  out.End(moof);
  out.Patch32(dataOffset, static_cast<uint32_t>(out.bytes.size() + 8));
  out.Put32(8 + size);
  out.Put32(BoxType("mdat"));
  out.bytes.resize(out.bytes.size() + size, 0x5A);
  return out.bytes;
}

// A take on disk, grown by whole fragments as the recording server grows it.
class GrowingTake {
 public:
  explicit GrowingTake(const std::string& path) : mPath(path) { Append(TakeHeader()); }

  // Appends the picture of slot `slot`, one slot long; later it may be lengthened.
  void Picture(uint64_t slot) {
    size_t at = 0;
    std::vector<uint8_t> bytes = Fragment(kPictureTrack, slot * kFrame, kFrame, 64, &at);
    mLastDuration = mSize + at;
    Append(bytes);
  }
  // Appends sound of `frames` sample frames from sample frame `first`.
  void Sound(uint64_t first, uint32_t frames) { Append(Fragment(kSoundTrack, first, frames, frames * 4, nullptr)); }
  // Rewrites the last picture's duration in place, as the server does for the slots after it.
  void LastPictureLasts(uint32_t duration) {
    uint8_t field[4] = {static_cast<uint8_t>(duration >> 24), static_cast<uint8_t>(duration >> 16),
                        static_cast<uint8_t>(duration >> 8), static_cast<uint8_t>(duration)};
    int fd = open(mPath.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(4, pwrite(fd, field, sizeof field, static_cast<off_t>(mLastDuration)));
    close(fd);
  }

 private:
  void Append(const std::vector<uint8_t>& bytes) {
    std::ofstream file(mPath, std::ios::binary | std::ios::app);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    mSize += bytes.size();
  }

  std::string mPath;
  uint64_t mSize = 0;
  uint64_t mLastDuration = 0;  // where the last picture's duration field lies
};

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
  GrowingTake take(path);
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
  GrowingTake take(path);
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
  GrowingTake take(path);
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

}  // namespace
}  // namespace KTN
