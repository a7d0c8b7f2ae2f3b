// The in-place index of a take built box by box: every sample indexed where it lies, a finish cut off at each step completed, and the layouts and fragments it refuses untouched.
#include "Movie/InPlaceIndex.h"

#include <gtest/gtest.h>

#include <errno.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Movie/BoxWriter.h"
#include "Movie/FakeTake.h"
#include "Movie/MovieFile.h"
#include "Movie/MovieSummary.h"
#include "Movie/MovieTracks.h"
#include "Movie/TopLevelBoxes.h"
#include "Util/CapturedStderr.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

constexpr uint32_t kSoundFrames = 1602;  // a slot's sound at 29.97

std::vector<uint8_t> FileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<Box> TopLevel(const std::vector<uint8_t>& bytes) {
  std::vector<Box> boxes;
  BoxReader::ChildBoxes(bytes.data(), 0, bytes.size(), boxes);
  return boxes;
}

// A take of `slots` pictures, each slot's sound after its picture.
void RecordTake(FakeTake& take, int slots) {
  for (int slot = 0; slot < slots; ++slot) {
    take.Picture(static_cast<uint64_t>(slot));
    take.Sound(static_cast<uint64_t>(slot) * kSoundFrames, kSoundFrames);
  }
}

// The durations of the finished movie's headers, and its tracks' chunk offsets.
struct Finished {
  uint64_t movie = 0;
  std::vector<uint64_t> tracks, media, edits;
  std::vector<std::vector<uint64_t>> chunks;
  bool wide = false;
};

Finished ReadFinished(const std::vector<uint8_t>& file) {
  Finished finished;
  const std::vector<Box> top = TopLevel(file);
  if (top.empty() || top.back().type != BoxTypes::kMoov) {
    ADD_FAILURE() << "the index comes last";
    return finished;
  }
  const std::vector<uint8_t> moov(file.begin() + static_cast<long>(top.back().offset), file.end());
  Box whole;
  whole.size = moov.size();
  std::vector<Box> children;
  MovieTracks tracks;
  EXPECT_TRUE(BoxReader::Children(moov, whole, children));
  EXPECT_TRUE(tracks.Read(moov, whole));
  HeaderFields fields;
  EXPECT_TRUE(BoxReader::ReadHeaderFields(moov, *BoxReader::Find(children, BoxTypes::kMvhd), fields));
  finished.movie = fields.duration;
  finished.wide = fields.wide;
  for (const TrackDescription& track : tracks.tracks) {
    EXPECT_TRUE(BoxReader::ReadHeaderFields(moov, track.tkhd, fields));
    finished.tracks.push_back(fields.duration);
    EXPECT_TRUE(BoxReader::ReadHeaderFields(moov, track.mdhd, fields));
    finished.media.push_back(fields.duration);
    std::vector<Box> parts, edits;
    EXPECT_TRUE(BoxReader::Children(moov, track.trak, parts));
    const Box* edts = BoxReader::Find(parts, BoxTypes::kEdts);
    if (edts && BoxReader::Children(moov, *edts, edits) && !edits.empty()) {
      BoxReader elst(moov, edits[0]);
      const bool wide = FullBoxVersion(elst.U32()) == 1;
      EXPECT_EQ(1u, elst.U32()) << "one edit";
      finished.edits.push_back(wide ? elst.U64() : elst.U32());
      EXPECT_EQ(0u, wide ? elst.U64() : elst.U32()) << "from the media's start";
      EXPECT_EQ(kFixedOne, elst.U32()) << "at rate 1";
    }
    std::vector<Box> tables;
    EXPECT_TRUE(BoxReader::Children(moov, track.stbl, tables));
    std::vector<uint64_t> chunks;
    for (uint32_t type : {BoxTypes::kStco, BoxTypes::kCo64}) {
      if (const Box* places = BoxReader::Find(tables, type)) {
        BoxReader entries(moov, *places);
        entries.U32();
        for (uint32_t i = 0, count = entries.U32(); i < count && entries.ok; ++i) {
          chunks.push_back(type == BoxTypes::kCo64 ? entries.U64() : entries.U32());
        }
      }
    }
    finished.chunks.push_back(chunks);
  }
  return finished;
}

// Every sample indexed where its fragment put it, the headers' durations set in version 0
// and 1 alike, one edit for each track, the fragment headers and the first moov hidden.
TEST(InPlaceIndexTest, IndexesEverySampleWhereItLies) {
  for (bool wide : {false, true}) {
    SCOPED_TRACE(wide ? "version 1 headers" : "version 0 headers");
    Util::ScratchFolder folder;
    const std::string path = folder.File("take.mov");
    FakeTake take(path, wide);
    RecordTake(take, 10);
    const std::vector<uint8_t> before = FileBytes(path);
    ASSERT_EQ(0, InPlaceIndex::Write(path));
    const std::vector<uint8_t> after = FileBytes(path);
    // The take's bytes stay where they were: only the hidden boxes' types changed.
    std::vector<uint8_t> hidden = before;
    for (const Box& box : TopLevel(before)) {
      if (box.type != BoxTypes::kMoof && box.type != BoxTypes::kMoov) continue;
      for (int i = 0; i < 4; ++i) hidden[box.offset + 4 + static_cast<uint64_t>(i)] = "free"[i];
    }
    ASSERT_GT(after.size(), before.size());
    EXPECT_TRUE(std::equal(hidden.begin(), hidden.end(), after.begin())) << "no sample moved";

    const std::vector<Box> top = TopLevel(after);
    ASSERT_EQ(2u + 2 * 20 + 1, top.size());
    EXPECT_EQ(BoxTypes::kFtyp, top[0].type);
    EXPECT_EQ(BoxTypes::kFree, top[1].type) << "the first moov hidden";
    for (size_t i = 2; i + 1 < top.size(); i += 2) {
      EXPECT_EQ(BoxTypes::kFree, top[i].type) << "fragment header " << i << " hidden";
      EXPECT_EQ(BoxTypes::kMdat, top[i + 1].type);
    }
    const Finished finished = ReadFinished(after);
    EXPECT_EQ(wide, finished.wide);
    // 10 frames at 29.97 and 10 x 1602 sound frames at 48 kHz, each rounded up to the ms.
    EXPECT_EQ(334u, finished.movie);
    EXPECT_EQ((std::vector<uint64_t>{334, 334}), finished.tracks);
    EXPECT_EQ((std::vector<uint64_t>{10 * FakeTake::kFrame, 10 * kSoundFrames}), finished.media);
    EXPECT_EQ((std::vector<uint64_t>{334, 334}), finished.edits);
    ASSERT_EQ(2u, finished.chunks.size());
    for (const std::vector<uint64_t>& chunks : finished.chunks) {
      ASSERT_EQ(10u, chunks.size()) << "a chunk for each fragment";
      for (uint64_t chunk : chunks) {
        bool inData = false;
        for (const Box& box : top) inData = inData || (box.type == BoxTypes::kMdat && chunk == box.offset + box.header);
        EXPECT_TRUE(inData) << "chunk at " << chunk << " is where its fragment's data starts";
      }
    }
    MovieSummary summary;
    ASSERT_EQ(0, summary.Read(path));
    EXPECT_EQ(MovieSummary::Layout::kFinished, summary.layout);
    EXPECT_EQ(10u, summary.pictures);
    EXPECT_EQ(10u, summary.pictureSlots);
    EXPECT_EQ(10u * kSoundFrames, summary.soundFrames);
    EXPECT_EQ(FakeTake::kSoundRate, summary.soundRate);
    EXPECT_EQ(0, InPlaceIndex::Write(path)) << "a finished movie is left as it is";
    EXPECT_TRUE(FileBytes(path) == after);
  }
}

// A last picture lengthened over the slots after it keeps them; pictures missing in the
// middle leave their slots empty.
TEST(InPlaceIndexTest, EmptySlotsStayEmpty) {
  Util::ScratchFolder folder;
  const std::string path = folder.File("take.mov");
  FakeTake take(path);
  for (uint64_t slot : {0, 1, 4, 5, 6}) take.Picture(slot);
  take.LastPictureLasts(24 * FakeTake::kFrame);
  ASSERT_EQ(0, InPlaceIndex::Write(path));
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(path));
  EXPECT_EQ(5u, summary.pictures);
  EXPECT_EQ(30u, summary.pictureSlots);
  EXPECT_EQ(25u, summary.EmptySlots());
  EXPECT_EQ(FakeTake::kFrame, summary.frameDuration);
}

// A finish cut off at each step of hiding (after the index was written, halfway through
// the fragment headers, before the first moov) is completed by finishing again, to the
// same bytes as a finish never cut; the summary knows it as a finish cut off.
TEST(InPlaceIndexTest, AFinishCutOffAtEachStepIsCompleted) {
  Util::ScratchFolder folder;
  const std::string path = folder.File("take.mov");
  FakeTake take(path);
  RecordTake(take, 40);
  ASSERT_EQ(0, InPlaceIndex::Write(path));
  const std::vector<uint8_t> done = FileBytes(path);
  const std::vector<Box> top = TopLevel(done);
  std::vector<uint64_t> hiddenFragments;
  for (size_t i = 2; i + 1 < top.size(); ++i) {
    if (top[i].type == BoxTypes::kFree && top[i + 1].type == BoxTypes::kMdat) hiddenFragments.push_back(top[i].offset);
  }
  ASSERT_EQ(80u, hiddenFragments.size());
  struct Cut {
    const char* name;
    size_t fragmentsShown;  // the first ones: hiding goes from the last back
  };
  for (const Cut& cut : {Cut{"index written, nothing hidden", hiddenFragments.size()},
                         Cut{"half the fragment headers hidden", hiddenFragments.size() / 2},
                         Cut{"every fragment header hidden", 0}}) {
    SCOPED_TRACE(cut.name);
    std::vector<uint8_t> state = done;
    auto show = [&](uint64_t at, uint32_t type) {
      for (int i = 0; i < 4; ++i) state[at + 4 + static_cast<uint64_t>(i)] = static_cast<uint8_t>(type >> (24 - 8 * i));
    };
    for (size_t i = 0; i < cut.fragmentsShown; ++i) show(hiddenFragments[i], BoxTypes::kMoof);
    show(top[1].offset, BoxTypes::kMoov);
    const std::string interrupted = folder.File("interrupted.mov");
    WriteBytes(interrupted, state);
    MovieSummary summary;
    ASSERT_EQ(0, summary.Read(interrupted));
    EXPECT_EQ(MovieSummary::Layout::kFinishCut, summary.layout);
    ASSERT_EQ(0, InPlaceIndex::Write(interrupted));
    EXPECT_TRUE(FileBytes(interrupted) == done) << "completed as if never cut";
  }
}

// A take of six pictures with odd inserted before the fragment of slot afterFragments.
std::vector<uint8_t> TakeWith(const std::vector<uint8_t>& odd, size_t afterFragments) {
  std::vector<uint8_t> bytes = FakeTake::Header(false);
  for (size_t slot = 0; slot < 6; ++slot) {
    if (slot == afterFragments) bytes.insert(bytes.end(), odd.begin(), odd.end());
    std::vector<uint8_t> picture = FakeTake::Fragment(FakeTake::kPictureTrack, slot * FakeTake::kFrame,
                                                      FakeTake::kFrame, FakeTake::kPictureBytes);
    bytes.insert(bytes.end(), picture.begin(), picture.end());
  }
  return bytes;
}

// A fragment whose run of samples of no bytes counts four thousand million, all taking the
// defaults: its samples would lie past its data, and counting them one by one would not end.
std::vector<uint8_t> EndlessRunOfEmptySamples() {
  BoxWriter out;
  size_t moof = out.Begin(BoxTypes::kMoof);
  size_t traf = out.Begin(BoxTypes::kTraf);
  size_t tfhd = out.Begin(BoxTypes::kTfhd);
  out.Put32(FullBoxWord(0, TfhdFlags::kDefaultSampleDuration | TfhdFlags::kDefaultSampleSize));
  out.Put32(FakeTake::kPictureTrack);
  out.Put32(FakeTake::kFrame);
  out.Put32(0);
  out.End(tfhd);
  size_t trun = out.Begin(BoxTypes::kTrun);
  out.Put32(FullBoxWord(0, TrunFlags::kDataOffset));
  out.Put32(0xFFFFFFFF);
  size_t dataOffset = out.bytes.size();
  out.Put32(0);
  out.End(trun);
  out.End(traf);
  out.End(moof);
  out.Patch32(dataOffset, static_cast<uint32_t>(out.bytes.size() + 8));
  out.Put32(8 + 4), out.Put32(BoxTypes::kMdat), out.Put32(0);
  return out.bytes;
}

// A layout the index does not know, or a fragment it cannot describe, is refused with 95
// and one line saying why, and the movie is left exactly as it was (it can be copied).
TEST(InPlaceIndexTest, WhatCannotBeIndexedIsRefusedAndLeftUntouched) {
  std::vector<uint8_t> unknownBox = {0, 0, 0, 24, 'u', 'u', 'i', 'd'};
  unknownBox.resize(24, 'x');
  struct Case {
    const char* name;
    std::vector<uint8_t> bytes;
    const char* why;
  };
  const Case cases[] = {
      {"a box among the fragments", TakeWith(unknownBox, 3), "it holds boxes other than the fragments of a take"},
      {"a fragment of a track the movie does not have",
       TakeWith(FakeTake::Fragment(3, 0, FakeTake::kFrame, FakeTake::kPictureBytes), 2),
       "it names a track the movie does not have"},
      {"a run of four thousand million samples of no bytes", TakeWith(EndlessRunOfEmptySamples(), 4),
       "a sample lies outside its data"},
      // The take's first fragment is taken out below: its pictures start at the second slot.
      {"a track that does not start at the beginning", TakeWith({}, 6), nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Util::ScratchFolder folder;
    const std::string path = folder.File("odd.mov");
    std::vector<uint8_t> bytes = c.bytes;
    if (!c.why) {
      const std::vector<Box> top = TopLevel(bytes);
      bytes.erase(bytes.begin() + static_cast<long>(top[2].offset), bytes.begin() + static_cast<long>(top[4].offset));
    }
    WriteBytes(path, bytes);
    Util::CapturedStderr captured;
    EXPECT_EQ(EOPNOTSUPP, InPlaceIndex::Write(path));
    const std::string line = captured.Text();
    EXPECT_NE(std::string::npos, line.find("cannot be indexed in place: ")) << line;
    EXPECT_NE(std::string::npos, line.find(c.why ? c.why : "a track does not start at the beginning")) << line;
    EXPECT_TRUE(FileBytes(path) == bytes) << "left as it was";
  }
}

// Fragments without a complete sample: nothing to keep (61), and the file stays as it is.
TEST(InPlaceIndexTest, ATakeWithoutACompleteSampleIsLeftAlone) {
  Util::ScratchFolder folder;
  const std::string path = folder.File("empty.mov");
  FakeTake take(path);
  std::vector<uint8_t> cut = FakeTake::Fragment(FakeTake::kPictureTrack, 0, FakeTake::kFrame, FakeTake::kPictureBytes);
  cut.resize(cut.size() - 1);  // its mdat one byte short
  take.Append(cut);
  const std::vector<uint8_t> before = FileBytes(path);
  Util::CapturedStderr captured;
  EXPECT_EQ(ENODATA, InPlaceIndex::Write(path));
  EXPECT_NE(std::string::npos, captured.Text().find("holds no complete sample")) << captured.Text();
  EXPECT_TRUE(FileBytes(path) == before);
}

}  // namespace
}  // namespace KTN
