// The recorder's commands on the server side: parse each line and call one operation per command.
#pragma once

#include <stdint.h>

#include <string>

#include "IPC/SimpleServerIPC.h"

namespace KTN {

// What the setters have stored for the next "Prepare"; zero (and empty) until set. The
// twelve numbers are stored by QTRecordServerIPC's own setters; video and audio on or off
// and the file path by the concrete server's. One struct, so that "Begin" starts a
// configuration afresh with one assignment and nothing is left over from the take before.
struct RecorderSettings {
  int64_t mVideoDuration = 0;   // one frame, in mVideoTimescale units
  int64_t mVideoTimescale = 0;  // units per second
  int32_t mVideoWidth = 0;
  int32_t mVideoHeight = 0;
  int32_t mPixelAspectRatioX = 0;
  int32_t mPixelAspectRatioY = 0;
  int32_t mVideoCodecType = 0;
  int32_t mVideoCodecVendor = 0;
  int32_t mVideoCodecQuality = 0;
  int32_t mAudioChannels = 0;
  int32_t mAudioType = 0;  // bits per sample
  int32_t mAudioRate = 0;  // Hz
  bool mVideoEnabled = false;
  bool mAudioEnabled = false;
  std::string mFilePath;
};

// A concrete server supplies the pure operations; the numeric setters store their value
// in the matching field and answer 0 unless overridden. All run on the server loop's
// thread and return the status to acknowledge. The fields are those of RecorderSettings,
// which the class holds as its base.
class QTRecordServerIPC : public SimpleServerIPC, protected RecorderSettings {
 public:
  // Dispatches by exact command word. "Exit" stops the loop (answering 0, argument
  // ignored); unknown commands and commands missing their argument answer 22 with a
  // diagnostic line, and the loop goes on.
  long Execute(const char* command, const char* argument, bool* stop) override;

  // The vendor code of the codec type as the status itself; 0 when not written here.
  virtual long GetCodecManufacturer(int codecType) = 0;
  virtual long Begin() = 0;
  virtual long SetVideoEnabled(bool enabled) = 0;
  virtual long SetVideoDuration(long long duration);
  virtual long SetVideoTimescale(long long timescale);
  virtual long SetVideoWidth(int width);
  virtual long SetVideoHeight(int height);
  virtual long SetPixelAspectRatioX(int x);
  virtual long SetPixelAspectRatioY(int y);
  virtual long SetVideoCodecType(int codecType);
  virtual long SetVideoCodecVendor(int codecVendor);
  virtual long SetVideoCodecQuality(int quality);
  virtual long SetAudioEnabled(bool enabled) = 0;
  virtual long SetAudioChannels(int channels);
  virtual long SetAudioType(int bitsPerSample);
  virtual long SetAudioRate(int rate);
  virtual long SetFilePath(const char* path) = 0;
  virtual long Prepare() = 0;
  virtual long MapVideo(unsigned long long size) = 0;
  virtual long MapAudio(unsigned long long size) = 0;
  virtual long Stop() = 0;
  // The pictures of the next `frames` frame slots will not come: their time stays empty.
  // 22 here, for a server that does not keep time slots.
  virtual long SkipVideo(unsigned long long frames);
  // Reached by no command: the end of the input, where a server finishes any open movie.
  virtual long InputEnded() = 0;

 protected:
  // Asked before every setter command (command is its word) is dispatched: 0 lets it
  // change the configuration, anything else is its answer and the setter is not called.
  // 0 here; a server that must not change settings under an open recording refuses.
  virtual long AcceptSetting(const char* command);

  // All that the setters have stored, as one value.
  const RecorderSettings& Settings() const { return *this; }
  // Every field back to zero (and the path empty), as before the first setter.
  void ClearSettings() { static_cast<RecorderSettings&>(*this) = RecorderSettings(); }
};

}  // namespace KTN
