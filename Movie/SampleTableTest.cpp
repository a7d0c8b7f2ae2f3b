// The sample table of finished takes: every sample placed and timed where the in-place index put it, and hand-made tables that lie refused.
#include "Movie/SampleTable.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Movie/BoxWriter.h"
#include "Movie/FakeTake.h"
#include "Movie/InPlaceIndex.h"
#include "Movie/MovieTracks.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

constexpr uint32_t kSoundFrames = 1602;

std::vector<uint8_t> FileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// The finished movie's index (its last top-level box) and its tracks.
std::vector<uint8_t> LastMoov(const std::vector<uint8_t>& file, MovieTracks& tracks) {
  std::vector<Box> top;
  BoxReader::ChildBoxes(file.data(), 0, file.size(), top);
  EXPECT_FALSE(top.empty());
  EXPECT_EQ(top.back().type, BoxTypes::kMoov);
  std::vector<uint8_t> moov(file.begin() + static_cast<long>(top.back().offset), file.end());
  Box whole;
  whole.size = moov.size();
  EXPECT_TRUE(tracks.Read(moov, whole));
  return moov;
}

// Whether the bytes at [offset, offset + size) of file are a sample FakeTake wrote: its
// fill byte throughout, inside an mdat.
bool IsFakeSample(const std::vector<uint8_t>& file, uint64_t offset, uint32_t size) {
  if (offset + size > file.size() || size == 0) return false;
  for (uint64_t at = offset; at < offset + size; ++at) {
    if (file[at] != 0x5A) return false;
  }
  return file[offset - 1] != 0x5A;  // the byte before is the mdat's header, or the sample before's neighbour
}

TEST(SampleTableTest, PlacesAndTimesEverySampleOfAFinishedTake) {
  Util::ScratchFolder folder;
  const std::string path = folder.File("take.mov");
  {
    FakeTake take(path);
    for (uint64_t slot = 0; slot < 6; ++slot) {
      if (slot == 3) continue;  // an empty slot: the picture before lasts two
      take.Picture(slot);
      take.Sound(slot * kSoundFrames, kSoundFrames);
    }
  }
  ASSERT_EQ(InPlaceIndex::Write(path), 0);
  const std::vector<uint8_t> file = FileBytes(path);
  MovieTracks tracks;
  const std::vector<uint8_t> moov = LastMoov(file, tracks);
  ASSERT_EQ(tracks.tracks.size(), 2u);

  SampleTable pictures;
  ASSERT_TRUE(pictures.Read(moov, tracks.tracks[0]));
  EXPECT_EQ(pictures.samples, 5u);
  EXPECT_EQ(pictures.chunks.size(), 5u);
  std::vector<TableSample> seen;
  pictures.Walk([&](const TableSample& sample) {
    seen.push_back(sample);
    return true;
  });
  ASSERT_EQ(seen.size(), 5u);
  const uint64_t times[] = {0, 1001, 2002, 4004, 5005};
  const uint32_t durations[] = {1001, 1001, 2002, 1001, 1001};
  for (size_t i = 0; i < seen.size(); ++i) {
    EXPECT_EQ(seen[i].index, i);
    EXPECT_EQ(seen[i].chunk, i);
    EXPECT_EQ(seen[i].size, FakeTake::kPictureBytes);
    EXPECT_EQ(seen[i].decodeTime, times[i]) << i;
    EXPECT_EQ(seen[i].duration, durations[i]) << i;
    EXPECT_EQ(seen[i].compositionOffset, 0);
    EXPECT_TRUE(IsFakeSample(file, seen[i].offset, seen[i].size)) << i;
  }
  EXPECT_EQ(pictures.Duration(), 6u * FakeTake::kFrame);

  // Sound: one table sample a frame, one chunk a fragment.
  SampleTable sound;
  ASSERT_TRUE(sound.Read(moov, tracks.tracks[1]));
  EXPECT_EQ(sound.samples, 5u * kSoundFrames);
  EXPECT_EQ(sound.CommonSize(), 4u);
  ASSERT_EQ(sound.chunks.size(), 5u);
  for (size_t c = 0; c < sound.chunks.size(); ++c) {
    EXPECT_EQ(sound.chunks[c].samples, kSoundFrames);
    EXPECT_EQ(sound.chunks[c].firstSample, c * kSoundFrames);
    EXPECT_EQ(sound.chunks[c].description, 1u);
    EXPECT_TRUE(IsFakeSample(file, sound.chunks[c].offset, kSoundFrames * 4)) << c;
    EXPECT_GT(sound.chunks[c].offset, seen[c].offset);  // each slot's sound after its picture
  }
  uint64_t last = 0, frames = 0;
  sound.Walk([&](const TableSample& sample) {
    last = sample.decodeTime;
    ++frames;
    return sample.index < 2000;  // stops when asked
  });
  EXPECT_EQ(frames, 2001u);
  EXPECT_EQ(last, 2000u);
}

// A track whose stbl holds the given boxes.
struct HandMade {
  std::vector<uint8_t> moov;
  TrackDescription track;
};

HandMade Table(const std::vector<std::vector<uint8_t>>& boxes) {
  BoxWriter out;
  size_t stbl = out.Begin(BoxTypes::kStbl);
  for (const std::vector<uint8_t>& box : boxes) out.Put(box.data(), box.size());
  EXPECT_TRUE(out.End(stbl));
  HandMade made;
  made.moov = out.bytes;
  made.track.stbl.size = out.bytes.size();
  return made;
}

std::vector<uint8_t> Full(uint32_t type, const std::vector<uint32_t>& words) {
  BoxWriter out;
  size_t start = out.Begin(type);
  out.Put32(0);
  for (uint32_t word : words) out.Put32(word);
  out.End(start);
  return out.bytes;
}

TEST(SampleTableTest, RefusesTablesThatLie) {
  const std::vector<uint8_t> stts = Full(BoxTypes::kStts, {1, 3, 512});
  const std::vector<uint8_t> stsc = Full(BoxTypes::kStsc, {1, 1, 3, 1});
  const std::vector<uint8_t> stsz = Full(BoxTypes::kStsz, {0, 3, 10, 20, 30});
  const std::vector<uint8_t> stco = Full(BoxTypes::kStco, {1, 1000});
  SampleTable table;
  HandMade good = Table({stts, stsc, stsz, stco});
  ASSERT_TRUE(table.Read(good.moov, good.track));
  EXPECT_EQ(table.samples, 3u);
  std::vector<uint64_t> offsets;
  table.Walk([&](const TableSample& sample) {
    offsets.push_back(sample.offset);
    return true;
  });
  EXPECT_EQ(offsets, (std::vector<uint64_t>{1000, 1010, 1030}));

  const std::vector<std::vector<std::vector<uint8_t>>> lies = {
      {stts, stsc, stco},                                                   // no sizes
      {stts, stsc, Full(BoxTypes::kStsz, {0, 1000000000, 10})},             // more sizes than bytes
      {stts, stsc, Full(BoxTypes::kStsz, {0, 0xFFFFFFFF})},                 // no room for any
      {Full(BoxTypes::kStts, {1, 4, 512}), stsc, stsz, stco},               // times for a sample too many
      {Full(BoxTypes::kStts, {0x20000000, 3, 512}), stsc, stsz, stco},      // more runs than bytes
      {stts, Full(BoxTypes::kStsc, {1, 1, 2, 1}), stsz, stco},              // chunks hold too few
      {stts, Full(BoxTypes::kStsc, {1, 2, 1, 1}), stsz, stco},              // a run from chunk 2 first
      {stts, Full(BoxTypes::kStsc, {2, 1, 2, 1, 1, 1, 1}), stsz, Full(BoxTypes::kStco, {2, 1, 2})},  // runs backwards
      {stts, stsc, stsz, Full(BoxTypes::kStco, {0x40000000, 1000})},        // more places than bytes
      {stts, stsc, stsz, stco, Full(BoxType("ctts"), {1, 2, 0})},           // offsets for too few
  };
  for (size_t i = 0; i < lies.size(); ++i) {
    HandMade made = Table(lies[i]);
    EXPECT_FALSE(table.Read(made.moov, made.track)) << i;
  }
  // A stbl said to reach past the moov is not read at all.
  good.track.stbl.size += 1;
  EXPECT_FALSE(table.Read(good.moov, good.track));
}

}  // namespace
}  // namespace KTN
