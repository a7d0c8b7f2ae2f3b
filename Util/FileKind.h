// What kind of file a mode names, in the words of a failure line.
#pragma once

#include <sys/stat.h>

namespace KTN {
namespace Util {

// "a regular file", "a folder", "a FIFO", "a character device", "a block device", "a
// socket", "a symbolic link" or "a file of an unknown kind", from a stat mode.
inline const char* FileKind(mode_t mode) {
  if (S_ISREG(mode)) return "a regular file";
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISCHR(mode)) return "a character device";
  if (S_ISBLK(mode)) return "a block device";
  if (S_ISSOCK(mode)) return "a socket";
  if (S_ISLNK(mode)) return "a symbolic link";
  return "a file of an unknown kind";
}

}  // namespace Util
}  // namespace KTN
