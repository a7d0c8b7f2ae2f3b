// The recorder's command words.
#include "IPC/RecorderCommands.h"

namespace KTN {

const char* const cmdGetCodecManufacturer = "GetCodecManufacturer";
const char* const cmdBegin = "Begin";
const char* const cmdSetVideoEnabled = "SetVideoEnabled";
const char* const cmdSetVideoDuration = "SetVideoDuration";
const char* const cmdSetVideoTimescale = "SetVideoTimescale";
const char* const cmdSetVideoWidth = "SetVideoWidth";
const char* const cmdSetVideoHeight = "SetVideoHeight";
const char* const cmdSetPixelAspectRatioX = "SetPixelAspectRatioX";
const char* const cmdSetPixelAspectRatioY = "SetPixelAspectRatioY";
const char* const cmdSetVideoCodecType = "SetVideoCodecType";
const char* const cmdSetVideoCodecVendor = "SetVideoCodecVendor";
const char* const cmdSetVideoCodecQuality = "SetVideoCodecQuality";
const char* const cmdSetAudioEnabled = "SetAudioEnabled";
const char* const cmdSetAudioChannels = "SetAudioChannels";
const char* const cmdSetAudioType = "SetAudioType";
const char* const cmdSetAudioRate = "SetAudioRate";
const char* const cmdSetFilePath = "SetFilePath";
const char* const cmdPrepare = "Prepare";
const char* const cmdMapVideo = "MapVideo";
const char* const cmdMapAudio = "MapAudio";
const char* const cmdStop = "Stop";
const char* const cmdExit = "Exit";
const char* const cmdSkipVideo = "SkipVideo";

}  // namespace KTN
