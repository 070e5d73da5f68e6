// Monitoring events of the live event page: the queue they arrive in and their normal form.
#pragma once

#include <string>

namespace console {

// The message queue (server 127.0.0.1, default port) that eventgen and the service's monitors
// push events into, as JSON text: {"time","company","host","severity","message"}.
extern const char* const kEventQueue;

// One event as the page gets it: a one-line JSON object with exactly the five fields as strings.
// Text that is no JSON object becomes the message of an event of severity "unknown"; a missing
// time is filled from `pushedAt` (seconds since the epoch, local time), or now when it is 0.
std::string NormaliseEvent(const std::string& text, long pushedAt);

// The id of event `seq` of this process: "<process tag>-<seq>".
std::string EventId(unsigned long long seq);

// The sequence after which a reconnecting stream resumes, from its Last-Event-ID: the number of
// an id this process gave out, else 0 (everything the ring holds).
unsigned long long ResumeAfter(const std::string& lastEventId);

}  // namespace console
