// The walk of a fragment's samples: every combination of the track fragment's and the run's flags, and the fragments it refuses.
#include "Movie/FragmentSamples.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Movie/BoxFlags.h"
#include "Movie/BoxWriter.h"
#include "Movie/MovieTracks.h"

namespace KTN {
namespace {

constexpr uint32_t kTrack = 5;
constexpr uint64_t kMoofAt = 1000;  // where the fragment's moof lies in the file

// The fragments' defaults of the track (its trex), each unlike those a fragment gives.
constexpr uint32_t kTrexDescription = 2;
constexpr uint32_t kTrexDuration = 7;
constexpr uint32_t kTrexSize = 3;
constexpr uint32_t kTrexFlags = SampleFlags::kDependsOnOthers | SampleFlags::kIsNotSync;

// A moov with one picture track of ID kTrack and its trex.
std::vector<uint8_t> Moov() {
  BoxWriter out;
  size_t moov = out.Begin(BoxTypes::kMoov);
  size_t trak = out.Begin(BoxTypes::kTrak);
  size_t tkhd = out.Begin(BoxTypes::kTkhd);
  out.Put32(FullBoxWord(0, TkhdFlags::kEnabled));
  out.Put32(0), out.Put32(0), out.Put32(kTrack), out.Put32(0), out.Put32(0);
  out.End(tkhd);
  size_t mdia = out.Begin(BoxTypes::kMdia);
  size_t mdhd = out.Begin(BoxTypes::kMdhd);
  out.Put32(0), out.Put32(0), out.Put32(0), out.Put32(30000), out.Put32(0);
  out.End(mdhd);
  size_t hdlr = out.Begin(BoxTypes::kHdlr);
  out.Put32(0), out.Put32(Handlers::kMediaHandler), out.Put32(Handlers::kPicture);
  out.End(hdlr);
  out.End(mdia);
  out.End(trak);
  size_t mvex = out.Begin(BoxTypes::kMvex);
  size_t trex = out.Begin(BoxTypes::kTrex);
  out.Put32(0), out.Put32(kTrack), out.Put32(kTrexDescription), out.Put32(kTrexDuration), out.Put32(kTrexSize);
  out.Put32(kTrexFlags);
  out.End(trex);
  out.End(mvex);
  out.End(moov);
  return out.bytes;
}

MovieTracks Tracks() {
  static const std::vector<uint8_t> moov = Moov();
  Box box;
  box.size = moov.size();
  MovieTracks tracks;
  EXPECT_TRUE(tracks.Read(moov, box));
  EXPECT_TRUE(tracks.AllComplete());
  return tracks;
}

// Gathers what the walk hands over.
class Gathered : public FragmentSamples::Visitor {
 public:
  uint64_t NextDecodeTime(size_t track) override {
    EXPECT_EQ(0u, track);
    return kPreviousEnd;
  }
  void Sample(const FragmentSample& sample) override { samples.push_back(sample); }

  static constexpr uint64_t kPreviousEnd = 77;  // the end of the track's samples before the fragment
  std::vector<FragmentSample> samples;
};

// What a fragment of one track fragment and one run of three samples says.
struct Fragment {
  uint32_t tfhdFlags = 0;
  uint32_t trunFlags = 0;
  int tfdtVersion = -1;  // -1: no tfdt
  uint32_t trackId = kTrack;
  uint32_t count = 3;
  // Values the flags put in the fields.
  uint64_t base = 0;  // the tfhd's base data offset
  uint32_t description = 3, duration = 11, size = 5, flags = SampleFlags::kDependsOnNothing;
  uint64_t decodeTime = 0;
  int32_t dataOffset = 0;
  uint32_t firstFlags = SampleFlags::kDependsOnNothing | SampleFlags::kIsNotSync;
  std::vector<uint32_t> durations = {13, 17, 19}, sizes = {2, 4, 6};
  std::vector<uint32_t> sampleFlags = {0, SampleFlags::kIsNotSync, 0};
  std::vector<uint32_t> compositionOffsets = {0, 0, 0};

  std::vector<uint8_t> Moof() const {
    BoxWriter out;
    size_t moof = out.Begin(BoxTypes::kMoof);
    size_t mfhd = out.Begin(BoxTypes::kMfhd);
    out.Put32(0), out.Put32(1);
    out.End(mfhd);
    size_t traf = out.Begin(BoxTypes::kTraf);
    size_t tfhd = out.Begin(BoxTypes::kTfhd);
    out.Put32(FullBoxWord(0, tfhdFlags));
    out.Put32(trackId);
    if (tfhdFlags & TfhdFlags::kBaseDataOffset) out.Put64(base);
    if (tfhdFlags & TfhdFlags::kSampleDescription) out.Put32(description);
    if (tfhdFlags & TfhdFlags::kDefaultSampleDuration) out.Put32(duration);
    if (tfhdFlags & TfhdFlags::kDefaultSampleSize) out.Put32(size);
    if (tfhdFlags & TfhdFlags::kDefaultSampleFlags) out.Put32(flags);
    out.End(tfhd);
    if (tfdtVersion >= 0) {
      size_t tfdt = out.Begin(BoxTypes::kTfdt);
      out.Put32(FullBoxWord(static_cast<uint32_t>(tfdtVersion), 0));
      tfdtVersion == 1 ? out.Put64(decodeTime) : out.Put32(static_cast<uint32_t>(decodeTime));
      out.End(tfdt);
    }
    size_t trun = out.Begin(BoxTypes::kTrun);
    out.Put32(FullBoxWord(0, trunFlags));
    out.Put32(count);
    if (trunFlags & TrunFlags::kDataOffset) out.Put32(static_cast<uint32_t>(dataOffset));
    if (trunFlags & TrunFlags::kFirstSampleFlags) out.Put32(firstFlags);
    for (size_t i = 0; i < durations.size(); ++i) {
      if (trunFlags & TrunFlags::kSampleDuration) out.Put32(durations[i]);
      if (trunFlags & TrunFlags::kSampleSize) out.Put32(sizes[i]);
      if (trunFlags & TrunFlags::kSampleFlags) out.Put32(sampleFlags[i]);
      if (trunFlags & TrunFlags::kSampleCompositionOffset) out.Put32(compositionOffsets[i]);
    }
    out.End(trun);
    out.End(traf);
    out.End(moof);
    return out.bytes;
  }
};

constexpr uint64_t kDataBytes = 64;  // in the mdat after the moof

FragmentSamples::Status Walk(const std::vector<uint8_t>& moof, Gathered& gathered) {
  const uint64_t dataBegin = kMoofAt + moof.size() + 8;
  return FragmentSamples::Walk(moof, kMoofAt, dataBegin, dataBegin + kDataBytes, Tracks(), gathered);
}

// Every combination of the flags a track fragment header and a run may carry, with and
// without a decode time of either width: each sample takes the run's own field, else the
// fragment's default, else the track's; a run without a data offset starts at the base.
TEST(FragmentSamplesTest, EveryFlagCombinationPlacesAndTimesEverySample) {
  const uint32_t tfhdChoices[] = {TfhdFlags::kBaseDataOffset, TfhdFlags::kSampleDescription,
                                  TfhdFlags::kDefaultSampleDuration, TfhdFlags::kDefaultSampleSize,
                                  TfhdFlags::kDefaultSampleFlags, TfhdFlags::kDefaultBaseIsMoof};
  const uint32_t trunChoices[] = {TrunFlags::kDataOffset, TrunFlags::kFirstSampleFlags, TrunFlags::kSampleDuration,
                                  TrunFlags::kSampleSize, TrunFlags::kSampleFlags,
                                  TrunFlags::kSampleCompositionOffset};
  int combinations = 0, refused = 0;
  for (uint32_t tfhdSet = 0; tfhdSet < 64; ++tfhdSet) {
    for (uint32_t trunSet = 0; trunSet < 64; ++trunSet) {
      for (int tfdt : {-1, 0, 1}) {
        Fragment fragment;
        for (int bit = 0; bit < 6; ++bit) {
          if (tfhdSet & (1u << bit)) fragment.tfhdFlags |= tfhdChoices[bit];
          if (trunSet & (1u << bit)) fragment.trunFlags |= trunChoices[bit];
        }
        fragment.tfdtVersion = tfdt;
        fragment.decodeTime = tfdt == 1 ? (uint64_t{1} << 33) + 5 : 1000;
        const uint64_t dataBegin = kMoofAt + fragment.Moof().size() + 8;
        // An explicit base is where the data starts; a data offset starts the run 4 bytes in.
        fragment.base = dataBegin;
        const uint64_t base = fragment.tfhdFlags & TfhdFlags::kBaseDataOffset ? dataBegin : kMoofAt;
        fragment.dataOffset = static_cast<int32_t>(dataBegin + 4 - base);
        SCOPED_TRACE(testing::Message() << "tfhd flags " << std::hex << fragment.tfhdFlags << ", trun flags "
                                        << fragment.trunFlags << std::dec << ", tfdt " << tfdt);
        ++combinations;
        Gathered gathered;
        const FragmentSamples::Status status = Walk(fragment.Moof(), gathered);
        uint64_t at = fragment.trunFlags & TrunFlags::kDataOffset ? dataBegin + 4 : base;
        if (at < dataBegin) {
          // No base of its own and no data offset: the run would start inside the moof.
          EXPECT_EQ(FragmentSamples::Status::kOutsideData, status);
          EXPECT_TRUE(gathered.samples.empty());
          ++refused;
          continue;
        }
        ASSERT_EQ(FragmentSamples::Status::kRead, status);
        ASSERT_EQ(3u, gathered.samples.size());
        uint64_t time = tfdt < 0 ? Gathered::kPreviousEnd : fragment.decodeTime;
        for (size_t i = 0; i < 3; ++i) {
          const FragmentSample& sample = gathered.samples[i];
          const uint32_t tfhd = fragment.tfhdFlags, trun = fragment.trunFlags;
          const uint32_t duration = trun & TrunFlags::kSampleDuration       ? fragment.durations[i]
                                    : tfhd & TfhdFlags::kDefaultSampleDuration ? fragment.duration
                                                                               : kTrexDuration;
          const uint32_t size = trun & TrunFlags::kSampleSize          ? fragment.sizes[i]
                                : tfhd & TfhdFlags::kDefaultSampleSize ? fragment.size
                                                                       : kTrexSize;
          const uint32_t flags = trun & TrunFlags::kSampleFlags                ? fragment.sampleFlags[i]
                                 : i == 0 && trun & TrunFlags::kFirstSampleFlags ? fragment.firstFlags
                                 : tfhd & TfhdFlags::kDefaultSampleFlags         ? fragment.flags
                                                                                 : kTrexFlags;
          EXPECT_EQ(0u, sample.track);
          EXPECT_EQ(at, sample.offset) << "sample " << i;
          EXPECT_EQ(size, sample.size) << "sample " << i;
          EXPECT_EQ(duration, sample.duration) << "sample " << i;
          EXPECT_EQ(time, sample.decodeTime) << "sample " << i;
          EXPECT_EQ(!(flags & SampleFlags::kIsNotSync), sample.sync) << "sample " << i;
          EXPECT_EQ(tfhd & TfhdFlags::kSampleDescription ? fragment.description : kTrexDescription, sample.description);
          EXPECT_EQ(i == 0 ? 3u : 0u, sample.runSamples);
          at += size;
          time += duration;
        }
      }
    }
  }
  EXPECT_EQ(64 * 64 * 3, combinations);
  EXPECT_EQ(32 * 32 * 3, refused) << "only runs that would start in the moof";
}

// The fragments the recording server writes: a picture (defaults that say it depends on
// others, its first sample's flags that it does not) and sound, from the moof, with a
// 64-bit decode time.
TEST(FragmentSamplesTest, TheWritersFragmentsReadAsKeyFrames) {
  for (bool picture : {true, false}) {
    Fragment fragment;
    fragment.tfhdFlags = TfhdFlags::kDefaultBaseIsMoof | TfhdFlags::kDefaultSampleDuration |
                         TfhdFlags::kDefaultSampleSize | TfhdFlags::kDefaultSampleFlags;
    fragment.trunFlags = TrunFlags::kDataOffset | (picture ? TrunFlags::kFirstSampleFlags : 0);
    fragment.tfdtVersion = 1;
    fragment.decodeTime = 5005;
    fragment.count = 1;
    fragment.durations.resize(1);
    fragment.flags = picture ? SampleFlags::kDependsOnOthers | SampleFlags::kIsNotSync : SampleFlags::kDependsOnNothing;
    fragment.firstFlags = SampleFlags::kDependsOnNothing;
    fragment.dataOffset = static_cast<int32_t>(fragment.Moof().size() + 8);
    Gathered gathered;
    ASSERT_EQ(FragmentSamples::Status::kRead, Walk(fragment.Moof(), gathered));
    ASSERT_EQ(1u, gathered.samples.size());
    EXPECT_TRUE(gathered.samples[0].sync);
    EXPECT_EQ(5005u, gathered.samples[0].decodeTime);
    EXPECT_EQ(kMoofAt + fragment.Moof().size() + 8, gathered.samples[0].offset);
  }
}

// A fragment that cannot be described hands over none of its samples and says why.
TEST(FragmentSamplesTest, AFragmentThatCannotBeDescribedHandsOverNothing) {
  struct Case {
    const char* name;
    FragmentSamples::Status status;
    void (*change)(Fragment&, std::vector<uint8_t>&);
  };
  const Case cases[] = {
      {"a track the movie does not have", FragmentSamples::Status::kUnknownTrack,
       [](Fragment& f, std::vector<uint8_t>& m) { f.trackId = kTrack + 1, m = f.Moof(); }},
      {"track ID 0", FragmentSamples::Status::kUnknownTrack,
       [](Fragment& f, std::vector<uint8_t>& m) { f.trackId = 0, m = f.Moof(); }},
      {"a picture shown out of its order", FragmentSamples::Status::kReordered,
       [](Fragment& f, std::vector<uint8_t>& m) {
         f.trunFlags |= TrunFlags::kSampleCompositionOffset, f.compositionOffsets = {0, 1001, 0};
         f.dataOffset = static_cast<int32_t>(f.Moof().size() + 8), m = f.Moof();
       }},
      {"a sample past the end of the data", FragmentSamples::Status::kOutsideData,
       [](Fragment& f, std::vector<uint8_t>& m) { f.sizes = {2, 4, kDataBytes}, m = f.Moof(); }},
      {"a data offset before the data", FragmentSamples::Status::kOutsideData,
       [](Fragment& f, std::vector<uint8_t>& m) { f.dataOffset = -8, m = f.Moof(); }},
      {"a data offset past the data", FragmentSamples::Status::kOutsideData,
       [](Fragment& f, std::vector<uint8_t>& m) { f.dataOffset = 0x7FFFFFFF, m = f.Moof(); }},
      {"a base at the end of the file's range", FragmentSamples::Status::kOutsideData,
       [](Fragment& f, std::vector<uint8_t>& m) {
         f.tfhdFlags |= TfhdFlags::kBaseDataOffset, f.base = UINT64_MAX - 2, f.dataOffset = 0, m = f.Moof();
       }},
      {"a run of more samples than its fields hold", FragmentSamples::Status::kMalformed,
       [](Fragment& f, std::vector<uint8_t>& m) { f.count = 0xFFFFFFFF, m = f.Moof(); }},
      {"a run of more samples of no bytes than its data holds", FragmentSamples::Status::kOutsideData,
       [](Fragment& f, std::vector<uint8_t>& m) {
         f.trunFlags = TrunFlags::kDataOffset, f.tfhdFlags |= TfhdFlags::kDefaultSampleSize, f.size = 0;
         f.count = 0xFFFFFFFF, f.durations.clear(), m = f.Moof();
       }},
      {"a tfhd shorter than its flags say", FragmentSamples::Status::kMalformed,
       [](Fragment& f, std::vector<uint8_t>& m) {
         f.tfhdFlags = TfhdFlags::kBaseDataOffset;
         m = f.Moof();
         // The tfhd (after moof, mfhd and traf headers) loses its base: its size says 4 bytes less, and so do its parents'.
         const size_t tfhd = 8 + 16 + 8;
         m.erase(m.begin() + static_cast<long>(tfhd + 16), m.begin() + static_cast<long>(tfhd + 20));
         for (size_t at : {size_t{0}, size_t{24}, tfhd}) m[at + 3] = static_cast<uint8_t>(m[at + 3] - 4);
       }},
      {"a tfhd that runs past its traf", FragmentSamples::Status::kMalformed,
       [](Fragment& f, std::vector<uint8_t>& m) {
         m = f.Moof();
         m[8 + 16 + 8 + 3] = static_cast<uint8_t>(m[8 + 16 + 8 + 3] + 64);
       }},
      {"a traf without a tfhd", FragmentSamples::Status::kMalformed,
       [](Fragment& f, std::vector<uint8_t>& m) {
         m = f.Moof();
         m[8 + 16 + 8 + 4] = 'x';
       }},
      {"bytes that are no moof", FragmentSamples::Status::kMalformed,
       [](Fragment& f, std::vector<uint8_t>& m) {
         m = f.Moof();
         m[4] = 'x';
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fragment fragment;
    fragment.trunFlags = TrunFlags::kDataOffset | TrunFlags::kSampleDuration | TrunFlags::kSampleSize;
    fragment.dataOffset = static_cast<int32_t>(fragment.Moof().size() + 8);
    std::vector<uint8_t> moof;
    c.change(fragment, moof);
    Gathered gathered;
    EXPECT_EQ(c.status, Walk(moof, gathered));
    EXPECT_TRUE(gathered.samples.empty()) << "not one sample of it";
    EXPECT_STRNE("it was read", FragmentSamples::Why(c.status));
  }
}

}  // namespace
}  // namespace KTN
