// A take's signal health followed while it records.
#include "Host/LiveSignal.h"

#include <stdio.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "Util/JsonWriter.h"

namespace KTN {

LiveSignal::LiveSignal(const std::string& moviePath, uint32_t frameDuration, uint32_t timescale)
    : mSignal(moviePath), mFrameDuration(frameDuration), mTimescale(timescale) {}

void LiveSignal::SetStartTimecode(const std::string& text) {
  if (text == mStart) return;
  mStart = text;
  Restart();
}

void LiveSignal::Restart() {
  // A break runs on from its "after" whichever order the breaks were found in.
  mTimecodes = SlotTimecodes();
  if (mStart.empty() || !mTimecodes.Start(mFrameDuration, mTimescale, mStart)) return;
  mTimecodes.AddBreaks(mSignal.Events());
}

long LiveSignal::Update() {
  const size_t before = mSignal.Events().size();
  if (long rc = mSignal.Update()) return rc;
  const std::vector<SignalEvent>& events = mSignal.Events();
  // A sidecar read again from its start (a new take under the same name) is all new.
  if (events.size() < before + mSignal.NewEvents()) Restart();
  const size_t first = events.size() - mSignal.NewEvents();
  // The breaks first: an event after a break in the same read counts from the break. The
  // breaks added before are added again to the same effect.
  if (mSignal.NewEvents()) mTimecodes.AddBreaks(events);
  for (size_t i = first; i < events.size(); ++i) {
    mNewEvents.push_back({events[i], mTimecodes.Text(events[i].slot)});
  }
  return 0;
}

std::vector<LiveSignal::Found> LiveSignal::NewEvents() {
  std::vector<Found> found;
  found.swap(mNewEvents);
  return found;
}

std::vector<std::string> LiveSignal::NewLines() {
  std::vector<std::string> lines;
  for (const Found& found : NewEvents()) lines.push_back(EventLine(found.timecode, found.event));
  return lines;
}

float LiveSignal::LevelShare(float db) {
  if (!(db > kFloorDb)) return 0;
  return std::min(1.0f, (db - kFloorDb) / -kFloorDb);
}

std::string LiveSignal::EventWhen(const std::string& timecode, int64_t slot) {
  return timecode.empty() ? "slot " + std::to_string(slot) : timecode;
}

std::string LiveSignal::EventLine(const std::string& timecode, const SignalEvent& event) {
  return EventWhen(timecode, event.slot) + "  " + event.Sentence();
}

void LiveSignal::EventMembers(Util::JsonWriter& json, const std::string& timecode, const SignalEvent& event) {
  json.Key("kind").String(SignalEvent::KindName(event.kind));
  json.Key("slot").Integer(event.slot);
  json.Key("frames").Integer(event.frames);
  if (event.channel > 0) json.Key("channel").Integer(event.channel);
  json.Key("timecode").StringOrNull(timecode);
  if (event.kind == SignalEvent::Kind::kTimecodeBreak) {
    json.Key("before").String(event.before);
    json.Key("after").String(event.after);
  }
  json.Key("sentence").String(event.Sentence());
}

std::vector<float> LiveSignal::ChannelPeaks(double seconds) const {
  const std::vector<SoundLevels>& sounds = mSignal.Sounds();
  if (sounds.empty() || mSignal.Channels() <= 0) return {};
  double slotsPerSecond = 0;
  if (mSignal.RateNumerator() > 0 && mSignal.RateDenominator() > 0) {
    slotsPerSecond = static_cast<double>(mSignal.RateNumerator()) / static_cast<double>(mSignal.RateDenominator());
  } else if (mFrameDuration > 0) {
    slotsPerSecond = static_cast<double>(mTimescale) / mFrameDuration;
  }
  // At least the last slot, however short the span.
  const int64_t span = std::max<int64_t>(1, static_cast<int64_t>(std::lround(seconds * slotsPerSecond)));
  const int64_t last = sounds.back().slot;
  std::vector<float> peaks(static_cast<size_t>(mSignal.Channels()), -std::numeric_limits<float>::infinity());
  // The lines come in slot order; a few at the end cover the span.
  for (auto sound = sounds.rbegin(); sound != sounds.rend() && sound->slot > last - span; ++sound) {
    for (size_t channel = 0; channel < peaks.size() && channel < sound->peakDb.size(); ++channel) {
      peaks[channel] = std::max(peaks[channel], sound->peakDb[channel]);
    }
  }
  return peaks;
}

std::vector<float> LiveSignal::NewPeaks() {
  const std::vector<SoundLevels>& sounds = mSignal.Sounds();
  // Fewer than were seen: the levels were read again from their start (a new take under the
  // same name), all new.
  if (mSoundsSeen > sounds.size()) mSoundsSeen = 0;
  if (mSoundsSeen == sounds.size() || mSignal.Channels() <= 0) return {};
  std::vector<float> peaks(static_cast<size_t>(mSignal.Channels()), -std::numeric_limits<float>::infinity());
  for (size_t i = mSoundsSeen; i < sounds.size(); ++i) {
    for (size_t channel = 0; channel < peaks.size() && channel < sounds[i].peakDb.size(); ++channel) {
      peaks[channel] = std::max(peaks[channel], sounds[i].peakDb[channel]);
    }
  }
  mSoundsSeen = sounds.size();
  return peaks;
}

std::string LiveSignal::PeakText(const std::vector<float>& peaks) {
  if (peaks.empty()) return std::string();
  return "peak " + DbText(*std::max_element(peaks.begin(), peaks.end()));
}

std::string LiveSignal::DbText(float peakDb) {
  if (std::isinf(peakDb) || std::isnan(peakDb)) return "-inf dBFS";  // below any level
  char text[32];
  snprintf(text, sizeof text, "%.*f dBFS", kDbDecimals, static_cast<double>(peakDb));
  return text;
}

}  // namespace KTN
