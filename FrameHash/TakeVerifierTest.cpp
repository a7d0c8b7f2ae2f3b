// A finished take's packets as FFmpeg reads them, its sidecar written and checked, what differs named, and what cannot be checked refused.
#include "FrameHash/TakeVerifier.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "FrameHash/FrameHashFile.h"
#include "FrameHash/PacketHasher.h"
#include "FrameHash/SidecarTrim.h"
#include "FrameHash/TakePackets.h"
#include "Movie/FakeTake.h"
#include "Movie/InPlaceIndex.h"
#include "Movie/MovieLock.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

constexpr uint32_t kSoundFrames = 1602;  // a slot's sound at 29.97: two packets, 1024 and 578
constexpr int kSlots = 3;

// A take of kSlots pictures, each slot's sound after its picture; finished unless asked not to be.
std::string MakeTake(const Util::ScratchFolder& folder, bool finish = true) {
  const std::string path = folder.File("take.mov");
  {
    FakeTake take(path);
    for (uint64_t slot = 0; slot < kSlots; ++slot) {
      take.Picture(slot);
      take.Sound(slot * kSoundFrames, kSoundFrames);
    }
  }
  if (finish) {
    EXPECT_EQ(InPlaceIndex::Write(path), 0);
  }
  return path;
}

// Flips one bit of the file's byte at offset (twice: back as it was).
void Flip(const std::string& path, uint64_t offset) {
  int fd = open(path.c_str(), O_RDWR);
  ASSERT_GE(fd, 0);
  uint8_t byte = 0;
  ASSERT_EQ(pread(fd, &byte, 1, static_cast<off_t>(offset)), 1);
  byte ^= 0x10;
  ASSERT_EQ(pwrite(fd, &byte, 1, static_cast<off_t>(offset)), 1);
  close(fd);
}

std::vector<TakePacket> StreamPackets(const TakePackets& take, int stream) {
  std::vector<TakePacket> chosen;
  for (const TakePacket& packet : take.packets) {
    if (packet.stream == stream) chosen.push_back(packet);
  }
  return chosen;
}

TEST(TakePacketsTest, PicturesWholeAndSoundChunksCutEvery1024Frames) {
  Util::ScratchFolder folder;
  const std::string path = MakeTake(folder);
  TakePackets take;
  ASSERT_EQ(take.Read(path), 0);
  ASSERT_EQ(take.streams.size(), 2u);
  EXPECT_TRUE(take.streams[0].picture);
  EXPECT_EQ(take.streams[0].timescale, FakeTake::kPictureScale);
  EXPECT_EQ(take.streams[0].samples, static_cast<uint64_t>(kSlots));
  EXPECT_EQ(take.streams[1].index, 1);
  EXPECT_EQ(take.streams[1].samples, kSlots * kSoundFrames);
  ASSERT_EQ(take.packets.size(), 3u * kSlots);
  for (size_t i = 1; i < take.packets.size(); ++i) {
    EXPECT_GE(take.packets[i].offset, take.packets[i - 1].offset + take.packets[i - 1].size) << "in file order";
  }
  const std::vector<TakePacket> pictures = StreamPackets(take, 0);
  ASSERT_EQ(pictures.size(), static_cast<size_t>(kSlots));
  EXPECT_EQ(pictures[2].dts, 2 * FakeTake::kFrame);
  EXPECT_EQ(pictures[2].duration, FakeTake::kFrame);
  EXPECT_EQ(pictures[2].size, FakeTake::kPictureBytes);
  const std::vector<TakePacket> sound = StreamPackets(take, 1);
  ASSERT_EQ(sound.size(), 2u * kSlots);
  const int64_t starts[] = {0, 1024, 1602, 2626, 3204, 4228};
  for (size_t i = 0; i < sound.size(); ++i) {
    EXPECT_EQ(sound[i].dts, starts[i]) << i;
    EXPECT_EQ(sound[i].duration, i % 2 ? 578u : 1024u) << i;
    EXPECT_EQ(sound[i].size, sound[i].duration * 4) << i;
  }
  EXPECT_EQ(sound[1].offset, sound[0].offset + 4096) << "the chunk's second packet follows its first";

  Util::ScratchFolder unfinished;
  EXPECT_EQ(take.Read(MakeTake(unfinished, false)), EINVAL);
}

TEST(TakeVerifierTest, WritesASidecarAndNamesWhatDiffersFromIt) {
  Util::ScratchFolder folder;
  const std::string path = MakeTake(folder);
  VerifyResult result;
  std::string failure;
  ASSERT_EQ(TakeVerifier::WriteSidecar(path, result, failure), 0) << failure;
  EXPECT_EQ(result.pictures, static_cast<uint64_t>(kSlots));
  EXPECT_EQ(result.soundFrames, kSlots * kSoundFrames);
  FrameHashFile sidecar;
  ASSERT_EQ(sidecar.Read(FrameHashSidecarPath(path)), 0);
  EXPECT_EQ(sidecar.header, std::string(kFrameHashFormatLines) + "#tb 0: 1/30000\n#media_type 0: video\n" +
                                "#tb 1: 1/48000\n#media_type 1: audio\n" + kFrameHashColumnsLine);
  ASSERT_EQ(sidecar.lines.size(), 3u * kSlots);
  // Each line is the hash of its packet's bytes (FakeTake fills every sample with 0x5A).
  std::vector<uint8_t> fill(4096, 0x5A);
  PacketHasher hasher;
  hasher.Begin(1, 0, 1024, 4096, 4);
  hasher.Update(fill.data(), fill.size());
  EXPECT_EQ(sidecar.Stream(1).at(0), hasher.Lines().at(0));

  EXPECT_EQ(TakeVerifier::WriteSidecar(path, result, failure), EEXIST);
  EXPECT_EQ(failure, "cannot write the sidecar of " + path +
                         ": it has one already, take.mov.framehash (kestrin-capture verify checks the movie against it)");

  ASSERT_EQ(TakeVerifier::Verify(path, result, failure), 0) << failure;
  EXPECT_TRUE(result.Passed());
  EXPECT_EQ(result.Describe(), "verified 3 pictures and 4806 sound samples");
  EXPECT_GT(result.bytesRead, 0u);
  // The movie as it was checked.
  struct stat checked = {};
  ASSERT_EQ(stat(path.c_str(), &checked), 0);
  EXPECT_EQ(result.movieBytes, static_cast<int64_t>(checked.st_size));
  EXPECT_EQ(result.movieModified, static_cast<int64_t>(checked.st_mtime));

  TakePackets take;
  ASSERT_EQ(take.Read(path), 0);
  const TakePacket picture = StreamPackets(take, 0)[1];
  Flip(path, picture.offset + picture.size / 2);
  ASSERT_EQ(TakeVerifier::Verify(path, result, failure), 0) << failure;
  EXPECT_FALSE(result.Passed());
  EXPECT_EQ(result.firstBadPicture, 1);
  EXPECT_EQ(result.Describe(), "take.mov differs from its sidecar: picture 1 is the first bad one; 1 picture and 0 sound packets differ");
  Flip(path, picture.offset + picture.size / 2);

  const TakePacket sound = StreamPackets(take, 1)[3];
  Flip(path, sound.offset + sound.size - 1);
  ASSERT_EQ(TakeVerifier::Verify(path, result, failure), 0) << failure;
  EXPECT_EQ(result.firstBadSoundFrame, 2626);
  EXPECT_EQ(result.Describe(),
            "take.mov differs from its sidecar: sound from sample frame 2626 (0.055 s); 0 pictures and 1 sound packet differ");
  Flip(path, sound.offset + sound.size - 1);
  ASSERT_EQ(TakeVerifier::Verify(path, result, failure), 0) << failure;
  EXPECT_TRUE(result.Passed()) << result.Describe();

  // A line with no packet, and a packet with no line, are bad too.
  FrameHashFile edited = sidecar;
  edited.lines.erase(edited.lines.begin() + 2);  // the first slot's second sound packet
  FrameHashLine stray = sidecar.lines[0];
  stray.stream = 5;
  edited.lines.push_back(stray);
  FrameHashLine extra = sidecar.lines[0];
  extra.dts = extra.pts = 9 * FakeTake::kFrame;
  edited.lines.push_back(extra);
  ASSERT_EQ(edited.Write(FrameHashSidecarPath(path)), 0);
  ASSERT_EQ(TakeVerifier::Verify(path, result, failure), 0) << failure;
  EXPECT_EQ(result.badPictures, 1u);
  EXPECT_EQ(result.firstBadPicture, 3);
  EXPECT_EQ(result.badSoundPackets, 1u);
  EXPECT_EQ(result.firstBadSoundFrame, 1024);
  EXPECT_EQ(result.strayLines, 1u);
  EXPECT_NE(result.Describe().find("1 line names a stream the movie does not have"), std::string::npos) << result.Describe();
}

TEST(TakeVerifierTest, RefusesWhatItCannotCheck) {
  Util::ScratchFolder folder;
  const std::string path = MakeTake(folder);
  VerifyResult result;
  std::string failure;
  EXPECT_EQ(TakeVerifier::Verify(path, result, failure), ENOENT);
  EXPECT_EQ(failure, "cannot verify " + path +
                         ": it has no sidecar take.mov.framehash (make one with kestrin-capture verify --write)");
  ASSERT_EQ(TakeVerifier::WriteSidecar(path, result, failure), 0) << failure;

  {
    // Another open of the movie holds its one-writer lock, as a recording does.
    int writer = open(path.c_str(), O_RDWR);
    ASSERT_GE(writer, 0);
    ASSERT_EQ(MovieLock::TryLock(writer), 0);
    EXPECT_EQ(TakeVerifier::Verify(path, result, failure), EBUSY);
    EXPECT_EQ(failure.rfind("cannot verify " + path + ": it is being written by process " + std::to_string(getpid()), 0), 0u)
        << failure;
    close(writer);
  }
  EXPECT_EQ(TakeVerifier::Verify(path, result, failure), 0) << failure;

  Util::ScratchFolder other;
  const std::string unfinished = MakeTake(other, false);
  EXPECT_EQ(TakeVerifier::Verify(unfinished, result, failure), EINVAL);
  EXPECT_EQ(failure, "cannot verify " + unfinished +
                         ": it is not a finished movie (kestrin-capture repair finishes a take that was cut off)");
  EXPECT_EQ(TakeVerifier::Verify(other.File("none.mov"), result, failure), ENOENT);
  EXPECT_EQ(result.movieBytes, -1) << "no movie, nothing of it known";
  EXPECT_EQ(failure, "cannot verify " + other.File("none.mov") + ": No such file or directory");
}

// A cut-off take's sidecar: a line for the sample whose fragment was left out, the last
// picture's line as short as it was when written, and a torn line. Trimmed, it is the
// sidecar of the movie as repaired, line for line.
TEST(SidecarTrimTest, KeepsTheLinesOfTheMoviesPacketsAndTheirDurations) {
  Util::ScratchFolder folder;
  const std::string path = MakeTake(folder);
  VerifyResult made;
  std::string failure;
  ASSERT_EQ(TakeVerifier::WriteSidecar(path, made, failure), 0) << failure;
  const std::string sidecarPath = FrameHashSidecarPath(path);
  FrameHashFile whole;
  ASSERT_EQ(whole.Read(sidecarPath), 0);

  FrameHashFile cut = whole;
  FrameHashLine& lastPicture = cut.lines[3 * (kSlots - 1)];
  ASSERT_EQ(lastPicture.stream, 0);
  lastPicture.duration = 1;  // as long as it was before the slots after it came
  FrameHashLine beyond = lastPicture;
  beyond.dts = beyond.pts = kSlots * FakeTake::kFrame;  // the picture being written when cut off
  cut.lines.push_back(beyond);
  ASSERT_EQ(cut.Write(sidecarPath), 0);
  {
    FILE* file = fopen(sidecarPath.c_str(), "a");
    ASSERT_NE(file, nullptr);
    fputs("1,       4806,       48", file);
    fclose(file);
  }

  SidecarTrim::Result trimmed;
  ASSERT_EQ(SidecarTrim::Trim(path, trimmed), 0);
  EXPECT_TRUE(trimmed.changed);
  EXPECT_EQ(trimmed.dropped, 1u);
  EXPECT_EQ(trimmed.undescribed, 0u);
  FrameHashFile read;
  ASSERT_EQ(read.Read(sidecarPath), 0);
  EXPECT_FALSE(read.torn);
  EXPECT_EQ(read.lines, whole.lines);
  EXPECT_EQ(read.header, whole.header);

  // Trimmed again, nothing changes; a sidecar that lacks a packet's line says so.
  ASSERT_EQ(SidecarTrim::Trim(path, trimmed), 0);
  EXPECT_FALSE(trimmed.changed);
  read.lines.erase(read.lines.begin() + 1);
  ASSERT_EQ(read.Write(sidecarPath), 0);
  ASSERT_EQ(SidecarTrim::Trim(path, trimmed), 0);
  EXPECT_EQ(trimmed.undescribed, 1u);
}

TEST(SidecarTrimTest, AMovieWithoutASidecarIsLeftAlone) {
  Util::ScratchFolder folder;
  const std::string path = MakeTake(folder);
  SidecarTrim::Result trimmed;
  EXPECT_EQ(SidecarTrim::Trim(path, trimmed), 0);
  EXPECT_FALSE(trimmed.changed);
  EXPECT_FALSE(access(FrameHashSidecarPath(path).c_str(), F_OK) == 0);
}

}  // namespace
}  // namespace KTN
