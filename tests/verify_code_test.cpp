// Verification codes on the embedded database engine of a private installation: the codes
// seeded under ccubase "Config\VerifyCode" are loaded in lower case, handed out by number and
// accepted once, through CWebTokenColl and through the exported calls.
#include <gtest/gtest.h>

#include <string>

#include "bsapi/bsapi.h"
#include "common/QvUtil.h"
#include "protect/WebToken.h"
#include "session/SessionApi.h"
#include "tests/support/TestTree.h"

namespace {

// Seeds codes the way the service's tools do: sub keys of Config\VerifyCode.
void Seed(std::initializer_list<const char*> codes) {
    void* h = BS_INVALID_HANDLE;
    const auto port = static_cast<unsigned short>(CQvUtil::GetDBPort());
    ASSERT_EQ(bs_treedb_open(h, "Config", nullptr, "", 0x80000, "ccubase", "127.0.0.1", port), 0);
    ASSERT_EQ(bs_treedb_insert_subkey(h, "VerifyCode", BS_INSERT_ACCEPT_EXISTING), 0);
    for (const char* code : codes) {
        const std::string key = std::string("VerifyCode\\") + code;
        ASSERT_EQ(bs_treedb_insert_subkey(h, key.c_str(), BS_INSERT_ACCEPT_EXISTING), 0);
    }
    bs_close_handle(h);
}

TEST(VerifyCodeTest, CodesAreLoadedHandedOutByNumberAndAcceptedOnce) {
    ws_test::WriteFile(ws_test::InstallRoot() + "/middle/Conf/middle.ini",
                       "[safe]\ncheckverifycode=1\n");
    CWebTokenColl empty;
    empty.LoadVerifyCode();  // no VerifyCode key yet: the open fails, the list stays empty
    EXPECT_EQ(empty.GetVerifyCodeCount(), 0u);
    EXPECT_EQ(empty.GetVerifyCodePath("form", 1), "");
    EXPECT_FALSE(empty.CheckVerifyCode("form", "")) << "nothing was recorded for the form";

    ASSERT_NO_FATAL_FAILURE(Seed({"Ab12", "zz99"}));
    CWebTokenColl coll;
    coll.LoadVerifyCode();
    ASSERT_EQ(coll.GetVerifyCodeCount(), 2u);
    const struct {
        int n;
        const char* code;
    } picks[] = {{0, "ab12"}, {3, "zz99"}, {4, "ab12"}, {-1, "zz99"}, {-2, "ab12"}};
    for (const auto& p : picks)
        EXPECT_EQ(coll.GetVerifyCodePath("f", p.n), p.code) << p.n;
    EXPECT_EQ(coll.GetVerifyCodePath("login", 1), "zz99");
    EXPECT_FALSE(coll.CheckVerifyCode("login", "ZZ99")) << "no case folding of the typed code";
    EXPECT_FALSE(coll.CheckVerifyCode("login", "ab12"));
    EXPECT_TRUE(coll.CheckVerifyCode("login", "zz99")) << "a wrong try keeps the code";
    EXPECT_FALSE(coll.CheckVerifyCode("login", "zz99")) << "a code is accepted once";
    EXPECT_FALSE(coll.CheckVerifyCode("other-form", "zz99"));
    // A second hand-out for the same form replaces the first code.
    EXPECT_EQ(coll.GetVerifyCodePath("again", 0), "ab12");
    EXPECT_EQ(coll.GetVerifyCodePath("again", 1), "zz99");
    EXPECT_FALSE(coll.CheckVerifyCode("again", "ab12"));
    EXPECT_TRUE(coll.CheckVerifyCode("again", "zz99"));
    coll.LoadVerifyCode();
    EXPECT_EQ(coll.GetVerifyCodeCount(), 4u) << "loading appends";

    // The exported calls use the codes loaded at start-up, in lower case.
    ASSERT_NO_FATAL_FAILURE(Seed({"Q7"}));
    BSInitSession();
    std::string code = "unchanged";
    EXPECT_TRUE(BSGetVerifyCode("page-1", 5, code));
    EXPECT_TRUE(code == "q7" || code == "ab12" || code == "zz99") << code;
    EXPECT_FALSE(BSCheckVerifyCode("page-1", "wrong"));
    EXPECT_TRUE(BSCheckVerifyCode("page-1", code));
    EXPECT_FALSE(BSCheckVerifyCode("page-1", code));
    EXPECT_TRUE(BSWhetherCheckVerifyCode());
}

}  // namespace
