// Tests of the tree-database calls, written against the API only so every engine runs them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "bsapi/bsapi.h"
#include "tests/support/PgServer.h"
#include "tests/support/TestTree.h"

using tarn::VariableData;

class TreeTest : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ws_test::UseEngine(GetParam()));
        static unsigned short next = 21000;
        m_nPort = next++;  // every test its own server, so no test sees another's data
    }
    void TearDown() override {
        if (m_h != BS_INVALID_HANDLE)
            bs_close_handle(m_h);
    }
    int Open(const char* tree, const char* main, const char* sub, unsigned flags = BS_OPEN_CREATE) {
        return bs_treedb_open(m_h, main, sub, "", flags, tree, "127.0.0.1", m_nPort);
    }
    std::list<std::string> SubKeys() {
        std::list<std::string> names;
        EXPECT_EQ(bs_treedb_get_subkeys(m_h, names), BS_OK);
        return names;
    }
    void Put(const char* name, const VariableData& v) {
        ASSERT_EQ(bs_treedb_insert_property(m_h, name, v, true), BS_OK) << name;
    }
    int Get(const char* name, VariableData& v) { return bs_treedb_get_property(m_h, name, v); }
    int GetInt(const char* name) {
        VariableData v;
        int rc = Get(name, v);
        return rc == BS_OK ? static_cast<int>(v) : -rc;
    }
    // Another connection of this test's server, on the main key "m" of `tree`.
    int OpenOther(void*& h, const char* tree) {
        return bs_treedb_open(h, "m", nullptr, "", 0, tree, "127.0.0.1", m_nPort);
    }

    unsigned short m_nPort = 0;
    void* m_h = BS_INVALID_HANDLE;
};

TEST_P(TreeTest, OpenCodesForMissingTreeMainKeyAndSubKey) {
    EXPECT_EQ(Open("t", "main", nullptr, 0), BS_ERR_NO_TREE);
    EXPECT_EQ(m_h, BS_INVALID_HANDLE);
    ASSERT_EQ(Open("t", "main", ""), BS_OK);
    EXPECT_EQ(Open("t", "main", ""), BS_ERR_OTHER_NAMES);  // already open
    bs_close_handle(m_h);
    EXPECT_EQ(Open("t", "other", nullptr, 0), BS_ERR_NO_MAINKEY);
    EXPECT_EQ(Open("t", "main", "a\\b", BS_OPEN_CREATE),
              BS_ERR_NO_SUBKEY);  // sub keys only by insert
    ASSERT_EQ(Open("t", "main", nullptr, 0), BS_OK);
    EXPECT_EQ(bs_treedb_open_subkey(m_h, "nothere", 0), BS_ERR_NO_SUBKEY);
    std::list<std::string> mains;
    EXPECT_EQ(bs_treedb_query_mainkeys(mains, "t", "127.0.0.1", m_nPort), BS_OK);
    EXPECT_EQ(mains, std::list<std::string>({"main"}));
    EXPECT_EQ(bs_treedb_query_mainkeys(mains, "absent", "127.0.0.1", m_nPort), BS_ERR_NO_TREE);
    EXPECT_EQ(bs_treedb_create_newfile("t", "127.0.0.1", m_nPort), BS_ERR_EXISTS);
    EXPECT_EQ(bs_treedb_create_newfile("t2", "127.0.0.1", m_nPort), BS_OK);
    EXPECT_EQ(bs_treedb_query_mainkeys(mains, "t2", "127.0.0.1", m_nPort), BS_OK);
    EXPECT_TRUE(mains.empty());
}

TEST_P(TreeTest, InvalidNamesGiveCode189) {
    const std::string longName(2000, 'k');
    struct Case {
        const char* tree;
        const char* main;
        const char* sub;
    } cases[] = {
        {"", "m", nullptr},
        {nullptr, "m", nullptr},
        {"t", "", nullptr},
        {"t", nullptr, nullptr},
        {"t", "a\\b", nullptr},
        {"t", "m", "\\a"},
        {"t", "m", "a\\"},
        {"t", "m", "a\\\\b"},
        {"t", "m", longName.c_str()},
        {longName.c_str(), "m", nullptr},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Open(c.tree, c.main, c.sub), BS_ERR_BAD_NAME) << (c.tree ? c.tree : "null");
        EXPECT_EQ(m_h, BS_INVALID_HANDLE);
    }
    ASSERT_EQ(Open("t", "m", nullptr), BS_OK);
    VariableData v;
    EXPECT_EQ(bs_treedb_insert_subkey(m_h, "", 0), BS_ERR_BAD_NAME);
    EXPECT_EQ(bs_treedb_insert_subkey(m_h, "a\\\\b", 0), BS_ERR_BAD_NAME);
    EXPECT_EQ(bs_treedb_rename_subkey(m_h, "a", "x\\y"), BS_ERR_BAD_NAME);
    EXPECT_EQ(bs_treedb_insert_property(m_h, "", v, true), BS_ERR_BAD_NAME);
    EXPECT_EQ(bs_treedb_get_property(m_h, nullptr, v), BS_ERR_BAD_NAME);
    EXPECT_EQ(bs_treedb_insert_property(m_h, longName.c_str(), v, true), BS_ERR_BAD_NAME);
}

TEST_P(TreeTest, SubtreeRenamedAndDeletedWithItsPropertiesOnly) {
    ASSERT_EQ(Open("t", "m", nullptr), BS_OK);
    // Neighbours whose paths sort right beside the subtree "a": they must survive both changes.
    for (const char* k : {"a", "a\\b", "a\\b\\c", "a\\b2", "a]", "ab", "a[", "z0"}) {
        ASSERT_EQ(bs_treedb_insert_subkey(m_h, k, 0), BS_OK) << k;
        ASSERT_EQ(bs_treedb_open_subkey(m_h, k, 0), BS_OK);
        Put("path", VariableData(k));
        ASSERT_EQ(bs_treedb_open_subkey(m_h, nullptr, 0), BS_OK);
    }
    EXPECT_EQ(bs_treedb_rename_subkey(m_h, "a", "ab"), BS_ERR_EXISTS);
    EXPECT_EQ(bs_treedb_rename_subkey(m_h, "nothere", "q"), BS_ERR_NO_KEY);
    ASSERT_EQ(bs_treedb_rename_subkey(m_h, "a", "z"), BS_OK);
    EXPECT_EQ(bs_treedb_open_subkey(m_h, "a\\b", 0), BS_ERR_NO_SUBKEY);
    ASSERT_EQ(bs_treedb_open_subkey(m_h, "z\\b\\c", 0), BS_OK);
    VariableData v;
    ASSERT_EQ(Get("path", v), BS_OK);
    EXPECT_EQ(v.GetText(), "a\\b\\c");
    ASSERT_EQ(bs_treedb_open_subkey(m_h, "z", 0), BS_OK);
    EXPECT_EQ(SubKeys(), std::list<std::string>({"b", "b2"}));
    ASSERT_EQ(bs_treedb_rename_key(m_h, "y"), BS_OK);  // the handle follows its key
    std::string tree, main, key, sub;
    unsigned flags = 0, port = 0;
    ASSERT_EQ(bs_treedb_query_handle(m_h, tree, main, key, flags, sub, port), BS_OK);
    EXPECT_EQ(sub, "y");
    EXPECT_EQ(port, m_nPort);
    ASSERT_EQ(bs_treedb_open_subkey(m_h, nullptr, 0), BS_OK);
    EXPECT_EQ(bs_treedb_delete_subkey(m_h, "z"), BS_ERR_NO_KEY);
    ASSERT_EQ(bs_treedb_delete_subkey(m_h, "y"), BS_OK);
    EXPECT_EQ(SubKeys(), std::list<std::string>({"a[", "a]", "ab", "z0"}));
    for (const char* k : {"a]", "ab", "a[", "z0"}) {
        ASSERT_EQ(bs_treedb_open_subkey(m_h, k, 0), BS_OK);
        ASSERT_EQ(Get("path", v), BS_OK) << k;
        EXPECT_EQ(v.GetText(), k);
    }
    // A re-created key of the same name starts without the old properties.
    ASSERT_EQ(bs_treedb_open_subkey(m_h, nullptr, 0), BS_OK);
    ASSERT_EQ(bs_treedb_insert_subkey(m_h, "y", 0), BS_OK);
    ASSERT_EQ(bs_treedb_insert_subkey(m_h, "y\\b", 0), BS_OK);
    ASSERT_EQ(bs_treedb_open_subkey(m_h, "y\\b", 0), BS_OK);
    EXPECT_EQ(Get("path", v), BS_ERR_NO_KEY);
    ASSERT_EQ(bs_treedb_delete_key(m_h), BS_OK);  // stands on "y" afterwards
    ASSERT_EQ(bs_treedb_query_handle(m_h, tree, main, key, flags, sub, port), BS_OK);
    EXPECT_EQ(sub, "y");
    EXPECT_TRUE(SubKeys().empty());
}

TEST_P(TreeTest, PropertiesKeepTypeAndValueAtTheLimits) {
    ASSERT_EQ(Open("t", "m", nullptr), BS_OK);
    VariableData t;
    t.PutTimeValue(std::numeric_limits<long>::min());
    std::map<std::string, VariableData> values = {
        {"s", VariableData(std::string("\0bin\xff", 5))},
        {"e", VariableData("")},
        {"i16", VariableData(static_cast<short>(-32768))},
        {"i32", VariableData(std::numeric_limits<int>::max())},
        {"i64", VariableData(std::numeric_limits<long long>::min())},
        {"c", VariableData(static_cast<char>(-128))},
        {"d", VariableData(std::numeric_limits<double>::max())},
        {"dn", VariableData(std::numeric_limits<double>::quiet_NaN())},
        {"dinf", VariableData(-std::numeric_limits<double>::infinity())},
        {"f", VariableData(std::numeric_limits<float>::denorm_min())},
        {"t", t},
        {"u8", VariableData(static_cast<unsigned char>(255))},
        {"u32", VariableData(std::numeric_limits<unsigned int>::max())},
        {"u64", VariableData(std::numeric_limits<unsigned long long>::max())},
        {"empty", VariableData()},
    };
    for (const auto& kv : values)
        Put(kv.first.c_str(), kv.second);
    for (const auto& kv : values) {
        VariableData v;
        ASSERT_EQ(Get(kv.first.c_str(), v), BS_OK) << kv.first;
        EXPECT_EQ(v.GetType(), kv.second.GetType()) << kv.first;
        if (kv.first == "dn") {
            EXPECT_TRUE(std::isnan(static_cast<double>(v)));
        } else {
            EXPECT_TRUE(v.Equals(kv.second)) << kv.first << " " << v.GetText();
        }
    }
    std::map<std::string, VariableData> all;
    ASSERT_EQ(bs_treedb_get_all_properties(m_h, all), BS_OK);
    EXPECT_EQ(all.size(), values.size());
    EXPECT_TRUE(all["u64"].Equals(values["u64"]));
}

// Names that trip pattern matching, range ends, quoting, encodings and letter case, as keys and
// as properties, and values of any bytes up to 1 MiB: each kept apart and byte for byte.
TEST_P(TreeTest, NamesAndValuesOfAnyBytesAreKeptApart) {
    const std::vector<std::string> names = {
        "[x]",          "100%", "a_b", "*?",    "\xe5\x90\x8d",
        "\xff\xfe\x80", "Key",  "key", "KEY",   "a]",
        "a[",           "'",    "\"",  "'; --", "x'); DELETE FROM bs_prop; --"};
    ASSERT_EQ(Open("odd[%]\xc3\xa9T'\"\\\xff", "M%[]'; DROP TABLE bs_key; --", nullptr), BS_OK);
    std::string big(1 << 20, '\0');
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>(i * 7 + i / 251);
    Put("big", VariableData(big));
    Put("\\", VariableData("backslash"));
    for (const std::string& n : names) {
        ASSERT_EQ(bs_treedb_insert_subkey(m_h, n.c_str(), 0), BS_OK) << n;
        ASSERT_EQ(bs_treedb_insert_subkey(m_h, (n + "\\" + n).c_str(), 0), BS_OK) << n;
        Put(n.c_str(), VariableData(std::string("\0", 1) + n + "\xc3("));
    }
    std::list<std::string> sorted(names.begin(), names.end());
    sorted.sort();
    EXPECT_EQ(SubKeys(), sorted);
    for (const std::string& n : names) {
        ASSERT_EQ(bs_treedb_open_subkey(m_h, (n + "\\" + n).c_str(), 0), BS_OK) << n;
        Put("owner", VariableData(n));
        EXPECT_TRUE(SubKeys().empty());
        ASSERT_EQ(bs_treedb_open_subkey(m_h, "", 0), BS_OK);
    }
    VariableData v;
    for (const std::string& n : names) {
        ASSERT_EQ(Get(n.c_str(), v), BS_OK) << n;
        EXPECT_EQ(v.GetText(), std::string("\0", 1) + n + "\xc3(");
        ASSERT_EQ(bs_treedb_open_subkey(m_h, (n + "\\" + n).c_str(), 0), BS_OK);
        ASSERT_EQ(Get("owner", v), BS_OK);
        EXPECT_EQ(v.GetText(), n);
        ASSERT_EQ(bs_treedb_open_subkey(m_h, "", 0), BS_OK);
    }
    ASSERT_EQ(Get("big", v), BS_OK);
    EXPECT_TRUE(v.GetText() == big);
    ASSERT_EQ(Get("\\", v), BS_OK);
    EXPECT_EQ(v.GetText(), "backslash");
    EXPECT_EQ(bs_treedb_open_subkey(m_h, "kEY", 0), BS_ERR_NO_SUBKEY);
    EXPECT_EQ(bs_treedb_insert_subkey(m_h, "Key", 0), BS_ERR_EXISTS);
    EXPECT_EQ(bs_treedb_insert_subkey(m_h, "Key", BS_INSERT_ACCEPT_EXISTING), BS_OK);
    EXPECT_EQ(bs_treedb_insert_subkey(m_h, "missing\\child", 0), BS_ERR_NO_SUBKEY);
}

TEST_P(TreeTest, PropertyEditDeleteRenameCodes) {
    ASSERT_EQ(Open("t", "m", nullptr), BS_OK);
    EXPECT_EQ(GetInt("x"), -BS_ERR_NO_KEY);
    EXPECT_EQ(bs_treedb_edit_property(m_h, "x", VariableData(1)), BS_ERR_NO_KEY);
    EXPECT_EQ(bs_treedb_delete_property(m_h, "x"), BS_ERR_NO_KEY);
    EXPECT_EQ(bs_treedb_rename_property(m_h, "x", "y"), BS_ERR_NO_KEY);
    Put("x", VariableData(1));
    EXPECT_EQ(bs_treedb_insert_property(m_h, "x", VariableData(2), false), BS_ERR_EXISTS);
    EXPECT_EQ(GetInt("x"), 1);
    ASSERT_EQ(bs_treedb_edit_property(m_h, "x", VariableData("now text")), BS_OK);
    VariableData v;
    ASSERT_EQ(Get("x", v), BS_OK);
    EXPECT_EQ(v.GetType(), VariableData::VT_STRING);
    Put("y", VariableData(3));
    EXPECT_EQ(bs_treedb_rename_property(m_h, "x", "y"), BS_ERR_EXISTS);
    ASSERT_EQ(bs_treedb_rename_property(m_h, "x", "z"), BS_OK);
    std::list<std::string> names;
    ASSERT_EQ(bs_treedb_get_all_property_names(m_h, names), BS_OK);
    EXPECT_EQ(names, std::list<std::string>({"y", "z"}));
    ASSERT_EQ(bs_treedb_delete_property(m_h, "y"), BS_OK);
    // A map is written whole or not at all.
    std::map<std::string, VariableData> map = {{"a", VariableData(1)}, {"z", VariableData(9)}};
    EXPECT_EQ(bs_treedb_insert_properties(m_h, map, false), BS_ERR_EXISTS);
    EXPECT_EQ(GetInt("a"), -BS_ERR_NO_KEY);
    ASSERT_EQ(bs_treedb_insert_properties(m_h, map, true), BS_OK);
    EXPECT_EQ(GetInt("z"), 9);
    ASSERT_EQ(bs_treedb_delete_all_property(m_h), BS_OK);
    ASSERT_EQ(bs_treedb_get_all_property_names(m_h, names), BS_OK);
    EXPECT_TRUE(names.empty());
}

TEST_P(TreeTest, RolledBackTransactionLeavesNothing) {
    ASSERT_EQ(Open("t", "m", nullptr), BS_OK);
    EXPECT_EQ(bs_treedb_commit_transaction(m_h), BS_ERR_NO_TRANSACTION);
    EXPECT_EQ(bs_treedb_rollback_transaction(m_h), BS_ERR_NO_TRANSACTION);
    Put("kept", VariableData(1));
    ASSERT_EQ(bs_treedb_begin_transaction(m_h), BS_OK);
    EXPECT_EQ(bs_treedb_begin_transaction(m_h), BS_ERR_IN_TRANSACTION);
    Put("gone", VariableData(2));
    Put("kept", VariableData(3));
    ASSERT_EQ(bs_treedb_insert_subkey(m_h, "k", 0), BS_OK);
    ASSERT_EQ(bs_treedb_insert_subkey(m_h, "k\\j", 0), BS_OK);
    ASSERT_EQ(bs_treedb_delete_property(m_h, "kept"), BS_OK);
    ASSERT_EQ(bs_treedb_rollback_transaction(m_h), BS_OK);
    EXPECT_EQ(GetInt("gone"), -BS_ERR_NO_KEY);
    EXPECT_EQ(GetInt("kept"), 1);
    EXPECT_TRUE(SubKeys().empty());
    ASSERT_EQ(bs_treedb_begin_transaction(m_h), BS_OK);
    Put("committed", VariableData(4));
    ASSERT_EQ(bs_treedb_commit_transaction(m_h), BS_OK);
    EXPECT_EQ(GetInt("committed"), 4);
}

TEST_P(TreeTest, ContendingWriterGetsBusyAndTheFileStaysWhole) {
    ::setenv("BSAPI_BUSY_TIMEOUT_MS", "150", 1);
    ASSERT_EQ(Open("t", "m", nullptr), BS_OK);
    Put("n", VariableData(0));
    int toChild[2], toParent[2];
    ASSERT_EQ(pipe(toChild), 0);
    ASSERT_EQ(pipe(toParent), 0);
    pid_t pid = ws_test::ForkRun([&] {
        void* h = BS_INVALID_HANDLE;
        char c = 0;
        int rc = OpenOther(h, "t");
        rc = rc ? rc : bs_treedb_begin_transaction(h);
        rc = rc ? rc : bs_treedb_insert_property(h, "n", VariableData(1), true);
        if (write(toParent[1], &c, 1) != 1 || read(toChild[0], &c, 1) != 1)
            return 3;
        rc = rc ? rc : bs_treedb_commit_transaction(h);
        return rc == 0 ? 0 : 1;
    });
    char c = 0;
    ASSERT_EQ(read(toParent[0], &c, 1), 1);
    EXPECT_EQ(bs_treedb_insert_property(m_h, "n", VariableData(2), true), BS_ERR_BUSY);
    EXPECT_EQ(bs_treedb_begin_transaction(m_h), BS_ERR_BUSY);
    ASSERT_EQ(write(toChild[1], &c, 1), 1);
    EXPECT_EQ(ws_test::WaitExit(pid), 0);
    EXPECT_EQ(GetInt("n"), 1);
    Put("n", VariableData(5));
    EXPECT_EQ(GetInt("n"), 5);
    ::unsetenv("BSAPI_BUSY_TIMEOUT_MS");
}

TEST_P(TreeTest, HandleCodesForClosedForeignAndWrongKindHandles) {
    VariableData v;
    EXPECT_EQ(bs_treedb_get_property(m_h, "x", v), BS_ERR_CONN_CLOSED);
    void* null = nullptr;
    EXPECT_EQ(bs_treedb_get_property(null, "x", v), BS_ERR_CONN_CLOSED);
    int local = 0;
    void* foreign = &local;
    EXPECT_EQ(bs_treedb_get_property(foreign, "x", v), BS_ERR_BAD_HANDLE);
    EXPECT_EQ(bs_close_handle(foreign), BS_ERR_BAD_HANDLE);
    void* q = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_mq_open(q, "q", "", BS_MQ_OPEN_CREATE, 0, "127.0.0.1", m_nPort), BS_OK);
    EXPECT_EQ(bs_treedb_get_property(q, "x", v), BS_ERR_BAD_HANDLE);
    EXPECT_EQ(bs_handle_keep_live(q), BS_OK);
    EXPECT_EQ(bs_close_handle(q), BS_OK);
    EXPECT_EQ(q, BS_INVALID_HANDLE);
    EXPECT_EQ(bs_close_handle(q), BS_ERR_CONN_CLOSED);
    EXPECT_EQ(bs_handle_keep_live(q), BS_ERR_CONN_CLOSED);
}

// Names and values of any content give a code of the table and leave a tree that still reads back
// whole: every listed key opens and lists its own children.
TEST_P(TreeTest, ArbitraryNamesAndValuesGiveCodesNeverDamage) {
    ASSERT_EQ(Open("fuzz", "m", nullptr), BS_OK);
    std::mt19937 rng(20240611);
    const char alphabet[] = {'a', 'A', '\\', '%', '[', ']', '\xff', '_', ' ', '\'', '*'};
    auto name = [&]() {
        std::string n;
        int len = static_cast<int>(rng() % 5);
        for (int i = 0; i < len; ++i)
            n += alphabet[rng() % sizeof alphabet];
        return n;
    };
    const std::set<int> allowed = {BS_OK,           BS_ERR_NO_SUBKEY, BS_ERR_NO_KEY,
                                   BS_ERR_BAD_NAME, BS_ERR_EXISTS,    BS_ERR_NO_MAINKEY};
    std::string a, b;
    VariableData v;
    const std::vector<std::function<int()>> steps = {
        [&] { return bs_treedb_insert_subkey(m_h, a.c_str(), static_cast<int>(rng() % 3)); },
        [&] { return bs_treedb_open_subkey(m_h, a.c_str(), 0); },
        [&] { return bs_treedb_delete_subkey(m_h, a.c_str()); },
        [&] { return bs_treedb_rename_subkey(m_h, a.c_str(), b.c_str()); },
        [&] { return bs_treedb_insert_property(m_h, a.c_str(), VariableData(b), rng() % 2); },
        [&] { return bs_treedb_get_property(m_h, a.c_str(), v); },
        [&] { return bs_treedb_rename_property(m_h, a.c_str(), b.c_str()); },
        [&] { return bs_treedb_delete_property(m_h, a.c_str()); },
        [&] { return bs_treedb_open_subkey(m_h, nullptr, 0); },
    };
    for (int i = 0; i < 3000; ++i) {
        a = name();
        b = name();
        int rc = steps[rng() % steps.size()]();
        ASSERT_TRUE(allowed.count(rc)) << "step " << i << " code " << rc;
    }
    std::vector<std::string> pending = {""};
    size_t visited = 0;
    while (!pending.empty()) {
        std::string path = pending.back();
        pending.pop_back();
        ASSERT_EQ(bs_treedb_open_subkey(m_h, path.c_str(), 0), BS_OK) << path;
        std::map<std::string, VariableData> props;
        ASSERT_EQ(bs_treedb_get_all_properties(m_h, props), BS_OK);
        for (const std::string& child : SubKeys())
            pending.push_back(path.empty() ? child : path + "\\" + child);
        ++visited;
    }
    EXPECT_GT(visited, 1u);
}

TEST_P(TreeTest, ReopenRetargetsOnlyWhenTheNewPlaceExists) {
    ASSERT_EQ(Open("first", "m1", nullptr), BS_OK);
    ASSERT_EQ(bs_treedb_insert_subkey(m_h, "k", 0), BS_OK);
    EXPECT_EQ(bs_treedb_reopen(m_h, "m2", nullptr, "name2", 0, "first"), BS_ERR_NO_MAINKEY);
    EXPECT_EQ(bs_treedb_reopen(m_h, "m1", nullptr, "", 0, "second"), BS_ERR_NO_TREE);
    EXPECT_EQ(bs_treedb_reopen(m_h, "m1", "nothere", "", 0, "first"), BS_ERR_NO_SUBKEY);
    std::string tree, main, key, sub;
    unsigned flags = 0, port = 0;
    ASSERT_EQ(bs_treedb_query_handle(m_h, tree, main, key, flags, sub, port), BS_OK);
    EXPECT_EQ(tree + "/" + main + "/" + sub, "first/m1/");  // failed reopens leave the handle
    EXPECT_EQ(flags, BS_OPEN_CREATE);
    ASSERT_EQ(bs_treedb_reopen(m_h, "m2", nullptr, "name2", 0x80080, "second"), BS_OK);
    ASSERT_EQ(bs_treedb_query_handle(m_h, tree, main, key, flags, sub, port), BS_OK);
    EXPECT_EQ(tree + "/" + main + "/" + key, "second/m2/name2");
    EXPECT_EQ(flags, 0x80080u);
    EXPECT_TRUE(SubKeys().empty());
    ASSERT_EQ(bs_treedb_reopen(m_h, "m1", "k", "", 0, "first"), BS_OK);
    ASSERT_EQ(bs_treedb_query_handle(m_h, tree, main, key, flags, sub, port), BS_OK);
    EXPECT_EQ(tree + "/" + main + "/" + sub, "first/m1/k");
}

TEST_P(TreeTest, WritersInSeveralProcessesLoseNothing) {
    ASSERT_EQ(Open("shared", "m", nullptr), BS_OK);
    const int kWriters = 3, kEach = 120;
    std::vector<pid_t> pids;
    for (int w = 0; w < kWriters; ++w) {
        pids.push_back(ws_test::ForkRun([&] {
            void* h = BS_INVALID_HANDLE;
            if (OpenOther(h, "shared") != 0)
                return 2;
            for (int i = 0; i < kEach; ++i) {
                std::string name = "w" + std::to_string(w) + "_" + std::to_string(i);
                bool txn = i % 10 == 0;  // some writes inside transactions, most on their own
                if ((txn && bs_treedb_begin_transaction(h) != 0) ||
                    bs_treedb_insert_property(h, name.c_str(), VariableData(i), false) != 0 ||
                    (txn && bs_treedb_commit_transaction(h) != 0))
                    return 3;
            }
            return 0;
        }));
    }
    for (pid_t pid : pids)
        EXPECT_EQ(ws_test::WaitExit(pid), 0);
    std::map<std::string, VariableData> all;
    ASSERT_EQ(bs_treedb_get_all_properties(m_h, all), BS_OK);
    EXPECT_EQ(all.size(), static_cast<size_t>(kWriters * kEach));
    EXPECT_EQ(static_cast<int>(all["w2_119"]), 119);
}

WS_ON_EVERY_ENGINE(TreeTest);
