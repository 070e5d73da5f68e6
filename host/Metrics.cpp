// Metrics: counting, telling refusals apart, and the Prometheus text page.
#include "host/Metrics.h"

#include <dirent.h>

#include <cstdio>
#include <cstring>

namespace wh {

namespace {

const char* const kRefusalNames[kRefusalCount] = {
    "session_timeout", "csrf",           "verify_code",  "script_filter", "login_throttled",
    "login_failed",    "body_too_large", "stream_limit", "other"};

const char* const kKindNames[Metrics::kKindCount] = {"handler", "static", "metrics"};

// The CSRF check's refusal texts, as the library words them.
const char* const kCsrfMessages[] = {"请求非法", "请求不合法", "请求不合法,token保存失败",
                                     "Session init failed or query string failed"};

// The value of "key" : "value" in styled JSON, or null; `end` receives its end.
const char* FindValue(const char* body, const char* stop, const char* key, const char** end) {
    const size_t keyLength = std::strlen(key);
    const char* at =
        static_cast<const char*>(memmem(body, static_cast<size_t>(stop - body), key, keyLength));
    if (at == nullptr)
        return nullptr;
    const char* value = at + keyLength;
    const char* close =
        static_cast<const char*>(std::memchr(value, '"', static_cast<size_t>(stop - value)));
    if (close == nullptr)
        return nullptr;
    *end = close;
    return value;
}

// A JSON string's text with its \uXXXX escapes (the library's writer escapes every non-ASCII
// character) turned back into UTF-8; other escapes are kept as they stand.
std::string Unescape(const char* begin, const char* end) {
    std::string out;
    for (const char* p = begin; p < end; ++p) {
        unsigned code = 0;
        if (*p == '\\' && end - p >= 6 && p[1] == 'u' && std::sscanf(p + 2, "%4x", &code) == 1) {
            if (code < 0x80) {
                out += static_cast<char>(code);
            } else if (code < 0x800) {
                out += static_cast<char>(0xc0 | (code >> 6));
                out += static_cast<char>(0x80 | (code & 0x3f));
            } else {
                out += static_cast<char>(0xe0 | (code >> 12));
                out += static_cast<char>(0x80 | ((code >> 6) & 0x3f));
                out += static_cast<char>(0x80 | (code & 0x3f));
            }
            p += 5;
        } else {
            out += *p;
        }
    }
    return out;
}

// The stale-token refusal ends with "<overrun>,<now>,<issued>", after a translated text.
bool EndsWithThreeNumbers(const char* begin, const char* end) {
    int groups = 0;
    const char* p = end;
    while (p > begin && groups < 3) {
        const char* digitsEnd = p;
        while (p > begin && p[-1] >= '0' && p[-1] <= '9')
            --p;
        if (p == digitsEnd)
            return false;
        ++groups;
        if (groups == 3)
            return true;
        if (p == begin || p[-1] != ',')
            return false;
        --p;
    }
    return false;
}

void Line(std::string& out, const char* text) {
    out += text;
    out += '\n';
}

}  // namespace

Refusal ClassifyEnvelope(const char* body, size_t length) {
    if (body == nullptr || length < 16 || length > 4096)
        return kRefusalNone;
    const char* stop = body + length;
    const char* end = nullptr;
    const char* status = FindValue(body, stop, "\"status\" : \"", &end);
    if (status == nullptr)
        return kRefusalNone;
    const size_t statusLength = static_cast<size_t>(end - status);
    if (statusLength == 14 && std::memcmp(status, "SessionTimeOut", 14) == 0)
        return kSessionTimeout;
    if (statusLength != 6 || std::memcmp(status, "failed", 6) != 0)
        return kRefusalNone;
    const char* message = FindValue(body, stop, "\"errmsg\" : \"", &end);
    if (message == nullptr)
        return kRefusalNone;
    const std::string text = Unescape(message, end);
    for (const char* known : kCsrfMessages) {
        if (text == known)
            return kCsrf;
    }
    return EndsWithThreeNumbers(message, end) ? kCsrf : kRefusalNone;
}

Refusal RefusalByName(const char* name) {
    for (int i = 0; name != nullptr && i < kRefusalCount; ++i) {
        if (std::strcmp(kRefusalNames[i], name) == 0)
            return static_cast<Refusal>(i);
    }
    return kRefusalOther;
}

const char* RefusalName(Refusal reason) {
    return reason >= 0 && reason < kRefusalCount ? kRefusalNames[reason] : "none";
}

void Metrics::CountRequest(Kind kind, int status, double seconds) {
    int cls = status >= 100 && status <= 599 ? status / 100 : 0;
    m_nRequests[kind][cls].fetch_add(1, std::memory_order_relaxed);
    m_nMicros.fetch_add(static_cast<unsigned long long>(seconds * 1e6), std::memory_order_relaxed);
    m_nTimed.fetch_add(1, std::memory_order_relaxed);
}

void Metrics::CountRefusal(Refusal reason) {
    if (reason >= 0 && reason < kRefusalCount)
        m_nRefusals[reason].fetch_add(1, std::memory_order_relaxed);
}

std::string Metrics::Render(const MetricsSnapshot& s) const {
    std::string out;
    char buf[768];
    Line(out, "# HELP webharbour_requests_total Requests answered, by kind and status class.");
    Line(out, "# TYPE webharbour_requests_total counter");
    for (int k = 0; k < kKindCount; ++k) {
        for (int c = 1; c <= 5; ++c) {
            std::snprintf(buf, sizeof(buf),
                          "webharbour_requests_total{kind=\"%s\",status=\"%dxx\"} %llu",
                          kKindNames[k], c, m_nRequests[k][c].load(std::memory_order_relaxed));
            Line(out, buf);
        }
    }
    Line(out, "# HELP webharbour_request_seconds Time from a request's arrival to its end.");
    Line(out, "# TYPE webharbour_request_seconds summary");
    std::snprintf(buf, sizeof(buf),
                  "webharbour_request_seconds_sum %.6f\nwebharbour_request_seconds_count %llu",
                  static_cast<double>(m_nMicros.load()) / 1e6, m_nTimed.load());
    Line(out, buf);
    Line(out, "# HELP webharbour_refusals_total Requests refused, by reason.");
    Line(out, "# TYPE webharbour_refusals_total counter");
    for (int r = 0; r < kRefusalCount; ++r) {
        std::snprintf(buf, sizeof(buf), "webharbour_refusals_total{reason=\"%s\"} %llu",
                      kRefusalNames[r], m_nRefusals[r].load(std::memory_order_relaxed));
        Line(out, buf);
    }
    const struct {
        const char* name;
        const char* help;
        long long value;
    } kGauges[] = {
        {"webharbour_sessions", "Web sessions in the library's table.", s.sessions},
        {"webharbour_token_files", "CSRF token files in hdoc/tmp.", s.tokenFiles},
        {"webharbour_event_streams", "Event streams open now.", s.openStreams},
    };
    for (const auto& g : kGauges) {
        std::snprintf(buf, sizeof(buf), "# HELP %s %s\n# TYPE %s gauge\n%s %lld", g.name, g.help,
                      g.name, g.name, g.value);
        Line(out, buf);
    }
    Line(out, "# HELP webharbour_db_handles Database handles of the library's pools.");
    Line(out, "# TYPE webharbour_db_handles gauge");
    const char* const kinds[3] = {"tree", "table", "queue"};
    for (int k = 0; k < 3; ++k) {
        std::snprintf(buf, sizeof(buf),
                      "webharbour_db_handles{kind=\"%s\",state=\"in_use\"} %lld\n"
                      "webharbour_db_handles{kind=\"%s\",state=\"idle\"} %lld",
                      kinds[k], s.poolInUse[k], kinds[k], s.poolIdle[k]);
        Line(out, buf);
    }
    Line(out,
         "# HELP webharbour_db_handle_wait_seconds Time to get a database handle from a pool.");
    Line(out, "# TYPE webharbour_db_handle_wait_seconds summary");
    std::snprintf(buf, sizeof(buf),
                  "webharbour_db_handle_wait_seconds_sum %.6f\n"
                  "webharbour_db_handle_wait_seconds_count %lld\n"
                  "# HELP webharbour_db_handle_wait_max_seconds Longest wait for a handle.\n"
                  "# TYPE webharbour_db_handle_wait_max_seconds gauge\n"
                  "webharbour_db_handle_wait_max_seconds %.6f",
                  s.poolAllocSeconds, s.poolAllocs, s.poolAllocMaxSeconds);
    Line(out, buf);
    return out;
}

Metrics& ProcessMetrics() {
    static Metrics metrics;
    return metrics;
}

long long CountFiles(const std::string& dir) {
    DIR* d = ::opendir(dir.c_str());
    if (d == nullptr)
        return -1;
    long long n = 0;
    while (dirent* e = ::readdir(d)) {
        if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
            ++n;
    }
    ::closedir(d);
    return n;
}

}  // namespace wh
