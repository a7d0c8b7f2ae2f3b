// Tests of the Printer's texts.
#include <gtest/gtest.h>

#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "Util/CapturedStderr.h"
#include "Util/FourCC.h"
#include "Util/Printer.h"

namespace KTN {
namespace Util {
namespace {

struct NameCase {
  long code;
  const char* name;
};

const NameCase kPixelFormatCases[] = {
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

const NameCase kModeCases[] = {
    {FourCC("ntsc"), "ktnModeNTSC"},          {FourCC("nt23"), "ktnModeNTSC2398"},
    {FourCC("pal "), "ktnModePAL"},           {FourCC("23ps"), "ktnModeHD1080p2398"},
    {FourCC("24ps"), "ktnModeHD1080p24"},     {FourCC("Hp25"), "ktnModeHD1080p25"},
    {FourCC("Hp29"), "ktnModeHD1080p2997"},   {FourCC("Hp30"), "ktnModeHD1080p30"},
    {FourCC("Hp50"), "ktnModeHD1080p50"},     {FourCC("H23d"), "ktnModeHD1080p2398Pulldown"},
    {FourCC("23p#"), "ktnMode3DHD1080p2398"}, {FourCC("24p#"), "ktnMode3DHD1080p24"},
    {FourCC("Hp59"), "ktnModeHD1080p5994"},   {FourCC("Hp60"), "ktnModeHD1080p6000"},
    {FourCC("Hi50"), "ktnModeHD1080i50"},     {FourCC("Hi59"), "ktnModeHD1080i5994"},
    {FourCC("Hi60"), "ktnModeHD1080i6000"},   {FourCC("hp50"), "ktnModeHD720p50"},
    {FourCC("hp59"), "ktnModeHD720p5994"},    {FourCC("hp60"), "ktnModeHD720p60"},
    {FourCC("2k23"), "ktnMode2k2398"},        {FourCC("2k24"), "ktnMode2k24"},
    {FourCC("2k25"), "ktnMode2k25"},          {FourCC("2d23"), "ktnMode2kDCI2398"},
    {FourCC("2d24"), "ktnMode2kDCI24"},
};

TEST(PrinterTest, PixelFormatNames) {
  for (const NameCase& c : kPixelFormatCases) EXPECT_STREQ(c.name, Printer::PixelFormat(c.code, 0)) << c.name;
}

TEST(PrinterTest, ModeNamesCoverAll25Modes) {
  EXPECT_EQ(25u, sizeof kModeCases / sizeof kModeCases[0]);
  for (const NameCase& c : kModeCases) EXPECT_STREQ(c.name, Printer::Mode(c.code, 0)) << c.name;
}

TEST(PrinterTest, UnknownValuesNameThemselves) {
  EXPECT_STREQ("Unknown (2019913264, 0x78656e30, 'xen0')", Printer::PixelFormat(FourCC("xen0"), 0));
  EXPECT_STREQ("Unknown (1885432864, 0x70616c20, 'pal ')", Printer::PixelFormat(FourCC("pal "), 0));
  EXPECT_STREQ("Unknown (-1, 0xffffffffffffffff, '\xff\xff\xff\xff')", Printer::Unknown(-1));
}

TEST(PrinterTest, ValuesWithHighBitsNeverMatch) {
  long withHighBits = (1L << 32) | FourCC("2vuy");
  EXPECT_EQ(0, strncmp("Unknown (", Printer::PixelFormat(withHighBits, 0), 9));
  EXPECT_EQ(0, strncmp("Unknown (", Printer::Mode((1L << 40) | FourCC("ntsc"), 0), 9));
}

TEST(PrinterTest, PixelFormat32IsArgb) {
  EXPECT_STREQ("ktnFormat8BitARGB", Printer::PixelFormat(32, 0));
}

TEST(PrinterTest, ModeZeroEndsAfterTheOpeningQuote) {
  EXPECT_STREQ("Unknown (0, 0x00000000, '", Printer::Mode(0, 0));
}

TEST(PrinterTest, BundleNames) {
  EXPECT_STREQ("VeldranAPI", Printer::BundleName("/Library/Application Support/Kestrin/VeldranAPI.bundle"));
  EXPECT_STREQ("Contents", Printer::BundleName("/opt/X.bundle/Contents"));
  EXPECT_STREQ("Plain", Printer::BundleName("Plain"));
  EXPECT_STREQ("X", Printer::BundleName("X.bundle"));
  EXPECT_STREQ("", Printer::BundleName("/ends/with/"));
}

TEST(PrinterTest, StringLists) {
  EXPECT_STREQ("\"\"", Printer::StringList("\0", 0));
  EXPECT_STREQ("\"a\" \"b\"", Printer::StringList("a\0b\0", 0));
  EXPECT_STREQ("\"one\"", Printer::StringList("one\0", 0));
}

TEST(PrinterTest, OverlongStringListIsCutNotOverrun) {
  std::string item(600, 'z');
  std::string list = item + '\0' + item + '\0' + item + '\0' + '\0';
  const char* text = Printer::StringList(list.c_str(), 0);
  EXPECT_LT(strlen(text), 1024u);
  EXPECT_EQ("\"" + item + "\"", std::string(text));
}

TEST(PrinterTest, FixedShort) {
  EXPECT_STREQ("1.2", Printer::FixedShort(258, 0));
  EXPECT_STREQ("0.0", Printer::FixedShort(0, 0));
  EXPECT_STREQ("255.255", Printer::FixedShort(0xffff, 0));
}

TEST(PrinterTest, FourCharacterCodes) {
  EXPECT_STREQ("0x7fff (32767)", Printer::Fcc(32767, 0));
  EXPECT_STREQ("'v210'", Printer::Fcc(static_cast<int>(FourCC("v210")), 0));
  EXPECT_STREQ("0x0 (0)", Printer::Fcc(0, 0));
  EXPECT_STREQ("0xffff (65535)", Printer::Fcc(65535, 0));
  EXPECT_STREQ("'\x80\x01\x02\x03'", Printer::Fcc(static_cast<int>(0x80010203u), 0));
}

TEST(PrinterTest, SixtyFourCodesStayLiveAtOnce) {
  std::vector<const char*> texts;
  for (int i = 0; i < 64; ++i) texts.push_back(Printer::Fcc(i, 0));
  for (int i = 0; i < 64; ++i) {
    char expected[32];
    snprintf(expected, sizeof expected, "0x%x (%d)", i, i);
    EXPECT_STREQ(expected, texts[i]);
  }
  const char* several[3] = {Printer::Fcc(static_cast<int>(FourCC("2vuy"))), Printer::Mode(FourCC("ntsc")),
                            Printer::FixedShort(0x0102)};
  EXPECT_STREQ("'2vuy'", several[0]);
  EXPECT_STREQ("ktnModeNTSC", several[1]);
  EXPECT_STREQ("1.2", several[2]);
}

// A scratch request that cannot be met gives the function's fallback. A bundle name longer
// than a thread's whole block asks for more than any thread has: the name comes back inside
// the caller's own text, uncut, and the buffer says why. The fixed texts that the other
// functions give instead are checked where every request fails, in a process without
// thread keys (below).
TEST(PrinterTest, FallbackStrings) {
  std::string path = "/opt/" + std::string(2050, 'n') + ".bundle";  // a last component of 2057
  CapturedStderr captured;
  const char* name = Printer::BundleName(path.c_str());
  EXPECT_EQ("Per-thread buffer of 2058 requested but limit is 2048\n", captured.Text());
  EXPECT_EQ(path.c_str() + 5, name) << "the caller's own text";
  EXPECT_STREQ(path.c_str() + 5, name) << "uncut";
  EXPECT_STREQ("<memory error>", kMemoryErrorString);
  EXPECT_STREQ("Unknown", kUnknownString);
}

// In a process whose first Printer call comes after every thread key is taken: uses up the
// keys, then ends with 0 when each Printer function gives its fixed fallback text, or with
// a bit set for each that did not.
void PrintWithoutThreadKeys() {
  pthread_key_t key;
  for (int made = 0; made <= PTHREAD_KEYS_MAX && pthread_key_create(&key, nullptr) == 0; ++made) {
  }
  int wrong = 0;
  if (strcmp("<memory error>", Printer::Fcc(static_cast<int>(FourCC("v210")))) != 0) wrong |= 1;
  if (strcmp("<memory error>", Printer::FixedShort(258)) != 0) wrong |= 2;
  if (strcmp("<memory error>", Printer::StringList("a\0b\0")) != 0) wrong |= 4;
  if (strcmp("Unknown", Printer::Unknown(7)) != 0) wrong |= 8;
  if (strcmp("Unknown", Printer::PixelFormat(FourCC("xen0"))) != 0) wrong |= 16;
  static const char kPath[] = "/opt/X.bundle";
  if (Printer::BundleName(kPath) != kPath + 5) wrong |= 32;  // the caller's own text, uncut
  if (strcmp("ktnModePAL", Printer::Mode(FourCC("pal "))) != 0) wrong |= 64;  // names need no scratch
  exit(wrong);
}

// When the thread keys cannot be created, no Printer call asks for a key it does not have
// (whose number another library may use): each gives its fallback text. The process runs
// afresh (the death test executes the program again), so that its first Printer call comes
// after the keys are used up, and reports through its exit status.
TEST(PrinterTest, WithoutThreadKeysEveryTextIsItsFallback) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(PrintWithoutThreadKeys(), testing::ExitedWithCode(0), "pthread_key_create returned");
}

}  // namespace
}  // namespace Util
}  // namespace KTN
