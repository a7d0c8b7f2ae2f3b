// A finished take checked against its frame hashes, in the host program's terms.
#include "Host/TakeVerification.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <fstream>

#include "FrameHash/TakeVerifier.h"
#include "Host/VerifyCommand.h"
#include "Movie/MovieLock.h"
#include "Movie/MovieSidecars.h"
#include "Signal/FlatObject.h"
#include "Util/FileIo.h"
#include "Util/JsonWriter.h"
#include "Util/Log.h"

namespace KTN {

namespace {

struct ResultEntry {
  TakeVerification::Result result;
  const char* name;
};

constexpr ResultEntry kResultNames[] = {
    {TakeVerification::Result::kVerified, "verified"},
    {TakeVerification::Result::kDiffers, "differs"},
    {TakeVerification::Result::kNotChecked, "not-checked"},
};

std::string Now() {
  const time_t now = time(nullptr);
  struct tm local = {};
  char text[40] = "";
  if (localtime_r(&now, &local)) strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local);
  return text;
}

}  // namespace

TakeVerification TakeVerification::Of(const std::string& moviePath) {
  TakeVerification check;
  VerifyResult found;
  std::string failure;
  if (TakeVerifier::Verify(moviePath, found, failure) != 0) {
    check.result = Result::kNotChecked;
    check.line = failure.empty() ? "cannot verify " + moviePath : failure;
  } else {
    check.result = found.Passed() ? Result::kVerified : Result::kDiffers;
    check.line = found.Describe();
  }
  check.checkedAt = Now();
  check.Keep(moviePath, found.movieBytes, found.movieModified);
  return check;
}

long TakeVerification::Keep(const std::string& moviePath, int64_t bytes, int64_t modified) {
  // Only the outcome of a movie that is there and finished is kept: a path of nothing, or a
  // take still being recorded, was never opened by the check and gets no sidecar of it.
  if (bytes < 0) return 0;
  long error = 0;
  const char* name = ResultName();
  // The sidecar's reader takes no escaped control characters: its strings are kept flat.
  Util::JsonWriter json;
  json.BeginObject();
  json.Key("result").String(name);
  json.Key("line").String(FlatObject::Flat(line));
  json.Key("checked").String(FlatObject::Flat(checkedAt));
  json.Key("bytes").Integer(bytes);
  json.Key("modified").Integer(modified);
  const std::string text = json.EndObject().Text() + "\n";
  const std::string path = MovieSidecars::Verification(moviePath);
  int fd = MovieLock::OpenRegular(path, O_WRONLY | O_CREAT | O_TRUNC, error);
  if (fd < 0) return error;
  long rc = Util::FileIo::WriteAll(fd, text.data(), text.size());
  if (rc) KTN_LOG("write(%s) failed with errno %ld (%s)", path.c_str(), rc, strerror(static_cast<int>(rc)));
  close(fd);
  return rc;
}

bool TakeVerification::Last(const std::string& moviePath, TakeVerification* last) {
  std::ifstream file(MovieSidecars::Verification(moviePath));
  std::string text;
  if (!file || !std::getline(file, text)) return false;
  FlatObject object;
  if (!object.Read(text) || !object.numbers.count("bytes") || !object.numbers.count("modified")) return false;
  // The movie as it is now must be the one that was checked.
  struct stat movie = {};
  if (stat(moviePath.c_str(), &movie) != 0 || !S_ISREG(movie.st_mode) ||
      object.Number("bytes") != static_cast<long long>(movie.st_size) ||
      object.Number("modified") != static_cast<long long>(movie.st_mtime)) {
    return false;
  }
  TakeVerification read;
  bool named = false;
  for (const ResultEntry& entry : kResultNames) {
    if (object.String("result") == entry.name) read.result = entry.result, named = true;
  }
  if (!named) return false;
  read.line = object.String("line");
  read.checkedAt = object.String("checked");
  *last = read;
  return true;
}

const char* TakeVerification::ResultName() const {
  for (const ResultEntry& entry : kResultNames) {
    if (entry.result == result) return entry.name;
  }
  return "not-checked";
}

void TakeVerification::WriteJson(Util::JsonWriter& json) const {
  json.BeginObject();
  json.Key("result").String(ResultName());
  json.Key("passed").Bool(result == Result::kVerified);
  json.Key("line").String(line);
  // RFC 3339, as scripts' date parsers read it: the sidecar's "+0100" as "+01:00".
  std::string when = checkedAt;
  const size_t zone = when.size() >= 5 ? when.size() - 5 : std::string::npos;
  if (zone != std::string::npos && (when[zone] == '+' || when[zone] == '-') &&
      when.find_first_not_of("0123456789", zone + 1) == std::string::npos) {
    when.insert(when.size() - 2, ":");
  }
  json.Key("checked").StringOrNull(when);
  json.EndObject();
}

int TakeVerification::ExitStatus() const {
  switch (result) {
    case Result::kVerified:
      return 0;
    case Result::kDiffers:
      return 1;
    case Result::kNotChecked:
      break;
  }
  return kVerifyCouldNotCheck;
}

int TakeVerification::Report() const {
  if (result == Result::kVerified) {
    printf("%s\n", line.c_str());
  } else {
    fprintf(stderr, "kestrin-capture: %s\n", line.c_str());
  }
  return ExitStatus();
}

std::string TakeVerification::Sentence() const {
  std::string sentence = line;
  if (!sentence.empty()) sentence[0] = static_cast<char>(toupper(static_cast<unsigned char>(sentence[0])));
  if (result == Result::kVerified && sentence.compare(0, 8, "Verified") != 0) sentence = "Verified: " + sentence;
  return sentence;
}

}  // namespace KTN
