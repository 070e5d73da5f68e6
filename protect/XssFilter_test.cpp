// Tests of BSCheckXSS: the listed cases (the rules and every path of the scan for tags), the tag
// list, concurrent first use, the callback parameter and the walk order.
#include "protect/XssFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace {

using Params = std::map<std::string, std::string>;

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
        // The scan over the "<" of a value: a "<" before the tag's own, a second "<" before the
        // first ">", a tag after a pair that is none, a ">" first, no ">" at all.
        {"x<<script>", 0, "x&lt;&lt;script&gt;"},
        {"x<a<meta>y", 0, "x&lt;a&lt;meta&gt;y"},
        {"a<b>c<Meta>", 0, "a&lt;b&gt;c&lt;Meta&gt;"},
        {"x>a<i>b<onload >", 0, "x&gt;a&lt;i&gt;b&lt;onload &gt;"},
        {"x<script", 1, "x<script"},
        {"x<scr\tipt>", 1, "x<scr\tipt>"},  // only blanks are removed
        {"\xe4<meta>x", 0, "\xe4&lt;meta&gt;x"},
        {"x<onunload>", 0, "x&lt;onunload&gt;"},  // the last tag of the list
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

}  // namespace
