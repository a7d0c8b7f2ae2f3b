// The editor's side of the record-module interface: loads a plug-in bundle and offers it the
// host's memory functions, SP Basic and suites.
#pragma once

#include <stdint.h>

#include <string>

#include "HostAPI/HostInterface.h"

namespace KTN {

// One loaded record module. Calls run on the thread that makes them (the host's main thread).
class PluginHost {
 public:
  PluginHost();
  // The library stays loaded: a record module may leave threads or callbacks behind.
  ~PluginHost() = default;

  PluginHost(const PluginHost&) = delete;
  PluginHost& operator=(const PluginHost&) = delete;

  // The bundle beside this program (build/KestrinCapture.bundle), or an installed program's
  // (lib/kestrin-capture/KestrinCapture.bundle): see BundleLocation.
  static std::string DefaultBundlePath();

  // Loads <bundlePath>/Contents/Linux/KestrinCapture.so and finds RecEntry. Returns an empty
  // string, or what went wrong in one line.
  std::string Load(const std::string& bundlePath);

  // Drives a record module linked into this program instead of a loaded bundle.
  void UseEntryPoint(RecEntryFunc entry) { mRecEntry = entry; }

  int32_t Call(int32_t selector, void* param1, intptr_t param2);

  rmStdParms* StdParms() { return &mStdParms; }

  // The host's main window that the window suite hands out (borrowed; null by default).
  static void SetMainWindow(void* window);

  // Blocks the module has allocated through the memory functions and not freed.
  static long OutstandingBlocks();
  // Suites acquired and not released.
  static long OutstandingSuites();

 private:
  RecEntryFunc mRecEntry = nullptr;
  recMemoryFuncs mMemory;
  recUtilityFuncs mUtility;
  recFuncs mFuncs;
  piSuites mSuites;
  rmStdParms mStdParms;
};

}  // namespace KTN
