// The host's record-module interface: selectors, records, callbacks and suites, as they cross RecEntry.
// Shared by the plug-in and the host program. All records are packed, little-endian, LP64.
#pragma once

#include <stddef.h>
#include <stdint.h>

// ---- Selectors and results ----

enum : int32_t {
  recmod_Startup0 = 0,
  recmod_Shutdown = 1,
  recmod_Open = 2,
  recmod_Close = 3,
  recmod_GetInfo = 4,
  recmod_StartRecord = 5,
  recmod_ServiceRecord = 6,
  recmod_StopRecord = 7,
  recmod_CloseRecord = 8,
  recmod_GetFormatInfo = 9,
  recmod_GetSetupInfo0 = 10,
  recmod_ShowOptions = 11,
  recmod_SetActive = 12,
  recmod_GetAudioIndFormat = 13,
  recmod_Idle = 14,
  recmod_SetDisplay = 15,
  recmod_GetSetupInfo = 19,
  recmod_Startup = 26,
  recmod_PrepRecord8 = 28,
  recmod_SelectorCount = 29,
};

enum : int32_t {
  rmNoErr = 0,
  rmUnsupported = 1,
  rmNoCaptureDevice = 5,
  rmOutOfMemory = 6,
  rmFrameLimitReached = 9,
  rmNoMoreFormats = 11,
  rmPrerollFailed = 14,
  rmAborted = 17,
  rmBadParameter = 22,
  rmPrerollCancelled = 24,
};

// ---- Callbacks (first argument: the host's callback identifier) ----

#pragma pack(push, 1)

struct TimeRecord {
  int32_t value;
  int32_t scale;
  int32_t sampleSize;
};

typedef int32_t (*StatusFunc)(int64_t callbackID, const char* text, int64_t frameCount);
typedef int32_t (*PrerollFunc)(int64_t callbackID);  // 0 go on, 2 cancelled
typedef int32_t (*TimecodeFunc)(int64_t callbackID, int32_t* frameNumber, int32_t* unused1, int32_t* unused2);
typedef int32_t (*FormatReportFunc)(int64_t callbackID, int32_t pixelAspectX, int32_t pixelAspectY, int32_t width,
                                    int32_t height, int32_t fieldType, TimeRecord time);

// ---- Suites and function records ----

struct SPBasicSuite {
  int32_t (*acquireSuite)(const char* name, int32_t version, const void** suite);  // 0
  int32_t (*releaseSuite)(const char* name, int32_t version);                       // 8
};

struct PremiereWindowSuite {
  void* (*getMainWindow)(void);  // the host's main window (a QWidget* on Linux)
};

struct recMemoryFuncs {
  void* (*allocate)(uint32_t size);  // 0: a block, or null
  uint8_t reserved8[16];
  void (*dispose)(void* block);      // 24
};

struct recUtilityFuncs {
  uint8_t reserved0[56];
  SPBasicSuite* (*getSPBasicSuite)(void);  // 56: null when the host has none
};

struct recFuncs {
  uint8_t reserved0[8];
  recMemoryFuncs* memoryFuncs;  // 8
};

struct piSuites {
  uint8_t reserved0[4];
  recMemoryFuncs* memoryFuncs;    // 4
  uint8_t reserved12[16];
  recUtilityFuncs* utilityFuncs;  // 28
};

struct rmStdParms {
  int32_t interfaceVersion;  // 0
  recFuncs* funcs;           // 4
  piSuites* suites;          // 12
};

// ---- Selector records ----

struct recOpenParms {  // selector 2, param2
  uint8_t reserved0[28];
  int64_t callbackID;              // 28
  void* settings;                  // 36: the persisted 60-byte settings blob, or null
  FormatReportFunc formatReport;   // 44, or null
};

struct recSetupParms {  // selector 11, param2
  uint8_t reserved0[8];
  int32_t flags;    // 8: non-zero: nothing to show
  void* settings;   // 12: the settings blob, or null; the module may replace it
};

struct recAudioInfoRec {  // selector 13, param1
  uint8_t reserved0[4];
  uint32_t subtype;       // 4: 'RAW '
  uint8_t reserved8[256];
  void* formatBuffer;     // 264: allocated by the module through the host
};

struct pmDisplayPos {  // selector 15, param2
  void* window;      // 0: the host's view for the preview (a QWidget* on Linux)
  int32_t rect[4];   // 8: the preview rectangle; rect[3] (offset 20) must be non-zero
};

struct prFloatRect {
  float left, top, right, bottom;
};

constexpr int kRecordPathUnits = 260;  // UTF-16 units of recCapParmsRec8's path, NUL included

struct recCapParmsRec8 {  // selector 28, param2
  uint8_t reserved0[12];
  int32_t videoEnabled;                 // 12
  int32_t audioEnabled;                 // 16
  uint8_t reserved20[40];
  int32_t abortOnDroppedFrames;         // 60
  uint8_t reserved64[10];
  uint16_t path[kRecordPathUnits];      // 74: UTF-16, NUL-terminated
  StatusFunc statusFunc;                // 594
  PrerollFunc prerollFunc;              // 602
  int32_t frameCount;                   // 610: frames to record; 0x7FFFFFFF: no limit
  uint8_t reportDroppedFrames;          // 614
  uint8_t timecodeRate;                 // 615: 23 is stored as 24
  uint8_t reserved616;
  uint8_t dropFrame;                    // 617
  uint8_t reserved618;
  uint32_t startFrameCount;             // 619: frame count of the start timecode
  uint8_t reserved623[25];
  TimecodeFunc timecodeFunc;            // 648
};

struct recStartReply {  // selector 5, param2
  uint32_t word0;            // 0: 1
  uint32_t word4;            // 4: 1
  char startTimecode[35];    // 8: the first frame's timecode text, NUL-terminated
  uint32_t timeScale;        // 43
  uint32_t frameDuration;    // 47
};

struct recSetupInfo {  // selector 19, param2
  uint32_t word0;        // 0: 1
  uint32_t word4;        // 4: 1
  char buttonLabel[10];  // 8: Mac Roman, NUL-terminated
};

struct recModuleInfo {  // selector 26, param1
  uint8_t reserved0[4];
  uint32_t fileType;        // 4
  uint32_t creator;         // 8
  uint32_t words12[14];     // 12 .. 64
  uint32_t word68;          // 68
  uint32_t word72;          // 72
  uint32_t word76;          // 76
  uint8_t reserved80[64];
  uint32_t word144;         // 144
  uint8_t reserved148[8];
  uint32_t word156;         // 156
  uint32_t word160;         // 160
  uint32_t maxWidth;        // 164
  uint32_t maxHeight;       // 168
  uint16_t aspectNumerator;   // 172
  uint16_t aspectDenominator; // 174
  uint32_t defaultWidth;    // 176
  uint32_t defaultHeight;   // 180
  uint16_t displayName[256];  // 184: UTF-16
  uint32_t word696;         // 696
  uint32_t word700;         // 700
  uint32_t word704;         // 704
  char classID[37];         // 708: a text GUID and NUL
};

#pragma pack(pop)

static_assert(sizeof(TimeRecord) == 12, "host record layout");
static_assert(sizeof(SPBasicSuite) == 16, "host record layout");
static_assert(offsetof(recMemoryFuncs, allocate) == 0 && offsetof(recMemoryFuncs, dispose) == 24, "host record layout");
static_assert(offsetof(recUtilityFuncs, getSPBasicSuite) == 56, "host record layout");
static_assert(offsetof(recFuncs, memoryFuncs) == 8, "host record layout");
static_assert(offsetof(piSuites, memoryFuncs) == 4 && offsetof(piSuites, utilityFuncs) == 28, "host record layout");
static_assert(sizeof(rmStdParms) == 20 && offsetof(rmStdParms, funcs) == 4 && offsetof(rmStdParms, suites) == 12,
              "host record layout");
static_assert(offsetof(recOpenParms, callbackID) == 28 && offsetof(recOpenParms, settings) == 36 &&
                  offsetof(recOpenParms, formatReport) == 44,
              "host record layout");
static_assert(offsetof(recSetupParms, flags) == 8 && offsetof(recSetupParms, settings) == 12, "host record layout");
static_assert(offsetof(recAudioInfoRec, subtype) == 4 && offsetof(recAudioInfoRec, formatBuffer) == 264,
              "host record layout");
static_assert(offsetof(pmDisplayPos, rect) == 8 && offsetof(pmDisplayPos, rect) + 3 * sizeof(int32_t) == 20,
              "host record layout");
static_assert(sizeof(prFloatRect) == 16, "host record layout");
static_assert(offsetof(recCapParmsRec8, videoEnabled) == 12 && offsetof(recCapParmsRec8, audioEnabled) == 16 &&
                  offsetof(recCapParmsRec8, abortOnDroppedFrames) == 60 && offsetof(recCapParmsRec8, path) == 74 &&
                  offsetof(recCapParmsRec8, statusFunc) == 594 && offsetof(recCapParmsRec8, prerollFunc) == 602 &&
                  offsetof(recCapParmsRec8, frameCount) == 610 && offsetof(recCapParmsRec8, reportDroppedFrames) == 614 &&
                  offsetof(recCapParmsRec8, timecodeRate) == 615 && offsetof(recCapParmsRec8, dropFrame) == 617 &&
                  offsetof(recCapParmsRec8, startFrameCount) == 619 && offsetof(recCapParmsRec8, timecodeFunc) == 648 &&
                  sizeof(recCapParmsRec8) >= 656,
              "host record layout");
static_assert(offsetof(recStartReply, startTimecode) == 8 && offsetof(recStartReply, timeScale) == 43 &&
                  offsetof(recStartReply, frameDuration) == 47 && sizeof(recStartReply) >= 51,
              "host record layout");
static_assert(offsetof(recSetupInfo, buttonLabel) == 8 && sizeof(recSetupInfo) >= 18, "host record layout");
static_assert(offsetof(recModuleInfo, fileType) == 4 && offsetof(recModuleInfo, creator) == 8 &&
                  offsetof(recModuleInfo, words12) == 12 && offsetof(recModuleInfo, word68) == 68 &&
                  offsetof(recModuleInfo, word72) == 72 && offsetof(recModuleInfo, word144) == 144 &&
                  offsetof(recModuleInfo, word156) == 156 && offsetof(recModuleInfo, maxWidth) == 164 &&
                  offsetof(recModuleInfo, aspectNumerator) == 172 && offsetof(recModuleInfo, defaultWidth) == 176 &&
                  offsetof(recModuleInfo, displayName) == 184 && offsetof(recModuleInfo, word696) == 696 &&
                  offsetof(recModuleInfo, classID) == 708 && sizeof(recModuleInfo) >= 745,
              "host record layout");

// The module's one entry point, looked up by name.
typedef int32_t (*RecEntryFunc)(int32_t selector, rmStdParms* stdParms, void* param1, intptr_t param2);
extern "C" int32_t RecEntry(int32_t selector, rmStdParms* stdParms, void* param1, intptr_t param2);
