// The Kestrin Veldran device API: the only contract between the plug-in and a capture card.
//
// A card's driver installs a bundle whose library exports the four factories at the end of
// this file. Objects are reference counted: every interface starts with QueryInterface,
// AddRef and Release; an object handed out through an out-pointer or a factory carries one
// reference that the receiver releases. Objects are destroyed only through Release, never
// deleted by their users. Results are 32-bit: 0 success, kVeldranFalse a negative answer
// ("no more", "not ready"), negative values failures.
#pragma once

#include <stdint.h>

// ---- Results ----

typedef int32_t VeldranResult;

constexpr VeldranResult kVeldranOK = 0;
constexpr VeldranResult kVeldranFalse = 1;  // end of a list, not ready, do not start yet
constexpr VeldranResult kVeldranNotImplemented = static_cast<VeldranResult>(0x80000001u);
constexpr VeldranResult kVeldranFail = static_cast<VeldranResult>(0x80000002u);
constexpr VeldranResult kVeldranInvalidArg = static_cast<VeldranResult>(0x80000003u);
constexpr VeldranResult kVeldranOutOfMemory = static_cast<VeldranResult>(0x80000004u);
constexpr VeldranResult kVeldranNoInterface = static_cast<VeldranResult>(0x80000005u);
constexpr VeldranResult kVeldranNotFound = static_cast<VeldranResult>(0x80000006u);  // e.g. no timecode of that kind
constexpr VeldranResult kVeldranBusy = static_cast<VeldranResult>(0x80000007u);      // streams running

// ---- Codes ----

// Four-character codes: the first character in the most significant byte.
constexpr uint32_t VeldranCode(const char (&code)[5]) {
  return (static_cast<uint32_t>(static_cast<uint8_t>(code[0])) << 24) |
         (static_cast<uint32_t>(static_cast<uint8_t>(code[1])) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(code[2])) << 8) | static_cast<uint32_t>(static_cast<uint8_t>(code[3]));
}

// Display modes.
enum : uint32_t {
  ktnModeNTSC = VeldranCode("ntsc"),            // 720x486, 30000/1001, interlaced
  ktnModeNTSC2398 = VeldranCode("nt23"),        // 720x486, 24000/1001
  ktnModePAL = VeldranCode("pal "),             // 720x576, 25, interlaced
  ktnModeHD1080p2398 = VeldranCode("23ps"),
  ktnModeHD1080p24 = VeldranCode("24ps"),
  ktnModeHD1080p25 = VeldranCode("Hp25"),
  ktnModeHD1080p2997 = VeldranCode("Hp29"),
  ktnModeHD1080p30 = VeldranCode("Hp30"),
  ktnModeHD1080p50 = VeldranCode("Hp50"),
  ktnModeHD1080p2398Pulldown = VeldranCode("H23d"),
  ktnMode3DHD1080p2398 = VeldranCode("23p#"),
  ktnMode3DHD1080p24 = VeldranCode("24p#"),
  ktnModeHD1080p5994 = VeldranCode("Hp59"),
  ktnModeHD1080p6000 = VeldranCode("Hp60"),
  ktnModeHD1080i50 = VeldranCode("Hi50"),       // frame rates: 25, 30000/1001, 30
  ktnModeHD1080i5994 = VeldranCode("Hi59"),
  ktnModeHD1080i6000 = VeldranCode("Hi60"),
  ktnModeHD720p50 = VeldranCode("hp50"),
  ktnModeHD720p5994 = VeldranCode("hp59"),
  ktnModeHD720p60 = VeldranCode("hp60"),
  ktnMode2k2398 = VeldranCode("2k23"),          // 2048x1556
  ktnMode2k24 = VeldranCode("2k24"),
  ktnMode2k25 = VeldranCode("2k25"),
  ktnMode2kDCI2398 = VeldranCode("2d23"),       // 2048x1080
  ktnMode2kDCI24 = VeldranCode("2d24"),
};

// Pixel formats and their row layouts.
enum : uint32_t {
  ktnFormat8BitARGB = 32,                       // A R G B bytes
  ktnFormat8BitYUV = VeldranCode("2vuy"),       // Cb Y0 Cr Y1 bytes; rows of width x 2 bytes
  ktnFormat10BitYUV = VeldranCode("v210"),      // 6 pixels in 16 bytes; rows padded to 128 bytes
  ktnFormat8BitBGRA = VeldranCode("BGRA"),      // B G R A bytes
  ktnFormat10BitRGB = VeldranCode("r210"),      // big-endian words 00RRRRRRRRRRGGGGGGGGGGBBBBBBBBBB; rows padded to 256 bytes
};

// Answers of IVeldranInput::DoesSupportVideoMode.
enum : uint32_t {
  ktnSupportNone = 0,
  ktnSupportNative = 1,
  ktnSupportWithConversion = 2,
};

// Flags of IVeldranInput::EnableVideoInput.
enum : uint32_t {
  ktnInputFlagDefault = 0,
  ktnInputFlagEnableFormatDetection = 1,
};

// Audio of IVeldranInput::EnableAudioInput.
enum : uint32_t {
  ktnAudioSampleRate48kHz = 48000,
  ktnAudioSampleType16bit = 16,
  ktnAudioSampleType32bit = 32,
};

// Timecode kinds of IVeldranVideoInputFrame::GetTimecode.
enum : uint32_t {
  ktnTimecodeRP188 = VeldranCode("rp18"),
  ktnTimecodeVITC = VeldranCode("vitc"),
  ktnTimecodeSerial = VeldranCode("seri"),
};

// Flags of IVeldranTimecode::GetFlags.
enum : uint32_t {
  ktnTimecodeFlagDropFrame = 1,
};

// Field dominance of a display mode.
enum : uint32_t {
  ktnProgressiveFrame = VeldranCode("prog"),
  ktnUpperFieldFirst = VeldranCode("uppr"),
  ktnLowerFieldFirst = VeldranCode("lowr"),
};

// The hardware description's flags word.
enum : uint32_t {
  ktnHardwareFlag10BitRGBCapture = 1u << 0,   // 'r210' capture available
  ktnHardwareFlagNo10BitYUVInHD = 1u << 6,    // 'v210' only at standard definition
};

// ---- Interface identifiers ----

struct VeldranIID {
  uint8_t bytes[16];
};

inline bool operator==(const VeldranIID& a, const VeldranIID& b) {
  for (int i = 0; i < 16; ++i) {
    if (a.bytes[i] != b.bytes[i]) return false;
  }
  return true;
}

constexpr VeldranIID IID_IVeldranInput = {{0x4B, 0x54, 0x4E, 0x57, 0x9A, 0x31, 0x4C, 0x0E, 0x8D, 0x52, 0x61, 0x76, 0x2F, 0x10, 0x00, 0x01}};
constexpr VeldranIID IID_IVeldranOutput = {{0x4B, 0x54, 0x4E, 0x57, 0x9A, 0x31, 0x4C, 0x0E, 0x8D, 0x52, 0x61, 0x76, 0x2F, 0x10, 0x00, 0x02}};
constexpr VeldranIID IID_IVeldranDeviceControl = {{0x4B, 0x54, 0x4E, 0x57, 0x9A, 0x31, 0x4C, 0x0E, 0x8D, 0x52, 0x61, 0x76, 0x2F, 0x10, 0x00, 0x03}};

// ---- Interfaces ----

class IVeldranDisplayMode;
class IVeldranVideoFrame;
class IVeldranVideoInputFrame;
class IVeldranAudioInputPacket;

// The three operations every object starts with. Interfaces have no virtual destructor of
// their own (an input callback's table ends with one): objects go only through Release.
class IVeldranUnknown {
 public:
  // kVeldranNoInterface (and *out null) for an interface the object does not have;
  // otherwise *out holds a new reference.
  virtual VeldranResult QueryInterface(VeldranIID iid, void** out) = 0;
  // Both return the count after the change.
  virtual int32_t AddRef() = 0;
  virtual int32_t Release() = 0;

 protected:
  ~IVeldranUnknown() = default;
};

// One display mode of an input: its size, code, name and rate.
class IVeldranDisplayMode : public IVeldranUnknown {
 public:
  virtual int32_t GetWidth() = 0;
  virtual int32_t GetHeight() = 0;
  virtual uint32_t GetDisplayMode() = 0;
  // *name receives a malloc'ed UTF-8 string that the caller frees.
  virtual VeldranResult GetName(char** name) = 0;
  // A frame lasts frameDuration / timeScale seconds.
  virtual VeldranResult GetFrameRate(int64_t* frameDuration, int64_t* timeScale) = 0;
  virtual uint32_t GetFieldDominance() = 0;

 protected:
  ~IVeldranDisplayMode() = default;
};

class IVeldranDisplayModeIterator : public IVeldranUnknown {
 public:
  // The next mode with a reference; kVeldranFalse (and *mode null) after the last.
  virtual VeldranResult Next(IVeldranDisplayMode** mode) = 0;

 protected:
  ~IVeldranDisplayModeIterator() = default;
};

// A timecode read from a frame.
class IVeldranTimecode : public IVeldranUnknown {
 public:
  // Packed BCD: hours in the most significant byte, frames in the least.
  virtual uint32_t GetBCD() = 0;
  virtual VeldranResult GetComponents(uint8_t* hours, uint8_t* minutes, uint8_t* seconds, uint8_t* frames) = 0;
  // *text receives "HH:MM:SS:FF" (';' before the frames at drop frame) as a malloc'ed
  // UTF-8 string that the caller frees.
  virtual VeldranResult GetString(char** text) = 0;
  virtual uint32_t GetFlags() = 0;

 protected:
  ~IVeldranTimecode() = default;
};

// A picture: rows of one pixel format.
class IVeldranVideoFrame : public IVeldranUnknown {
 public:
  virtual int32_t GetWidth() = 0;
  virtual int32_t GetHeight() = 0;
  virtual int32_t GetRowBytes() = 0;
  virtual uint32_t GetPixelFormat() = 0;
  virtual uint32_t GetFlags() = 0;
  // *buffer points at the first row, valid while the caller holds a reference.
  virtual VeldranResult GetBytes(void** buffer) = 0;

 protected:
  ~IVeldranVideoFrame() = default;
};

// A captured picture with its time and timecodes.
class IVeldranVideoInputFrame : public IVeldranVideoFrame {
 public:
  // The frame's start and duration on the input's clock, in timeScale units.
  virtual VeldranResult GetStreamTime(int64_t* frameTime, int64_t* frameDuration, int64_t timeScale) = 0;
  // The frame's timecode of the given kind with a reference; kVeldranNotFound when the
  // signal carries none of that kind.
  virtual VeldranResult GetTimecode(uint32_t format, IVeldranTimecode** timecode) = 0;

 protected:
  ~IVeldranVideoInputFrame() = default;
};

// The sound of one frame: interleaved little-endian samples.
class IVeldranAudioInputPacket : public IVeldranUnknown {
 public:
  virtual int32_t GetSampleFrameCount() = 0;
  // *buffer points at the first sample, valid while the caller holds a reference.
  virtual VeldranResult GetBytes(void** buffer) = 0;
  // The packet's start on the input's clock, in timeScale units.
  virtual VeldranResult GetPacketTime(int64_t* packetTime, int64_t timeScale) = 0;

 protected:
  ~IVeldranAudioInputPacket() = default;
};

// Receives frames on the card's capture thread. Frame and packet (either may be null) are
// valid for the call; the callback takes references to keep them.
class IVeldranInputCallback : public IVeldranUnknown {
 public:
  virtual VeldranResult VideoInputFormatChanged(uint32_t events, IVeldranDisplayMode* mode, uint32_t flags) = 0;
  virtual VeldranResult VideoInputFrameArrived(IVeldranVideoInputFrame* video, IVeldranAudioInputPacket* audio) = 0;

 protected:
  virtual ~IVeldranInputCallback() = default;
};

// Receives preview frames on the card's preview thread.
class IVeldranScreenPreviewCallback : public IVeldranUnknown {
 public:
  virtual VeldranResult DrawFrame(IVeldranVideoFrame* frame) = 0;

 protected:
  ~IVeldranScreenPreviewCallback() = default;
};

// A card's input.
class IVeldranInput : public IVeldranUnknown {
 public:
  // *support: ktnSupportNone, ktnSupportNative or ktnSupportWithConversion; *resultMode,
  // when not null, the mode with a reference.
  virtual VeldranResult DoesSupportVideoMode(uint32_t mode, uint32_t pixelFormat, uint32_t flags, uint32_t* support,
                                             IVeldranDisplayMode** resultMode) = 0;
  virtual VeldranResult GetDisplayModeIterator(IVeldranDisplayModeIterator** iterator) = 0;
  // Null unregisters. The callback is called on the card's preview thread.
  virtual VeldranResult SetScreenPreviewCallback(IVeldranScreenPreviewCallback* callback) = 0;
  // kVeldranInvalidArg for ktnInputFlagEnableFormatDetection on a card that cannot detect.
  virtual VeldranResult EnableVideoInput(uint32_t mode, uint32_t pixelFormat, uint32_t flags) = 0;
  virtual VeldranResult DisableVideoInput() = 0;
  virtual VeldranResult GetAvailableVideoFrameCount(uint32_t* count) = 0;
  virtual VeldranResult EnableAudioInput(uint32_t sampleRate, uint32_t sampleType, uint32_t channelCount) = 0;
  virtual VeldranResult DisableAudioInput() = 0;
  virtual VeldranResult GetAvailableAudioSampleFrameCount(uint32_t* count) = 0;
  virtual VeldranResult StartStreams() = 0;
  // Returns when no callback is running any more.
  virtual VeldranResult StopStreams() = 0;
  virtual VeldranResult PauseStreams() = 0;
  virtual VeldranResult FlushStreams() = 0;
  // The input holds a reference to the callback until another is set; null unregisters.
  virtual VeldranResult SetCallback(IVeldranInputCallback* callback) = 0;

 protected:
  ~IVeldranInput() = default;
};

// A card's output (preview registration only in this contract).
class IVeldranOutput : public IVeldranUnknown {
 public:
  virtual VeldranResult SetScreenPreviewCallback(IVeldranScreenPreviewCallback* callback) = 0;

 protected:
  ~IVeldranOutput() = default;
};

// One receivable input mode, as the settings dialog lists them.
struct VeldranDeviceModeRecord {
  uint32_t width;
  uint32_t height;
  uint32_t frameRate;  // frames per second, unsigned 16.16 fixed point
  uint32_t reserved;
};
static_assert(sizeof(VeldranDeviceModeRecord) == 16, "device mode records are 16 bytes");

struct VeldranHardwareDescription {
  uint32_t size;      // bytes of this record, filled by the card
  uint32_t flags;     // ktnHardwareFlag...
  char model[56];     // NUL-terminated
};

// Deck control and capture geometry. The record module calls entries 6, 11 and 12 and the
// settings dialog entries 13 and 14; the numbers are the entries' places in the table,
// which is fixed by the order below.
class IVeldranDeviceControl : public IVeldranUnknown {
 public:
  virtual VeldranResult GetDeckStatus(uint32_t* status) = 0;                         // 3
  virtual VeldranResult SetCuePoint(uint32_t timecodeBCD) = 0;                       // 4
  virtual VeldranResult GetCuePoint(uint32_t* timecodeBCD) = 0;                      // 5
  virtual VeldranResult SetCaptureGeometry(uint32_t width, uint32_t height, uint32_t timeScale,
                                           uint32_t frameDuration) = 0;              // 6
  virtual VeldranResult Play() = 0;                                                  // 7
  virtual VeldranResult Stop() = 0;                                                  // 8
  virtual VeldranResult Rewind() = 0;                                                // 9
  virtual VeldranResult FastForward() = 0;                                           // 10
  // 0 when a deck is attached and ready, else kVeldranFalse.
  virtual VeldranResult GetReadiness() = 0;                                          // 11
  // 0 when capture should start with this frame (its timecode has reached the cue point).
  virtual VeldranResult CheckStart(IVeldranVideoInputFrame* frame) = 0;              // 12
  // Fills up to bufferBytes of records; *count receives the number stored.
  virtual VeldranResult GetSupportedInputDisplayModes(VeldranDeviceModeRecord* records, uint32_t bufferBytes,
                                                      uint32_t* count) = 0;          // 13
  virtual VeldranResult GetHardwareDescription(VeldranHardwareDescription* description) = 0;  // 14

 protected:
  ~IVeldranDeviceControl() = default;
};

// A card.
class IVeldran : public IVeldranUnknown {
 public:
  // *name receives a malloc'ed UTF-8 string that the caller frees.
  virtual VeldranResult GetModelName(char** name) = 0;

 protected:
  ~IVeldran() = default;
};

class IVeldranIterator : public IVeldranUnknown {
 public:
  // The next card with a reference; kVeldranFalse (and *device null) after the last.
  virtual VeldranResult Next(IVeldran** device) = 0;

 protected:
  ~IVeldranIterator() = default;
};

// Draws the latest frame with fixed-function OpenGL into the current context.
class IVeldranGLScreenPreviewHelper : public IVeldranUnknown {
 public:
  // Called once with the context current.
  virtual VeldranResult InitializeGL() = 0;
  // Paints the frame set last into the current context's viewport.
  virtual VeldranResult PaintGL() = 0;
  // Keeps the frame (with a reference) for the next PaintGL; safe from any thread.
  virtual VeldranResult SetFrame(IVeldranVideoFrame* frame) = 0;

 protected:
  ~IVeldranGLScreenPreviewHelper() = default;
};

// Converts pictures between pixel formats.
class IVeldranVideoConversion : public IVeldranUnknown {
 public:
  virtual VeldranResult ConvertFrame(IVeldranVideoFrame* source, IVeldranVideoFrame* destination) = 0;

 protected:
  ~IVeldranVideoConversion() = default;
};

// ---- Entry points of the card's library ----

extern "C" {
typedef IVeldranIterator* (*CreateVeldranIteratorInstanceFunc)(void);
typedef IVeldranGLScreenPreviewHelper* (*CreateOpenGLScreenPreviewHelperFunc)(void);
typedef IVeldranScreenPreviewCallback* (*CreateCocoaScreenPreviewFunc)(void* parentView);
typedef IVeldranVideoConversion* (*CreateVideoConversionInstanceFunc)(void);

IVeldranIterator* CreateVeldranIteratorInstance_0001(void);
IVeldranGLScreenPreviewHelper* CreateOpenGLScreenPreviewHelper_0001(void);
IVeldranScreenPreviewCallback* CreateCocoaScreenPreview_0001(void* parentView);
IVeldranVideoConversion* CreateVideoConversionInstance_0001(void);
}
