// Repairs arbitrary bytes as the host program's repair does, and reads them with the movie box layer directly.
//
// Repair reads any file a user hands it and writes to it: the summary that tells a movie,
// the in-place index that finishes a take cut off (or completes a finish or stamp cut off),
// the summary again and the stamp of a field order and timecode. All of that runs here on a
// scratch copy in memory; only the copy into a new movie, FFmpeg's, is left out. The layer
// under them reads the same bytes on its own too: the top-level walk, the tracks of every
// moov, the sample tables of its finished tracks, the samples of every fragment.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "Movie/FragmentSamples.h"
#include "Movie/InPlaceIndex.h"
#include "Movie/MovieFile.h"
#include "Movie/MovieStamp.h"
#include "Movie/MovieSummary.h"
#include "Movie/MovieTracks.h"
#include "Movie/SampleTable.h"
#include "Movie/TimecodeTrack.h"
#include "Movie/TopLevelBoxes.h"
#include "fuzz/FuzzScratch.h"

namespace {

bool WriteFile(const std::string& path, const uint8_t* data, size_t size) {
  FILE* file = fopen(path.c_str(), "wb");
  if (!file) return false;
  bool written = fwrite(data, 1, size, file) == size;
  return fclose(file) == 0 && written;
}

// Adds up what it is handed, so that nothing of the walk is left unused.
class Tally : public KTN::FragmentSamples::Visitor {
 public:
  explicit Tally(size_t tracks) : mEnds(tracks, 0) {}
  uint64_t NextDecodeTime(size_t track) override { return mEnds.at(track); }
  void Sample(const KTN::FragmentSample& sample) override {
    mEnds.at(sample.track) = sample.decodeTime + sample.duration;
    bytes += sample.size;
  }
  uint64_t bytes = 0;

 private:
  std::vector<uint64_t> mEnds;
};

// The layer alone: every moov's tracks, and every fragment (a moof followed by an mdat)
// walked against the first moov's.
void ReadWithTheLayer(const std::string& path) {
  KTN::MovieFile file(path);
  KTN::TopLevelBoxes top;
  if (file.Open(false) || top.Read(file)) return;
  top.Unfinished();
  KTN::MovieTracks first;
  bool haveTracks = false;
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < top.boxes.size(); ++i) {
    const KTN::Box& box = top.boxes[i];
    if (box.type == KTN::BoxTypes::kMoov) {
      if (file.Read(box.offset, box.size, bytes)) return;
      KTN::Box whole = box;
      whole.offset = 0;
      KTN::MovieTracks tracks;
      if (tracks.Read(bytes, whole)) tracks.AllComplete();
      for (const KTN::TrackDescription& track : tracks.tracks) {  // each finished track's table, its first samples walked
        KTN::SampleTable table;
        uint64_t walked = 0;
        if (table.Read(bytes, track)) table.Walk([&](const KTN::TableSample&) { return ++walked < 4096; });
      }
      if (!haveTracks) first = tracks, haveTracks = true;
    } else if (box.type == KTN::BoxTypes::kMoof && haveTracks && i + 1 < top.boxes.size() &&
               top.boxes[i + 1].type == KTN::BoxTypes::kMdat) {
      const KTN::Box& mdat = top.boxes[i + 1];
      if (file.Read(box.offset, box.size, bytes)) return;
      Tally tally(first.tracks.size());
      KTN::FragmentSamples::Walk(bytes, box.offset, mdat.offset + mdat.header, mdat.offset + mdat.size, first, tally);
    }
  }
}

// What repair does, in its order, but for the copy that FFmpeg makes of a layout the index
// refuses.
void Repair(const std::string& path) {
  KTN::MovieSummary summary;
  if (summary.Read(path) || summary.layout == KTN::MovieSummary::Layout::kNotAMovie) return;
  {
    KTN::MovieFile file(path);
    KTN::TopLevelBoxes top;
    if (file.Open(false) || top.Read(file)) return;
    if (top.Unfinished() && KTN::InPlaceIndex::Write(path)) return;
  }
  if (summary.Read(path)) return;
  KTN::MovieStamp stamp;
  stamp.fields = summary.hasFieldOrder ? KTN::MovieStamp::Fields::kKeep : KTN::MovieStamp::Fields::kTopFirst;
  stamp.frameDuration = summary.frameDuration;
  stamp.timescale = summary.videoTimescale;
  // A timecode where the movie's rate counts one, so that its track is written too, with a
  // break after the first slot, so that it has two runs.
  if (KTN::TimecodeTrack::CountableRate(stamp.frameDuration, stamp.timescale)) {
    stamp.startTimecode = "01:00:00:00";
    stamp.timecodeBreaks.push_back(KTN::TimecodeRun{1, "02:00:00:00"});
  }
  if (stamp.fields == KTN::MovieStamp::Fields::kKeep && stamp.startTimecode.empty()) return;
  if (stamp.Apply(path) == 0) summary.Read(path);
  std::vector<KTN::TimecodeRun> runs;
  KTN::TimecodeTrack::ReadRuns(path, runs);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = KTN::FuzzScratchFolder("ktn-fuzz-repair") + "/take.mov";
  if (!WriteFile(path, data, size)) return 0;
  ReadWithTheLayer(path);
  Repair(path);
  ReadWithTheLayer(path);  // what repair left
  unlink(path.c_str());
  return 0;
}
