// Loading the card's device API on Linux: dlopen of the library inside the driver's bundle.
#include <dlfcn.h>
#include <pthread.h>

#include <string>

#include "Capture/VeldranAPILoader.h"

namespace KTN {

const char* const kVeldranAPIBundlePath = "/Library/Application Support/Kestrin Design/Kestrin Veldran/VeldranAPI.bundle";

namespace {

pthread_once_t gVeldranOnceControl = PTHREAD_ONCE_INIT;
// Written only by InitVeldranAPI (or a test before the first factory call), then read.
VeldranEntryPoints gEntryPoints;
const char* gBundlePath = kVeldranAPIBundlePath;
int gLoadAttempts = 0;
const char* gBundleLookedIn = nullptr;

void InitVeldranAPI() {
  ++gLoadAttempts;
  gBundleLookedIn = gBundlePath;
  gEntryPoints = LoadVeldranAPI(gBundlePath);
}

const VeldranEntryPoints& EntryPoints() {
  pthread_once(&gVeldranOnceControl, InitVeldranAPI);
  return gEntryPoints;
}

void DoNothing() {}

}  // namespace

VeldranEntryPoints LoadVeldranAPI(const char* bundlePath) {
  VeldranEntryPoints entryPoints;
  std::string library = std::string(bundlePath) + "/Contents/Linux/VeldranAPI.so";
  // RTLD_LOCAL keeps the card's symbols to itself; the handle is never closed.
  void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) return entryPoints;
  entryPoints.createIterator =
      reinterpret_cast<CreateVeldranIteratorInstanceFunc>(dlsym(handle, "CreateVeldranIteratorInstance_0001"));
  entryPoints.createOpenGLPreview =
      reinterpret_cast<CreateOpenGLScreenPreviewHelperFunc>(dlsym(handle, "CreateOpenGLScreenPreviewHelper_0001"));
  entryPoints.createCocoaPreview =
      reinterpret_cast<CreateCocoaScreenPreviewFunc>(dlsym(handle, "CreateCocoaScreenPreview_0001"));
  entryPoints.createVideoConversion =
      reinterpret_cast<CreateVideoConversionInstanceFunc>(dlsym(handle, "CreateVideoConversionInstance_0001"));
  return entryPoints;
}

void SetVeldranAPIBundlePathForTesting(const char* bundlePath) {
  gBundlePath = bundlePath;
}

void SetVeldranEntryPointsForTesting(const VeldranEntryPoints& entryPoints) {
  pthread_once(&gVeldranOnceControl, DoNothing);  // the loader will not run after this
  gEntryPoints = entryPoints;
}

void ResetVeldranAPIForTesting() {
  // A control given its initial value again runs the loader on the next call, as in a new
  // process; nothing else may be inside pthread_once meanwhile.
  gVeldranOnceControl = PTHREAD_ONCE_INIT;
  gEntryPoints = VeldranEntryPoints();
  gBundlePath = kVeldranAPIBundlePath;
  gLoadAttempts = 0;
  gBundleLookedIn = nullptr;
}

int VeldranAPILoadAttempts() {
  return gLoadAttempts;
}

const char* VeldranAPIBundleLookedIn() {
  return gBundleLookedIn;
}

}  // namespace KTN

IVeldranIterator* CreateVeldranIteratorInstance() {
  auto factory = KTN::EntryPoints().createIterator;
  return factory ? factory() : nullptr;
}

IVeldranGLScreenPreviewHelper* CreateOpenGLScreenPreviewHelper() {
  auto factory = KTN::EntryPoints().createOpenGLPreview;
  return factory ? factory() : nullptr;
}

IVeldranScreenPreviewCallback* CreateCocoaScreenPreview(void* parentView) {
  auto factory = KTN::EntryPoints().createCocoaPreview;
  return factory ? factory(parentView) : nullptr;
}

IVeldranVideoConversion* CreateVideoConversionInstance() {
  auto factory = KTN::EntryPoints().createVideoConversion;
  return factory ? factory() : nullptr;
}
