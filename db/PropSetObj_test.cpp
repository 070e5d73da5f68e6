// Tests of CSPropSetObj: getters with defaults, merging, and its own serial form with the short
// buffer, duplicate name and empty set cases.
#include "db/PropSetObj.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

using tarn::VariableData;

class PropSetTest : public ::testing::Test {
protected:
    // The serial image of `set`, written with exactly SerialSize() bytes of room.
    std::vector<char> Image(const CSPropSetObj& set) {
        std::vector<char> buf(set.SerialSize());
        char* cursor = buf.data();
        int room = static_cast<int>(buf.size());
        EXPECT_TRUE(set.Serial(&cursor, room));
        EXPECT_EQ(room, 0);
        EXPECT_EQ(cursor, buf.data() + buf.size());
        return buf;
    }
    // Appends one name and value to a hand-made image.
    static void Append(std::vector<char>& buf, const std::string& name, const VariableData& v) {
        buf.insert(buf.end(), name.begin(), name.end());
        buf.push_back('\0');
        std::vector<char> value(v.Size());
        int size = static_cast<int>(value.size());
        ASSERT_TRUE(v.SerialData(value.data(), size));
        buf.insert(buf.end(), value.begin(), value.end());
    }
    static std::vector<char> Count(int32_t n) {
        std::vector<char> buf(4);
        std::memcpy(buf.data(), &n, 4);
        return buf;
    }
};

// The typed getters convert through CDbVar (its own tests hold the conversion tables): here
// only what the set adds, the default for an absent name, replacement and removal.
TEST_F(PropSetTest, GettersFallBackToTheDefaultOnlyWhenAbsent) {
    CSPropSetObj set;
    EXPECT_TRUE(set.Empaty());
    set.SetPropertyInt64("l", -5);
    set.SetPropertyInt("i", 3);
    set.SetPropertyInt("i", 4);  // overwrites
    EXPECT_FALSE(set.Empaty());
    EXPECT_EQ(set.GetPropertyString("l", ""), "18446744073709551611");
    EXPECT_EQ(set.GetPropertyInt("i", 0), 4);
    EXPECT_EQ(set.GetPropertyString("missing", "def"), "def");
    VariableData out(77);
    EXPECT_FALSE(set.GetProperty("missing", out));
    EXPECT_EQ(static_cast<int>(out), 77);
    set.RemoveProperty("i");
    set.RemoveProperty("i");
    EXPECT_EQ(set.GetPropertyInt("i", -1), -1);
    set.Clear();
    EXPECT_TRUE(set.Empaty());
}

TEST_F(PropSetTest, MergeLetsTheRightHandSideWin) {
    CSPropSetObj left;
    left = CSPropSetObj::PropMap{{"a", VariableData(1)}, {"b", VariableData(2)}};
    CSPropSetObj right;
    right = CSPropSetObj::PropMap{{"b", VariableData(3)}, {"c", VariableData(4)}};
    left += right;
    CSPropSetObj::PropMap got;
    left.GetPropSet(got);
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(static_cast<int>(got["a"]), 1);
    EXPECT_EQ(static_cast<int>(got["b"]), 3);
    EXPECT_EQ(static_cast<int>(got["c"]), 4);
    left += left;  // merging into itself changes nothing
    EXPECT_EQ(left.SerialSize(), CSPropSetObj(left).SerialSize());
    left += CSPropSetObj::PropMap{{"a", VariableData("x")}};
    EXPECT_EQ(left.GetPropertyString("a", ""), "x");
    CSPropSetObj copy;
    left.GetPropSet(copy);
    EXPECT_EQ(copy.GetPropertyInt("c", 0), 4);
}

TEST_F(PropSetTest, SerialRoundTripWithExactSize) {
    CSPropSetObj set;
    set.SetPropertyString("name", "value");
    set.SetPropertyInt("n", -1);
    set.SetPropertyDouble("d", 0.25);
    EXPECT_EQ(set.SerialSize(), 4 + (5 + VariableData("value").Size()) +
                                    (2 + VariableData(-1).Size()) +
                                    (2 + VariableData(0.25).Size()));
    std::vector<char> buf = Image(set);
    int32_t count = 0;
    std::memcpy(&count, buf.data(), 4);
    EXPECT_EQ(count, 3);
    EXPECT_STREQ(buf.data() + 4, "d");  // names in byte order

    CSPropSetObj back;
    back.SetPropertyInt("stale", 1);
    char* cursor = buf.data();
    int room = static_cast<int>(buf.size());
    ASSERT_TRUE(back.Unserial(&cursor, room));
    EXPECT_EQ(room, 0);
    EXPECT_EQ(back.GetPropertyInt("stale", -9), -9);  // the set was replaced
    EXPECT_EQ(back.GetPropertyString("name", ""), "value");
    EXPECT_EQ(back.GetPropertyInt("n", 0), -1);
    EXPECT_DOUBLE_EQ(back.GetPropertyDouble("d", 0), 0.25);
}

TEST_F(PropSetTest, EmptySetOrNegativeCountIsFourBytesAndClearsOnRead) {
    EXPECT_EQ(Image(CSPropSetObj()), Count(0));
    for (int n : {0, -2}) {
        CSPropSetObj full;
        full.SetPropertyInt("x", 1);
        std::vector<char> buf = Count(n);
        char* cursor = buf.data();
        int room = 4;
        ASSERT_TRUE(full.Unserial(&cursor, room));
        EXPECT_TRUE(full.Empaty()) << n;
    }
}

TEST_F(PropSetTest, ShortRoomIsRefusedLeavingAPartialImage) {
    CSPropSetObj set;
    set.SetPropertyString("a", "aaaa");
    set.SetPropertyString("b", "bbbb");
    std::vector<char> buf(64, 'x');
    char* cursor = buf.data();
    int room = 3;
    EXPECT_FALSE(set.Serial(&cursor, room));
    EXPECT_EQ(cursor, buf.data());
    EXPECT_EQ(room, 3);
    EXPECT_EQ(buf[0], 'x');  // nothing written

    // Room for the count, the first pair and the second name, but not the second value.
    const int firstPair = 2 + VariableData("aaaa").Size();
    room = 4 + firstPair + 2 + 1;
    cursor = buf.data();
    EXPECT_FALSE(set.Serial(&cursor, room));
    EXPECT_EQ(cursor, buf.data() + 4 + firstPair + 2);
    EXPECT_EQ(room, 1);

    // Room ending inside the first name.
    room = 5;
    cursor = buf.data();
    EXPECT_FALSE(set.Serial(&cursor, room));
    EXPECT_EQ(cursor, buf.data() + 4);
}

TEST_F(PropSetTest, ReadingKeepsTheLastOfADuplicatedNameAndStopsAtDamage) {
    std::vector<char> buf = Count(3);
    Append(buf, "dup", VariableData(1));
    Append(buf, "other", VariableData("o"));
    Append(buf, "dup", VariableData(2));
    CSPropSetObj set;
    char* cursor = buf.data();
    int room = static_cast<int>(buf.size());
    ASSERT_TRUE(set.Unserial(&cursor, room));
    EXPECT_EQ(set.GetPropertyInt("dup", 0), 2);
    EXPECT_EQ(set.SerialSize(), 4 + (4 + VariableData(2).Size()) + (6 + VariableData("o").Size()));

    // Cut inside the third value: the first two entries stay.
    cursor = buf.data();
    room = static_cast<int>(buf.size()) - 1;
    EXPECT_FALSE(set.Unserial(&cursor, room));
    EXPECT_EQ(set.GetPropertyInt("dup", 0), 1);
    EXPECT_EQ(set.GetPropertyString("other", ""), "o");
    // A name without its zero byte inside the buffer, and fewer than four bytes.
    std::vector<char> noEnd = Count(1);
    noEnd.push_back('n');
    cursor = noEnd.data();
    room = static_cast<int>(noEnd.size());
    EXPECT_FALSE(set.Unserial(&cursor, room));
    EXPECT_TRUE(set.Empaty());
    room = 3;
    cursor = noEnd.data();
    set.SetPropertyInt("kept", 1);
    EXPECT_FALSE(set.Unserial(&cursor, room));
    EXPECT_EQ(set.GetPropertyInt("kept", 0), 1);  // unchanged
}

TEST_F(PropSetTest, ANameWithAZeroByteCannotBeWritten) {
    CSPropSetObj set;
    set.SetPropertyInt(std::string("a\0b", 3), 1);
    std::vector<char> buf(64);
    char* cursor = buf.data();
    int room = 64;
    EXPECT_FALSE(set.Serial(&cursor, room));
}
