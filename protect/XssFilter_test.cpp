// Tests of BSCheckXSS: the listed cases, the tag list, concurrent first use, and equivalence
// with a straightforward implementation over many random parameter maps.
#include "protect/XssFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <random>
#include <regex>
#include <thread>
#include <vector>

namespace {

using Params = std::map<std::string, std::string>;

// The filter written out plainly: every value is lowered, stripped of blanks and searched for
// every tag of the list.
uint32_t ReferenceCheck(Params& params) {
    for (auto& kv : params) {
        std::string& value = kv.second;
        if (kv.first == "callbackparam") {
            if (value.find('<') == std::string::npos)
                continue;
            value = "1111";
            return 0;
        }
        std::string test;
        for (char c : value) {
            if (c != ' ')
                test += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        bool refused = test.size() > 2 && test.front() == '<' && test.back() == '>';
        for (const std::string& tag : g_lstHtTag)
            refused = refused || test.find(tag) != std::string::npos;
        if (refused) {
            value = std::regex_replace(std::regex_replace(value, std::regex("<"), "&lt;"),
                                       std::regex(">"), "&gt;");
            return 0;
        }
    }
    return 1;
}

class XssFilterTest : public ::testing::Test {};

// First in the file: the tag list is filled by whichever of these threads comes first.
TEST_F(XssFilterTest, ConcurrentFirstUse) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&wrong] {
            for (int i = 0; i < 500; ++i) {
                Params bad{{"a", "<Script>x"}};
                Params good{{"a", "plain text"}, {"b", "a<b>c"}};
                if (BSCheckXSS(bad) != 0 || BSCheckXSS(good) != 1)
                    ++wrong;
            }
        });
    }
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(wrong.load(), 0);
    ASSERT_EQ(g_lstHtTag.size(), 37u);
    EXPECT_EQ(std::count(g_lstHtTag.begin(), g_lstHtTag.end(), "<onunload>"), 2);
    // The filter finds tags in one pass over the "<" of a value; that needs every tag to be
    // "<", then no "<" or ">", then ">".
    for (const std::string& tag : g_lstHtTag) {
        EXPECT_TRUE(tag.size() > 2 && tag.front() == '<' && tag.back() == '>' &&
                    tag.find_first_of("<>", 1) == tag.size() - 1)
            << tag;
    }
}

TEST_F(XssFilterTest, ListedCases) {
    struct Case {
        std::string value;
        uint32_t result;
        std::string stored;
    } cases[] = {
        {"<SCRIPT>alert(1)</SCRIPT>", 0, "&lt;SCRIPT&gt;alert(1)&lt;/SCRIPT&gt;"},
        {"< script >", 0, "&lt; script &gt;"},
        {"<b>", 0, "&lt;b&gt;"},  // whole-value rule
        {"a<b>c", 1, "a<b>c"},
        {"<>", 1, "<>"},                                // two characters only
        {"<script src=x>", 0, "&lt;script src=x&gt;"},  // whole-value rule, not the tag
        {"x<script src=x>", 1, "x<script src=x>"},      // the tag is compared whole
        {"x <On Click>y", 0, "x &lt;On Click&gt;y"},    // event names as bracketed tags
        {"1 < 2 and 3 > 2", 1, "1 < 2 and 3 > 2"},
        {"plain", 1, "plain"},
        {"", 1, ""},
    };
    for (const Case& c : cases) {
        Params p{{"v", c.value}};
        EXPECT_EQ(BSCheckXSS(p), c.result) << c.value;
        EXPECT_EQ(p["v"], c.stored) << c.value;
    }
    Params empty;
    EXPECT_EQ(BSCheckXSS(empty), 1u);
}

TEST_F(XssFilterTest, CallbackAndWalkOrder) {
    Params cb{{"callbackparam", "cb<x"}, {"z", "<b>"}};
    EXPECT_EQ(BSCheckXSS(cb), 0u);
    EXPECT_EQ(cb["callbackparam"], "1111");
    EXPECT_EQ(cb["z"], "<b>");  // not examined after the refusal

    Params okCb{{"callbackparam", "<"}, {"CallbackParam", "jq_1"}};
    okCb["callbackparam"] = "jq_123";
    okCb["CallbackParam"] = "<b>";  // other case: an ordinary parameter
    EXPECT_EQ(BSCheckXSS(okCb), 0u);
    EXPECT_EQ(okCb["CallbackParam"], "&lt;b&gt;");
    EXPECT_EQ(okCb["callbackparam"], "jq_123");

    Params order{{"a", "<b>"}, {"b", "<i>"}};
    EXPECT_EQ(BSCheckXSS(order), 0u);
    EXPECT_EQ(order["a"], "&lt;b&gt;");
    EXPECT_EQ(order["b"], "<i>");
}

TEST_F(XssFilterTest, SameResultsAsPlainScanOnRandomMaps) {
    std::mt19937 rng(7);
    const std::vector<std::string> pieces = {"<",      ">",      " ",
                                             "script", "ONLOAD", "a",
                                             "B",      "<meta>", "< s c r i p t >",
                                             "x",      "&",      "\xe4\xb8\xad",
                                             "\x80",   "="};
    int refusedSeen = 0;
    for (int i = 0; i < 20000; ++i) {
        Params p;
        for (int k = static_cast<int>(rng() % 4); k > 0; --k) {
            std::string& value =
                p[rng() % 8 == 0 ? "callbackparam" : std::string(1, 'a' + rng() % 5)];
            for (int j = static_cast<int>(rng() % 6); j > 0; --j)
                value += pieces[rng() % pieces.size()];
            for (int j = rng() % 5 == 0 ? 8 : 0; j > 0; --j)  // raw bytes, any value
                value += static_cast<char>(rng());
        }
        Params q = p;
        const uint32_t got = BSCheckXSS(p);
        ASSERT_EQ(got, ReferenceCheck(q)) << i;
        ASSERT_EQ(p, q) << i;
        refusedSeen += got == 0;
    }
    EXPECT_GT(refusedSeen, 1000);  // the random maps exercise both outcomes
}

}  // namespace
