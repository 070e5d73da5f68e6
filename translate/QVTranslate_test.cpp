// Tests of libQVTranslate: thread bindings, fallback to the default language, unknown ids,
// the shipped catalogs, and concurrent look-ups. Runs from a private installation tree.
#include "translate/QVTranslate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TestTree.h"

namespace {

const char kExpiredId[] = "IDS_5278a29d8117314fdb88782b73c34386";

std::string Shipped(const std::string& name) {
    return ws_test::ReadFile(std::string(WS_LANG_SOURCE_DIR) + "/" + name);
}

// The ids of one catalog text, read independently of the library's parser.
std::set<std::string> IdsOf(const std::string& text) {
    std::set<std::string> ids;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#' || line[0] == '[')
            continue;
        auto eq = line.find('=');
        if (eq != std::string::npos)
            ids.insert(line.substr(0, eq));
    }
    return ids;
}

// Every "IDS_" followed by 32 hexadecimal digits in a source text.
std::vector<std::string> MessageIdsIn(const std::string& text) {
    std::vector<std::string> ids;
    for (size_t p = text.find("IDS_"); p != std::string::npos; p = text.find("IDS_", p + 4)) {
        if (p + 36 > text.size())
            break;
        const std::string id = text.substr(p, 36);
        if (id.find_first_not_of("0123456789abcdefABCDEF", 4) == std::string::npos) {
            ids.push_back(id);
        }
    }
    return ids;
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

TEST_F(QVTranslateTest, UnboundThreadGetsDefaultLanguage) {
    EXPECT_EQ(qv_tipsThreadLanguage(), "");
    EXPECT_EQ(qv_tipsTranslate2(kExpiredId, "default"), "请求已过期，超时(秒),当前时间,签发时间:");
}

TEST_F(QVTranslateTest, BoundLanguageThenDefaultThenEmpty) {
    Bind("en");
    EXPECT_EQ(qv_tipsTranslate2(kExpiredId, "default"),
              "The request token has expired (overrun seconds, now, issued): ");
    EXPECT_EQ(qv_tipsTranslate2("TRAILING", "default"), "ends in a blank ");
    EXPECT_EQ(qv_tipsTranslate2("ONLY_ZH", "default"), "只有中文");  // fallback
    EXPECT_EQ(qv_tipsTranslate2("IDS_unknown", "default"), "");
    EXPECT_EQ(qv_tipsTranslate2("# comment", "default"), "");
    EXPECT_EQ(qv_tipsTranslate2("ONLY_XX", "default"), "");  // other languages are not searched
}

TEST_F(QVTranslateTest, LanguageCodesAndDomains) {
    struct Case {
        const char* lang;
        const char* id;
        const char* domain;
        const char* want;
    } cases[] = {
        {"EN", "CON_1", "console", "console one"},
        {"en-US", "CON_1", "console", "console one"},
        {"en_gb", "CON_1", "console", "console one"},
        {"zh-CN", "CON_1", "console", "控制台一"},
        {"fr", "CON_1", "console", "控制台一"},  // no French catalog: default
        {"en", "CON_1", "default", ""},          // other domain
        {"en", kExpiredId, "", "The request token has expired (overrun seconds, now, issued): "},
        {"xx", "ONLY_XX", "default", "xx text"},
        {"xx", kExpiredId, "default", "请求已过期，超时(秒),当前时间,签发时间:"},
    };
    for (const Case& c : cases) {
        Bind(c.lang);
        EXPECT_EQ(qv_tipsTranslate2(c.id, c.domain), c.want) << c.lang << " " << c.id;
    }
    Bind("");
    EXPECT_EQ(qv_tipsThreadLanguage(), "");
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
            for (const std::string& id : MessageIdsIn(text)) {
                EXPECT_TRUE(zh.count(id)) << id << " in " << e.path();
            }
        }
    }
    EXPECT_GT(filesSeen, 0);
}

TEST_F(QVTranslateTest, ConcurrentBindingsStayPerThread) {
    const std::vector<std::pair<std::string, std::string>> langs = {
        {"en", "The request token has expired (overrun seconds, now, issued): "},
        {"zh", "请求已过期，超时(秒),当前时间,签发时间:"},
        {"xx", "请求已过期，超时(秒),当前时间,签发时间:"},
        {"", "请求已过期，超时(秒),当前时间,签发时间:"}};
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
