// Tests of the capture settings record and its user defaults.
#include <gtest/gtest.h>

#include <QSettings>
#include <QString>

#include <filesystem>
#include <fstream>
#include <string>

#include "Settings/CaptureSettings.h"
#include "Settings/CaptureTables.h"
#include "Settings/FakeUserConfigDir.h"
#include "Settings/UserDefaults.h"
#include "Util/CapturedStderr.h"
#include "Util/FourCC.h"

namespace KTN {
namespace {

using Util::FourCC;

class CaptureSettingsTest : public testing::Test {
 protected:
  void SetUp() override { FakeUserConfigDir::ClearDefaults(); }

  // What the defaults file holds under key, read without the store; -1 when absent.
  static int StoredValue(const char* key) {
    QSettings file(QString::fromStdString(UserDefaults::Standard().Path()), QSettings::IniFormat);
    return file.value(key, -1).toInt();
  }

  // Writes the defaults file by hand, as a user editing it would.
  static void WriteDefaults(const std::string& lines) {
    std::filesystem::path path = UserDefaults::Standard().Path();
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << "[General]\n" << lines;
  }

  static CaptureSettings Fresh() {
    CaptureSettings settings;
    memset(&settings, 0xAB, sizeof settings);
    return settings;
  }
};

TEST_F(CaptureSettingsTest, DefaultsFromEmptyUserDefaults) {
  CaptureSettings s = Fresh();
  s.SetDefaults();
  EXPECT_EQ(FourCC("KTRN"), s.signature);
  EXPECT_EQ(3u, s.version);
  EXPECT_EQ(FourCC("ntsc"), s.displayMode);
  EXPECT_EQ(720u, s.width);
  EXPECT_EQ(486u, s.height);
  EXPECT_EQ(FourCC("2vuy"), s.codecType);
  EXPECT_EQ(FourCC("KeyG"), s.codecVendor);
  EXPECT_EQ(30000u, s.timeScale);
  EXPECT_EQ(1001u, s.frameDuration);
  EXPECT_EQ(648u, s.pixelAspectX);
  EXPECT_EQ(720u, s.pixelAspectY);
  EXPECT_EQ(2u, s.audioChannels);
  EXPECT_EQ(16u, s.audioSampleType);
  EXPECT_EQ(48000u, s.audioSampleRate);
  EXPECT_EQ(0, s.extraFlag);
  EXPECT_EQ(1, StoredValue("com_kestrin_design_premiere_record_video_standard"));
  EXPECT_EQ(0, StoredValue("com_kestrin_design_premiere_record_video_format"));
  EXPECT_EQ(2, StoredValue("com_kestrin_design_premiere_record_audio_channels"));
  EXPECT_EQ(16, StoredValue("com_kestrin_design_premiere_record_audio_type"));
  EXPECT_EQ(48000, StoredValue("com_kestrin_design_premiere_record_audio_rate"));
}

TEST_F(CaptureSettingsTest, KeysAreTheSystemsNames) {
  EXPECT_STREQ("com_kestrin_design_premiere_record_video_standard", kVideoStandardKey);
  EXPECT_STREQ("com_kestrin_design_premiere_record_video_format", kVideoFormatKey);
  EXPECT_STREQ("com_kestrin_design_premiere_record_audio_channels", kAudioChannelsKey);
  EXPECT_STREQ("com_kestrin_design_premiere_record_audio_type", kAudioTypeKey);
  EXPECT_STREQ("com_kestrin_design_premiere_record_audio_rate", kAudioRateKey);
}

TEST_F(CaptureSettingsTest, NtscDvNarrowsTo480) {
  CaptureSettings s = Fresh();
  s.Update(3, 4, 2, 16, 48000);
  EXPECT_EQ(720u, s.width);
  EXPECT_EQ(480u, s.height);
  EXPECT_EQ(864u, s.pixelAspectX);
  EXPECT_EQ(720u, s.pixelAspectY);
  EXPECT_EQ(FourCC("dvc "), s.codecType);
  s.Update(3, 5, 2, 16, 48000);
  EXPECT_EQ(486u, s.height) << "DV PAL has no fixed size";
}

TEST_F(CaptureSettingsTest, UpdateDoesNotConsultTheMask) {
  CaptureSettings s = Fresh();
  s.Update(13, 8, 8, 24, 48000);
  EXPECT_EQ(1920u, s.width);
  EXPECT_EQ(1080u, s.height);
  EXPECT_EQ(FourCC("dvhp"), s.codecType);
  EXPECT_EQ(0u, s.codecVendor);
  EXPECT_EQ(FourCC("Hp25"), s.displayMode);
  EXPECT_EQ(8u, s.audioChannels);
  EXPECT_EQ(24u, s.audioSampleType);
}

TEST_F(CaptureSettingsTest, UpdateLeavesSignatureAndVersionAndStoresAllFive) {
  CaptureSettings s = Fresh();
  s.Update(19, 11, 16, 32, 44100);
  EXPECT_EQ(0xABABABABu, s.signature);
  EXPECT_EQ(0xABABABABu, s.version);
  EXPECT_EQ(0, s.extraFlag);
  EXPECT_EQ(44100u, s.audioSampleRate) << "audio values are stored unchecked";
  EXPECT_EQ(19, StoredValue(kVideoStandardKey));
  EXPECT_EQ(11, StoredValue(kVideoFormatKey));
  EXPECT_EQ(16, StoredValue(kAudioChannelsKey));
  EXPECT_EQ(32, StoredValue(kAudioTypeKey));
  EXPECT_EQ(44100, StoredValue(kAudioRateKey));
}

TEST_F(CaptureSettingsTest, StoredProResFormatsAreHonoured) {
  WriteDefaults("com_kestrin_design_premiere_record_video_standard=13\n"
                "com_kestrin_design_premiere_record_video_format=12\n");
  CaptureSettings s = Fresh();
  s.SetDefaults();
  EXPECT_EQ(FourCC("apch"), s.codecType);
  EXPECT_EQ(FourCC("Hp25"), s.displayMode);
  WriteDefaults("com_kestrin_design_premiere_record_video_format=13\n");
  s.SetDefaults();
  EXPECT_EQ(FourCC("ap4h"), s.codecType);
  EXPECT_EQ(FourCC("ntsc"), s.displayMode) << "the standard fell back to its default";
}

TEST_F(CaptureSettingsTest, StoredChoicesAreRead) {
  WriteDefaults("com_kestrin_design_premiere_record_video_standard=4\n"
                "com_kestrin_design_premiere_record_video_format=5\n"
                "com_kestrin_design_premiere_record_audio_channels=8\n"
                "com_kestrin_design_premiere_record_audio_type=24\n");
  CaptureSettings s = Fresh();
  s.SetDefaults();
  EXPECT_EQ(FourCC("pal "), s.displayMode);
  EXPECT_EQ(576u, s.height);
  EXPECT_EQ(FourCC("dvcp"), s.codecType);
  EXPECT_EQ(8u, s.audioChannels);
  EXPECT_EQ(24u, s.audioSampleType);
  EXPECT_EQ(48000u, s.audioSampleRate);
}

struct BadIndexCase {
  const char* standard;
  const char* format;
};

// Hand-edited files: separators, indices past the tables, negative numbers, text.
const BadIndexCase kBadIndexCases[] = {
    {"6", "14"}, {"10", "-1"}, {"22", "99"}, {"26", "1000000"}, {"-3", "x"}, {"ntsc", "2vuy"},
};

TEST_F(CaptureSettingsTest, StoredIndicesOutsideTheTablesReadAsUnset) {
  for (const BadIndexCase& c : kBadIndexCases) {
    WriteDefaults(std::string("com_kestrin_design_premiere_record_video_standard=") + c.standard +
                  "\ncom_kestrin_design_premiere_record_video_format=" + c.format + "\n");
    CaptureSettings s = Fresh();
    Util::CapturedStderr captured;
    s.SetDefaults();
    std::string text = captured.Text();
    EXPECT_EQ(FourCC("ntsc"), s.displayMode) << c.standard;
    EXPECT_EQ(FourCC("2vuy"), s.codecType) << c.format;
    EXPECT_NE(std::string::npos, text.find("Ignoring com_kestrin_design_premiere_record_video_standard")) << text;
    EXPECT_NE(std::string::npos, text.find("Ignoring com_kestrin_design_premiere_record_video_format")) << text;
    EXPECT_EQ(1, StoredValue(kVideoStandardKey)) << "the repaired choice is written back";
  }
}

struct StoredAudioCase {
  int channels;
  int type;
  int rate;
};

// Audio values outside what the card and the recording server take are still the user's
// choice: the settings keep them, and the server's Prepare is what refuses them.
const StoredAudioCase kStoredAudioCases[] = {
    {6, 20, 44100}, {1, 8, 96000}, {-5, 0, -1}, {16, 32, 48000},
};

TEST_F(CaptureSettingsTest, StoredAudioChoicesAreReadAsStored) {
  for (const StoredAudioCase& c : kStoredAudioCases) {
    WriteDefaults("com_kestrin_design_premiere_record_audio_channels=" + std::to_string(c.channels) +
                  "\ncom_kestrin_design_premiere_record_audio_type=" + std::to_string(c.type) +
                  "\ncom_kestrin_design_premiere_record_audio_rate=" + std::to_string(c.rate) + "\n");
    CaptureSettings s = Fresh();
    Util::CapturedStderr captured;
    s.SetDefaults();
    EXPECT_EQ("", captured.Text()) << c.channels;
    EXPECT_EQ(static_cast<uint32_t>(c.channels), s.audioChannels);
    EXPECT_EQ(static_cast<uint32_t>(c.type), s.audioSampleType);
    EXPECT_EQ(static_cast<uint32_t>(c.rate), s.audioSampleRate);
    EXPECT_EQ(c.channels, StoredValue(kAudioChannelsKey)) << "written back unchanged";
    EXPECT_EQ(c.type, StoredValue(kAudioTypeKey));
    EXPECT_EQ(c.rate, StoredValue(kAudioRateKey));
  }
}

// Records the plug-in makes, and ones it does not.
struct RecordableCase {
  const char* name;
  void (*damage)(CaptureSettings&);
  bool recordable;
};

const RecordableCase kRecordableCases[] = {
    {"as made", [](CaptureSettings&) {}, true},
    {"any extra flag", [](CaptureSettings& s) { s.extraFlag = 7; }, true},
    {"unsigned", [](CaptureSettings& s) { s.signature = 0; }, false},
    {"version 2", [](CaptureSettings& s) { s.version = 2; }, false},
    {"width of no row", [](CaptureSettings& s) { s.width = 4000; }, false},
    {"no frame rate", [](CaptureSettings& s) { s.timeScale = 0; }, false},
    {"unknown display mode", [](CaptureSettings& s) { s.displayMode = FourCC("zzzz"); }, false},
    {"format the standard forbids", [](CaptureSettings& s) { s.codecType = FourCC("dvh5"); }, false},
    {"6 channels", [](CaptureSettings& s) { s.audioChannels = 6; }, false},
    {"20-bit sound", [](CaptureSettings& s) { s.audioSampleType = 20; }, false},
    {"44.1 kHz", [](CaptureSettings& s) { s.audioSampleRate = 44100; }, false},
};

TEST_F(CaptureSettingsTest, OnlyRecordsTheTablesCanMakeAreRecordable) {
  for (const RecordableCase& c : kRecordableCases) {
    CaptureSettings s = SignedCaptureSettings(4, 5, 8, 24, 48000);  // PAL DV
    c.damage(s);
    EXPECT_EQ(c.recordable, s.IsRecordable()) << c.name;
  }
  // Every standard with every format it allows, as the dialog makes them.
  int made = 0;
  for (size_t standard = 0; standard < kSupportedStandardCount; ++standard) {
    if (!gSupportedStandards[standard].name) continue;
    for (size_t format = 0; format < kSupportedPixelFormatCount; ++format) {
      if (!(gSupportedStandards[standard].allowedFormats & (1u << format))) continue;
      EXPECT_TRUE(SignedCaptureSettings(static_cast<int>(standard), static_cast<int>(format), 16, 32, 48000).IsRecordable())
          << standard << "/" << format;
      ++made;
    }
  }
  EXPECT_GT(made, 80);
}

TEST_F(CaptureSettingsTest, RecordIsTheHostsSixtyByteBlob) {
  CaptureSettings s = Fresh();
  s.SetDefaults();
  unsigned char blob[60];
  memcpy(blob, &s, sizeof blob);
  uint32_t word;
  memcpy(&word, blob + 8, 4);
  EXPECT_EQ(FourCC("ntsc"), word);
  memcpy(&word, blob + 52, 4);
  EXPECT_EQ(48000u, word);
  EXPECT_EQ(0, blob[56]);
}

}  // namespace
}  // namespace KTN
