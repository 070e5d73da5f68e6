// Tests of the CBSWork language cookie, document path and text conversions (with the kept
// encoding pairs).
#include <gtest/gtest.h>

#include <string>

#include "web/BSWork.h"

namespace {

class BSWorkTextTest : public ::testing::Test {
protected:
    CBSWork work;
    st_wh_head head;
    st_wh_info info;
    void SetUp() override {
        info.head = &head;
        info.connId = this;
    }
};

// The cookie rule itself is tested in session/CookieRule_test.cpp; here the name asked for,
// the kept first-occurrence rule through this reader, and the document path built from it.
TEST_F(BSWorkTextTest, LanguageCookieAndDocPath) {
    info.getDocPath = [](void*) -> const char* { return "/srv/hdoc"; };
    const struct {
        const char* cookie;
        const char* lan;
    } cases[] = {
        {"qvsessionid=s; qv_lan=en", "en"},
        {"xqv_lan=fr; qv_lan=en", "fr"},  // the first occurrence of the bare name counts
        {"a=1; qvsessionid=s", ""},
    };
    for (const auto& c : cases) {
        head.cookie = c.cookie;
        EXPECT_EQ(work.GetLan(&info), c.lan) << c.cookie;
        EXPECT_EQ(work.GetLanDocPath(&info), std::string("/srv/hdoc/") + c.lan) << c.cookie;
    }
    EXPECT_EQ(work.GetLan(nullptr), "");
}

TEST_F(BSWorkTextTest, Conversions) {
    const std::string zhUtf8 = "\xe4\xb8\xad\xe6\x96\x87";  // two Chinese characters
    const std::string zhGbk = "\xd6\xd0\xce\xc4";
    std::string out;
    EXPECT_TRUE(work.UTF8ToANSI(zhUtf8.c_str(), static_cast<int>(zhUtf8.size()), out));
    EXPECT_EQ(out, zhGbk);
    EXPECT_TRUE(work.UTF8ToANSI(zhUtf8.c_str(), 3, out));  // the given length counts
    EXPECT_EQ(out, "\xd6\xd0");
    EXPECT_TRUE(work.ANSIToUTF8(zhGbk.c_str(), out));
    EXPECT_EQ(out, zhUtf8);

    std::wstring wide;
    EXPECT_TRUE(
        work.UTF8ToUnicode("\xe4\xb8\xad"
                           "a\xf0\x9f\x98\x80",
                           wide));
    EXPECT_EQ(wide, std::wstring(L"\u4e2da\U0001F600"));
    EXPECT_TRUE(work.ANSIToUnicode(zhGbk.c_str(), wide));
    EXPECT_EQ(wide, std::wstring(L"\u4e2d\u6587"));

    // Invalid input: false, output untouched.
    out = "keep";
    EXPECT_FALSE(work.UTF8ToANSI("a\xff\xfe", 3, out));
    EXPECT_EQ(out, "keep");
    wide = L"keep";
    EXPECT_FALSE(work.UTF8ToUnicode("\xc3", wide));
    EXPECT_EQ(wide, L"keep");
    EXPECT_FALSE(work.UTF8ToANSI(nullptr, 1, out));
    EXPECT_FALSE(work.UnicodeToUTF8(nullptr, out));
    EXPECT_FALSE(work.ANSIToUnicode(nullptr, wide));
}

// The two wide-text sources are read as "gbk", as many bytes as the text has characters. Kept
// on purpose; these fail if someone converts from a wide encoding instead.
TEST_F(BSWorkTextTest, WideSourcesReadAsGbkBytes) {
    std::string out;
    EXPECT_TRUE(work.UnicodeToUTF8(L"AB", out));
    EXPECT_EQ(out, "A");  // bytes 'A', 0: the text ends at the zero byte
    EXPECT_TRUE(work.UnicodeToUTF8(L"\u4e2d", out));
    EXPECT_EQ(out, "-");  // the low byte of U+4E2D is '-'
    EXPECT_TRUE(work.UnicodeToANSI(L"AB", out));
    EXPECT_EQ(out,
              "\xff\xfe"
              "A");  // UTF-16 with its byte-order mark, cut at the first zero
}

}  // namespace
