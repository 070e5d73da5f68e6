// tarn::TimeFace: a point in time in whole seconds since the epoch, and ReplaceStr.
#include "common/TimeFace.h"

#include <sys/time.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "common/Clock.h"

namespace tarn {

namespace {

const char* const week_day[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const year_month[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

int64_t AddWrap(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

// libc converts years up to INT_MAX + 1900, but every field getter and text form adds 1900 to
// tm_year as an int: a year that does not fit an int counts as a failed conversion (0 or "").
bool Local(time_t t, tm& out) {
    return ::localtime_r(&t, &out) != nullptr && out.tm_year <= INT_MAX - 1900;
}
bool Utc(time_t t, tm& out) {
    return ::gmtime_r(&t, &out) != nullptr && out.tm_year <= INT_MAX - 1900;
}

// The local zone's standard offset in minutes west of Greenwich (negative east of it), as the
// "timezone" field of ftime() would give it; daylight saving is ignored. ftime() itself is
// deprecated and on current glibc always reports 0, so the zone comes from tzset().
long ZoneMinutesWest() {
    ::tzset();
    return ::timezone / 60;
}

}  // namespace

std::string ReplaceStr(std::string text, std::string from, std::string to) {
    // Every round starts again at the beginning, on purpose: Format relies on this rule.
    for (;;) {
        std::string::size_type pos = text.find(from);
        if (pos == std::string::npos)
            break;
        text.replace(pos, from.size(), to);
    }
    return text;
}

TimeFace::TimeFace() : m_tTime(0) {}

TimeFace::TimeFace(long t) : m_tTime(t < 0 ? 0 : t) {}

TimeFace::TimeFace(int year, int month, int day, int hour, int minute, int second) {
    if (year < 1970)
        year = 1970;
    if (month < 1 || month > 12)
        month = 1;
    if (day < 1 || day > 31)
        day = 1;
    if (hour < 0 || hour > 23)
        hour = 1;  // deliberately 1, not 0
    if (minute < 0 || minute > 59)
        minute = 0;
    if (second < 0 || second > 59)
        second = 0;
    tm t;
    std::memset(&t, 0, sizeof(t));
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    t.tm_isdst = -1;
    m_tTime = ::mktime(&t);
}

TimeFace::TimeFace(tm& t) : m_tTime(::mktime(&t)) {}

TimeFace::TimeFace(const TimeFace& other) = default;

TimeFace::~TimeFace() = default;

TimeFace& TimeFace::operator=(const TimeFace& other) = default;

TimeFace TimeFace::GetCurrent() {
    return TimeFace(static_cast<long>(ClockNow()));
}

uint64_t TimeFace::GetTickCount() {
    timeval tv;
    ::gettimeofday(&tv, nullptr);
    return static_cast<uint64_t>(tv.tv_sec) * 1000u + static_cast<uint64_t>(tv.tv_usec) / 1000u;
}

TimeFace TimeFace::GMTToLocalTTime(int year, int month, int day, int hour, int minute, int second) {
    long offset = ZoneMinutesWest();
    TimeFace t(year, month, day, hour, minute, second);
    TimeSegment span(0, 0, static_cast<int>(offset < 0 ? -offset : offset), 0);
    if (offset < 0) {
        t += span;
    } else {
        t -= span;
    }
    return t;
}

time_t TimeFace::GetTime() const {
    return m_tTime;
}

TimeFace TimeFace::operator+(const TimeSegment& s) const {
    return TimeFace(static_cast<long>(AddWrap(m_tTime, s.GetTime_t())));
}

TimeFace& TimeFace::operator+=(const TimeSegment& s) {
    m_tTime = AddWrap(m_tTime, s.GetTime_t());
    return *this;
}

TimeFace TimeFace::operator-(const TimeSegment& s) const {
    if (m_tTime < s.GetTime_t())
        return TimeFace();
    TimeFace r;
    r.m_tTime = AddWrap(m_tTime, -s.GetTime_t());
    return r;
}

TimeFace& TimeFace::operator-=(const TimeSegment& s) {
    if (m_tTime < s.GetTime_t()) {
        m_tTime = 0;
    } else {
        m_tTime = AddWrap(m_tTime, -s.GetTime_t());
    }
    return *this;
}

TimeSegment TimeFace::operator-(const TimeFace& o) const {
    if (m_tTime < o.m_tTime)
        return TimeSegment();
    return TimeSegment(static_cast<long>(AddWrap(m_tTime, -o.m_tTime)));
}

bool TimeFace::operator<(const TimeFace& o) const {
    return m_tTime < o.m_tTime;
}
bool TimeFace::operator>(const TimeFace& o) const {
    return m_tTime > o.m_tTime;
}
bool TimeFace::operator<=(const TimeFace& o) const {
    return m_tTime <= o.m_tTime;
}
bool TimeFace::operator>=(const TimeFace& o) const {
    return m_tTime >= o.m_tTime;
}
bool TimeFace::operator==(const TimeFace& o) const {
    return m_tTime == o.m_tTime;
}
bool TimeFace::operator!=(const TimeFace& o) const {
    return m_tTime != o.m_tTime;
}

#define TF_LOCAL_FIELD(name, expr) \
    int TimeFace::name() const {   \
        tm t;                      \
        if (!Local(m_tTime, t)) {  \
            return 0;              \
        }                          \
        return (expr);             \
    }
#define TF_UTC_FIELD(name, expr) \
    int TimeFace::name() const { \
        tm t;                    \
        if (!Utc(m_tTime, t)) {  \
            return 0;            \
        }                        \
        return (expr);           \
    }

TF_LOCAL_FIELD(GetYear, t.tm_year + 1900)
TF_LOCAL_FIELD(GetMonth, t.tm_mon + 1)
TF_LOCAL_FIELD(GetDay, t.tm_mday)
TF_LOCAL_FIELD(GetDayOfMonth, t.tm_mday)
TF_LOCAL_FIELD(GetHour, t.tm_hour)
TF_LOCAL_FIELD(GetMinute, t.tm_min)
TF_LOCAL_FIELD(GetSecond, t.tm_sec)
TF_LOCAL_FIELD(GetDayOfWeek, t.tm_wday)
TF_LOCAL_FIELD(GetDayOfYear, t.tm_yday)

TF_UTC_FIELD(GetGMTYear, t.tm_year + 1900)
TF_UTC_FIELD(GetGMTMonth, t.tm_mon + 1)
TF_UTC_FIELD(GetGMTDay, t.tm_mday)
TF_UTC_FIELD(GetGMTMonthDay, t.tm_mday)
TF_UTC_FIELD(GetGMTHour, t.tm_hour)
TF_UTC_FIELD(GetGMTMinute, t.tm_min)
TF_UTC_FIELD(GetGMTSecond, t.tm_sec)
TF_UTC_FIELD(GetGMTWeekDay, t.tm_wday)
TF_UTC_FIELD(GetGMTYearDay, t.tm_yday)

#undef TF_LOCAL_FIELD
#undef TF_UTC_FIELD

std::string TimeFace::ToString() const {
    tm t;
    if (!Local(m_tTime, t))
        return "";
    char buf[96] = {0};
    std::snprintf(buf, sizeof(buf), "%d-%02d-%02d %02d:%02d:%02d", t.tm_year + 1900, t.tm_mon + 1,
                  t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
    return buf;
}

std::string TimeFace::ToUSAString() const {
    tm t;
    if (!Local(m_tTime, t))
        return "";
    char buf[96] = {0};
    std::snprintf(buf, sizeof(buf), "%02d-%02d-%d %02d:%02d:%02d", t.tm_mon + 1, t.tm_mday,
                  t.tm_year + 1900, t.tm_hour, t.tm_min, t.tm_sec);
    return buf;
}

std::string TimeFace::ToHttpGMTString() const {
    tm t;
    if (!Utc(m_tTime, t))
        return "";
    char buf[96] = {0};
    // The day of the month without a leading zero, unlike RFC 1123: stored dates use this form.
    std::snprintf(buf, sizeof(buf), "%s, %d %s %d %02d:%02d:%02d GMT", week_day[t.tm_wday],
                  t.tm_mday, year_month[t.tm_mon], t.tm_year + 1900, t.tm_hour, t.tm_min, t.tm_sec);
    return buf;
}

bool TimeFace::CreateFromHttpGMTString(const char* text) {
    if (text == nullptr || std::strlen(text) > 49)
        return false;
    char weekday[4] = {0};
    char month[64] = {0};  // the text is at most 49 characters, so any word fits
    int day = 0, year = 0, hour = 0, minute = 0, second = 0;
    if (std::sscanf(text, "%3s, %d %63s %d %d:%d:%d GMT", weekday, &day, month, &year, &hour,
                    &minute, &second) != 7) {
        return false;
    }
    // The weekday name is read but never checked, on purpose.
    int index = -1;
    for (int i = 0; i < 12; ++i) {
        if (std::strcmp(month, year_month[i]) == 0) {
            index = i;
            break;
        }
    }
    if (index < 0)
        return false;
    *this = GMTToLocalTTime(year, index + 1, day, hour, minute, second);
    return true;
}

std::string TimeFace::Format(const char* pattern) const {
    if (pattern == nullptr || std::strlen(pattern) >= 1025)
        return "";
    std::string result = pattern;
    tm t;
    if (!Local(m_tTime, t))
        return result;
    struct Directive {
        const char* name;
        const char* fmt;
        int value;
    };
    const Directive directives[6] = {
        {"%Y", "%d", t.tm_year + 1900}, {"%M", "%02d", t.tm_mon + 1}, {"%D", "%02d", t.tm_mday},
        {"%H", "%02d", t.tm_hour},      {"%m", "%02d", t.tm_min},     {"%S", "%02d", t.tm_sec},
    };
    for (const Directive& d : directives) {
        char buf[32] = {0};
        std::snprintf(buf, sizeof(buf), d.fmt, d.value);
        result = ReplaceStr(result, d.name, buf);
    }
    return result;
}

}  // namespace tarn
