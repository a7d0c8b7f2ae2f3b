// Scripted faults of the simulated card's signal: black, frozen or silent frames, a clipped channel, timecode jumps.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace KTN {
namespace Sim {

enum class FaultKind { kBlack, kFreeze, kSilence, kClip, kTimecodeJump };

// One fault over frames first .. first + count - 1 of a stream (frames counted from 0 when
// the card's streams start); a timecode jump skips count frames of timecode at first.
struct ScriptedFault {
  FaultKind kind;
  int64_t first;
  int64_t count;
};

// The faults the card plays, read from text "KIND@FIRST+COUNT,..." (VELDRAN_SIM_EVENTS).
// Made once when the card loads; the queries are made for every frame on the capture
// thread, so they only walk the few faults (at most kMaxFaults) and never allocate.
// Copyable; const methods are safe from any thread.
class ScriptedFaults {
 public:
  static constexpr size_t kMaxFaults = 64;
  static constexpr int64_t kMaxFirst = 1000000000;  // about six months of frames at 60 a second
  static constexpr int64_t kMaxCount = 10000000;    // about two days of frames at 60 a second

  // Reads a comma-separated list of KIND@FIRST+COUNT, KIND one of black, freeze, silence,
  // clip, tcjump, FIRST and COUNT decimal numbers (COUNT at least 1); empty text is no
  // faults. On a bad list, returns false with faults left empty and why saying what is
  // wrong with it.
  static bool Parse(const std::string& text, ScriptedFaults* faults, std::string* why);

  const std::vector<ScriptedFault>& Faults() const { return mFaults; }

  // Whether any fault is of kind.
  bool Has(FaultKind kind) const;
  // Whether a fault of kind covers frame n.
  bool Covers(FaultKind kind, int64_t n) const;
  // Whether a freeze starts at frame n (its picture is the one the freeze repeats).
  bool FreezeStartsAt(int64_t n) const;
  // The frame whose picture frame n shows: n itself, or, while frozen, the first frame of
  // the freeze (followed back through freezes that hold one another's first frame).
  int64_t PictureOf(int64_t n) const;
  // Frames of timecode skipped at frame n (the sum of the jumps that start there).
  int64_t TimecodeJumpAt(int64_t n) const;

 private:
  std::vector<ScriptedFault> mFaults;
};

}  // namespace Sim
}  // namespace KTN
