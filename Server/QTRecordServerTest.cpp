// Tests of the recording server executable, driven through QTRecordClient with real segments
// and read back with libavformat, ffprobe, mediainfo and GStreamer's demuxer.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <numeric>
#include <vector>

#include "Core/SegmentLock.h"
#include "Core/SharedMemory.h"
#include "Finish/MovieFinisher.h"
#include "FrameHash/FrameHashFile.h"
#include "Movie/MovieSidecars.h"
#include "Signal/TakeSignal.h"
#include "Util/Printer.h"
#include "IPC/Pipe.h"
#include "IPC/QTRecordClient.h"
#include "IPC/RecorderCommands.h"
#include "IPC/ServerProcess.h"
#include "Movie/BoxReader.h"
#include "Movie/FragmentSamples.h"
#include "Movie/MovieFile.h"
#include "Movie/MovieFollower.h"
#include "Movie/MovieStamp.h"
#include "Movie/MovieSummary.h"
#include "Movie/MovieTracks.h"
#include "Movie/TopLevelBoxes.h"
#include "Server/CodecTable.h"
#include "Server/MovieWriter.h"
#include "Testing/MovieProbe.h"
#include "Util/CapturedStderr.h"
#include "Util/FourCC.h"
#include "Util/PageCache.h"
#include "Util/RowBytes.h"
#include "Util/ScratchFolder.h"
#include "Util/SmallDisk.h"

namespace KTN {
namespace {

namespace fs = std::filesystem;
using Util::CapturedStderr;
using Util::FourCC;
using Util::SmallDisk;

// A scratch folder for movies, removed at the end.
using Util::ScratchFolder;

// Waits until the file at path holds at least `bytes`, however long a loaded machine's
// writer takes (a minute at most, for a writer that is broken).
void WaitUntilWritten(const std::string& path, uintmax_t bytes) {
  std::error_code ignored;
  for (int i = 0; i < 3000; ++i) {
    if (fs::exists(path, ignored) && fs::file_size(path, ignored) >= bytes) return;
    usleep(20 * 1000);
  }
}

// What one recording is configured with.
struct Take {
  uint32_t codecType;
  int width;
  int height;      // configured (stored before any scaling)
  int deviceRows;  // rows the device delivers
  int timescale;
  int duration;
  int channels;
  int bits;
  int rate;
};

uint32_t DeviceFormat(uint32_t codecType) {
  return codecType == FourCC("v210") || codecType == FourCC("r210") ? codecType : FourCC("2vuy");
}

// A deterministic picture: bytes that vary along the row and from frame to frame, in the
// legal 8-bit video range where the device format is 2vuy.
std::vector<uint8_t> FramePayload(const Take& take, int frame) {
  uint64_t rowBytes = Util::RowBytes(DeviceFormat(take.codecType), static_cast<uint32_t>(take.width));
  std::vector<uint8_t> bytes(rowBytes * static_cast<uint64_t>(take.deviceRows));
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(16 + (i * 7 + frame * 13) % 220);
  return bytes;
}

std::vector<uint8_t> AudioPayload(const Take& take, int packet, int sampleFrames) {
  std::vector<uint8_t> bytes(static_cast<size_t>(sampleFrames * take.channels * take.bits / 8));
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 31 + packet * 3);
  return bytes;
}

// Creates the named segment, fills it and hands it over with command, as the plug-in does.
// The segment name held against other processes of the machine that record at the same
// time, as the plug-in holds it, for as long as the object lives.
class HeldSegmentName {
 public:
  explicit HeldSegmentName(const char* key) : mLock(key) {
    mLock.Acquire(std::chrono::steady_clock::now() + std::chrono::seconds(60));
  }

 private:
  Core::SegmentLock mLock;
};

long HandOver(QTRecordClientIPC& client, const char* key, const std::vector<uint8_t>& payload, bool video) {
  HeldSegmentName held(key);
  Core::SharedMemory segment(key);
  if (long rc = segment.Create(payload.size())) return rc;
  void* address = nullptr;
  if (long rc = segment.Map(address, false)) return rc;
  memcpy(address, payload.data(), payload.size());
  return video ? client.MapVideo(payload.size()) : client.MapAudio(payload.size());
}

long Configure(QTRecordClientIPC& client, const Take& take, const std::string& path, bool video = true, bool audio = true) {
  long rc = client.Begin();
  if (!rc) rc = client.SetVideoEnabled(video);
  if (!rc) rc = client.SetVideoDuration(take.duration);
  if (!rc) rc = client.SetVideoTimescale(take.timescale);
  if (!rc) rc = client.SetVideoWidth(take.width);
  if (!rc) rc = client.SetVideoHeight(take.height);
  if (!rc) rc = client.SetPixelAspectRatioX(1);
  if (!rc) rc = client.SetPixelAspectRatioY(1);
  if (!rc) rc = client.SetVideoCodecType(static_cast<int>(take.codecType));
  if (!rc) rc = client.SetVideoCodecVendor(static_cast<int>(FourCC("appl")));
  if (!rc) rc = client.SetVideoCodecQuality(1023);
  if (!rc) rc = client.SetAudioEnabled(audio);
  if (!rc) rc = client.SetAudioChannels(take.channels);
  if (!rc) rc = client.SetAudioType(take.bits);
  if (!rc) rc = client.SetAudioRate(take.rate);
  if (!rc) rc = client.SetFilePath(path.c_str());
  if (!rc) rc = client.Prepare();
  return rc;
}

// A client running the real server; sends Exit on the way out.
class ServerSession {
 public:
  explicit ServerSession(const std::string& serverPath = QT_RECORD_SERVER) {
    mStatus = mClient.Init(serverPath.c_str());
  }
  ~ServerSession() {
    if (mStatus == 0) mClient.Exit();
  }
  QTRecordClient& Client() { return mClient; }
  long Status() const { return mStatus; }

 private:
  QTRecordClient mClient;
  long mStatus;
};

// The real server on two pipes without QTRecordClient, so a test can close its input or
// read its exit status.
class RawServer {
 public:
  explicit RawServer(const std::string& directory) {
    if (mCommands.Open() || mAnswers.Open()) return;
    if (mProcess.Launch(QT_RECORD_SERVER, directory.c_str(), mCommands.ReadEnd(), mAnswers.WriteEnd())) return;
    mCommands.CloseReadEnd();
    mAnswers.CloseWriteEnd();
    mWriteStream = fdopen(mCommands.TakeWriteEnd(), "w");
    mReadStream = fdopen(mAnswers.TakeReadEnd(), "r");
    mClient.Init(mReadStream, mWriteStream);
  }
  ~RawServer() {
    CloseInput();
    mProcess.WaitUntilExit();
    if (mReadStream) fclose(mReadStream);
  }
  bool Running() const { return mReadStream && mWriteStream; }
  QTRecordClientIPC& Client() { return mClient; }
  // As when the plug-in's process is gone.
  void CloseInput() {
    if (mWriteStream) fclose(mWriteStream);
    mWriteStream = nullptr;
  }
  pid_t Pid() const { return mProcess.Pid(); }
  // Waits for the server to end and returns its wait status.
  int ExitStatus() {
    mProcess.WaitUntilExit();
    return mProcess.ExitStatus();
  }

 private:
  Pipe mCommands;
  Pipe mAnswers;
  ServerProcess mProcess;
  FILE* mWriteStream = nullptr;
  FILE* mReadStream = nullptr;
  QTRecordClientIPC mClient;
};

constexpr int kFrames = 6;
constexpr int kSamplesPerPacket = 1600;

// Every codec type of the formats table, at a standard that allows it.
const Take kTakes[] = {
    {FourCC("2vuy"), 720, 486, 486, 30000, 1001, 2, 16, 48000},
    {FourCC("v210"), 1920, 1080, 1080, 30000, 1001, 8, 24, 48000},
    {FourCC("r210"), 2048, 1556, 1556, 24000, 1001, 16, 32, 48000},
    {FourCC("jpeg"), 1920, 1080, 1080, 25, 1, 2, 16, 48000},
    {FourCC("dvc "), 720, 480, 486, 30000, 1001, 2, 16, 48000},
    {FourCC("dvcp"), 720, 576, 576, 25, 1, 2, 16, 48000},
    {FourCC("dv5n"), 720, 480, 486, 30000, 1001, 2, 24, 48000},
    {FourCC("dv5p"), 720, 576, 576, 25, 1, 8, 16, 48000},
    {FourCC("dvh6"), 1920, 1080, 1080, 30000, 1001, 2, 16, 48000},
    {FourCC("dvh5"), 1920, 1080, 1080, 25, 1, 2, 16, 48000},
    {FourCC("dvhp"), 1280, 720, 720, 60000, 1001, 2, 16, 48000},
    {FourCC("dvhq"), 1280, 720, 720, 50, 1, 2, 16, 48000},
    {FourCC("apch"), 1920, 1080, 1080, 25, 1, 2, 16, 48000},
    {FourCC("ap4h"), 1920, 1080, 1080, 25, 1, 16, 32, 48000},
};

// What each take stores: its size, its field order as far as the server knows it (1080 at
// 30 frames a second or fewer may be either: the host side stamps it) and its colours.
struct Stored {
  uint32_t codecType;
  int width;
  int height;
  const char* fieldOrder;
  const char* colours;  // as ffprobe prints them: color_space,color_transfer,color_primaries
};

const Stored kStored[] = {
    {FourCC("2vuy"), 720, 486, "bb", "smpte170m,bt709,smpte170m"},
    {FourCC("v210"), 1920, 1080, "unknown", "bt709,bt709,bt709"},
    {FourCC("r210"), 2048, 1556, "progressive", "gbr,bt709,bt709"},
    {FourCC("jpeg"), 1920, 1080, "unknown", "bt470bg,bt709,bt709"},
    {FourCC("dvc "), 720, 480, "bb", "smpte170m,bt709,smpte170m"},
    {FourCC("dvcp"), 720, 576, "bb", "bt470bg,bt709,bt470bg"},
    {FourCC("dv5n"), 720, 480, "bb", "smpte170m,bt709,smpte170m"},
    {FourCC("dv5p"), 720, 576, "bb", "bt470bg,bt709,bt470bg"},
    {FourCC("dvh6"), 1280, 1080, "tt", "bt709,bt709,bt709"},
    {FourCC("dvh5"), 1440, 1080, "tt", "bt709,bt709,bt709"},
    {FourCC("dvhp"), 960, 720, "progressive", "bt709,bt709,bt709"},
    {FourCC("dvhq"), 960, 720, "progressive", "bt709,bt709,bt709"},
    {FourCC("apch"), 1920, 1080, "unknown", "bt709,bt709,bt709"},
    {FourCC("ap4h"), 1920, 1080, "unknown", "bt709,bt709,bt709"},
};

std::string Spelled(uint32_t code) {
  return std::string{static_cast<char>(code >> 24), static_cast<char>(code >> 16), static_cast<char>(code >> 8),
                     static_cast<char>(code)};
}

class CodecRecordingTest : public testing::TestWithParam<int> {};

TEST_P(CodecRecordingTest, RecordsFramesAndSoundThatReadBack) {
  const Take& take = kTakes[GetParam()];
  const Stored& stored = kStored[GetParam()];
  ASSERT_EQ(take.codecType, stored.codecType);
  ScratchFolder folder;
  std::string path = folder.File("take " + Spelled(take.codecType) + ".mov");
  std::vector<uint8_t> sentVideo, sentAudio;
  {
    ServerSession session;
    ASSERT_EQ(0, session.Status());
    QTRecordClient& client = session.Client();
    ASSERT_EQ(static_cast<long>(FourCC("appl")), client.GetCodecManufacturer(static_cast<int>(take.codecType)));
    ASSERT_EQ(0, Configure(client, take, path));
    for (int frame = 0; frame < kFrames; ++frame) {
      std::vector<uint8_t> picture = FramePayload(take, frame);
      ASSERT_EQ(0, HandOver(client, kVideoShmKey, picture, true)) << frame;
      sentVideo.insert(sentVideo.end(), picture.begin(), picture.end());
      std::vector<uint8_t> sound = AudioPayload(take, frame, kSamplesPerPacket);
      ASSERT_EQ(0, HandOver(client, kAudioShmKey, sound, false)) << frame;
      sentAudio.insert(sentAudio.end(), sound.begin(), sound.end());
    }
    ASSERT_EQ(0, client.Stop());
  }
  ProbedMovie movie = ProbeMovie(path, true);
  EXPECT_FALSE(MovieFinisher::IsFragmented(path)) << "a finished take has one ordinary index";
  ASSERT_TRUE(movie.opened);
  EXPECT_EQ(Spelled(take.codecType), Spelled(movie.video.codecTag));
  EXPECT_EQ(stored.width, movie.video.width);
  EXPECT_EQ(stored.height, movie.video.height);
  EXPECT_EQ(kFrames, movie.video.packets);
  EXPECT_EQ(stored.fieldOrder, movie.video.fieldOrder);
  EXPECT_TRUE(movie.decodedEveryVideoFrame);
  // The movie's duration is kFrames frames of the take's rate.
  EXPECT_EQ(static_cast<int64_t>(kFrames) * take.duration * movie.video.timeBaseDen,
            movie.video.totalDuration * static_cast<int64_t>(take.timescale) * movie.video.timeBaseNum);
  if (take.codecType == FourCC("2vuy") || take.codecType == FourCC("v210") || take.codecType == FourCC("r210")) {
    EXPECT_TRUE(movie.video.bytes == sentVideo) << "uncompressed samples are the device's bytes";
  }
  EXPECT_EQ(take.channels, movie.audio.channels);
  EXPECT_EQ(take.rate, movie.audio.sampleRate);
  const char* audioTag = take.bits == 16 ? "sowt" : take.bits == 24 ? "in24" : "in32";
  EXPECT_EQ(audioTag, Spelled(movie.audio.codecTag));
  EXPECT_TRUE(movie.audio.bytes == sentAudio) << "sound is stored byte for byte";
  EXPECT_EQ(kFrames * kSamplesPerPacket, movie.audio.totalDuration);

  // The same facts as two independent readers see them.
  std::string quoted = "'" + path + "'";
  EXPECT_EQ(Spelled(take.codecType) + "," + std::to_string(stored.width) + "," + std::to_string(stored.height) + "," +
                std::to_string(kFrames),
            Ffprobe(path, "-select_streams v:0 -show_entries stream=codec_tag_string,width,height,nb_frames"));
  char rate[32];
  snprintf(rate, sizeof rate, "%.3f", static_cast<double>(take.timescale) / take.duration);
  std::string mediaInfo =
      CommandOutput("mediainfo --Inform='Video;%CodecID%,%Width%,%Height%,%FrameRate%,%FrameCount%' " + quoted);
  EXPECT_EQ(Spelled(take.codecType) + "," + std::to_string(stored.width) + "," + std::to_string(stored.height) + "," +
                rate + "," + std::to_string(kFrames),
            mediaInfo);
  EXPECT_EQ(std::to_string(kFrames) + "," + std::to_string(kFrames), QtdemuxBufferCounts(path))
      << "GStreamer's demuxer reads every picture and every packet of sound";
  EXPECT_EQ(stored.colours,
            Ffprobe(path, "-select_streams v:0 -show_entries stream=color_primaries,color_transfer,color_space"));
}

INSTANTIATE_TEST_SUITE_P(EveryCodecType, CodecRecordingTest, testing::Range(0, 14),
                         [](const testing::TestParamInfo<int>& info) {
                           std::string name = Spelled(kTakes[info.param].codecType);
                           for (char& c : name) if (c == ' ') c = '_';
                           return name;
                         });

// A JPEG take decodes back to the card's picture: black stays black and white white (the
// video-range rows are coded over JPEG's full range and read back into video range).
TEST(QTRecordServerTest, JpegPictureReadsBackAsTheCardsPicture) {
  const Take& take = kTakes[3];  // JPEG 1920x1080
  ASSERT_EQ(FourCC("jpeg"), take.codecType);
  // HD rows (BT.709, video range): the seven 75% bars over the top half, a grey ramp from
  // black to white below.
  const double bars[7][3] = {{0.75, 0.75, 0.75}, {0.75, 0.75, 0}, {0, 0.75, 0.75}, {0, 0.75, 0},
                             {0.75, 0, 0.75},    {0.75, 0, 0},    {0, 0, 0.75}};
  const size_t rowBytes = static_cast<size_t>(take.width) * 2;
  std::vector<uint8_t> picture(rowBytes * static_cast<size_t>(take.height));
  const int barWidth = take.width / 7 & ~1;
  for (int y = 0; y < take.height; ++y) {
    for (int x = 0; x < take.width; x += 2) {
      uint8_t* pair = &picture[static_cast<size_t>(y) * rowBytes + static_cast<size_t>(x) * 2];
      if (y < take.height / 2) {
        const double* rgb = bars[std::min(6, x / barWidth)];
        const double luma = 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2];
        pair[0] = static_cast<uint8_t>(std::lround(128 + 224 * (rgb[2] - luma) / 1.8556));
        pair[1] = pair[3] = static_cast<uint8_t>(std::lround(16 + 219 * luma));
        pair[2] = static_cast<uint8_t>(std::lround(128 + 224 * (rgb[0] - luma) / 1.5748));
      } else {
        pair[0] = pair[2] = 128;
        pair[1] = static_cast<uint8_t>(16 + 219 * x / (take.width - 1));
        pair[3] = static_cast<uint8_t>(16 + 219 * (x + 1) / (take.width - 1));
      }
    }
  }
  ScratchFolder folder;
  std::string path = folder.File("bars.mov");
  {
    ServerSession session;
    ASSERT_EQ(0, session.Status());
    ASSERT_EQ(0, Configure(session.Client(), take, path, true, false));
    ASSERT_EQ(0, HandOver(session.Client(), kVideoShmKey, picture, true));
    ASSERT_EQ(0, session.Client().Stop());
  }
  // Decoded as any reader decodes JPEG (BT.601), into RGB.
  std::string decoded = CommandOutput("ffmpeg -v error -i '" + path + "' -frames:v 1 -f rawvideo -pix_fmt rgb24 -");
  ASSERT_EQ(static_cast<size_t>(take.width) * take.height * 3, decoded.size());
  auto rgbAt = [&](int x, int y, int c) {
    return static_cast<uint8_t>(decoded[(static_cast<size_t>(y) * take.width + x) * 3 + c]);
  };
  for (int bar = 0; bar < 7; ++bar) {
    const int x = bar * barWidth + barWidth / 2, y = take.height / 4;
    for (int c = 0; c < 3; ++c) {
      EXPECT_NEAR(255 * bars[bar][c], rgbAt(x, y, c), 3.0) << "bar " << bar << " component " << c;
    }
  }
  double totalError = 0;
  int worst = 0;
  const int y = take.height * 3 / 4;
  for (int x = 0; x < take.width; ++x) {
    const int expected = static_cast<int>(std::lround(255.0 * (16 + 219 * x / (take.width - 1) - 16) / 219.0));
    for (int c = 0; c < 3; ++c) {
      int error = std::abs(rgbAt(x, y, c) - expected);
      totalError += error;
      worst = std::max(worst, error);
    }
  }
  EXPECT_LT(totalError / (3.0 * take.width), 1.5) << "mean error of the grey ramp in levels";
  EXPECT_LE(worst, 4) << "largest error of the grey ramp in levels";
}

TEST(QTRecordServerTest, VendorIsApplForWrittenTypesAndZeroOtherwise) {
  ServerSession session;
  ASSERT_EQ(0, session.Status());
  for (const Take& take : kTakes) {
    EXPECT_EQ(static_cast<long>(FourCC("appl")), session.Client().GetCodecManufacturer(static_cast<int>(take.codecType)));
  }
  EXPECT_EQ(0, session.Client().GetCodecManufacturer(static_cast<int>(FourCC("avc1"))));
  EXPECT_EQ(0, session.Client().GetCodecManufacturer(0));
}

TEST(QTRecordServerTest, PrepareRefusesWhatItCannotWrite) {
  ScratchFolder folder;
  CapturedStderr captured;  // before the launch, so the server's standard error is captured too
  ServerSession session;
  QTRecordClient& client = session.Client();
  Take take = kTakes[0];
  EXPECT_EQ(22, Configure(client, take, "")) << "no path";  // SetFilePath with an empty path sends no argument
  take.codecType = FourCC("avc1");
  EXPECT_EQ(22, Configure(client, take, folder.File("a.mov")));
  take = kTakes[0];
  take.bits = 20;
  EXPECT_EQ(22, Configure(client, take, folder.File("b.mov")));
  take = kTakes[0];
  EXPECT_EQ(ENOENT, Configure(client, take, folder.File("missing folder/c.mov")));
  EXPECT_EQ(EINVAL, Configure(client, take, folder.Path()));
  std::string text = captured.Text();
  EXPECT_NE(std::string::npos, text.find("Codec type 'avc1' is not one this server writes")) << text;
  EXPECT_NE(std::string::npos, text.find("Audio sample type of 20 bits is not 16, 24 or 32")) << text;
  EXPECT_NE(std::string::npos, text.find("open(" + folder.File("missing folder/c.mov") + ") failed with errno 2")) << text;
  EXPECT_NE(std::string::npos, text.find("The movie " + folder.Path() + " is a folder, not a regular file: refused")) << text;
  EXPECT_FALSE(fs::exists(folder.File("a.mov")));
  EXPECT_FALSE(fs::exists(folder.File("b.mov")));
}

TEST(QTRecordServerTest, MapBeforePrepareIsRefused) {
  CapturedStderr captured;
  {
    ServerSession session;
    QTRecordClient& client = session.Client();
    std::vector<uint8_t> payload(100);
    EXPECT_EQ(22, HandOver(client, kVideoShmKey, payload, true));
    EXPECT_EQ(22, HandOver(client, kAudioShmKey, payload, false));
  }
  EXPECT_EQ("*** AcceptSegment[#]: No prepared video recording to take a segment\n"
            "*** AcceptSegment[#]: No prepared audio recording to take a segment\n",
            captured.Text());
}

TEST(QTRecordServerTest, SegmentsThatBreakTheConfigurationAreRefusedAndNotWritten) {
  ScratchFolder folder;
  std::string path = folder.File("checked.mov");
  const Take& take = kTakes[1];  // v210 1080: exactly 1080 rows of 5120 bytes
  {
    CapturedStderr captured;
    ServerSession session;
    QTRecordClient& client = session.Client();
    ASSERT_EQ(0, Configure(client, take, path));
    std::vector<uint8_t> good = FramePayload(take, 0);
    ASSERT_EQ(0, HandOver(client, kVideoShmKey, good, true));
    std::vector<uint8_t> shortFrame(good.size() - 5120);
    EXPECT_EQ(22, HandOver(client, kVideoShmKey, shortFrame, true)) << "uncompressed needs the exact height";
    std::vector<uint8_t> ragged(good.size() + 7);
    EXPECT_EQ(22, HandOver(client, kVideoShmKey, ragged, true)) << "not whole rows";
    std::vector<uint8_t> halfSample(8 * 3 * 10 + 1);
    EXPECT_EQ(22, HandOver(client, kAudioShmKey, halfSample, false)) << "not whole sample frames";
    // More than a second of sound in one packet is no frame's worth.
    std::vector<uint8_t> tooLong(24 * 48001);
    EXPECT_EQ(22, HandOver(client, kAudioShmKey, tooLong, false)) << "over a second of sound";
    // A segment others could write is not read, whatever its size.
    {
      HeldSegmentName held(kVideoShmKey);
      Core::SharedMemory segment(kVideoShmKey);
      ASSERT_EQ(0, segment.Create(good.size()));
      std::string name = std::string("/dev/shm/") + (kVideoShmKey[0] == '/' ? kVideoShmKey + 1 : kVideoShmKey);
      ASSERT_EQ(0, chmod(name.c_str(), 0666)) << name;
      EXPECT_EQ(13, client.MapVideo(good.size())) << "open to others";
    }
    // A size that differs from the segment's is refused before anything is read.
    {
      HeldSegmentName held(kVideoShmKey);
      Core::SharedMemory segment(kVideoShmKey);
      ASSERT_EQ(0, segment.Create(good.size()));
      EXPECT_EQ(22, client.MapVideo(good.size() * 2));
    }
    std::string text = captured.Text();
    EXPECT_NE(std::string::npos, text.find("Video segment of 5524480 bytes is not 1080 rows of 5120 bytes")) << text;
    EXPECT_NE(std::string::npos, text.find("holds 5529600 bytes, not the 11059200 announced")) << text;
    EXPECT_NE(std::string::npos, text.find("with mode 666: refused")) << text;
    EXPECT_NE(std::string::npos, text.find("Audio segment of 1152024 bytes is not up to a second")) << text;
    EXPECT_NE(std::string::npos, text.find("Video segment of 5529607 bytes is not 1080 rows of 5120 bytes")) << text;
    EXPECT_NE(std::string::npos, text.find("Audio segment of 241 bytes is not up to a second of whole sample frames of 24 bytes")) << text;
    ASSERT_EQ(0, HandOver(client, kVideoShmKey, good, true));
    EXPECT_EQ(0, client.Stop());
  }
  ProbedMovie movie = ProbeMovie(path, false);
  ASSERT_TRUE(movie.opened);
  EXPECT_EQ(2, movie.video.packets) << "only the two good frames";
  EXPECT_EQ(0, movie.audio.packets);
}

TEST(QTRecordServerTest, StopWithoutRecordingAnswers0TwiceInARow) {
  ServerSession session;
  EXPECT_EQ(0, session.Client().Stop());
  EXPECT_EQ(0, session.Client().Stop());
}

TEST(QTRecordServerTest, SecondStopAfterARecordingAnswers0) {
  ScratchFolder folder;
  ServerSession session;
  ASSERT_EQ(0, Configure(session.Client(), kTakes[0], folder.File("twice.mov")));
  ASSERT_EQ(0, HandOver(session.Client(), kVideoShmKey, FramePayload(kTakes[0], 0), true));
  EXPECT_EQ(0, session.Client().Stop());
  EXPECT_EQ(0, session.Client().Stop());
  EXPECT_EQ(1, ProbeMovie(folder.File("twice.mov"), false).video.packets);
}

TEST(QTRecordServerTest, EndOfInputFinishesTheOpenMovie) {
  ScratchFolder folder;
  std::string path = folder.File("orphan.mov");
  RawServer server(folder.Path());
  ASSERT_TRUE(server.Running());
  QTRecordClientIPC& client = server.Client();
  const Take& take = kTakes[0];
  ASSERT_EQ(0, Configure(client, take, path, true, false));
  for (int frame = 0; frame < 3; ++frame) ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, frame), true));
  CapturedStderr captured;
  server.CloseInput();  // the plug-in's process is gone
  int status = server.ExitStatus();
  captured.Text();
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(1, WEXITSTATUS(status)) << "a lost plug-in is not a clean exit";
  ProbedMovie movie = ProbeMovie(path, false);
  ASSERT_TRUE(movie.opened) << "the movie has its index";
  EXPECT_EQ(3, movie.video.packets);
}

TEST(QTRecordServerTest, ExitEndsTheProcessWithStatus0) {
  RawServer server("/");
  ASSERT_TRUE(server.Running());
  EXPECT_EQ(0, server.Client().Exit());
  int status = server.ExitStatus();  // the command pipe is still open: only Exit ends the server
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST(QTRecordServerTest, FullBacklogDropsFramesButKeepsTheirTime) {
  ScratchFolder folder;
  std::string path = folder.File("dropped.mov");
  const Take& take = kTakes[0];  // 2vuy NTSC, 699840-byte frames
  // A server on a slow disk (each write held back 150 ms) with room for two frames.
  std::string wrapper = folder.File("slow-server");
  {
    std::ofstream script(wrapper);
    script << "#!/bin/sh\nexec '" << QT_RECORD_SERVER << "' --write-delay-ms 150 --backlog-bytes "
           << 2 * 699840 << "\n";
  }
  fs::permissions(wrapper, fs::perms::owner_all);
  std::vector<long> answers;
  {
    ServerSession session(wrapper);
    ASSERT_EQ(0, session.Status());
    ASSERT_EQ(0, Configure(session.Client(), take, path));
    for (int frame = 0; frame < 10; ++frame) {
      answers.push_back(HandOver(session.Client(), kVideoShmKey, FramePayload(take, frame), true));
      ASSERT_EQ(0, HandOver(session.Client(), kAudioShmKey, AudioPayload(take, frame, 1602), false));
    }
    EXPECT_EQ(0, session.Client().Stop());
  }
  int dropped = 0;
  for (long answer : answers) {
    EXPECT_TRUE(answer == 0 || answer == 7) << answer;
    dropped += answer == 7;
  }
  EXPECT_GT(dropped, 0) << "the backlog filled";
  EXPECT_EQ(0, answers[0]);
  ProbedMovie movie = ProbeMovie(path, true);
  ASSERT_TRUE(movie.opened);
  EXPECT_TRUE(movie.decodedEveryVideoFrame);
  EXPECT_EQ(10 - dropped, movie.video.packets);
  // Written frames sit at their own frame numbers: a dropped frame leaves its slot empty.
  std::vector<int64_t> expectedFrames;
  for (int frame = 0; frame < 10; ++frame) if (answers[frame] == 0) expectedFrames.push_back(frame);
  ASSERT_EQ(expectedFrames.size(), movie.video.pts.size());
  for (size_t i = 0; i < expectedFrames.size(); ++i) {
    EXPECT_EQ(expectedFrames[i] * take.duration * movie.video.timeBaseDen,
              movie.video.pts[i] * static_cast<int64_t>(take.timescale) * movie.video.timeBaseNum)
        << "frame " << expectedFrames[i];
  }
  EXPECT_EQ(10 * 1602, movie.audio.totalDuration) << "no sound is dropped";
}

// Slots whose pictures the plug-in gave up stay empty: later pictures keep their own times,
// the last picture holds the screen through the slots given up after it, and the sound,
// handed over for every slot, stays in step with the pictures.
TEST(QTRecordServerTest, SkippedSlotsStayEmptyAndTheSoundGoesOn) {
  ScratchFolder folder;
  std::string path = folder.File("skipped.mov");
  const Take& take = kTakes[0];  // 2vuy NTSC at 29.97
  const std::vector<int> pictures = {0, 1, 5, 6, 7};
  constexpr int kSlots = 10;     // the last two given up too
  {
    ServerSession session;
    ASSERT_EQ(0, session.Status());
    QTRecordClient& client = session.Client();
    EXPECT_EQ(22, client.SkipVideo(1)) << "no recording to skip frames in";
    ASSERT_EQ(0, Configure(client, take, path));
    int next = 0;
    for (int slot = 0; slot < kSlots; ++slot) {
      if (std::find(pictures.begin(), pictures.end(), slot) != pictures.end()) {
        if (slot > next) {
          ASSERT_EQ(0, client.SkipVideo(static_cast<unsigned long long>(slot - next)));
        }
        ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, slot), true));
        next = slot + 1;
      }
      ASSERT_EQ(0, HandOver(client, kAudioShmKey, AudioPayload(take, slot, 1602), false));
    }
    ASSERT_EQ(0, client.SkipVideo(static_cast<unsigned long long>(kSlots - next)));
    EXPECT_EQ(0, client.Stop());
  }
  ProbedMovie movie = ProbeMovie(path, true);
  ASSERT_TRUE(movie.opened);
  ASSERT_EQ(static_cast<int64_t>(pictures.size()), movie.video.packets);
  for (size_t i = 0; i < pictures.size(); ++i) {
    EXPECT_EQ(pictures[i] * take.duration * movie.video.timeBaseDen,
              movie.video.pts[i] * static_cast<int64_t>(take.timescale) * movie.video.timeBaseNum)
        << "picture " << pictures[i];
  }
  EXPECT_EQ(kSlots * take.duration * movie.video.timeBaseDen,
            movie.video.totalDuration * static_cast<int64_t>(take.timescale) * movie.video.timeBaseNum)
      << "the pictures last as long as the sound";
  EXPECT_EQ(kSlots * 1602, movie.audio.totalDuration);
  EXPECT_EQ("5," + std::to_string(kSlots), QtdemuxBufferCounts(path));
  // As ffprobe reads them: the two streams' durations agree within a frame.
  double videoSeconds = 0, audioSeconds = 0;
  ASSERT_EQ(2, sscanf(Ffprobe(path, "-show_entries stream=duration").c_str(), "%lf %lf", &videoSeconds, &audioSeconds));
  EXPECT_NEAR(kSlots * static_cast<double>(take.duration) / take.timescale, videoSeconds, 1e-6);
  EXPECT_LT(std::fabs(videoSeconds - audioSeconds), static_cast<double>(take.duration) / take.timescale);
}

// Updates the follower until its summary satisfies done, however long a loaded machine's
// writer takes: true then, false after a minute (a writer that never gets there).
template <typename Done>
bool FollowUntil(MovieFollower& follower, Done done) {
  for (int i = 0; i < 3000; ++i) {
    if (follower.Update() == 0 && done(follower.Summary())) return true;
    usleep(20 * 1000);
  }
  return false;
}

// The pictures of a movie as ffprobe reads them: each one's slot and how many slots it
// lasts (-1 where it reads no duration, as for fragments).
std::vector<std::pair<long, long>> PictureSlots(const std::string& path, const Take& take) {
  std::istringstream lines(Ffprobe(path, "-select_streams v:0 -show_entries packet=pts_time,duration_time"));
  const double frame = static_cast<double>(take.duration) / take.timescale;
  std::vector<std::pair<long, long>> pictures;
  for (std::string line; std::getline(lines, line);) {
    double at = 0, lasts = 0;
    const int read = sscanf(line.c_str(), "%lf,%lf", &at, &lasts);
    if (read >= 1) pictures.emplace_back(std::lround(at / frame), read == 2 ? std::lround(lasts / frame) : -1);
  }
  return pictures;
}

// Slots the plug-in gives up show in the growing take as soon as the writer has written
// the pictures queued before them, not only when the next picture comes: the last picture
// holds the screen through them, and a reader of the take counts them empty at once. The
// next picture keeps its own time, and the finished movie has the same slots.
TEST(QTRecordServerTest, GivenUpSlotsShowInTheGrowingTakeBeforeTheNextPicture) {
  ScratchFolder folder;
  std::string path = folder.File("given up.mov");
  std::string fragments = folder.File("fragments.mov");
  const Take& take = kTakes[0];  // 2vuy NTSC at 29.97
  {
    ServerSession session;
    ASSERT_EQ(0, session.Status());
    QTRecordClient& client = session.Client();
    ASSERT_EQ(0, Configure(client, take, path, true, false));
    for (int frame = 0; frame < 5; ++frame) {
      ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, frame), true)) << frame;
    }
    MovieFollower follower(path);
    ASSERT_TRUE(FollowUntil(follower, [](const MovieSummary& s) { return s.pictures == 5; }));
    EXPECT_EQ(5u, follower.Summary().pictureSlots);

    ASSERT_EQ(0, client.SkipVideo(25));
    EXPECT_TRUE(FollowUntil(follower, [](const MovieSummary& s) { return s.EmptySlots() == 25; }))
        << "no picture follows, and still the slots given up show: " << follower.Summary().pictureSlots << " slots";
    EXPECT_EQ(5u, follower.Summary().pictures);
    EXPECT_EQ(30u, follower.Summary().pictureSlots) << "grown by the 25 slots given up";
    MovieSummary fresh;
    ASSERT_EQ(0, fresh.Read(path));
    EXPECT_EQ(MovieSummary::Layout::kFragments, fresh.layout);
    EXPECT_EQ(25u, fresh.EmptySlots()) << "a reader that comes now counts them too";

    ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, 30), true));
    EXPECT_TRUE(FollowUntil(follower, [](const MovieSummary& s) { return s.pictures == 6; }));
    EXPECT_EQ(31u, follower.Summary().pictureSlots);
    EXPECT_EQ(25u, follower.Summary().EmptySlots());
    fs::copy_file(path, fragments);  // the take as fragments, before its finish
    EXPECT_EQ(0, client.Stop());
  }
  // The lengthened picture ends where the next one starts, in the fragments (as FFmpeg
  // places their pictures, and no later than the next picture's end) and in the finished
  // movie.
  std::vector<std::pair<long, long>> placed = PictureSlots(fragments, take);
  ASSERT_EQ(6u, placed.size());
  EXPECT_EQ(30, placed[5].first);
  MovieSummary cut;
  ASSERT_EQ(0, cut.Read(fragments));
  EXPECT_EQ(MovieSummary::Layout::kFragments, cut.layout);
  EXPECT_EQ(6u, cut.pictures);
  EXPECT_EQ(31u, cut.pictureSlots);
  const std::vector<std::pair<long, long>> expected = {{0, 1}, {1, 1}, {2, 1}, {3, 1}, {4, 26}, {30, 1}};
  EXPECT_EQ(expected, PictureSlots(path, take));
  EXPECT_EQ("6", Ffprobe(path, "-select_streams v:0 -show_entries stream=nb_frames"));
  ProbedMovie movie = ProbeMovie(path, true);
  ASSERT_TRUE(movie.opened);
  EXPECT_TRUE(movie.decodedEveryVideoFrame);
  EXPECT_EQ(31 * take.duration * movie.video.timeBaseDen,
            movie.video.totalDuration * static_cast<int64_t>(take.timescale) * movie.video.timeBaseNum);
  MovieSummary finished;
  ASSERT_EQ(0, finished.Read(path));
  EXPECT_EQ(MovieSummary::Layout::kFinished, finished.layout);
  EXPECT_EQ(6u, finished.pictures);
  EXPECT_EQ(31u, finished.pictureSlots);
}

// While no picture comes (another process holds the segment's name) the plug-in gives up
// the slots at every service call: with an encoder that holds the last pictures, the
// slots show too, from the second call on, and the encoder takes pictures again after.
TEST(QTRecordServerTest, GivenUpSlotsShowWhileAnEncoderHeldTheLastPictures) {
  ScratchFolder folder;
  std::string path = folder.File("given up.mov");
  const Take& take = kTakes[3];  // JPEG 1080 at 25
  uint64_t skipped = 0;
  {
    ServerSession session;
    ASSERT_EQ(0, session.Status());
    QTRecordClient& client = session.Client();
    ASSERT_EQ(0, Configure(client, take, path, true, false));
    for (int frame = 0; frame < 5; ++frame) {
      ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, frame), true)) << frame;
    }
    MovieFollower follower(path);
    // One slot given up a call, 20 ms apart, until the take shows every one (a minute at
    // most, for a writer that never shows them).
    bool shown = false;
    while (!shown && skipped < 3000) {
      ASSERT_EQ(0, client.SkipVideo(1));
      ++skipped;
      usleep(20 * 1000);
      ASSERT_EQ(0, follower.Update());
      shown = follower.Summary().pictures == 5 && follower.Summary().EmptySlots() == skipped;
    }
    EXPECT_TRUE(shown) << follower.Summary().pictures << " pictures, " << follower.Summary().EmptySlots()
                       << " of " << skipped << " slots given up shown";
    const int next = 5 + static_cast<int>(skipped);
    ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, next), true));
    ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, next + 1), true));
    EXPECT_EQ(0, client.Stop());
  }
  const long next = 5 + static_cast<long>(skipped);
  const std::vector<std::pair<long, long>> expected = {{0, 1},    {1, 1}, {2, 1}, {3, 1}, {4, next - 4},
                                                       {next, 1}, {next + 1, 1}};
  EXPECT_EQ(expected, PictureSlots(path, take));
  ProbedMovie movie = ProbeMovie(path, true);
  ASSERT_TRUE(movie.opened);
  EXPECT_TRUE(movie.decodedEveryVideoFrame) << "the pictures after the encoder was restarted decode";
}

// The writer's settings for a take, as Prepare makes them from the recorder's setters.
MovieSettings WriterSettings(const Take& take, const std::string& path, bool audio) {
  MovieSettings settings;
  settings.path = path;
  settings.videoEnabled = true;
  settings.codec = FindServerCodec(take.codecType);
  settings.deviceFormat = DeviceFormat(take.codecType);
  settings.width = take.width;
  settings.height = take.height;
  settings.frameDuration = take.duration;
  settings.timescale = take.timescale;
  settings.pixelAspectX = settings.pixelAspectY = 1;
  settings.quality = 1023;
  settings.audioEnabled = audio;
  settings.channels = take.channels;
  settings.bitsPerSample = take.bits;
  settings.sampleRate = take.rate;
  return settings;
}

// Hands payload to the writer in a segment of this test's own (never the fixed names), as
// picture number index or as sound from sample number index.
long WriteThroughSegment(MovieWriter& writer, const std::vector<uint8_t>& payload, bool video, int64_t index) {
  // A name of this process: a run killed mid-write leaves nothing another run trips on.
  static const std::string name = "/ktn-server-test-writer-" + std::to_string(getpid());
  Core::SharedMemory segment(name.c_str());
  if (long rc = segment.Create(payload.size())) return rc;
  struct iovec part = {const_cast<uint8_t*>(payload.data()), payload.size()};
  if (long rc = segment.Fill(&part, 1)) return rc;
  Core::SharedMemory reader(name.c_str());
  if (long rc = reader.OpenTrusted(getuid(), payload.size())) return rc;
  return video ? writer.WriteVideo(reader, index) : writer.WriteAudio(reader, index);
}

// Frames missing from a take (a full backlog drops them) leave their slots empty in the
// finished movie and in a repaired copy of its fragments, whatever the frame rate, and the
// movie keeps its codec type.
TEST(QTRecordServerTest, MissingFramesKeepTheirSlotsWhenFinishedAndRepaired) {
  for (int row : {0, 9, 10}) {  // 2vuy at 29.97, DVCPROHD 1080i50 and 720p59.94
    const Take& take = kTakes[row];
    SCOPED_TRACE(Spelled(take.codecType));
    ScratchFolder folder;
    std::string path = folder.File("gaps.mov");
    std::string copy = folder.File("gaps copy.mov");
    MovieWriter writer;
    ASSERT_EQ(0, writer.Open(WriterSettings(take, path, false)));
    std::vector<int64_t> written;
    for (int frame = 0; frame < 90; ++frame) {
      if (frame % 7 == 1 || frame % 7 == 2) continue;  // two of every seven never arrive
      ASSERT_EQ(0, WriteThroughSegment(writer, FramePayload(take, frame), true, frame));
      written.push_back(frame);
    }
    fs::copy_file(path, copy);  // the fragments so far, as a take cut off here leaves them
    ASSERT_EQ(0, writer.Finish());
    ASSERT_EQ(0, MovieFinisher::Finish(copy));
    for (const std::string& movie : {path, copy}) {
      SCOPED_TRACE(movie);
      ProbedMovie probed = ProbeMovie(movie, false);
      ASSERT_TRUE(probed.opened);
      EXPECT_FALSE(MovieFinisher::IsFragmented(movie));
      ASSERT_GE(probed.video.pts.size(), 10u);
      ASSERT_LE(probed.video.pts.size(), written.size());
      for (size_t i = 0; i < probed.video.pts.size(); ++i) {
        ASSERT_EQ(written[i] * take.duration * probed.video.timeBaseDen,
                  probed.video.pts[i] * static_cast<int64_t>(take.timescale) * probed.video.timeBaseNum)
            << "frame " << written[i];
      }
      EXPECT_EQ(Spelled(take.codecType), Ffprobe(movie, "-select_streams v:0 -show_entries stream=codec_tag_string"));
    }
    EXPECT_EQ(written.size(), ProbeMovie(path, false).video.pts.size()) << "the finished movie holds every frame";
  }
}

// The top-level boxes of a movie's bytes, as far as they are whole: offset and type.
std::vector<std::pair<size_t, std::string>> TopLevelBoxNames(const std::string& bytes) {
  std::vector<Box> boxes;
  BoxReader::ChildBoxes(reinterpret_cast<const uint8_t*>(bytes.data()), 0, bytes.size(), boxes);
  std::vector<std::pair<size_t, std::string>> named;
  for (const Box& box : boxes) named.emplace_back(box.offset, bytes.substr(box.offset + 4, 4));
  return named;
}

std::string FileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// The pictures of a take's fragments as they were written: each one's slot and how many
// slots its fragment says it lasts, counted in the first picture's duration (one slot).
std::vector<std::pair<long, long>> FragmentPictureSlots(const std::string& path) {
  struct Pictures : FragmentSamples::Visitor {
    const MovieTracks* tracks = nullptr;
    std::vector<std::pair<uint64_t, uint64_t>> placed;  // decode time and duration
    uint64_t NextDecodeTime(size_t) override { return 0; }
    void Sample(const FragmentSample& sample) override {
      if (tracks->tracks[sample.track].handler == Handlers::kPicture) placed.emplace_back(sample.decodeTime, sample.duration);
    }
  } pictures;
  MovieFile file(path);
  TopLevelBoxes top;
  std::vector<uint8_t> moov, moof;
  MovieTracks tracks;
  pictures.tracks = &tracks;
  if (file.Open(false) || top.Read(file) || top.boxes.size() < 2 || top.boxes[1].type != BoxTypes::kMoov ||
      file.Read(top.boxes[1].offset, top.boxes[1].size, moov)) {
    ADD_FAILURE() << "no take's header in " << path;
    return {};
  }
  Box whole = top.boxes[1];
  whole.offset = 0;
  EXPECT_TRUE(tracks.Read(moov, whole));
  for (size_t i = 0; i + 1 < top.boxes.size(); ++i) {
    const Box& box = top.boxes[i];
    const Box& mdat = top.boxes[i + 1];
    if (box.type != BoxTypes::kMoof || mdat.type != BoxTypes::kMdat) continue;
    EXPECT_EQ(0, file.Read(box.offset, box.size, moof));
    EXPECT_EQ(FragmentSamples::Status::kRead,
              FragmentSamples::Walk(moof, box.offset, mdat.offset + mdat.header, mdat.offset + mdat.size, tracks, pictures))
        << "the fragment at " << box.offset;
  }
  std::vector<std::pair<long, long>> slots;
  const uint64_t slot = pictures.placed.empty() ? 0 : pictures.placed[0].second;
  for (const auto& [time, duration] : pictures.placed) {
    if (slot) slots.emplace_back(static_cast<long>(time / slot), static_cast<long>(duration / slot));
  }
  return slots;
}

// Slots marked empty after the last picture are held by it in the growing take (its
// fragment says so at once), however often they are marked, never before the first
// picture. A picture an encoder still holds takes them once the encoder gives it out, and
// none before it does: with the next pictures, or at once when the slots are marked again
// before any picture comes. The finished movie keeps them.
TEST(QTRecordServerTest, TheLastPictureHoldsTheSlotsMarkedEmptyAfterIt) {
  for (int row : {0, 3}) {  // 2vuy, written as it comes; JPEG, through an encoder that holds pictures
    const Take& take = kTakes[row];
    SCOPED_TRACE(Spelled(take.codecType));
    ScratchFolder folder;
    std::string path = folder.File("marked.mov");
    std::string fragments = folder.File("fragments.mov");
    MovieWriter writer;
    ASSERT_EQ(0, writer.Open(WriterSettings(take, path, false)));
    MovieFollower follower(path);
    EXPECT_EQ(0, writer.MarkSlotsEmptyBefore(3)) << "no picture to hold them yet";
    ASSERT_EQ(0, follower.Update());
    EXPECT_EQ(0u, follower.Summary().pictureSlots);
    for (int frame = 0; frame < 5; ++frame) {
      ASSERT_EQ(0, WriteThroughSegment(writer, FramePayload(take, frame), true, frame));
    }
    ASSERT_EQ(0, writer.MarkSlotsEmptyBefore(30));
    if (row == 0) {
      ASSERT_EQ(0, follower.Update());
      EXPECT_EQ(5u, follower.Summary().pictures);
      EXPECT_EQ(30u, follower.Summary().pictureSlots) << "shown at once";
    }
    ASSERT_EQ(0, writer.MarkSlotsEmptyBefore(20)) << "marked again, and for slots marked before";
    ASSERT_EQ(0, follower.Update());
    EXPECT_EQ(5u, follower.Summary().pictures);
    EXPECT_EQ(30u, follower.Summary().pictureSlots);
    EXPECT_EQ(25u, follower.Summary().EmptySlots());
    for (int frame = 30; frame < 50; ++frame) {
      ASSERT_EQ(0, WriteThroughSegment(writer, FramePayload(take, frame), true, frame));
    }
    ASSERT_EQ(0, writer.MarkSlotsEmptyBefore(60));
    fs::copy_file(path, fragments);  // the fragments written so far: the encoder may hold the last pictures
    ASSERT_EQ(0, writer.Finish());

    std::vector<std::pair<long, long>> expected = {{0, 1}, {1, 1}, {2, 1}, {3, 1}, {4, 26}};
    for (long frame = 30; frame < 50; ++frame) expected.emplace_back(frame, frame == 49 ? 11 : 1);
    std::vector<std::pair<long, long>> written = FragmentPictureSlots(fragments);
    ASSERT_GE(written.size(), 6u) << "the encoder gave out the pictures before the slots marked empty";
    ASSERT_LE(written.size(), expected.size());
    for (size_t i = 0; i < written.size(); ++i) {
      EXPECT_EQ(expected[i], written[i]) << "no picture lasts into the next one's slot";
    }
    if (row == 0) {
      EXPECT_EQ(expected, written) << "nothing waits in an encoder";
    }
    EXPECT_EQ(expected, PictureSlots(path, take));
    ASSERT_EQ(0, follower.Update());
    EXPECT_EQ(MovieSummary::Layout::kFinished, follower.Summary().layout);
    EXPECT_EQ(25u, follower.Summary().pictures);
    EXPECT_EQ(60u, follower.Summary().pictureSlots);
  }
}

// What the host side knows, stamped into a finished take in place: the field order the
// server could not know and the timecode track, read alike by FFmpeg, MediaInfo, GStreamer
// and the summary; a stamp cut off between its two steps still reads and repair completes it.
TEST(QTRecordServerTest, StampingGivesAFinishedTakeItsFieldOrderAndTimecode) {
  const Take& take = kTakes[1];  // v210 1080 at 29.97: interlaced or not, the server cannot tell
  ScratchFolder folder;
  std::string path = folder.File("stamped.mov");
  MovieWriter writer;
  ASSERT_EQ(0, writer.Open(WriterSettings(take, path, true)));
  for (int frame = 0; frame < 10; ++frame) {
    ASSERT_EQ(0, WriteThroughSegment(writer, FramePayload(take, frame), true, frame));
    ASSERT_EQ(0, WriteThroughSegment(writer, AudioPayload(take, frame, 1602), false, frame * 1602));
  }
  ASSERT_EQ(0, writer.Finish(10));
  const std::string quoted = "'" + path + "'";
  EXPECT_EQ("unknown", Ffprobe(path, "-select_streams v:0 -show_entries stream=field_order"));

  MovieStamp stamp;
  stamp.fields = MovieStamp::Fields::kTopFirst;
  stamp.startTimecode = "01:00:00;00";
  stamp.frameDuration = 1001;
  stamp.timescale = 30000;
  ASSERT_EQ(0, stamp.Apply(path));
  EXPECT_EQ("tt", Ffprobe(path, "-select_streams v:0 -show_entries stream=field_order"));
  EXPECT_EQ("01:00:00;00", Ffprobe(path, "-select_streams d:0 -show_entries stream_tags=timecode"));
  EXPECT_EQ("tmcd", Ffprobe(path, "-select_streams d:0 -show_entries stream=codec_tag_string"));
  EXPECT_EQ("01:00:00;00", CommandOutput("mediainfo --Inform='Other;%TimeCode_FirstFrame%' " + quoted));
  EXPECT_EQ("10,10", QtdemuxBufferCounts(path)) << "the samples read as before";
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(path));
  EXPECT_EQ(MovieSummary::Layout::kFinished, summary.layout);
  EXPECT_TRUE(summary.hasTimecode);
  EXPECT_EQ("01:00:00;00", summary.startTimecode);
  ProbedMovie movie = ProbeMovie(path, false);
  EXPECT_EQ(10, movie.video.packets);
  EXPECT_EQ(10 * 1602, movie.audio.totalDuration);

  // Stamped again: the timecode is replaced, not added; the order the movie has stays.
  stamp.startTimecode = "10:20:30;04";
  stamp.fields = MovieStamp::Fields::kBottomFirst;
  ASSERT_EQ(0, stamp.Apply(path));
  EXPECT_EQ("10:20:30;04", Ffprobe(path, "-select_streams d:0 -show_entries stream_tags=timecode"));
  EXPECT_EQ("tt", Ffprobe(path, "-select_streams v:0 -show_entries stream=field_order"));
  EXPECT_EQ("2", Ffprobe(path, "-select_streams d -show_entries stream=index")) << "one timecode track: the third stream";

  // Cut off after the new index was written, before the old was hidden: both indexes are in
  // the file; readers take the first (the old), repair completes the stamp.
  const std::string done = FileBytes(path);
  std::vector<std::pair<size_t, std::string>> boxes = TopLevelBoxNames(done);
  ASSERT_EQ("moov", boxes.back().second);
  size_t hiddenIndex = 0;
  for (size_t i = 0; i + 2 < boxes.size(); ++i) {
    if (boxes[i].second == "free") hiddenIndex = boxes[i].first;  // the last hidden box before the new index
  }
  ASSERT_GT(hiddenIndex, 0u);
  std::string interrupted = done;
  interrupted.replace(hiddenIndex + 4, 4, "moov");
  std::string cut = folder.File("cut stamp.mov");
  { std::ofstream(cut, std::ios::binary) << interrupted; }
  EXPECT_TRUE(ProbeMovie(cut, false).opened) << "it reads";
  EXPECT_TRUE(MovieFinisher::IsFragmented(cut)) << "repair knows it is not done";
  ASSERT_EQ(0, MovieFinisher::Finish(cut));
  EXPECT_TRUE(FileBytes(cut) == done) << "completed as if never cut";

  // A stamp without a timecode keeps the one the movie has, and its reference to it.
  MovieStamp fieldsOnly;
  fieldsOnly.fields = MovieStamp::Fields::kProgressive;
  ASSERT_EQ(0, fieldsOnly.Apply(path));
  EXPECT_EQ("10:20:30;04", Ffprobe(path, "-select_streams d:0 -show_entries stream_tags=timecode"));
  EXPECT_EQ("10:20:30;04", Ffprobe(path, "-select_streams v:0 -show_entries stream_tags=timecode"))
      << "the picture track still refers to it";

  // A take still in fragments is finished before it is stamped.
  std::string fragments = folder.File("fragments.mov");
  MovieWriter another;
  ASSERT_EQ(0, another.Open(WriterSettings(take, fragments, false)));
  ASSERT_EQ(0, WriteThroughSegment(another, FramePayload(take, 0), true, 0));
  fs::copy_file(fragments, folder.File("copy.mov"));
  ASSERT_EQ(0, another.Finish());
  CapturedStderr captured;
  EXPECT_EQ(EOPNOTSUPP, stamp.Apply(folder.File("copy.mov")));
  EXPECT_NE(std::string::npos, captured.Text().find("it is still fragments")) << captured.Text();
}


// Every slot written is measured into the take's levels, and its empty slots (a gap
// between pictures, and slots after the last) are found as dropped; for uncompressed and
// encoded pictures alike. A take recorded without measurement removes the figures of the
// take it replaces.
TEST(QTRecordServerTest, EverySlotIsMeasuredIntoTheTakesSidecars) {
  for (const Take& take : {kTakes[1], kTakes[5]}) {  // v210 at 29.97, and DV PAL (encoded)
    SCOPED_TRACE(Util::Printer::Fcc(static_cast<int>(take.codecType)));
    ScratchFolder folder;
    const std::string path = folder.File("take.mov");
    const int samples = static_cast<int>(48000 * take.duration / take.timescale);
    MovieWriter writer;
    ASSERT_EQ(0, writer.Open(WriterSettings(take, path, true)));
    for (int frame = 0; frame < 10; ++frame) {
      if (frame != 4 && frame != 5) {
        ASSERT_EQ(0, WriteThroughSegment(writer, FramePayload(take, frame), true, frame));
      }
      ASSERT_EQ(0, WriteThroughSegment(writer, AudioPayload(take, frame, samples), false, frame * samples));
    }
    ASSERT_EQ(0, writer.Finish(12));
    TakeSignal signal(path);
    ASSERT_EQ(0, signal.Update());
    EXPECT_EQ(take.timescale / std::gcd(take.timescale, take.duration), signal.RateNumerator());
    EXPECT_EQ(take.channels, signal.Channels());
    std::vector<int64_t> pictures;
    for (const PictureLevels& picture : signal.Pictures()) pictures.push_back(picture.slot);
    EXPECT_EQ((std::vector<int64_t>{0, 1, 2, 3, 6, 7, 8, 9}), pictures);
    ASSERT_GE(signal.Sounds().size(), 9u);
    for (size_t i = 0; i < signal.Sounds().size(); ++i) {
      EXPECT_EQ(static_cast<int64_t>(i), signal.Sounds()[i].slot);
      EXPECT_EQ(static_cast<size_t>(take.channels), signal.Sounds()[i].peakDb.size());
    }
    std::string events;
    for (const SignalEvent& event : signal.EventsBySlot()) events += event.Line();
    EXPECT_EQ("{\"kind\":\"dropped\",\"slot\":4,\"frames\":2}\n{\"kind\":\"dropped\",\"slot\":10,\"frames\":2}\n", events);

    writer.SetMeasurement(false);
    ASSERT_EQ(0, writer.Open(WriterSettings(take, path, true)));
    ASSERT_EQ(0, WriteThroughSegment(writer, FramePayload(take, 0), true, 0));
    ASSERT_EQ(0, writer.Finish());
    EXPECT_FALSE(fs::exists(MovieSidecars::Levels(path)));
    EXPECT_FALSE(fs::exists(MovieSidecars::Events(path)));
  }
}

// Finishing indexes the take where it lies: the movie keeps its file (nothing is copied
// beside it) and every picture and sample of sound reads back byte for byte. A finish cut
// off while it hides the fragment headers still plays, and finishing again completes it to
// the same bytes as a finish that was never cut.
TEST(QTRecordServerTest, FinishingIndexesInPlaceAndCompletesAfterACut) {
  const Take& take = kTakes[1];  // v210 1080 at 29.97, 8 channels of 24-bit sound
  constexpr int kFrames = 40;
  ScratchFolder folder;
  std::string path = folder.File("take.mov");
  std::string cut = folder.File("cut.mov");
  std::vector<uint8_t> sentVideo, sentAudio;
  MovieWriter writer;
  ASSERT_EQ(0, writer.Open(WriterSettings(take, path, true)));
  for (int frame = 0; frame < kFrames; ++frame) {
    std::vector<uint8_t> picture = FramePayload(take, frame);
    std::vector<uint8_t> sound = AudioPayload(take, frame, 1602);
    ASSERT_EQ(0, WriteThroughSegment(writer, picture, true, frame));
    ASSERT_EQ(0, WriteThroughSegment(writer, sound, false, frame * 1602));
    sentVideo.insert(sentVideo.end(), picture.begin(), picture.end());
    sentAudio.insert(sentAudio.end(), sound.begin(), sound.end());
  }
  struct stat recording;
  ASSERT_EQ(0, stat(path.c_str(), &recording));
  fs::copy_file(path, cut);  // the fragments so far, as a take cut off here leaves them
  ASSERT_EQ(0, writer.Finish());
  struct stat finished;
  ASSERT_EQ(0, stat(path.c_str(), &finished));
  EXPECT_EQ(recording.st_ino, finished.st_ino) << "the same file, indexed where it lies";
  EXPECT_FALSE(MovieFinisher::IsFragmented(path));
  EXPECT_EQ(5, std::distance(fs::directory_iterator(folder.Path()), fs::directory_iterator()))
      << "the take, its frame hashes, levels and events, and the copy made here: no copy beside it";
  ProbedMovie movie = ProbeMovie(path, true);
  ASSERT_TRUE(movie.opened);
  EXPECT_EQ(kFrames, movie.video.packets);
  EXPECT_TRUE(movie.video.bytes == sentVideo) << "every picture where it was written";
  EXPECT_TRUE(movie.audio.bytes == sentAudio) << "and every sample of sound";
  EXPECT_EQ(kFrames * 1602, movie.audio.totalDuration);
  EXPECT_EQ("v210," + std::to_string(kFrames) + ",in24",
            CommandOutput("mediainfo --Inform='Video;%CodecID%,%FrameCount%,' '" + path + "'") +
                CommandOutput("mediainfo --Inform='Audio;%CodecID%' '" + path + "'"));

  // The cut copy finished, then put back as a cut at each step of hiding would leave it.
  ASSERT_EQ(0, MovieFinisher::Finish(cut));
  const std::string done = FileBytes(cut);
  std::vector<size_t> hiddenFragments;
  size_t firstMovieHeader = 0;
  std::vector<std::pair<size_t, std::string>> boxes = TopLevelBoxNames(done);
  for (size_t i = 0; i + 1 < boxes.size(); ++i) {
    if (boxes[i].second == "free" && boxes[i + 1].second == "mdat") hiddenFragments.push_back(boxes[i].first);
    if (boxes[i].second == "free" && i == 1) firstMovieHeader = boxes[i].first;
  }
  ASSERT_GE(hiddenFragments.size(), 2u);
  ASSERT_EQ("moov", boxes.back().second) << "the index comes last";
  ASSERT_GT(firstMovieHeader, 0u);
  struct CutCase {
    const char* name;
    // The first ones, as hiding goes from the last back; the first moov is still shown.
    size_t fragmentsShown;
  };
  const CutCase cuts[] = {
      {"index written, nothing hidden", hiddenFragments.size()},
      {"half the fragment headers hidden", hiddenFragments.size() / 2},
      // The last step: until the first moov is hidden too, readers take it and find no
      // sample; repair knows the movie and completes it.
      {"every fragment header hidden", 0},
  };
  for (const CutCase& c : cuts) {
    SCOPED_TRACE(c.name);
    std::string state = done;
    for (size_t i = 0; i < c.fragmentsShown; ++i) state.replace(hiddenFragments[i] + 4, 4, "moof");
    state.replace(firstMovieHeader + 4, 4, "moov");
    std::string interrupted = folder.File("interrupted.mov");
    { std::ofstream(interrupted, std::ios::binary) << state; }
    EXPECT_TRUE(MovieFinisher::IsFragmented(interrupted)) << "repair knows it is not finished";
    ProbedMovie playable = ProbeMovie(interrupted, false);
    EXPECT_TRUE(playable.opened);
    EXPECT_GE(playable.video.packets, static_cast<int64_t>(c.fragmentsShown > 0 ? 1 : 0));
    ASSERT_EQ(0, MovieFinisher::Finish(interrupted));
    EXPECT_TRUE(FileBytes(interrupted) == done) << "completed as if never cut";
  }
}

// The fragments of a take with a box among them that the in-place index does not know
// (after the third fragment): a layout it leaves to the copy.
std::string WithAnUnknownBoxAmongTheFragments(const std::string& fragments) {
  size_t insertAt = 0, fragmentsSeen = 0;
  std::vector<std::pair<size_t, std::string>> boxes = TopLevelBoxNames(fragments);
  for (size_t i = 0; i + 1 < boxes.size() && !insertAt; ++i) {
    if (boxes[i].second == "mdat" && ++fragmentsSeen == 3) insertAt = boxes[i + 1].first;
  }
  if (!insertAt) return std::string();
  const std::string box("\0\0\0\x18uuid0123456789abcdef", 24);
  return fragments.substr(0, insertAt) + box + fragments.substr(insertAt);
}

// Writes `pictures` pictures of take as fragments to path, marks the slots before
// slotsAtEnd empty after them (none when 0), and returns the fragments as they were before
// the finish, with a box the in-place index refuses among them (empty when it cannot).
std::string FragmentsTheIndexRefuses(const Take& take, const std::string& path, int pictures, int64_t slotsAtEnd = 0) {
  MovieWriter writer;
  EXPECT_EQ(0, writer.Open(WriterSettings(take, path, false)));
  for (int frame = 0; frame < pictures; ++frame) {
    EXPECT_EQ(0, WriteThroughSegment(writer, FramePayload(take, frame), true, frame));
  }
  if (slotsAtEnd) {
    EXPECT_EQ(0, writer.MarkSlotsEmptyBefore(slotsAtEnd));
  }
  const std::string fragments = WithAnUnknownBoxAmongTheFragments(FileBytes(path));
  EXPECT_EQ(0, writer.Finish(slotsAtEnd ? slotsAtEnd : -1));
  return fragments;
}

// A fragmented movie whose layout the in-place index refuses is finished by copying its
// samples into an ordinary movie.
TEST(QTRecordServerTest, ALayoutThatCannotBeIndexedInPlaceIsCopied) {
  const Take& take = kTakes[0];  // 2vuy NTSC
  ScratchFolder folder;
  std::string path = folder.File("take.mov");
  std::string odd = folder.File("odd.mov");
  const std::string fragments = FragmentsTheIndexRefuses(take, path, 30);
  ASSERT_FALSE(fragments.empty());
  { std::ofstream(odd, std::ios::binary) << fragments; }
  const int64_t frames = ProbeMovie(odd, false).video.packets;
  ASSERT_GE(frames, 10);
  {
    CapturedStderr captured;
    bool rewritten = false;
    ASSERT_EQ(0, MovieFinisher::Finish(odd, 0, 0, &rewritten));
    EXPECT_TRUE(rewritten);
    EXPECT_NE(std::string::npos, captured.Text().find("cannot be indexed in place")) << captured.Text();
  }
  EXPECT_FALSE(MovieFinisher::IsFragmented(odd));
  ProbedMovie copied = ProbeMovie(odd, false);
  EXPECT_EQ(frames, copied.video.packets) << "every picture copied";
}

// The empty slots at the end of a take (the last picture lengthened over them) stay when
// its samples are copied: the copy keeps the last picture's recorded duration.
TEST(QTRecordServerTest, ACopiedTakeKeepsTheEmptySlotsAtItsEnd) {
  const Take& take = kTakes[0];  // 2vuy NTSC
  ScratchFolder folder;
  std::string path = folder.File("take.mov");
  std::string odd = folder.File("odd.mov");
  // The last picture holds slots 9 to 24.
  const std::string fragments = FragmentsTheIndexRefuses(take, path, 10, 25);
  ASSERT_FALSE(fragments.empty());
  { std::ofstream(odd, std::ios::binary) << fragments; }
  MovieSummary recorded;
  ASSERT_EQ(0, recorded.Read(odd));
  ASSERT_EQ(25u, recorded.pictureSlots) << "the fragments say so";
  {
    CapturedStderr captured;
    ASSERT_EQ(0, MovieFinisher::Finish(odd));
    ASSERT_NE(std::string::npos, captured.Text().find("cannot be indexed in place")) << "finished through the copy";
  }
  MovieSummary copied;
  ASSERT_EQ(0, copied.Read(odd));
  EXPECT_EQ(MovieSummary::Layout::kFinished, copied.layout);
  EXPECT_EQ(10u, copied.pictures);
  EXPECT_EQ(25u, copied.pictureSlots) << "the empty slots at the end are kept";
  EXPECT_EQ(15u, copied.EmptySlots());
  std::vector<std::pair<long, long>> expected;
  for (long frame = 0; frame < 10; ++frame) expected.emplace_back(frame, frame == 9 ? 16 : 1);
  EXPECT_EQ(expected, PictureSlots(odd, take));
}

// How a recording is cut off in the middle of a take.
enum class Interruption { kServerKilled, kPlugInGone, kCopiedAway };

struct InterruptionCase {
  const char* name;
  Interruption how;
};

const InterruptionCase kInterruptions[] = {
    {"server killed", Interruption::kServerKilled},
    {"plug-in gone", Interruption::kPlugInGone},
    {"copied away mid-write", Interruption::kCopiedAway},
};

// A take cut off mid-recording plays in both readers up to within a second of the cut,
// and repair gives it the ordinary index without losing a sample.
TEST(QTRecordServerTest, InterruptedTakePlaysToWithinASecondAndRepairs) {
  const Take& take = kTakes[0];  // 2vuy NTSC, 29.97 frames a second
  constexpr int kHanded = 70;    // a little over two seconds
  constexpr int kOneSecond = 30;
  for (const InterruptionCase& test : kInterruptions) {
    SCOPED_TRACE(test.name);
    ScratchFolder folder;
    std::string path = folder.File("cut off.mov");
    std::string kept = path;
    {
      CapturedStderr captured;
      QTRecordClient client;
      ASSERT_EQ(0, client.Init(QT_RECORD_SERVER));
      ASSERT_EQ(0, Configure(client, take, path));
      for (int frame = 0; frame < kHanded; ++frame) {
        ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, frame), true)) << frame;
        ASSERT_EQ(0, HandOver(client, kAudioShmKey, AudioPayload(take, frame, 1602), false)) << frame;
      }
      // Cut once all but the last second of what was handed over is in the file.
      WaitUntilWritten(path, static_cast<uintmax_t>(kHanded - kOneSecond) * FramePayload(take, 0).size());
      switch (test.how) {
        case Interruption::kServerKilled:
          ASSERT_EQ(0, kill(client.ServerPid(), SIGKILL));
          break;
        case Interruption::kPlugInGone:
          break;  // the client goes without a word, closing the server's input
        case Interruption::kCopiedAway:
          kept = folder.File("copy.mov");
          fs::copy_file(path, kept);
          kill(client.ServerPid(), SIGKILL);
          break;
      }
      usleep(300 * 1000);
    }
    ProbedMovie movie = ProbeMovie(kept, true);
    ASSERT_TRUE(movie.opened);
    EXPECT_TRUE(movie.decodedEveryVideoFrame);
    EXPECT_GE(movie.video.packets, kHanded - kOneSecond);
    EXPECT_LE(movie.video.packets, kHanded);
    // Sound keeps pace with the pictures that survived, to within a frame.
    EXPECT_GE(movie.audio.totalDuration, (movie.video.packets - 1) * 1602);
    std::string quoted = "'" + kept + "'";
    std::string frames =
        Ffprobe(kept, "-count_packets -select_streams v:0 -show_entries stream=codec_tag_string,nb_read_packets");
    EXPECT_EQ("2vuy," + std::to_string(movie.video.packets), frames);
    EXPECT_EQ("2vuy", CommandOutput("mediainfo --Inform='Video;%CodecID%' " + quoted));
    std::string gstreamer = QtdemuxBufferCounts(kept);
    EXPECT_EQ(std::to_string(movie.video.packets), gstreamer.substr(0, gstreamer.find(',')))
        << "GStreamer's demuxer plays the cut take's fragments too";

    ASSERT_EQ(0, MovieFinisher::Finish(kept));
    EXPECT_FALSE(MovieFinisher::IsFragmented(kept));
    ProbedMovie repaired = ProbeMovie(kept, false);
    EXPECT_EQ(movie.video.packets, repaired.video.packets) << "repair keeps every picture";
    EXPECT_EQ(movie.audio.totalDuration, repaired.audio.totalDuration) << "and every sample of sound";
    EXPECT_EQ(movie.video.packets * take.duration * repaired.video.timeBaseDen,
              repaired.video.totalDuration * static_cast<int64_t>(take.timescale) * repaired.video.timeBaseNum);
    EXPECT_EQ("2vuy," + std::to_string(movie.video.packets),
              Ffprobe(kept, "-select_streams v:0 -show_entries stream=codec_tag_string,nb_frames"));
  }
}

TEST(QTRecordServerTest, RepairLeavesACompletedMovieAloneAndRefusesWhatIsNoMovie) {
  ScratchFolder folder;
  std::string path = folder.File("whole.mov");
  {
    ServerSession session;
    ASSERT_EQ(0, Configure(session.Client(), kTakes[0], path));
    ASSERT_EQ(0, HandOver(session.Client(), kVideoShmKey, FramePayload(kTakes[0], 0), true));
    ASSERT_EQ(0, session.Client().Stop());
  }
  EXPECT_FALSE(MovieFinisher::IsFragmented(path));
  struct stat before, after;
  ASSERT_EQ(0, stat(path.c_str(), &before));
  EXPECT_EQ(0, MovieFinisher::Finish(path));
  ASSERT_EQ(0, stat(path.c_str(), &after));
  EXPECT_EQ(before.st_ino, after.st_ino) << "not rewritten";
  EXPECT_EQ(before.st_mtime, after.st_mtime);

  CapturedStderr captured;
  EXPECT_EQ(ENOENT, MovieFinisher::Finish(folder.File("absent.mov")));
  // Fragments without a single complete sample: nothing to keep, and the file stays.
  std::string stub = folder.File("stub.mov");
  {
    std::ofstream out(stub, std::ios::binary);
    const unsigned char moof[] = {0, 0, 0, 8, 'm', 'o', 'o', 'f'};
    out.write(reinterpret_cast<const char*>(moof), sizeof moof);
  }
  EXPECT_NE(0, MovieFinisher::Finish(stub));
  EXPECT_TRUE(fs::exists(stub));
  EXPECT_FALSE(fs::exists(folder.File(".stub.mov.finishing")));
  const std::string text = captured.Text();
  EXPECT_NE(std::string::npos, text.find("open(" + folder.File("absent.mov") + ") failed")) << text;
}

TEST(QTRecordServerTest, FullDiskAnswers28AndKeepsWhatWasWritten) {
  SmallDisk disk("16m");  // room for two 1080 v210 frames and their sound, not three
  if (!disk.Mounted()) GTEST_SKIP() << "cannot mount a tmpfs: " << strerror(disk.Error());
  const Take& take = kTakes[1];
  std::string path = disk.File("full.mov");
  std::vector<long> answers;
  long stopAnswer = -1;
  {
    CapturedStderr captured;
    ServerSession session;
    ASSERT_EQ(0, Configure(session.Client(), take, path));
    for (int frame = 0; frame < 12; ++frame) {
      answers.push_back(HandOver(session.Client(), kVideoShmKey, FramePayload(take, frame), true));
      answers.push_back(HandOver(session.Client(), kAudioShmKey, AudioPayload(take, frame, 1602), false));
      usleep(50 * 1000);  // lets the writer reach the disk before the next frame
    }
    stopAnswer = session.Client().Stop();
    EXPECT_NE(std::string::npos, captured.Text().find("No space left on device")) << captured.Text();
  }
  // Accepted until the first failed write, 28 from then on, Stop included.
  size_t firstRefusal = 0;
  while (firstRefusal < answers.size() && answers[firstRefusal] == 0) ++firstRefusal;
  ASSERT_LT(firstRefusal, answers.size()) << "the disk never filled";
  EXPECT_GE(firstRefusal, 2u) << "the first frame fits";
  for (size_t i = firstRefusal; i < answers.size(); ++i) EXPECT_EQ(28, answers[i]) << "answer " << i;
  EXPECT_EQ(28, stopAnswer);
  // The movie holds whole frames with their sound and nothing torn.
  ProbedMovie movie = ProbeMovie(path, true);
  ASSERT_TRUE(movie.opened);
  EXPECT_TRUE(movie.decodedEveryVideoFrame);
  EXPECT_GE(movie.video.packets, 1);
  EXPECT_LE(movie.video.packets, 3);
  EXPECT_TRUE(movie.video.bytes.size() % (5120u * 1080u) == 0) << "no torn picture";
  EXPECT_GE(movie.audio.totalDuration, (movie.video.packets - 1) * 1602);
  EXPECT_FALSE(fs::exists(disk.File(".full.mov.finishing"))) << "no rewrite left behind";
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(disk.Path())) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  EXPECT_EQ((std::vector<std::string>{"full.mov", "full.mov.events", "full.mov.framehash", "full.mov.levels"}), names)
      << "the take and its sidecars";
  FrameHashFile hashes;
  ASSERT_EQ(0, hashes.Read(disk.File("full.mov.framehash")));
  EXPECT_EQ(static_cast<size_t>(movie.video.packets), hashes.Stream(0).size()) << "a line for every whole picture, no more";
}

// A stopped server is given up after the idle limit, killed, and reads as gone from then
// on; its movie keeps what it had written.
TEST(QTRecordServerTest, HungServerIsGivenUpWithinTheIdleLimit) {
  ScratchFolder folder;
  std::string path = folder.File("hung.mov");
  CapturedStderr captured;
  {
    QTRecordClient client;
    ASSERT_EQ(0, client.Init(QT_RECORD_SERVER));
    ASSERT_EQ(0, Configure(client, kTakes[0], path));
    for (int frame = 0; frame < 3; ++frame) {
      ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(kTakes[0], frame), true));
    }
    WaitUntilWritten(path, 3 * FramePayload(kTakes[0], 0).size());  // the three frames and more
    ASSERT_EQ(0, kill(client.ServerPid(), SIGSTOP));
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(ETIMEDOUT, client.Stop());
    double waited = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(waited, QTRecordClient::kIdleLimitSeconds - 0.5);
    // The bound only tells a client that gives up from one that waits for ever.
    EXPECT_LE(waited, QTRecordClient::kIdleLimitSeconds + 20.0);
    EXPECT_EQ(EIO, client.Stop()) << "the killed server reads as gone";
  }
  EXPECT_NE(std::string::npos, captured.Text().find("has not answered Stop in 10 s and is doing nothing: stopped"))
      << captured.Text();
  ProbedMovie movie = ProbeMovie(path, true);
  ASSERT_TRUE(movie.opened);
  EXPECT_EQ(3, movie.video.packets) << "what was written before it hung plays";
}

// While a take is open its configuration stays the one its movie was opened with: the
// setters and a second Prepare are refused, the segments are checked against that
// configuration, and every acknowledged frame stays in the movie.
TEST(QTRecordServerTest, SettingsAndASecondPrepareAreRefusedWhileATakeIsOpen) {
  const Take& take = kTakes[3];  // JPEG 1080: 1080 rows of 3840 bytes, 2 x 16-bit sound
  ScratchFolder folder;
  std::string path = folder.File("open.mov");
  CapturedStderr captured;
  {
    ServerSession session;
    ASSERT_EQ(0, session.Status());
    QTRecordClient& client = session.Client();
    ASSERT_EQ(0, Configure(client, take, path));
    ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, 0), true));
    ASSERT_EQ(0, HandOver(client, kAudioShmKey, AudioPayload(take, 0, kSamplesPerPacket), false));
    EXPECT_EQ(22, client.SetAudioType(0));
    EXPECT_EQ(22, client.SetVideoHeight(1));
    EXPECT_EQ(22, client.SetFilePath(folder.File("other.mov").c_str()));
    EXPECT_EQ(22, client.SetVideoEnabled(false));
    EXPECT_EQ(0, HandOver(client, kAudioShmKey, std::vector<uint8_t>(4), false)) << "one sample frame of 2 x 16 bits";
    EXPECT_EQ(22, HandOver(client, kVideoShmKey, std::vector<uint8_t>(3840), true)) << "one row is no picture";
    EXPECT_EQ(22, client.Prepare()) << "a second Prepare would cut the take off";
    ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, 1), true));
    ASSERT_EQ(0, HandOver(client, kAudioShmKey, AudioPayload(take, 1, kSamplesPerPacket), false));
    ASSERT_EQ(0, client.Stop());
    EXPECT_EQ(0, client.SetAudioType(16)) << "the next take's settings may change again";
  }
  std::string text = captured.Text();
  EXPECT_NE(std::string::npos, text.find("SetAudioType while " + path + " is being recorded: refused until Stop or Begin"))
      << text;
  EXPECT_NE(std::string::npos, text.find("SetVideoHeight while " + path + " is being recorded")) << text;
  EXPECT_NE(std::string::npos, text.find("Prepare while " + path + " is being recorded: refused")) << text;
  EXPECT_NE(std::string::npos, text.find("Video segment of 3840 bytes is not 1080 rows of 3840 bytes")) << text;
  ProbedMovie movie = ProbeMovie(path, true);
  ASSERT_TRUE(movie.opened);
  EXPECT_TRUE(movie.decodedEveryVideoFrame);
  EXPECT_EQ(2, movie.video.packets) << "both acknowledged pictures are kept";
  EXPECT_EQ(2 * kSamplesPerPacket + 1, movie.audio.totalDuration) << "and all the sound";
  EXPECT_FALSE(fs::exists(folder.File("other.mov")));
}

// The movie's path names a file, whatever it looks like: never a protocol of FFmpeg's, and
// never anything but a regular file.
TEST(QTRecordServerTest, TheMoviePathIsAPlainFileNeverAProtocol) {
  const Take& take = kTakes[0];  // 2vuy NTSC
  ScratchFolder folder;
  std::string fifo = folder.File("fifo.mov");
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  CapturedStderr captured;
  {
    RawServer server(folder.Path());  // the server works in the folder
    ASSERT_TRUE(server.Running());
    QTRecordClientIPC& client = server.Client();
    ASSERT_EQ(0, Configure(client, take, "pipe:1", true, false)) << "a file of that name in the working folder";
    ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, 0), true));
    ASSERT_EQ(0, client.Stop()) << "the answers are not mixed with the movie";
    EXPECT_EQ(ENOENT, Configure(client, take, "file:" + folder.File("x.mov"), true, false))
        << "a path in a folder named file:, which does not exist";
    EXPECT_EQ(EINVAL, Configure(client, take, fifo, true, false)) << "at once: the open does not wait for a reader";
    EXPECT_EQ(EINVAL, Configure(client, take, "/dev/null", true, false));
    EXPECT_EQ(0, client.Exit());
  }
  std::string text = captured.Text();
  EXPECT_NE(std::string::npos, text.find("The movie " + fifo + " is a FIFO, not a regular file: refused")) << text;
  EXPECT_NE(std::string::npos, text.find("The movie /dev/null is a character device, not a regular file: refused")) << text;
  ProbedMovie movie = ProbeMovie(folder.File("pipe:1"), false);
  ASSERT_TRUE(movie.opened);
  EXPECT_EQ(1, movie.video.packets);
  EXPECT_FALSE(fs::exists(folder.File("x.mov")));
}

// One writer per movie: a second server asked to record over a take being written is
// refused with 16 and a line naming the writer, and leaves the take alone; once the take
// is finished the movie may be written again.
TEST(QTRecordServerTest, AMovieBeingWrittenIsRefusedToASecondServer) {
  const Take& take = kTakes[0];  // 2vuy NTSC: the pictures are stored as sent
  ScratchFolder folder;
  std::string path = folder.File("one writer.mov");
  std::vector<uint8_t> sent;
  pid_t writer = 0;
  CapturedStderr captured;
  {
    ServerSession first;
    ServerSession second;
    ASSERT_EQ(0, first.Status());
    ASSERT_EQ(0, second.Status());
    writer = first.Client().ServerPid();
    ASSERT_EQ(0, Configure(first.Client(), take, path, true, false));
    for (int frame = 0; frame < 3; ++frame) {
      if (frame == 2) {
        EXPECT_EQ(EBUSY, Configure(second.Client(), take, path, true, false)) << "the take is being written";
      }
      std::vector<uint8_t> picture = FramePayload(take, frame);
      ASSERT_EQ(0, HandOver(first.Client(), kVideoShmKey, picture, true)) << frame;
      sent.insert(sent.end(), picture.begin(), picture.end());
    }
    ASSERT_EQ(0, first.Client().Stop());
    ProbedMovie movie = ProbeMovie(path, true);
    ASSERT_TRUE(movie.opened);
    EXPECT_EQ(3, movie.video.packets);
    EXPECT_TRUE(movie.video.bytes == sent) << "the first take is whole";
    EXPECT_EQ(0, Configure(second.Client(), take, path, true, false)) << "free once the take is finished";
    ASSERT_EQ(0, HandOver(second.Client(), kVideoShmKey, FramePayload(take, 5), true));
    EXPECT_EQ(0, second.Client().Stop());
  }
  std::string text = captured.Text();
  EXPECT_NE(std::string::npos, text.find("The movie " + path + " is being written by process " + std::to_string(writer) +
                                         " (QTRecordServer)"))
      << text;
  EXPECT_EQ(1, ProbeMovie(path, false).video.packets) << "the second take";
}

// A FIFO put where the video segment's name belongs is refused at once; the take goes on.
TEST(QTRecordServerTest, AFifoInTheSegmentsPlaceIsRefusedAtOnce) {
  const Take& take = kTakes[0];
  ScratchFolder folder;
  std::string path = folder.File("fifo segment.mov");
  CapturedStderr captured;
  {
    ServerSession session;
    ASSERT_EQ(0, session.Status());
    QTRecordClient& client = session.Client();
    ASSERT_EQ(0, Configure(client, take, path, true, false));
    {
      HeldSegmentName held(kVideoShmKey);
      struct Removed {
        std::string path;
        ~Removed() { unlink(path.c_str()); }
      } fifo{std::string("/dev/shm/") + kVideoShmKey};
      ASSERT_EQ(0, mkfifo(fifo.path.c_str(), 0600));
      // A server that waited for a writer would be given up after the client's idle limit.
      EXPECT_EQ(EINVAL, client.MapVideo(FramePayload(take, 0).size()));
    }
    ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, 1), true));
    EXPECT_EQ(0, client.Stop());
  }
  std::string text = captured.Text();
  EXPECT_NE(std::string::npos, text.find(std::string("Segment ") + kVideoShmKey + " is a FIFO, not a segment: refused"))
      << text;
  EXPECT_EQ(1, ProbeMovie(path, false).video.packets);
}

// A script in folder that starts the real server with every write held back by
// delayMillis, as a slow disk would, and a backlog of backlogBytes when not 0.
std::string SlowServer(const ScratchFolder& folder, unsigned delayMillis, uint64_t backlogBytes = 0) {
  std::string wrapper = folder.File("slow-server");
  {
    std::ofstream script(wrapper);
    script << "#!/bin/sh\nexec '" << QT_RECORD_SERVER << "' --write-delay-ms " << delayMillis;
    if (backlogBytes) script << " --backlog-bytes " << backlogBytes;
    script << "\n";
  }
  fs::permissions(wrapper, fs::perms::owner_all);
  return wrapper;
}

// Hands payload over as HandOver does, then, as soon as the answer has come, shrinks the
// segment to nothing, as a broken or hostile maker could. secondsAfter receives how long
// after the answer the segment was shrunk.
long HandOverThenShrink(QTRecordClientIPC& client, const char* key, const std::vector<uint8_t>& payload, bool video,
                        double& secondsAfter) {
  HeldSegmentName held(key);
  Core::SharedMemory segment(key);
  if (long rc = segment.Create(payload.size())) return rc;
  struct iovec part = {const_cast<uint8_t*>(payload.data()), payload.size()};
  if (long rc = segment.Fill(&part, 1)) return rc;
  long answer = video ? client.MapVideo(payload.size()) : client.MapAudio(payload.size());
  auto answered = std::chrono::steady_clock::now();
  int fd = shm_open(key, O_RDWR | O_CLOEXEC, 0);
  if (fd < 0 || ftruncate(fd, 0) != 0) answer = -errno;
  if (fd >= 0) close(fd);
  secondsAfter = std::chrono::duration<double>(std::chrono::steady_clock::now() - answered).count();
  return answer;
}

// A segment its maker shrinks right after the server's answer never brings the server
// down: the encoders read a copy of their own, the uncompressed samples are sent by the
// kernel, which comes back short. The sample is left out with a line, its slot stays
// empty and the take goes on to a clean finish.
TEST(QTRecordServerTest, ASegmentShrunkAfterTheAnswerIsLeftOutAndTheTakeGoesOn) {
  constexpr unsigned kDelayMillis = 500;  // the writer reaches each item this long after it came at the earliest
  for (int row : {3, 0}) {  // JPEG, encoded; 2vuy, sent from the segment
    const Take& take = kTakes[row];
    SCOPED_TRACE(Spelled(take.codecType));
    ScratchFolder folder;
    std::string path = folder.File("shrunk.mov");
    double late = 0, seconds = 0;
    long shrunkPicture = -1, shrunkSound = -1, stop = -1;
    CapturedStderr captured;
    {
      ServerSession session(SlowServer(folder, kDelayMillis));
      ASSERT_EQ(0, session.Status());
      QTRecordClient& client = session.Client();
      ASSERT_EQ(0, Configure(client, take, path));
      ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, 0), true));
      ASSERT_EQ(0, HandOver(client, kAudioShmKey, AudioPayload(take, 0, kSamplesPerPacket), false));
      shrunkPicture = HandOverThenShrink(client, kVideoShmKey, FramePayload(take, 1), true, seconds);
      late = std::max(late, seconds);
      shrunkSound = HandOverThenShrink(client, kAudioShmKey, AudioPayload(take, 1, kSamplesPerPacket), false, seconds);
      late = std::max(late, seconds);
      ASSERT_EQ(0, HandOver(client, kVideoShmKey, FramePayload(take, 2), true));
      ASSERT_EQ(0, HandOver(client, kAudioShmKey, AudioPayload(take, 2, kSamplesPerPacket), false));
      stop = client.Stop();
    }
    std::string text = captured.Text();
    EXPECT_EQ(0, shrunkPicture);
    EXPECT_EQ(0, shrunkSound);
    EXPECT_EQ(0, stop) << "the server is there and the take finished\n" << text;
    ProbedMovie movie = ProbeMovie(path, true);
    ASSERT_TRUE(movie.opened);
    EXPECT_TRUE(movie.decodedEveryVideoFrame);
    if (late * 1000 >= kDelayMillis) {
      // This machine was too slow to shrink a segment before the writer read it.
      continue;
    }
    ASSERT_EQ(2, movie.video.packets) << "the shrunk picture is left out\n" << text;
    EXPECT_EQ(2 * take.duration * movie.video.timeBaseDen,
              movie.video.pts[1] * static_cast<int64_t>(take.timescale) * movie.video.timeBaseNum)
        << "the picture after it keeps its own time";
    EXPECT_EQ(2 * kSamplesPerPacket, movie.audio.totalDuration) << "the shrunk sound is left out";
    EXPECT_NE(std::string::npos, text.find("was shrunk before it was written: the sample is left out")) << text;
    if (row == 3) {
      EXPECT_NE(std::string::npos, text.find("shrank to 0 of the 4147200 bytes it was opened with")) << text;
    }
  }
}

// A frame the server drops (its backlog full) shows as an empty slot in the growing take
// once the writer has written the frames queued before it, though no picture follows.
TEST(QTRecordServerTest, DroppedSlotsShowInTheGrowingTakeBeforeTheNextPicture) {
  ScratchFolder folder;
  std::string path = folder.File("dropped.mov");
  const Take& take = kTakes[0];  // 2vuy NTSC, 699840-byte frames
  uint64_t slots = 0, dropped = 0;
  {
    // Each write held back 150 ms, room for two frames: frames handed over at once are
    // dropped from the third on at the latest.
    ServerSession session(SlowServer(folder, 150, 2 * 699840));
    ASSERT_EQ(0, session.Status());
    QTRecordClient& client = session.Client();
    ASSERT_EQ(0, Configure(client, take, path, true, false));
    long answer = 0;
    while (answer != kDroppedFramesStatus && slots < 60) {
      answer = HandOver(client, kVideoShmKey, FramePayload(take, static_cast<int>(slots)), true);
      ASSERT_TRUE(answer == 0 || answer == kDroppedFramesStatus) << answer;
      ++slots;
      dropped += answer == kDroppedFramesStatus;
    }
    ASSERT_EQ(kDroppedFramesStatus, answer) << "the backlog filled";
    MovieFollower follower(path);
    EXPECT_TRUE(FollowUntil(follower, [&](const MovieSummary& s) { return s.pictureSlots == slots; }))
        << "the last slot, dropped, shows: " << follower.Summary().pictureSlots << " of " << slots;
    EXPECT_EQ(slots - dropped, follower.Summary().pictures);
    EXPECT_EQ(dropped, follower.Summary().EmptySlots());
    EXPECT_EQ(0, client.Stop());
  }
  MovieSummary finished;
  ASSERT_EQ(0, finished.Read(path));
  EXPECT_EQ(MovieSummary::Layout::kFinished, finished.layout);
  EXPECT_EQ(slots - dropped, finished.pictures);
  EXPECT_EQ(slots, finished.pictureSlots);
}

// The terminal's Ctrl-C, Ctrl-\ and hang-up reach every process of the host's group: the
// server lives on and answers, and ends when its input closes.
TEST(QTRecordServerTest, TerminalSignalsDoNotEndTheServer) {
  ScratchFolder folder;
  CapturedStderr captured;
  RawServer server(folder.Path());
  ASSERT_TRUE(server.Running());
  ASSERT_EQ(0, server.Client().Stop()) << "serving commands";
  for (int signalNumber : {SIGINT, SIGHUP, SIGQUIT}) ASSERT_EQ(0, kill(server.Pid(), signalNumber));
  EXPECT_EQ(0, server.Client().Stop()) << "still there, and answering";
  server.CloseInput();
  int status = server.ExitStatus();
  ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  EXPECT_EQ(1, WEXITSTATUS(status)) << "the end of its input, as when the plug-in has gone";
}

}  // namespace
}  // namespace KTN

namespace KTN {
namespace {

// A take to a folder on the disk holds no more than its window of the page cache while it
// records: what lies behind the write head goes to the disk and leaves the cache; and Stop
// leaves it out of the cache. The window is made small here (4 MB) so that a take of
// 100 MB shows it; the take is whole.
TEST(QTRecordServerTest, ATakeOnTheDiskHoldsNoMoreThanItsWindowOfThePageCache) {
  constexpr uint64_t kWindow = 4 << 20;
  constexpr int kPictures = 150;
  ScratchFolder folder;
  const Take& take = kTakes[0];  // 2vuy at SD: 700 KB a picture
  const std::string path = folder.File("window.mov");
  const std::string server = folder.File("windowed-server");
  {
    std::ofstream script(server);
    // A backlog that holds the whole take: the pictures come far faster than a disk takes
    // them, and none may be dropped for it.
    script << "#!/bin/sh\nexec '" << QT_RECORD_SERVER << "' --cache-window-bytes " << kWindow << " --backlog-bytes "
           << 2 * kPictures * FramePayload(take, 0).size() << "\n";
  }
  fs::permissions(server, fs::perms::owner_all);
  const std::vector<uint8_t> picture = FramePayload(take, 0);
  uint64_t mostPages = 0, afterStopPages = 0;
  {
    ServerSession session(server);
    ASSERT_EQ(0, session.Status());
    ASSERT_EQ(0, Configure(session.Client(), take, path, true, false));
    int movie = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(movie, 0);
    if (Util::PageCache::IsMemoryBacked(movie)) {
      close(movie);
      GTEST_SKIP() << "the build's scratch folder is in memory: " << folder.Path();
    }
    for (int frame = 0; frame < kPictures; ++frame) {
      ASSERT_EQ(0, HandOver(session.Client(), kVideoShmKey, picture, true));
      struct stat status;
      ASSERT_EQ(0, fstat(movie, &status));
      mostPages = std::max(mostPages, Util::PageCache::ResidentBytes(movie, static_cast<uint64_t>(status.st_size)) / 4096);
    }
    EXPECT_EQ(0, session.Client().Stop());
    // Finishing read the fragment headers, not the pictures, and left none of it behind.
    struct stat status;
    ASSERT_EQ(0, fstat(movie, &status));
    afterStopPages = Util::PageCache::ResidentBytes(movie, static_cast<uint64_t>(status.st_size)) / 4096;
    close(movie);
  }
  EXPECT_LE(afterStopPages, 256u) << "pages of the finished take resident after Stop";
  MovieSummary summary;
  ASSERT_EQ(0, summary.Read(path));
  EXPECT_EQ(MovieSummary::Layout::kFinished, summary.layout);
  EXPECT_EQ(static_cast<uint64_t>(kPictures), summary.pictures);
  EXPECT_GT(fs::file_size(path), kPictures * picture.size());
  // The window, and the few pictures the writer may have in hand beyond it.
  EXPECT_LE(mostPages, (kWindow + 4 * picture.size()) / 4096) << "pages of the take resident at most while it recorded";
  EXPECT_GT(mostPages, 0u);
}

}  // namespace
}  // namespace KTN
