// Tests of tarn::TimeSegment: clamping, the unclamped four-number constructor and +=, getters.
#include "common/TimeSegment.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using tarn::TimeSegment;

TEST(TimeSegmentTest, ArithmeticClampsExceptWhereKeptSigned) {
    const TimeSegment neg(0, 0, 0, -10);
    TimeSegment assignedNeg(7L), assigned(7L), plus(3L), minus(5L), minusOk(20L);
    assignedNeg = -1L;
    assigned = 42L;
    plus += neg;
    minus -= TimeSegment(9L);
    minusOk -= TimeSegment(5L);
    const struct {
        const char* what;
        TimeSegment got;
        int64_t want;
    } cases[] = {
        {"negative count", TimeSegment(-5L), 0},
        {"count", TimeSegment(5L), 5},
        {"negative assigned", assignedNeg, 0},
        {"assigned", assigned, 42},
        {"four numbers keep a negative total", TimeSegment(0, 0, 0, -5), -5},
        {"four numbers", TimeSegment(1, 2, 3, 4), 86400 + 7200 + 180 + 4},
        {"four numbers, mixed signs", TimeSegment(0, -1, 30, 0), -1800},
        // 25000 days do not fit in 32 bits: the total wraps instead of widening first.
        {"four numbers wrap", TimeSegment(25000, 0, 0, 0), 2160000000LL - 4294967296LL},
        {"+ clamps", TimeSegment(3L) + neg, 0},
        {"+", TimeSegment(30L) + neg, 20},
        {"+= does not clamp", plus, -7},
        {"- saturates", TimeSegment(5L) - TimeSegment(9L), 0},
        {"-", TimeSegment(9L) - TimeSegment(5L), 4},
        {"-= saturates", minus, 0},
        {"-=", minusOk, 15},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.got.GetTime_t(), c.want) << c.what;
}

TEST(TimeSegmentTest, ComparisonsUseTheSignedCountAndPartsTruncateTowardZero) {
    const TimeSegment neg(0, 0, 0, -1), zero;
    EXPECT_EQ((std::vector<bool>{neg<zero, zero> neg, neg <= neg, zero >= zero,
                                 zero == TimeSegment(0L), neg != zero, zero<neg, neg> zero}),
              (std::vector<bool>{true, true, true, true, true, true, false, false}));

    const TimeSegment s(90061L), n(0, 0, 0, -90061);  // +-(1 day, 1 hour, 1 minute, 1 second)
    EXPECT_EQ((std::vector<int64_t>{s.GetTotalDays(), s.GetDays(), s.GetHours(), s.GetMinutes(),
                                    s.GetSeconds(), s.GetTotalHours(), s.GetTotalMinutes(),
                                    s.GetTotalSeconds()}),
              (std::vector<int64_t>{1, 1, 1, 1, 1, 25, 1501, 90061}));
    EXPECT_EQ(
        (std::vector<int64_t>{n.GetTotalDays(), n.GetHours(), n.GetMinutes(), n.GetSeconds()}),
        (std::vector<int64_t>{-1, -1, -1, -1}));
}

}  // namespace
