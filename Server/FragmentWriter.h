// Appends a movie's samples to its file as fragments of one sample each, straight from memory or from a segment.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "FrameHash/PacketHasher.h"
#include "Movie/BoxWriter.h"
#include "Server/FrameHashSidecar.h"
#include "Server/WriteBehind.h"

namespace KTN {

// After the movie's header (ftyp and a moov whose mvex lets fragments follow), every sample
// becomes one fragment: a moof saying which track, when, how long and how big, and an mdat
// holding the sample. Each fragment reaches the file whole before the next begins, so a
// writer killed or a disk filled mid-take leaves a movie that plays to its last whole
// sample, and no sample waits in memory. A sample held in a segment goes from the
// segment's pages to the file's inside the kernel, without passing through this process.
//
// Behind the write head, the fragments go to the disk early and leave the page cache
// (WriteBehind): a take holds a small, bounded part of the cache however long it runs.
//
// With a sidecar (OpenSidecar), every sample is hashed as it is written, in the packets
// FFmpeg reads it in, and its lines reach the sidecar before its last bytes reach the movie.
// The bytes hashed are the bytes written: a sample held in a segment is then read through a
// buffer of the writer's own and written from it, not sent inside the kernel.
//
// Used by one thread at a time. Every operation returns 0 or an errno value with one
// failure line; after the first failure every write answers that failure.
class FragmentWriter {
 public:
  FragmentWriter() = default;
  // Closes the file (cut back as Close does).
  ~FragmentWriter();

  FragmentWriter(const FragmentWriter&) = delete;
  FragmentWriter& operator=(const FragmentWriter&) = delete;

  // The most of the file kept in the page cache behind the write head (0: the default), for
  // the files opened from here on.
  void SetCacheWindow(uint64_t bytes) { mWriteBehind = WriteBehind(bytes); }

  // Takes descriptor (owned from here on, closed by Close), open for writing on the movie
  // named name (for failure lines), and writes the fragments after its headerBytes of
  // header.
  long Open(int descriptor, const std::string& name, uint64_t headerBytes);
  // Hashes every sample from here on into the sidecar at path, which starts with header (see
  // FrameHashSidecar::Open). Its stream numbers are the track IDs less one: the movie's
  // tracks are its pictures' and then its sound's, as FFmpeg numbers its streams.
  long OpenSidecar(const std::string& path, const std::string& header);

  // What one fragment holds: the sample of track trackId that starts at decodeTime and
  // lasts duration (both in the track's own timescale) and is size bytes long. A picture
  // is marked a key frame (every picture of the recorder's codecs is one). frameBytes: for
  // sound, the bytes of one sample frame, the unit its packets are hashed in.
  struct Sample {
    uint32_t trackId = 0;
    bool picture = false;
    uint64_t decodeTime = 0;
    uint32_t duration = 0;
    uint32_t size = 0;
    uint32_t frameBytes = 0;
  };
  // Sees a sample's bytes as they pass through the writer's buffer on their way to the file,
  // in pieces of up to a megabyte, in order (called on the writer's thread).
  class BytesSeen {
   public:
    // Bytes [offset, offset + size) of the sample.
    virtual void Seen(uint64_t offset, const uint8_t* data, size_t size) = 0;

   protected:
    ~BytesSeen() = default;
  };

  // The sample's bytes are at data.
  long Write(const Sample& sample, const void* data);
  // The sample's bytes are the first sample.size bytes of the file open at descriptor
  // (borrowed), a shared-memory segment. A segment that holds fewer bytes by the time it
  // is read (its maker shrank it) leaves its sample out: the fragment begun is taken back,
  // one line says so and the answer is 61 (ENODATA), which does not end the recording.
  // With seen (borrowed), the bytes are read through the writer's buffer and shown to it.
  long WriteFrom(const Sample& sample, int descriptor, BytesSeen* seen = nullptr);

  // Makes the last picture written last `duration` (in its track's timescale): the slots
  // after it had no picture, and it holds the screen until the end of the take, as long as
  // the sound runs. Rewrites four bytes of that picture's fragment in place.
  long ExtendLastPicture(uint32_t duration);

  // Closes the file. After a failed write the file ends in a torn fragment, which is cut
  // off: the complete fragments before it are the take. Returns the first error.
  long Close();

 private:
  // The fragment header (moof and the mdat's own header) of sample into mHeader; its size.
  size_t BuildHeader(const Sample& sample);
  // Counts a fragment of bytes (header and sample) written whole, and hands what lies far
  // enough behind it to the disk; 0, or the failure of that write-back, reported.
  long Written(const Sample& sample, uint64_t bytes);
  // Writes all of the bytes at the file's position; 0 or errno, reported.
  long WriteAll(const void* data, size_t size);
  // Copies the sample's bytes from the start of descriptor to the file's position through
  // mCopyBuffer, for a kernel that cannot send between the two, to hash them on the way
  // (its lines go to the sidecar before its last bytes to the movie) or to show them to
  // seen: 0, ENODATA when the descriptor ends first (unreported), or errno, reported.
  long CopyFrom(const Sample& sample, int descriptor, BytesSeen* seen);
  // Starts hashing sample into mHasher.
  void BeginHash(const Sample& sample);
  // Appends the lines of the sample hashed (when there is a sidecar).
  long AppendLines(const Sample& sample);
  // Takes back the fragment begun after the last complete one (its sample left out).
  long TakeBack();
  long Failed(const char* call, long error);

  std::string mPath;
  int mFd = -1;
  uint32_t mSequence = 0;        // of the last fragment written
  int64_t mLastPictureDuration = -1;  // where the last picture's duration field lies, or -1
  uint64_t mCompleteBytes = 0;   // the header and the fragments written whole
  long mFirstError = 0;
  BoxWriter mHeader;           // the fragment header being written
  std::vector<uint8_t> mCopyBuffer;  // CopyFrom's, allocated at its first use
  size_t mHeaderDurationAt = 0;  // offset of the sample duration in mHeader
  WriteBehind mWriteBehind;
  FrameHashSidecar mSidecar;
  PacketHasher mHasher;  // the sample being written, when there is a sidecar
};

}  // namespace KTN
