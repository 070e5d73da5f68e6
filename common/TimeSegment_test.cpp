// Tests of tarn::TimeSegment: clamping, the unclamped four-number constructor and +=, getters.
#include "common/TimeSegment.h"

#include <gtest/gtest.h>

namespace {

using tarn::TimeSegment;

TEST(TimeSegmentTest, ClampingConstructorAndAssignmentKeepSpansNonNegative) {
    EXPECT_EQ(TimeSegment(-5L).GetTime_t(), 0);
    EXPECT_EQ(TimeSegment(5L).GetTime_t(), 5);
    TimeSegment s(7L);
    s = -1L;
    EXPECT_EQ(s.GetTime_t(), 0);
    s = 42L;
    EXPECT_EQ(s.GetTime_t(), 42);
}

TEST(TimeSegmentTest, FourNumberConstructorKeepsNegativeTotalsAndWrapsIn32Bits) {
    EXPECT_EQ(TimeSegment(0, 0, 0, -5).GetTime_t(), -5);
    EXPECT_EQ(TimeSegment(1, 2, 3, 4).GetTime_t(), 86400 + 7200 + 180 + 4);
    EXPECT_EQ(TimeSegment(0, -1, 30, 0).GetTime_t(), -1800);
    // 25000 days do not fit in 32 bits: the total wraps instead of widening first.
    EXPECT_EQ(TimeSegment(25000, 0, 0, 0).GetTime_t(), 2160000000LL - 4294967296LL);
}

TEST(TimeSegmentTest, PlusClampsButPlusAssignDoesNot) {
    TimeSegment neg(0, 0, 0, -10);
    EXPECT_EQ((TimeSegment(3L) + neg).GetTime_t(), 0);
    EXPECT_EQ((TimeSegment(30L) + neg).GetTime_t(), 20);
    TimeSegment s(3L);
    s += neg;
    EXPECT_EQ(s.GetTime_t(), -7);
}

TEST(TimeSegmentTest, SubtractionSaturatesAtZero) {
    EXPECT_EQ((TimeSegment(5L) - TimeSegment(9L)).GetTime_t(), 0);
    EXPECT_EQ((TimeSegment(9L) - TimeSegment(5L)).GetTime_t(), 4);
    TimeSegment s(5L);
    s -= TimeSegment(9L);
    EXPECT_EQ(s.GetTime_t(), 0);
    s = 20L;
    s -= TimeSegment(5L);
    EXPECT_EQ(s.GetTime_t(), 15);
}

TEST(TimeSegmentTest, ComparisonsUseTheSignedCount) {
    TimeSegment neg(0, 0, 0, -1);
    TimeSegment zero;
    EXPECT_TRUE(neg < zero);
    EXPECT_TRUE(zero > neg);
    EXPECT_TRUE(neg <= neg);
    EXPECT_TRUE(zero >= zero);
    EXPECT_TRUE(zero == TimeSegment(0L));
    EXPECT_TRUE(neg != zero);
}

TEST(TimeSegmentTest, PartsAndTotals) {
    TimeSegment s(90061L);  // 1 day, 1 hour, 1 minute, 1 second
    EXPECT_EQ(s.GetTotalDays(), 1);
    EXPECT_EQ(s.GetDays(), 1);
    EXPECT_EQ(s.GetHours(), 1);
    EXPECT_EQ(s.GetMinutes(), 1);
    EXPECT_EQ(s.GetSeconds(), 1);
    EXPECT_EQ(s.GetTotalHours(), 25);
    EXPECT_EQ(s.GetTotalMinutes(), 1501);
    EXPECT_EQ(s.GetTotalSeconds(), 90061);

    // Divisions truncate toward zero, so the parts of a negative span are negative.
    TimeSegment n(0, 0, 0, -90061);
    EXPECT_EQ(n.GetTotalDays(), -1);
    EXPECT_EQ(n.GetHours(), -1);
    EXPECT_EQ(n.GetMinutes(), -1);
    EXPECT_EQ(n.GetSeconds(), -1);
}

}  // namespace
