// Tests of CDbVar: the per-tag printing tables of every conversion, the precision rules, the
// property getters, and the single-value and map serial forms with their 5001 rules.
#include "db/DbVar.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

using tarn::VariableData;

namespace {

VariableData Time(long seconds) {
    VariableData v;
    v.PutTimeValue(seconds);
    return v;
}

struct ConversionCase {
    const char* label;
    std::function<VariableData()> make;
    int asInt;
    long long asInt64;
    float asFloat;
    double asDouble;       // precision 2
    std::string asString;  // precision 3
};

std::string Fixed(int decimals, double d) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*f", decimals, d);
    return buf;
}

}  // namespace

class DbVarTest : public ::testing::Test {
protected:
    // Serialises `props` with plenty of room and returns the bytes.
    std::vector<char> Serial(const CDbVar::VarMap& props) {
        std::vector<char> buf(CDbVar::CalMapSerialSize(props) + 16);
        int written = -1;
        EXPECT_EQ(
            CDbVar::SerialStringVarMap(buf.data(), static_cast<int>(buf.size()), written, props),
            0);
        EXPECT_EQ(written, CDbVar::CalMapSerialSize(props));
        buf.resize(written);
        return buf;
    }
};

TEST_F(DbVarTest, EveryConversionPrintsEachTagByItsOwnTable) {
    const std::vector<ConversionCase> cases = {
        {"string with a number prefix", [] { return VariableData("12abc"); }, 12, 12, 12.0f, 12.0,
         "12abc"},
        {"string without a number", [] { return VariableData("abc"); }, 0, 0, 0.0f, 0.0, "abc"},
        {"int16: only the double conversion prints it",
         [] { return VariableData(static_cast<short>(7)); }, 0, 0, 0.0f, 7.0, ""},
        {"int32", [] { return VariableData(-42); }, -42, -42, -42.0f, -42.0, "-42"},
        // Kept: "%llu" turns -5 into 18446744073709551611; strtol clamps it to LONG_MAX,
        // whose low 32 bits read -1.
        {"negative int64 through its unsigned text", [] { return VariableData(-5LL); },
         static_cast<int>(LONG_MAX), -5, -5.0f, -5.0, "18446744073709551611"},
        {"int64 beyond 32 bits", [] { return VariableData(5000000000LL); },
         static_cast<int>(5000000000LL), 5000000000LL, 5e9f, 5e9, "5000000000"},
        {"char: not read by the 64-bit and float conversions", [] { return VariableData('A'); }, 65,
         0, 0.0f, 65.0, "65"},
        {"double: not read by the 64-bit conversion", [] { return VariableData(2.5); }, 2, 0, 2.5f,
         2.5, "2.500"},
        {"float", [] { return VariableData(1.25f); }, 1, 1, 1.25f, 1.25, "1.250"},
        {"time", [] { return Time(1700000000L); }, 1700000000, 1700000000LL, 1.7e9f, 1.7e9,
         tarn::TimeFace(1700000000L).ToString()},
        {"uint8", [] { return VariableData(static_cast<unsigned char>(200)); }, 200, 0, 0.0f, 200.0,
         "200"},
        {"uint32: printed signed by the string conversion only",
         [] { return VariableData(4294967295u); }, 0, 0, 0.0f, 0.0, "-1"},
        {"uint64: read by the 64-bit conversion, printed unsigned",
         [] { return VariableData(18446744073709551615ULL); }, 0, -1, 0.0f, 0.0,
         "18446744073709551615"},
        {"empty", [] { return VariableData(); }, 0, 0, 0.0f, 0.0, ""},
    };
    for (const ConversionCase& c : cases) {
        SCOPED_TRACE(c.label);
        VariableData v = c.make();
        EXPECT_EQ(CDbVar::VariableDataToInt(v), c.asInt);
        EXPECT_EQ(CDbVar::VariableDataToInt64(v), c.asInt64);
        EXPECT_FLOAT_EQ(CDbVar::VariableDataToFloat(v), c.asFloat);
        EXPECT_DOUBLE_EQ(CDbVar::VariableDataToDouble(v, 2), c.asDouble);
        EXPECT_EQ(CDbVar::VariableDataToString(v, 3), c.asString);
    }
}

TEST_F(DbVarTest, PrecisionSelectsTheDecimalsOfDoublesAndFloats) {
    // {precision, decimals of the double conversion, decimals of the string conversion}
    const int table[][3] = {{-1, 2, 3}, {0, 2, 3}, {1, 1, 1},    {2, 2, 2}, {3, 3, 3},
                            {4, 4, 4},  {7, 7, 7}, {10, 10, 10}, {11, 2, 3}};
    const double value = 1.23456789012345;
    for (const auto& row : table) {
        SCOPED_TRACE(row[0]);
        VariableData d(value);
        EXPECT_DOUBLE_EQ(CDbVar::VariableDataToDouble(d, row[0]),
                         std::strtod(Fixed(row[1], value).c_str(), nullptr));
        EXPECT_EQ(CDbVar::VariableDataToString(d, row[0]), Fixed(row[2], value));
        VariableData f(static_cast<float>(value));
        EXPECT_EQ(CDbVar::VariableDataToString(f, row[0]),
                  Fixed(row[2], static_cast<double>(static_cast<float>(value))));
    }
    // The two-decimal text decides, never the stored value.
    VariableData odd(2.345), longText(std::string(1500, 'x'));
    double got = CDbVar::VariableDataToDouble(odd, 2);
    EXPECT_TRUE(got == 2.35 || got == 2.34) << got;
    // The text form is cut at 999 characters.
    EXPECT_EQ(CDbVar::VariableDataToString(longText, 3), std::string(999, 'x'));
}

TEST_F(DbVarTest, PropertyGettersFallBackToTheDefaultOnlyWhenAbsent) {
    CDbVar::VarMap props{
        {"n", VariableData(5)}, {"d", VariableData(2.5)}, {"s", VariableData("x")}};
    EXPECT_EQ(CDbVar::GetIntFromProperty("n", 9, props), 5);
    EXPECT_EQ(CDbVar::GetIntFromProperty("missing", 9, props), 9);
    EXPECT_EQ(CDbVar::GetIntFromProperty("s", 9, props), 0);  // present but not a number
    EXPECT_EQ(CDbVar::GetInt64FromProperty("missing", -3, props), -3);
    EXPECT_DOUBLE_EQ(CDbVar::GetDoubleFromProperty("d", 1.0, props), 2.5);
    EXPECT_FLOAT_EQ(CDbVar::GetFloatFromProperty("missing", 1.5f, props), 1.5f);
    EXPECT_EQ(CDbVar::GetStringFromProperty("d", "def", props), "2.500");
    EXPECT_EQ(CDbVar::GetStringFromProperty("missing", "def", props), "def");
    EXPECT_EQ(CDbVar::FindMapField(props, "s"), 1);
    EXPECT_EQ(CDbVar::FindMapField(props, "S"), 0);

    // Several at once: present names get their text, absent ones keep the caller's default.
    std::map<std::string, std::string> fields{{"n", "?"}, {"d", "?"}, {"missing", "dflt"}};
    EXPECT_EQ(CDbVar::GetSomeDataFromProperty(props, fields), 2);
    EXPECT_EQ(fields["n"], "5");
    EXPECT_EQ(fields["d"], "2.500");
    EXPECT_EQ(fields["missing"], "dflt");
    EXPECT_EQ(fields.size(), 3u);
}

TEST_F(DbVarTest, SingleValuesRoundTripAndRefuseShortRoom) {
    char buf[64];
    char* cursor = buf;
    int n1 = CDbVar::SerialInt(&cursor, sizeof buf, 77);
    int n2 = CDbVar::SerialString(&cursor, sizeof buf - n1, "hello");
    int n3 = CDbVar::SerialTime(&cursor, sizeof buf - n1 - n2, tarn::TimeFace(1234567L));
    ASSERT_GT(n1, 0);
    ASSERT_GT(n2, 0);
    ASSERT_GT(n3, 0);
    EXPECT_EQ(cursor, buf + n1 + n2 + n3);

    char* before = cursor;
    EXPECT_EQ(CDbVar::SerialString(&cursor, 3, "too long for three bytes"), -1);
    EXPECT_EQ(cursor, before);

    char* in = buf;
    int room = n1 + n2 + n3;
    VariableData a, b, c;
    ASSERT_EQ(CDbVar::UnSerialVar(&in, a, room), 0);
    ASSERT_EQ(CDbVar::UnSerialVar(&in, b, room - n1), 0);
    ASSERT_EQ(CDbVar::UnSerialVar(&in, c, room - n1 - n2), 0);
    EXPECT_EQ(in, buf + room);
    EXPECT_EQ(static_cast<int>(a), 77);
    EXPECT_EQ(b.GetText(), "hello");
    long seconds = 0;
    ASSERT_TRUE(c.GetTimeValue(seconds));
    EXPECT_EQ(seconds, 1234567L);

    // A value whose form runs past the room is refused and the cursor stays.
    in = buf + n1;
    VariableData cut;
    EXPECT_EQ(CDbVar::UnSerialVar(&in, cut, n2 - 1), 5001);
    EXPECT_EQ(in, buf + n1);
}

TEST_F(DbVarTest, MapRoundTripKeepsTypesOrderAndExactSize) {
    CDbVar::VarMap props{{"b", VariableData("text")},
                         {"a", VariableData(1)},
                         {"c", VariableData(2.5)},
                         {"t", Time(99L)},
                         {"big", VariableData(-7LL)}};
    std::vector<char> buf = Serial(props);
    // Count first, then the keys in byte order.
    char* cursor = buf.data();
    VariableData count, firstKey;
    ASSERT_EQ(CDbVar::UnSerialVar(&cursor, count, static_cast<int>(buf.size())), 0);
    EXPECT_EQ(count.GetType(), VariableData::VT_INT32);
    EXPECT_EQ(static_cast<int>(count), 5);
    ASSERT_EQ(CDbVar::UnSerialVar(&cursor, firstKey, static_cast<int>(buf.size())), 0);
    EXPECT_EQ(firstKey.GetText(), "a");

    CDbVar::VarMap back{{"keep", VariableData(3)}, {"a", VariableData("old")}};
    char* in = buf.data();
    ASSERT_EQ(CDbVar::UnSerialStringVarMap(&in, static_cast<int>(buf.size()), back), 0);
    EXPECT_EQ(in, buf.data() + buf.size());
    EXPECT_EQ(back.size(), 6u);  // "keep" stays, "a" is replaced
    for (const auto& entry : props) {
        SCOPED_TRACE(entry.first);
        ASSERT_EQ(back.count(entry.first), 1u);
        EXPECT_TRUE(back[entry.first].Equals(entry.second));
    }
    EXPECT_EQ(static_cast<int>(back["keep"]), 3);
}

// An empty or negative count reads as an empty map; a read cut inside the third value gives 5001
// with the first two pairs; a write into short room stops at the last piece that fits.
TEST_F(DbVarTest, MapReadsAndWritesStopAtPieceBoundaries) {
    CDbVar::VarMap target{{"x", VariableData(1)}};
    char count[16];
    for (int n : {0, -3}) {
        char* w = count;
        int size = CDbVar::SerialInt(&w, sizeof count, n);
        char* in = count;
        EXPECT_EQ(CDbVar::UnSerialStringVarMap(&in, size, target), 0);
        EXPECT_EQ(in, count + size);
        EXPECT_EQ(target.size(), 1u) << n;
    }
    EXPECT_EQ(static_cast<int>(Serial({}).size()), VariableData(0).Size());

    CDbVar::VarMap props{
        {"a", VariableData(1)}, {"b", VariableData(2)}, {"c", VariableData("ccc")}};
    std::vector<char> buf = Serial(props);
    CDbVar::VarMap back;
    char* in = buf.data();
    EXPECT_EQ(CDbVar::UnSerialStringVarMap(&in, static_cast<int>(buf.size()) - 2, back), 5001);
    EXPECT_EQ(in, buf.data());
    ASSERT_EQ(back.size(), 2u);
    EXPECT_EQ(static_cast<int>(back["b"]), 2);
    back.clear();
    EXPECT_EQ(CDbVar::UnSerialStringVarMap(&in, 2, back), 5001);  // short of the count
    EXPECT_TRUE(back.empty());

    const int countSize = VariableData(3).Size();
    const int pairSize = VariableData("a").Size() + VariableData(1).Size();
    int written = -1;
    EXPECT_EQ(CDbVar::SerialStringVarMap(buf.data(), countSize - 1, written, props), 0);
    EXPECT_EQ(written, 0);
    // Room for the count, the first pair and a part of the second key.
    EXPECT_EQ(CDbVar::SerialStringVarMap(buf.data(), countSize + pairSize + 2, written, props), 0);
    EXPECT_EQ(written, countSize + pairSize);
}
