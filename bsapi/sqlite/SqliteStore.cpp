// The embedded engine's side of moving an installation between engines: the server directories
// and tree files below the data root, every message of a queue, and records and messages written
// with the ids they had (AUTOINCREMENT then hands out ids past them).
#include <dirent.h>
#include <sys/stat.h>

#include <cstdlib>

#include "bsapi/Location.h"
#include "bsapi/sqlite/SqliteEngine.h"

namespace bsapi {

namespace {

const char* const kMessages =
    "SELECT m.id, m.prio, m.name, m.ctime, m.tag, m.value FROM bs_msg m JOIN bs_queue q"
    " ON q.id = m.queue WHERE q.name = ?1 ORDER BY m.prio DESC, m.id";
const char* const kPutMessage =
    "INSERT INTO bs_msg(id, queue, prio, name, ctime, tag, value)"
    " SELECT ?1, id, ?2, ?3, ?4, ?5, ?6 FROM bs_queue WHERE name = ?7";

class CSqliteStore : public CEngineStore {
public:
    int Servers(std::list<CServerAddr>& servers) override {
        std::list<CServerAddr> out;
        DIR* dir = ::opendir(DataRoot().c_str());
        while (dir != nullptr) {
            struct dirent* e = ::readdir(dir);
            if (e == nullptr)
                break;
            std::string f = e->d_name, address;
            size_t cut = f.rfind('_');
            struct stat st;
            if (cut == std::string::npos || cut == 0 || cut + 1 == f.size() ||
                f.find_first_not_of("0123456789", cut + 1) != std::string::npos ||
                ::stat((DataRoot() + "/" + f).c_str(), &st) != 0 || !S_ISDIR(st.st_mode) ||
                !DecodeFilePart(f.substr(0, cut), address)) {
                continue;
            }
            CServerAddr s;
            s.m_strAddress = address;
            s.m_nPort = static_cast<unsigned short>(std::atoi(f.c_str() + cut + 1));
            if (ServerDir(s) == DataRoot() + "/" + f)  // the name this server gets, exactly
                out.push_back(s);
        }
        if (dir != nullptr)
            ::closedir(dir);
        servers.swap(out);
        return BS_OK;
    }

    int Trees(const CServerAddr& server, std::list<std::string>& names) override {
        return ListServerFiles(server, "tree_", names);
    }

    int Messages(const CServerAddr& server, const std::string& queue,
                 std::vector<CStoredMessage>& out) override {
        std::vector<CStoredMessage> all;
        if (FileExists(QueueFilePath(server))) {
            std::shared_ptr<CSqliteConn> conn;
            int rc = CSqliteConn::Open(QueueFilePath(server), false, QueueSchema(), conn);
            sqlite3_stmt* st = rc == BS_OK ? conn->Stmt(0, kMessages, rc) : nullptr;
            if (st == nullptr)
                return rc;
            BindText(st, 1, queue);
            int s;
            while ((s = sqlite3_step(st)) == SQLITE_ROW) {
                all.emplace_back();
                CStoredMessage& m = all.back();
                m.m_ullId = static_cast<unsigned long long>(sqlite3_column_int64(st, 0));
                m.m_byPriority = static_cast<unsigned char>(sqlite3_column_int(st, 1));
                m.m_strName = ColumnText(st, 2);
                m.m_lTime = static_cast<long>(sqlite3_column_int64(st, 3));
                ColumnValue(st, 5, static_cast<unsigned char>(sqlite3_column_int(st, 4)),
                            m.m_varValue, true);
            }
            sqlite3_reset(st);
            if (s != SQLITE_DONE)
                return MapSqlite(s, conn->Db());
        }
        out.swap(all);
        return BS_OK;
    }

    int PutMessages(const CServerAddr& server, const std::string& queue,
                    const std::vector<CStoredMessage>& messages) override {
        std::shared_ptr<CSqliteConn> conn;
        int rc = CSqliteConn::Open(QueueFilePath(server), false, QueueSchema(), conn);
        if (rc != BS_OK)
            return rc;
        CWriteScope scope(*conn);
        rc = scope.Begin();
        for (size_t i = 0; rc == BS_OK && i < messages.size(); ++i) {
            const CStoredMessage& m = messages[i];
            sqlite3_stmt* st = conn->Stmt(1, kPutMessage, rc);
            if (st == nullptr)
                break;
            sqlite3_bind_int64(st, 1, static_cast<long long>(m.m_ullId));
            sqlite3_bind_int(st, 2, m.m_byPriority);
            BindText(st, 3, m.m_strName);
            sqlite3_bind_int64(st, 4, m.m_lTime);
            sqlite3_bind_int(st, 5, m.m_varValue.GetType());
            rc = BindValue(st, 6, m.m_varValue);
            if (rc == BS_OK)
                rc = BindText(st, 7, queue);
            if (rc == BS_OK)
                rc = StepDone(st, conn->Db());
        }
        return scope.Finish(rc);
    }

    int PutRecords(const CServerAddr& server, const std::string& db, const std::string& table,
                   const std::vector<bs_tdfield>& fields,
                   const std::vector<bs_record>& records) override {
        std::shared_ptr<CSqliteConn> conn;
        // The table was made through a session, so the file and its schema are there.
        int rc = CSqliteConn::Open(TableDbFilePath(server, db), false, "", conn);
        if (rc != BS_OK)
            return rc;
        std::string cols = "_FIELD_AUTOID_, _FIELD_CTIME_", marks = "?, ?";
        for (const bs_tdfield& f : fields) {
            cols += ", " + QuoteIdent(f.name);
            marks += ", ?";
        }
        std::string sql =
            "INSERT INTO " + QuoteIdent(table) + "(" + cols + ") VALUES(" + marks + ")";
        CWriteScope scope(*conn);
        rc = scope.Begin();
        for (size_t r = 0; rc == BS_OK && r < records.size(); ++r) {
            bs_record rec = records[r];
            long ctime = 0;
            rec["_FIELD_CTIME_"].GetTimeValue(ctime);
            sqlite3_stmt* st = conn->Stmt(0, sql.c_str(), rc);
            if (st == nullptr)
                break;
            sqlite3_bind_int64(st, 1, static_cast<long long>(rec["_FIELD_AUTOID_"]));
            sqlite3_bind_int64(st, 2, ctime);
            for (size_t i = 0; rc == BS_OK && i < fields.size(); ++i)
                rc = BindValue(st, static_cast<int>(i) + 3, rec[fields[i].name]);
            if (rc == BS_OK)
                rc = StepDone(st, conn->Db());
        }
        return scope.Finish(rc);
    }
};

}  // namespace

CEngineStore& SqliteStore() {
    static CSqliteStore& store = *new CSqliteStore;
    return store;
}

}  // namespace bsapi
