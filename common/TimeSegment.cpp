// tarn::TimeSegment: a span of time in whole seconds.
#include "common/TimeSegment.h"

namespace tarn {

TimeSegment::TimeSegment() : m_nSeconds(0) {}

TimeSegment::TimeSegment(int days, int hours, int minutes, int seconds) {
    // 32-bit signed arithmetic that wraps (two's complement) instead of overflowing, then widened.
    uint32_t total = static_cast<uint32_t>(days) * 86400u + static_cast<uint32_t>(hours) * 3600u +
                     static_cast<uint32_t>(minutes) * 60u + static_cast<uint32_t>(seconds);
    m_nSeconds = static_cast<int32_t>(total);
}

TimeSegment::TimeSegment(long seconds) : m_nSeconds(seconds < 0 ? 0 : seconds) {}

TimeSegment::TimeSegment(const TimeSegment& other) = default;

TimeSegment::~TimeSegment() = default;

TimeSegment& TimeSegment::operator=(long seconds) {
    m_nSeconds = seconds < 0 ? 0 : seconds;
    return *this;
}

TimeSegment& TimeSegment::operator=(const TimeSegment& other) = default;

bool TimeSegment::operator<(const TimeSegment& o) const {
    return m_nSeconds < o.m_nSeconds;
}
bool TimeSegment::operator>(const TimeSegment& o) const {
    return m_nSeconds > o.m_nSeconds;
}
bool TimeSegment::operator<=(const TimeSegment& o) const {
    return m_nSeconds <= o.m_nSeconds;
}
bool TimeSegment::operator>=(const TimeSegment& o) const {
    return m_nSeconds >= o.m_nSeconds;
}
bool TimeSegment::operator==(const TimeSegment& o) const {
    return m_nSeconds == o.m_nSeconds;
}
bool TimeSegment::operator!=(const TimeSegment& o) const {
    return m_nSeconds != o.m_nSeconds;
}

namespace {
// Wrapping 64-bit addition (no undefined behaviour on overflow).
int64_t AddWrap(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
int64_t SubWrap(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}
}  // namespace

TimeSegment TimeSegment::operator+(const TimeSegment& o) const {
    return TimeSegment(static_cast<long>(AddWrap(m_nSeconds, o.m_nSeconds)));
}

TimeSegment& TimeSegment::operator+=(const TimeSegment& o) {
    m_nSeconds = AddWrap(m_nSeconds, o.m_nSeconds);
    return *this;
}

TimeSegment TimeSegment::operator-(const TimeSegment& o) const {
    if (m_nSeconds < o.m_nSeconds)
        return TimeSegment();
    TimeSegment r;
    r.m_nSeconds = SubWrap(m_nSeconds, o.m_nSeconds);
    return r;
}

TimeSegment& TimeSegment::operator-=(const TimeSegment& o) {
    if (m_nSeconds < o.m_nSeconds) {
        m_nSeconds = 0;
    } else {
        m_nSeconds = SubWrap(m_nSeconds, o.m_nSeconds);
    }
    return *this;
}

int64_t TimeSegment::GetTime_t() const {
    return m_nSeconds;
}
int TimeSegment::GetTotalDays() const {
    return static_cast<int>(m_nSeconds / 86400);
}
int TimeSegment::GetDays() const {
    return static_cast<int>(m_nSeconds / 86400);
}
int TimeSegment::GetTotalHours() const {
    return static_cast<int>(m_nSeconds / 3600);
}
int TimeSegment::GetHours() const {
    return static_cast<int>((m_nSeconds % 86400) / 3600);
}
int64_t TimeSegment::GetTotalMinutes() const {
    return m_nSeconds / 60;
}
int64_t TimeSegment::GetMinutes() const {
    return (m_nSeconds % 3600) / 60;
}
int64_t TimeSegment::GetTotalSeconds() const {
    return m_nSeconds;
}
int64_t TimeSegment::GetSeconds() const {
    return m_nSeconds % 60;
}

}  // namespace tarn
