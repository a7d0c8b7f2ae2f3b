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

PictureDescription DescribePictures(const ServerCodec& codec, int height, int64_t frameDuration, int64_t timescale) {
  PictureDescription description;
  const bool standardDefinition = height <= 576;
  const bool pal = height == 576;
  description.primaries = !standardDefinition ? AVCOL_PRI_BT709 : pal ? AVCOL_PRI_BT470BG : AVCOL_PRI_SMPTE170M;
  description.transfer = AVCOL_TRC_BT709;
  if (codec.codecType == FourCC("r210")) {
    description.matrix = AVCOL_SPC_RGB;
  } else if (codec.codecId == AV_CODEC_ID_MJPEG) {
    description.matrix = AVCOL_SPC_BT470BG;  // JPEG's own (BT.601), which its pictures are turned into
  } else {
    description.matrix = !standardDefinition ? AVCOL_SPC_BT709 : pal ? AVCOL_SPC_BT470BG : AVCOL_SPC_SMPTE170M;
  }
  const double framesPerSecond = frameDuration > 0 ? static_cast<double>(timescale) / frameDuration : 0;
  if (codec.fieldOrder != AV_FIELD_UNKNOWN) {
    description.fieldOrder = codec.fieldOrder;  // the codec's own, as DV's
  } else if (height == 720 || height > 1080 || (height == 1080 && framesPerSecond > 30)) {
    description.fieldOrder = AV_FIELD_PROGRESSIVE;  // 720p, 2K, 1080p at 50 and 60
  } else if ((height == 486 || height == 480) && framesPerSecond > 29) {
    description.fieldOrder = AV_FIELD_BB;  // NTSC: bottom field first
  } else if (height == 486 || height == 480) {
    description.fieldOrder = AV_FIELD_PROGRESSIVE;  // NTSC at 23.98: whole frames
  } else {
    description.fieldOrder = AV_FIELD_UNKNOWN;
  }
  return description;
}

uint32_t DeviceInputFormat(uint32_t codecType) {
  if (codecType == FourCC("v210") || codecType == FourCC("r210")) return codecType;
  return FourCC("2vuy");
}

}  // namespace KTN
