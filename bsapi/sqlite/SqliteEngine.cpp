// The embedded engine: its file layout below the server directory and the calls that need no
// handle.
//
// <root>/<address>_<port>/tree_<name>.db     one file per tree
// <root>/<address>_<port>/table_<name>.db    one file per table database
// <root>/<address>_<port>/queues.db          every queue of the server
// <root>/<address>_<port>/queues.wake        the wake-up counters of blocking pops
#include <dirent.h>

#include "bsapi/Location.h"
#include "bsapi/sqlite/SqliteEngine.h"

namespace bsapi {

std::string TreeFilePath(const CServerAddr& server, const std::string& tree) {
    return ServerDir(server) + "/tree_" + EncodeFilePart(tree) + ".db";
}

std::string TableDbFilePath(const CServerAddr& server, const std::string& db) {
    return ServerDir(server) + "/table_" + EncodeFilePart(db) + ".db";
}

std::string QueueFilePath(const CServerAddr& server) {
    return ServerDir(server) + "/queues.db";
}

int ListServerFiles(const CServerAddr& server, const std::string& prefix,
                    std::list<std::string>& names) {
    std::list<std::string> out;
    DIR* dir = ::opendir(ServerDir(server).c_str());
    if (dir != nullptr) {
        while (struct dirent* e = ::readdir(dir)) {
            std::string f = e->d_name;
            if (f.size() <= prefix.size() + 3 || f.compare(0, prefix.size(), prefix) != 0 ||
                f.compare(f.size() - 3, 3, ".db") != 0) {
                continue;
            }
            std::string name;
            if (DecodeFilePart(f.substr(prefix.size(), f.size() - prefix.size() - 3), name)) {
                out.push_back(name);
            }
        }
        ::closedir(dir);
    }
    out.sort();
    names.swap(out);
    return BS_OK;
}

namespace {

class CSqliteEngine : public CEngine {
public:
    CEngineStore& Store() override { return SqliteStore(); }
    std::unique_ptr<CTreeSession> NewTree() override { return std::make_unique<CSqliteTree>(); }
    std::unique_ptr<CTableSession> NewTable() override { return NewSqliteTable(); }
    std::unique_ptr<CQueueSession> NewQueue() override { return NewSqliteQueue(); }

    int CreateTree(const CServerAddr& server, const std::string& tree) override {
        std::string file = TreeFilePath(server, tree);
        if (FileExists(file))
            return BS_ERR_EXISTS;
        if (MakeDirs(ServerDir(server)) != BS_OK)
            return BS_ERR_IO;
        std::shared_ptr<CSqliteConn> conn;
        return CSqliteConn::Open(file, true, kTreeSchema, conn);
    }

    int MainKeys(const CServerAddr& server, const std::string& tree,
                 std::list<std::string>& names) override {
        std::shared_ptr<CSqliteConn> conn;
        int rc = CSqliteConn::Open(TreeFilePath(server, tree), false, kTreeSchema, conn);
        if (rc == BS_ERR_CONN_LOST)
            return BS_ERR_NO_TREE;
        if (rc != BS_OK)
            return rc;
        sqlite3_stmt* st =
            conn->Stmt(0, "SELECT name FROM bs_key WHERE parent=0 ORDER BY name", rc);
        if (st == nullptr)
            return rc;
        return StepTexts(st, conn->Db(), names);
    }

    int TableDbNames(const CServerAddr& server, std::list<std::string>& names) override {
        return ListServerFiles(server, "table_", names);
    }

    int QueueNames(const CServerAddr& server, std::list<std::string>& names) override {
        std::string file = QueueFilePath(server);
        if (!FileExists(file)) {
            names.clear();
            return BS_OK;
        }
        std::shared_ptr<CSqliteConn> conn;
        int rc = CSqliteConn::Open(file, false, QueueSchema(), conn);
        if (rc != BS_OK)
            return rc;
        sqlite3_stmt* st = conn->Stmt(0, "SELECT name FROM bs_queue ORDER BY name", rc);
        if (st == nullptr)
            return rc;
        return StepTexts(st, conn->Db(), names);
    }
};

}  // namespace

CEngine* SqliteEngine() {
    static CSqliteEngine engine;
    return &engine;
}

}  // namespace bsapi
