// Feeds arbitrary bytes to the recording server's command loop, as a broken plug-in would.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

extern "C" {
#include <libavutil/log.h>
}

#include "Server/MovieRecordServer.h"
#include "fuzz/FuzzScratch.h"

namespace {

// The real server, except that every movie goes to one file in a scratch folder: the
// loop, the setters, Prepare, the segment checks, Stop and the writer all run for real.
class ScratchRecordServer : public KTN::MovieRecordServer {
 public:
  explicit ScratchRecordServer(const std::string& movie) : MovieRecordServer(KTN::ServerOptions{}), mMovie(movie) {}
  long SetFilePath(const char* path) override {
    (void)path;
    return MovieRecordServer::SetFilePath(mMovie.c_str());
  }

 private:
  std::string mMovie;
};

std::string ScratchMovie() {
  av_log_set_level(AV_LOG_QUIET);
  return KTN::FuzzScratchFolder("ktn-fuzz-server") + "/fuzz.mov";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string movie = ScratchMovie();
  FILE* commands = fmemopen(const_cast<uint8_t*>(data), size, "r");
  if (size == 0 || !commands) {
    if (commands) fclose(commands);
    return 0;
  }
  FILE* answers = fopen("/dev/null", "w");
  {
    ScratchRecordServer server(movie);
    server.Init(commands, answers);
    server.Run();
    server.InputEnded();
  }
  fclose(commands);
  fclose(answers);
  unlink(movie.c_str());
  return 0;
}
