// Reading boxes: headers of every size form, boxes that run past their parent, header boxes of both versions, and the top-level walk of a file.
#include "Movie/BoxReader.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "Movie/BoxWriter.h"
#include "Movie/MovieFile.h"
#include "Movie/TopLevelBoxes.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

TEST(BoxReaderTest, HeadersOfEverySizeForm) {
  BoxWriter out;
  size_t free = out.Begin(BoxTypes::kFree);
  out.Put32(7);
  out.End(free);
  out.Put32(1), out.Put32(BoxTypes::kMdat), out.Put64(16 + 3);  // a 64-bit size
  out.Put8(1), out.Put8(2), out.Put8(3);
  out.Put32(0), out.Put32(BoxTypes::kSkip);  // size 0: to the end
  out.Put32(9);
  std::vector<Box> boxes;
  ASSERT_TRUE(BoxReader::ChildBoxes(out.bytes.data(), 0, out.bytes.size(), boxes));
  ASSERT_EQ(3u, boxes.size());
  EXPECT_EQ(BoxTypes::kFree, boxes[0].type);
  EXPECT_EQ(12u, boxes[0].size);
  EXPECT_EQ(8u, boxes[0].header);
  EXPECT_EQ(BoxTypes::kMdat, boxes[1].type);
  EXPECT_EQ(12u, boxes[1].offset);
  EXPECT_EQ(19u, boxes[1].size);
  EXPECT_EQ(16u, boxes[1].header);
  EXPECT_EQ(BoxTypes::kSkip, boxes[2].type);
  EXPECT_EQ(12u, boxes[2].size) << "to the end of its parent";
}

TEST(BoxReaderTest, ABoxThatRunsPastItsParentIsRefused) {
  struct Case {
    const char* name;
    std::vector<uint8_t> bytes;
  };
  const Case cases[] = {
      {"its size past the end", {0, 0, 0, 9, 'f', 'r', 'e', 'e'}},
      {"its size less than its header", {0, 0, 0, 7, 'f', 'r', 'e', 'e'}},
      {"a 64-bit size cut off", {0, 0, 0, 1, 'm', 'd', 'a', 't', 0, 0, 0, 0}},
      {"a 64-bit size less than its header", {0, 0, 0, 1, 'm', 'd', 'a', 't', 0, 0, 0, 0, 0, 0, 0, 15}},
      {"a 64-bit size past the end", {0, 0, 0, 1, 'm', 'd', 'a', 't', 0xFF, 0, 0, 0, 0, 0, 0, 16}},
      {"bytes after the last box too few for a header", {0, 0, 0, 8, 'f', 'r', 'e', 'e', 0, 0, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<Box> boxes;
    EXPECT_FALSE(BoxReader::ChildBoxes(c.bytes.data(), 0, c.bytes.size(), boxes));
  }
  // Inside a parent: a child as long as the parent's bytes after its header is too long.
  BoxWriter out;
  size_t moov = out.Begin(BoxTypes::kMoov);
  out.Put32(12), out.Put32(BoxTypes::kTrak), out.Put32(0);
  out.End(moov);
  Box parent;
  parent.size = out.bytes.size();
  std::vector<Box> children;
  EXPECT_TRUE(BoxReader::Children(out.bytes, parent, children));
  out.Patch32(8, 13);
  EXPECT_FALSE(BoxReader::Children(out.bytes, parent, children));
}

// mvhd, tkhd and mdhd in version 0 (32-bit dates and duration) and 1 (64-bit).
TEST(BoxReaderTest, HeaderBoxesOfBothVersions) {
  for (uint32_t type : {BoxTypes::kMvhd, BoxTypes::kTkhd, BoxTypes::kMdhd}) {
    for (bool wide : {false, true}) {
      SCOPED_TRACE(testing::Message() << std::hex << type << (wide ? " version 1" : " version 0"));
      BoxWriter out;
      size_t box = out.Begin(type);
      out.Put32(FullBoxWord(wide ? 1 : 0, 0));
      for (int i = 0; i < 2; ++i) wide ? out.Put64(0xDA7E) : out.Put32(0xDA7E);
      out.Put32(48000);  // timescale, or track ID
      if (type == BoxTypes::kTkhd) out.Put32(0xFFFFFFFF);  // reserved
      const uint64_t duration = wide ? (uint64_t{1} << 40) + 3 : 1234567;
      wide ? out.Put64(duration) : out.Put32(static_cast<uint32_t>(duration));
      out.End(box);
      Box header;
      header.size = out.bytes.size();
      header.type = type;
      HeaderFields fields;
      ASSERT_TRUE(BoxReader::ReadHeaderFields(out.bytes, header, fields));
      EXPECT_EQ(wide, fields.wide);
      EXPECT_EQ(48000u, fields.first);
      EXPECT_EQ(duration, fields.duration);
      EXPECT_EQ(out.bytes.size() - (wide ? 8 : 4), fields.durationAt);
      header.size -= 1;  // its duration cut short
      EXPECT_FALSE(BoxReader::ReadHeaderFields(out.bytes, header, fields));
    }
  }
}

// The top-level walk of a file: whole boxes in order, a tail cut off ends it, and what the
// boxes say of the movie's state.
TEST(BoxReaderTest, TheTopLevelWalkStopsAtATailCutOff) {
  Util::ScratchFolder folder;
  const std::string path = folder.File("take.mov");
  BoxWriter out;
  for (uint32_t type : {BoxTypes::kFtyp, BoxTypes::kMoov, BoxTypes::kMoof, BoxTypes::kMdat}) {
    size_t box = out.Begin(type);
    out.Put32(0);
    out.End(box);
  }
  out.Put32(100), out.Put32(BoxTypes::kMoof);  // a fragment still being written
  { std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(out.bytes.data()), out.bytes.size()); }
  MovieFile file(path);
  ASSERT_EQ(0, file.Open(false));
  TopLevelBoxes top;
  ASSERT_EQ(0, top.Read(file));
  ASSERT_EQ(4u, top.boxes.size());
  EXPECT_TRUE(top.cut);
  EXPECT_EQ(BoxTypes::kMdat, top.boxes[3].type);
  EXPECT_TRUE(top.Unfinished()) << "fragments";
  ASSERT_EQ(0, top.Read(file, top.boxes[2].offset));
  EXPECT_EQ(2u, top.boxes.size()) << "from a later box on";
  EXPECT_EQ(BoxTypes::kMoof, top.boxes[0].type);

  // Finished: the fragment headers hidden, one moov. Two moovs: a finish cut off.
  TopLevelBoxes finished;
  Box box;
  for (uint32_t type : {BoxTypes::kFtyp, BoxTypes::kFree, BoxTypes::kMdat, BoxTypes::kMoov}) {
    box.type = type;
    finished.boxes.push_back(box);
  }
  EXPECT_FALSE(finished.Unfinished());
  finished.boxes[1].type = BoxTypes::kMoov;
  EXPECT_TRUE(finished.Unfinished());
}

}  // namespace
}  // namespace KTN
