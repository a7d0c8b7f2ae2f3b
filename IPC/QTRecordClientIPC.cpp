// The recorder's commands as client methods.
#include "IPC/QTRecordClientIPC.h"

#include "IPC/RecorderCommands.h"

namespace KTN {

namespace {

// The argument forms of the command set: none, signed or unsigned decimal.
const char* const kNoArgument = nullptr;

long long Signed(long long value) {
  return value;
}

unsigned long long Unsigned(unsigned long long value) {
  return value;
}

}  // namespace

long QTRecordClientIPC::GetCodecManufacturer(int codecType) { return SendCommandSync(cmdGetCodecManufacturer, Signed(codecType)); }
long QTRecordClientIPC::Begin() { return SendCommandSync(cmdBegin, kNoArgument); }
long QTRecordClientIPC::SetVideoEnabled(bool enabled) { return SendCommandSync(cmdSetVideoEnabled, Unsigned(enabled)); }
long QTRecordClientIPC::SetVideoDuration(long long duration) { return SendCommandSync(cmdSetVideoDuration, Signed(duration)); }
long QTRecordClientIPC::SetVideoTimescale(long long timescale) { return SendCommandSync(cmdSetVideoTimescale, Signed(timescale)); }
long QTRecordClientIPC::SetVideoWidth(int width) { return SendCommandSync(cmdSetVideoWidth, Signed(width)); }
long QTRecordClientIPC::SetVideoHeight(int height) { return SendCommandSync(cmdSetVideoHeight, Signed(height)); }
long QTRecordClientIPC::SetPixelAspectRatioX(int x) { return SendCommandSync(cmdSetPixelAspectRatioX, Signed(x)); }
long QTRecordClientIPC::SetPixelAspectRatioY(int y) { return SendCommandSync(cmdSetPixelAspectRatioY, Signed(y)); }
long QTRecordClientIPC::SetVideoCodecType(int codecType) { return SendCommandSync(cmdSetVideoCodecType, Signed(codecType)); }
long QTRecordClientIPC::SetVideoCodecVendor(int codecVendor) { return SendCommandSync(cmdSetVideoCodecVendor, Signed(codecVendor)); }
long QTRecordClientIPC::SetVideoCodecQuality(int quality) { return SendCommandSync(cmdSetVideoCodecQuality, Signed(quality)); }
long QTRecordClientIPC::SetAudioEnabled(bool enabled) { return SendCommandSync(cmdSetAudioEnabled, Unsigned(enabled)); }
long QTRecordClientIPC::SetAudioChannels(int channels) { return SendCommandSync(cmdSetAudioChannels, Signed(channels)); }
long QTRecordClientIPC::SetAudioType(int bitsPerSample) { return SendCommandSync(cmdSetAudioType, Signed(bitsPerSample)); }
long QTRecordClientIPC::SetAudioRate(int rate) { return SendCommandSync(cmdSetAudioRate, Signed(rate)); }
long QTRecordClientIPC::SetFilePath(const char* path) { return SendCommandSync(cmdSetFilePath, path); }
long QTRecordClientIPC::Prepare() { return SendCommandSync(cmdPrepare, kNoArgument); }
long QTRecordClientIPC::MapVideo(unsigned long long size) { return SendCommandSync(cmdMapVideo, Unsigned(size)); }
long QTRecordClientIPC::MapAudio(unsigned long long size) { return SendCommandSync(cmdMapAudio, Unsigned(size)); }
long QTRecordClientIPC::Stop() { return SendCommandSync(cmdStop, kNoArgument); }
long QTRecordClientIPC::Exit() { return SendCommandSync(cmdExit, kNoArgument); }
long QTRecordClientIPC::SkipVideo(unsigned long long frames) { return SendCommandSync(cmdSkipVideo, Unsigned(frames)); }

}  // namespace KTN
