// Tests of _qvcomm::CStrWork: cutting, the non-rescanning ReplaceAll, trimming sets, lists and
// the zero buffers, and the ordering of dotted identifiers.
#include "common/StrWork.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>

namespace {

using _qvcomm::CStrWork;

TEST(StrWorkTest, Cutting) {
    EXPECT_EQ(CStrWork::Left("abcdef", 2), "ab");
    EXPECT_EQ(CStrWork::Left("ab", 5), "ab");
    EXPECT_EQ(CStrWork::Left("ab", 0), "");
    EXPECT_EQ(CStrWork::Right("abcdef", 2), "ef");
    EXPECT_EQ(CStrWork::Right("abc", 3), "abc");
    EXPECT_THROW(CStrWork::Right("abc", 4), std::out_of_range);
    EXPECT_EQ(CStrWork::Mid("abcdef", 2, 3), "cde");
    EXPECT_EQ(CStrWork::Mid("abcdef", 4, 10), "ef");
    EXPECT_THROW(CStrWork::Mid("abc", 4, 1), std::out_of_range);
    EXPECT_EQ(CStrWork::GetMid("k=[v]", "[", "]"), "v");
    EXPECT_EQ(CStrWork::GetMid("k=[v", "[", "]"), "");
    EXPECT_EQ(CStrWork::GetMid("k=v]", "[", "]"), "");
    EXPECT_EQ(CStrWork::GetMid("]a[b]c]", "[", "]"), "b");  // the end after the begin
}

TEST(StrWorkTest, ReplaceAllNeverRescansReplacements) {
    EXPECT_EQ(CStrWork::ReplaceAll("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(CStrWork::ReplaceAll("a.b.c", ".", ""), "abc");
    EXPECT_EQ(CStrWork::ReplaceAll("xyz", "", "q"), "xyz");
    EXPECT_EQ(CStrWork::ReplaceJson("a\nb\r\nc\n"), "ab\rc");
    EXPECT_EQ(CStrWork::StrToLower("AbC\xc3"), "abc\xc3");
    EXPECT_EQ(CStrWork::CompareNoCase("HeLLo", "hello"), 0);
    EXPECT_GT(CStrWork::CompareNoCase("b", "A"), 0);
}

TEST(StrWorkTest, TrimmingSets) {
    EXPECT_EQ(CStrWork::Trim("  x \t"), "x \t");  // the one-argument form trims spaces only
    EXPECT_EQ(CStrWork::Trim("   "), "");
    EXPECT_EQ(CStrWork::TrimLeft("  x  "), "x  ");
    EXPECT_EQ(CStrWork::TrimRight("  x  "), "  x");
    EXPECT_EQ(CStrWork::Trim("\t-x-\n", "\t\n-"), "x");
    EXPECT_EQ(CStrWork::TrimLeft("xxa", "x"), "a");
    EXPECT_EQ(CStrWork::TrimRight("axx", "x"), "a");
    EXPECT_EQ(CStrWork::TrimRight("xx", "x"), "");
    EXPECT_EQ(CStrWork::TrimLeft("", "x"), "");
}

TEST(StrWorkTest, FormatString) {
    std::string out = "old";
    EXPECT_EQ(CStrWork::FormatString(out, "%s=%d", "n", 5), 1);
    EXPECT_EQ(out, "n=5");
    EXPECT_EQ(CStrWork::FormatString(out, "%s", ""), 0);
    EXPECT_EQ(out, "n=5");  // unchanged
    std::string big(10000, 'q');
    EXPECT_EQ(CStrWork::FormatString(out, "%s!", big.c_str()), 1);
    EXPECT_EQ(out, big + "!");
}

TEST(StrWorkTest, ListsByToken) {
    std::list<std::string> list = {"pre"};
    CStrWork::MakeListByTok(",a,,b,", list, ',');
    EXPECT_EQ(list, (std::list<std::string>{"pre", "a", "b"}));
    std::list<int> ints;
    CStrWork::MakeIntListByTok("1;;-2;x;3", ints, ';');
    EXPECT_EQ(ints, (std::list<int>{1, -2, 0, 3}));
    std::string joined = ">";
    CStrWork::MakeStringByList(joined, {"a", "", "b"}, '|');
    EXPECT_EQ(joined, ">a||b");
    std::string nums;
    CStrWork::MakeStringByIntList(nums, {1, -2, 3}, ',');
    EXPECT_EQ(nums, "1,-2,3");
    std::string none;
    CStrWork::MakeStringByList(none, {}, ',');
    EXPECT_EQ(none, "");
}

TEST(StrWorkTest, ListZeroBuffersRoundTrip) {
    std::list<std::string> list = {"one", "two", "three"};
    int size = 0;
    char* buf = CStrWork::MakeReturnStringByList(list, size);
    EXPECT_EQ(size, CStrWork::CalListSize(list));
    EXPECT_EQ(size, 4 + 4 + 6 + 1);
    EXPECT_EQ(std::memcmp(buf, "one\0two\0three\0\0", 15), 0);
    std::list<std::string> back = {"x"};
    CStrWork::MakeListByReturn(buf, back);
    delete[] buf;
    EXPECT_EQ(back, (std::list<std::string>{"x", "one", "two", "three"}));
    std::list<std::string> to = {"a"};
    CStrWork::AddList(to, list);
    EXPECT_EQ(to.size(), 4u);
    CStrWork::MakeListByReturn(nullptr, to);
    EXPECT_EQ(to.size(), 4u);
}

TEST(StrWorkTest, MapZeroBuffers) {
    int size = 0;
    char* empty = CStrWork::MakeZeroCharByMap({}, size);
    EXPECT_EQ(size, 3);
    EXPECT_EQ(std::memcmp(empty, "\0\0\0", 3), 0);
    delete[] empty;

    char* one = CStrWork::MakeZeroCharByMap({{"a", "1"}}, size);
    EXPECT_EQ(size, 7);
    EXPECT_EQ(std::memcmp(one, "a=1\0\0\0\0", 7), 0);
    delete[] one;

    std::map<std::string, std::string> map = {{"k2", "v=2"}, {"k1", ""}, {"z", "last"}};
    char* buf = CStrWork::MakeZeroCharByMap(map, size);
    EXPECT_EQ(size, 3 + 7 + 4 + 7);
    EXPECT_EQ(std::memcmp(buf, "k1=\0k2=v=2\0z=last\0\0\0\0", 21), 0);
    std::map<std::string, std::string> back;
    CStrWork::MakeMapByZero(buf, size, back);
    delete[] buf;
    EXPECT_EQ(back, map);
    EXPECT_EQ(CStrWork::GeValFromMap(map, "k2"), "v=2");
    EXPECT_EQ(CStrWork::GeValFromMap(map, "none", "dflt"), "dflt");
}

TEST(StrWorkTest, MapFromAnUnterminatedBufferStopsAtItsSize) {
    const char raw[] = {'a', '=', '1', '\0', 'b', '=', '2'};
    std::map<std::string, std::string> out;
    CStrWork::MakeMapByZero(raw, sizeof(raw), out);
    EXPECT_EQ(out, (std::map<std::string, std::string>{{"a", "1"}, {"b", "2"}}));
}

TEST(StrWorkTest, DottedIdentifiersCompareNumerically) {
    EXPECT_LT(CStrWork::mibcompare("1.3.6.1.9", "1.3.6.1.10"), 0);
    EXPECT_GT(CStrWork::mibcompare("1.3.6.2", "1.3.6.1.10"), 0);
    EXPECT_EQ(CStrWork::mibcompare("1.3.6", "1.3.6"), 0);
    EXPECT_LT(CStrWork::mibcompare("1.3", "1.3.6"), 0);
    EXPECT_LT(CStrWork::mibcompare("if2", "if10"), 0);
    EXPECT_NE(CStrWork::mibcompare("1.01", "1.1"), 0);
    EXPECT_EQ(CStrWork::mibcompare("1.01", "1.1"), -CStrWork::mibcompare("1.1", "1.01"));
    EXPECT_LT(CStrWork::mibcompare("1.99999999999999999999998", "1.99999999999999999999999"), 0);
    std::vector<std::string> items = {"1.10", "1.2", "1.1", "1.2.1"};
    CStrWork::SortString(items);
    EXPECT_EQ(items, (std::vector<std::string>{"1.1", "1.2", "1.2.1", "1.10"}));
    CStrWork::SortString(items, false);
    EXPECT_EQ(items, (std::vector<std::string>{"1.10", "1.2.1", "1.2", "1.1"}));
    EXPECT_TRUE(CStrWork::CCompareString("1.2", "1.10"));
    EXPECT_FALSE(CStrWork::CCompareString("1.10", "1.2"));
}

}  // namespace
