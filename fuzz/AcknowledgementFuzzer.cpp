// Feeds arbitrary bytes to the plug-in's side of the link as the server's answers.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "IPC/QTRecordClientIPC.h"
#include "IPC/RecorderCommands.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  FILE* answers = fmemopen(const_cast<uint8_t*>(data), size, "r");
  FILE* commands = fopen("/dev/null", "w");
  if (answers && commands) {
    KTN::QTRecordClientIPC client;
    client.Init(answers, commands);
    // A whole recording's exchanges, until the answers run out (5 from then on).
    for (int round = 0; round < 64; ++round) {
      long rc = round % 8 == 0   ? client.Begin()
                : round % 8 == 1 ? client.SetVideoWidth(1920)
                : round % 8 == 2 ? client.SetFilePath("/tmp/take.mov")
                : round % 8 == 3 ? client.Prepare()
                : round % 8 == 4 ? client.MapVideo(5529600)
                : round % 8 == 5 ? client.MapAudio(9600)
                : round % 8 == 6 ? client.GetCodecManufacturer(0x32767579)
                                 : client.Stop();
      if (rc == 5 && feof(answers)) break;
    }
  }
  if (answers) fclose(answers);
  if (commands) fclose(commands);
  return 0;
}
