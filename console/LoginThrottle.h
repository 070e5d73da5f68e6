// LoginThrottle: failed log-ins counted per login name and per peer address in the tree
// database ("saas", main key "loginthrottle", sub keys "u-<name>" and "a-<address>", properties
// "fails" and "until"), so that the limit holds across restarts and across every host that
// shares the database. The first few failures are free; each one after them makes the next try
// wait twice as long as the one before, up to a ceiling. A successful log-in clears both counts.
#pragma once

#include <ctime>
#include <string>

namespace console {

struct ThrottleSettings {
    int freeTries = 5;         // [console] LoginFreeTries
    int waitSeconds = 2;       // [console] LoginWaitSeconds: the wait after the first failure
    int maxWaitSeconds = 900;  // [console] LoginMaxWaitSeconds
};

// Reads section [console] of <install>/webharbour/middle.ini; missing or bad values keep the
// defaults (a message on standard error names a bad one).
ThrottleSettings LoadThrottleSettings(const std::string& installPath);
void SetThrottleSettings(const ThrottleSettings& settings);

// The wait after `failures` failures under `settings` (0 while they are free).
long WaitAfter(int failures, const ThrottleSettings& settings);

// Seconds before `user` (may be "" for a name that is no valid key) may try again from
// `address`; 0 when it may now. A database failure counts as no wait: the throttle must never
// lock everyone out because the database hiccuped.
long WaitLeft(const std::string& user, const std::string& address, time_t now);

// Counts a failure for both and returns the wait it starts (0 while free). Logged with the peer
// address in the log "console.log".
long NoteFailure(const std::string& user, const std::string& address, time_t now,
                 const std::string& why);

// Clears both counts after a log-in that passed.
void NoteSuccess(const std::string& user, const std::string& address);

}  // namespace console
