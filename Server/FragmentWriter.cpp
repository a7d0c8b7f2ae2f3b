// Appends one-sample fragments to a movie file.
#include "Server/FragmentWriter.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/uio.h>
#include <unistd.h>

#include "Movie/BoxFlags.h"
#include "Util/FileIo.h"
#include "Util/Log.h"

namespace KTN {

namespace {

// Sample flags of a fragment: a key frame (every sound sample, and every picture, which
// says so as its run's first sample), and the default of a picture track's samples, which
// the first (and only) sample overrides: a picture that depends on others.
constexpr uint32_t kKeyFrame = SampleFlags::kDependsOnNothing;
constexpr uint32_t kDependentPicture = SampleFlags::kDependsOnOthers | SampleFlags::kIsNotSync;

// tfhd: the base of data offsets is the moof; a default duration, size and flags follow.
constexpr uint32_t kTfhdFlags = TfhdFlags::kDefaultBaseIsMoof | TfhdFlags::kDefaultSampleDuration |
                                TfhdFlags::kDefaultSampleSize | TfhdFlags::kDefaultSampleFlags;
// trun: a data offset follows; for pictures also the first sample's flags.
constexpr uint32_t kSoundRun = TrunFlags::kDataOffset;
constexpr uint32_t kPictureRun = TrunFlags::kDataOffset | TrunFlags::kFirstSampleFlags;

}  // namespace

FragmentWriter::~FragmentWriter() {
  Close();
}

long FragmentWriter::Open(int descriptor, const std::string& name, uint64_t headerBytes) {
  if (mFd >= 0) {
    KTN_LOG("A movie is already open for fragments");
    if (descriptor >= 0) close(descriptor);
    return EINVAL;
  }
  mPath = name;
  mSequence = 0;
  mFirstError = 0;
  mLastPictureDuration = -1;
  mFd = descriptor;
  if (mFd < 0) return Failed("open", EBADF);
  if (lseek(mFd, static_cast<off_t>(headerBytes), SEEK_SET) < 0) return Failed("lseek", errno);
  mCompleteBytes = headerBytes;
  mWriteBehind.Start(mFd, mPath, headerBytes);
  return 0;
}

long FragmentWriter::OpenSidecar(const std::string& path, const std::string& header) {
  if (mFd < 0) return EINVAL;
  if (!mHasher.Ready()) {
    KTN_LOG("av_hash_alloc(murmur3) failed: the frame hashes of %s cannot be made", mPath.c_str());
    return ENOMEM;
  }
  if (long rc = mSidecar.Open(path, header)) {
    KTN_LOG("The frame hashes of %s cannot be written to %s (errno %ld)", mPath.c_str(), path.c_str(), rc);
    return rc;
  }
  return 0;
}

void FragmentWriter::BeginHash(const Sample& sample) {
  mHasher.Begin(static_cast<int>(sample.trackId) - 1, static_cast<int64_t>(sample.decodeTime), sample.duration,
                sample.size, sample.picture ? 0 : sample.frameBytes);
}

long FragmentWriter::AppendLines(const Sample& sample) {
  if (!mSidecar.IsOpen()) return 0;
  if (long rc = mSidecar.Append(mHasher.Lines(), sample.picture)) {
    if (!mFirstError) mFirstError = rc;
    return rc;
  }
  return 0;
}

size_t FragmentWriter::BuildHeader(const Sample& sample) {
  BoxWriter& out = mHeader;
  out.bytes.clear();  // its capacity stays: no allocation per fragment
  size_t moof = out.Begin(BoxTypes::kMoof);
  size_t mfhd = out.Begin(BoxTypes::kMfhd);
  out.Put32(FullBoxWord(0, 0));
  out.Put32(mSequence + 1);
  out.End(mfhd);
  size_t traf = out.Begin(BoxTypes::kTraf);
  size_t tfhd = out.Begin(BoxTypes::kTfhd);
  out.Put32(FullBoxWord(0, kTfhdFlags));
  out.Put32(sample.trackId);
  mHeaderDurationAt = out.bytes.size();
  out.Put32(sample.duration);
  out.Put32(sample.size);
  out.Put32(sample.picture ? kDependentPicture : kKeyFrame);
  out.End(tfhd);
  size_t tfdt = out.Begin(BoxTypes::kTfdt);
  out.Put32(FullBoxWord(1, 0));  // a 64-bit decode time
  out.Put64(sample.decodeTime);
  out.End(tfdt);
  size_t trun = out.Begin(BoxTypes::kTrun);
  out.Put32(sample.picture ? kPictureRun : kSoundRun);
  out.Put32(1);
  size_t dataOffset = out.bytes.size();
  out.Put32(0);
  if (sample.picture) out.Put32(kKeyFrame);
  out.End(trun);
  out.End(traf);
  out.End(moof);
  // The sample follows the mdat's own eight bytes.
  out.Patch32(dataOffset, static_cast<uint32_t>(out.bytes.size() - moof + 8));
  out.Put32(static_cast<uint32_t>(8 + static_cast<uint64_t>(sample.size)));
  out.Put32(BoxTypes::kMdat);
  return out.bytes.size();
}

long FragmentWriter::Write(const Sample& sample, const void* data) {
  if (mFd < 0) return EINVAL;
  if (mFirstError) return mFirstError;
  size_t headerSize = BuildHeader(sample);
  if (mSidecar.IsOpen()) {
    BeginHash(sample);
    mHasher.Update(static_cast<const uint8_t*>(data), sample.size);
    if (long rc = AppendLines(sample)) return rc;
  }
  const struct iovec parts[2] = {{mHeader.bytes.data(), headerSize}, {const_cast<void*>(data), sample.size}};
  if (long rc = Util::FileIo::WriteAllParts(mFd, parts, 2)) return Failed("writev", rc);
  return Written(sample, headerSize + sample.size);
}

long FragmentWriter::WriteFrom(const Sample& sample, int descriptor, BytesSeen* seen) {
  if (mFd < 0) return EINVAL;
  if (mFirstError) return mFirstError;
  size_t headerSize = BuildHeader(sample);
  if (long rc = WriteAll(mHeader.bytes.data(), headerSize)) return rc;
  // A segment that has shrunk copies short, or nothing: never a fault.
  long rc = 0;
  if (mSidecar.IsOpen() || seen) {
    rc = CopyFrom(sample, descriptor, seen);  // hashed or measured on the way
  } else {
    size_t copied = 0;
    rc = Util::FileIo::CopyAll(mFd, descriptor, 0, sample.size, &copied);
    if ((rc == EINVAL || rc == ENOSYS) && copied == 0) {
      rc = CopyFrom(sample, descriptor, nullptr);  // a descriptor sendfile cannot read from
    } else if (rc && rc != ENODATA) {
      return Failed("sendfile", rc);
    }
  }
  if (rc == ENODATA) {
    KTN_LOG("The segment of a sample of %u bytes in %s was shrunk before it was written: the sample is left out",
            sample.size, mPath.c_str());
    if (long undone = TakeBack()) return undone;
    return ENODATA;
  }
  if (rc) return rc;
  return Written(sample, headerSize + sample.size);
}

long FragmentWriter::CopyFrom(const Sample& sample, int descriptor, BytesSeen* seen) {
  // Read, not mapped: a segment shrunk by its maker cannot fault a read. A chunk of a
  // megabyte stays in the processor's cache between its read, its hash and its write.
  constexpr size_t kChunk = 1 << 20;
  mCopyBuffer.resize(kChunk);
  const bool hashing = mSidecar.IsOpen();
  if (hashing) BeginHash(sample);
  const size_t size = sample.size;
  size_t done = 0;
  while (done < size) {
    size_t want = size - done < kChunk ? size - done : kChunk;
    long rc = Util::FileIo::ReadAll(descriptor, mCopyBuffer.data(), want, static_cast<int64_t>(done));
    if (rc == ENODATA) return rc;
    if (rc) return Failed("pread", rc);
    if (seen) seen->Seen(done, mCopyBuffer.data(), want);
    if (hashing) {
      mHasher.Update(mCopyBuffer.data(), want);
      // The sample's lines before its last bytes: a fragment whole in the movie is described.
      if (done + want == size && (rc = AppendLines(sample))) return rc;
    }
    if ((rc = WriteAll(mCopyBuffer.data(), want))) return rc;
    done += want;
  }
  if (hashing && size == 0) return AppendLines(sample);
  return 0;
}

long FragmentWriter::TakeBack() {
  if (long rc = mSidecar.CutBack()) return rc;
  if (ftruncate(mFd, static_cast<off_t>(mCompleteBytes)) != 0) return Failed("ftruncate", errno);
  if (lseek(mFd, static_cast<off_t>(mCompleteBytes), SEEK_SET) < 0) return Failed("lseek", errno);
  return 0;
}

long FragmentWriter::Written(const Sample& sample, uint64_t bytes) {
  ++mSequence;
  if (sample.picture) mLastPictureDuration = static_cast<int64_t>(mCompleteBytes + mHeaderDurationAt);
  mCompleteBytes += bytes;
  mSidecar.Commit();
  // A write-back that failed may have lost bytes already answered for: the take fails as
  // for a failed write (cut back to its last whole fragment at Close).
  if (long rc = mWriteBehind.Written(mCompleteBytes)) {
    if (!mFirstError) mFirstError = rc;
    return rc;
  }
  return 0;
}

long FragmentWriter::ExtendLastPicture(uint32_t duration) {
  if (mFd < 0 || mLastPictureDuration < 0) return EINVAL;
  if (mFirstError) return mFirstError;
  uint8_t field[4] = {static_cast<uint8_t>(duration >> 24), static_cast<uint8_t>(duration >> 16),
                      static_cast<uint8_t>(duration >> 8), static_cast<uint8_t>(duration)};
  if (long rc = Util::FileIo::WriteAll(mFd, field, sizeof field, mLastPictureDuration)) return Failed("pwrite", rc);
  if (mSidecar.IsOpen()) {
    if (long rc = mSidecar.LengthenLastPicture(duration)) {
      if (!mFirstError) mFirstError = rc;
      return rc;
    }
  }
  return 0;
}

long FragmentWriter::WriteAll(const void* data, size_t size) {
  if (long rc = Util::FileIo::WriteAll(mFd, data, size)) return Failed("write", rc);
  return 0;
}

long FragmentWriter::Failed(const char* call, long error) {
  KTN_LOG("%s(%s) failed with errno %ld (%s)", call, mPath.c_str(), error, strerror(static_cast<int>(error)));
  if (!mFirstError) mFirstError = error;
  return error;
}

long FragmentWriter::Close() {
  if (mFd < 0) return mFirstError;
  if (mFirstError && ftruncate(mFd, static_cast<off_t>(mCompleteBytes)) != 0) {
    KTN_LOG("ftruncate(%s, %llu) failed with errno %d (%s)", mPath.c_str(),
            static_cast<unsigned long long>(mCompleteBytes), errno, strerror(errno));
  }
  mWriteBehind.Stop();
  // The lines of a torn fragment go with it; the sidecar reaches the disk with the movie.
  if (long rc = mSidecar.Close()) {
    if (!mFirstError) mFirstError = rc;
  }
  if (close(mFd) != 0 && !mFirstError) Failed("close", errno);
  mFd = -1;
  return mFirstError;
}

}  // namespace KTN
