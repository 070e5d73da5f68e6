// Tests of the cookie rule on the Cookie header shapes browsers and odd clients send.
#include "session/CookieRule.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct CookieCase {
    const char* label;
    std::string header;
    const char* name;
    std::string expected;
};

class CookieRuleTest : public ::testing::TestWithParam<CookieCase> {};

TEST_P(CookieRuleTest, PicksTheValueByTheRule) {
    const CookieCase& c = GetParam();
    EXPECT_EQ(GetCookieValueByRule(c.header, c.name), c.expected) << c.label;
}

const CookieCase kCases[] = {
    {"among others", "a=1; qvsessionid=abc; b=2", "qvsessionid", "abc"},
    {"alone without trailing semicolon", "qvsessionid=abc", "qvsessionid", "abc"},
    {"alone with trailing semicolon", "qvsessionid=abc;", "qvsessionid", "abc"},
    {"last of several", "a=1; b=2; qvsessionid=xyz", "qvsessionid", "xyz"},
    {"name without equals", "a=1;qvsessionid", "qvsessionid", ""},
    {"empty value", "qvsessionid=; x=1", "qvsessionid", ""},
    {"absent", "a=1; b=2", "qvsessionid", ""},
    {"empty header", "", "qvsessionid", ""},
    {"leading blank kept", "CSRF-TOKEN= t1", "CSRF-TOKEN", " t1"},
    {"trailing blank kept", "CSRF-TOKEN=t1 ; a=2", "CSRF-TOKEN", "t1 "},
    {"no percent decoding", "qvsessionid=a%20b", "qvsessionid", "a%20b"},
    {"equals signs inside the value", "CSRF-TOKEN=a=b=c; d=1", "CSRF-TOKEN", "a=b=c"},
    // Only the first occurrence of the bare name counts: a cookie whose name ends with the
    // name and stands first is taken in place of the real one.
    {"longer name standing first", "XCSRF-TOKEN=evil; CSRF-TOKEN=good", "CSRF-TOKEN", "evil"},
    // The name first occurring inside another cookie's value without "=" hides the real one.
    {"name inside an earlier value", "a=qvsessionid; qvsessionid=abc", "qvsessionid", ""},
    {"name and equals inside an earlier value", "a=qvsessionid=zz; qvsessionid=abc", "qvsessionid",
     "zz"},
    {"real cookie first wins", "qvsessionid=abc; qvsessionid=def", "qvsessionid", "abc"},
    {"case differs", "QVSESSIONID=abc", "qvsessionid", ""},
    {"only semicolons", ";;;;", "qvsessionid", ""},
    {"binary bytes in value", std::string("qvsessionid=a\0b\xff;c=1", 20), "qvsessionid",
     std::string("a\0b\xff", 4)},
    {"two names in one cookie piece", "qvsessionidqvsessionid=v", "qvsessionid", "v"},
};

INSTANTIATE_TEST_SUITE_P(HeaderShapes, CookieRuleTest, ::testing::ValuesIn(kCases));

}  // namespace
