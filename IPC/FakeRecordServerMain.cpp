// A stand-in recording server for process tests: answers every command, writes nothing but
// its working directory, into the file that SetFilePath names. "MapAudio N" answers only
// after N milliseconds, as a server busy with its disk would. Given a path ending in
// ".observe", it writes instead, once its loop has ended, how it ended and what its client
// had done with the pipes a moment later.
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "IPC/QTRecordServerIPC.h"
#include "Util/FourCC.h"

namespace {

class FakeRecordServer : public KTN::QTRecordServerIPC {
 public:
  long GetCodecManufacturer(int codecType) override {
    return codecType == static_cast<int>(KTN::Util::FourCC("jpeg")) ? KTN::Util::FourCC("appl") : 0;
  }
  long Begin() override { return 0; }
  long SetVideoEnabled(bool) override { return 0; }
  long SetAudioEnabled(bool) override { return 0; }
  long SetFilePath(const char* path) override {
    std::string name = path;
    if (name.size() > 8 && name.compare(name.size() - 8, 8, ".observe") == 0) {
      mObserve = name;
      return 0;
    }
    char directory[4096];
    if (!getcwd(directory, sizeof directory)) return 5;
    FILE* file = fopen(path, "w");
    if (!file) return 2;
    fprintf(file, "%s", directory);
    fclose(file);
    return 0;
  }
  long Prepare() override { return 0; }
  long MapVideo(unsigned long long) override { return 0; }
  long MapAudio(unsigned long long millis) override {
    std::this_thread::sleep_for(std::chrono::milliseconds(millis));
    return 0;
  }
  long SkipVideo(unsigned long long) override { return 0; }
  long Stop() override { return 0; }
  long InputEnded() override { return 0; }

  const std::string& ObservePath() const { return mObserve; }

 private:
  std::string mObserve;
};

// What the client had done with the two pipes: whether this end's input has ended and
// whether anybody still reads its answers.
void Observe(const std::string& path, long loopResult) {
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  struct pollfd input = {STDIN_FILENO, POLLIN, 0};
  bool inputEnded = false;
  if (poll(&input, 1, 0) > 0) {
    char byte;
    inputEnded = (input.revents & (POLLIN | POLLHUP)) && read(STDIN_FILENO, &byte, 1) == 0;
  }
  struct pollfd output = {STDOUT_FILENO, 0, 0};
  bool answersRead = !(poll(&output, 1, 0) > 0 && (output.revents & POLLERR));
  FILE* file = fopen(path.c_str(), "w");
  if (!file) return;
  fprintf(file, "loop %s, input %s, answers %s", loopResult == 0 ? "ended by Exit" : "ended by the input",
          inputEnded ? "ended" : "open", answersRead ? "read" : "no longer read");
  fclose(file);
}

}  // namespace

int main() {
  FakeRecordServer server;
  server.Init(stdin, stdout);
  long rc = server.Run();
  if (!server.ObservePath().empty()) Observe(server.ObservePath(), rc);
  return rc == 0 ? 0 : 1;
}
