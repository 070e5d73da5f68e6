// Tests of the CQvHandleLoc operation families on the embedded engine where they do more than
// pass a call through: getters with defaults and their text conversions, moves before sub-key
// changes, counting selections, and queue handles reused by name; and ReplaceHandle for tables
// and queues.
#include <gtest/gtest.h>

#include <string>

#include "bsapi/bsapi.h"
#include "db/QvHandle.h"

using tarn::VariableData;

class LocatorOpsTest : public ::testing::Test {
protected:
    void SetUp() override {
        static int next = 26000;
        m_nPort = next++;
    }
    void TearDown() override {
        for (const char* call : {"bs_treedb_get_property", "bs_close_handle"})
            bs_debug_fail_next(call, 0, 0);
    }
    void AllocTree(CQvHandleLoc& loc) {
        ASSERT_EQ(loc.Treedb_Alloc(m_strAddr, "t", "main", "", -1, m_nPort), 0);
    }
    void AllocTable(CQvHandleLoc& loc) {
        ASSERT_EQ(loc.Tabledb_Alloc(m_strAddr, "tdb", "", "", m_nPort, 0, 0), 0);
        bs_tdfield name("name", VariableData::VT_STRING, 64, BS_FIELD_INDEXED);
        bs_tdfield age("age", VariableData::VT_INT32);
        std::list<bs_tdfield*> fields{&name, &age};
        ASSERT_EQ(loc.Tabledb_CreateTable("people", fields, BS_TABLE_ACCEPT_EXISTING), 0);
    }
    long long Insert(CQvHandleLoc& loc, const char* name, int age) {
        std::list<VariableData> values{VariableData(name), VariableData(age)};
        long long id = -1;
        EXPECT_EQ(loc.Tabledb_InsertRecord("people", values, id), 0);
        return id;
    }
    int Count(CQvHandleLoc& loc, const char* name) {
        int count = -1;
        EXPECT_EQ(loc.Tabledb_GetRecordsNumByField(count, "people", "name", VariableData(name)), 0);
        return count;
    }
    std::string m_strAddr = "127.0.0.1";
    int m_nPort = 0;
};

TEST_F(LocatorOpsTest, GettersGiveTheDefaultWithoutHandleOrProperty) {
    CQvHandleLoc empty;
    bs_debug_fail_next("bs_treedb_get_property", BS_ERR_INTERNAL, 1);
    EXPECT_EQ(empty.Treedb_GetPropertyInt("x", 7), 7);
    EXPECT_EQ(empty.Treedb_GetPropertyString("x", "d"), "d");
    VariableData v;
    EXPECT_EQ(empty.Treedb_GetProperty("x", v), 1);
    EXPECT_EQ(empty.Treedb_WriteKeyInt("x", 1), 1);
    // The library was not asked: the rule is still armed.
    void* h = BS_INVALID_HANDLE;
    EXPECT_EQ(bs_treedb_get_property(h, "x", v), BS_ERR_INTERNAL);

    CQvHandleLoc loc;
    AllocTree(loc);
    EXPECT_EQ(loc.Treedb_GetPropertyInt("x", 7), 7);
    EXPECT_EQ(loc.Treedb_GetPropertyInt64("x", -8), -8);
    EXPECT_DOUBLE_EQ(loc.Treedb_GetPropertyDouble("x", 1.5), 1.5);
    EXPECT_EQ(loc.Treedb_GetProperty("x", v), BS_ERR_NO_KEY);
}

// Doubles read with two decimals, text with three; 64-bit values through their unsigned text.
TEST_F(LocatorOpsTest, GettersConvertThroughTheValueTextAndAppendMovesFirst) {
    CQvHandleLoc loc;
    AllocTree(loc);
    ASSERT_EQ(loc.Treedb_WriteKeyString("s", "12abc"), 0);
    ASSERT_EQ(loc.Treedb_WriteKeyInt64("big", -5), 0);
    ASSERT_EQ(loc.Treedb_WriteKeyDouble("d", 2.5), 0);
    ASSERT_EQ(loc.Treedb_WriteKeyVariable("f", VariableData(0.126f)), 0);
    EXPECT_EQ(loc.Treedb_GetPropertyInt("s", 0), 12);
    EXPECT_EQ(loc.Treedb_GetPropertyString("d", ""), "2.500");
    EXPECT_DOUBLE_EQ(loc.Treedb_GetPropertyDouble("f", 0), 0.13);
    EXPECT_EQ(loc.Treedb_GetPropertyString("big", ""), "18446744073709551611");
    EXPECT_EQ(loc.Treedb_GetPropertyInt64("big", 0), -5);
    EXPECT_FLOAT_EQ(loc.Treedb_GetPropertyFloat("d", 0), 2.5f);

    ASSERT_EQ(loc.Treedb_InsertSubKey("a", 2), 0);
    ASSERT_EQ(loc.Treedb_AppendSubKey("a", "b", 2), 0);  // moves to "a" first
    std::list<std::string> names;
    ASSERT_EQ(loc.Treedb_GetAllSubKeys(names), 0);
    EXPECT_EQ(names, std::list<std::string>{"b"});
    ASSERT_EQ(loc.Treedb_ReopenSubKey("a\\b", -1), 0);
    ASSERT_EQ(loc.Treedb_DeleteThisKey(), 0);
    EXPECT_EQ(loc.Treedb_ReopenSubKey("a\\b", -1), BS_ERR_NO_SUBKEY);
}

TEST_F(LocatorOpsTest, TableSelectionsCountAndCloseTheirCursors) {
    CQvHandleLoc loc;
    AllocTable(loc);
    long long ann = Insert(loc, "ann", 30);
    Insert(loc, "bob", 40);
    Insert(loc, "ann", 50);
    EXPECT_EQ(Count(loc, "ann"), 2);
    // Failure leaves the count alone.
    int count = -1;
    EXPECT_EQ(loc.Tabledb_GetRecordsNumByField(count, "nosuch", "name", VariableData("ann")),
              BS_ERR_NO_TABLE);
    EXPECT_EQ(count, -1);
    // Success closes the cursor: the close call consumes the armed rule.
    bs_debug_fail_next("bs_close_handle", BS_ERR_INTERNAL, 1);
    EXPECT_EQ(loc.Tabledb_GetRecordsNumByField(count, "people", "age", VariableData(40)), 0);
    EXPECT_EQ(count, 1);
    void* none = BS_INVALID_HANDLE;
    EXPECT_EQ(bs_close_handle(none), BS_ERR_CONN_CLOSED);

    void* cursor = BS_INVALID_HANDLE;
    ASSERT_EQ(loc.Tabledb_SelectRecords(cursor, "people", count), 0);
    EXPECT_EQ(count, 3);
    EXPECT_TRUE(CQvHandleLoc::Tabledb_CloseHandle(cursor));
    EXPECT_FALSE(CQvHandleLoc::Tabledb_CloseHandle(cursor));
    long now = static_cast<long>(time(nullptr));
    ASSERT_EQ(
        loc.Tabledb_SelectRecordsByCTime(cursor, "people", count, now - 60, now + 60, BS_CMP_RANGE),
        0);
    EXPECT_EQ(count, 3);
    CQvHandleLoc::Tabledb_CloseHandle(cursor);
    ASSERT_EQ(loc.Tabledb_SelectRecordsByCTime(cursor, "people", count, now + 60, BS_CMP_GREATER),
              0);
    EXPECT_EQ(count, 0);
    CQvHandleLoc::Tabledb_CloseHandle(cursor);

    EXPECT_EQ(loc.Tabledb_DeleteOneRecord("people", -1), 1);
    std::list<std::string> fields{"age"};
    std::list<VariableData> values{VariableData(31)};
    ASSERT_EQ(loc.Tabledb_UpdateOneRecord("people", ann, fields, values), 0);
    bs_record one;
    ASSERT_EQ(loc.Tabledb_GetOneRecord("people", ann, one), 0);
    EXPECT_EQ(static_cast<int>(one["age"]), 31);
    ASSERT_EQ(loc.Tabledb_DeleteOneRecord("people", ann), 0);
    EXPECT_EQ(loc.Tabledb_GetOneRecord("people", ann, one), BS_ERR_END);
}

TEST_F(LocatorOpsTest, QueueHandlesAreReusedByNameAndPassMessages) {
    {
        CQvHandleLoc loc;
        ASSERT_EQ(loc.MQdb_Alloc(m_strAddr, "jobs", "", 3, 0, m_nPort), 0);
        unsigned long long id = 0;
        ASSERT_EQ(loc.MQdb_PushMessage(VariableData("hello"), "greeting", id, 0), 0);
        EXPECT_EQ(loc.MQdb_Alloc(m_strAddr, "jobs", "other", 3, 0, m_nPort), BS_ERR_OTHER_NAMES);
    }
    CQvHandleLoc loc;
    ASSERT_EQ(loc.MQdb_Alloc(m_strAddr, "jobs", "", 1, 0, m_nPort), 0);
    VariableData msg;
    std::string name;
    long when = 0;
    unsigned long long id = 0;
    ASSERT_EQ(loc.MQdb_PopMessage(msg, name, when, id, 0, false), 0);
    EXPECT_EQ(msg.GetText(), "hello");
    EXPECT_EQ(name, "greeting");
    // Another queue on the same handle.
    EXPECT_EQ(loc.MQdb_Alloc(m_strAddr, "absent", "", 1, 0, m_nPort), BS_ERR_NO_QUEUE);
    EXPECT_FALSE(loc.GetConfHandle()->IsOpen());
    ASSERT_EQ(loc.MQdb_Alloc(m_strAddr, "jobs", "", 1, 0, m_nPort), 0);
    ASSERT_EQ(loc.MQdb_DeleteMQ(), 0);
    unsigned long long length = 0;
    EXPECT_EQ(loc.MQdb_GetLength(length), BS_ERR_NO_QUEUE);
}

TEST_F(LocatorOpsTest, ReplaceHandleRebuildsTableAndQueueConnections) {
    CQvHandleLoc table;
    AllocTable(table);
    Insert(table, "before", 1);
    ASSERT_EQ(table.Tabledb_BeginTransaction(), 0);
    Insert(table, "dropped", 2);
    testing::internal::CaptureStdout();
    EXPECT_EQ(table.ReplaceHandle(), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(table.GetConfHandle()->IsOpen());
    // The open transaction ended with the old connection.
    EXPECT_EQ(Count(table, "dropped"), 0);
    EXPECT_EQ(Count(table, "before"), 1);

    CQvHandleLoc queue;
    ASSERT_EQ(queue.MQdb_Alloc(m_strAddr, "jobs", "", 3, 0, m_nPort), 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(queue.ReplaceHandle(), 0);
    testing::internal::GetCapturedStdout();
    unsigned long long id = 0, length = 0;
    ASSERT_EQ(queue.MQdb_PushMessage(VariableData(1), "", id, 0), 0);
    ASSERT_EQ(queue.MQdb_GetLength(length), 0);
    EXPECT_EQ(length, 1u);
}
