// Finds the card's device API library at its fixed path once per process and offers its four factories.
#pragma once

#include "DeviceAPI/VeldranAPI.h"

namespace KTN {

// The bundle a card's driver installs; its library is Contents/Linux/VeldranAPI.so inside.
extern const char* const kVeldranAPIBundlePath;

// The four factories of one loaded library; a name the library lacks stays null.
struct VeldranEntryPoints {
  CreateVeldranIteratorInstanceFunc createIterator = nullptr;
  CreateOpenGLScreenPreviewHelperFunc createOpenGLPreview = nullptr;
  CreateCocoaScreenPreviewFunc createCocoaPreview = nullptr;
  CreateVideoConversionInstanceFunc createVideoConversion = nullptr;
};

// Loads the library inside bundlePath and resolves the four names. A missing library
// resolves nothing. The library is never unloaded. Prints nothing.
VeldranEntryPoints LoadVeldranAPI(const char* bundlePath);

// Tests only, before any factory is first called: look at bundlePath instead of the fixed
// path, or take these entry points without loading anything.
void SetVeldranAPIBundlePathForTesting(const char* bundlePath);
void SetVeldranEntryPointsForTesting(const VeldranEntryPoints& entryPoints);
// Tests only, while no other thread uses the loader: the loader as a new process has it,
// untried and at the fixed path. A library loaded before stays loaded.
void ResetVeldranAPIForTesting();

// How many times the process has looked for the library (0 or 1).
int VeldranAPILoadAttempts();
// The bundle the process looked in for the library, or null before it looked.
const char* VeldranAPIBundleLookedIn();

}  // namespace KTN

// The factories. The first call of any of them loads the library (once per process, from
// any thread); each returns null when the library or its entry point is missing, and
// otherwise the entry point's result unchanged (a new reference that the caller releases).
IVeldranIterator* CreateVeldranIteratorInstance();
IVeldranGLScreenPreviewHelper* CreateOpenGLScreenPreviewHelper();
IVeldranScreenPreviewCallback* CreateCocoaScreenPreview(void* parentView);
IVeldranVideoConversion* CreateVideoConversionInstance();
