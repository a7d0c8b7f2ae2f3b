// What the movie of a take that has ended holds, and the command that completes it.
#include "Host/KeptMovie.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include "Movie/MovieSummary.h"

namespace KTN {

namespace {

// path as one word for a POSIX shell, so that the command can be pasted as it is shown.
std::string ShellQuoted(const std::string& path) {
  std::string quoted = "'";
  for (char c : path) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

std::string Frames(uint64_t count) {
  return std::to_string(count) + (count == 1 ? " frame" : " frames");
}

// The folder of an absolute path ("/" for a file at the root).
std::string FolderOf(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

}  // namespace

KeptMovie::KeptMovie(const std::string& moviePath, const std::string& startTimecode)
    : mPath(moviePath), mStartTimecode(startTimecode) {}

std::string KeptMovie::RepairCommand() const {
  const std::string timecode = mStartTimecode.empty() ? std::string() : "--timecode '" + mStartTimecode + "' ";
  return "kestrin-capture repair " + timecode + ShellQuoted(mPath);
}

std::string KeptMovie::WhatIsKept(bool alwaysRepair) const {
  struct stat info;
  if (stat(mPath.c_str(), &info) != 0) return "no movie was written";
  MovieSummary summary;
  if (summary.Read(mPath) != 0) return "the movie cannot be read";
  if (summary.layout == MovieSummary::Layout::kNotAMovie || summary.pictures == 0) return "the movie holds no frame";
  if (alwaysRepair) return "the movie was kept and holds " + Frames(summary.pictures) + "; " + RepairCommand() + " completes it";
  std::string kept = "the movie holds " + Frames(summary.pictures);
  if (summary.layout == MovieSummary::Layout::kFinished) return kept;
  return kept + "; " + RepairCommand() + " finishes it";
}

std::string KeptMovie::Incomplete() const {
  struct stat info;
  if (stat(mPath.c_str(), &info) != 0) {
    const int error = errno;
    const std::string folder = FolderOf(mPath);
    if (error == ENOENT && stat(folder.c_str(), &info) != 0) {
      return "the take is lost: its folder " + folder + " was removed while it was recorded";
    }
    if (error == ENOENT) return "the take is lost: " + mPath + " was removed while it was recorded";
    return "the movie cannot be read: " + std::string(strerror(error));
  }
  MovieSummary summary;
  if (long rc = summary.Read(mPath)) return "the movie cannot be read: " + std::string(strerror(static_cast<int>(rc)));
  if (summary.layout == MovieSummary::Layout::kNotAMovie) return "the movie was not written: it has no movie header";
  if (summary.layout != MovieSummary::Layout::kFinished) {
    return "the take was not finished: the movie holds " + Frames(summary.pictures) + "; " + RepairCommand() + " finishes it";
  }
  if (!mStartTimecode.empty() && summary.pictures > 0 && !summary.hasTimecode) {
    return "the take's timecode could not be written: the movie holds " + Frames(summary.pictures) + "; " +
           RepairCommand() + " adds it";
  }
  return std::string();
}

}  // namespace KTN
