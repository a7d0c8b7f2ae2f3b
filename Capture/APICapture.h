// The input side of the first capture card: modes, formats, enabling, and frame delivery.
#pragma once

#include <mutex>

#include "Core/Refcounted.h"
#include "DeviceAPI/VeldranAPI.h"

namespace KTN {

// The system's status for a mode or format the card cannot capture natively. It is 45 on
// every platform (the number ENOTSUP has where the host first ran), not this platform's ENOTSUP.
constexpr long kUnsupportedModeStatus = 45;

// Called on the card's capture thread for every frame (either pointer may be null); the
// frame and packet are valid for the call unless the callee takes references.
typedef void (*FrameArrivedFunc)(void* context, IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio);

// Reference counted (created with a count of 1, destroyed by the last Release). Results are
// 0, a status (22, 2, kUnsupportedModeStatus) or the device API's own negative result, passed on; every
// failure is reported once. All operations but the callbacks run on the host's thread.
class APICapture : public Core::Refcounted, public IVeldranInputCallback {
 public:
  APICapture() = default;

  // One Release for both bases: the last one destroys the object.
  int32_t Release() override { return Refcounted::Release(); }

  // Finds the first card's input and registers this object as its callback.
  long Init();
  // The first card's input into mInput.
  long FindVeldranInput();
  // More display modes than any input lists.
  static constexpr unsigned kMaxDisplayModes = 64;
  // Up to *len display modes (each with a reference the caller releases); *len the count.
  long GetSupportedModes(IVeldranDisplayMode** modes, unsigned* len);
  // The field dominance of a display mode the input lists (ktnProgressiveFrame,
  // ktnUpperFieldFirst or ktnLowerFieldFirst) into *dominance; ENOENT when it lists no such mode.
  long GetFieldDominance(unsigned mode, uint32_t* dominance);
  // Of '2vuy', 'v210', 'r210' in that order, up to *len that mode supports natively.
  long GetSupportedFormatsForMode(unsigned mode, unsigned* formats, unsigned* len);
  // 45 unless the card supports the pair natively; enables with format detection when it can.
  long EnableVideoInMode(unsigned mode, unsigned format);
  // channels must be 2, 8 or 16; rate and type are passed on unchecked.
  long EnableAudioInMode(unsigned rate, unsigned type, unsigned channels);
  // Disables video, then audio; the result is audio's.
  long Disable();
  // Starts the streams, then delivers frames to callback with context.
  long Start(FrameArrivedFunc callback, void* context);
  // Stops the streams, then forgets the callback.
  long Stop();

  // Unregisters from the input. The input holds a reference to this object while it is
  // registered, so the owner calls this before its last Release, or the two keep each
  // other alive. Frames stop arriving; nothing else changes.
  void Unregister();

  // IVeldranUnknown and IVeldranInputCallback, called by the card.
  VeldranResult QueryInterface(VeldranIID iid, void** out) override;
  int32_t AddRef() override;
  VeldranResult VideoInputFormatChanged(uint32_t events, IVeldranDisplayMode* mode, uint32_t flags) override;
  VeldranResult VideoInputFrameArrived(IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio) override;

  // The card's input (one reference, owned), or null until Init succeeds. The record module
  // reads it to register its previewer.
  IVeldranInput* mInput = nullptr;

 protected:
  // Stops, disables and unregisters from the input, then releases it.
  ~APICapture() override;

 private:
  // Protects mCallback and mContext, written as a pair by Start and Stop on the host's
  // thread and read as a pair on the card's capture thread (never held during a callback).
  std::mutex mCallbackLock;
  FrameArrivedFunc mCallback = nullptr;
  void* mContext = nullptr;
  // The input holds this object as its callback (set by Init, cleared by Unregister).
  bool mRegistered = false;
};

}  // namespace KTN
