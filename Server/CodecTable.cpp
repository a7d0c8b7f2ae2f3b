// The codec types the recording server writes.
#include "Server/CodecTable.h"

#include "Util/FourCC.h"

namespace KTN {

namespace {

using Util::FourCC;

constexpr int kNoProfile = FF_PROFILE_UNKNOWN;

// DV stores a fixed raster: 720x480 (NTSC, cropped from 486 lines) or 720x576, and the
// DVCPRO HD profiles store 1280x1080 (1080i59.94), 1440x1080 (1080i50) and 960x720,
// scaled from the standard's size. SD DV is bottom field first, 1080 DVCPRO HD top first.
const ServerCodec kServerCodecs[] = {
    // type          codec                  encoder      encoder input          stored      profile  field order   compressed
    {FourCC("2vuy"), AV_CODEC_ID_RAWVIDEO, nullptr,     AV_PIX_FMT_UYVY422,    0,    0,    kNoProfile, AV_FIELD_UNKNOWN, false},
    {FourCC("v210"), AV_CODEC_ID_V210,     nullptr,     AV_PIX_FMT_YUV422P10LE, 0,   0,    kNoProfile, AV_FIELD_UNKNOWN, false},
    {FourCC("r210"), AV_CODEC_ID_R210,     nullptr,     AV_PIX_FMT_X2RGB10LE,  0,    0,    kNoProfile, AV_FIELD_UNKNOWN, false},
    {FourCC("jpeg"), AV_CODEC_ID_MJPEG,    "mjpeg",     AV_PIX_FMT_YUVJ422P,   0,    0,    kNoProfile, AV_FIELD_UNKNOWN, true},
    {FourCC("dvc "), AV_CODEC_ID_DVVIDEO,  "dvvideo",   AV_PIX_FMT_YUV411P,    720,  480,  kNoProfile, AV_FIELD_BB,      true},
    {FourCC("dvcp"), AV_CODEC_ID_DVVIDEO,  "dvvideo",   AV_PIX_FMT_YUV420P,    720,  576,  kNoProfile, AV_FIELD_BB,      true},
    {FourCC("dv5n"), AV_CODEC_ID_DVVIDEO,  "dvvideo",   AV_PIX_FMT_YUV422P,    720,  480,  kNoProfile, AV_FIELD_BB,      true},
    {FourCC("dv5p"), AV_CODEC_ID_DVVIDEO,  "dvvideo",   AV_PIX_FMT_YUV422P,    720,  576,  kNoProfile, AV_FIELD_BB,      true},
    {FourCC("dvh6"), AV_CODEC_ID_DVVIDEO,  "dvvideo",   AV_PIX_FMT_YUV422P,    1280, 1080, kNoProfile, AV_FIELD_TT,      true},
    {FourCC("dvh5"), AV_CODEC_ID_DVVIDEO,  "dvvideo",   AV_PIX_FMT_YUV422P,    1440, 1080, kNoProfile, AV_FIELD_TT,      true},
    {FourCC("dvhp"), AV_CODEC_ID_DVVIDEO,  "dvvideo",   AV_PIX_FMT_YUV422P,    960,  720,  kNoProfile, AV_FIELD_PROGRESSIVE, true},
    {FourCC("dvhq"), AV_CODEC_ID_DVVIDEO,  "dvvideo",   AV_PIX_FMT_YUV422P,    960,  720,  kNoProfile, AV_FIELD_PROGRESSIVE, true},
    {FourCC("apch"), AV_CODEC_ID_PRORES,   "prores_ks", AV_PIX_FMT_YUV422P10LE, 0,   0,    3,          AV_FIELD_UNKNOWN, true},
    {FourCC("ap4h"), AV_CODEC_ID_PRORES,   "prores_ks", AV_PIX_FMT_YUV444P10LE, 0,   0,    4,          AV_FIELD_UNKNOWN, true},
};

}  // namespace

const ServerCodec* FindServerCodec(uint32_t codecType) {
  for (const ServerCodec& codec : kServerCodecs) {
    if (codec.codecType == codecType) return &codec;
  }
  return nullptr;
}

uint32_t DeviceInputFormat(uint32_t codecType) {
  if (codecType == FourCC("v210") || codecType == FourCC("r210")) return codecType;
  return FourCC("2vuy");
}

}  // namespace KTN
