// The library's clock: every "now" of sessions, tokens and time values comes from here, so that
// tests can move time without sleeping.
#pragma once

#include <ctime>

#include "common/Export.h"

namespace tarn {

// Seconds since the epoch: time(nullptr), or the test clock when one is set.
WS_API time_t ClockNow();

// Test seam: replaces the clock with `fn` (nullptr restores time(nullptr)). Production code never
// calls it. The pointer is read atomically, so a test may swap it while other threads run.
WS_API void SetClockForTest(time_t (*fn)());

}  // namespace tarn
