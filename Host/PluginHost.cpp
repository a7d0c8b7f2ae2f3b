// The editor's side of the record-module interface.
#include "Host/PluginHost.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>

#include "Host/BundleLocation.h"

namespace KTN {

namespace {

std::atomic<long> sOutstandingBlocks{0};
std::atomic<long> sOutstandingSuites{0};
void* sMainWindow = nullptr;

void* Allocate(uint32_t size) {
  void* block = malloc(size ? size : 1);
  if (block) ++sOutstandingBlocks;
  return block;
}

void Dispose(void* block) {
  if (!block) return;
  --sOutstandingBlocks;
  free(block);
}

void* MainWindow() {
  return sMainWindow;
}

// The error suite's functions are not used by this module; the suite only has to exist.
struct ErrorSuite {
  int32_t (*setErrorString)(uint32_t, const char*, const char*);
};
int32_t SetErrorString(uint32_t, const char*, const char*) { return 0; }

const PremiereWindowSuite kWindowSuite = {MainWindow};
const ErrorSuite kErrorSuite = {SetErrorString};

int32_t AcquireSuite(const char* name, int32_t version, const void** suite) {
  if (!name || !suite) return -1;
  if (strcmp(name, "Premiere Window Suite") == 0 && version == 1) {
    *suite = &kWindowSuite;
  } else if (strcmp(name, "Premiere Error Suite") == 0 && version == 2) {
    *suite = &kErrorSuite;
  } else {
    *suite = nullptr;
    return -1;  // no such suite
  }
  ++sOutstandingSuites;
  return 0;
}

int32_t ReleaseSuite(const char*, int32_t) {
  --sOutstandingSuites;
  return 0;
}

SPBasicSuite sBasicSuite = {AcquireSuite, ReleaseSuite};

SPBasicSuite* GetSPBasicSuite() {
  return &sBasicSuite;
}

}  // namespace

PluginHost::PluginHost() {
  memset(&mMemory, 0, sizeof mMemory);
  memset(&mUtility, 0, sizeof mUtility);
  memset(&mFuncs, 0, sizeof mFuncs);
  memset(&mSuites, 0, sizeof mSuites);
  mMemory.allocate = Allocate;
  mMemory.dispose = Dispose;
  mUtility.getSPBasicSuite = GetSPBasicSuite;
  mFuncs.memoryFuncs = &mMemory;
  mSuites.memoryFuncs = &mMemory;
  mSuites.utilityFuncs = &mUtility;
  mStdParms.interfaceVersion = 8;
  mStdParms.funcs = &mFuncs;
  mStdParms.suites = &mSuites;
}

std::string PluginHost::DefaultBundlePath() {
  return BundleLocation::ForThisProgram();
}

std::string PluginHost::Load(const std::string& bundlePath) {
  std::string library = bundlePath + "/Contents/Linux/KestrinCapture.so";
  void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) return std::string("cannot load the plug-in: ") + dlerror();
  mRecEntry = reinterpret_cast<RecEntryFunc>(dlsym(handle, "RecEntry"));
  if (!mRecEntry) return "the plug-in " + library + " has no RecEntry";
  return std::string();
}

int32_t PluginHost::Call(int32_t selector, void* param1, intptr_t param2) {
  return mRecEntry(selector, &mStdParms, param1, param2);
}

void PluginHost::SetMainWindow(void* window) {
  sMainWindow = window;
}

long PluginHost::OutstandingBlocks() {
  return sOutstandingBlocks;
}

long PluginHost::OutstandingSuites() {
  return sOutstandingSuites;
}

}  // namespace KTN
