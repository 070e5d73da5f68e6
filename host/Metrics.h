// Metrics: webharbour's counters and the /metrics page in the Prometheus text format.
//
// Requests are counted by kind (handler, static file, metrics) and status class; refusals by
// reason. The library answers its refusals itself, but every answer passes through the host's
// callbacks, so the host tells them apart by the envelope the library writes (ClassifyEnvelope);
// refusals that a module words itself (a wrong verification code, markup the filter stopped)
// the module reports through WhRegistry::countRefusal.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>

namespace wh {

// Refusal reasons; the names are the label values on the page.
enum Refusal {
    kRefusalNone = -1,
    kSessionTimeout = 0,  // the gate's SessionTimeOut answer
    kCsrf,                // the CSRF check's refusals (token missing, stale, foreign page...)
    kVerifyCode,          // reported by modules
    kScriptFilter,        // reported by modules
    kLoginThrottled,      // reported by modules: too many failed log-ins
    kLoginFailed,         // reported by modules: wrong password or user
    kBodyTooLarge,        // 413 from the host
    kStreamLimit,         // 503 from the host: too many event streams
    kRefusalOther,        // a reason a module named that is not one of the above
    kRefusalCount
};

// The reason of a JSON envelope the library wrote (`body` as sent, possibly wrapped for a
// callback), or kRefusalNone when it is no refusal of the session or CSRF checks.
Refusal ClassifyEnvelope(const char* body, size_t length);

// A reason named by a module ("verify_code", "script_filter", ...); kRefusalOther if unknown.
Refusal RefusalByName(const char* name);
const char* RefusalName(Refusal reason);

// What the page shows besides the counters, gathered when it is asked for.
struct MetricsSnapshot {
    long long sessions = -1;    // sessions in the library's table (-1: unknown)
    long long tokenFiles = -1;  // files in hdoc/tmp
    int openStreams = 0;
    long long poolInUse[3] = {0, 0, 0};  // tree, table, queue handles lent out
    long long poolIdle[3] = {0, 0, 0};
    long long poolAllocs = 0;  // handle allocations and their summed time
    double poolAllocSeconds = 0;
    double poolAllocMaxSeconds = 0;
};

class Metrics {
public:
    enum Kind { kHandler = 0, kStatic, kMetricsPage, kKindCount };
    void CountRequest(Kind kind, int status, double seconds);
    void CountRefusal(Refusal reason);
    std::string Render(const MetricsSnapshot& snapshot) const;

private:
    std::atomic<unsigned long long> m_nRequests[kKindCount][6] = {};  // status class 0..5xx
    std::atomic<unsigned long long> m_nRefusals[kRefusalCount] = {};
    std::atomic<unsigned long long> m_nMicros{0};  // summed request time
    std::atomic<unsigned long long> m_nTimed{0};
};

// The process's counters.
Metrics& ProcessMetrics();

// Files in `dir` (not "." and ".."), or -1 when it cannot be read.
long long CountFiles(const std::string& dir);

}  // namespace wh
