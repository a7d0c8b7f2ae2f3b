// Readable text for failure lines: four-character codes, modes, pixel formats, versions, paths.
#pragma once

namespace KTN {
namespace Util {

// Every function returns text in the calling thread's scratch block (see PerThreadBuffer):
// the caller must not free it, must not hand it to another thread, and must use it before
// the thread has requested about 2048 further bytes. Never returns null: when scratch
// memory cannot be had, a fixed fallback text comes back. The ignored int arguments are
// part of the signatures. Safe from any thread; no locks, no allocation after a thread's
// first request.
class Printer {
 public:
  // "Unknown (<decimal>, 0x<hex>, '<4 chars>')"; fallback "Unknown".
  static const char* Unknown(long value);
  // The device pixel format's name, or Unknown(format).
  static const char* PixelFormat(long format, int = 0);
  // The device display mode's name, or Unknown(mode).
  static const char* Mode(long mode, int = 0);
  // The last path component, cut at ".bundle"; fallback: the last component, uncut, inside
  // the caller's string.
  static const char* BundleName(const char* path);
  // A NUL-separated list ended by an empty string, as "a" "b"; fallback "<memory error>".
  // The list must format to fewer than 1024 bytes; longer text is cut.
  static const char* StringList(const char* list, int = 0);
  // "<high byte>.<low byte>"; fallback "<memory error>".
  static const char* FixedShort(unsigned short value, int = 0);
  // "'abcd'" when any of the upper 16 bits is set, else "0x<hex> (<decimal>)".
  static const char* Fcc(int code, int = 0);
};

extern const char* const kMemoryErrorString;  // "<memory error>"
extern const char* const kUnknownString;      // "Unknown"

}  // namespace Util
}  // namespace KTN
