// Handing frame slots to the recording server: one round of the service loop at a time, each
// picture and packet through a shared-memory segment of its own. Host thread only.
#pragma once

#include <stdint.h>

#include <chrono>
#include <vector>

#include "DeviceAPI/VeldranAPI.h"
#include "Record/CapPriv.h"

namespace KTN {

// One round of the service loop: the front video entry (with the null entries behind it,
// whose slots go over together) and the sound that came with those slots.
struct Round {
  IVeldranVideoInputFrame* frame = nullptr;
  unsigned long long givenUp = 0;  // slots without a picture before frame
  // The packets in arrival order; those before nextPacket have been handed over.
  std::vector<IVeldranAudioInputPacket*> packets;
  size_t nextPacket = 0;
  bool Empty() const { return !frame && !givenUp && nextPacket == packets.size(); }
  // The frame slots it still holds.
  int64_t Slots() const { return static_cast<int64_t>(givenUp) + (frame ? 1 : 0); }
};

// Finishes a hand-over a service call left pending; waits until answerBy (0 when answered
// and settled, 115 when still pending, or the failure).
long FinishPendingHandOver(CapPriv* instance, std::chrono::steady_clock::time_point answerBy);

// Hands over one round; 0, 115 when an answer is still to come (the rest of the round is
// put back), 11 (EAGAIN) when another process holds a segment name past nameBy (the rest of
// the round is put back; its frame still in it when it was the video segment's name), or
// the failure (the round's items released).
long HandOverRound(CapPriv* instance, Round& round, std::chrono::steady_clock::time_point nameBy,
                   std::chrono::steady_clock::time_point answerBy);

}  // namespace KTN
