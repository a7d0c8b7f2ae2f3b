// The recorder's commands as client methods, one per command word.
#pragma once

#include "IPC/SimpleClientIPC.h"

namespace KTN {

// Each method sends its command and blocks for the acknowledgement; it returns exactly
// what SendCommandSync returned: 0 or an errno value, except GetCodecManufacturer,
// whose status is the vendor's four-character code. Callable after the streams are set.
class QTRecordClientIPC : public SimpleClientIPC {
 public:
  long GetCodecManufacturer(int codecType);
  long Begin();
  long SetVideoEnabled(bool enabled);
  long SetVideoDuration(long long duration);
  long SetVideoTimescale(long long timescale);
  long SetVideoWidth(int width);
  long SetVideoHeight(int height);
  long SetPixelAspectRatioX(int x);
  long SetPixelAspectRatioY(int y);
  long SetVideoCodecType(int codecType);
  long SetVideoCodecVendor(int codecVendor);
  long SetVideoCodecQuality(int quality);
  long SetAudioEnabled(bool enabled);
  long SetAudioChannels(int channels);
  long SetAudioType(int bitsPerSample);
  long SetAudioRate(int rate);
  // The movie's full path, sent as it is (spaces included).
  long SetFilePath(const char* path);
  long Prepare();
  // size: bytes of the segment just created and filled. "MapVideo" answers 7 when the
  // server has dropped frames.
  long MapVideo(unsigned long long size);
  long MapAudio(unsigned long long size);
  long Stop();
  long Exit();
  // The pictures of the next `frames` frame slots were given up (SkipVideo).
  long SkipVideo(unsigned long long frames);
};

}  // namespace KTN
