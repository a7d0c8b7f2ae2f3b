// A record module for the host's tests: answers the selectors without a card or a server, and reports the texts a test gives it.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "HostAPI/HostInterface.h"

namespace KTN {

// Its entry point stands in for the plug-in's RecEntry (PluginHost::UseEntryPoint). It
// opens one instance, keeps the host's callback identifier and status callback, and each
// service call reports the next of the scripted texts with a count of calls so far (the last
// text again once they are used up); a stop makes the closing call without text. Selectors it
// does not know answer 1. One module per process; main thread only.
class FakeRecordModule {
 public:
  // The texts the next service calls report, in turn, from the first.
  static void Script(std::vector<std::string> texts);
  static int32_t RecEntry(int32_t selector, rmStdParms* stdParms, void* param1, intptr_t param2);
};

}  // namespace KTN
