// Tests of the report's picture written to a file: a PNG in place of what was there, and nothing kept of a file that is refused.
// The test program's offscreen QApplication is registered once, in CaptureReadoutTest.cpp.
#include "Host/ReportPicture.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <QImage>
#include <fstream>
#include <string>

#include "Host/TakeReport.h"
#include "Util/ScratchFolder.h"

namespace KTN {
namespace {

// A report of a take of 100 slots at 25 fps with one black event, without a movie to take
// thumbnails from.
TakeReport HundredSlots(const std::string& moviePath) {
  TakeReport report;
  report.moviePath = moviePath;
  report.summary.layout = MovieSummary::Layout::kFinished;
  report.summary.pictures = 100;
  report.summary.pictureSlots = 100;
  report.summary.videoTimescale = 25000;
  report.summary.frameDuration = 1000;
  report.eventsThere = true;
  SignalEvent black;
  black.kind = SignalEvent::Kind::kBlack;
  black.slot = 40;
  black.frames = 10;
  report.events.push_back({black, ""});
  return report;
}

TEST(ReportPictureTest, AnOlderFileIsReplacedByThePictureWhole) {
  Util::ScratchFolder folder;
  const std::string png = folder.File("report.png");
  {
    std::ofstream old(png, std::ios::binary);
    old << std::string(4 << 20, 'x');  // far longer than the picture
  }
  std::string problem;
  ASSERT_EQ(ReportPicture::Write(HundredSlots(folder.File("take.mov")), png, &problem), 0) << problem;
  struct stat written = {};
  ASSERT_EQ(stat(png.c_str(), &written), 0);
  EXPECT_LT(written.st_size, 4 << 20) << "the older file's end is cut off";
  QImage image;
  ASSERT_TRUE(image.load(QString::fromStdString(png), "PNG"));
  EXPECT_EQ(image.width(), ReportPicture::kWidth);
}

TEST(ReportPictureTest, WhatIsNoRegularFileIsRefusedAndLeftAlone) {
  Util::ScratchFolder folder;
  const std::string fifo = folder.File("report.png");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::string problem;
  EXPECT_EQ(ReportPicture::Write(HundredSlots(folder.File("take.mov")), fifo, &problem), EINVAL);
  EXPECT_EQ(problem, "cannot write the report " + fifo + ": it is not a regular file");
  struct stat there = {};
  ASSERT_EQ(lstat(fifo.c_str(), &there), 0);
  EXPECT_TRUE(S_ISFIFO(there.st_mode));
}

}  // namespace
}  // namespace KTN
