// Tests of tarn::VariableData (serial form, limits, conversions) and tarn::MemCache.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "bsapi/bsapi.h"

using tarn::MemCache;
using tarn::VariableData;

namespace {

VariableData TimeValue(long s) {
    VariableData v;
    v.PutTimeValue(s);
    return v;
}

// Every tag at its limits, and a few ordinary values.
std::vector<VariableData> LimitValues() {
    return {
        VariableData(),
        VariableData(""),
        VariableData(std::string("a\0b\xff\x80 tail", 10)),
        VariableData(std::string(70000, 'x')),
        VariableData(static_cast<short>(std::numeric_limits<short>::min())),
        VariableData(static_cast<short>(std::numeric_limits<short>::max())),
        VariableData(std::numeric_limits<int>::min()),
        VariableData(std::numeric_limits<int>::max()),
        VariableData(std::numeric_limits<long long>::min()),
        VariableData(std::numeric_limits<long long>::max()),
        VariableData(static_cast<char>(-128)),
        VariableData(static_cast<char>(127)),
        VariableData(std::numeric_limits<double>::lowest()),
        VariableData(std::numeric_limits<double>::max()),
        VariableData(std::numeric_limits<double>::denorm_min()),
        VariableData(std::numeric_limits<double>::infinity()),
        VariableData(-0.0),
        VariableData(std::numeric_limits<float>::lowest()),
        VariableData(std::numeric_limits<float>::max()),
        VariableData(std::numeric_limits<float>::denorm_min()),
        TimeValue(std::numeric_limits<long>::min()),
        TimeValue(std::numeric_limits<long>::max()),
        VariableData(static_cast<unsigned char>(0)),
        VariableData(static_cast<unsigned char>(255)),
        VariableData(0u),
        VariableData(std::numeric_limits<unsigned int>::max()),
        VariableData(0ull),
        VariableData(std::numeric_limits<unsigned long long>::max()),
    };
}

std::vector<char> Serial(const VariableData& v) {
    int size = v.Size();
    std::vector<char> buf(static_cast<size_t>(size));
    EXPECT_TRUE(v.SerialData(buf.data(), size));
    EXPECT_EQ(size, v.Size());
    return buf;
}

}  // namespace

class VariableDataTest : public ::testing::Test {};

TEST_F(VariableDataTest, EveryTagRoundTripsAtItsLimits) {
    for (const VariableData& v : LimitValues()) {
        std::vector<char> buf = Serial(v);
        VariableData back(3.5);
        ASSERT_TRUE(back.UnSerial(buf.data(), static_cast<int>(buf.size()))) << int(v.GetType());
        EXPECT_EQ(back.GetType(), v.GetType());
        EXPECT_TRUE(back.Equals(v)) << "tag " << int(v.GetType()) << " " << v.GetText();
        EXPECT_EQ(back.Size(), v.Size());
    }
}

TEST_F(VariableDataTest, EveryTruncationIsRefusedAndLeavesTheValue) {
    for (const VariableData& v : LimitValues()) {
        std::vector<char> buf = Serial(v);
        for (size_t n = 0; n < buf.size(); ++n) {
            VariableData keep(42);
            ASSERT_FALSE(keep.UnSerial(buf.data(), static_cast<int>(n)))
                << int(v.GetType()) << " at " << n;
            ASSERT_TRUE(keep.Equals(VariableData(42)));
        }
    }
}

TEST_F(VariableDataTest, CorruptInputIsRefused) {
    VariableData v(7);
    const char unknownTag[] = {8, 1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_FALSE(v.UnSerial(unknownTag, sizeof unknownTag));
    const char hugeString[] = {1, '\xff', '\xff', '\xff', '\x7f', 'a'};
    EXPECT_FALSE(v.UnSerial(hugeString, sizeof hugeString));
    const char negativeLength[] = {1, '\xff', '\xff', '\xff', '\xff', 'a'};
    EXPECT_FALSE(v.UnSerial(negativeLength, sizeof negativeLength));
    EXPECT_FALSE(v.UnSerial(nullptr, 5));
    EXPECT_FALSE(v.UnSerial(unknownTag, -1));
    EXPECT_TRUE(v.Equals(VariableData(7)));
}

TEST_F(VariableDataTest, SerialDataIntoTooSmallRoomWritesNothingAndTellsTheNeed) {
    VariableData v("hello");
    char buf[16];
    std::memset(buf, 'z', sizeof buf);
    int room = 9;
    EXPECT_FALSE(v.SerialData(buf, room));
    EXPECT_EQ(room, 10);
    EXPECT_EQ(buf[0], 'z');
    room = sizeof buf;
    EXPECT_TRUE(v.SerialData(buf, room));
    EXPECT_EQ(room, 10);
    EXPECT_EQ(std::string(buf + 5, 5), "hello");
}

TEST_F(VariableDataTest, ConversionOperators) {
    VariableData s("12abc");
    EXPECT_EQ(static_cast<int>(s), 12);
    EXPECT_EQ(static_cast<int>(VariableData("abc")), 0);
    EXPECT_EQ(static_cast<long long>(VariableData("-9223372036854775808")),
              std::numeric_limits<long long>::min());
    EXPECT_EQ(static_cast<unsigned long long>(VariableData("18446744073709551615")),
              std::numeric_limits<unsigned long long>::max());
    EXPECT_DOUBLE_EQ(static_cast<double>(VariableData("2.5")), 2.5);
    EXPECT_EQ(static_cast<int>(VariableData(2.9)), 2);
    EXPECT_EQ(static_cast<short>(VariableData(70000)), static_cast<short>(70000));
    EXPECT_EQ(static_cast<unsigned char>(VariableData(static_cast<char>(-1))), 255);
    EXPECT_EQ(static_cast<long long>(VariableData(std::numeric_limits<unsigned long long>::max())),
              -1);
    EXPECT_FLOAT_EQ(static_cast<float>(VariableData(1.25f)), 1.25f);
    EXPECT_EQ(static_cast<int>(VariableData(std::nan(""))), 0);
    EXPECT_EQ(static_cast<int>(VariableData()), 0);
    EXPECT_EQ(static_cast<long long>(TimeValue(1700000000)), 1700000000);
    EXPECT_STREQ(static_cast<char*>(VariableData(-42)), "-42");
    EXPECT_STREQ(static_cast<char*>(VariableData(std::numeric_limits<unsigned long long>::max())),
                 "18446744073709551615");
    EXPECT_STREQ(static_cast<char*>(VariableData()), "");
    char c = VariableData("A");
    EXPECT_EQ(c, 0);  // a string converts through its number, like every other integer type
}

TEST_F(VariableDataTest, TimeValueOnlyFromTimeTagAndCopiesKeepTagAndValue) {
    long s = 99;
    EXPECT_FALSE(VariableData(5).GetTimeValue(s));
    EXPECT_EQ(s, 99);
    EXPECT_TRUE(TimeValue(-5).GetTimeValue(s));
    EXPECT_EQ(s, -5);
    VariableData a("text");
    VariableData b = a;
    VariableData c = std::move(a);
    EXPECT_TRUE(b.Equals(c));
    EXPECT_TRUE(a.IsEmpty());
    b = VariableData(1.5f);  // a string replaced by a number
    EXPECT_EQ(b.GetType(), VariableData::VT_FLOAT);
    EXPECT_EQ(b.GetStringLength(), 0u);
    b = c;
    EXPECT_EQ(b.GetText(), "text");
}

TEST_F(VariableDataTest, MemCacheKeepsBytesAndATerminatingZero) {
    MemCache m("ab\0c", 4);
    EXPECT_EQ(m.GetSize(), 4u);
    EXPECT_EQ(m.GetBuffer()[4], '\0');
    ASSERT_TRUE(m.Append("xy", 2));
    EXPECT_EQ(std::string(m.GetBuffer(), m.GetSize()), std::string("ab\0cxy", 6));
    ASSERT_TRUE(m.Resize(2));
    EXPECT_STREQ(m.GetBuffer(), "ab");
    ASSERT_TRUE(m.Resize(5));
    EXPECT_EQ(std::string(m.GetBuffer(), 5), std::string("ab\0\0\0", 5));
    EXPECT_FALSE(m.Assign(nullptr, 3));
    EXPECT_EQ(m.GetSize(), 5u);
    m.Clear();
    EXPECT_EQ(m.GetSize(), 0u);
    EXPECT_STREQ(m.GetBuffer(), "");
}
