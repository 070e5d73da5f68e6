// The networked engine: PostgreSQL through libpq. One schema per database server (address and
// port), created on first use; one connection per handle. The calls that need no handle run on a
// connection of their own for the call.
#include "bsapi/postgres/PgEngine.h"

namespace bsapi {

namespace {

const char* const kNewTree =
    "INSERT INTO bs_tree(name) VALUES($1::bytea) ON CONFLICT (name) DO NOTHING RETURNING id";
const char* const kMainKeys =
    "SELECT k.name FROM bs_tree t LEFT JOIN bs_key k ON k.tree = t.id AND k.parent IS NULL"
    " WHERE t.name = $1::bytea ORDER BY k.name";
const char* const kTableDbs = "SELECT name FROM bs_tabledb ORDER BY name";
const char* const kQueues = "SELECT name FROM bs_queue ORDER BY name";

// Runs `sql` on a connection of its own and collects column 0 (NULL rows left out); `rows` gets
// the number of rows, NULL ones included.
int Names(const CServerAddr& server, const char* sql, const CPgParams& params,
          std::list<std::string>& names, int* rows = nullptr) {
    std::shared_ptr<CPgConn> conn;
    int rc = PgConnect(server, conn);
    CPgResult res;
    if (rc == BS_OK)
        rc = conn->Run(sql, params, res);
    if (rc != BS_OK)
        return rc;
    std::list<std::string> out;
    for (int r = 0; r < res.Rows(); ++r) {
        if (!res.IsNull(r, 0))
            out.push_back(res.Bytes(r, 0));
    }
    if (rows != nullptr)
        *rows = res.Rows();
    names.swap(out);
    return BS_OK;
}

class CPgEngine : public CEngine {
public:
    CEngineStore& Store() override { return PgStore(); }
    std::unique_ptr<CTreeSession> NewTree() override { return std::make_unique<CPgTree>(); }
    std::unique_ptr<CTableSession> NewTable() override { return NewPgTable(); }
    std::unique_ptr<CQueueSession> NewQueue() override { return NewPgQueue(); }

    int CreateTree(const CServerAddr& server, const std::string& tree) override {
        std::shared_ptr<CPgConn> conn;
        int rc = PgConnect(server, conn);
        CPgResult res;
        if (rc == BS_OK)
            rc = conn->Run(kNewTree, CPgParams().Bytes(tree), res);
        if (rc != BS_OK)
            return rc;
        return res.Rows() == 1 ? BS_OK : BS_ERR_EXISTS;
    }

    int MainKeys(const CServerAddr& server, const std::string& tree,
                 std::list<std::string>& names) override {
        std::list<std::string> out;
        int rows = 0;
        int rc = Names(server, kMainKeys, CPgParams().Bytes(tree), out, &rows);
        if (rc != BS_OK)
            return rc;
        if (rows == 0)
            return BS_ERR_NO_TREE;
        names.swap(out);
        return BS_OK;
    }

    int TableDbNames(const CServerAddr& server, std::list<std::string>& names) override {
        return Names(server, kTableDbs, CPgParams(), names);
    }

    int QueueNames(const CServerAddr& server, std::list<std::string>& names) override {
        return Names(server, kQueues, CPgParams(), names);
    }
};

}  // namespace

CEngine* PostgresEngine() {
    static CPgEngine& engine = *new CPgEngine;  // never destroyed: calls may come in at exit
    return &engine;
}

}  // namespace bsapi
