// Pieces of the console that need no server: event normalising and resumption ids, password
// hashes, key names, the code picture's source and the throttle's waits.
#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "console/ConsoleHandlers.h"
#include "console/ConsoleUsers.h"
#include "console/LoginThrottle.h"

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

// Reads the picture's source as a program would: every text node and attribute value, entities
// decoded. Neither the code nor a character of it as text may be there, no element that carries
// text or a font, and no path that a second drawing of the same code repeats (a glyph with a
// fixed outline could be looked up in a table).
TEST(CodePicture, SourceHoldsNothingTheCodeCanBeReadFrom) {
    const std::string code = "kxwqeh";  // letters: a digit may well be a coordinate
    const std::string a = console::CodePictureSvg(code, "unused");
    const std::string b = console::CodePictureSvg(code, "unused");
    EXPECT_EQ(a.compare(0, 4, "<svg"), 0);
    // Elements, attributes and text as a reader of the source sees them.
    struct Source {
        std::set<std::string> tags, paths;
        std::vector<std::string> values, texts;
    };
    auto read = [](const std::string& svg) {
        Source out;
        for (size_t lt = svg.find('<'); lt != std::string::npos;) {
            const size_t gt = svg.find('>', lt);
            std::string tag = svg.substr(lt + 1, gt - lt - 1);
            if (tag[0] != '/')
                out.tags.insert(tag.substr(0, tag.find_first_of(" /")));
            for (size_t eq = tag.find("=\""); eq != std::string::npos; eq = tag.find("=\"", eq)) {
                const size_t name = tag.rfind(' ', eq) + 1, close = tag.find('"', eq + 2);
                const std::string value = tag.substr(eq + 2, close - eq - 2);
                if (tag.compare(name, eq - name, "d") == 0)
                    out.paths.insert(value);
                else
                    out.values.push_back(value);
                eq = close;
            }
            lt = svg.find('<', gt);
            if (lt != std::string::npos && lt > gt + 1)
                out.texts.push_back(svg.substr(gt + 1, lt - gt - 1));
        }
        return out;
    };
    const Source sa = read(a), sb = read(b);
    EXPECT_TRUE(sa.texts.empty()) << sa.texts.front();
    EXPECT_EQ(sa.tags, (std::set<std::string>{"svg", "rect", "circle", "path"}));
    for (const std::string& v : sa.values) {
        EXPECT_FALSE(v.size() == 1 && code.find(v) != std::string::npos) << v;
        EXPECT_EQ(v.find(code), std::string::npos) << v;
    }
    EXPECT_EQ(a.find("unused"), std::string::npos);
    EXPECT_GE(sa.paths.size(), code.size());
    for (const std::string& d : sa.paths) {
        EXPECT_EQ(d.find_first_not_of("ML0123456789. -"), std::string::npos) << d;
        EXPECT_EQ(sb.paths.count(d), 0u) << d;
    }
    const std::string none = console::CodePictureSvg("", "no <code>");
    EXPECT_NE(none.find("no &lt;code&gt;"), std::string::npos);
}

TEST(LoginThrottle, WaitsDoubleAfterTheFreeTriesUpToTheCeiling) {
    console::ThrottleSettings s;
    s.freeTries = 3;
    s.waitSeconds = 5;
    s.maxWaitSeconds = 60;
    const long kWaits[] = {0, 0, 0, 0, 5, 10, 20, 40, 60, 60};
    for (int failures = 0; failures < 10; ++failures)
        EXPECT_EQ(console::WaitAfter(failures, s), kWaits[failures]) << failures;
    EXPECT_EQ(console::WaitAfter(1000000, s), 60);
}

}  // namespace
