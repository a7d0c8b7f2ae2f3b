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

}  // namespace KTN
