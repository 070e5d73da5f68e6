// Tests of the table-database calls and cursors, written against the API only.
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

#include "bsapi/bsapi.h"
#include "tests/support/PgServer.h"

using tarn::VariableData;

namespace {

VariableData Time(long s) {
    VariableData v;
    v.PutTimeValue(s);
    return v;
}

}  // namespace

class TableTest : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ws_test::UseEngine(GetParam()));
        static unsigned short next = 22000;
        m_nPort = next++;
        ASSERT_EQ(bs_tabledb_open(m_h, "events", "", "", 0, 0, "127.0.0.1", m_nPort), BS_OK);
        bs_tdfield name("name", VariableData::VT_STRING, 16, BS_FIELD_INDEXED);
        bs_tdfield level("level", VariableData::VT_INT16);
        bs_tdfield big("big", VariableData::VT_UINT64);
        bs_tdfield ratio("ratio", VariableData::VT_FLOAT);
        bs_tdfield serial("serial", VariableData::VT_INT32, 0, BS_FIELD_UNIQUE);
        std::list<bs_tdfield*> fields = {&name, &level, &big, &ratio, &serial};
        ASSERT_EQ(bs_tabledb_create_table(m_h, "log", fields, 0), BS_OK);
    }
    void TearDown() override {
        if (m_h != BS_INVALID_HANDLE)
            bs_close_handle(m_h);
    }
    unsigned long long Insert(const char* name, int level, long ctime) {
        unsigned long long id = 0;
        std::list<VariableData> values = {VariableData(name), VariableData(level)};
        EXPECT_EQ(bs_tabledb_insert_record(m_h, "log", values, id, ctime), BS_OK);
        return id;
    }
    // Walks a cursor to its end, closing it; returns the records.
    std::vector<bs_record> Walk(void*& cursor) {
        std::vector<bs_record> out;
        bs_record r;
        int rc = bs_tabledb_get_cursor(cursor, r);
        while (rc == BS_OK) {
            out.push_back(r);
            rc = bs_tabledb_cursor_next(cursor);
            if (rc == BS_OK) {
                EXPECT_EQ(bs_tabledb_get_cursor(cursor, r), BS_OK);
            }
        }
        EXPECT_EQ(rc, BS_ERR_END);
        EXPECT_EQ(bs_close_handle(cursor), BS_OK);
        return out;
    }
    int Update(std::list<std::string> fields, std::list<VariableData> values, const char* field,
               const VariableData& from, unsigned char mode, unsigned char kind,
               unsigned int& changed) {
        return bs_tabledb_update_record_by_field(m_h, "log", fields, values, field, &from, nullptr,
                                                 mode, kind, changed);
    }
    std::vector<bs_record> Select(const char* field, const VariableData* from,
                                  const VariableData* to, unsigned char mode, unsigned char kind,
                                  unsigned int* count = nullptr) {
        void* cursor = BS_INVALID_HANDLE;
        unsigned int n = 0;
        EXPECT_EQ(
            bs_tabledb_get_record_by_field(m_h, "log", field, from, to, mode, kind, n, cursor),
            BS_OK);
        if (count != nullptr)
            *count = n;
        std::vector<bs_record> rows = Walk(cursor);
        EXPECT_EQ(rows.size(), n);
        return rows;
    }

    unsigned short m_nPort = 0;
    void* m_h = BS_INVALID_HANDLE;
};

TEST_P(TableTest, StructureAndNames) {
    std::list<bs_tdfield*> fields;
    ASSERT_EQ(bs_tabledb_get_fields(m_h, "log", fields), BS_OK);
    ASSERT_EQ(fields.size(), 5u);
    EXPECT_EQ(fields.front()->name, "name");
    EXPECT_EQ(fields.front()->length, 16u);
    EXPECT_EQ(fields.front()->indexed, BS_FIELD_INDEXED);
    EXPECT_EQ(fields.back()->type, VariableData::VT_INT32);
    bs_free_fields(fields);
    std::list<bs_tdfield*> none;
    EXPECT_EQ(bs_tabledb_create_table(m_h, "log", none, 0), BS_ERR_EXISTS);
    EXPECT_EQ(bs_tabledb_create_table(m_h, "LOG", none, 0),
              BS_ERR_EXISTS);  // SQL names ignore case
    EXPECT_EQ(bs_tabledb_create_table(m_h, "log", none, BS_TABLE_ACCEPT_EXISTING), BS_OK);
    ASSERT_EQ(bs_tabledb_create_table(m_h, "bare", none, 0), BS_OK);
    std::list<std::string> names;
    ASSERT_EQ(bs_tabledb_get_all_tablenames(m_h, names), BS_OK);
    EXPECT_EQ(names, std::list<std::string>({"bare", "log"}));
    ASSERT_EQ(bs_tabledb_delete_table(m_h, "bare", 0), BS_OK);
    EXPECT_EQ(bs_tabledb_delete_table(m_h, "bare", 0), BS_ERR_NO_TABLE);
    EXPECT_EQ(bs_tabledb_delete_table(m_h, "bare", BS_TABLE_ACCEPT_MISSING), BS_OK);
    EXPECT_EQ(bs_tabledb_get_fields(m_h, "bare", fields), BS_ERR_NO_TABLE);
    ASSERT_EQ(bs_tabledb_get_all_dbnames(names, "127.0.0.1", m_nPort), BS_OK);
    EXPECT_EQ(names, std::list<std::string>({"events"}));
    std::string db, second, third, address;
    unsigned mode = 9, option = 9;
    unsigned short port = 0;
    ASSERT_EQ(bs_tabledb_qurey_handle(m_h, db, second, third, mode, option, address, port), BS_OK);
    EXPECT_EQ(db, "events");
    EXPECT_EQ(port, m_nPort);
    EXPECT_EQ(mode, 0u);
    ASSERT_EQ(bs_tabledb_reopen(m_h, "archive", "two", "three", 4, 5), BS_OK);
    ASSERT_EQ(bs_tabledb_qurey_handle(m_h, db, second, third, mode, option, address, port), BS_OK);
    EXPECT_EQ(db + "/" + second + "/" + third, "archive/two/three");
    EXPECT_EQ(mode * 10 + option, 45u);
    ASSERT_EQ(bs_tabledb_get_all_tablenames(m_h, names), BS_OK);
    EXPECT_TRUE(names.empty());
    EXPECT_EQ(bs_tabledb_reopen(m_h, "", "", "", 0, 0), BS_ERR_BAD_NAME);
    ASSERT_EQ(bs_tabledb_get_all_dbnames(names, "127.0.0.1", m_nPort), BS_OK);
    EXPECT_EQ(names, std::list<std::string>({"archive", "events"}));
}

TEST_P(TableTest, BadDefinitionsAreRefused) {
    bs_tdfield autoid("_FIELD_AUTOID_", VariableData::VT_INT32);
    bs_tdfield a("a", VariableData::VT_INT32), a2("A", VariableData::VT_INT32);
    bs_tdfield untyped("u", 0), empty("", VariableData::VT_INT32);
    struct Case {
        const char* table;
        std::list<bs_tdfield*> fields;
        int code;
    } cases[] = {
        {"t1", {&autoid}, BS_ERR_BAD_NAME},   {"t2", {&a, &a2}, BS_ERR_BAD_NAME},
        {"t3", {&untyped}, BS_ERR_BAD_ARG},   {"t4", {&empty}, BS_ERR_BAD_NAME},
        {"t5", {nullptr}, BS_ERR_BAD_ARG},    {"sqlite_x", {&a}, BS_ERR_BAD_NAME},
        {"_bs_table", {&a}, BS_ERR_BAD_NAME}, {"", {&a}, BS_ERR_BAD_NAME},
    };
    for (const Case& c : cases)
        EXPECT_EQ(bs_tabledb_create_table(m_h, c.table, c.fields, 0), c.code) << c.table;
    std::list<std::string> names;
    ASSERT_EQ(bs_tabledb_get_all_tablenames(m_h, names), BS_OK);
    EXPECT_EQ(names, std::list<std::string>({"log"}));
}

TEST_P(TableTest, InsertValuesAreTypedAndChecked) {
    unsigned long long id = 0;
    std::list<VariableData> ok = {VariableData("n"), VariableData("-7"),
                                  VariableData(std::numeric_limits<unsigned long long>::max()),
                                  VariableData(0.5), VariableData(1)};
    ASSERT_EQ(bs_tabledb_insert_record(m_h, "log", ok, id, 1000L), BS_OK);
    struct Case {
        std::list<VariableData> values;
        int code;
    } cases[] = {
        {{VariableData("n"), VariableData("abc")}, BS_ERR_TYPE},
        {{VariableData("n"), VariableData(70000)}, BS_ERR_TYPE},
        {{VariableData("n"), VariableData(1.5)}, BS_ERR_TYPE},
        {{VariableData("n"), VariableData(1), VariableData(-1)}, BS_ERR_TYPE},
        {{VariableData(std::string(17, 'x'))}, BS_ERR_TOO_BIG},
        {{VariableData("n"), VariableData(1), VariableData(1u), VariableData(1.0), VariableData(1)},
         BS_ERR_CONSTRAINT},
        {{VariableData(), VariableData(), VariableData(), VariableData(), VariableData(),
          VariableData()},
         BS_ERR_BAD_ARG},
    };
    for (const Case& c : cases)
        EXPECT_EQ(bs_tabledb_insert_record(m_h, "log", c.values, id), c.code);
    EXPECT_EQ(bs_tabledb_insert_record(m_h, "nosuch", ok, id), BS_ERR_NO_TABLE);
    unsigned int count = 0;
    std::vector<bs_record> rows =
        Select(nullptr, nullptr, nullptr, BS_CMP_ALL, BS_SEL_AUTOID, &count);
    ASSERT_EQ(rows.size(), 1u);
    bs_record& r = rows[0];
    EXPECT_EQ(r["level"].GetType(), VariableData::VT_INT16);
    EXPECT_EQ(static_cast<int>(r["level"]), -7);
    EXPECT_TRUE(r["big"].Equals(VariableData(std::numeric_limits<unsigned long long>::max())));
    EXPECT_TRUE(r["ratio"].Equals(VariableData(0.5f)));
    long t = 0;
    EXPECT_TRUE(r["_FIELD_CTIME_"].GetTimeValue(t));
    EXPECT_EQ(t, 1000);
    EXPECT_EQ(static_cast<long long>(r["_FIELD_AUTOID_"]), static_cast<long long>(id));
}

// Strings of any bytes and 1 MiB long in indexed and unique fields: stored, found and compared
// by every byte, also where two values share their first kilobyte.
TEST_P(TableTest, LongBinaryStringsInIndexedFields) {
    bs_tdfield key("key", VariableData::VT_STRING, 0, BS_FIELD_UNIQUE);
    bs_tdfield tag("tag", VariableData::VT_STRING, 0, BS_FIELD_INDEXED);
    ASSERT_EQ(bs_tabledb_create_table(m_h, "bin'\"\xff", {&key, &tag}, 0), BS_OK);
    std::string a(1 << 20, '\0');
    for (size_t i = 0; i < a.size(); ++i)
        a[i] = static_cast<char>(i % 253);
    std::string b = a;
    b[5000] = '\xff';  // a < b, equal in their first 5000 bytes
    unsigned long long id = 0;
    for (const std::string* s : {&a, &b}) {
        ASSERT_EQ(
            bs_tabledb_insert_record(m_h, "bin'\"\xff", {VariableData(*s), VariableData(*s)}, id),
            BS_OK);
    }
    EXPECT_EQ(bs_tabledb_insert_record(m_h, "bin'\"\xff", {VariableData(a)}, id),
              BS_ERR_CONSTRAINT);
    struct Case {
        const char* field;
        const std::string* value;
        unsigned char mode;
        std::vector<const std::string*> found;
    } cases[] = {
        {"tag", &b, BS_CMP_EQUAL, {&b}},     {"key", &a, BS_CMP_EQUAL, {&a}},
        {"tag", &a, BS_CMP_GREATER, {&b}},   {"tag", &b, BS_CMP_LESS, {&a}},
        {"tag", &a, BS_CMP_RANGE, {&a, &b}},
    };
    for (const Case& c : cases) {
        VariableData from(*c.value);
        void* cursor = BS_INVALID_HANDLE;
        unsigned int n = 0;
        ASSERT_EQ(bs_tabledb_get_record_by_field(m_h, "bin'\"\xff", c.field, &from, nullptr, c.mode,
                                                 BS_SEL_FIELD, n, cursor),
                  BS_OK);
        std::vector<bs_record> rows = Walk(cursor);
        ASSERT_EQ(rows.size(), c.found.size()) << c.field << int(c.mode);
        for (size_t i = 0; i < rows.size(); ++i)
            EXPECT_TRUE(rows[i]["key"].GetText() == *c.found[i] &&
                        rows[i]["tag"].GetText() == *c.found[i]);
    }
}

TEST_P(TableTest, SelectionsByFieldTimeAndIdWalkEveryPage) {
    std::vector<unsigned long long> ids;
    for (int i = 0; i < 250; ++i)
        ids.push_back(Insert(i % 2 ? "odd" : "even", i, 5000 + i));
    for (size_t i = 1; i < ids.size(); ++i)
        ASSERT_GT(ids[i], ids[i - 1]);
    VariableData odd("odd");
    unsigned int count = 0;
    std::vector<bs_record> rows = Select("name", &odd, nullptr, BS_CMP_EQUAL, BS_SEL_FIELD, &count);
    ASSERT_EQ(count, 125u);
    for (size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(static_cast<int>(rows[i]["level"]), 2 * int(i) + 1);
    VariableData from = Time(5010), to = Time(5019);
    EXPECT_EQ(Select(nullptr, &from, &to, BS_CMP_RANGE, BS_SEL_CTIME).size(), 10u);
    EXPECT_EQ(Select(nullptr, &from, nullptr, BS_CMP_RANGE, BS_SEL_CTIME).size(), 240u);
    EXPECT_EQ(Select(nullptr, &from, nullptr, BS_CMP_LESS, BS_SEL_CTIME).size(), 10u);
    EXPECT_EQ(Select(nullptr, &from, nullptr, BS_CMP_GREATER, BS_SEL_CTIME).size(), 239u);
    VariableData id(static_cast<long long>(ids[7]));
    rows = Select(nullptr, &id, nullptr, BS_CMP_EQUAL, BS_SEL_AUTOID);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(static_cast<int>(rows[0]["level"]), 7);
    VariableData level("12");  // text that holds a number matches the numeric field
    EXPECT_EQ(Select("level", &level, nullptr, BS_CMP_EQUAL, BS_SEL_FIELD).size(), 1u);
    void* cursor = BS_INVALID_HANDLE;
    VariableData bad("x");
    const struct {
        const char* field;
        const VariableData* from;
        unsigned char mode, kind;
        int code;
    } refused[] = {{"level", &bad, 3, 0, BS_ERR_TYPE},
                   {"nofield", &odd, 3, 0, BS_ERR_NO_FIELD},
                   {"name", &odd, 5, 0, BS_ERR_BAD_ARG},
                   {"name", &odd, 3, 7, BS_ERR_BAD_ARG},
                   {"name", nullptr, 3, 0, BS_ERR_BAD_ARG}};
    for (const auto& r : refused) {
        EXPECT_EQ(bs_tabledb_get_record_by_field(m_h, "log", r.field, r.from, nullptr, r.mode,
                                                 r.kind, count, cursor),
                  r.code)
            << r.field;
    }
    EXPECT_EQ(cursor, BS_INVALID_HANDLE);
    int signedCount = -1;
    ASSERT_EQ(bs_tabledb_get_record(m_h, "log", signedCount, cursor), BS_OK);
    EXPECT_EQ(signedCount, 250);
    EXPECT_EQ(Walk(cursor).size(), 250u);
    bs_record r;
    EXPECT_EQ(bs_tabledb_get_cursor(cursor, r), BS_ERR_CONN_CLOSED);
}

TEST_P(TableTest, UpdateAndDeleteByFieldTimeAndId) {
    std::vector<unsigned long long> ids;
    for (int i = 0; i < 20; ++i)
        ids.push_back(Insert(i < 10 ? "a" : "b", i, 100 + i));
    unsigned int changed = 0;
    ASSERT_EQ(Update({"level"}, {VariableData(99)}, "name", VariableData("a"), BS_CMP_EQUAL,
                     BS_SEL_FIELD, changed),
              BS_OK);
    EXPECT_EQ(changed, 10u);
    ASSERT_EQ(Update({"name", "ratio"}, {VariableData("late"), VariableData(2.5)}, nullptr,
                     Time(115), BS_CMP_GREATER, BS_SEL_CTIME, changed),
              BS_OK);
    EXPECT_EQ(changed, 4u);
    VariableData id(static_cast<long long>(ids[0]));
    EXPECT_EQ(
        Update({"nofield"}, {VariableData(1)}, nullptr, id, BS_CMP_EQUAL, BS_SEL_AUTOID, changed),
        BS_ERR_NO_FIELD);
    EXPECT_EQ(Update({"level", "name"}, {VariableData(1)}, nullptr, id, BS_CMP_EQUAL, BS_SEL_AUTOID,
                     changed),
              BS_ERR_BAD_ARG);
    VariableData late("late"), n99(99);
    EXPECT_EQ(Select("level", &n99, nullptr, BS_CMP_EQUAL, BS_SEL_FIELD).size(), 10u);
    EXPECT_EQ(Select("name", &late, nullptr, BS_CMP_EQUAL, BS_SEL_FIELD).size(), 4u);
    unsigned int deleted = 0;
    ASSERT_EQ(bs_tabledb_delete_record_by_field(m_h, "log", "_FIELD_AUTOID_", &id, nullptr,
                                                BS_CMP_EQUAL, BS_SEL_FIELD, deleted),
              BS_OK);
    EXPECT_EQ(deleted, 1u);
    long to = 104;
    ASSERT_EQ(bs_tabledb_delete_record_by_ctime(m_h, "log", 102, &to, 0, BS_CMP_RANGE, deleted),
              BS_OK);
    EXPECT_EQ(deleted, 3u);
    ASSERT_EQ(bs_tabledb_delete_record_by_ctime(m_h, "log", 0, nullptr, 2, BS_CMP_ALL, deleted),
              BS_OK);
    EXPECT_EQ(deleted, 2u);  // the two oldest left: ctime 101 and 105
    std::map<std::string, std::list<bs_record>> last;
    ASSERT_EQ(bs_get_tables_last_rd(m_h, {"log"}, 2, last), BS_OK);
    ASSERT_EQ(last["log"].size(), 2u);
    EXPECT_EQ(static_cast<int>(last["log"].front()["level"]), 19);
    EXPECT_EQ(bs_get_tables_last_rd(m_h, {"log", "nosuch"}, 2, last), BS_ERR_NO_TABLE);
    ASSERT_EQ(bs_tabledb_delete_record_by_ctime(m_h, "log", 0, nullptr, 0, BS_CMP_ALL, deleted),
              BS_OK);
    EXPECT_EQ(deleted, 14u);
    ASSERT_EQ(bs_get_tables_last_rd(m_h, {"log"}, 2, last), BS_OK);
    EXPECT_TRUE(last.empty());
}

// A text enters an integer field only when the whole of it is a decimal number that fits, and a
// floating-point field only when every byte of it is read; anything else is refused with
// BS_ERR_TYPE, stores nothing and is no selection value for the field either.
TEST_P(TableTest, TextEntersATypedFieldOnlyWhenItIsWhollyANumberThatFits) {
    bs_tdfield i16("i16", VariableData::VT_INT16), i64("i64", VariableData::VT_INT64),
        u8("u8", VariableData::VT_UINT8), u64("u64", VariableData::VT_UINT64),
        dbl("dbl", VariableData::VT_DOUBLE);
    ASSERT_EQ(bs_tabledb_create_table(m_h, "t", {&i16, &i64, &u8, &u64, &dbl}, 0), BS_OK);
    const char* const names[] = {"i16", "i64", "u8", "u64", "dbl"};
    const struct {
        int field;  // position in `names`
        std::string text;
        VariableData stored;  // empty: refused
    } cases[] = {
        {3, "\t-5", VariableData()},  // strtoull skips the blank and negates
        {3, std::string("2\0junk", 6), VariableData()},
        {3, "-5", VariableData()},
        {3, "18446744073709551615", VariableData(18446744073709551615ull)},
        {3, "18446744073709551616", VariableData()},
        {3, "-0", VariableData(0ull)},
        {0, " 5", VariableData()},
        {0, "5 ", VariableData()},
        {0, "+5", VariableData()},
        {0, "-", VariableData()},
        {0, "", VariableData()},
        {0, "0x10", VariableData()},
        {0, "-32768", VariableData(static_cast<short>(-32768))},
        {0, "32768", VariableData()},
        {1, "-9223372036854775808", VariableData(-9223372036854775807ll - 1)},
        {1, "-9223372036854775809", VariableData()},
        {1, "99999999999999999999999", VariableData()},
        {2, "255", VariableData(static_cast<unsigned char>(255))},
        {2, "256", VariableData()},
        {4, "\t1.5", VariableData()},
        {4, std::string("1.5\0x", 5), VariableData()},
        {4, "1.5e3", VariableData(1500.0)},
    };
    for (const auto& c : cases) {
        std::list<VariableData> values(5);
        *std::next(values.begin(), c.field) = VariableData(c.text);
        unsigned long long id = 0;
        const int code = bs_tabledb_insert_record(m_h, "t", values, id);
        const std::string what = std::string(names[c.field]) + " <- \"" + c.text + "\"";
        void* cursor = BS_INVALID_HANDLE;
        unsigned int count = 0;
        VariableData from(c.text), key(id);
        if (c.stored.IsEmpty()) {
            EXPECT_EQ(code, BS_ERR_TYPE) << what;
            EXPECT_EQ(bs_tabledb_get_record_by_field(m_h, "t", names[c.field], &from, nullptr,
                                                     BS_CMP_EQUAL, BS_SEL_FIELD, count, cursor),
                      BS_ERR_TYPE)
                << what;
            continue;
        }
        ASSERT_EQ(code, BS_OK) << what;
        ASSERT_EQ(bs_tabledb_get_record_by_field(m_h, "t", nullptr, &key, nullptr, BS_CMP_EQUAL,
                                                 BS_SEL_AUTOID, count, cursor),
                  BS_OK);
        bs_record record;
        ASSERT_EQ(bs_tabledb_get_cursor(cursor, record), BS_OK) << what;
        EXPECT_TRUE(record[names[c.field]].Equals(c.stored)) << what;
        bs_close_handle(cursor);
    }
    unsigned int deleted = 0;
    EXPECT_EQ(bs_tabledb_delete_record_by_ctime(m_h, "t", 0, nullptr, 0, BS_CMP_ALL, deleted),
              BS_OK);
    EXPECT_EQ(deleted, 6u) << "only the texts that fit were stored";
}

TEST_P(TableTest, RolledBackTransactionLeavesNothing) {
    EXPECT_EQ(bs_tabledb_rollback_transaction(m_h), BS_ERR_NO_TRANSACTION);
    Insert("kept", 1, 1);
    ASSERT_EQ(bs_tabledb_begin_transaction(m_h), BS_OK);
    Insert("gone", 2, 2);
    std::list<bs_tdfield*> none;
    ASSERT_EQ(bs_tabledb_create_table(m_h, "temp", none, 0), BS_OK);
    unsigned int deleted = 0;
    VariableData kept("kept");
    ASSERT_EQ(bs_tabledb_delete_record_by_field(m_h, "log", "name", &kept, nullptr, BS_CMP_EQUAL, 0,
                                                deleted),
              BS_OK);
    ASSERT_EQ(bs_tabledb_rollback_transaction(m_h), BS_OK);
    std::vector<bs_record> rows = Select(nullptr, nullptr, nullptr, BS_CMP_ALL, BS_SEL_AUTOID);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0]["name"].GetText(), "kept");
    std::list<std::string> names;
    ASSERT_EQ(bs_tabledb_get_all_tablenames(m_h, names), BS_OK);
    EXPECT_EQ(names, std::list<std::string>({"log"}));
    EXPECT_EQ(bs_tabledb_commit_transaction(m_h), BS_ERR_NO_TRANSACTION);
}

TEST_P(TableTest, ClosingAHandleEndsItsTransactionEvenWithACursorOpen) {
    ::setenv("BSAPI_BUSY_TIMEOUT_MS", "100", 1);
    ASSERT_EQ(bs_tabledb_begin_transaction(m_h), BS_OK);
    Insert("uncommitted", 1, 1);
    void* cursor = BS_INVALID_HANDLE;
    unsigned int count = 0;
    ASSERT_EQ(bs_tabledb_get_record(m_h, "log", count, cursor), BS_OK);
    EXPECT_EQ(count, 1u);  // the transaction sees its own record
    ASSERT_EQ(bs_close_handle(m_h), BS_OK);
    void* other = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_tabledb_open(other, "events", "", "", 0, 0, "127.0.0.1", m_nPort), BS_OK);
    unsigned long long id = 0;
    EXPECT_EQ(bs_tabledb_insert_record(other, "log", {VariableData("after")}, id),
              BS_OK);  // no lock left
    void* c2 = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_tabledb_get_record(other, "log", count, c2), BS_OK);
    EXPECT_EQ(count, 1u);
    bs_record r;
    ASSERT_EQ(bs_tabledb_get_cursor(c2, r), BS_OK);
    EXPECT_EQ(r["name"].GetText(), "after");
    bs_close_handle(c2);
    bs_close_handle(cursor);
    bs_close_handle(other);
    ::unsetenv("BSAPI_BUSY_TIMEOUT_MS");
}

WS_ON_EVERY_ENGINE(TableTest);
