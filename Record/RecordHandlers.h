// The record module's selector handlers, as RecEntry dispatches them. All run on the host's thread.
#pragma once

#include <stdint.h>

#include <atomic>
#include <string>

#include "DeviceAPI/VeldranAPI.h"
#include "DeviceAPI/VeldranObject.h"
#include "HostAPI/HostInterface.h"
#include "Record/CapPriv.h"

namespace KTN {

// Instance-free selectors.
int32_t recGetAudioIndFormat(rmStdParms* stdParms, recAudioInfoRec* info, int32_t index);
int32_t recGetSetupInfo(recSetupInfo* info);
int32_t recStartup(recModuleInfo* info);

// The capture instance's lifecycle.
int32_t recOpen(rmStdParms* stdParms, CapPriv** instance, recOpenParms* parms);
int32_t recClose(rmStdParms* stdParms, CapPriv* instance);
int32_t recSetActive(CapPriv* instance, long activate);
int32_t recShowOptions(rmStdParms* stdParms, CapPriv* instance, recSetupParms* parms);
int32_t recStartRecord(CapPriv* instance, recStartReply* reply);
int32_t recSetDisplay(CapPriv* instance, pmDisplayPos* display);

// The recording pipeline.
int32_t recPrepRecord8(CapPriv* instance, recCapParmsRec8* parms);
int32_t recServiceRecord(CapPriv* instance);
int32_t recStopRecord(CapPriv* instance);
int32_t recCloseRecord(CapPriv* instance);
// Releases every queued frame and packet.
void flush(CapPriv* instance);
// Waits for the answer to a hand-over a service call left waiting, as long as the server
// works on it, and lets go of it; before any other command is sent to the server.
void FinishHandOvers(CapPriv* instance);
// Called on the card's capture thread with the instance as context; queues what arrives
// once the recording's start condition is met.
void FrameArrivedCallback(void* context, IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio);
// The frame's timecode, RP188 first, then VITC; null when the frame carries none. A card that
// cannot read it (any answer but "not found") sets *failed (when given) and is said once a
// recording, naming the answer, by whichever thread meets it first (said). Either thread: the
// card's (the start condition, under recordingLock, with the recording's flag) and the host's
// (the hand-over).
VeldranRef<IVeldranTimecode> FrameTimecode(IVeldranVideoInputFrame* video, bool* failed, std::atomic<bool>& said);
// The timecode's text ("HH:MM:SS:FF", ';' before the frames at drop frame); empty when the
// card gives none.
std::string TimecodeString(IVeldranTimecode* timecode);

// The host's timecode of the frame now, as text into 12 bytes ("HH:MM:SS:FF"), for a start
// whose frame carries none: the frame number the host's timecode callback answers, at the
// in-point's rate. Empty, and false, when the host gave no callback. Either thread.
bool HostTimecodeNow(CapPriv* instance, char* text);

// The host's memory functions, through the function record (open, close, audio format) or
// through the suite table (options); null when the host offers none.
recMemoryFuncs* MemoryThroughFuncs(rmStdParms* stdParms);
recMemoryFuncs* MemoryThroughSuites(rmStdParms* stdParms);
// The host's SP Basic suite, or null.
SPBasicSuite* BasicSuite(rmStdParms* stdParms);

// The recorded pixel format: the settings' codec type when the card captures it, else '2vuy'.
uint32_t DevicePixelFormat(const CaptureSettings& settings);

}  // namespace KTN
