// Lifecycle: the process-wide "stopping" state that handlers and the response writer consult.
#pragma once

namespace wh {

// Marks the host as stopping and wakes every WaitStopping sleeper. Safe from any thread (not
// from a signal handler: the main thread calls it after the signal pipe wakes it).
void BeginStop();

// 1 once BeginStop has been called.
int IsStopping();

// Sleeps up to `milliseconds` (negative counts as 0); returns 1 at once when the host is or
// becomes stopping, 0 when the time ran out.
int WaitStopping(int milliseconds);

// Marks the stop as finished (every handler has returned) and wakes WaitStopped.
void EndStop();

// Waits up to `milliseconds` for EndStop; true when it came.
bool WaitStopped(int milliseconds);

}  // namespace wh
