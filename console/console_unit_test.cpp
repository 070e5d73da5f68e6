// Pieces of the console that need no server: event normalising and resumption ids, password
// hashes, key names and the code picture's escaping.
#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>
#include <string>

#include "console/ConsoleHandlers.h"
#include "console/ConsoleUsers.h"

namespace {

Json::Value Parse(const std::string& text) {
    Json::Value v;
    Json::CharReaderBuilder b;
    std::string errors;
    std::unique_ptr<Json::CharReader> r(b.newCharReader());
    EXPECT_TRUE(r->parse(text.data(), text.data() + text.size(), &v, &errors)) << text;
    return v;
}

TEST(ConsoleEvents, NormaliseKeepsTheFiveFieldsOnOneLine) {
    struct Case {
        const char* text;
        const char* severity;
        const char* message;
        const char* host;
    };
    const Case cases[] = {
        {R"({"time":"t","company":"c","host":"h","severity":"critical","message":"m"})", "critical",
         "m", "h"},
        {R"({"severity":3,"message":"two\nlines","extra":1})", "3", "two\nlines", ""},
        {R"({"host":{"name":"x"}})", "", "", R"({"name":"x"})"},
        {"plain words", "unknown", "plain words", ""},
        {R"(["a"])", "unknown", R"(["a"])", ""},
    };
    for (const Case& c : cases) {
        const std::string out = console::NormaliseEvent(c.text, 1700000000);
        EXPECT_EQ(out.find('\n'), std::string::npos) << out;  // one data line per event
        Json::Value v = Parse(out);
        EXPECT_EQ(v.size(), 5u) << out;
        EXPECT_EQ(v["severity"].asString(), c.severity) << c.text;
        EXPECT_EQ(v["message"].asString(), c.message) << c.text;
        EXPECT_EQ(v["host"].asString(), c.host) << c.text;
        EXPECT_FALSE(v["time"].asString().empty()) << c.text;
    }
    EXPECT_EQ(Parse(console::NormaliseEvent(R"({"time":"given"})", 0))["time"].asString(), "given");
}

TEST(ConsoleEvents, ResumeOnlyFromIdsOfThisProcess) {
    EXPECT_EQ(console::ResumeAfter(console::EventId(42)), 42u);
    EXPECT_EQ(console::ResumeAfter(console::EventId(0)), 0u);
    EXPECT_EQ(console::ResumeAfter(""), 0u);
    // An id of another process (a restart): everything held is new to that browser.
    const std::string id = console::EventId(7);
    std::string other = id;
    other[0] = other[0] == 'a' ? 'b' : 'a';
    EXPECT_EQ(console::ResumeAfter(other), 0u);
    EXPECT_EQ(console::ResumeAfter(id.substr(0, id.find('-'))), 0u);
}

TEST(ConsoleUsers, HashesAreSaltedAndVerifyOnlyTheirPassword) {
    const std::string a = console::HashPassword("s3cret");
    const std::string b = console::HashPassword("s3cret");
    ASSERT_FALSE(a.empty());
    EXPECT_TRUE(a.compare(0, 3, "$y$") == 0 || a.compare(0, 3, "$6$") == 0) << a;
    EXPECT_NE(a, b) << "each hash has its own salt";
    EXPECT_TRUE(console::VerifyPassword("s3cret", a));
    EXPECT_TRUE(console::VerifyPassword("s3cret", b));
    EXPECT_FALSE(console::VerifyPassword("s3cret ", a));
    EXPECT_FALSE(console::VerifyPassword("", a));
    EXPECT_FALSE(console::VerifyPassword("s3cret", ""));
    EXPECT_FALSE(console::VerifyPassword("s3cret", "*0"));
    EXPECT_FALSE(console::VerifyPassword("s3cret", a.substr(0, a.size() - 1)));
}

TEST(ConsoleUsers, KeyNames) {
    for (const char* good : {"a", "admin", "ops@demo.example", "ccu-01", "A_b.c"})
        EXPECT_TRUE(console::ValidName(good)) << good;
    for (const std::string& bad :
         {std::string(), std::string(".hidden"), std::string("a b"), std::string("a\\b"),
          std::string("x<y"), std::string(65, 'a'), std::string("名字")})
        EXPECT_FALSE(console::ValidName(bad)) << bad;
}

TEST(CodePicture, DrawsEveryCharacterEscaped) {
    const std::string svg = console::CodePictureSvg("a<&", "unused");
    EXPECT_EQ(svg.compare(0, 4, "<svg"), 0);
    EXPECT_NE(svg.find(">a</text>"), std::string::npos);
    EXPECT_NE(svg.find(">&lt;</text>"), std::string::npos);
    EXPECT_NE(svg.find(">&amp;</text>"), std::string::npos);
    EXPECT_EQ(svg.find("unused"), std::string::npos);
    const std::string none = console::CodePictureSvg("", "no <code>");
    EXPECT_NE(none.find("no &lt;code&gt;"), std::string::npos);
}

}  // namespace
