// Reads and rewrites a frame-hash sidecar whole.
#include "FrameHash/FrameHashFile.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Movie/MovieLock.h"
#include "Util/FileIo.h"
#include "Util/Log.h"

namespace KTN {

long FrameHashFile::Read(const std::string& path) {
  header.clear();
  lines.clear();
  torn = false;
  // Only a regular file is opened: a FIFO or device there is not touched.
  long error = 0;
  int fd = MovieLock::OpenRegular(path, O_RDONLY, error, false);
  if (fd < 0) {
    if (error == EINVAL) {
      KTN_LOG("%s is not a regular file", path.c_str());
    } else if (error != ENOENT) {
      KTN_LOG("open(%s) failed with errno %ld (%s)", path.c_str(), error, strerror(static_cast<int>(error)));
    }
    return error;
  }
  struct stat info;
  std::string text;
  long rc = 0;
  if (fstat(fd, &info) != 0) {
    rc = errno;
    KTN_LOG("fstat(%s) failed with errno %ld (%s)", path.c_str(), rc, strerror(errno));
  } else {
    text.resize(static_cast<size_t>(info.st_size));
    size_t got = 0;
    rc = Util::FileIo::ReadAll(fd, &text[0], text.size(), 0, &got);
    if (rc == ENODATA) {  // shorter than it was a moment ago: what is there
      text.resize(got);
      rc = 0;
    }
    if (rc) KTN_LOG("pread(%s) failed with errno %ld (%s)", path.c_str(), rc, strerror(static_cast<int>(rc)));
  }
  close(fd);
  if (rc) return rc;

  size_t at = 0, number = 0;
  while (at < text.size()) {
    size_t end = text.find('\n', at);
    if (end == std::string::npos) {
      torn = true;  // cut off while it was written
      break;
    }
    ++number;
    if (text[at] == '#') {
      header.append(text, at, end + 1 - at);
    } else if (end > at) {
      FrameHashLine line;
      if (!line.Parse(text.data() + at, end - at)) {
        KTN_LOG("%s: line %zu is not a packet's line of a frame-hash file", path.c_str(), number);
        return EBADMSG;
      }
      lines.push_back(line);
    }
    at = end + 1;
  }
  return 0;
}

long FrameHashFile::Write(const std::string& path) const {
  std::string text = header;
  text.reserve(header.size() + lines.size() * 80);
  char line[FrameHashLine::kMaxText];
  for (const FrameHashLine& packet : lines) text.append(line, packet.Format(line));
  const std::string fresh = path + ".new";
  int fd = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) {
    long error = errno;
    KTN_LOG("open(%s) failed with errno %ld (%s)", fresh.c_str(), error, strerror(errno));
    return error;
  }
  const char* call = "write";
  long rc = Util::FileIo::WriteAll(fd, text.data(), text.size());
  if (!rc && fsync(fd) != 0) {
    call = "fsync";
    rc = errno;
  }
  if (close(fd) != 0 && !rc) {
    call = "close";
    rc = errno;
  }
  if (!rc && rename(fresh.c_str(), path.c_str()) != 0) {
    call = "rename";
    rc = errno;
  }
  if (rc) {
    KTN_LOG("%s(%s) failed with errno %ld (%s)", call, fresh.c_str(), rc, strerror(static_cast<int>(rc)));
    unlink(fresh.c_str());
  }
  return rc;
}

std::vector<FrameHashLine> FrameHashFile::Stream(int stream) const {
  std::vector<FrameHashLine> chosen;
  for (const FrameHashLine& line : lines) {
    if (line.stream == stream) chosen.push_back(line);
  }
  return chosen;
}

}  // namespace KTN
