// Tests of the capture window's readout: its texts, and the warnings drawn in red.
#include <gtest/gtest.h>

#include <QLabel>
#include <QPalette>

#include "Host/CaptureReadout.h"
#include "tests/OffscreenQtApplication.h"

namespace KTN {
namespace {

const bool sQt = (testing::AddGlobalTestEnvironment(new OffscreenQtApplication), true);

// A host window painted in grey with its text colour, holding the readout.
class ReadoutInAWindow {
 public:
  ReadoutInAWindow(int grey, QColor text) {
    QPalette palette = mWindow.palette();
    palette.setColor(QPalette::Window, QColor(grey, grey, grey));
    palette.setColor(QPalette::WindowText, text);
    mWindow.setPalette(palette);
    mReadout = new CaptureReadout(&mWindow);
  }
  CaptureReadout& Readout() { return *mReadout; }
  QLabel* Label(const char* name) const { return mReadout->findChild<QLabel*>(name); }
  QColor Colour(const char* name) const { return Label(name)->palette().color(QPalette::WindowText); }
  std::string Text(const char* name) const { return Label(name)->text().toStdString(); }

 private:
  QWidget mWindow;
  CaptureReadout* mReadout;
};

bool Red(QColor colour) {
  return colour.red() >= 150 && colour.green() <= 110 && colour.blue() <= 110;
}

const QColor kLightText(220, 220, 220);
const double kRate = 5120.0 * 1080 * 25 + 2 * 3 * 48000;  // HD 1080i 50 in 10-bit, 2 ch 24-bit

TEST(CaptureReadoutTest, DiskTimeAtTheFormatsRateWarnsUnderFiveMinutes) {
  ReadoutInAWindow window(60, kLightText);
  window.Readout().ShowDiskTime(2 * 3600 + 13 * 60 + 7, kRate);
  EXPECT_EQ("Disk: 2 h 13 min left at 138.5 MB/s", window.Text("disk"));
  EXPECT_EQ(kLightText, window.Colour("disk"));
  window.Readout().ShowDiskTime(299.9, kRate);
  EXPECT_EQ("Disk: 4 min 59 s left at 138.5 MB/s (WARNING: under 5 minutes)", window.Text("disk"));
  EXPECT_TRUE(Red(window.Colour("disk"))) << window.Colour("disk").name().toStdString();
  window.Readout().ShowDiskTime(300, kRate);
  EXPECT_EQ("Disk: 5 min 00 s left at 138.5 MB/s", window.Text("disk"));
  EXPECT_EQ(kLightText, window.Colour("disk")) << "the warning goes with the shortage";
  window.Readout().ShowDiskTime(42, kRate);
  EXPECT_EQ("Disk: 42 s left at 138.5 MB/s (WARNING: under 5 minutes)", window.Text("disk"));
  window.Readout().ShowDiskTime(-1, kRate);
  EXPECT_EQ("Disk: free space unknown", window.Text("disk"));
  EXPECT_EQ(kLightText, window.Colour("disk"));
}

TEST(CaptureReadoutTest, TheTakesFiguresAppearWithTheFirstTake) {
  ReadoutInAWindow window(60, kLightText);
  EXPECT_EQ(std::string::npos, window.Readout().Snapshot().find("elapsed:")) << "no take yet";
  window.Readout().ShowTake(3725.6, 93140, 0, "01:00:00:00");
  std::string snapshot = window.Readout().Snapshot();
  EXPECT_NE(std::string::npos, snapshot.find("elapsed: 1:02:05\n")) << snapshot;
  EXPECT_NE(std::string::npos, snapshot.find("frames: 93140\n")) << snapshot;
  EXPECT_NE(std::string::npos, snapshot.find("dropped: 0\n")) << snapshot;
  EXPECT_NE(std::string::npos, snapshot.find("start: 01:00:00:00\n")) << snapshot;
  window.Readout().ShowTake(0.2, 0, 0, "");
  EXPECT_EQ("0:00:00", window.Text("elapsed"));
  EXPECT_EQ("--:--:--:--", window.Text("start")) << "a start timecode not known yet";
}

TEST(CaptureReadoutTest, DroppedFramesAreRedOnDarkAndLightHosts) {
  for (int grey : {60, 200}) {
    QColor text = grey < 128 ? kLightText : QColor(20, 20, 20);
    ReadoutInAWindow window(grey, text);
    window.Readout().ShowTake(10, 250, 0, "01:00:00:00");
    EXPECT_EQ(text, window.Colour("dropped")) << grey;
    window.Readout().ShowTake(11, 275, 3, "01:00:00:00");
    EXPECT_EQ("3", window.Text("dropped"));
    QColor red = window.Colour("dropped");
    EXPECT_TRUE(Red(red)) << grey << ": " << red.name().toStdString();
    EXPECT_NE(std::string::npos, window.Readout().Snapshot().find("dropped colour: " + red.name().toStdString()));
    // The red keeps its distance from the background it is drawn on.
    EXPECT_GT(std::abs(red.lightness() - grey), 40) << grey;
    window.Readout().ShowTake(12, 300, 0, "01:00:00:00");  // a new take
    EXPECT_EQ(text, window.Colour("dropped")) << grey;
  }
}

// The note of a take that started without timecode stays under the status, in red, while the
// plug-in's status goes back to the ordinary reports; the next take clears it.
TEST(CaptureReadoutTest, ATakesNoteStaysShownWhileTheStatusChanges) {
  const std::string note = "The signal carries no timecode: recorded from its first frame, not from 01:00:00:05";
  ReadoutInAWindow window(60, kLightText);
  EXPECT_EQ(std::string::npos, window.Readout().Snapshot().find("note:")) << "no note before a take has one";
  window.Readout().ShowStatus(note);
  window.Readout().ShowNote(note);
  for (const char* status : {"Recording to disk", "Recording to disk (WARNING: Dropped frames detected)",
                             "Recorded 250 frames to /takes/untimed.mov"}) {
    window.Readout().ShowStatus(status);
    EXPECT_EQ(status, window.Text("status"));
    EXPECT_EQ(note, window.Text("note"));
    EXPECT_TRUE(window.Label("note")->isVisibleTo(&window.Readout()));
    EXPECT_TRUE(Red(window.Colour("note"))) << window.Colour("note").name().toStdString();
    EXPECT_NE(std::string::npos, window.Readout().Snapshot().find("note: " + note + "\n")) << window.Readout().Snapshot();
  }
  window.Readout().ShowNote("");
  EXPECT_FALSE(window.Label("note")->isVisibleTo(&window.Readout()));
  EXPECT_EQ(std::string::npos, window.Readout().Snapshot().find("note:"));
}

// The check of a finished take shows under the status: a verified take in the window's
// colours, one that differs in red; the next take hides it.
TEST(CaptureReadoutTest, AVerifiedTakeIsShownPlainAndADifferingOneInRed) {
  ReadoutInAWindow window(60, kLightText);
  EXPECT_EQ(std::string::npos, window.Readout().Snapshot().find("verify:")) << "no check before a take";
  window.Readout().ShowVerification("Verified 75 pictures and 144000 sound samples", false);
  EXPECT_TRUE(window.Label("verify")->isVisibleTo(&window.Readout()));
  EXPECT_EQ(kLightText, window.Colour("verify"));
  std::string snapshot = window.Readout().Snapshot();
  EXPECT_NE(std::string::npos, snapshot.find("verify: Verified 75 pictures and 144000 sound samples\n")) << snapshot;
  EXPECT_NE(std::string::npos, snapshot.find("verify colour: " + kLightText.name().toStdString() + "\n")) << snapshot;
  window.Readout().ShowVerification("Picture 12 (01:00:00:13) differs", true);
  EXPECT_EQ("Picture 12 (01:00:00:13) differs", window.Text("verify"));
  EXPECT_TRUE(Red(window.Colour("verify"))) << window.Colour("verify").name().toStdString();
  window.Readout().ShowVerification("", false);
  EXPECT_FALSE(window.Label("verify")->isVisibleTo(&window.Readout()));
  EXPECT_EQ(std::string::npos, window.Readout().Snapshot().find("verify:"));
}

TEST(CaptureReadoutTest, StatusAndSettingsLines) {
  ReadoutInAWindow window(60, kLightText);
  EXPECT_EQ("Not recording", window.Text("status"));
  window.Readout().ShowStatus("Waiting for 01:00:00:05 (signal at 01:00:00:03)");
  EXPECT_EQ("Waiting for 01:00:00:05 (signal at 01:00:00:03)", window.Text("status"));
  CaptureSettings settings = {};
  settings.Fill(19, 1, 2, 24, 48000);
  window.Readout().ShowSettings(settings);
  EXPECT_EQ("HD 1080i 50 · Uncompressed 10-bit 4:2:2 · 2 ch 24-bit 48 kHz", window.Text("settings"));
}

}  // namespace
}  // namespace KTN
