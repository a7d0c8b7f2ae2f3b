// QTRecordServer: the recording server the plug-in launches; commands on stdin, answers on stdout.
#include <signal.h>
#include <sys/resource.h>
#include <stdlib.h>
#include <string.h>

extern "C" {
#include <libavutil/log.h>
}

#include "Server/MovieRecordServer.h"
#include "Util/Log.h"

namespace {

// Reads the test and diagnostic knobs; the plug-in starts the server without arguments.
bool ParseOptions(int argc, char** argv, KTN::ServerOptions& options) {
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--backlog-bytes") == 0 && i + 1 < argc) {
      options.backlogBytes = strtoull(argv[++i], nullptr, 10);
    } else if (strcmp(argv[i], "--write-delay-ms") == 0 && i + 1 < argc) {
      options.writeDelayMillis = static_cast<unsigned>(strtoul(argv[++i], nullptr, 10));
    } else if (strcmp(argv[i], "--cache-window-bytes") == 0 && i + 1 < argc) {
      options.cacheWindowBytes = strtoull(argv[++i], nullptr, 10);
    } else if (strcmp(argv[i], "--no-frame-hash") == 0) {
      options.frameHashes = false;
    } else if (strcmp(argv[i], "--no-measure") == 0) {
      options.measurement = false;
    } else {
      KTN_LOG("Unknown option %s (known: --backlog-bytes N, --write-delay-ms N, --cache-window-bytes N, --no-frame-hash, --no-measure)",
              argv[i]);
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  KTN::ServerOptions options;
  if (!ParseOptions(argc, argv, options)) return 2;
  // The host's terminal sends Ctrl-C (and Ctrl-\, and a hang-up) to every process of its
  // foreground group, this one included: the host decides when a take ends, and the
  // server ends when its input closes, once the movie is finished.
  signal(SIGINT, SIG_IGN);
  signal(SIGQUIT, SIG_IGN);
  signal(SIGHUP, SIG_IGN);
  // The plug-in may die at any moment: a failed acknowledgement must end the loop and let
  // the movie be finished, not kill this process.
  signal(SIGPIPE, SIG_IGN);
  // A file-size limit set on this process makes the write that meets it fail (EFBIG) and
  // the recording end with that error, instead of killing the server mid-fragment.
  signal(SIGXFSZ, SIG_IGN);
  // Every segment waiting in the backlog holds a descriptor: a backlog of small frames and
  // their sound can hold more than the usual soft limit of them.
  struct rlimit files;
  if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < files.rlim_max) {
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
  }
  av_log_set_level(AV_LOG_ERROR);
  KTN::MovieRecordServer server(options);
  server.Init(stdin, stdout);
  long rc = server.Run();
  // After "Exit" as after the end of the input: nothing handed over is lost.
  server.InputEnded();
  return rc == 0 ? 0 : 1;
}
