// Scripted faults of the simulated card's signal, read from text and looked up frame by frame.
#include "Simulator/ScriptedFaults.h"

namespace KTN {
namespace Sim {

namespace {

struct KindName {
  const char* name;
  FaultKind kind;
};

const KindName kKinds[] = {
    {"black", FaultKind::kBlack},     {"freeze", FaultKind::kFreeze},
    {"silence", FaultKind::kSilence}, {"clip", FaultKind::kClip},
    {"tcjump", FaultKind::kTimecodeJump},
};

// A decimal number of at most maximum, digits only (no sign, no spaces).
bool ParseNumber(const std::string& text, int64_t maximum, int64_t* value) {
  if (text.empty() || text.size() > 12) return false;
  int64_t parsed = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    parsed = parsed * 10 + (c - '0');
  }
  if (parsed > maximum) return false;
  *value = parsed;
  return true;
}

}  // namespace

bool ScriptedFaults::Parse(const std::string& text, ScriptedFaults* faults, std::string* why) {
  faults->mFaults.clear();
  if (text.empty()) return true;  // no faults
  std::vector<ScriptedFault> parsed;
  size_t start = 0;
  for (;;) {
    size_t end = text.find(',', start);
    if (end == std::string::npos) end = text.size();
    std::string item = text.substr(start, end - start);
    if (parsed.size() == kMaxFaults) {
      *why = "more than " + std::to_string(kMaxFaults) + " events";
      return false;
    }
    size_t at = item.find('@');
    size_t plus = item.find('+', at == std::string::npos ? 0 : at);
    if (at == std::string::npos || plus == std::string::npos) {
      *why = "\"" + item + "\" is not KIND@FIRST+COUNT";
      return false;
    }
    std::string name = item.substr(0, at);
    const KindName* kind = nullptr;
    for (const KindName& candidate : kKinds) {
      if (name == candidate.name) kind = &candidate;
    }
    if (!kind) {
      *why = "\"" + name + "\" is not black, freeze, silence, clip or tcjump";
      return false;
    }
    ScriptedFault fault{kind->kind, 0, 0};
    if (!ParseNumber(item.substr(at + 1, plus - at - 1), kMaxFirst, &fault.first)) {
      *why = "\"" + item + "\" has no first frame from 0 to " + std::to_string(kMaxFirst);
      return false;
    }
    if (!ParseNumber(item.substr(plus + 1), kMaxCount, &fault.count) || fault.count == 0) {
      *why = "\"" + item + "\" has no count of frames from 1 to " + std::to_string(kMaxCount);
      return false;
    }
    parsed.push_back(fault);
    if (end == text.size()) break;
    start = end + 1;
  }
  faults->mFaults = std::move(parsed);
  return true;
}

bool ScriptedFaults::Has(FaultKind kind) const {
  for (const ScriptedFault& fault : mFaults) {
    if (fault.kind == kind) return true;
  }
  return false;
}

bool ScriptedFaults::Covers(FaultKind kind, int64_t n) const {
  for (const ScriptedFault& fault : mFaults) {
    if (fault.kind == kind && n >= fault.first && n - fault.first < fault.count) return true;
  }
  return false;
}

bool ScriptedFaults::FreezeStartsAt(int64_t n) const {
  for (const ScriptedFault& fault : mFaults) {
    if (fault.kind == FaultKind::kFreeze && fault.first == n) return true;
  }
  return false;
}

int64_t ScriptedFaults::PictureOf(int64_t n) const {
  // Each step moves to an earlier frame, so this ends after at most one step a fault.
  for (bool moved = true; moved;) {
    moved = false;
    for (const ScriptedFault& fault : mFaults) {
      if (fault.kind == FaultKind::kFreeze && n > fault.first && n - fault.first < fault.count) {
        n = fault.first;
        moved = true;
      }
    }
  }
  return n;
}

int64_t ScriptedFaults::TimecodeJumpAt(int64_t n) const {
  int64_t skipped = 0;
  for (const ScriptedFault& fault : mFaults) {
    if (fault.kind == FaultKind::kTimecodeJump && fault.first == n) skipped += fault.count;
  }
  return skipped;
}

}  // namespace Sim
}  // namespace KTN
