// tarn::TimeFace: a point in time as whole seconds since the epoch, with HTTP dates and Format.
#pragma once

#include <ctime>
#include <cstdint>
#include <string>

#include "common/Export.h"
#include "common/TimeSegment.h"

namespace tarn {

// Returns `text` with every `from` replaced by `to`, searching again from the start after each
// replacement (a replacement containing `from`, or an empty `from`, never ends; callers replace
// "%"-directives by digits only).
WS_API std::string ReplaceStr(std::string text, std::string from, std::string to);

class WS_API TimeFace {
public:
    TimeFace();                 // the epoch
    TimeFace(long t);           // NOLINT: implicit on purpose; negative becomes 0
    // Local civil time after field repair (year < 1970 -> 1970, month -> 1, day -> 1,
    // hour -> 1 (not 0), minute/second -> 0), then mktime with tm_isdst = -1; stores what mktime
    // returns, -1 included.
    TimeFace(int year, int month, int day, int hour, int minute, int second);
    explicit TimeFace(tm& t);  // mktime, unrepaired
    TimeFace(const TimeFace& other);
    ~TimeFace();
    TimeFace& operator=(const TimeFace& other);

    static TimeFace GetCurrent();    // tarn::ClockNow(), so a test clock moves it
    static uint64_t GetTickCount();  // milliseconds since the epoch (gettimeofday)
    // The point in time whose UTC civil fields are the ones given (the zone's standard offset,
    // daylight saving not corrected).
    static TimeFace GMTToLocalTTime(int year, int month, int day, int hour, int minute,
                                    int second);

    time_t GetTime() const;

    TimeFace operator+(const TimeSegment& s) const;  // clamped to 0
    TimeFace& operator+=(const TimeSegment& s);      // not clamped
    TimeFace operator-(const TimeSegment& s) const;  // the epoch when it would go below 0
    TimeFace& operator-=(const TimeSegment& s);      // never below 0
    TimeSegment operator-(const TimeFace& o) const;  // 0 when this is earlier

    bool operator<(const TimeFace& o) const;
    bool operator>(const TimeFace& o) const;
    bool operator<=(const TimeFace& o) const;
    bool operator>=(const TimeFace& o) const;
    bool operator==(const TimeFace& o) const;
    bool operator!=(const TimeFace& o) const;

    // Local-time fields; 0 when localtime fails.
    int GetYear() const;
    int GetMonth() const;  // 1..12
    int GetDay() const;
    int GetDayOfMonth() const;
    int GetHour() const;
    int GetMinute() const;
    int GetSecond() const;
    int GetDayOfWeek() const;  // Sunday = 0
    int GetDayOfYear() const;  // 0..365

    // UTC fields; 0 when gmtime fails.
    int GetGMTYear() const;
    int GetGMTMonth() const;
    int GetGMTDay() const;
    int GetGMTMonthDay() const;
    int GetGMTHour() const;
    int GetGMTMinute() const;
    int GetGMTSecond() const;
    int GetGMTWeekDay() const;
    int GetGMTYearDay() const;

    std::string ToString() const;         // "2024-03-05 07:08:09", local
    std::string ToUSAString() const;      // "03-05-2024 07:08:09", local
    std::string ToHttpGMTString() const;  // "Sun, 6 Nov 1994 08:49:37 GMT" (day without zero)
    bool CreateFromHttpGMTString(const char* text);
    // %Y year, %M month, %D day, %H hour, %m minute, %S second (M/m swapped against strftime).
    std::string Format(const char* pattern) const;

private:
    time_t m_tTime;
};

}  // namespace tarn
