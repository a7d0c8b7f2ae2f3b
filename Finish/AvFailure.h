// Reports a failed FFmpeg call in the caller's name and maps its code to errno.
#pragma once

namespace KTN {

// Logs "<call> failed with <code> (<FFmpeg's text>)" for caller at line and returns the
// errno behind averror, or 5 (EIO) for FFmpeg's own codes.
long AvFailure(const char* caller, int line, const char* call, int averror);

#define REPORT_AV(call, averror) ::KTN::AvFailure(__func__, __LINE__, call, averror)

}  // namespace KTN
