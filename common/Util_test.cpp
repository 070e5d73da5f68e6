// Tests of tarn::Util: splitting, replacing, the checksum with its trailing-byte rule, case
// helpers and the byte-copying text conversions.
#include "common/Util.h"

#include <gtest/gtest.h>

#include <cstring>
#include <list>
#include <string>

namespace {

using tarn::Util;

TEST(UtilTest, ParseFlagStringKeepsInnerEmptyPiecesButNotATrailingOne) {
    std::list<std::string> out = {"pre"};
    EXPECT_TRUE(Util::ParseFlagString(",a,,b,", ",", out));
    EXPECT_EQ(out, (std::list<std::string>{"pre", "", "a", "", "b"}));
    out.clear();
    EXPECT_TRUE(Util::ParseFlagString("whole", ",", out));
    EXPECT_EQ(out, (std::list<std::string>{"whole"}));
    out.clear();
    EXPECT_TRUE(Util::ParseFlagString("a::b::c", "::", out));
    EXPECT_EQ(out, (std::list<std::string>{"a", "b", "c"}));
    out = {"x"};
    EXPECT_FALSE(Util::ParseFlagString("", ",", out));
    EXPECT_EQ(out, (std::list<std::string>{"x"}));
}

TEST(UtilTest, ReplaceStringRestartsFromTheBeginning) {
    EXPECT_EQ(Util::ReplaceString("aab", "ab", "b"), "b");
    EXPECT_EQ(Util::ReplaceString("%Y-%Y", "%Y", "2024"), "2024-2024");
}

uint32_t Word(const char* four) {
    uint32_t w;
    std::memcpy(&w, four, 4);
    return w;
}

TEST(UtilTest, CheckSumCountsOnlyTheFirstTrailingByteTimesTheRest) {
    EXPECT_EQ(Util::CheckSum("abcde", 5), ~(Word("abcd") + static_cast<uint32_t>('e')));
    EXPECT_EQ(Util::CheckSum("abcdefg", 7), ~(Word("abcd") + 3u * static_cast<uint32_t>('e')));
    // "g" does not count at all: changing it leaves the checksum alone.
    EXPECT_EQ(Util::CheckSum("abcdefg", 7), Util::CheckSum("abcdefz", 7));
    EXPECT_EQ(Util::CheckSum("abcdabcd", 8), ~(2u * Word("abcd")));
    EXPECT_EQ(Util::CheckSum("", 0), 0xffffffffu);
    const char high[] = "\xff\xff\xff\xff\xff\xff\xff\xff\x80";
    EXPECT_EQ(Util::CheckSum(high, 9), ~(0xfffffffeu + 0x80u));  // wraps in 32 bits
}

TEST(UtilTest, CaseHelpers) {
    EXPECT_EQ(Util::str_nocase_cmp("AbC", "aBc"), 0);
    EXPECT_LT(Util::str_nocase_cmp("abc", "ABD"), 0);
    EXPECT_EQ(Util::str_nocase_find("Hello World", "WORLD"), 6);
    EXPECT_EQ(Util::str_nocase_find("Hello", "xyz"), -1);
    EXPECT_EQ(Util::str_nocase_find("Hello", ""), 0);
    EXPECT_EQ(Util::ToLowerString("MiXeD 1\xc3"), "mixed 1\xc3");
    EXPECT_EQ(Util::ToUpperString("MiXeD"), "MIXED");
    EXPECT_EQ(Util::ToLowerString(nullptr), "");
    EXPECT_EQ(Util::ToUpperString(nullptr), "");
}

TEST(UtilTest, TextConversionsCopyBytes) {
    std::string out;
    EXPECT_TRUE(Util::Utf8TOString("\xe4\xb8\xad\xe6\x96\x87xyz", 6, out));
    EXPECT_EQ(out, "\xe4\xb8\xad\xe6\x96\x87");
    char buf[16];
    std::memset(buf, 'z', sizeof(buf));
    int len = -1;
    EXPECT_TRUE(Util::StringTOUtf8("abc", buf, len));
    EXPECT_EQ(len, 3);
    EXPECT_STREQ(buf, "abc");
}

}  // namespace
