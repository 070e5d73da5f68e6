// The networked engine's schema: one per database server, created on first use by whichever
// process gets there first, under an advisory lock so that two never race.
//
//   bs_meta(version, address, port)            the schema's version and its database server
//   bs_tree(id, name)                          trees
//   bs_key(id, tree, parent, name, path, phash) keys; path = "main\a\b", phash = sha256(path):
//                                              opening a path is one probe of (tree, phash), and
//                                              a path of any length fits the index. Children by
//                                              (parent, name); deleting a key deletes its subtree
//                                              and properties by the foreign keys.
//   bs_prop(key, name, value)                  properties, the value in its serial form
//   bs_queue(id, name), bs_msg(...)            queues and their messages
//   bs_tabledb(id, name), bs_table(...), bs_field(...)
//                                              table databases and the description of each table;
//                                              table N's records live in the real table tN.
#include <mutex>
#include <set>

#include "bsapi/postgres/PgConn.h"
#include "bsapi/postgres/PgEngine.h"

namespace bsapi {

namespace {

const char* const kSchemaSql =
    "CREATE TABLE IF NOT EXISTS bs_meta(version int NOT NULL, address bytea NOT NULL,"
    " port int NOT NULL);"
    "CREATE TABLE IF NOT EXISTS bs_tree(id bigserial PRIMARY KEY, name bytea NOT NULL UNIQUE);"
    "CREATE TABLE IF NOT EXISTS bs_key(id bigserial PRIMARY KEY,"
    " tree bigint NOT NULL REFERENCES bs_tree(id) ON DELETE CASCADE,"
    " parent bigint REFERENCES bs_key(id) ON DELETE CASCADE, name bytea NOT NULL,"
    " path bytea NOT NULL, phash bytea GENERATED ALWAYS AS (sha256(path)) STORED);"
    "CREATE UNIQUE INDEX IF NOT EXISTS bs_key_path ON bs_key(tree, phash);"
    "CREATE INDEX IF NOT EXISTS bs_key_parent ON bs_key(parent, name);"
    "CREATE INDEX IF NOT EXISTS bs_key_main ON bs_key(tree, name) WHERE parent IS NULL;"
    "CREATE TABLE IF NOT EXISTS bs_prop(key bigint NOT NULL REFERENCES bs_key(id)"
    " ON DELETE CASCADE, name bytea NOT NULL, value bytea NOT NULL, PRIMARY KEY(key, name));"
    "CREATE TABLE IF NOT EXISTS bs_queue(id bigserial PRIMARY KEY, name bytea NOT NULL UNIQUE);"
    "CREATE TABLE IF NOT EXISTS bs_msg(id bigserial PRIMARY KEY,"
    " queue bigint NOT NULL REFERENCES bs_queue(id) ON DELETE CASCADE, prio smallint NOT NULL,"
    " name bytea NOT NULL, ctime bigint NOT NULL, value bytea NOT NULL);"
    "CREATE INDEX IF NOT EXISTS bs_msg_order ON bs_msg(queue, prio DESC, id);"
    "CREATE TABLE IF NOT EXISTS bs_tabledb(id bigserial PRIMARY KEY, name bytea NOT NULL UNIQUE);"
    "CREATE TABLE IF NOT EXISTS bs_table(id bigserial PRIMARY KEY,"
    " db bigint NOT NULL REFERENCES bs_tabledb(id) ON DELETE CASCADE, name bytea NOT NULL,"
    " lname bytea NOT NULL, UNIQUE(db, name), UNIQUE(db, lname));"
    "CREATE TABLE IF NOT EXISTS bs_field(tbl bigint NOT NULL REFERENCES bs_table(id)"
    " ON DELETE CASCADE, pos int NOT NULL, name bytea NOT NULL, type smallint NOT NULL,"
    " length bigint NOT NULL, idx smallint NOT NULL, PRIMARY KEY(tbl, pos));";
const char* const kMeta =
    "INSERT INTO bs_meta(version, address, port) SELECT 1, $1::bytea, $2::bigint"
    " WHERE NOT EXISTS(SELECT 1 FROM bs_meta)";

// Schemas this process has seen in place. Never destroyed: threads may open handles at exit.
std::mutex& g_mtxSchemas = *new std::mutex;  // guards g_setSchemas
std::set<std::string>& g_setSchemas = *new std::set<std::string>;

}  // namespace

int PgEnsureSchema(CPgConn& conn, const CServerAddr& server) {
    {
        std::lock_guard<std::mutex> lock(g_mtxSchemas);
        if (g_setSchemas.count(conn.Schema()))
            return BS_OK;
    }
    CPgResult res;
    int rc = conn.Run("SELECT to_regclass('bs_meta') IS NOT NULL", CPgParams(), res);
    if (rc != BS_OK)
        return rc;
    if (res.Rows() != 1 || !res.Int(0, 0)) {
        // The schema name is our own identifier (PgSchemaName): letters, digits, "_", "." and
        // "-" only, so it can be quoted into the statement.
        rc = conn.BeginScope();
        if (rc == BS_OK)
            rc = conn.Run("SELECT pg_advisory_xact_lock($1::bigint)",
                          CPgParams().Int(kSchemaLockKey));
        if (rc == BS_OK)
            rc = conn.Simple("CREATE SCHEMA IF NOT EXISTS \"" + conn.Schema() + "\"");
        if (rc == BS_OK)
            rc = conn.Simple(kSchemaSql);
        if (rc == BS_OK)
            rc = conn.Run(kMeta, CPgParams().Bytes(server.m_strAddress).Int(server.m_nPort));
        rc = conn.EndScope(rc);
        if (rc != BS_OK)
            return rc;
    }
    std::lock_guard<std::mutex> lock(g_mtxSchemas);
    g_setSchemas.insert(conn.Schema());
    return BS_OK;
}

void PgForgetSchema(const std::string& schema) {
    std::lock_guard<std::mutex> lock(g_mtxSchemas);
    g_setSchemas.erase(schema);
}

}  // namespace bsapi
