// Tests of the host's session with a record module: what it keeps of the module's reports.
#include <gtest/gtest.h>

#include <string>

#include "Host/FakeRecordModule.h"
#include "Host/PluginHost.h"
#include "Host/PluginSession.h"
#include "Settings/CaptureSettings.h"

namespace KTN {
namespace {

const char kNote[] = "The signal carries no timecode: recorded from its first frame, not from 01:00:00:05";

// The plug-in says once, in the first report after the start, that an in-point take started
// without timecode; the reports after it are the ordinary ones. The session keeps the note
// for the take, so that what the host shows of it does not depend on how often it looks.
TEST(PluginSessionTest, ATakesNoteIsKeptWhileTheReportsGoOn) {
  PluginHost host;
  host.UseEntryPoint(FakeRecordModule::RecEntry);
  CaptureSettings settings = SignedCaptureSettings(4, 0, 2, 16, 48000);
  PluginSession session(host, settings);
  ASSERT_EQ("", session.Open());
  ASSERT_EQ("", session.Activate());
  RecordRequest request;
  request.moviePath = "/nowhere/untimed.mov";  // the fake module makes no movie
  request.hasInPoint = true;
  request.frames = 50;

  FakeRecordModule::Script({"Waiting for 01:00:00:05", kNote, "Recording to disk",
                            "Recording to disk (WARNING: Dropped frames detected)"});
  ASSERT_EQ("", session.StartRecording(request));
  ASSERT_EQ(rmNoErr, session.Service());
  EXPECT_EQ("", session.TakeNote()) << "nothing to note while the take waits";
  ASSERT_EQ(rmNoErr, session.Service());
  EXPECT_EQ(kNote, session.TakeNote());
  ASSERT_EQ(rmNoErr, session.Service());
  EXPECT_EQ("Recording to disk", session.StatusText());
  EXPECT_EQ(kNote, session.TakeNote()) << "kept after the ordinary reports";
  ASSERT_EQ(rmNoErr, session.Service());
  EXPECT_TRUE(session.DroppedFrames());
  EXPECT_EQ(kNote, session.TakeNote());
  EXPECT_EQ("", session.StopRecording());
  EXPECT_EQ(kNote, session.TakeNote()) << "the stopped take's note stays until the next take";

  FakeRecordModule::Script({"Recording to disk"});
  ASSERT_EQ("", session.StartRecording(request));
  EXPECT_EQ("", session.TakeNote()) << "the next take starts without the last one's note";
  ASSERT_EQ(rmNoErr, session.Service());
  EXPECT_EQ("", session.TakeNote());
  EXPECT_EQ("", session.StopRecording());
  session.Close();
}

}  // namespace
}  // namespace KTN
