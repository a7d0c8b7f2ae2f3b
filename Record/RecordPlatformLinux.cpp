// The record module's platform services on Linux: dladdr, iconv and the movie file made under its lock.
#include <dlfcn.h>
#include <errno.h>
#include <iconv.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "HostAPI/HostInterface.h"
#include "Movie/MovieLock.h"
#include "Record/RecordPlatform.h"
#include "Util/Log.h"

namespace KTN {

namespace {

const char* sServerPathForTesting = nullptr;

}  // namespace

// Nothing to collect on this platform: objects here are not autoreleased.
AutoreleaseScope::AutoreleaseScope() {}
AutoreleaseScope::~AutoreleaseScope() {}

void SetRecordServerPathForTesting(const char* path) {
  sServerPathForTesting = path;
}

std::string RecordServerPath() {
  if (sServerPathForTesting) return sServerPathForTesting;
  // The library this function lives in: <bundle>/Contents/Linux/KestrinCapture.so.
  Dl_info info;
  if (!dladdr(reinterpret_cast<void*>(&RecEntry), &info) || !info.dli_fname) {
    KTN_LOG("dladdr found no library for RecEntry");
    return std::string();
  }
  char resolved[PATH_MAX];
  if (!realpath(info.dli_fname, resolved)) {
    KTN_LOG("realpath(%s) failed with errno %ld (%s)", info.dli_fname, static_cast<long>(errno), strerror(errno));
    return std::string();
  }
  std::string library = resolved;
  size_t linuxFolder = library.rfind('/');
  size_t contents = linuxFolder == std::string::npos ? std::string::npos : library.rfind('/', linuxFolder - 1);
  if (contents == std::string::npos) return std::string();
  return library.substr(0, contents) + "/Resources/QTRecordServer";
}

bool Utf16ToUtf8(const uint16_t* text, int maxUnits, std::string& utf8) {
  int units = 0;
  while (units < maxUnits && text[units]) ++units;
  if (units == maxUnits) return false;
  iconv_t converter = iconv_open("UTF-8", "UTF-16LE");
  if (converter == reinterpret_cast<iconv_t>(-1)) {
    KTN_LOG("iconv_open(UTF-8, UTF-16LE) failed with errno %ld (%s)", static_cast<long>(errno), strerror(errno));
    return false;
  }
  // Each UTF-16 unit becomes at most three bytes of UTF-8.
  std::string out(static_cast<size_t>(units) * 3 + 1, '\0');
  char* in = const_cast<char*>(reinterpret_cast<const char*>(text));
  size_t inLeft = static_cast<size_t>(units) * 2;
  char* outPointer = &out[0];
  size_t outLeft = out.size();
  size_t rc = iconv(converter, &in, &inLeft, &outPointer, &outLeft);
  iconv_close(converter);
  if (rc == static_cast<size_t>(-1)) return false;
  out.resize(out.size() - outLeft);
  utf8 = out;
  return true;
}

long CreateEmptyFile(const char* path) {
  long error = 0;
  int fd = MovieLock::CreateEmptied(path, error);
  if (fd < 0) return error;
  close(fd);  // and with it the lock: the recording server takes it for the take
  return 0;
}

}  // namespace KTN
