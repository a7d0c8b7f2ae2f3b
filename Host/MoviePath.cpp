// Movie paths: made absolute, and checked for a folder a movie can be written in.
#include "Host/MoviePath.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Movie/MovieLock.h"
#include "Util/FileKind.h"

namespace KTN {

bool MoviePath::MakeAbsolute(std::string& path, std::string* problem) {
  if (path.empty() || path[0] == '/') return true;
  char cwd[4096];
  if (!getcwd(cwd, sizeof cwd)) {
    if (problem) *problem = "cannot tell the current folder for " + path + ": " + strerror(errno);
    return false;
  }
  path = std::string(cwd) + "/" + path;
  return true;
}

std::string MoviePath::Problem(const std::string& path) {
  if (path.empty()) return "no movie path was given";
  if (path.find_first_of("\n\r") != std::string::npos) return "a movie path cannot hold a line break";
  struct stat info;
  if (stat(path.c_str(), &info) == 0) {
    if (S_ISDIR(info.st_mode)) return "it is a folder";
    if (!S_ISREG(info.st_mode)) return std::string("it is ") + Util::FileKind(info.st_mode) + ", not a regular file";
    std::string writer = MovieLock::Holder(path);
    if (!writer.empty()) return "it is being written by " + writer;
  }
  std::string folder = path.substr(0, path.rfind('/'));
  if (folder.empty()) folder = "/";
  if (stat(folder.c_str(), &info) != 0) return "there is no folder " + folder;
  if (!S_ISDIR(info.st_mode)) return folder + " is not a folder";
  if (access(folder.c_str(), W_OK) != 0) return std::string("cannot write in ") + folder + ": " + strerror(errno);
  return "";
}

bool MoviePath::Exists(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

}  // namespace KTN
