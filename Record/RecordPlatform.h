// The record module's platform services: its bundle, host text, files and autorelease scopes.
#pragma once

#include <stdint.h>

#include <string>

namespace KTN {

// The recording server inside the plug-in's own bundle: Contents/Resources/QTRecordServer.
// Empty when the bundle cannot be found.
std::string RecordServerPath();

// Tests that link the module into a program of their own point it at a server.
void SetRecordServerPathForTesting(const char* path);

// text (UTF-16, host byte order) up to its NUL, at most maxUnits units, as UTF-8. False when
// there is no NUL within maxUnits or the text is not valid UTF-16.
bool Utf16ToUtf8(const uint16_t* text, int maxUnits, std::string& utf8);

// Makes the movie file at path for a new take: creates it, or empties the one there. Never
// blocks, and refuses anything but a regular file (22: a FIFO, a device such as /dev/null).
// Empties a file only while it holds the movie's one-writer lock (MovieLock): when another
// process writes the movie, 16 (EBUSY) with a line naming that process, and the file is left
// as it is. Lets go of the file and its lock before it returns (the recording server takes
// the lock for the take). 0 or the errno, with one failure line.
long CreateEmptyFile(const char* path);

// The scope in which the host's selectors run (an autorelease pool where the platform has
// them; nothing here).
class AutoreleaseScope {
 public:
  AutoreleaseScope();
  ~AutoreleaseScope();
  AutoreleaseScope(const AutoreleaseScope&) = delete;
  AutoreleaseScope& operator=(const AutoreleaseScope&) = delete;
};

}  // namespace KTN
