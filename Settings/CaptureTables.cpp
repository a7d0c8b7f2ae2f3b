// The standards and formats tables, constant for the life of the program.
#include "Settings/CaptureTables.h"

#include "Util/FourCC.h"

namespace KTN {

using Util::FourCC;

// The masks are kept exactly as they stand: no standard allows the ProRes rows 12 and 13,
// which can only become current through a format index already in the user defaults.
const SupportedStandard gSupportedStandards[kSupportedStandardCount] = {
    // name               mode            width height scale  dur   PAR x PAR y mask
    {"NTSC 4x3 23.98",  FourCC("nt23"),  720,  486, 24000, 1001,  648, 720, 0x7C05B},
    {"NTSC 4x3",        FourCC("ntsc"),  720,  486, 30000, 1001,  648, 720, 0x7C05B},
    {"NTSC 16x9 23.98", FourCC("nt23"),  720,  486, 24000, 1001,  864, 720, 0x7C05B},
    {"NTSC 16x9",       FourCC("ntsc"),  720,  486, 30000, 1001,  864, 720, 0x7C05B},
    {"PAL 4x3",         FourCC("pal "),  720,  576,    25,    1,  768, 720, 0x7C0AB},
    {"PAL 16x9",        FourCC("pal "),  720,  576,    25,    1, 1024, 720, 0x7C0AB},
    {nullptr,           0,                 0,    0,     0,    0,    0,   0, 0},
    {"HD 720p 50",      FourCC("hp50"), 1280,  720,    50,    1,    1,   1, 0x7C20F},
    {"HD 720p 59.94",   FourCC("hp59"), 1280,  720, 60000, 1001,    1,   1, 0x7C10F},
    {"HD 720p 60",      FourCC("hp60"), 1280,  720,    60,    1,    1,   1, 0x7C00F},
    {nullptr,           0,                 0,    0,     0,    0,    0,   0, 0},
    {"HD 1080p 23.976", FourCC("23ps"), 1920, 1080, 24000, 1001,    1,   1, 0x7C40F},
    {"HD 1080p 24",     FourCC("24ps"), 1920, 1080,    24,    1,    1,   1, 0x7C00F},
    {"HD 1080p 25",     FourCC("Hp25"), 1920, 1080,    25,    1,    1,   1, 0x7C00F},
    {"HD 1080p 29.97",  FourCC("Hp29"), 1920, 1080, 30000, 1001,    1,   1, 0x7C00F},
    {"HD 1080p 30",     FourCC("Hp30"), 1920, 1080,    30,    1,    1,   1, 0x7C00F},
    {"HD 1080p 50",     FourCC("Hp50"), 1920, 1080,    50,    1,    1,   1, 0x7C00B},
    {"HD 1080p 59.94",  FourCC("Hp59"), 1920, 1080, 60000, 1001,    1,   1, 0x7C00B},
    {"HD 1080p 60",     FourCC("Hp60"), 1920, 1080,    60,    1,    1,   1, 0x7C00B},
    {"HD 1080i 50",     FourCC("Hi50"), 1920, 1080,    25,    1,    1,   1, 0x7C80F},
    {"HD 1080i 59.94",  FourCC("Hi59"), 1920, 1080, 30000, 1001,    1,   1, 0x7C40F},
    {"HD 1080i 60",     FourCC("Hi60"), 1920, 1080,    30,    1,    1,   1, 0x7C00F},
    {nullptr,           0,                 0,    0,     0,    0,    0,   0, 0},
    {"2K 1556p 23.976", FourCC("2k23"), 2048, 1556, 24000, 1001,    1,   1, 0x4},
    {"2K 1556p 24",     FourCC("2k24"), 2048, 1556,    24,    1,    1,   1, 0x4},
    {"2K 1556p 25",     FourCC("2k25"), 2048, 1556,    25,    1,    1,   1, 0x4},
};

SupportedPixelFormat gSupportedPixelFormats[kSupportedPixelFormatCount] = {
    // name                             codec           vendor          fixed w, h
    {"Uncompressed 8-bit 4:2:2",      FourCC("2vuy"), FourCC("KeyG"),   0,   0},
    {"Uncompressed 10-bit 4:2:2",     FourCC("v210"), FourCC("KeyG"),   0,   0},
    {"Uncompressed RGB 10-bit 4:4:4", FourCC("r210"), FourCC("KTRN"),   0,   0},
    {"JPEG",                          FourCC("jpeg"), FourCC("appl"),   0,   0},
    {"DV NTSC",                       FourCC("dvc "), FourCC("appl"), 720, 480},
    {"DV PAL",                        FourCC("dvcp"), FourCC("appl"),   0,   0},
    {"DVCPRO50 NTSC",                 FourCC("dv5n"), FourCC("appl"), 720, 480},
    {"DVCPRO50 PAL",                  FourCC("dv5p"), FourCC("appl"),   0,   0},
    {"DVCPROHD 720p60",               FourCC("dvhp"), 0,                0,   0},
    {"DVCPROHD 720p50",               FourCC("dvhq"), 0,                0,   0},
    {"DVCPROHD 1080i60",              FourCC("dvh6"), 0,                0,   0},
    {"DVCPROHD 1080i50",              FourCC("dvh5"), 0,                0,   0},
    {"ProRes 422 (HQ)",               FourCC("apch"), 0,                0,   0},
    {"ProRes 4444",                   FourCC("ap4h"), 0,                0,   0},
};

bool IsNamedStandardIndex(int index) {
  return index >= 0 && static_cast<size_t>(index) < kSupportedStandardCount && gSupportedStandards[index].name;
}

bool IsPixelFormatIndex(int index) {
  return index >= 0 && static_cast<size_t>(index) < kSupportedPixelFormatCount;
}

}  // namespace KTN
