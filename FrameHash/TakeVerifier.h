// A take checked against its sidecar: every sample read again from the disk itself, hashed, and compared with the hashes written while it recorded.
#pragma once

#include <stdint.h>

#include <string>

namespace KTN {

// What a check found.
struct VerifyResult {
  std::string movie;              // the movie's file name, as the line names it
  uint64_t pictures = 0;          // pictures of the movie
  uint64_t soundFrames = 0;       // sound sample frames of the movie
  uint64_t badPictures = 0;       // pictures that differ from their line, or have none
  uint64_t badSoundPackets = 0;   // sound packets (lines) that differ, or have none
  int64_t firstBadPicture = -1;   // its index, counted from 0; -1: none
  std::string firstBadPictureTimecode;  // HH:MM:SS:FF, empty without a timecode track
  int64_t firstBadSoundFrame = -1;      // the first bad sample frame, counted from 0; -1: none
  std::string firstBadSoundTimecode;    // of the frame slot it falls in
  uint64_t strayLines = 0;        // lines of a stream the movie does not have
  uint32_t soundRate = 0;         // sample frames a second
  uint64_t bytesRead = 0;         // of the movie, from the disk
  // The movie as it was checked, from the descriptor that held its lock meanwhile: its size
  // in bytes and its last change in seconds since 1970; -1 when it could not be opened.
  int64_t movieBytes = -1;
  int64_t movieModified = -1;

  bool Passed() const { return badPictures == 0 && badSoundPackets == 0 && strayLines == 0; }
  // The one line a user reads: "verified N pictures and M sound samples", or what differs:
  // "take.mov differs from its sidecar: picture 37 (01:00:01:12) is the first bad one; sound
  // from sample frame 96000 (2.000 s, 01:00:02:00); 1 picture and 2 sound packets differ".
  std::string Describe() const;
};

// Reads every sample of a finished movie from the disk, bypassing the page cache (O_DIRECT;
// where a file system cannot, its cached pages are dropped first), and compares each
// packet's murmur3 hash, times and size with the movie's sidecar. A movie in a memory-backed
// folder is read from memory, its only copy. Stateless; any thread.
class TakeVerifier {
 public:
  // 0 with result filled (result.Passed() says whether the take matched); otherwise an
  // errno value with one line in failure saying why nothing was checked: 2 (ENOENT) no
  // sidecar, 16 (EBUSY) the movie is being written (named as repair names its writer), 22
  // (EINVAL) not a finished movie, or what reading failed with.
  static long Verify(const std::string& moviePath, VerifyResult& result, std::string& failure);
  // Makes the sidecar of a movie recorded without one, by reading it (result says what it
  // holds): 0, 17 (EEXIST) when it has one, or as Verify.
  static long WriteSidecar(const std::string& moviePath, VerifyResult& result, std::string& failure);
};

}  // namespace KTN
