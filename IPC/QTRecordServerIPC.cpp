// The recorder's command set on the server side.
#include "IPC/QTRecordServerIPC.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "IPC/RecorderCommands.h"
#include "Util/Log.h"

namespace KTN {

namespace {

// Argument parsing: base 10, trailing text ignored, non-numeric text reads as 0.
int Int32(const char* text) {
  return static_cast<int>(static_cast<uint32_t>(strtol(text, nullptr, 10)));  // low 32 bits
}
bool Flag(const char* text) {
  return strtol(text, nullptr, 10) != 0;
}
long long Int64(const char* text) {
  return strtoll(text, nullptr, 10);
}
unsigned long long UInt64(const char* text) {
  return strtoull(text, nullptr, 10);
}

using Server = QTRecordServerIPC;

struct ServerCommand {
  const char* const* word;
  bool needsArgument;
  bool setter;  // changes the configuration the next Prepare takes
  long (*dispatch)(Server& server, const char* argument);
};

// In dispatch order; "Exit" is handled before the table because it only stops the loop.
const ServerCommand kServerCommands[] = {
    {&cmdGetCodecManufacturer, true, false, [](Server& s, const char* a) { return s.GetCodecManufacturer(Int32(a)); }},
    {&cmdBegin, false, false, [](Server& s, const char*) { return s.Begin(); }},
    {&cmdSetVideoEnabled, true, true, [](Server& s, const char* a) { return s.SetVideoEnabled(Flag(a)); }},
    {&cmdSetVideoDuration, true, true, [](Server& s, const char* a) { return s.SetVideoDuration(Int64(a)); }},
    {&cmdSetVideoTimescale, true, true, [](Server& s, const char* a) { return s.SetVideoTimescale(Int64(a)); }},
    {&cmdSetVideoWidth, true, true, [](Server& s, const char* a) { return s.SetVideoWidth(Int32(a)); }},
    {&cmdSetVideoHeight, true, true, [](Server& s, const char* a) { return s.SetVideoHeight(Int32(a)); }},
    {&cmdSetPixelAspectRatioX, true, true, [](Server& s, const char* a) { return s.SetPixelAspectRatioX(Int32(a)); }},
    {&cmdSetPixelAspectRatioY, true, true, [](Server& s, const char* a) { return s.SetPixelAspectRatioY(Int32(a)); }},
    {&cmdSetVideoCodecType, true, true, [](Server& s, const char* a) { return s.SetVideoCodecType(Int32(a)); }},
    {&cmdSetVideoCodecVendor, true, true, [](Server& s, const char* a) { return s.SetVideoCodecVendor(Int32(a)); }},
    {&cmdSetVideoCodecQuality, true, true, [](Server& s, const char* a) { return s.SetVideoCodecQuality(Int32(a)); }},
    {&cmdSetAudioEnabled, true, true, [](Server& s, const char* a) { return s.SetAudioEnabled(Flag(a)); }},
    {&cmdSetAudioChannels, true, true, [](Server& s, const char* a) { return s.SetAudioChannels(Int32(a)); }},
    {&cmdSetAudioType, true, true, [](Server& s, const char* a) { return s.SetAudioType(Int32(a)); }},
    {&cmdSetAudioRate, true, true, [](Server& s, const char* a) { return s.SetAudioRate(Int32(a)); }},
    {&cmdSetFilePath, true, true, [](Server& s, const char* a) { return s.SetFilePath(a); }},
    {&cmdPrepare, false, false, [](Server& s, const char*) { return s.Prepare(); }},
    {&cmdMapVideo, true, false, [](Server& s, const char* a) { return s.MapVideo(UInt64(a)); }},
    {&cmdMapAudio, true, false, [](Server& s, const char* a) { return s.MapAudio(UInt64(a)); }},
    {&cmdStop, false, false, [](Server& s, const char*) { return s.Stop(); }},
    {&cmdSkipVideo, true, false, [](Server& s, const char* a) { return s.SkipVideo(UInt64(a)); }},
};

}  // namespace

long QTRecordServerIPC::Execute(const char* command, const char* argument, bool* stop) {
  if (strcmp(command, cmdExit) == 0) {
    *stop = true;
    return 0;
  }
  for (const ServerCommand& row : kServerCommands) {
    if (strcmp(command, *row.word) != 0) continue;
    if (row.needsArgument && !argument) break;
    if (row.setter) {
      if (long rc = AcceptSetting(command)) return rc;
    }
    return row.dispatch(*this, argument);
  }
  KTN_LOG("Can't dispatch cmd \"%s\" with arg \"%s\"", command, argument ? argument : "(null)");
  return EINVAL;
}

long QTRecordServerIPC::SetVideoDuration(long long duration) { mVideoDuration = duration; return 0; }
long QTRecordServerIPC::SetVideoTimescale(long long timescale) { mVideoTimescale = timescale; return 0; }
long QTRecordServerIPC::SetVideoWidth(int width) { mVideoWidth = width; return 0; }
long QTRecordServerIPC::SetVideoHeight(int height) { mVideoHeight = height; return 0; }
long QTRecordServerIPC::SetPixelAspectRatioX(int x) { mPixelAspectRatioX = x; return 0; }
long QTRecordServerIPC::SetPixelAspectRatioY(int y) { mPixelAspectRatioY = y; return 0; }
long QTRecordServerIPC::SetVideoCodecType(int codecType) { mVideoCodecType = codecType; return 0; }
long QTRecordServerIPC::SetVideoCodecVendor(int codecVendor) { mVideoCodecVendor = codecVendor; return 0; }
long QTRecordServerIPC::SetVideoCodecQuality(int quality) { mVideoCodecQuality = quality; return 0; }
long QTRecordServerIPC::SetAudioChannels(int channels) { mAudioChannels = channels; return 0; }
long QTRecordServerIPC::SetAudioType(int bitsPerSample) { mAudioType = bitsPerSample; return 0; }
long QTRecordServerIPC::SetAudioRate(int rate) { mAudioRate = rate; return 0; }

long QTRecordServerIPC::AcceptSetting(const char* command) {
  (void)command;
  return 0;
}

long QTRecordServerIPC::SkipVideo(unsigned long long frames) {
  KTN_LOG("This server keeps no time slots: %llu skipped frames refused", frames);
  return EINVAL;
}

}  // namespace KTN
