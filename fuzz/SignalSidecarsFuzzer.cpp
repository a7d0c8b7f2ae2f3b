// Reads arbitrary text as the lines of a take's events, levels and verification sidecars, as a
// report or a capture window would find them beside a movie, and each line written back.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "Signal/FlatObject.h"
#include "Signal/SignalEvent.h"
#include "Signal/SlotLevels.h"
#include "Signal/SlotTimecodes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  KTN::SlotTimecodes timecodes;
  timecodes.Start(1001, 30000, "00:59:59;29");
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    const std::string line = text.substr(start, end - start + (end < text.size() ? 1 : 0));
    start = end + 1;
    KTN::FlatObject object;
    if (object.Read(line)) {
      // A string member written back reads as the string these lines can hold (a string read
      // holds no control characters; bytes that are not UTF-8 become U+FFFD).
      for (const auto& member : object.strings) {
        KTN::FlatObject back;
        if (!back.Read("{\"s\":" + KTN::FlatObject::Quoted(member.second) + "}")) __builtin_trap();
        if (back.String("s") != KTN::FlatObject::Flat(member.second)) __builtin_trap();
      }
    }
    KTN::SignalEvent event;
    if (KTN::SignalEvent::Parse(line, &event)) {
      // What was read is written back whole and reads the same.
      KTN::SignalEvent again;
      if (!KTN::SignalEvent::Parse(event.Line(), &again) || again.Line() != event.Line()) __builtin_trap();
      event.Sentence();
      if (event.kind == KTN::SignalEvent::Kind::kTimecodeBreak) timecodes.AddRun(event.slot, event.after);
      timecodes.Text(event.slot);
    }
    int64_t numerator = 0, denominator = 0;
    int channels = 0;
    KTN::PictureLevels picture;
    KTN::SoundLevels sound;
    switch (KTN::SlotLevels::Parse(line, &numerator, &denominator, &channels, &picture, &sound)) {
      case KTN::SlotLevels::LineKind::kPicture: KTN::SlotLevels::Line(picture); break;
      case KTN::SlotLevels::LineKind::kSound: KTN::SlotLevels::Line(sound); break;
      default: break;
    }
  }
  return 0;
}
