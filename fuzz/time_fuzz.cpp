// Fuzz target: tarn::TimeFace and tarn::TimeSegment: their text forms, the HTTP date parser,
// Format and the arithmetic.
//
// The process runs in a fixed zone eight hours east of Greenwich without daylight saving
// (POSIX TZ "XST-8"), where the HTTP date round-trips exactly. The calendar is computed here
// independently of libc (days from and to civil dates).
//
// Input: its first 40 bytes (zero-padded) are numbers: a point in time (8 bytes, little-endian),
// a span (8) and days, hours, minutes, seconds (4 each); the whole input, up to its first zero
// byte, is also an HTTP date to parse and a Format pattern.
//
// Properties: the UTC and local fields, ToString, ToUSAString and ToHttpGMTString agree with the
// model calendar (all 0 or "" once the year no longer fits an int); ToString and the HTTP date
// read back to the same point; Format expands its six directives (month "%M", minute "%m") and
// nothing else; the parser accepts every well-formed date with the documented field repair and
// leaves the object alone when it refuses; the spans' parts add up to the whole; sums and
// differences saturate at 0 where documented.
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "common/TimeFace.h"
#include "common/TimeSegment.h"
#include "fuzz/FuzzCheck.h"

namespace {

using tarn::TimeFace;
using tarn::TimeSegment;
using ws_fuzz::Show;

const int64_t kZoneSeconds = 8 * 3600;  // XST-8
const char* const kWeek[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

int64_t DaysFromCivil(int64_t y, int64_t m, int64_t d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

struct Fields {
    bool ok = false;  // false: the year does not fit an int
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, weekday = 0, yearday = 0;
};

// Civil fields of `t` seconds after the epoch (t >= 0).
Fields CivilOf(int64_t t) {
    Fields f;
    const int64_t days = t / 86400;
    const int64_t secs = t % 86400;
    int64_t z = days + 719468;
    const int64_t era = z / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const int64_t day = doy - (153 * mp + 2) / 5 + 1;
    const int64_t month = mp < 10 ? mp + 3 : mp - 9;
    const int64_t year = yoe + era * 400 + (month <= 2);
    if (year > INT_MAX)
        return f;
    f.ok = true;
    f.year = static_cast<int>(year);
    f.month = static_cast<int>(month);
    f.day = static_cast<int>(day);
    f.hour = static_cast<int>(secs / 3600);
    f.minute = static_cast<int>(secs % 3600 / 60);
    f.second = static_cast<int>(secs % 60);
    f.weekday = static_cast<int>((days + 4) % 7);  // 1970-01-01 was a Thursday
    f.yearday = static_cast<int>(days - DaysFromCivil(year, 1, 1));
    return f;
}

Fields LocalOf(int64_t t) {
    if (t > INT64_MAX - kZoneSeconds)
        return Fields();
    return CivilOf(t + kZoneSeconds);
}

std::string Printf(const char* format, int a, int b, int c, int d, int e, int f) {
    char buf[128];
    std::snprintf(buf, sizeof buf, format, a, b, c, d, e, f);
    return buf;
}

int64_t Le(const std::string& bytes, size_t from, int n) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i)
        v |= static_cast<uint64_t>(static_cast<unsigned char>(bytes[from + i])) << (8 * i);
    return n == 4 ? static_cast<int32_t>(v) : static_cast<int64_t>(v);
}

// The nine field getters of one kind, in the order year, month, day (twice: both names), hour,
// minute, second, day of the week, day of the year.
typedef int (TimeFace::*Getter)() const;
const Getter kUtcGetters[9] = {
    &TimeFace::GetGMTYear,     &TimeFace::GetGMTMonth,   &TimeFace::GetGMTDay,
    &TimeFace::GetGMTMonthDay, &TimeFace::GetGMTHour,    &TimeFace::GetGMTMinute,
    &TimeFace::GetGMTSecond,   &TimeFace::GetGMTWeekDay, &TimeFace::GetGMTYearDay};
const Getter kLocalGetters[9] = {
    &TimeFace::GetYear,       &TimeFace::GetMonth,     &TimeFace::GetDay,
    &TimeFace::GetDayOfMonth, &TimeFace::GetHour,      &TimeFace::GetMinute,
    &TimeFace::GetSecond,     &TimeFace::GetDayOfWeek, &TimeFace::GetDayOfYear};

void CheckFields(const TimeFace& face, const Fields& f, const Getter (&getters)[9],
                 const std::string& what) {
    const int want[9] = {f.year,   f.month,  f.day,     f.day,    f.hour,
                         f.minute, f.second, f.weekday, f.yearday};
    for (int i = 0; i < 9; ++i)
        FUZZ_EQ((face.*getters[i])(), want[i], what + " field " + std::to_string(i));
}

void CheckPoint(int64_t raw) {
    const TimeFace face(static_cast<long>(raw));
    const int64_t t = raw < 0 ? 0 : raw;
    const std::string what = "time " + std::to_string(raw);
    FUZZ_EQ(face.GetTime(), t, what);

    const Fields u = CivilOf(t);
    CheckFields(face, u, kUtcGetters, what + " UTC");
    const std::string http = face.ToHttpGMTString();
    if (!u.ok) {
        FUZZ_EQ(http, "", what);
    } else {
        char buf[128];
        std::snprintf(buf, sizeof buf, "%s, %d %s %d %02d:%02d:%02d GMT", kWeek[u.weekday], u.day,
                      kMonths[u.month - 1], u.year, u.hour, u.minute, u.second);
        FUZZ_EQ(http, std::string(buf), what);
        TimeFace back(12345L);
        FUZZ_CHECK(back.CreateFromHttpGMTString(http.c_str()), what + " " + http);
        FUZZ_EQ(back.GetTime(), t, what + " " + http);
    }

    const Fields l = LocalOf(t);
    CheckFields(face, l, kLocalGetters, what + " local");
    const std::string text = face.ToString();
    if (!l.ok) {
        FUZZ_EQ(text, "", what);
        FUZZ_EQ(face.ToUSAString(), "", what);
        FUZZ_EQ(face.Format("%Y-%M-%D"), "%Y-%M-%D", what);
        return;
    }
    FUZZ_EQ(
        text,
        Printf("%d-%02d-%02d %02d:%02d:%02d", l.year, l.month, l.day, l.hour, l.minute, l.second),
        what);
    FUZZ_EQ(
        face.ToUSAString(),
        Printf("%02d-%02d-%d %02d:%02d:%02d", l.month, l.day, l.year, l.hour, l.minute, l.second),
        what);
    FUZZ_EQ(face.Format("%Y-%M-%D %H:%m:%S"), text, what);
    // The local text read back through the six-number constructor gives the same point.
    FUZZ_EQ(TimeFace(l.year, l.month, l.day, l.hour, l.minute, l.second).GetTime(), t, what);
}

// Format's expansion, one directive after the other, each replaced wherever it stands.
std::string ModelFormat(const std::string& pattern, const Fields& l) {
    if (pattern.size() >= 1025)
        return "";
    if (!l.ok)
        return pattern;
    const struct {
        const char* name;
        int value;
        bool wide;
    } directives[] = {{"%Y", l.year, false}, {"%M", l.month, true},  {"%D", l.day, true},
                      {"%H", l.hour, true},  {"%m", l.minute, true}, {"%S", l.second, true}};
    std::string text = pattern;
    for (const auto& d : directives) {
        char digits[32];
        std::snprintf(digits, sizeof digits, d.wide ? "%02d" : "%d", d.value);
        std::string out;
        for (size_t i = 0; i < text.size();) {
            if (text.compare(i, 2, d.name) == 0) {
                out += digits;
                i += 2;
            } else {
                out += text[i++];
            }
        }
        text = out;
    }
    return text;
}

// Reads "Www, D Mon Y h:m:s GMT" strictly: three non-blank characters, single blanks, numbers
// of 1 to 9 digits (times of 1 or 2), a month name from the table. Fills the six fields.
bool StrictHttpDate(const std::string& text, int fields[6]) {
    size_t at = 0;
    auto number = [&](int most, int& out) {
        size_t start = at;
        long long v = 0;
        while (at < text.size() && at - start < static_cast<size_t>(most) && text[at] >= '0' &&
               text[at] <= '9')
            v = v * 10 + (text[at++] - '0');
        out = static_cast<int>(v);
        return at > start && (at == text.size() || text[at] < '0' || text[at] > '9');
    };
    auto literal = [&](const char* lit) {
        const size_t n = std::strlen(lit);
        if (text.compare(at, n, lit) != 0)
            return false;
        at += n;
        return true;
    };
    if (text.size() < 3)
        return false;
    for (int i = 0; i < 3; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[at++]);
        if (c <= ' ' || c == ',' || c >= 0x7f)
            return false;
    }
    int month = -1;
    if (!literal(", ") || !number(9, fields[2]) || !literal(" "))
        return false;
    for (int i = 0; i < 12 && month < 0; ++i) {
        if (text.compare(at, 4, std::string(kMonths[i]) + " ") == 0)
            month = i;
    }
    if (month < 0)
        return false;
    at += 4;
    fields[1] = month + 1;
    return number(9, fields[0]) && literal(" ") && number(2, fields[3]) && literal(":") &&
           number(2, fields[4]) && literal(":") && number(2, fields[5]) && literal(" GMT") &&
           at == text.size();
}

void CheckHttpDate(const std::string& text) {
    TimeFace face(777L);
    const bool ok = face.CreateFromHttpGMTString(text.c_str());
    const std::string what = "date " + Show(text);
    if (!ok) {
        FUZZ_EQ(face.GetTime(), 777, what);
    } else {
        FUZZ_CHECK(text.size() <= 49, what);
    }
    int f[6];
    if (!StrictHttpDate(text, f))
        return;
    FUZZ_CHECK(ok, what);
    // The documented field repair; a day the month lacks runs on into the next month.
    const int year = f[0] < 1970 ? 1970 : f[0];
    const int day = f[2] < 1 || f[2] > 31 ? 1 : f[2];
    const int hour = f[3] > 23 ? 1 : f[3];
    const int minute = f[4] > 59 ? 0 : f[4];
    const int second = f[5] > 59 ? 0 : f[5];
    const int64_t want =
        (DaysFromCivil(year, f[1], 1) + day - 1) * 86400 + hour * 3600 + minute * 60 + second;
    FUZZ_EQ(face.GetTime(), want, what);
}

void CheckSpan(int64_t raw, int32_t d, int32_t h, int32_t m, int32_t s) {
    const std::string what = "span " + std::to_string(raw) + " " + std::to_string(d) + " " +
                             std::to_string(h) + " " + std::to_string(m) + " " + std::to_string(s);
    const TimeSegment clamped(static_cast<long>(raw));
    FUZZ_EQ(clamped.GetTime_t(), raw < 0 ? 0 : raw, what);
    const uint32_t total = static_cast<uint32_t>(d) * 86400u + static_cast<uint32_t>(h) * 3600u +
                           static_cast<uint32_t>(m) * 60u + static_cast<uint32_t>(s);
    const TimeSegment parts(d, h, m, s);
    FUZZ_EQ(parts.GetTime_t(), static_cast<int32_t>(total), what);

    for (const TimeSegment& span : {clamped, parts}) {
        const int64_t x = span.GetTime_t();
        FUZZ_EQ(span.GetTotalSeconds(), x, what);
        FUZZ_EQ(span.GetTotalMinutes(), x / 60, what);
        FUZZ_EQ(int64_t(x / 86400) * 86400 + int64_t(span.GetHours()) * 3600 +
                    span.GetMinutes() * 60 + span.GetSeconds(),
                x, what);
        FUZZ_CHECK(span.GetHours() > -24 && span.GetHours() < 24, what);
        FUZZ_CHECK(span.GetMinutes() > -60 && span.GetMinutes() < 60, what);
        FUZZ_CHECK(span.GetSeconds() > -60 && span.GetSeconds() < 60, what);
        if (x / 86400 <= INT_MAX && x / 86400 >= INT_MIN)
            FUZZ_EQ(span.GetTotalDays(), x / 86400, what);
        FUZZ_EQ(span.GetDays(), span.GetTotalDays(), what);
        if (x / 3600 <= INT_MAX && x / 3600 >= INT_MIN)
            FUZZ_EQ(span.GetTotalHours(), x / 3600, what);
    }

    // Differences never go below 0; a sum that would be negative is 0.
    const int64_t a = clamped.GetTime_t();
    const int64_t b = parts.GetTime_t();
    FUZZ_EQ((clamped - parts).GetTime_t(), a < b ? 0 : int64_t(uint64_t(a) - uint64_t(b)), what);
    TimeSegment less = clamped;
    less -= parts;
    FUZZ_EQ(less.GetTime_t(), (clamped - parts).GetTime_t(), what);
    const int64_t sum = int64_t(uint64_t(a) + uint64_t(b));
    FUZZ_EQ((clamped + parts).GetTime_t(), sum < 0 ? 0 : sum, what);
    TimeSegment more = clamped;
    more += parts;
    FUZZ_EQ(more.GetTime_t(), sum, what);

    const TimeFace point(static_cast<long>(raw));
    const int64_t p = point.GetTime();
    FUZZ_EQ((point - parts).GetTime(), p < b ? 0 : int64_t(uint64_t(p) - uint64_t(b)), what);
    const int64_t later = int64_t(uint64_t(p) + uint64_t(b));
    FUZZ_EQ((point + parts).GetTime(), later < 0 ? 0 : later, what);
    const TimeFace other(static_cast<long>(b));
    FUZZ_EQ((point - other).GetTime_t(), p < other.GetTime() ? 0 : p - other.GetTime(), what);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    ::setenv("TZ", "XST-8", 1);
    ::tzset();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::string numbers = input.substr(0, 40);
    numbers.resize(40, '\0');
    const int64_t t = Le(numbers, 0, 8);
    CheckPoint(t);
    // Times within the years 1970 to 9999, where the fuzzer's raw numbers rarely land.
    CheckPoint(static_cast<int64_t>(static_cast<uint64_t>(t) % 253402300800u));
    CheckSpan(Le(numbers, 8, 8), static_cast<int32_t>(Le(numbers, 16, 4)),
              static_cast<int32_t>(Le(numbers, 20, 4)), static_cast<int32_t>(Le(numbers, 24, 4)),
              static_cast<int32_t>(Le(numbers, 28, 4)));

    const std::string text = ws_fuzz::CText(input);
    CheckHttpDate(text);
    const int64_t when = static_cast<int64_t>(static_cast<uint64_t>(t) % 253402300800u);
    FUZZ_EQ(TimeFace(static_cast<long>(when)).Format(text.c_str()),
            ModelFormat(text, LocalOf(when)), "pattern " + Show(text));
    return 0;
}
