// Checks a take against its sidecar by reading it again from the disk.
#include "FrameHash/TakeVerifier.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "FrameHash/DiskReader.h"
#include "FrameHash/FrameHashFile.h"
#include "FrameHash/PacketHasher.h"
#include "FrameHash/TakePackets.h"
#include "Movie/MovieLock.h"
#include "Movie/MovieSummary.h"
#include "Movie/TimecodeTrack.h"
#include "Util/Log.h"
#include "Util/TimeCode.h"

namespace KTN {

namespace {

std::string FileName(const std::string& path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string Count(uint64_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

// The movie opened and its one-writer lock held while it is read, so that no recording
// starts on it meanwhile; refused, in the user's words, when it is no regular file or
// another process writes it. Its size and last change go into result, from the locked
// descriptor: the movie that is checked. The descriptor closes (and the lock ends) with the
// holder.
struct LockedMovie {
  int fd = -1;
  ~LockedMovie() {
    if (fd >= 0) close(fd);
  }
  long Take(const std::string& path, const std::string& refusal, VerifyResult& result, std::string& failure) {
    long error = 0;
    std::string why;
    fd = MovieLock::OpenLocked(path, O_RDONLY, error, why);
    if (fd < 0) {
      failure = refusal + why + (error == EBUSY ? ": a take is checked once its recording has stopped" : "");
      return error;
    }
    struct stat info = {};
    if (fstat(fd, &info) != 0) {
      error = errno;
      KTN_LOG("fstat(%s) failed with errno %ld (%s)", path.c_str(), error, strerror(static_cast<int>(error)));
      failure = refusal + strerror(static_cast<int>(error));
      return error;
    }
    result.movieBytes = static_cast<int64_t>(info.st_size);
    result.movieModified = static_cast<int64_t>(info.st_mtime);
    return 0;
  }
};

// The movie's packets, read from its finished index.
long ReadPackets(const std::string& path, const std::string& refusal, TakePackets& take, std::string& failure) {
  long rc = take.Read(path);
  if (rc == EINVAL) {
    MovieSummary summary;
    summary.Read(path);
    failure = refusal + (summary.layout == MovieSummary::Layout::kNotAMovie
                             ? "it is not a movie (it has no movie header)"
                             : "it is not a finished movie (kestrin-capture repair finishes a take that was cut off)");
  } else if (rc == EBADMSG) {
    failure = refusal + "its index cannot be read (see the line above)";
  } else if (rc) {
    failure = refusal + strerror(static_cast<int>(rc));
  } else if (take.packets.empty()) {
    failure = refusal + "it holds no picture or sound sample";
    rc = ENODATA;
  }
  return rc;
}

// Hashes every packet of take from the disk: lines[i] is packets[i]'s line.
long HashPackets(const std::string& path, const std::string& refusal, const TakePackets& take,
                 std::vector<FrameHashLine>& lines, VerifyResult& result, std::string& failure) {
  lines.assign(take.packets.size(), FrameHashLine());
  PacketHasher hasher;
  DiskReader reader;
  long rc = hasher.Ready() ? 0 : ENOSYS;
  if (!rc) rc = reader.Open(path);
  if (!rc) rc = reader.Start(take.packets.front().offset, take.packets.back().offset + take.packets.back().size);
  if (rc) {
    failure = refusal + (rc == ENOSYS ? "libavutil has no murmur3 hash" : strerror(static_cast<int>(rc)));
    return rc;
  }
  size_t next = 0;        // the packet being hashed
  bool begun = false;
  DiskReader::Block block;
  while (next < take.packets.size() && reader.Next(block)) {
    const uint64_t blockEnd = block.offset + block.size;
    while (next < take.packets.size()) {
      const TakePacket& packet = take.packets[next];
      if (packet.offset >= blockEnd) break;
      if (!begun) {
        hasher.Begin(packet.stream, packet.dts, packet.duration, packet.size, 0);
        begun = true;
      }
      const uint64_t from = std::max(packet.offset, block.offset);
      const uint64_t to = std::min(packet.offset + packet.size, blockEnd);
      if (from < to) hasher.Update(block.data + (from - block.offset), static_cast<size_t>(to - from));
      if (!hasher.Complete()) break;  // it goes on in the next block
      lines[next] = hasher.Lines().at(0);
      begun = false;
      ++next;
    }
  }
  result.bytesRead = reader.BytesRead();
  rc = reader.Error();
  if (!rc && next < take.packets.size()) {
    rc = ENODATA;
    failure = refusal + "the file ended before its last sample";
    return rc;
  }
  if (rc) failure = refusal + "reading it failed: " + strerror(static_cast<int>(rc));
  return rc;
}

// The timecode of frame slot `slot` of the movie, or empty without a timecode track or at a
// rate timecodes do not count.
std::string TimecodeAt(const MovieSummary& summary, uint64_t slot) {
  if (!summary.hasTimecode || !TimecodeTrack::CountableRate(summary.frameDuration, summary.videoTimescale) ||
      summary.startTimecode.size() < 11) {
    return std::string();
  }
  const bool drop = summary.startTimecode[8] == ';';
  const Util::TimeCodeFormat format =
      Util::tcfFromDuration(summary.frameDuration, summary.videoTimescale, drop, -1);
  const Util::CTimeCode start = Util::CTimeCode::FromStr(format, summary.startTimecode);
  const int frame = start.ToFrame(format) + static_cast<int>(std::min<uint64_t>(slot, INT32_MAX / 2));
  return Util::CTimeCode::FromFrame(format, frame, format).ToString(false);
}

bool SameFields(const FrameHashLine& a, const FrameHashLine& b) {
  return a.dts == b.dts && a.duration == b.duration && a.size == b.size && a.hash == b.hash;
}

// Compares the packets' lines with the sidecar's, stream by stream: pictures in order, sound
// by the stretch of time each line covers.
void Compare(const TakePackets& take, const std::vector<FrameHashLine>& lines, const FrameHashFile& sidecar,
             const MovieSummary& summary, VerifyResult& result) {
  std::vector<FrameHashLine> movieLines[2];  // pictures, sound, in decode order
  int streamOf[2] = {-1, -1};
  for (const TakePackets::Stream& stream : take.streams) streamOf[stream.picture ? 0 : 1] = stream.index;
  for (size_t i = 0; i < take.packets.size(); ++i) {
    movieLines[take.packets[i].stream == streamOf[0] ? 0 : 1].push_back(lines[i]);
  }
  for (std::vector<FrameHashLine>& stream : movieLines) {
    std::stable_sort(stream.begin(), stream.end(),
                     [](const FrameHashLine& a, const FrameHashLine& b) { return a.dts < b.dts; });
  }
  std::vector<FrameHashLine> sideLines[2];
  for (const FrameHashLine& line : sidecar.lines) {
    if (line.stream == streamOf[0]) {
      sideLines[0].push_back(line);
    } else if (line.stream == streamOf[1]) {
      sideLines[1].push_back(line);
    } else {
      ++result.strayLines;
    }
  }

  // Pictures, by order.
  const std::vector<FrameHashLine>& pictures = movieLines[0];
  const std::vector<FrameHashLine>& written = sideLines[0];
  for (size_t i = 0; i < std::max(pictures.size(), written.size()); ++i) {
    if (i < pictures.size() && i < written.size() && SameFields(pictures[i], written[i])) continue;
    ++result.badPictures;
    if (result.firstBadPicture < 0) {
      result.firstBadPicture = static_cast<int64_t>(i);
      const int64_t dts = i < pictures.size() ? pictures[i].dts : written[i].dts;
      if (summary.frameDuration && dts >= 0) {
        result.firstBadPictureTimecode = TimecodeAt(summary, static_cast<uint64_t>(dts) / summary.frameDuration);
      }
    }
  }

  // Sound, by the sample frames each line starts at.
  std::vector<FrameHashLine> sound = sideLines[1];
  std::stable_sort(sound.begin(), sound.end(), [](const FrameHashLine& a, const FrameHashLine& b) { return a.dts < b.dts; });
  std::vector<bool> matched(sound.size(), false);
  int64_t firstBad = -1;
  auto bad = [&](int64_t dts) {
    ++result.badSoundPackets;
    if (firstBad < 0 || dts < firstBad) firstBad = dts;
  };
  for (const FrameHashLine& line : movieLines[1]) {
    auto at = std::lower_bound(sound.begin(), sound.end(), line.dts,
                               [](const FrameHashLine& a, int64_t dts) { return a.dts < dts; });
    // The first line at that time not matched yet.
    while (at != sound.end() && at->dts == line.dts && matched[static_cast<size_t>(at - sound.begin())]) ++at;
    if (at == sound.end() || at->dts != line.dts) {
      bad(line.dts);
      continue;
    }
    matched[static_cast<size_t>(at - sound.begin())] = true;
    if (!SameFields(line, *at)) bad(line.dts);
  }
  for (size_t i = 0; i < sound.size(); ++i) {
    if (!matched[i]) bad(sound[i].dts);
  }
  if (firstBad >= 0 || result.badSoundPackets) {
    result.firstBadSoundFrame = std::max<int64_t>(firstBad, 0);
    if (result.soundRate && summary.frameDuration) {
      const uint64_t slot = static_cast<uint64_t>(result.firstBadSoundFrame) * summary.videoTimescale /
                            (static_cast<uint64_t>(result.soundRate) * summary.frameDuration);
      result.firstBadSoundTimecode = TimecodeAt(summary, slot);
    }
  }
}

// What Verify and WriteSidecar share once the movie's packets are listed: what it holds
// counted, and every packet hashed from the disk.
long HashTake(const std::string& path, const std::string& refusal, const TakePackets& take,
              std::vector<FrameHashLine>& lines, VerifyResult& result, std::string& failure) {
  if (const TakePackets::Stream* pictures = take.Find(true)) result.pictures = pictures->samples;
  if (const TakePackets::Stream* sound = take.Find(false)) {
    result.soundFrames = sound->samples;
    result.soundRate = sound->timescale;
  }
  return HashPackets(path, refusal, take, lines, result, failure);
}

}  // namespace

std::string VerifyResult::Describe() const {
  if (Passed()) {
    return "verified " + std::to_string(pictures) + " pictures and " + std::to_string(soundFrames) + " sound samples";
  }
  std::string line = movie + " differs from its sidecar";
  const char* separator = ": ";
  if (firstBadPicture >= 0) {
    line += separator + std::string("picture ") + std::to_string(firstBadPicture);
    if (!firstBadPictureTimecode.empty()) line += " (" + firstBadPictureTimecode + ")";
    line += " is the first bad one";
    separator = "; ";
  }
  if (firstBadSoundFrame >= 0) {
    char seconds[32] = "";
    if (soundRate) snprintf(seconds, sizeof seconds, "%.3f s", static_cast<double>(firstBadSoundFrame) / soundRate);
    std::string where = seconds;
    if (!firstBadSoundTimecode.empty()) where += (where.empty() ? "" : ", ") + firstBadSoundTimecode;
    line += separator + std::string("sound from sample frame ") + std::to_string(firstBadSoundFrame);
    if (!where.empty()) line += " (" + where + ")";
    separator = "; ";
  }
  line += separator + Count(badPictures, "picture", "pictures") + " and " +
          Count(badSoundPackets, "sound packet", "sound packets") + " differ";
  if (strayLines) line += ", and " + Count(strayLines, "line names a stream", "lines name streams") + " the movie does not have";
  return line;
}

long TakeVerifier::Verify(const std::string& moviePath, VerifyResult& result, std::string& failure) {
  result = VerifyResult();
  result.movie = FileName(moviePath);
  failure.clear();
  const std::string refusal = "cannot verify " + moviePath + ": ";
  LockedMovie movie;
  if (long rc = movie.Take(moviePath, refusal, result, failure)) return rc;
  TakePackets take;
  if (long rc = ReadPackets(moviePath, refusal, take, failure)) return rc;
  // The sidecar is read before the movie: a check without one would read the take for nothing.
  const std::string sidecarPath = FrameHashSidecarPath(moviePath);
  FrameHashFile sidecar;
  if (long rc = sidecar.Read(sidecarPath)) {
    failure = refusal + (rc == ENOENT ? "it has no sidecar " + FileName(sidecarPath) +
                                            " (make one with kestrin-capture verify --write)"
                         : rc == EBADMSG ? "its sidecar " + FileName(sidecarPath) + " is not a frame-hash file (see the line above)"
                                         : "its sidecar " + FileName(sidecarPath) + " cannot be read: " +
                                               strerror(static_cast<int>(rc)));
    return rc;
  }
  std::vector<FrameHashLine> lines;
  if (long rc = HashTake(moviePath, refusal, take, lines, result, failure)) return rc;
  MovieSummary summary;
  summary.Read(moviePath);  // for the timecodes the line names; without it, none
  Compare(take, lines, sidecar, summary, result);
  return 0;
}

long TakeVerifier::WriteSidecar(const std::string& moviePath, VerifyResult& result, std::string& failure) {
  result = VerifyResult();
  result.movie = FileName(moviePath);
  failure.clear();
  const std::string refusal = "cannot write the sidecar of " + moviePath + ": ";
  const std::string sidecarPath = FrameHashSidecarPath(moviePath);
  LockedMovie movie;
  if (long rc = movie.Take(moviePath, refusal, result, failure)) return rc;
  struct stat info;
  if (lstat(sidecarPath.c_str(), &info) == 0) {
    failure = refusal + "it has one already, " + FileName(sidecarPath) + " (kestrin-capture verify checks the movie against it)";
    return EEXIST;
  }
  TakePackets take;
  std::vector<FrameHashLine> lines;
  if (long rc = ReadPackets(moviePath, refusal, take, failure)) return rc;
  if (long rc = HashTake(moviePath, refusal, take, lines, result, failure)) return rc;
  FrameHashFile sidecar;
  sidecar.header = kFrameHashFormatLines;
  for (const TakePackets::Stream& stream : take.streams) {
    sidecar.header += FrameHashStreamLines(stream.index, 1, static_cast<int>(stream.timescale), stream.picture);
  }
  sidecar.header += kFrameHashColumnsLine;
  sidecar.lines = std::move(lines);
  if (long rc = sidecar.Write(sidecarPath)) {
    failure = refusal + strerror(static_cast<int>(rc));
    return rc;
  }
  return 0;
}

}  // namespace KTN
