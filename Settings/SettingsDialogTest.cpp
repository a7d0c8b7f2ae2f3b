// Tests of the settings dialog, driven with Qt Test on Qt's offscreen platform: menus built from
// what the card reports, OK and Cancel, and the host window's grey.
#include <gtest/gtest.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <functional>
#include <vector>

#include "DeviceAPI/VeldranObject.h"
#include "Host/PluginHost.h"
#include "Record/CapPriv.h"
#include "Settings/CaptureSettingsWindowController.h"
#include "Settings/CaptureTables.h"
#include "Settings/FakeUserConfigDir.h"
#include "Settings/LinuxSettingsDialog.h"
#include "Settings/UserDefaults.h"
#include "Util/CapturedStderr.h"
#include "Util/ScratchFolder.h"
#include "tests/OffscreenQtApplication.h"
#include "Util/FourCC.h"

namespace KTN {
namespace {

using Util::FourCC;

const bool sQt = (testing::AddGlobalTestEnvironment(new OffscreenQtApplication), true);

// The card's device control as the dialog sees it: chosen modes and hardware flags.
class FakeDeviceControl : public VeldranObject<IVeldranDeviceControl> {
 public:
  std::vector<VeldranDeviceModeRecord> modes;
  uint32_t flags = ktnHardwareFlag10BitRGBCapture;
  VeldranResult modesResult = kVeldranOK;
  VeldranResult GetDeckStatus(uint32_t*) override { return kVeldranNotImplemented; }
  VeldranResult SetCuePoint(uint32_t) override { return kVeldranNotImplemented; }
  VeldranResult GetCuePoint(uint32_t*) override { return kVeldranNotImplemented; }
  VeldranResult SetCaptureGeometry(uint32_t, uint32_t, uint32_t, uint32_t) override { return 0; }
  VeldranResult Play() override { return kVeldranNotImplemented; }
  VeldranResult Stop() override { return kVeldranNotImplemented; }
  VeldranResult Rewind() override { return kVeldranNotImplemented; }
  VeldranResult FastForward() override { return kVeldranNotImplemented; }
  VeldranResult GetReadiness() override { return kVeldranFalse; }
  VeldranResult CheckStart(IVeldranVideoInputFrame*) override { return kVeldranFalse; }
  VeldranResult GetSupportedInputDisplayModes(VeldranDeviceModeRecord* records, uint32_t bufferBytes, uint32_t* count) override {
    if (modesResult) return modesResult;
    uint32_t room = bufferBytes / sizeof(VeldranDeviceModeRecord);
    *count = 0;
    for (const VeldranDeviceModeRecord& mode : modes) {
      if (*count < room) records[(*count)++] = mode;
    }
    return kVeldranOK;
  }
  VeldranResult GetHardwareDescription(VeldranHardwareDescription* description) override {
    description->flags = flags;
    return kVeldranOK;
  }
};

VeldranDeviceModeRecord Mode(uint32_t width, uint32_t height, uint32_t rate) {
  return {width, height, rate, 0};
}

// 16.16 rate of a standard row, as the dialog computes it.
uint32_t RateOf(int row) {
  const SupportedStandard& s = gSupportedStandards[row];
  return ((s.timeScale << 16) + s.frameDuration / 2) / s.frameDuration;
}

struct Menus {
  std::vector<std::string> standards;  // "-" for a separator
  std::vector<std::string> formats;
  std::string selectedStandard;
  std::string selectedFormat;
};

// Picks text in the dialog's named menu as a user does: the menu reports the activation.
void Choose(QDialog* dialog, const char* menu, const char* text) {
  QComboBox* popup = dialog->findChild<QComboBox*>(menu);
  popup->setCurrentIndex(popup->findText(text));
  emit popup->activated(popup->currentIndex());
}

class SettingsDialogTest : public testing::Test {
 protected:
  void SetUp() override {
    FakeUserConfigDir::ClearDefaults();
    SetSettingsLayoutPathForTesting(SETTINGS_UI);
    mInstance.deviceControl = &mCard;
    mSettings = SignedCaptureSettings(1, 0, 2, 16, 48000);
    mHostWindow.resize(40, 40);
    PaintHost(QColor(60, 60, 60));
    PluginHost::SetMainWindow(&mHostWindow);
  }
  void TearDown() override { mInstance.deviceControl = nullptr; }

  void PaintHost(const QColor& colour) {
    QPalette palette = mHostWindow.palette();
    palette.setColor(QPalette::Window, colour);
    mHostWindow.setPalette(palette);
    mHostWindow.setAutoFillBackground(true);
  }

  // Runs the dialog; action is called with it once it is shown and must end it.
  long RunDialog(const std::function<void(QDialog*)>& action, bool* cancelled = nullptr) {
    LinuxSettingsDialog dialog(mHost.StdParms(), &mSettings, SETTINGS_UI);
    // The timer dies with this call: a dialog that is never shown leaves no timer behind to
    // fire into a later test's dialog with this action gone.
    QTimer timer;
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, [&action] {
      for (QWidget* widget : QApplication::topLevelWidgets()) {
        QDialog* shown = qobject_cast<QDialog*>(widget);
        if (shown && shown->isVisible() && shown->objectName() == "Settings") {
          action(shown);
          return;
        }
      }
    });
    timer.start(50);
    long rc = dialog.Run(&mInstance);
    if (cancelled) *cancelled = dialog.Cancelled();
    return rc;
  }

  static Menus Read(QDialog* dialog) {
    Menus menus;
    QComboBox* standards = dialog->findChild<QComboBox*>("mStandardPopup");
    QComboBox* formats = dialog->findChild<QComboBox*>("mFormatPopup");
    for (int i = 0; i < standards->count(); ++i) {
      menus.standards.push_back(standards->itemData(i).toInt() == -1 ? "-" : standards->itemText(i).toStdString());
    }
    for (int i = 0; i < formats->count(); ++i) menus.formats.push_back(formats->itemText(i).toStdString());
    menus.selectedStandard = standards->currentText().toStdString();
    menus.selectedFormat = formats->currentText().toStdString();
    return menus;
  }

  // Opens the dialog, reads its menus and cancels.
  Menus MenusShown() {
    Menus menus;
    EXPECT_EQ(0, RunDialog([&menus](QDialog* dialog) {
      menus = Read(dialog);
      QTest::mouseClick(dialog->findChild<QPushButton*>("cancelButton"), Qt::LeftButton);
    }));
    return menus;
  }

  PluginHost mHost;
  FakeDeviceControl mCard;
  CapPriv mInstance;
  CaptureSettings mSettings;
  QWidget mHostWindow;
};

// The record's standard is the last item and its format the last of its row's, so neither
// selection can come from a fallback to the first item.
TEST_F(SettingsDialogTest, MenusOfferWhatTheCardReceives) {
  mCard.modes = {Mode(720, 486, RateOf(1)), Mode(1920, 1080, RateOf(13))};
  mSettings = SignedCaptureSettings(19, 11, 2, 16, 48000);  // HD 1080i 50, DVCPROHD 1080i50
  Menus menus = MenusShown();
  std::vector<std::string> expected = {"NTSC 4x3", "NTSC 16x9", "-", "HD 1080p 25", "HD 1080i 50"};
  EXPECT_EQ(expected, menus.standards);
  EXPECT_EQ("HD 1080i 50", menus.selectedStandard);
  std::vector<std::string> formats = {"Uncompressed 8-bit 4:2:2", "Uncompressed 10-bit 4:2:2",
                                      "Uncompressed RGB 10-bit 4:4:4", "JPEG", "DVCPROHD 1080i50"};
  EXPECT_EQ(formats, menus.formats);
  EXPECT_EQ("DVCPROHD 1080i50", menus.selectedFormat);
}

TEST_F(SettingsDialogTest, NoModesGiveAnEmptyStandardsMenu) {
  Menus menus = MenusShown();
  EXPECT_TRUE(menus.standards.empty()) << "not even a separator";
  // The empty selection's tag names row 0, "NTSC 4x3 23.98", and its formats.
  std::vector<std::string> formats = {"Uncompressed 8-bit 4:2:2", "Uncompressed 10-bit 4:2:2", "JPEG", "DV NTSC",
                                      "DVCPRO50 NTSC"};
  EXPECT_EQ(formats, menus.formats);
}

TEST_F(SettingsDialogTest, RatesMatchWithin15) {
  EXPECT_EQ(1964116u, RateOf(1)) << "1966080500 / 1001";
  mCard.modes = {Mode(720, 486, 1964110)};
  EXPECT_EQ(std::vector<std::string>({"NTSC 4x3", "NTSC 16x9"}), MenusShown().standards);
  mCard.modes = {Mode(720, 486, 1964100)};
  EXPECT_TRUE(MenusShown().standards.empty());
  mCard.modes = {Mode(1920, 1080, 1964110)};
  EXPECT_EQ(std::vector<std::string>({"-", "HD 1080p 29.97", "HD 1080i 59.94"}), MenusShown().standards)
      << "the first group is all unsupported: a separator comes first";
}

TEST_F(SettingsDialogTest, HardwareFlagsDecide10BitFormats) {
  mCard.modes = {Mode(720, 576, RateOf(4)), Mode(1920, 1080, RateOf(13)), Mode(2048, 1556, RateOf(25))};
  mCard.flags = ktnHardwareFlagNo10BitYUVInHD;  // and no 10-bit RGB
  mSettings = SignedCaptureSettings(4, 0, 2, 16, 48000);
  Menus pal = MenusShown();
  EXPECT_NE(pal.formats.end(), std::find(pal.formats.begin(), pal.formats.end(), "Uncompressed 10-bit 4:2:2"));
  mSettings = SignedCaptureSettings(13, 0, 2, 16, 48000);
  Menus hd = MenusShown();
  EXPECT_EQ(std::vector<std::string>({"Uncompressed 8-bit 4:2:2", "JPEG"}), hd.formats);
  mSettings = SignedCaptureSettings(25, 2, 2, 16, 48000);
  Menus twoK = MenusShown();
  EXPECT_EQ("2K 1556p 25", twoK.selectedStandard);
  EXPECT_TRUE(twoK.formats.empty()) << "without 10-bit RGB the 2K standards show no format";
}

TEST_F(SettingsDialogTest, NtscDvRecordStillSelectsItsStandard) {
  mCard.modes = {Mode(720, 486, RateOf(3))};
  // "NTSC 16x9" is the second item: selecting it shows that the width alone matched.
  mSettings = SignedCaptureSettings(3, 4, 2, 16, 48000);  // height 480
  ASSERT_EQ(480u, mSettings.height);
  Menus menus = MenusShown();
  ASSERT_EQ(std::vector<std::string>({"NTSC 4x3", "NTSC 16x9"}), menus.standards);
  EXPECT_EQ("NTSC 16x9", menus.selectedStandard);
  EXPECT_EQ("DV NTSC", menus.selectedFormat);
}

// With no row matching the record the pop-up keeps its own selection, its first item: here
// the separator before the first group the card receives, whose tag names no standard, so the
// formats menu stays empty and OK changes nothing of the record.
TEST_F(SettingsDialogTest, WithoutAMatchingRowThePopUpKeepsItsOwnSelection) {
  // A card that receives only HD, and the NTSC record of the defaults.
  mCard.modes = {Mode(1920, 1080, RateOf(13)), Mode(1920, 1080, RateOf(19))};
  CaptureSettings before = mSettings;
  int selectedTag = 0;
  Menus menus;
  bool cancelled = true;
  EXPECT_EQ(0, RunDialog(
                   [&](QDialog* dialog) {
                     menus = Read(dialog);
                     selectedTag = dialog->findChild<QComboBox*>("mStandardPopup")->currentData().toInt();
                     QTest::mouseClick(dialog->findChild<QPushButton*>("okButton"), Qt::LeftButton);
                   },
                   &cancelled));
  ASSERT_EQ(std::vector<std::string>({"-", "HD 1080p 25", "HD 1080i 50"}), menus.standards);
  EXPECT_EQ(-1, selectedTag) << "the leading separator, not the first standard";
  EXPECT_TRUE(menus.formats.empty());
  EXPECT_FALSE(cancelled);
  EXPECT_EQ(0, memcmp(&before, &mSettings, sizeof before)) << "OK with no standard stores nothing";
}

TEST_F(SettingsDialogTest, OkStoresTheChoice) {
  mCard.modes = {Mode(720, 486, RateOf(1)), Mode(1920, 1080, RateOf(13))};
  bool cancelled = true;
  EXPECT_EQ(0, RunDialog(
                   [](QDialog* dialog) {
                     Choose(dialog, "mStandardPopup", "HD 1080i 50");
                     Choose(dialog, "mFormatPopup", "DVCPROHD 1080i50");
                     QComboBox* bits = dialog->findChild<QComboBox*>("mTypePopup");
                     bits->setCurrentIndex(bits->findData(24));
                     QTest::mouseClick(dialog->findChild<QPushButton*>("okButton"), Qt::LeftButton);
                   },
                   &cancelled));
  EXPECT_FALSE(cancelled);
  EXPECT_EQ(FourCC("Hi50"), mSettings.displayMode);
  EXPECT_EQ(FourCC("dvh5"), mSettings.codecType);
  EXPECT_EQ(24u, mSettings.audioSampleType);
  UserDefaults& defaults = UserDefaults::Standard();
  EXPECT_EQ(19, defaults.IntegerForKey(kVideoStandardKey)) << "remembered in the user defaults";
  EXPECT_EQ(11, defaults.IntegerForKey(kVideoFormatKey));
}

TEST_F(SettingsDialogTest, CancelKeepsTheRecordButAFormatChangeStands) {
  mCard.modes = {Mode(720, 486, RateOf(1))};
  CaptureSettings before = mSettings;
  bool cancelled = false;
  EXPECT_EQ(0, RunDialog(
                   [](QDialog* dialog) {
                     Choose(dialog, "mFormatPopup", "JPEG");
                     QTest::mouseClick(dialog->findChild<QPushButton*>("cancelButton"), Qt::LeftButton);
                   },
                   &cancelled));
  EXPECT_TRUE(cancelled);
  EXPECT_EQ(FourCC("jpeg"), mSettings.codecType) << "the format menu writes the codec type at once";
  EXPECT_EQ(before.codecVendor, mSettings.codecVendor);
  EXPECT_EQ(before.displayMode, mSettings.displayMode);
}

TEST_F(SettingsDialogTest, ClosingTheWindowIsACancel) {
  mCard.modes = {Mode(720, 486, RateOf(1))};
  bool cancelled = false;
  EXPECT_EQ(0, RunDialog([](QDialog* dialog) { dialog->close(); }, &cancelled));
  EXPECT_TRUE(cancelled);
}

TEST_F(SettingsDialogTest, EscapeIsACancel) {
  mCard.modes = {Mode(720, 486, RateOf(1)), Mode(1920, 1080, RateOf(13))};
  CaptureSettings before = mSettings;
  bool cancelled = false;
  EXPECT_EQ(0, RunDialog(
                   [](QDialog* dialog) {
                     Choose(dialog, "mStandardPopup", "HD 1080p 25");
                     QTest::keyClick(dialog, Qt::Key_Escape);
                   },
                   &cancelled));
  EXPECT_TRUE(cancelled) << "the host must keep its previous settings";
  EXPECT_EQ(0, memcmp(&before, &mSettings, sizeof before));
}

TEST_F(SettingsDialogTest, DeviceThatCannotListItsModesShowsNoDialog) {
  mCard.modesResult = kVeldranFail;
  Util::CapturedStderr captured;
  EXPECT_EQ(kVeldranFail, RunDialog([](QDialog*) { ADD_FAILURE() << "the dialog was shown"; }));
  EXPECT_EQ("*** Run[#]: GetSupportedInputDisplayModes returned -2147483646 (0x80000002)\n", captured.Text());
}

// The card is asked before the window's layout is loaded: when neither can be had, the result
// is the card's and the layout is never looked at.
TEST_F(SettingsDialogTest, TheCardIsAskedBeforeTheLayoutIsLoaded) {
  mCard.modesResult = kVeldranFail;
  LinuxSettingsDialog dialog(mHost.StdParms(), &mSettings, "/nonexistent/Settings.ui");
  Util::CapturedStderr captured;
  EXPECT_EQ(kVeldranFail, dialog.Run(&mInstance));
  EXPECT_EQ("*** Run[#]: GetSupportedInputDisplayModes returned -2147483646 (0x80000002)\n", captured.Text());
}

// ---- The host's grey ----

struct GreyCase {
  QColor host;
  int level;
  bool lightLabels;
  const char* report;
};

TEST_F(SettingsDialogTest, DialogBlendsIntoTheHostsGrey) {
  const GreyCase cases[] = {
      {QColor(60, 60, 60), 60, true, ""},
      {QColor(200, 200, 200), 200, false, ""},
      {QColor(200, 100, 50), 89, true,
       "*** -[CaptureSettingsWindowController setMainWindow:][#]: Interface colour isn't grey: a: 255 r: 50 g: 100 "
       "b: 200\n"},
  };
  for (const GreyCase& c : cases) {
    PaintHost(c.host);
    CaptureSettingsWindowController controller(SETTINGS_UI);
    QDialog* window = controller.window();
    ASSERT_NE(nullptr, window);
    Util::CapturedStderr captured;
    controller.setMainWindow(&mHostWindow);
    EXPECT_EQ(c.report, captured.Text());
    EXPECT_EQ(c.level, controller.GreyLevel());
    EXPECT_EQ(QColor(c.level, c.level, c.level), window->palette().color(QPalette::Window));
    QColor label = window->findChild<QLabel*>("mRateTextField")->palette().color(QPalette::WindowText);
    if (c.lightLabels) {
      EXPECT_EQ(QColor::fromRgbF(0.75, 0.75, 0.75), label) << c.level;
    } else {
      EXPECT_NE(QColor::fromRgbF(0.75, 0.75, 0.75), label) << "the layout's colour stays";
    }
  }
}

// A host window that gives no image of its origin (it has no area) draws nothing into the
// zeroed sample, which then reads as grey 0: no failure, no line.
TEST_F(SettingsDialogTest, AHostWindowWithoutAnImageReadsAsGreyZero) {
  QWidget empty;
  empty.resize(0, 0);
  ASSERT_TRUE(empty.grab(QRect(0, 0, 1, 1)).isNull()) << empty.width() << "x" << empty.height();
  CaptureSettingsWindowController controller(SETTINGS_UI);
  QDialog* window = controller.window();
  ASSERT_NE(nullptr, window);
  Util::CapturedStderr captured;
  controller.setMainWindow(&empty);
  EXPECT_EQ("", captured.Text());
  EXPECT_EQ(0, controller.GreyLevel());
  EXPECT_EQ(QColor(0, 0, 0), window->palette().color(QPalette::Window));
}

TEST_F(SettingsDialogTest, WithoutAHostWindowTheGreyIs89AndLabelsAreLight) {
  CaptureSettingsWindowController controller(SETTINGS_UI);
  QDialog* window = controller.window();
  ASSERT_NE(nullptr, window);
  const char* const labels[] = {"mStandardTextField", "mFormatTextField", "mChannelsTextField", "mTypeTextField",
                                "mRateTextField"};
  for (const char* name : labels) {
    ASSERT_NE(nullptr, window->findChild<QLabel*>(name)) << name;
    EXPECT_NE(QColor::fromRgbF(0.75, 0.75, 0.75), window->findChild<QLabel*>(name)->palette().color(QPalette::WindowText))
        << name << ": the layout's own colour is another";
  }
  Util::CapturedStderr captured;
  controller.setMainWindow(nullptr);
  EXPECT_EQ("", captured.Text());
  EXPECT_EQ(89, controller.GreyLevel());
  EXPECT_EQ(QColor(89, 89, 89), window->palette().color(QPalette::Window));
  EXPECT_TRUE(window->autoFillBackground()) << "the background is painted in that grey";
  for (const char* name : labels) {
    EXPECT_EQ(QColor::fromRgbF(0.75, 0.75, 0.75), window->findChild<QLabel*>(name)->palette().color(QPalette::WindowText))
        << name;
  }
}

TEST_F(SettingsDialogTest, AudioMenusCarryTheirValuesAsTags) {
  CaptureSettingsWindowController controller(SETTINGS_UI);
  QDialog* window = controller.window();
  ASSERT_NE(nullptr, window);
  auto tags = [window](const char* name) {
    std::vector<int> values;
    QComboBox* popup = window->findChild<QComboBox*>(name);
    for (int i = 0; i < popup->count(); ++i) values.push_back(popup->itemData(i).toInt());
    return values;
  };
  EXPECT_EQ(std::vector<int>({2, 8, 16}), tags("mChannelsPopup"));
  EXPECT_EQ(std::vector<int>({16, 24, 32}), tags("mTypePopup"));
  EXPECT_EQ(std::vector<int>({48000}), tags("mRatePopup"));
}

// A layout that cannot be had, missing or without its parts, is reported by Run in one line:
// the dialog has no window controller.
TEST_F(SettingsDialogTest, ALayoutThatCannotBeLoadedIsReportedInOneLine) {
  mCard.modes = {Mode(720, 486, RateOf(1))};
  Util::ScratchFolder scratch;
  std::string partless = scratch.Path() + "/Settings.ui";
  FILE* file = fopen(partless.c_str(), "w");
  ASSERT_NE(nullptr, file);
  fputs("<ui version=\"4.0\"><class>Settings</class><widget class=\"QDialog\" name=\"Settings\"/></ui>\n", file);
  fclose(file);
  for (const std::string& path : {std::string("/nonexistent/Settings.ui"), partless}) {
    SCOPED_TRACE(path);
    CaptureSettingsWindowController controller(path);
    {
      Util::CapturedStderr captured;
      EXPECT_EQ(nullptr, controller.window());
      EXPECT_EQ("", captured.Text()) << "the controller itself says nothing";
    }
    LinuxSettingsDialog dialog(mHost.StdParms(), &mSettings, path);
    Util::CapturedStderr captured;
    EXPECT_EQ(12, dialog.Run(&mInstance));
    EXPECT_EQ("*** Run[#]: Failed to create settings window controller\n", captured.Text());
  }
}

// The dialog's own failure lines carry the names of its constructor, its destructor and Run.
TEST_F(SettingsDialogTest, FailureLinesNameTheDialogsOperations) {
  {
    Util::CapturedStderr captured;
    { LinuxSettingsDialog dialog(nullptr, &mSettings, SETTINGS_UI); }
    EXPECT_EQ("*** SettingsDialog[#]: Invalid stdParms\n*** ~SettingsDialog[#]: Failed to get SP Basic Suite\n",
              captured.Text());
  }
  {
    LinuxSettingsDialog dialog(mHost.StdParms(), &mSettings, "/nonexistent/Settings.ui");
    Util::CapturedStderr captured;
    EXPECT_EQ(12, dialog.Run(&mInstance));
    EXPECT_EQ("*** Run[#]: Failed to create settings window controller\n", captured.Text());
  }
}

}  // namespace
}  // namespace KTN
