// The networked engine's side of moving an installation between engines: the servers and trees it
// holds, every message of a queue, and records and messages written with the ids they had (the
// sequences then set past them, so that no id is ever handed out twice).
#include "bsapi/postgres/PgConfig.h"
#include "bsapi/postgres/PgTableSql.h"

namespace bsapi {

namespace {

const char* const kSchemas =
    "SELECT nspname FROM pg_namespace WHERE nspname LIKE 'bs\\_%' OR nspname LIKE 'bsh\\_%'"
    " ORDER BY nspname";
const char* const kTrees = "SELECT name FROM bs_tree ORDER BY name";
const char* const kMessages =
    "SELECT m.id, m.prio, m.name, m.ctime, m.value FROM bs_msg m JOIN bs_queue q"
    " ON q.id = m.queue WHERE q.name = $1::bytea ORDER BY m.prio DESC, m.id";
const char* const kPutMessage =
    "INSERT INTO bs_msg(id, queue, prio, name, ctime, value) SELECT $1::bigint, id, $2::bigint,"
    " $3::bytea, $4::bigint, $5::bytea FROM bs_queue WHERE name = $6::bytea";
const char* const kTable =
    "SELECT t.id FROM bs_table t JOIN bs_tabledb d ON d.id = t.db"
    " WHERE d.name = $1::bytea AND t.name = $2::bytea";

// Sets sequence `seq` of `table` past every id the table holds and every id it handed out.
std::string SetPast(const std::string& table, const std::string& seq) {
    return "SELECT setval('" + seq + "', GREATEST((SELECT max(id) FROM " + table +
           "), (SELECT last_value FROM " + seq + ")))";
}

class CPgStore : public CEngineStore {
public:
    int Servers(std::list<CServerAddr>& servers) override {
        // A schema that is not there yet costs nothing: this connection creates none.
        std::shared_ptr<CPgConn> conn;
        CServerAddr none;
        none.m_strAddress = "catalog";
        int rc = CPgConn::Connect(none, conn, false);
        CPgResult res;
        if (rc == BS_OK)
            rc = conn->Run(kSchemas, CPgParams(), res);
        if (rc != BS_OK)
            return rc;
        std::list<CServerAddr> out;
        for (int r = 0; r < res.Rows(); ++r) {
            std::string schema = res.Bytes(r, 0), quoted;
            for (char c : schema)
                quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
            CPgResult meta;
            if (conn->Run("SELECT address, port FROM \"" + quoted + "\".bs_meta", CPgParams(),
                          meta) != BS_OK ||
                meta.Rows() != 1)
                continue;  // a schema of that name that is not one of ours
            CServerAddr s;
            s.m_strAddress = meta.Bytes(0, 0);
            s.m_nPort = static_cast<unsigned short>(meta.Int(0, 1));
            if (PgSchemaName(s) == schema)
                out.push_back(s);
        }
        servers.swap(out);
        return BS_OK;
    }

    int Trees(const CServerAddr& server, std::list<std::string>& names) override {
        std::list<std::string> out;
        CPgResult res;
        int rc = Read(server, kTrees, CPgParams(), res);
        for (int r = 0; rc == BS_OK && r < res.Rows(); ++r)
            out.push_back(res.Bytes(r, 0));
        if (rc == BS_OK)
            names.swap(out);
        return rc;
    }

    int Messages(const CServerAddr& server, const std::string& queue,
                 std::vector<CStoredMessage>& out) override {
        CPgResult res;
        int rc = Read(server, kMessages, CPgParams().Bytes(queue), res);
        std::vector<CStoredMessage> all(static_cast<size_t>(res.Rows()));
        for (int r = 0; rc == BS_OK && r < res.Rows(); ++r) {
            CStoredMessage& m = all[static_cast<size_t>(r)];
            m.m_ullId = static_cast<unsigned long long>(res.Int(r, 0));
            m.m_byPriority = static_cast<unsigned char>(res.Int(r, 1));
            m.m_strName = res.Bytes(r, 2);
            m.m_lTime = static_cast<long>(res.Int(r, 3));
            if (!res.Serial(r, 4, m.m_varValue))
                rc = BS_ERR_CORRUPT;
        }
        if (rc == BS_OK)
            out.swap(all);
        return rc;
    }

    int PutMessages(const CServerAddr& server, const std::string& queue,
                    const std::vector<CStoredMessage>& messages) override {
        std::shared_ptr<CPgConn> conn;
        int rc = PgConnect(server, conn);
        if (rc == BS_OK)
            rc = conn->BeginScope();
        for (size_t i = 0; rc == BS_OK && i < messages.size(); ++i) {
            const CStoredMessage& m = messages[i];
            rc = conn->Run(kPutMessage, CPgParams()
                                            .Int(static_cast<long long>(m.m_ullId))
                                            .Int(m.m_byPriority)
                                            .Bytes(m.m_strName)
                                            .Int(m.m_lTime)
                                            .Serial(m.m_varValue)
                                            .Bytes(queue));
        }
        if (rc == BS_OK)
            rc = conn->Run(SetPast("bs_msg", "bs_msg_id_seq"), CPgParams());
        CPgResult res;
        if (rc == BS_OK)  // waiting pops hear of the messages as of any push
            rc = conn->Run("SELECT id FROM bs_queue WHERE name = $1::bytea",
                           CPgParams().Bytes(queue), res);
        if (rc == BS_OK && res.Rows() == 1)
            rc = conn->Run("SELECT pg_notify($1::text, '')",
                           CPgParams().Bytes(PgChannel(conn->Schema(), res.Int(0, 0))));
        return conn ? conn->EndScope(rc) : rc;
    }

    int PutRecords(const CServerAddr& server, const std::string& db, const std::string& table,
                   const std::vector<bs_tdfield>& fields,
                   const std::vector<bs_record>& records) override {
        std::shared_ptr<CPgConn> conn;
        int rc = PgConnect(server, conn);
        CPgResult res;
        if (rc == BS_OK)
            rc = conn->Run(kTable, CPgParams().Bytes(db).Bytes(table), res);
        if (rc == BS_OK && res.Rows() != 1)
            rc = BS_ERR_NO_TABLE;
        if (rc != BS_OK)
            return rc;
        std::string t = "t" + std::to_string(res.Int(0, 0));
        std::string cols = "id, ctime", marks = "$1::bigint, $2::bigint";
        for (size_t i = 0; i < fields.size(); ++i) {
            cols += ", f" + std::to_string(i);
            marks += ", $" + std::to_string(i + 3) + "::" + PgColumnType(fields[i].type);
        }
        const std::string insert = "INSERT INTO " + t + "(" + cols + ") VALUES(" + marks + ")";
        rc = conn->BeginScope();
        for (size_t r = 0; rc == BS_OK && r < records.size(); ++r) {
            bs_record rec = records[r];
            long ctime = 0;
            rec["_FIELD_CTIME_"].GetTimeValue(ctime);
            CPgParams params;
            params.Int(static_cast<long long>(rec["_FIELD_AUTOID_"])).Int(ctime);
            for (const bs_tdfield& f : fields)
                params.Field(rec[f.name]);
            rc = conn->Run(insert, params);
        }
        if (rc == BS_OK)
            rc = conn->Run(SetPast(t, t + "_id_seq"), CPgParams());
        return conn->EndScope(rc);
    }

private:
    // Runs a reading statement on the server's schema, which may not exist yet (then no rows).
    static int Read(const CServerAddr& server, const char* sql, const CPgParams& params,
                    CPgResult& res) {
        std::shared_ptr<CPgConn> conn;
        int rc = CPgConn::Connect(server, conn, false);
        if (rc == BS_OK)
            rc = conn->Run("SELECT to_regclass('bs_meta') IS NOT NULL", CPgParams(), res);
        if (rc != BS_OK || !res.Int(0, 0)) {
            res.Reset(nullptr);
            return rc;
        }
        return conn->Run(sql, params, res);
    }
};

}  // namespace

CEngineStore& PgStore() {
    static CPgStore& store = *new CPgStore;
    return store;
}

}  // namespace bsapi
