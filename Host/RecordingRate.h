// How fast a recording of given settings fills its disk, and how long the free space lasts.
#pragma once

#include <string>

#include "Settings/CaptureSettings.h"

namespace KTN {

// Frames a count of the plug-in's stands for: above 30 frames a second it counts frame
// pairs (2), otherwise frames (1).
int FramesPerCount(const CaptureSettings& settings);

// Bytes a second a recording of settings writes: pictures as its format stores them (the
// device's rows for the uncompressed types, the codec's rate for the compressed ones, at
// the best quality the recorder asks) and its sound. An estimate for the compressed types,
// on the high side, so that a disk never holds less than it was said to.
double RecordingBytesPerSecond(const CaptureSettings& settings);

// Seconds of such a recording the free space of the disk that holds moviePath (its folder)
// takes, or -1 when the free space cannot be read.
double RecordingSecondsLeft(const std::string& moviePath, const CaptureSettings& settings);

}  // namespace KTN
