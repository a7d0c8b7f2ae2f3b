// The selectors that need no capture instance: audio format, setup information, module information.
#include <string.h>

#include "Record/RecordHandlers.h"
#include "Util/FourCC.h"
#include "Util/Log.h"

namespace KTN {

namespace {

// The module's class identifier, registered with the host.
const char kClassID[] = "5C9E2A71-3B84-4F0D-A6E2-8D1F47B0C935";
const char kDisplayName[] = "Kestrin Capture";

}  // namespace

recMemoryFuncs* MemoryThroughFuncs(rmStdParms* stdParms) {
  return stdParms && stdParms->funcs ? stdParms->funcs->memoryFuncs : nullptr;
}

recMemoryFuncs* MemoryThroughSuites(rmStdParms* stdParms) {
  return stdParms && stdParms->suites ? stdParms->suites->memoryFuncs : nullptr;
}

SPBasicSuite* BasicSuite(rmStdParms* stdParms) {
  if (!stdParms || !stdParms->suites || !stdParms->suites->utilityFuncs ||
      !stdParms->suites->utilityFuncs->getSPBasicSuite) {
    return nullptr;
  }
  return stdParms->suites->utilityFuncs->getSPBasicSuite();
}

int32_t recGetAudioIndFormat(rmStdParms* stdParms, recAudioInfoRec* info, int32_t index) {
  if (index != 0) return rmNoMoreFormats;
  if (!info) return rmBadParameter;
  info->subtype = Util::FourCC("RAW ");
  recMemoryFuncs* memory = MemoryThroughFuncs(stdParms);
  const unsigned long kBufferBytes = 8;
  uint32_t* buffer = memory && memory->allocate ? static_cast<uint32_t*>(memory->allocate(kBufferBytes)) : nullptr;
  info->formatBuffer = buffer;
  if (!buffer) {
    KTN_LOG("Failed to allocate %lu byte audio format buffer", kBufferBytes);
    return rmOutOfMemory;
  }
  // Only one format is ever offered: 48000 Hz, whatever the settings say.
  buffer[0] = 8;
  buffer[1] = 48000;
  return rmNoErr;
}

int32_t recGetSetupInfo(recSetupInfo* info) {
  if (!info) return rmBadParameter;
  info->word0 = 1;
  info->word4 = 1;
  // "Settings…" in the host's Mac Roman text: 0xC9 is the ellipsis.
  const char label[10] = {'S', 'e', 't', 't', 'i', 'n', 'g', 's', static_cast<char>(0xC9), '\0'};
  memcpy(info->buttonLabel, label, sizeof label);
  return rmNoErr;
}

int32_t recStartup(recModuleInfo* info) {
  if (!info) return rmBadParameter;
  info->fileType = Util::FourCC("MooV");
  info->creator = Util::FourCC("KTNW");
  // Offsets 12 .. 64 of the module information, in order.
  const uint32_t words[14] = {1, 1, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 1};
  memcpy(info->words12, words, sizeof words);
  info->word68 = 1;
  info->word72 = 10;
  info->word76 = 0;
  info->word144 = 1;
  info->word156 = 0;
  info->word160 = 0;
  info->maxWidth = 2048;
  info->maxHeight = 1556;
  info->aspectNumerator = 1000;
  info->aspectDenominator = 1000;
  info->defaultWidth = 640;
  info->defaultHeight = 480;
  memset(info->displayName, 0, sizeof info->displayName);
  for (size_t i = 0; i < sizeof kDisplayName - 1; ++i) info->displayName[i] = static_cast<uint16_t>(kDisplayName[i]);
  info->word696 = 0;
  info->word700 = 0;
  info->word704 = 0;
  memcpy(info->classID, kClassID, sizeof kClassID);
  return rmNoErr;
}

}  // namespace KTN
