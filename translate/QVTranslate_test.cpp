// Tests of libQVTranslate: thread bindings, fallback to the default language, unknown ids,
// the shipped catalogs, and concurrent look-ups. Runs from a private installation tree.
#include "translate/QVTranslate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TestTree.h"

namespace {

const char kExpiredId[] = "IDS_5278a29d8117314fdb88782b73c34386";
const char kExpiredZh[] = "请求已过期，超时(秒),当前时间,签发时间:";
const char kExpiredEn[] = "The request token has expired (overrun seconds, now, issued): ";

std::string Shipped(const std::string& name) {
    return ws_test::ReadFile(std::string(WS_LANG_SOURCE_DIR) + "/" + name);
}

// The first capture of every match of `pattern` in `text`.
std::set<std::string> Matches(const std::string& text, const char* pattern) {
    std::set<std::string> found;
    const std::regex re(pattern);
    for (std::sregex_iterator it(text.begin(), text.end(), re), end; it != end; ++it)
        found.insert((*it)[1]);
    return found;
}
// The ids of one catalog text, read independently of the library's parser.
std::set<std::string> IdsOf(const std::string& text) {
    return Matches(text, "(?:^|\n)([^#\\[\r\n][^=\r\n]*)=");
}

class QVTranslateTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        const std::string lang = ws_test::InstallRoot() + "/middle/lang/";
        ASSERT_FALSE(ws_test::InstallRoot().empty());
        // The shipped catalogs, plus test languages; all written before the first look-up,
        // because the library reads its catalogs once.
        ws_test::WriteFile(lang + "zh.lang", Shipped("zh.lang") +
                                                 "ONLY_ZH=只有中文\n"
                                                 "[console]\nCON_1=控制台一\n");
        ws_test::WriteFile(lang + "en.lang", Shipped("en.lang") +
                                                 "\r\n# comment=not an entry\n"
                                                 "TRAILING=ends in a blank \r\n"
                                                 "[console]\nCON_1=console one\n");
        // Saved with a byte-order mark, as some editors do: the first id must still be found.
        ws_test::WriteFile(lang + "xx.lang", std::string("\xEF\xBB\xBF") + "ONLY_XX=xx text\n");
        ws_test::WriteFile(lang + "notes.txt", "ONLY_ZH=not a catalog\n");
    }
    void TearDown() override { qv_tipsTranslate_typeInsert(qv_tipsThreadKey(), ""); }
    static void Bind(const std::string& lang) {
        qv_tipsTranslate_typeInsert(qv_tipsThreadKey(), lang);
    }
};

TEST_F(QVTranslateTest, BoundLanguageThenDefaultThenEmpty) {
    const struct {
        const char* lang;
        const char* id;
        const char* domain;
        const char* want;
    } cases[] = {
        {"", kExpiredId, "default", kExpiredZh},  // an unbound thread: the default language
        {"en", kExpiredId, "default", kExpiredEn},
        {"en", kExpiredId, "", kExpiredEn},
        {"en", "TRAILING", "default", "ends in a blank "},
        {"en", "ONLY_ZH", "default", "只有中文"},  // fallback
        {"en", "IDS_unknown", "default", ""},
        {"en", "# comment", "default", ""},
        {"en", "ONLY_XX", "default", ""},  // other languages are not searched
        {"EN", "CON_1", "console", "console one"},
        {"en-US", "CON_1", "console", "console one"},
        {"en_gb", "CON_1", "console", "console one"},
        {"zh-CN", "CON_1", "console", "控制台一"},
        {"fr", "CON_1", "console", "控制台一"},  // no French catalog: default
        {"en", "CON_1", "default", ""},          // other domain
        {"xx", "ONLY_XX", "default", "xx text"},
        {"xx", kExpiredId, "default", kExpiredZh},
    };
    for (const auto& c : cases) {
        Bind(c.lang);
        EXPECT_EQ(qv_tipsThreadLanguage(), c.lang);
        EXPECT_EQ(qv_tipsTranslate2(c.id, c.domain), c.want) << c.lang << " " << c.id;
    }
}

TEST_F(QVTranslateTest, ThreadKeyMatchesPthreadSelf) {
    EXPECT_EQ(qv_tipsThreadKey(), std::to_string(static_cast<unsigned>(pthread_self())));
    std::string other;
    std::thread([&other] { other = qv_tipsThreadKey(); }).join();
    EXPECT_NE(other, qv_tipsThreadKey());
}

TEST_F(QVTranslateTest, ShippedCatalogsCoverEveryIdTheSourcesUse) {
    const std::set<std::string> zh = IdsOf(Shipped("zh.lang"));
    const std::set<std::string> en = IdsOf(Shipped("en.lang"));
    EXPECT_EQ(zh, en);
    EXPECT_TRUE(zh.count(kExpiredId));
    // Every message id written in the sources of the library and the console.
    namespace fs = std::filesystem;
    const fs::path root = fs::path(WS_LANG_SOURCE_DIR).parent_path().parent_path();
    int filesSeen = 0;
    for (const char* dir : {"common", "session", "protect", "web", "db", "manage", "console"}) {
        if (!fs::exists(root / dir))
            continue;
        for (const auto& e : fs::recursive_directory_iterator(root / dir)) {
            const std::string ext = e.path().extension().string();
            if (!e.is_regular_file() || (ext != ".cpp" && ext != ".h"))
                continue;
            if (e.path().filename().string().find("_test") != std::string::npos)
                continue;
            ++filesSeen;
            const std::string text = ws_test::ReadFile(e.path().string());
            for (const std::string& id : Matches(text, "(IDS_[0-9a-fA-F]{32})")) {
                EXPECT_TRUE(zh.count(id)) << id << " in " << e.path();
            }
        }
    }
    EXPECT_GT(filesSeen, 0);
}

TEST_F(QVTranslateTest, ConcurrentBindingsStayPerThread) {
    const std::vector<std::pair<std::string, std::string>> langs = {
        {"en", kExpiredEn}, {"zh", kExpiredZh}, {"xx", kExpiredZh}, {"", kExpiredZh}};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                const auto& l = langs[(t + i) % langs.size()];
                qv_tipsTranslate_typeInsert(qv_tipsThreadKey(), l.first);
                if (qv_tipsTranslate2(kExpiredId, "default") != l.second)
                    ++wrong;
                if (qv_tipsThreadLanguage() != l.first)
                    ++wrong;
            }
            qv_tipsTranslate_typeInsert(qv_tipsThreadKey(), "");
        });
    }
    for (auto& th : threads)
        th.join();
    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
