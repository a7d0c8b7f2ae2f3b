// Tests of the video-range to full-range conversion of JPEG recordings.
#include <gtest/gtest.h>

#include <stdint.h>

#include <cmath>

#include <vector>

#include "Server/FullRangeConverter.h"

namespace KTN {
namespace {

struct LevelCase {
  uint8_t video;
  uint8_t luma;    // full-range value of video as luma
  uint8_t chroma;  // and as chroma
};

const LevelCase kLevels[] = {
    {0, 0, 0},        // below video range: clipped
    {16, 0, 0},       // black; the most negative chroma
    {17, 1, 2},
    {126, 128, 126},
    {127, 129, 127},
    {128, 130, 128},  // chroma's centre stays put
    {129, 132, 129},
    {235, 255, 250},  // white
    {240, 255, 255},  // the most positive chroma
    {255, 255, 255},  // above video range: clipped
};

struct ConvertedPair {
  uint8_t y0, y1, cb, cr;
};

// One pixel pair whose four bytes are all `video`, converted alone.
ConvertedPair ConvertAlone(const FullRangeConverter& converter, uint8_t video) {
  const uint8_t pair[4] = {video, video, video, video};
  ConvertedPair out{};
  uint8_t y[2] = {};
  uint8_t* const planes[3] = {y, &out.cb, &out.cr};
  const int linesizes[3] = {2, 1, 1};
  converter.Convert(pair, 4, 2, 1, planes, linesizes);
  out.y0 = y[0];
  out.y1 = y[1];
  return out;
}

// One pixel pair of every level, read back from the three planes.
TEST(FullRangeConverterTest, MapsVideoLevelsToFullRange) {
  FullRangeConverter converter;
  for (const LevelCase& level : kLevels) {
    SCOPED_TRACE(static_cast<int>(level.video));
    ConvertedPair out = ConvertAlone(converter, level.video);
    EXPECT_EQ(level.luma, out.y0);
    EXPECT_EQ(level.luma, out.y1);
    EXPECT_EQ(level.chroma, out.cb);
    EXPECT_EQ(level.chroma, out.cr);
  }
}

// Cb Y0 Cr Y1 land in their planes, row by row, with padding on either side left alone.
TEST(FullRangeConverterTest, PlacesEverySampleInItsPlaneAndRow) {
  constexpr int kWidth = 4, kHeight = 2, kRowBytes = 12;  // 8 bytes of pixels, 4 of padding
  std::vector<uint8_t> rows(kRowBytes * kHeight, 0xEE);
  for (int row = 0; row < kHeight; ++row) {
    for (int pair = 0; pair < kWidth / 2; ++pair) {
      uint8_t* in = &rows[row * kRowBytes + pair * 4];
      in[0] = static_cast<uint8_t>(128 + 10 * row + pair);       // Cb
      in[1] = static_cast<uint8_t>(16 + 40 * row + 2 * pair);    // Y0
      in[2] = static_cast<uint8_t>(100 + 10 * row + pair);       // Cr
      in[3] = static_cast<uint8_t>(16 + 40 * row + 2 * pair + 1);  // Y1
    }
  }
  constexpr int kLuma = 6, kChroma = 3;  // linesizes wider than the picture
  std::vector<uint8_t> y(kLuma * kHeight, 0x55), cb(kChroma * kHeight, 0x55), cr(kChroma * kHeight, 0x55);
  uint8_t* const planes[3] = {y.data(), cb.data(), cr.data()};
  const int linesizes[3] = {kLuma, kChroma, kChroma};
  FullRangeConverter converter;
  converter.Convert(rows.data(), kRowBytes, kWidth, kHeight, planes, linesizes);

  auto luma = [&](int video) { return ConvertAlone(converter, static_cast<uint8_t>(video)).y0; };
  auto chroma = [&](int video) { return ConvertAlone(converter, static_cast<uint8_t>(video)).cb; };
  for (int row = 0; row < kHeight; ++row) {
    for (int x = 0; x < kWidth; ++x) EXPECT_EQ(luma(16 + 40 * row + x), y[row * kLuma + x]) << row << "," << x;
    for (int pair = 0; pair < kWidth / 2; ++pair) {
      EXPECT_EQ(chroma(128 + 10 * row + pair), cb[row * kChroma + pair]);
      EXPECT_EQ(chroma(100 + 10 * row + pair), cr[row * kChroma + pair]);
    }
    for (int x = kWidth; x < kLuma; ++x) EXPECT_EQ(0x55, y[row * kLuma + x]) << "luma padding";
    EXPECT_EQ(0x55, cb[row * kChroma + 2]) << "chroma padding";
    EXPECT_EQ(0x55, cr[row * kChroma + 2]);
  }
}

// HD colour bars in BT.709 come out in BT.601's matrix, which JPEG decoders read: decoded
// that way, each bar is the colour it was, to within a level or two.
TEST(FullRangeConverterTest, Bt709ColoursBecomeBt601Colours) {
  FullRangeConverter converter(true);
  const double bars[][3] = {{0.75, 0.75, 0.75}, {0.75, 0.75, 0}, {0, 0.75, 0.75}, {0, 0.75, 0},
                            {0.75, 0, 0.75},    {0.75, 0, 0},    {0, 0, 0.75},    {0, 0, 0}};
  for (const auto& rgb : bars) {
    // BT.709 8-bit video range, as the card delivers HD.
    const double y = 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2];
    const uint8_t pair[4] = {static_cast<uint8_t>(std::lround(128 + 224 * (rgb[2] - y) / 1.8556)),
                             static_cast<uint8_t>(std::lround(16 + 219 * y)),
                             static_cast<uint8_t>(std::lround(128 + 224 * (rgb[0] - y) / 1.5748)),
                             static_cast<uint8_t>(std::lround(16 + 219 * y))};
    uint8_t luma[2] = {}, cb = 0, cr = 0;
    uint8_t* const planes[3] = {luma, &cb, &cr};
    const int linesizes[3] = {2, 1, 1};
    converter.Convert(pair, 4, 2, 1, planes, linesizes);
    // Read back as a JPEG decoder does: BT.601, full range.
    const double y601 = luma[0] / 255.0, pb = (cb - 128) / 255.0, pr = (cr - 128) / 255.0;
    const double back[3] = {y601 + 1.402 * pr, y601 - 0.344136 * pb - 0.714136 * pr, y601 + 1.772 * pb};
    for (int c = 0; c < 3; ++c) {
      EXPECT_NEAR(255 * rgb[c], 255 * back[c], 2.0) << "bar " << rgb[0] << "," << rgb[1] << "," << rgb[2] << " component " << c;
    }
    EXPECT_EQ(luma[0], luma[1]);
  }
}

}  // namespace
}  // namespace KTN
