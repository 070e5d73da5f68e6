// Tests of tarn::TimeFace and ReplaceStr under fixed time zones: field repair, clamping, HTTP
// dates in and out (with the zone-offset rule that ignores daylight saving), Format and the clock.
#include "common/TimeFace.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "common/Clock.h"
#include "common/StrWork.h"

namespace {

using tarn::TimeFace;
using tarn::TimeSegment;

const long kRfcExample = 784111777;  // Sun, 6 Nov 1994 08:49:37 GMT

class TimeFaceTest : public ::testing::Test {
protected:
    void SetUp() override { UseZone("UTC"); }
    void TearDown() override {
        tarn::SetClockForTest(nullptr);
        ::unsetenv("TZ");
        ::tzset();
    }
    static void UseZone(const char* tz) {
        ::setenv("TZ", tz, 1);
        ::tzset();
    }
};

TEST_F(TimeFaceTest, RepairReplacesEveryOutOfRangeFieldInLocalTime) {
    struct Case {
        int y, mo, d, h, mi, s;
        const char* expected;
    } cases[] = {
        {1969, 13, 0, 24, 60, 60, "1970-01-01 01:00:00"},
        {2024, 0, 5, 7, 8, 9, "2024-01-05 07:08:09"},   // month -> January
        {2024, 3, 32, 7, 8, 9, "2024-03-01 07:08:09"},  // day -> 1
        {2024, 3, 5, -1, 8, 9, "2024-03-05 01:08:09"},  // negative hour -> 1, not 0
        {2024, 3, 5, 24, 8, 9, "2024-03-05 01:08:09"},  // hour 24 -> 1, not 0
        {2024, 3, 5, 7, -1, 9, "2024-03-05 07:00:09"},  // minute -> 0
        {2024, 3, 5, 7, 8, 60, "2024-03-05 07:08:00"},  // second -> 0
        {2024, 2, 31, 0, 0, 0, "2024-03-02 00:00:00"},  // mktime normalises 31 February
    };
    for (const Case& c : cases) {
        EXPECT_EQ(TimeFace(c.y, c.mo, c.d, c.h, c.mi, c.s).ToString(), c.expected)
            << c.y << "-" << c.mo << "-" << c.d << " " << c.h << ":" << c.mi << ":" << c.s;
    }
    UseZone("CST-8");
    EXPECT_EQ(TimeFace(1970, 1, 1, 8, 0, 0).GetTime(), 0);
    // mktime's result is stored as it is, even before the epoch.
    EXPECT_EQ(TimeFace(1970, 1, 1, 0, 0, 0).GetTime(), -28800);
}

TEST_F(TimeFaceTest, ClampingAndArithmetic) {
    TimeFace plusAssigned(100L), minusAssigned(100L), minusAssignedOk(500L);
    plusAssigned += TimeSegment(0, 0, 0, -200);  // += does not clamp
    minusAssigned -= TimeSegment(200L);
    minusAssignedOk -= TimeSegment(200L);
    EXPECT_EQ((std::vector<int64_t>{
                  TimeFace(-5L).GetTime(), (TimeFace(100L) - TimeSegment(200L)).GetTime(),
                  (TimeFace(300L) - TimeSegment(200L)).GetTime(),
                  (TimeFace(100L) - TimeFace(200L)).GetTime_t(),
                  (TimeFace(300L) - TimeFace(100L)).GetTime_t(),
                  (TimeFace(100L) + TimeSegment(0, 0, 0, -200)).GetTime(), plusAssigned.GetTime(),
                  minusAssigned.GetTime(), minusAssignedOk.GetTime()}),
              (std::vector<int64_t>{0, 0, 100, 0, 200, 0, -100, 0, 300}));
    EXPECT_TRUE(TimeFace(1L) < TimeFace(2L));
    EXPECT_TRUE(TimeFace(2L) >= TimeFace(2L));
    EXPECT_TRUE(TimeFace(2L) != TimeFace(3L));
}

TEST_F(TimeFaceTest, LocalAndUtcFields) {
    UseZone("CST-8");
    const TimeFace t(kRfcExample);
    EXPECT_EQ(t.ToString(), "1994-11-06 16:49:37");
    EXPECT_EQ(t.ToUSAString(), "11-06-1994 16:49:37");
    EXPECT_EQ((std::vector<int>{t.GetYear(), t.GetMonth(), t.GetDay(), t.GetHour(), t.GetMinute(),
                                t.GetSecond(), t.GetDayOfWeek(), t.GetDayOfYear()}),
              (std::vector<int>{1994, 11, 6, 16, 49, 37, 0, 309}));
    EXPECT_EQ((std::vector<int>{t.GetGMTYear(), t.GetGMTMonth(), t.GetGMTMonthDay(), t.GetGMTHour(),
                                t.GetGMTMinute(), t.GetGMTSecond(), t.GetGMTWeekDay(),
                                t.GetGMTYearDay()}),
              (std::vector<int>{1994, 11, 6, 8, 49, 37, 0, 309}));
}

TEST_F(TimeFaceTest, HttpDateOutHasNoLeadingZeroOnTheDay) {
    EXPECT_EQ(TimeFace(kRfcExample).ToHttpGMTString(), "Sun, 6 Nov 1994 08:49:37 GMT");
    EXPECT_EQ(TimeFace(0L).ToHttpGMTString(), "Thu, 1 Jan 1970 00:00:00 GMT");
    UseZone("CST-8");  // the zone does not matter for the way out
    EXPECT_EQ(TimeFace(kRfcExample).ToHttpGMTString(), "Sun, 6 Nov 1994 08:49:37 GMT");
}

TEST_F(TimeFaceTest, HttpDateInUnderSeveralZones) {
    for (const char* zone : {"UTC", "CST-8", "Asia/Shanghai", "EST5"}) {
        UseZone(zone);
        for (const char* text : {"Sun, 6 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 1994 08:49:37 GMT",
                                 "Xyz, 6 Nov 1994 08:49:37 GMT"}) {  // the weekday is never checked
            TimeFace t;
            EXPECT_TRUE(t.CreateFromHttpGMTString(text)) << zone << " " << text;
            EXPECT_EQ(t.GetTime(), kRfcExample) << zone << " " << text;
        }
    }
}

TEST_F(TimeFaceTest, HttpDateInRefusals) {
    TimeFace t(123L);
    EXPECT_FALSE(t.CreateFromHttpGMTString("Sun, 6 nov 1994 08:49:37 GMT"));  // case-sensitive
    EXPECT_FALSE(t.CreateFromHttpGMTString("Sun, 6 Nov 1994 08:49 GMT"));
    EXPECT_FALSE(t.CreateFromHttpGMTString(nullptr));
    std::string base = "Sun, 6 Nov 1994 08:49:37 GMT";
    std::string fifty = base + std::string(50 - base.size(), ' ');
    EXPECT_FALSE(t.CreateFromHttpGMTString(fifty.c_str()));
    EXPECT_EQ(t.GetTime(), 123);  // unchanged by every refusal
    std::string fortyNine = base + std::string(49 - base.size(), ' ');
    EXPECT_TRUE(t.CreateFromHttpGMTString(fortyNine.c_str()));
    EXPECT_EQ(t.GetTime(), kRfcExample);
}

TEST_F(TimeFaceTest, GmtConversionUsesTheStandardOffsetOnly) {
    UseZone("CST-8");
    EXPECT_EQ(TimeFace::GMTToLocalTTime(1970, 1, 1, 0, 0, 0).GetTime(), 0);
    UseZone("EST5");
    EXPECT_EQ(TimeFace::GMTToLocalTTime(1970, 1, 1, 0, 0, 0).GetTime(), 0);
    // In summer the zone is an hour off its standard offset, and the conversion does not
    // correct for it: the result is one hour before the true instant.
    UseZone("EST5EDT,M3.2.0,M11.1.0");
    const long trueInstant = 1719835200;  // Mon, 1 Jul 2024 12:00:00 GMT
    TimeFace t;
    ASSERT_TRUE(t.CreateFromHttpGMTString("Mon, 1 Jul 2024 12:00:00 GMT"));
    EXPECT_EQ(t.GetTime(), trueInstant - 3600);
    ASSERT_TRUE(t.CreateFromHttpGMTString("Wed, 10 Jan 2024 12:00:00 GMT"));
    EXPECT_EQ(t.GetTime(), 1704888000);  // winter: exact
}

TEST_F(TimeFaceTest, FormatSwapsMonthAndMinute) {
    const TimeFace t(2024, 3, 5, 7, 8, 9);
    const std::string pad(1022, 'x');
    const std::pair<std::string, std::string> cases[] = {
        {"%Y/%M/%D %H:%m:%S", "2024/03/05 07:08:09"},
        {"%M", "03"},  // month, not minute
        {"%m", "08"},  // minute, not month
        {"%y %d %%", "%y %d %%"},
        {"%Y%Y-%S", "20242024-09"},
        {std::string(1025, 'x'), ""},
        {pad + "%Y", pad + "2024"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(t.Format(c.first.c_str()), c.second) << c.first.substr(0, 20);
    EXPECT_EQ(t.Format(nullptr), "");
}

TEST_F(TimeFaceTest, ReplaceStrRestartsFromTheBeginning) {
    EXPECT_EQ(tarn::ReplaceStr("a-b-c", "-", "+"), "a+b+c");
    // After the first replacement "aab" becomes "ab", which matches again from the start.
    EXPECT_EQ(tarn::ReplaceStr("aab", "ab", "b"), "b");
    EXPECT_EQ(_qvcomm::CStrWork::ReplaceAll("aab", "ab", "b"), "ab");  // the other rule
    EXPECT_EQ(tarn::ReplaceStr("xyz", "q", "r"), "xyz");
}

TEST_F(TimeFaceTest, GetCurrentFollowsTheClock) {
    TimeFace before = TimeFace::GetCurrent();
    uint64_t tick = TimeFace::GetTickCount();
    TimeFace now = TimeFace::GetCurrent();
    // time() may read a coarse clock a few milliseconds behind gettimeofday: allow 50 ms.
    EXPECT_LE(before.GetTime() * 1000ULL, tick + 50);
    EXPECT_LT(tick, (now.GetTime() + 1) * 1000ULL + 50);

    tarn::SetClockForTest([]() -> time_t { return 1709622489; });  // 2024-03-05 07:08:09 UTC
    EXPECT_EQ(tarn::ClockNow(), 1709622489);
    EXPECT_EQ(TimeFace::GetCurrent().ToString(), "2024-03-05 07:08:09");
    tarn::SetClockForTest(nullptr);
    EXPECT_GE(TimeFace::GetCurrent().GetTime(), now.GetTime());
}

}  // namespace
