// Tests of handler registration and path look-up (exact paths, directories, module prefixes).
#include "host/Router.h"

#include <gtest/gtest.h>

namespace {

// Handlers that answer their own number.
const WhHandler H1 = [](st_wh_info*, void*) { return 1; };
const WhHandler H2 = [](st_wh_info*, void*) { return 2; };
const WhHandler H3 = [](st_wh_info*, void*) { return 3; };
const WhHandler H4 = [](st_wh_info*, void*) { return 4; };

class RouterTest : public ::testing::Test {
protected:
    wh::Router router;
    int Hit(const std::string& path) {
        const wh::Route* r = router.Find(path);
        return r == nullptr ? 0 : r->handler(nullptr, nullptr);
    }
};

TEST_F(RouterTest, ExactPathsAndDirectories) {
    ASSERT_EQ(0, router.Add("c", "/console", "login", H1, nullptr));
    ASSERT_EQ(0, router.Add("c", "/console", "", H2, nullptr));
    ASSERT_EQ(0, router.Add("c", "/console", "files/", H3, nullptr));
    ASSERT_EQ(0, router.Add("c", "/console", "files/deep/", H4, nullptr));
    const struct {
        const char* path;
        int handler;
    } kCases[] = {
        {"/console/login", 1},
        {"/console", 2},
        {"/console/", 0},
        {"/console/login/x", 0},
        {"/console/loginx", 0},
        {"/console/files", 3},
        {"/console/files/", 3},
        {"/console/files/a", 3},
        {"/console/files/a/b", 3},
        {"/console/files/deep/x", 4},
        {"/console/filesx", 0},
        {"/other", 0},
        {"/", 0},
    };
    for (const auto& k : kCases)
        EXPECT_EQ(k.handler, Hit(k.path)) << k.path;
}

TEST_F(RouterTest, RootModuleAndRefusals) {
    ASSERT_EQ(0, router.Add("r", "", "", H1, nullptr));
    ASSERT_EQ(0, router.Add("r", "", "/api/", H2, nullptr));  // leading slash ignored
    EXPECT_EQ(1, Hit("/"));
    EXPECT_EQ(2, Hit("/api/x"));
    EXPECT_EQ(0, Hit("/index.html"));
    EXPECT_EQ(-1, router.Add("r", "", "api/", H3, nullptr));    // taken
    EXPECT_EQ(-1, router.Add("r", "", "x", nullptr, nullptr));  // no handler
    EXPECT_EQ(-1, router.Add("r", "", nullptr, H3, nullptr));
    EXPECT_EQ(2, Hit("/api/x"));
}

TEST_F(RouterTest, MissingModuleFileIsAnError) {
    wh::HostConfig config;
    config.installPath = "/nonexistent";
    config.modules.push_back({"m", "libnone.so", "/nonexistent/lib/libnone.so", "/m"});
    WhRegistry services{};
    std::string error;
    EXPECT_FALSE(router.LoadModules(config, services, error));
    EXPECT_NE(std::string::npos, error.find("cannot load module \"m\"")) << error;
    EXPECT_TRUE(router.MountPoints().empty());
}

}  // namespace
