// tarn::TimeSegment: a span of time held as whole seconds.
#pragma once

#include <cstdint>

#include "common/Export.h"

namespace tarn {

// A span in seconds. The clamping constructors and operators keep it non-negative; the
// four-number constructor and += can store a negative value on purpose (callers use them for
// signed offsets).
class WS_API TimeSegment {
public:
    TimeSegment();
    // days*86400 + hours*3600 + minutes*60 + seconds in 32-bit signed arithmetic, then widened:
    // a total beyond about 68 years wraps and a negative total is kept.
    TimeSegment(int days, int hours, int minutes, int seconds);
    TimeSegment(long seconds);  // NOLINT: implicit on purpose; negative becomes 0
    TimeSegment(const TimeSegment& other);
    ~TimeSegment();

    TimeSegment& operator=(long seconds);  // negative becomes 0
    TimeSegment& operator=(const TimeSegment& other);

    bool operator<(const TimeSegment& o) const;
    bool operator>(const TimeSegment& o) const;
    bool operator<=(const TimeSegment& o) const;
    bool operator>=(const TimeSegment& o) const;
    bool operator==(const TimeSegment& o) const;
    bool operator!=(const TimeSegment& o) const;

    TimeSegment operator+(const TimeSegment& o) const;  // clamped to 0
    TimeSegment& operator+=(const TimeSegment& o);      // not clamped
    TimeSegment operator-(const TimeSegment& o) const;  // 0 when this is smaller
    TimeSegment& operator-=(const TimeSegment& o);      // never below 0

    int64_t GetTime_t() const;
    int GetTotalDays() const;
    int GetDays() const;
    int GetTotalHours() const;
    int GetHours() const;  // 0..23
    int64_t GetTotalMinutes() const;
    int64_t GetMinutes() const;  // 0..59
    int64_t GetTotalSeconds() const;
    int64_t GetSeconds() const;  // 0..59

private:
    int64_t m_nSeconds;
};

}  // namespace tarn
