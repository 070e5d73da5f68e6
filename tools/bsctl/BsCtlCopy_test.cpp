// bsctl copy: an installation's data moved from the embedded engine to PostgreSQL and back, every
// key, property, record and queued message compared through the API on all three stores.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "bsapi/bsapi.h"
#include "tests/support/PgServer.h"
#include "tests/support/TestTree.h"

using tarn::VariableData;

namespace {

struct CServer {
    const char* address;
    unsigned short port;
};
const CServer kServers[] = {{"127.0.0.1", 26000}, {"db.example'x", 26001}};
const char* const kTrees[] = {"ccubase", "saas", "empty", "t\xff'\""};

std::string Hex(const VariableData& v) {
    std::string serial(static_cast<size_t>(v.Size()), '\0'), out;
    int n = v.Size();
    v.SerialData(&serial[0], n);
    for (unsigned char c : serial) {
        char b[3];
        std::snprintf(b, sizeof b, "%02x", c);
        out += b;
    }
    return out;
}

// Everything the API shows of the known servers, as text; reading the queues empties them.
std::string Snapshot() {
    std::string out;
    for (const CServer& s : kServers) {
        for (const char* tree : kTrees) {
            std::list<std::string> mains;
            out += "tree " + std::string(tree) + " " +
                   std::to_string(bs_treedb_query_mainkeys(mains, tree, s.address, s.port)) + "\n";
            for (const std::string& m : mains) {
                void* h = BS_INVALID_HANDLE;
                EXPECT_EQ(bs_treedb_open(h, m.c_str(), nullptr, "", 0, tree, s.address, s.port), 0);
                std::function<void(const std::string&)> walk = [&](const std::string& path) {
                    EXPECT_EQ(bs_treedb_open_subkey(h, path.c_str(), 0), 0) << path;
                    std::map<std::string, VariableData> props;
                    std::list<std::string> subs;
                    EXPECT_EQ(bs_treedb_get_all_properties(h, props), 0);
                    EXPECT_EQ(bs_treedb_get_subkeys(h, subs), 0);
                    out += " key " + m + "\\" + path + "\n";
                    for (const auto& p : props)
                        out += "  " + p.first + "=" + Hex(p.second) + "\n";
                    for (const std::string& c : subs)
                        walk(path.empty() ? c : path + "\\" + c);
                };
                walk("");
                bs_close_handle(h);
            }
        }
        std::list<std::string> dbs, queues;
        EXPECT_EQ(bs_tabledb_get_all_dbnames(dbs, s.address, s.port), 0);
        for (const std::string& db : dbs) {
            void* h = BS_INVALID_HANDLE;
            std::list<std::string> tables;
            EXPECT_EQ(bs_tabledb_open(h, db.c_str(), "", "", 0, 0, s.address, s.port), 0);
            EXPECT_EQ(bs_tabledb_get_all_tablenames(h, tables), 0);
            for (const std::string& t : tables) {
                std::list<bs_tdfield*> fields;
                EXPECT_EQ(bs_tabledb_get_fields(h, t.c_str(), fields), 0);
                out += "table " + db + "/" + t + "\n";
                for (bs_tdfield* f : fields)
                    out += " field " + f->name + " " + std::to_string(f->type) + " " +
                           std::to_string(f->length) + " " + std::to_string(f->indexed) + "\n";
                void* cursor = BS_INVALID_HANDLE;
                unsigned int n = 0;
                EXPECT_EQ(bs_tabledb_get_record(h, t.c_str(), n, cursor), 0);
                bs_record r;
                for (int rc = bs_tabledb_get_cursor(cursor, r); rc == 0;
                     rc = bs_tabledb_cursor_next(cursor) ?: bs_tabledb_get_cursor(cursor, r)) {
                    out += " record";
                    for (const std::string& name :
                         {std::string("_FIELD_AUTOID_"), std::string("_FIELD_CTIME_")})
                        out += " " + Hex(r[name]);
                    for (bs_tdfield* f : fields)
                        out += " " + Hex(r[f->name]);
                    out += "\n";
                }
                bs_close_handle(cursor);
                bs_free_fields(fields);
            }
            bs_close_handle(h);
        }
        EXPECT_EQ(bs_mq_query_all_names(queues, s.address, s.port), 0);
        for (const std::string& q : queues) {
            void* h = BS_INVALID_HANDLE;
            EXPECT_EQ(bs_mq_open(h, q.c_str(), "", BS_MQ_OPEN_EXISTING, 0, s.address, s.port), 0);
            VariableData v;
            std::string name;
            long t = 0;
            unsigned long long id = 0;
            out += "queue " + q + "\n";
            while (bs_mq_pop(h, v, name, t, id, 0, false) == 0)
                out += " " + std::to_string(id) + " " + name + " " + std::to_string(t) + " " +
                       Hex(v) + "\n";
            bs_close_handle(h);
        }
    }
    return out;
}

// Every kind of object, with values of every type and names of any bytes, records with holes in
// their ids and messages of several priorities.
void Seed(const CServer& s) {
    void* h = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_treedb_create_newfile("empty", s.address, s.port), 0);
    ASSERT_EQ(
        bs_treedb_open(h, "Config", nullptr, "", BS_OPEN_CREATE, "ccubase", s.address, s.port), 0);
    for (const char* k : {"VerifyCode", "VerifyCode\\A1", "VerifyCode\\b2", "a", "a\\b", "a\\b\\c"})
        ASSERT_EQ(bs_treedb_insert_subkey(h, k, 0), 0);
    VariableData t;
    t.PutTimeValue(1700000000);
    ASSERT_EQ(bs_treedb_insert_properties(h,
                                          {{"s", VariableData(std::string("\0x\xff", 3))},
                                           {"i", VariableData(-7)},
                                           {"u", VariableData(~0ull)},
                                           {"d", VariableData(0.25)},
                                           {"t", t},
                                           {"e", VariableData()}},
                                          false),
              0);
    ASSERT_EQ(bs_treedb_open_subkey(h, "a\\b\\c", 0), 0);
    ASSERT_EQ(bs_treedb_insert_property(h, "deep", VariableData(std::string(5000, 'q')), false), 0);
    bs_close_handle(h);
    for (const char* tree : {"saas", "t\xff'\""}) {
        for (const char* main : {"company", "login'name"}) {
            ASSERT_EQ(bs_treedb_open(h, main, nullptr, "", BS_OPEN_CREATE, tree, s.address, s.port),
                      0);
            ASSERT_EQ(bs_treedb_insert_subkey(h, "demo", 0), 0);
            ASSERT_EQ(bs_treedb_insert_property(h, "p\xfe", VariableData(1.5f), false), 0);
            bs_close_handle(h);
        }
    }
    ASSERT_EQ(bs_tabledb_open(h, "ops", "", "", 0, 0, s.address, s.port), 0);
    bs_tdfield who("who", VariableData::VT_STRING, 0, BS_FIELD_INDEXED);
    bs_tdfield serial("serial", VariableData::VT_INT32, 0, BS_FIELD_UNIQUE);
    bs_tdfield big("big", VariableData::VT_UINT64), ratio("ratio", VariableData::VT_DOUBLE);
    ASSERT_EQ(bs_tabledb_create_table(h, "audit", {&who, &serial, &big, &ratio}, 0), 0);
    ASSERT_EQ(bs_tabledb_create_table(h, "bare", {}, 0), 0);
    unsigned long long id = 0;
    for (int i = 0; i < 260; ++i) {
        ASSERT_EQ(
            bs_tabledb_insert_record(h, "audit",
                                     {VariableData("w" + std::to_string(i % 7)), VariableData(i),
                                      VariableData(~0ull - i), VariableData(i / 3.0)},
                                     id, 1000L + i),
            0);
    }
    ASSERT_EQ(bs_tabledb_insert_record(h, "bare", {}, id, 5L), 0);
    unsigned int gone = 0;
    VariableData from(100), to(149);
    ASSERT_EQ(bs_tabledb_delete_record_by_field(h, "audit", "serial", &from, &to, BS_CMP_RANGE,
                                                BS_SEL_FIELD, gone),
              0);
    bs_close_handle(h);
    ASSERT_EQ(bs_tabledb_open(h, "nothing", "", "", 0, 0, s.address, s.port), 0);
    bs_close_handle(h);
    ASSERT_EQ(bs_mq_open(h, "idle", "", BS_MQ_OPEN_CREATE, 0, s.address, s.port), 0);
    bs_close_handle(h);
    ASSERT_EQ(bs_mq_open(h, "events", "", BS_MQ_OPEN_CREATE, 0, s.address, s.port), 0);
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(
            bs_mq_push(h, i % 2 ? VariableData(i) : VariableData("m\0" + std::to_string(i)),
                       ("n" + std::to_string(i)).c_str(), id, static_cast<unsigned char>(i % 3)),
            0);
    }
    VariableData v;
    std::string name;
    long time = 0;
    ASSERT_EQ(bs_mq_pop(h, v, name, time, id, 0, false), 0);  // the first by priority (id 3) is gone
    bs_close_handle(h);
}

class BsCtlCopyTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ws_test::UseEngine("postgres"));
        ASSERT_TRUE(ws_test::CopyExecutable(BSCTL_PATH, ws_test::InstallRoot() + "/bin/bsctl"));
    }
    // Runs bsctl copy with the embedded engine's data in `dir`.
    int Copy(const std::string& dir, const char* from, const char* to, std::string* out) {
        ::setenv("BSAPI_DATA_DIR", dir.c_str(), 1);
        int status = -1;
        *out = ws_test::RunAndCapture(ws_test::InstallRoot() + "/bin/bsctl",
                                      {"copy", "--from", from, "--to", to}, &status);
        return status;
    }
    static std::string SnapshotOf(const char* engine, const std::string& dir) {
        ::setenv("BSAPI_ENGINE", engine, 1);
        ::setenv("BSAPI_DATA_DIR", dir.c_str(), 1);
        return Snapshot();
    }
};

TEST_F(BsCtlCopyTest, InstallationMovesToPostgresAndBackWhole) {
    ws_test::TempTree first("copya"), back("copyb");
    ::setenv("BSAPI_ENGINE", "sqlite", 1);
    ::setenv("BSAPI_DATA_DIR", first.Root().c_str(), 1);
    for (const CServer& s : kServers)
        ASSERT_NO_FATAL_FAILURE(Seed(s));
    std::string out;
    ASSERT_EQ(Copy(first.Root(), "sqlite", "postgres", &out), 0) << out;
    EXPECT_NE(out.find("table database ops of db.example'x:26001: 2 tables, 211 records"),
              std::string::npos)
        << out;
    EXPECT_EQ(Copy(first.Root(), "sqlite", "postgres", &out), 1) << "a second copy is refused";
    ASSERT_EQ(Copy(back.Root(), "postgres", "sqlite", &out), 0) << out;

    std::string original = SnapshotOf("sqlite", first.Root());
    EXPECT_EQ(SnapshotOf("postgres", ""), original);
    EXPECT_EQ(SnapshotOf("sqlite", back.Root()), original);
    EXPECT_GT(original.size(), 20000u);
    EXPECT_NE(original.find("queue events\n 6 n5 "), std::string::npos) << "priority 2 first";

    // Ids handed out after the copy come after the copied ones on both engines.
    for (const char* engine : {"postgres", "sqlite"}) {
        ::setenv("BSAPI_ENGINE", engine, 1);
        void* h = BS_INVALID_HANDLE;
        unsigned long long id = 0;
        ASSERT_EQ(bs_mq_open(h, "events", "", BS_MQ_OPEN_EXISTING, 0, "127.0.0.1", 26000), 0);
        ASSERT_EQ(bs_mq_push(h, VariableData(1), "", id, 0), 0);
        EXPECT_EQ(id, 31u) << engine;
        bs_close_handle(h);
    }
}

}  // namespace
