// Tests of the recording server's settings: what the setters store, what Begin clears.
#include <gtest/gtest.h>

#include <errno.h>

#include "IPC/RecorderCommands.h"
#include "Server/MovieRecordServer.h"
#include "Util/CapturedStderr.h"

namespace KTN {
namespace {

// The server as the command loop drives it, with its settings shown to the test.
class InspectedServer : public MovieRecordServer {
 public:
  InspectedServer() : MovieRecordServer(ServerOptions()) {}
  using QTRecordServerIPC::Settings;

  long Send(const char* command, const char* argument = nullptr) {
    bool stop = false;
    return Execute(command, argument, &stop);
  }
};

// Every setter with a value other than its field's start.
const char* const kEverySetting[][2] = {
    {cmdSetVideoEnabled, "1"},         {cmdSetVideoDuration, "1001"},     {cmdSetVideoTimescale, "30000"},
    {cmdSetVideoWidth, "1920"},        {cmdSetVideoHeight, "1080"},       {cmdSetPixelAspectRatioX, "1"},
    {cmdSetPixelAspectRatioY, "1"},    {cmdSetVideoCodecType, "846624121"}, {cmdSetVideoCodecVendor, "1634758764"},
    {cmdSetVideoCodecQuality, "1023"}, {cmdSetAudioEnabled, "1"},         {cmdSetAudioChannels, "2"},
    {cmdSetAudioType, "24"},           {cmdSetAudioRate, "48000"},        {cmdSetFilePath, "/nowhere/take.mov"},
};

// Each field of the settings compared with the same field of expected: equal when same,
// different otherwise.
void ExpectEachField(const RecorderSettings& settings, const RecorderSettings& expected, bool same) {
#define KTN_EXPECT_FIELD(field)                                                      \
  if (same) {                                                                        \
    EXPECT_EQ(expected.field, settings.field) << #field;                             \
  } else {                                                                           \
    EXPECT_NE(expected.field, settings.field) << #field << " was not set by the test"; \
  }
  KTN_EXPECT_FIELD(mVideoDuration)
  KTN_EXPECT_FIELD(mVideoTimescale)
  KTN_EXPECT_FIELD(mVideoWidth)
  KTN_EXPECT_FIELD(mVideoHeight)
  KTN_EXPECT_FIELD(mPixelAspectRatioX)
  KTN_EXPECT_FIELD(mPixelAspectRatioY)
  KTN_EXPECT_FIELD(mVideoCodecType)
  KTN_EXPECT_FIELD(mVideoCodecVendor)
  KTN_EXPECT_FIELD(mVideoCodecQuality)
  KTN_EXPECT_FIELD(mAudioChannels)
  KTN_EXPECT_FIELD(mAudioType)
  KTN_EXPECT_FIELD(mAudioRate)
  KTN_EXPECT_FIELD(mVideoEnabled)
  KTN_EXPECT_FIELD(mAudioEnabled)
  KTN_EXPECT_FIELD(mFilePath)
#undef KTN_EXPECT_FIELD
}

TEST(MovieRecordServerTest, BeginClearsEverySetting) {
  InspectedServer server;
  for (const auto& setting : kEverySetting) EXPECT_EQ(0, server.Send(setting[0], setting[1])) << setting[0];
  ExpectEachField(server.Settings(), RecorderSettings(), false);
  EXPECT_EQ(1920, server.Settings().mVideoWidth);
  EXPECT_EQ("/nowhere/take.mov", server.Settings().mFilePath);

  EXPECT_EQ(0, server.Send(cmdBegin));
  ExpectEachField(server.Settings(), RecorderSettings(), true);
}

TEST(MovieRecordServerTest, NothingOfTheTakeBeforeBeginReachesThePreparation) {
  InspectedServer server;
  for (const auto& setting : kEverySetting) server.Send(setting[0], setting[1]);
  EXPECT_EQ(0, server.Send(cmdBegin));
  // Without a path of its own the take is refused, rather than written to the old one.
  Util::CapturedStderr captured;
  EXPECT_EQ(EINVAL, server.Send(cmdPrepare));
  EXPECT_NE(std::string::npos, captured.Text().find("path")) << captured.Text();
}

}  // namespace
}  // namespace KTN
