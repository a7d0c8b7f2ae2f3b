// Handing frame slots to the recording server: one round of the service loop at a time, each
// picture and packet through a shared-memory segment of its own. Host thread only.
#pragma once

#include <stdint.h>

#include <chrono>
#include <deque>

#include "DeviceAPI/VeldranAPI.h"
#include "DeviceAPI/VeldranObject.h"
#include "Record/CapPriv.h"

namespace KTN {

// One round of the service loop: the front video entry (with the null entries behind it,
// whose slots go over together) and the sound that came with those slots. It holds the
// queues' references to what it took off them until each item is handed over; what it still
// holds when it goes is released.
struct Round {
  VeldranRef<IVeldranVideoInputFrame> frame;
  unsigned long long givenUp = 0;  // slots without a picture before frame
  std::deque<VeldranRef<IVeldranAudioInputPacket>> packets;  // not handed over yet, in arrival order
  bool Empty() const { return !frame && !givenUp && packets.empty(); }
  // The frame slots it still holds.
  int64_t Slots() const { return static_cast<int64_t>(givenUp) + (frame ? 1 : 0); }
};

// Finishes a hand-over a service call left pending; waits until answerBy (0 when answered
// and settled, 115 when still pending, or the failure).
long FinishPendingHandOver(CapPriv* instance, std::chrono::steady_clock::time_point answerBy);

// Settles the pending hand-over with the server's answer status: the hand-over is over
// either way (its item released, its segment removed). MapVideo's answer 7 (the server has
// dropped frames) and SkipVideo's 0 mark the take's frames as dropped and are no failure;
// any other non-zero answer is the failure that ends the service loop, reported.
long SettleHandOver(CapPriv* instance, long status);

// Hands over one round; 0, 115 when an answer is still to come (the rest of the round is
// put back), 11 (EAGAIN) when another process holds a segment name past nameBy (the rest of
// the round is put back; its frame still in it when it was the video segment's name), or
// the failure (the round's items released).
long HandOverRound(CapPriv* instance, Round& round, std::chrono::steady_clock::time_point nameBy,
                   std::chrono::steady_clock::time_point answerBy);

}  // namespace KTN
