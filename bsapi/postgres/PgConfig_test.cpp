// Tests of the networked engine's schema names: every database server (address and port) keeps
// its own data, however long or odd its address. PostgreSQL cuts names at 63 bytes, so an address
// that would not fit must be hashed rather than cut.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bsapi/bsapi.h"
#include "tests/support/PgServer.h"

namespace {

TEST(PgConfigTest, EveryAddressAndPortKeepsItsOwnData) {
    ASSERT_NO_FATAL_FAILURE(ws_test::UseEngine("postgres"));
    const std::string stem(60, 'a');  // the two long addresses differ beyond 63 bytes of a name
    const std::vector<std::pair<std::string, unsigned short>> servers = {
        {stem + ".one", 23001}, {stem + ".two", 23001}, {"quote\"d and blank", 23001},
        {"Upper", 23001},       {"upper", 23001},       {"upper", 23002}};
    // Each server is marked with its own name, then every mark is read back: servers that share
    // a schema would see the mark the last of them wrote.
    for (bool write : {true, false}) {
        for (const auto& server : servers) {
            const std::string mark = server.first + ":" + std::to_string(server.second);
            void* h = BS_INVALID_HANDLE;
            ASSERT_EQ(bs_treedb_open(h, "main", "", "", BS_OPEN_CREATE, "t", server.first.c_str(),
                                     server.second),
                      BS_OK)
                << mark;
            tarn::VariableData value(mark);
            if (write) {
                EXPECT_EQ(bs_treedb_insert_property(h, "mark", value, true), BS_OK) << mark;
            } else {
                EXPECT_EQ(bs_treedb_get_property(h, "mark", value), BS_OK) << mark;
                EXPECT_EQ(value.GetText(), mark);
            }
            bs_close_handle(h);
        }
    }
}

}  // namespace
