// RecEntry: the record module's one exported entry point and its table of selectors.
#include "HostAPI/HostInterface.h"
#include "Record/RecordHandlers.h"
#include "Record/RecordPlatform.h"

namespace KTN {

namespace {

typedef int32_t (*SelectorHandler)(rmStdParms* stdParms, void* param1, intptr_t param2);

CapPriv* Instance(void* param1) {
  return static_cast<CapPriv*>(param1);
}

template <typename T>
T* Record(intptr_t param2) {
  return reinterpret_cast<T*>(param2);
}

int32_t Unsupported(rmStdParms*, void*, intptr_t) { return rmUnsupported; }
int32_t Nothing(rmStdParms*, void*, intptr_t) { return rmNoErr; }

// Selectors 0 to 28; a null entry is a hole (unsupported).
const SelectorHandler kSelectors[recmod_SelectorCount] = {
    /* 0 */ Unsupported,
    /* 1 */ Nothing,
    /* 2 */ [](rmStdParms* s, void* p1, intptr_t p2) { return recOpen(s, static_cast<CapPriv**>(p1), Record<recOpenParms>(p2)); },
    /* 3 */ [](rmStdParms* s, void* p1, intptr_t) { return recClose(s, Instance(p1)); },
    /* 4 */ Unsupported,
    /* 5 */ [](rmStdParms*, void* p1, intptr_t p2) { return recStartRecord(Instance(p1), Record<recStartReply>(p2)); },
    /* 6 */ [](rmStdParms*, void* p1, intptr_t) { return recServiceRecord(Instance(p1)); },
    /* 7 */ [](rmStdParms*, void* p1, intptr_t) { return recStopRecord(Instance(p1)); },
    /* 8 */ [](rmStdParms*, void* p1, intptr_t) { return recCloseRecord(Instance(p1)); },
    /* 9 */ Unsupported,
    /* 10 */ Unsupported,
    /* 11 */ [](rmStdParms* s, void* p1, intptr_t p2) { return recShowOptions(s, Instance(p1), Record<recSetupParms>(p2)); },
    /* 12 */ [](rmStdParms*, void* p1, intptr_t p2) { return recSetActive(Instance(p1), static_cast<long>(p2)); },
    /* 13 */ [](rmStdParms* s, void* p1, intptr_t p2) {
      return recGetAudioIndFormat(s, static_cast<recAudioInfoRec*>(p1), static_cast<int32_t>(p2));
    },
    /* 14 */ Nothing,
    /* 15 */ [](rmStdParms*, void* p1, intptr_t p2) { return recSetDisplay(Instance(p1), Record<pmDisplayPos>(p2)); },
    /* 16 */ Unsupported,
    /* 17 */ Unsupported,
    /* 18 */ Unsupported,
    /* 19 */ [](rmStdParms*, void*, intptr_t p2) { return recGetSetupInfo(Record<recSetupInfo>(p2)); },
    /* 20 */ Unsupported,
    /* 21 */ Unsupported,
    /* 22 */ Unsupported,
    /* 23 */ Unsupported,
    /* 24 */ Unsupported,
    /* 25 */ Unsupported,
    /* 26 */ [](rmStdParms*, void* p1, intptr_t) { return recStartup(static_cast<recModuleInfo*>(p1)); },
    /* 27 */ Unsupported,
    /* 28 */ [](rmStdParms*, void* p1, intptr_t p2) { return recPrepRecord8(Instance(p1), Record<recCapParmsRec8>(p2)); },
};

}  // namespace

}  // namespace KTN

extern "C" __attribute__((visibility("default"))) int32_t RecEntry(int32_t selector, rmStdParms* stdParms, void* param1,
                                                                   intptr_t param2) {
  KTN::AutoreleaseScope pool;
  if (selector < 0 || selector >= recmod_SelectorCount || !KTN::kSelectors[selector]) return rmUnsupported;
  return KTN::kSelectors[selector](stdParms, param1, param2);
}
