// Readable text for failure lines, written into per-thread scratch blocks.
#include "Util/Printer.h"

#include <stdio.h>
#include <string.h>

#include "Util/FourCC.h"
#include "Util/PerThreadBuffer.h"

namespace KTN {
namespace Util {

const char* const kMemoryErrorString = "<memory error>";
const char* const kUnknownString = "Unknown";

namespace {

struct CodeName {
  long code;
  const char* name;
};

// Names of the device's pixel formats. 'pvsd' is intended (it is not 'dvsd').
const CodeName kPixelFormatNames[] = {
    {32, "ktnFormat8BitARGB"},
    {FourCC("2vuy"), "ktnFormat8BitYUV"},
    {FourCC("2Vuy"), "2Vuy"},
    {FourCC("BGRA"), "ktnFormat8BitBGRA"},
    {FourCC("v210"), "ktnFormat10BitYUV"},
    {FourCC("r210"), "ktnFormat10BitRGB"},
    {FourCC("jpeg"), "JPEG"},
    {FourCC("dvc "), "DV NTSC"},
    {FourCC("dvsd"), "DV NTSC"},
    {FourCC("dvcp"), "DV PAL"},
    {FourCC("dvpp"), "DV PAL"},
    {FourCC("pvsd"), "DV PAL"},
    {FourCC("dv5n"), "DVCPRO50 NTSC"},
    {FourCC("dv5p"), "DVCPRO50 PAL"},
    {FourCC("dv1n"), "DVCPRO100 NTSC"},
    {FourCC("dv1p"), "DVCPRO100 PAL"},
    {FourCC("dvh5"), "DVCPROHD 1080i50"},
    {FourCC("dvh6"), "DVCPROHD 1080i59.94"},
    {FourCC("dvhp"), "DVCPROHD 720p59.94"},
    {FourCC("dvhq"), "DVCPROHD 720p50"},
};

// Names of the device's display modes.
const CodeName kModeNames[] = {
    {FourCC("ntsc"), "ktnModeNTSC"},
    {FourCC("nt23"), "ktnModeNTSC2398"},
    {FourCC("pal "), "ktnModePAL"},
    {FourCC("23ps"), "ktnModeHD1080p2398"},
    {FourCC("24ps"), "ktnModeHD1080p24"},
    {FourCC("Hp25"), "ktnModeHD1080p25"},
    {FourCC("Hp29"), "ktnModeHD1080p2997"},
    {FourCC("Hp30"), "ktnModeHD1080p30"},
    {FourCC("Hp50"), "ktnModeHD1080p50"},
    {FourCC("H23d"), "ktnModeHD1080p2398Pulldown"},
    {FourCC("23p#"), "ktnMode3DHD1080p2398"},
    {FourCC("24p#"), "ktnMode3DHD1080p24"},
    {FourCC("Hp59"), "ktnModeHD1080p5994"},
    {FourCC("Hp60"), "ktnModeHD1080p6000"},
    {FourCC("Hi50"), "ktnModeHD1080i50"},
    {FourCC("Hi59"), "ktnModeHD1080i5994"},
    {FourCC("Hi60"), "ktnModeHD1080i6000"},
    {FourCC("hp50"), "ktnModeHD720p50"},
    {FourCC("hp59"), "ktnModeHD720p5994"},
    {FourCC("hp60"), "ktnModeHD720p60"},
    {FourCC("2k23"), "ktnMode2k2398"},
    {FourCC("2k24"), "ktnMode2k24"},
    {FourCC("2k25"), "ktnMode2k25"},
    {FourCC("2d23"), "ktnMode2kDCI2398"},
    {FourCC("2d24"), "ktnMode2kDCI24"},
};

// Matches on the whole long, so a value with bits above the low 32 never matches.
template <size_t N>
const char* Lookup(const CodeName (&table)[N], long code) {
  for (const CodeName& row : table) {
    if (row.code == code) return row.name;
  }
  return Printer::Unknown(code);
}

char Byte(long value, int shift) {
  return static_cast<char>((value >> shift) & 0xff);
}

}  // namespace

const char* Printer::Unknown(long value) {
  const unsigned long kSize = 64;
  char* text = static_cast<char*>(GetPerThreadBuffer(kSize));
  if (!text) return kUnknownString;
  snprintf(text, kSize, "%s (%ld, 0x%08lx, '%c%c%c%c')", kUnknownString, value,
           static_cast<unsigned long>(value), Byte(value, 24), Byte(value, 16), Byte(value, 8),
           Byte(value, 0));
  return text;
}

const char* Printer::PixelFormat(long format, int) {
  return Lookup(kPixelFormatNames, format);
}

const char* Printer::Mode(long mode, int) {
  return Lookup(kModeNames, mode);
}

const char* Printer::BundleName(const char* path) {
  const char* slash = strrchr(path, '/');
  const char* component = slash ? slash + 1 : path;
  unsigned long size = strlen(component) + 1;
  char* text = static_cast<char*>(GetPerThreadBuffer(size));
  if (!text) return component;
  memcpy(text, component, size);
  if (char* suffix = strstr(text, ".bundle")) *suffix = '\0';
  return text;
}

const char* Printer::StringList(const char* list, int) {
  const unsigned long kSize = 1024;
  char* text = static_cast<char*>(GetPerThreadBuffer(kSize));
  if (!text) return kMemoryErrorString;
  // The area starts as ' ""' so that an empty list reads as "" once the leading blank is
  // skipped; the first string then overwrites it from the start.
  strcpy(text, " \"\"");
  size_t used = 0;
  for (const char* item = list; *item; item += strlen(item) + 1) {
    int written = snprintf(text + used, kSize - used, " \"%s\"", item);
    if (written < 0 || static_cast<size_t>(written) >= kSize - used) {
      // Too long for the area: end after the last whole string (a single overlong string
      // stays cut where snprintf stopped).
      if (used > 0) text[used] = '\0';
      break;
    }
    used += static_cast<size_t>(written);
  }
  return text + 1;
}

const char* Printer::FixedShort(unsigned short value, int) {
  const unsigned long kSize = 32;
  char* text = static_cast<char*>(GetPerThreadBuffer(kSize));
  if (!text) return kMemoryErrorString;
  snprintf(text, kSize, "%d.%d", value >> 8, value & 0xff);
  return text;
}

const char* Printer::Fcc(int code, int) {
  const unsigned long kSize = 32;
  char* text = static_cast<char*>(GetPerThreadBuffer(kSize));
  if (!text) return kMemoryErrorString;
  if (static_cast<unsigned>(code) & 0xffff0000u) {
    snprintf(text, kSize, "'%c%c%c%c'", Byte(code, 24), Byte(code, 16), Byte(code, 8), Byte(code, 0));
  } else {
    snprintf(text, kSize, "0x%x (%d)", static_cast<unsigned>(code), code);
  }
  return text;
}

}  // namespace Util
}  // namespace KTN
