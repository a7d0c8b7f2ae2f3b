// A stand-in recording server for process tests: answers every command, writes nothing but
// its working directory, into the file that SetFilePath names. "MapAudio N" answers only
// after N milliseconds, as a server busy with its disk would.
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
};

}  // namespace

int main() {
  FakeRecordServer server;
  server.Init(stdin, stdout);
  return server.Run() == 0 ? 0 : 1;
}
