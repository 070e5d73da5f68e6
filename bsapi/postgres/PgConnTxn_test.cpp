// Tests of the networked engine's transactions: an operation of several statements that fails
// inside the caller's transaction is undone alone, and the transaction goes on. (The server
// aborts a whole transaction at its first failed statement unless a savepoint catches it.)
#include <gtest/gtest.h>

#include <list>
#include <string>

#include "bsapi/bsapi.h"
#include "tests/support/PgServer.h"

namespace {

TEST(PgConnTxnTest, FailedOperationInsideATransactionIsUndoneAlone) {
    ASSERT_NO_FATAL_FAILURE(ws_test::UseEngine("postgres"));
    void* h = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_tabledb_open(h, "events", "", "", 0, 0, "127.0.0.1", 23101), BS_OK);
    const std::list<bs_tdfield*> none;
    ASSERT_EQ(bs_tabledb_begin_transaction(h), BS_OK);
    ASSERT_EQ(bs_tabledb_create_table(h, "Kept", none, 0), BS_OK);
    // Creating "kept" fails at its second statement, on the catalogue's letter-case rule.
    EXPECT_EQ(bs_tabledb_create_table(h, "kept", none, 0), BS_ERR_EXISTS);
    EXPECT_EQ(bs_tabledb_create_table(h, "later", none, 0), BS_OK);
    EXPECT_EQ(bs_tabledb_commit_transaction(h), BS_OK);
    std::list<std::string> names;
    EXPECT_EQ(bs_tabledb_get_all_tablenames(h, names), BS_OK);
    EXPECT_EQ(names, std::list<std::string>({"Kept", "later"}));
    bs_close_handle(h);
}

}  // namespace
