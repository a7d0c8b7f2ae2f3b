// A movie's tracks read from its moov: what each is, where its boxes lie, its fragments' defaults, and what makes a track incomplete.
#include "Movie/MovieTracks.h"

#include <gtest/gtest.h>

#include <vector>

#include "Movie/BoxWriter.h"
#include "Movie/FakeTake.h"

namespace KTN {
namespace {

// The moov of a take's header, as its own bytes.
std::vector<uint8_t> TakeMoov(bool wide) {
  std::vector<uint8_t> header = FakeTake::Header(wide);
  std::vector<Box> top;
  EXPECT_TRUE(BoxReader::ChildBoxes(header.data(), 0, header.size(), top));
  const Box* moov = BoxReader::Find(top, BoxTypes::kMoov);
  if (!moov) return {};
  return std::vector<uint8_t>(header.begin() + static_cast<long>(moov->offset),
                              header.begin() + static_cast<long>(moov->offset + moov->size));
}

Box Whole(const std::vector<uint8_t>& moov) {
  Box box;
  box.size = moov.size();
  box.type = BoxTypes::kMoov;
  return box;
}

TEST(MovieTracksTest, ATakesTracksWithTheirBoxesAndDefaults) {
  for (bool wide : {false, true}) {
    SCOPED_TRACE(wide ? "version 1 headers" : "version 0 headers");
    const std::vector<uint8_t> moov = TakeMoov(wide);
    MovieTracks tracks;
    ASSERT_TRUE(tracks.Read(moov, Whole(moov)));
    EXPECT_TRUE(tracks.AllComplete());
    ASSERT_EQ(2u, tracks.tracks.size());
    const TrackDescription& picture = tracks.tracks[0];
    EXPECT_EQ(FakeTake::kPictureTrack, picture.id);
    EXPECT_EQ(Handlers::kPicture, picture.handler);
    EXPECT_EQ(FakeTake::kPictureScale, picture.timescale);
    EXPECT_EQ(Handlers::kSound, tracks.tracks[1].handler);
    EXPECT_EQ(FakeTake::kSoundRate, tracks.tracks[1].timescale);
    for (const TrackDescription& track : tracks.tracks) {
      EXPECT_TRUE(track.complete);
      EXPECT_EQ(BoxTypes::kTrak, track.trak.type);
      EXPECT_EQ(BoxTypes::kStsd, track.stsd.type);
      EXPECT_GT(track.stsd.offset, track.stbl.offset);
      EXPECT_GT(track.stbl.offset, track.minf.offset);
      EXPECT_EQ(1u, track.defaultDescription);
      EXPECT_EQ(&track, tracks.ForTrak(track.trak));
    }
    EXPECT_EQ(1, tracks.Find(FakeTake::kSoundTrack));
    EXPECT_EQ(-1, tracks.Find(3));
    EXPECT_EQ(-1, tracks.Find(0));
  }
}

// Fields of a moov changed in place: the four bytes at `at` set to value.
std::vector<uint8_t> Changed(std::vector<uint8_t> bytes, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[at + static_cast<size_t>(i)] = static_cast<uint8_t>(value >> (24 - 8 * i));
  return bytes;
}

size_t Find(const std::vector<uint8_t>& bytes, uint32_t type, int which = 0) {
  for (size_t at = 4; at + 4 <= bytes.size(); ++at) {
    uint32_t found = static_cast<uint32_t>(bytes[at]) << 24 | static_cast<uint32_t>(bytes[at + 1]) << 16 |
                     static_cast<uint32_t>(bytes[at + 2]) << 8 | bytes[at + 3];
    if (found == type && which-- == 0) return at - 4;  // the box's start
  }
  ADD_FAILURE() << "no such box";
  return 0;
}

TEST(MovieTracksTest, WhatMakesATrackIncomplete) {
  const std::vector<uint8_t> moov = TakeMoov(false);
  struct Case {
    const char* name;
    std::vector<uint8_t> bytes;
    bool pictureComplete;
    bool defaultsRead;
  };
  const size_t tkhd = Find(moov, BoxTypes::kTkhd), mdhd = Find(moov, BoxTypes::kMdhd);
  const size_t hdlr = Find(moov, BoxTypes::kHdlr), trex = Find(moov, BoxTypes::kTrex, 1);
  const Case cases[] = {
      {"no track ID", Changed(moov, tkhd + 20, 0), false, true},
      {"no media timescale", Changed(moov, mdhd + 20, 0), false, true},
      {"no media header", Changed(moov, mdhd + 4, BoxType("mdhx")), false, true},
      {"no handler", Changed(moov, hdlr + 4, BoxType("hdlx")), false, true},
      {"a second track of the same ID", Changed(moov, Find(moov, BoxTypes::kTkhd, 1) + 20, FakeTake::kPictureTrack),
       true, true},
      // Its last three fields left to a box of their own (of size 0: to the end of the mvex).
      {"a trex cut short", Changed(moov, trex, 20), true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    MovieTracks tracks;
    ASSERT_TRUE(tracks.Read(c.bytes, Whole(c.bytes)));
    ASSERT_EQ(2u, tracks.tracks.size());
    EXPECT_EQ(c.pictureComplete, tracks.tracks[0].complete);
    EXPECT_EQ(c.defaultsRead, tracks.defaultsRead);
    EXPECT_FALSE(tracks.AllComplete());
  }
  // The moov's own boxes that cannot be told apart: no track at all.
  std::vector<uint8_t> broken = Changed(moov, 8, 0xFFFF);
  MovieTracks none;
  EXPECT_FALSE(none.Read(broken, Whole(broken)));
  EXPECT_TRUE(none.tracks.empty());
  EXPECT_FALSE(none.AllComplete());
}

}  // namespace
}  // namespace KTN
