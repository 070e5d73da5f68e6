// Tests of Url: encoding and decoding (both forms), parsing, and the parameter maps in both
// flag modes.
#include "web/Url.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

using Params = std::map<std::string, std::string>;

class UrlTest : public ::testing::Test {
protected:
    std::mt19937 rng{42};
    std::string RandomBytes(size_t maxLen, bool noNul) {
        std::string s(std::uniform_int_distribution<size_t>(0, maxLen)(rng), '\0');
        for (char& c : s) {
            c = static_cast<char>(rng());
            if (noNul && c == '\0')
                c = 'x';
        }
        return s;
    }
};

TEST_F(UrlTest, EncodeByMask) {
    struct Case {
        std::string in;
        int mask;
        std::string out;
    } cases[] = {
        {"a b", 2, "a+b"},
        {"a b", 4, "a%20b"},
        {"~!", 2, "%7E%21"},
        {"~!", 7, "%7E%21"},
        {"*=-._Az09", 1, "*=-._Az09"},
        {"+/", 4, "+/"},
        {"+/", 2, "%2B%2F"},
        {"+/", 1, "%2B%2F"},
        {"abc", 0, "%61%62%63"},
        {"\xe4\xb8\xad\x7f\n", 4, "%E4%B8%AD%7F%0A"},
        {"", 2, ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Url::EncodeUrl(c.in, c.mask, false), c.out) << c.in << " mask " << c.mask;
        EXPECT_EQ(Url::EncodeUrl(c.in, c.mask, true), c.out) << c.in << " mask " << c.mask;
    }
}

TEST_F(UrlTest, EncodeBufferSizes) {
    int size = 0;
    // Needed: 3 bytes + 2 for the escaped blank + NUL, even though form mode writes "+".
    EXPECT_EQ(Url::EncodeUrl("a b", nullptr, size, 2), 6);
    EXPECT_EQ(size, 6);
    char buf[16];
    size = 5;
    EXPECT_EQ(Url::EncodeUrl("a b", buf, size, 2), 0);
    EXPECT_EQ(size, 6);
    size = 6;
    EXPECT_EQ(Url::EncodeUrl("a b", buf, size, 2), 3);
    EXPECT_EQ(size, 3);
    EXPECT_STREQ(buf, "a+b");
    EXPECT_EQ(Url::EncodeUrl(nullptr, buf, size, 2), 0);
}

TEST_F(UrlTest, Decode) {
    struct Case {
        std::string in;
        std::string plain;  // string form without conversion
        std::string utf8;   // string form with conversion (keeps bytes after a NUL)
    } cases[] = {
        {"%41%4a%zz", "AJ", std::string("AJ\0", 3)},
        {"a+b%20c", "a b c", "a b c"},
        {"%e4%B8%ad", "\xe4\xb8\xad", "\xe4\xb8\xad"},
        {"ab%", "ab", "ab"},                // a lone "%" ends the text
        {"ab%4", "ab@", "ab@"},             // one digit left: the missing one counts as 0
        {"%g1", "\x01", "\x01"},            // not hexadecimal: 0
        {"%00", "", std::string("\0", 1)},  // one byte decoded: kept by the conversion
        {"", "", ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Url::DecodeUrl(c.in, false), c.plain) << c.in;
        EXPECT_EQ(Url::DecodeUrl(c.in, true), c.utf8) << c.in;
    }
    char out[8];
    int length = -1;
    EXPECT_EQ(Url::DecodeUrl("x%41", out, length), 2);
    EXPECT_EQ(length, 2);
    EXPECT_STREQ(out, "xA");
    EXPECT_EQ(Url::DecodeUrl("x", nullptr, length), 0);
}

TEST_F(UrlTest, RoundTripsAndBadInput) {
    for (int i = 0; i < 3000; ++i) {
        const std::string text = RandomBytes(48, true);
        for (int mask : {0, 1, 2, 3}) {  // masks that escape "+"
            ASSERT_EQ(Url::DecodeUrl(Url::EncodeUrl(text, mask, false), false), text);
        }
        // Masks that keep "+" send it through as a blank when decoded.
        std::string plusAsBlank = text;
        for (char& c : plusAsBlank)
            c = c == '+' ? ' ' : c;
        ASSERT_EQ(Url::DecodeUrl(Url::EncodeUrl(text, 4, false), false), plusAsBlank);
        // Any bytes into the decoders and map builders: no crash, bounded output.
        const std::string junk = RandomBytes(64, false);
        EXPECT_LE(Url::DecodeUrl(junk, true).size(), junk.size());
        Params m;
        Url::CovertPostStringToMapEx(junk, m, i % 2 == 0, i % 3 == 0);
        Url::CovertPostStringToMap(junk, m);
        Url u;
        u.ParseUrl(junk, i % 2 == 0, i % 3 == 0);
        u.GetQueryStringMapEx(m, true, i % 2 == 0);
    }
}

TEST_F(UrlTest, QueryAndBodyMaps) {
    struct Case {
        std::string text;
        bool convert;
        bool decodePieces;
        Params want;
    } cases[] = {
        {"a=1&b&a=2", false, true, {{"a", "2"}, {"b", ""}}},
        {"x=%26y", false, true, {{"x", "&y"}}},
        {"x=%26y", false, false, {{"x", ""}, {"y", ""}}},
        {"k%3Dv=1", true, true, {{"k=v", "1"}}},
        {"K=a+b&k= c", false, true, {{"K", "a b"}, {"k", " c"}}},
        {"a=1&&b=2&", false, true, {{"a", "1"}, {"", ""}, {"b", "2"}}},
        {"a=b=c", false, true, {{"a", "b=c"}}},
    };
    for (const Case& c : cases) {
        Params body;
        EXPECT_TRUE(Url::CovertPostStringToMapEx(c.text, body, c.convert, c.decodePieces));
        EXPECT_EQ(body, c.want) << c.text;
        Url u;
        u.SetQueryString(c.text);
        Params query;
        EXPECT_TRUE(u.GetQueryStringMapEx(query, c.convert, c.decodePieces));
        EXPECT_EQ(query, c.want) << c.text;
    }
    // The plain forms never decode; empty text is refused and leaves the map alone.
    Params m{{"keep", "1"}};
    EXPECT_TRUE(Url::CovertPostStringToMap("x=%26y&z=a+b", m));
    EXPECT_EQ(m, (Params{{"keep", "1"}, {"x", "%26y"}, {"z", "a+b"}}));
    EXPECT_FALSE(Url::CovertPostStringToMap("", m));
    EXPECT_FALSE(Url::CovertPostStringToMapEx("", m, true, true));
    Url empty;
    EXPECT_FALSE(empty.GetQueryStringMap(m));
    EXPECT_FALSE(empty.GetQueryStringMapEx(m, false, false));
    EXPECT_EQ(m.size(), 3u);
}

TEST_F(UrlTest, ParseUriAndUrl) {
    // Scheme, host, port, path, query, fragment and type, joined with "|".
    const struct {
        std::string url;
        bool decode;
        std::string parts;
    } cases[] = {
        {"http://h:8121/hdoc/index.html?a=1#top", true, "http|h|8121|hdoc/index.html|a=1|top|html"},
        {"https://u:p@example.test/api/login", true, "https|example.test||api/login|||"},
        {"http://[::1]:80//a%20b?q=%41", true, "http|[::1]|80|a b|q=A||"},
        {"http://[::1]:80//a%20b?q=%41", false, "http|[::1]|80|a%20b|q=%41||"},
        // ":\\" reads as a drive path, before any ":/": the whole text is the path part.
        {"http:\\\\host\\x/y", true, "|||http:\\\\host\\x/y|||"},
        {"http://host", true, "http|host|||||"},
        {"/hdoc/a.js#f", true, "|||hdoc/a.js||f|js"},
        // The first "?" splits even when a "#" stands before it.
        {"/hdoc/a.js#f?x", true, "|||hdoc/a.js#f|x||js#f"},
        {"C:\\dir\\f.txt?x=1", true, "|||C:\\dir\\f.txt|x=1||txt"},
        {"///a.b/c?", true, "|||a.b/c|||b/c"},
    };
    for (const auto& c : cases) {
        Url u;
        EXPECT_TRUE(u.ParseUrl(c.url, c.decode, false)) << c.url;
        EXPECT_EQ(u.GetWholeUrl(), c.url);
        EXPECT_EQ(u.GetScheme() + "|" + u.GetHost() + "|" + u.GetPort() + "|" + u.GetPath() + "|" +
                      u.GetQueryString() + "|" + u.GetFragment() + "|" + u.GetUrlType(),
                  c.parts)
            << c.url;
    }
    Url u;
    EXPECT_TRUE(u.ParseUri("api/login?x"));
    EXPECT_EQ(u.GetUrlType(), "");
    EXPECT_FALSE(u.ParseUrl("", true, false));
    EXPECT_EQ(u.GetPath(), "");  // parsing starts from empty fields
}

}  // namespace
