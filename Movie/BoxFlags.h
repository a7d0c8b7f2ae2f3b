// The names of a movie's boxes and of the flags and fixed values in their fields, shared by every writer and reader of boxes.
#pragma once

#include <stdint.h>

namespace KTN {

// A four-character code (a box type, a handler, a codec), its first character in the most
// significant byte.
constexpr uint32_t BoxType(const char (&name)[5]) {
  return static_cast<uint32_t>(static_cast<uint8_t>(name[0])) << 24 |
         static_cast<uint32_t>(static_cast<uint8_t>(name[1])) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(name[2])) << 8 | static_cast<uint8_t>(name[3]);
}

// The boxes this system writes or reads.
namespace BoxTypes {
constexpr uint32_t kFtyp = BoxType("ftyp");  // the file's brand
constexpr uint32_t kMoov = BoxType("moov");  // the movie: its tracks and, when finished, its index
constexpr uint32_t kMvhd = BoxType("mvhd");
constexpr uint32_t kTrak = BoxType("trak");
constexpr uint32_t kTkhd = BoxType("tkhd");
constexpr uint32_t kTref = BoxType("tref");
constexpr uint32_t kEdts = BoxType("edts");
constexpr uint32_t kElst = BoxType("elst");
constexpr uint32_t kMdia = BoxType("mdia");
constexpr uint32_t kMdhd = BoxType("mdhd");
constexpr uint32_t kHdlr = BoxType("hdlr");
constexpr uint32_t kMinf = BoxType("minf");
constexpr uint32_t kGmhd = BoxType("gmhd");
constexpr uint32_t kGmin = BoxType("gmin");
constexpr uint32_t kTcmi = BoxType("tcmi");
constexpr uint32_t kDinf = BoxType("dinf");
constexpr uint32_t kDref = BoxType("dref");
constexpr uint32_t kAlis = BoxType("alis");
constexpr uint32_t kStbl = BoxType("stbl");
constexpr uint32_t kStsd = BoxType("stsd");
constexpr uint32_t kStts = BoxType("stts");
constexpr uint32_t kStss = BoxType("stss");
constexpr uint32_t kStsc = BoxType("stsc");
constexpr uint32_t kStsz = BoxType("stsz");
constexpr uint32_t kStco = BoxType("stco");
constexpr uint32_t kCo64 = BoxType("co64");
constexpr uint32_t kFiel = BoxType("fiel");  // a picture description's field order
constexpr uint32_t kTmcd = BoxType("tmcd");  // a timecode: description, reference and media information
constexpr uint32_t kMvex = BoxType("mvex");  // fragments follow the movie
constexpr uint32_t kTrex = BoxType("trex");
constexpr uint32_t kMoof = BoxType("moof");  // a fragment's header
constexpr uint32_t kMfhd = BoxType("mfhd");
constexpr uint32_t kTraf = BoxType("traf");
constexpr uint32_t kTfhd = BoxType("tfhd");
constexpr uint32_t kTfdt = BoxType("tfdt");
constexpr uint32_t kTrun = BoxType("trun");
constexpr uint32_t kMfra = BoxType("mfra");  // a table of the fragments, after the last
constexpr uint32_t kMdat = BoxType("mdat");  // samples
constexpr uint32_t kFree = BoxType("free");  // skipped by readers: hidden boxes
constexpr uint32_t kSkip = BoxType("skip");
constexpr uint32_t kWide = BoxType("wide");
}  // namespace BoxTypes

// A track's media, as its handler (hdlr) names it.
namespace Handlers {
constexpr uint32_t kMediaHandler = BoxType("mhlr");  // QuickTime's component type of a media handler
constexpr uint32_t kPicture = BoxType("vide");
constexpr uint32_t kSound = BoxType("soun");
constexpr uint32_t kTimecode = BoxType("tmcd");
}  // namespace Handlers

// A full box starts with one word: its version in the high byte, its flags in the other 24
// bits. Version 1 of a header box (mvhd, tkhd, mdhd, elst, tfdt) has 64-bit times.
constexpr uint32_t FullBoxWord(uint32_t version, uint32_t flags) { return version << 24 | (flags & 0xFFFFFF); }
constexpr uint32_t FullBoxVersion(uint32_t word) { return word >> 24; }
constexpr uint32_t FullBoxFlags(uint32_t word) { return word & 0xFFFFFF; }

// A fragment's track header (tfhd): which fields follow the track ID, in this order.
namespace TfhdFlags {
constexpr uint32_t kBaseDataOffset = 0x000001;         // 64 bits: where the run's data offsets count from
constexpr uint32_t kSampleDescription = 0x000002;      // the sample description index
constexpr uint32_t kDefaultSampleDuration = 0x000008;
constexpr uint32_t kDefaultSampleSize = 0x000010;
constexpr uint32_t kDefaultSampleFlags = 0x000020;
constexpr uint32_t kDurationIsEmpty = 0x010000;        // no sample: an empty stretch of the track
constexpr uint32_t kDefaultBaseIsMoof = 0x020000;      // data offsets count from the fragment's moof
}  // namespace TfhdFlags

// A fragment's run of samples (trun): which fields follow the sample count, in this order;
// the per-sample ones repeat for each sample.
namespace TrunFlags {
constexpr uint32_t kDataOffset = 0x000001;         // signed 32 bits, from the base
constexpr uint32_t kFirstSampleFlags = 0x000004;   // the first sample's flags, for it alone
constexpr uint32_t kSampleDuration = 0x000100;
constexpr uint32_t kSampleSize = 0x000200;
constexpr uint32_t kSampleFlags = 0x000400;
constexpr uint32_t kSampleCompositionOffset = 0x000800;  // pictures shown in another order than decoded
constexpr uint32_t kPerSampleFields = kSampleDuration | kSampleSize | kSampleFlags | kSampleCompositionOffset;
}  // namespace TrunFlags

// A fragment sample's flags word (trex, tfhd, trun).
namespace SampleFlags {
// Bits 24 and 25: what the sample depends on.
constexpr uint32_t kDependsOnMask = 0x03000000;
constexpr uint32_t kDependsOnOthers = 0x01000000;   // not a key frame
constexpr uint32_t kDependsOnNothing = 0x02000000;  // a key frame
// Bit 16: the sample is not a sync sample (playing cannot start at it).
constexpr uint32_t kIsNotSync = 0x00010000;
}  // namespace SampleFlags

// A track header's (tkhd) flags.
namespace TkhdFlags {
constexpr uint32_t kEnabled = 0x000001;
constexpr uint32_t kInMovie = 0x000002;
constexpr uint32_t kInPreview = 0x000004;
}  // namespace TkhdFlags

// A timecode sample description's (tmcd) flags.
namespace TimecodeFlags {
constexpr uint32_t kDropFrame = 0x0001;
constexpr uint32_t k24HourMax = 0x0002;  // wraps at 24 hours
}  // namespace TimecodeFlags

// A picture description's field order (fiel): the count of fields and, for two, which comes first.
namespace FieldOrder {
constexpr uint8_t kOneField = 1;  // progressive
constexpr uint8_t kTwoFields = 2;
constexpr uint8_t kTopFirst = 1;
constexpr uint8_t kBottomFirst = 6;
}  // namespace FieldOrder

// A data reference's flags: the data is in this file.
constexpr uint32_t kDataInThisFile = 0x000001;

// 1.0 as a 16.16 fixed-point value (an edit's rate, a matrix's scale), and 1.0 in 2.30 (the
// matrix's last column).
constexpr uint32_t kFixedOne = 0x00010000;
constexpr uint32_t kMatrixOne = 0x40000000;

// Bytes of a sample description box (stsd) before its first entry: version, flags and count.
constexpr uint64_t kDescriptionsHeader = 8;
// Bytes of a picture sample description before its own boxes (fiel, colr, pasp ...): the
// entry's header and its fixed fields.
constexpr uint64_t kVisualEntryFields = 8 + 78;
// Bytes of a timecode description's contents before its flags: reserved, data reference
// index, reserved.
constexpr uint64_t kTimecodeFlagsAt = 12;
// Bytes of a movie header (mvhd) from the end of its duration to its next track ID: rate,
// volume, reserved, matrix and predefined fields.
constexpr uint64_t kMvhdAfterDurationToNextTrack = 4 + 2 + 10 + 36 + 24;
// Bytes of a handler box's contents before the handler type: version, flags and component type.
constexpr uint64_t kHandlerTypeAt = 8;

}  // namespace KTN
