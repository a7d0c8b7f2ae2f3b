// A record module for the host's tests, reporting the texts a test gives it.
#include "Host/FakeRecordModule.h"

namespace KTN {

namespace {

struct Module {
  int instance = 0;  // the opened instance's address is all the host sees of it
  int64_t callbackID = 0;
  StatusFunc statusFunc = nullptr;
  std::vector<std::string> texts;
  size_t next = 0;
  int64_t calls = 0;
};
Module sModule;

}  // namespace

void FakeRecordModule::Script(std::vector<std::string> texts) {
  sModule.texts = std::move(texts);
  sModule.next = 0;
}

int32_t FakeRecordModule::RecEntry(int32_t selector, rmStdParms*, void* param1, intptr_t param2) {
  switch (selector) {
    case recmod_Startup:
    case recmod_GetSetupInfo:
    case recmod_Close:
    case recmod_SetActive:
    case recmod_StartRecord:
    case recmod_CloseRecord:
      return rmNoErr;
    case recmod_Open:
      *static_cast<void**>(param1) = &sModule.instance;
      sModule.callbackID = reinterpret_cast<recOpenParms*>(param2)->callbackID;
      return rmNoErr;
    case recmod_PrepRecord8:
      sModule.statusFunc = reinterpret_cast<recCapParmsRec8*>(param2)->statusFunc;
      sModule.calls = 0;
      return rmNoErr;
    case recmod_ServiceRecord: {
      if (sModule.texts.empty()) return rmNoErr;
      const std::string& text = sModule.texts[sModule.next];
      if (sModule.next + 1 < sModule.texts.size()) ++sModule.next;
      return sModule.statusFunc(sModule.callbackID, text.c_str(), ++sModule.calls);
    }
    case recmod_StopRecord:
      return sModule.statusFunc ? sModule.statusFunc(sModule.callbackID, nullptr, 0) : rmNoErr;
    default:
      return 1;
  }
}

}  // namespace KTN
