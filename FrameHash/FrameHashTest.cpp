// Tests of the sidecar's lines, the packets a sample is hashed in, and the sidecar read whole.
#include <gtest/gtest.h>

#include <stdio.h>
#include <string.h>

#include <numeric>
#include <string>
#include <vector>

#include "FrameHash/FrameHashFile.h"
#include "FrameHash/FrameHashLine.h"
#include "FrameHash/PacketHasher.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

std::vector<uint8_t> Bytes(size_t size, uint8_t seed) {
  std::vector<uint8_t> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(seed + i * 7 + (i >> 9));
  return bytes;
}

// The hash of bytes as one picture packet.
FrameHashLine Whole(const uint8_t* data, size_t size) {
  PacketHasher hasher;
  hasher.Begin(0, 0, 1, size, 0);
  hasher.Update(data, size);
  return hasher.Lines().at(0);
}

TEST(FrameHashLineTest, WritesFfmpegsColumns) {
  FrameHashLine line;
  line.stream = 1;
  line.dts = line.pts = 93184;
  line.duration = 896;
  line.size = 3584;
  const char* ffmpegs = "0,          0,          0,      512,  5529600, abebdf61b11370b3a2291dbd5b33b528";
  ASSERT_TRUE(line.Parse(ffmpegs, strlen(ffmpegs)));
  EXPECT_EQ(line.Text(), "0,          0,          0,      512,  5529600, abebdf61b11370b3a2291dbd5b33b528\n");
  EXPECT_EQ(line.size, 5529600u);
  EXPECT_EQ(line.duration, 512);
  EXPECT_EQ(line.hash[0], 0xab);
  EXPECT_EQ(line.hash[15], 0x28);
}

TEST(FrameHashLineTest, RefusesWhatIsNotAPacketsLine) {
  FrameHashLine line;
  for (const char* text : {"#tb 0: 1/12800", "", "0, 1, 2, 3, 4", "0, 1, 2, 3, 4, abc",
                           "0, 1, 2, 3, 4, abebdf61b11370b3a2291dbd5b33b52x", "0, 1, 2, x, 4, abebdf61b11370b3a2291dbd5b33b528",
                           "0, 99999999999999999999, 2, 3, 4, abebdf61b11370b3a2291dbd5b33b528",
                           "0, 1, 2, 3, -4, abebdf61b11370b3a2291dbd5b33b528"}) {
    EXPECT_FALSE(line.Parse(text, strlen(text))) << text;
  }
  const char* sideData = "0,          0,          0,      512,  5529600, abebdf61b11370b3a2291dbd5b33b528, S=1,        8, 0";
  EXPECT_TRUE(line.Parse(sideData, strlen(sideData)));
}

TEST(PacketHasherTest, CutsSoundIntoPacketsOfAtMost1024Frames) {
  const uint32_t frameBytes = 6;  // stereo 24-bit
  std::vector<uint8_t> sound = Bytes(1920 * frameBytes, 3);
  PacketHasher hasher;
  hasher.Begin(1, 3840, 1920, sound.size(), frameBytes);
  // Fed in pieces that end nowhere near a packet's edge.
  for (size_t at = 0; at < sound.size(); at += 1000) hasher.Update(sound.data() + at, std::min<size_t>(1000, sound.size() - at));
  ASSERT_TRUE(hasher.Complete());
  ASSERT_EQ(hasher.Lines().size(), 2u);
  const FrameHashLine& first = hasher.Lines()[0];
  const FrameHashLine& second = hasher.Lines()[1];
  EXPECT_EQ(first.Text().substr(0, 47), "1,       3840,       3840,     1024,     6144, ");
  EXPECT_EQ(second.dts, 3840 + 1024);
  EXPECT_EQ(second.pts, second.dts);
  EXPECT_EQ(second.duration, 896);
  EXPECT_EQ(second.size, 896u * frameBytes);
  EXPECT_EQ(first.hash, Whole(sound.data(), 1024 * frameBytes).hash);
  EXPECT_EQ(second.hash, Whole(sound.data() + 1024 * frameBytes, 896 * frameBytes).hash);
  EXPECT_NE(first.hash, second.hash);
}

TEST(PacketHasherTest, APictureIsOnePacketHoweverItIsFed) {
  std::vector<uint8_t> picture = Bytes(5529600, 9);
  PacketHasher hasher;
  hasher.Begin(0, 1024, 512, picture.size(), 0);
  for (size_t at = 0; at < picture.size(); at += 1 << 20) {
    hasher.Update(picture.data() + at, std::min<size_t>(1 << 20, picture.size() - at));
  }
  ASSERT_TRUE(hasher.Complete());
  ASSERT_EQ(hasher.Lines().size(), 1u);
  EXPECT_EQ(hasher.Lines()[0].Text().substr(0, 47), "0,       1024,       1024,      512,  5529600, ");
  EXPECT_EQ(hasher.Lines()[0].hash, Whole(picture.data(), picture.size()).hash);
  picture[4000000] ^= 1;
  EXPECT_NE(hasher.Lines()[0].hash, Whole(picture.data(), picture.size()).hash);
}

TEST(PacketHasherTest, SoundOfExactly1024FramesIsOnePacket) {
  std::vector<uint8_t> sound = Bytes(1024 * 4, 1);
  PacketHasher hasher;
  hasher.Begin(0, 0, 1024, sound.size(), 4);
  hasher.Update(sound.data(), sound.size());
  ASSERT_EQ(hasher.Lines().size(), 1u);
  EXPECT_EQ(hasher.Lines()[0].duration, 1024);
}

TEST(FrameHashFileTest, ReadsWhatItWroteAndPassesOverATornLastLine) {
  Util::ScratchFolder folder;
  const std::string path = FrameHashSidecarPath(folder.Path() + "/take.mov");
  EXPECT_EQ(path, folder.Path() + "/take.mov.framehash");
  FrameHashFile written;
  written.header = std::string(kFrameHashFormatLines) + "#tb 0: 1/12800\n" + kFrameHashColumnsLine;
  std::vector<uint8_t> bytes = Bytes(4096, 5);
  for (int i = 0; i < 3; ++i) {
    FrameHashLine line = Whole(bytes.data() + i, 1000);
    line.stream = i % 2;
    line.dts = line.pts = i * 512;
    written.lines.push_back(line);
  }
  ASSERT_EQ(written.Write(path), 0);
  FILE* file = fopen(path.c_str(), "a");
  ASSERT_NE(file, nullptr);
  fputs("0,       1536,       15", file);  // a writer killed mid-line
  fclose(file);
  FrameHashFile read;
  ASSERT_EQ(read.Read(path), 0);
  EXPECT_EQ(read.header, written.header);
  EXPECT_EQ(read.lines, written.lines);
  EXPECT_TRUE(read.torn);
  EXPECT_EQ(read.Stream(1).size(), 1u);
  EXPECT_EQ(read.Read(folder.Path() + "/none.framehash"), ENOENT);
  file = fopen(path.c_str(), "a");
  fputs("\nnot a line\n", file);
  fclose(file);
  EXPECT_EQ(read.Read(path), EBADMSG);
}

}  // namespace
}  // namespace KTN
