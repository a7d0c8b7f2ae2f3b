// A take's report to the host and the stamp of its finished movie. Host thread only.
#pragma once

#include <stdint.h>

#include "Record/CapPriv.h"

namespace KTN {

// Reports the take to the host's status callback once the queues are drained: its status
// text and the frame slots handedOver so far. Returns what the service call answers: the
// status callback's result, 17 when frames were dropped and the host asked to abort, or 9
// once the frame limit is reached.
int32_t ReportTake(CapPriv* instance, int64_t handedOver);

}  // namespace KTN
