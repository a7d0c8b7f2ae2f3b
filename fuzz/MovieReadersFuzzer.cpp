// Reads arbitrary bytes as a movie the way the host program does: whole (a take handed to
// repair or summarised), and as a take that grows while it is followed.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

#include <string>

#include "Movie/MovieFollower.h"
#include "Movie/MovieSummary.h"
#include "fuzz/FuzzScratch.h"

namespace {

bool WriteFile(const std::string& path, const uint8_t* data, size_t size, const char* mode) {
  FILE* file = fopen(path.c_str(), mode);
  if (!file) return false;
  bool written = fwrite(data, 1, size, file) == size;
  return fclose(file) == 0 && written;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = KTN::FuzzScratchFolder("ktn-fuzz-movie") + "/take.mov";
  // The first part is the take so far; the rest is what the writer appends next.
  const size_t first = size / 2;
  if (!WriteFile(path, data, first, "wb")) return 0;
  {
    KTN::MovieFollower follower(path);
    follower.Update();
    // A growing take rewrites the last picture's duration in place: the follower reads it again.
    follower.Update();
    if (WriteFile(path, data + first, size - first, "ab")) follower.Update();
  }
  KTN::MovieSummary summary;
  summary.Read(path);
  unlink(path.c_str());
  return 0;
}
