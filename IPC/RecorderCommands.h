// The recorder's command words, shared by the plug-in's client and the recording server.
#pragma once

namespace KTN {

extern const char* const cmdGetCodecManufacturer;
extern const char* const cmdBegin;
extern const char* const cmdSetVideoEnabled;
extern const char* const cmdSetVideoDuration;
extern const char* const cmdSetVideoTimescale;
extern const char* const cmdSetVideoWidth;
extern const char* const cmdSetVideoHeight;
extern const char* const cmdSetPixelAspectRatioX;
extern const char* const cmdSetPixelAspectRatioY;
extern const char* const cmdSetVideoCodecType;
extern const char* const cmdSetVideoCodecVendor;
extern const char* const cmdSetVideoCodecQuality;
extern const char* const cmdSetAudioEnabled;
extern const char* const cmdSetAudioChannels;
extern const char* const cmdSetAudioType;
extern const char* const cmdSetAudioRate;
extern const char* const cmdSetFilePath;
extern const char* const cmdPrepare;
extern const char* const cmdMapVideo;
extern const char* const cmdMapAudio;
extern const char* const cmdStop;
extern const char* const cmdExit;
// Beyond the recorder's own set: the plug-in gave up the pictures of the next N frame
// slots (argument N, unsigned decimal). The server leaves their time empty, as it does for
// frames it drops itself, so that later pictures and the sound stay in step.
extern const char* const cmdSkipVideo;

// The status "MapVideo" answers when the server has had to drop frames (E2BIG's number).
// The plug-in counts it as success and marks the recording as having dropped frames.
constexpr long kDroppedFramesStatus = 7;

}  // namespace KTN
