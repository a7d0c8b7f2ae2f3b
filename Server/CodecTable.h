// The codec types the recording server writes, and how each one is written.
#pragma once

#include <stdint.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixfmt.h>
}

namespace KTN {

struct ServerCodec {
  uint32_t codecType;     // the four-character codec type of the formats table
  AVCodecID codecId;
  const char* encoderName;  // null: the device's bytes are the samples as they stand
  AVPixelFormat encoderFormat;  // the encoder's input (or the raw sample layout)
  uint32_t storedWidth;   // 0: the configured size is stored
  uint32_t storedHeight;
  int profile;            // FF_PROFILE_UNKNOWN where the encoder has one choice
  AVFieldOrder fieldOrder;  // AV_FIELD_UNKNOWN where the standard decides
  bool compressed;        // compressed types accept extra rows and crop them
};

// The row of codecType, or null when this server does not write it.
const ServerCodec* FindServerCodec(uint32_t codecType);

// The pixel format in which the device delivers frames for a codec type: 'v210' and
// 'r210' as themselves, every other type as '2vuy'.
uint32_t DeviceInputFormat(uint32_t codecType);

// How a recording's pictures are to be read, as far as the recording server knows from its
// codec, size and rate: the colours (BT.601 with NTSC's or PAL's primaries at standard
// definition, BT.709 above; RGB for the RGB type; JPEG's pictures always in BT.601's
// matrix, which is how every JPEG decoder reads them) and the field order. The order is unknown
// where a picture of that size and rate may be either interlaced or progressive, or either
// field may come first (PAL, and 1080 lines at 30 frames a second or fewer): the host side,
// which knows the signal, stamps it into the finished movie.
struct PictureDescription {
  AVColorPrimaries primaries;
  AVColorTransferCharacteristic transfer;
  AVColorSpace matrix;
  AVFieldOrder fieldOrder;
};
PictureDescription DescribePictures(const ServerCodec& codec, int height, int64_t frameDuration, int64_t timescale);

}  // namespace KTN
