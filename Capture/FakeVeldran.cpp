// Test double: a configurable card behind the device API.
#include "Capture/FakeVeldran.h"

#include <stdlib.h>
#include <string.h>

#include "Capture/VeldranAPILoader.h"
#include "DeviceAPI/VeldranObject.h"

namespace KTN {

namespace {

FakeVeldran* sInstalled = nullptr;

class FakeMode : public VeldranObject<IVeldranDisplayMode> {
 public:
  explicit FakeMode(int index) : mIndex(index) { ++sInstalled->liveModes; }
  int32_t GetWidth() override { return 720; }
  int32_t GetHeight() override { return 486; }
  uint32_t GetDisplayMode() override { return VeldranCode("fk00") + static_cast<uint32_t>(mIndex); }
  VeldranResult GetName(char** name) override {
    *name = strdup("Fake mode");
    return kVeldranOK;
  }
  VeldranResult GetFrameRate(int64_t* duration, int64_t* scale) override {
    *duration = 1001;
    *scale = 30000;
    return kVeldranOK;
  }
  uint32_t GetFieldDominance() override { return ktnLowerFieldFirst; }

 protected:
  ~FakeMode() override { --sInstalled->liveModes; }

 private:
  int mIndex;
};

class FakeModeIterator : public VeldranObject<IVeldranDisplayModeIterator> {
 public:
  VeldranResult Next(IVeldranDisplayMode** mode) override {
    if (mNext >= sInstalled->modes) {
      *mode = nullptr;
      return kVeldranFalse;
    }
    *mode = new FakeMode(mNext++);
    return kVeldranOK;
  }

 private:
  int mNext = 0;
};

class FakeInput : public VeldranObject<IVeldranInput> {
 public:
  int32_t AddRef() override {
    ++sInstalled->inputReferences;
    return VeldranObject::AddRef();
  }
  int32_t Release() override {
    --sInstalled->inputReferences;
    return VeldranObject::Release();
  }
  VeldranResult DoesSupportVideoMode(uint32_t mode, uint32_t format, uint32_t, uint32_t* support,
                                     IVeldranDisplayMode** resultMode) override {
    Record("DoesSupportVideoMode");
    if (resultMode) *resultMode = nullptr;
    auto found = sInstalled->support.find({mode, format});
    *support = found != sInstalled->support.end() ? found->second
               : format == ktnFormat8BitYUV         ? ktnSupportNative
                                                    : ktnSupportNone;
    return sInstalled->ResultOf("DoesSupportVideoMode");
  }
  VeldranResult GetDisplayModeIterator(IVeldranDisplayModeIterator** iterator) override {
    Record("GetDisplayModeIterator");
    VeldranResult rc = sInstalled->ResultOf("GetDisplayModeIterator");
    *iterator = rc ? nullptr : new FakeModeIterator;
    return rc;
  }
  VeldranResult SetScreenPreviewCallback(IVeldranScreenPreviewCallback* callback) override {
    return Record(callback ? "SetScreenPreviewCallback" : "SetScreenPreviewCallback(null)");
  }
  VeldranResult EnableVideoInput(uint32_t, uint32_t, uint32_t flags) override {
    Record("EnableVideoInput");
    sInstalled->enableVideoFlags.push_back(flags);
    return sInstalled->ResultOf(flags & ktnInputFlagEnableFormatDetection ? "EnableVideoInputDetect" : "EnableVideoInput");
  }
  VeldranResult DisableVideoInput() override { return Record("DisableVideoInput"); }
  VeldranResult GetAvailableVideoFrameCount(uint32_t* count) override {
    *count = 0;
    return kVeldranOK;
  }
  VeldranResult EnableAudioInput(uint32_t, uint32_t, uint32_t) override { return Record("EnableAudioInput"); }
  VeldranResult DisableAudioInput() override { return Record("DisableAudioInput"); }
  VeldranResult GetAvailableAudioSampleFrameCount(uint32_t* count) override {
    *count = 0;
    return kVeldranOK;
  }
  VeldranResult StartStreams() override { return Record("StartStreams"); }
  VeldranResult StopStreams() override { return Record("StopStreams"); }
  VeldranResult PauseStreams() override { return Record("PauseStreams"); }
  VeldranResult FlushStreams() override { return Record("FlushStreams"); }
  VeldranResult SetCallback(IVeldranInputCallback* callback) override {
    VeldranResult rc = Record(callback ? "SetCallback" : "SetCallback(null)");
    if (!rc) sInstalled->callback = callback;
    return rc;
  }

 private:
  VeldranResult Record(const char* operation) {
    sInstalled->calls.push_back(operation);
    return sInstalled->ResultOf(operation);
  }
};

class FakeDevice : public VeldranObject<IVeldran> {
 public:
  VeldranResult QueryInterface(VeldranIID iid, void** out) override {
    if (iid == IID_IVeldranInput) {
      ++sInstalled->inputReferences;
      *out = static_cast<IVeldranInput*>(new FakeInput);
      return kVeldranOK;
    }
    *out = nullptr;
    return kVeldranNoInterface;
  }
  VeldranResult GetModelName(char** name) override {
    *name = strdup("Fake Veldran");
    return kVeldranOK;
  }
};

class FakeIterator : public VeldranObject<IVeldranIterator> {
 public:
  VeldranResult Next(IVeldran** device) override {
    if (mNext >= sInstalled->devices) {
      *device = nullptr;
      return kVeldranFalse;
    }
    ++mNext;
    *device = new FakeDevice;
    return kVeldranOK;
  }

 private:
  int mNext = 0;
};

IVeldranIterator* CreateFakeIterator() {
  return new FakeIterator;
}

}  // namespace

FakeVeldran& FakeVeldran::Installed() {
  return *sInstalled;
}

void FakeVeldran::Install() {
  sInstalled = this;
  VeldranEntryPoints entryPoints;
  entryPoints.createIterator = CreateFakeIterator;
  SetVeldranEntryPointsForTesting(entryPoints);
}

VeldranResult FakeVeldran::ResultOf(const std::string& operation) const {
  auto found = results.find(operation);
  return found != results.end() ? found->second : kVeldranOK;
}

void FakeVeldran::DeliverFrame(IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio) {
  if (callback) callback->VideoInputFrameArrived(video, audio);
}

}  // namespace KTN
