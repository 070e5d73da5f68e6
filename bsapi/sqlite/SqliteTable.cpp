// The embedded engine's table database: real SQL tables with "_FIELD_AUTOID_" and a creation time,
// their field descriptions kept beside them in _bs_table and _bs_field.
#include <ctime>

#include "bsapi/Location.h"
#include "bsapi/Values.h"
#include "bsapi/sqlite/SqliteTableSql.h"

namespace bsapi {

using tarn::VariableData;

namespace {

const char* const kTableSchema =
    "CREATE TABLE IF NOT EXISTS _bs_table(name TEXT PRIMARY KEY) WITHOUT ROWID;"
    "CREATE TABLE IF NOT EXISTS _bs_field(tbl TEXT NOT NULL, pos INTEGER NOT NULL,"
    " name TEXT NOT NULL, type INTEGER NOT NULL, length INTEGER NOT NULL, idx INTEGER NOT NULL,"
    " PRIMARY KEY(tbl, pos)) WITHOUT ROWID;";

const char* DeclType(unsigned char tag) {
    switch (tag) {
        case VariableData::VT_STRING:
            return "BLOB";
        case VariableData::VT_DOUBLE:
        case VariableData::VT_FLOAT:
            return "REAL";
        default:
            return "INTEGER";
    }
}

class CSqliteTable : public CTableSession {
public:
    // Cursors may keep the connection beyond the handle; the handle's transaction ends with it.
    ~CSqliteTable() override {
        if (m_pConn && m_pConn->InUserTxn())
            m_pConn->RollbackUser();
    }
    int KeepLive() override { return m_pConn ? m_pConn->KeepLive() : BS_ERR_CONN_CLOSED; }

    int Open(const CServerAddr& server, const std::string& dbName) override {
        std::string file = TableDbFilePath(server, dbName);
        if (m_pConn && m_pConn->Path() == file)
            return BS_OK;
        if (MakeDirs(ServerDir(server)) != BS_OK)
            return BS_ERR_IO;
        std::shared_ptr<CSqliteConn> conn;
        int rc = CSqliteConn::Open(file, true, kTableSchema, conn, true);
        if (rc == BS_OK) {
            if (m_pConn && m_pConn->InUserTxn())
                m_pConn->RollbackUser();
            m_pConn = std::move(conn);
        }
        return rc;
    }

    int CreateTable(const std::string& table, const std::vector<bs_tdfield>& fields,
                    bool acceptExisting) override {
        CWriteScope scope(*m_pConn);
        int rc = scope.Begin();
        if (rc != BS_OK)
            return rc;
        std::vector<bs_tdfield> existing;
        rc = Fields(table, existing);
        if (rc == BS_OK)
            return scope.Finish(acceptExisting ? BS_OK : BS_ERR_EXISTS);
        if (rc != BS_ERR_NO_TABLE)
            return scope.Finish(rc);
        std::string q = QuoteIdent(table);
        std::string sql = "CREATE TABLE " + q + "(" + kAutoId +
                          " INTEGER PRIMARY KEY AUTOINCREMENT, " + kCTime + " INTEGER NOT NULL";
        for (const bs_tdfield& f : fields)
            sql += ", " + QuoteIdent(f.name) + " " + DeclType(f.type);
        sql += ");CREATE INDEX " + QuoteIdent(table + "$ctime") + " ON " + q + "(" + kCTime + ");";
        for (const bs_tdfield& f : fields) {
            if (f.indexed == BS_FIELD_UNIQUE) {
                sql += "CREATE UNIQUE INDEX " + QuoteIdent(table + "$" + f.name) + " ON " + q +
                       "(" + QuoteIdent(f.name) + ");";
            } else if (f.indexed)
                sql += "CREATE INDEX " + QuoteIdent(table + "$" + f.name) + " ON " + q + "(" +
                       QuoteIdent(f.name) + ");";
        }
        rc = m_pConn->Exec(sql.c_str());
        CStmtGuard g;
        if (rc == BS_OK)
            rc = Prepare(*m_pConn, "INSERT INTO _bs_table(name) VALUES(?1)", g.m_pSt);
        if (rc == BS_OK) {
            BindText(g.m_pSt, 1, table);
            rc = StepDone(g.m_pSt, m_pConn->Db());
        }
        CStmtGuard f;
        if (rc == BS_OK)
            rc = Prepare(*m_pConn, "INSERT INTO _bs_field VALUES(?1,?2,?3,?4,?5,?6)", f.m_pSt);
        for (size_t i = 0; rc == BS_OK && i < fields.size(); ++i) {
            BindText(f.m_pSt, 1, table);
            sqlite3_bind_int64(f.m_pSt, 2, static_cast<long long>(i));
            BindText(f.m_pSt, 3, fields[i].name);
            sqlite3_bind_int(f.m_pSt, 4, fields[i].type);
            sqlite3_bind_int64(f.m_pSt, 5, fields[i].length);
            sqlite3_bind_int(f.m_pSt, 6, fields[i].indexed);
            rc = StepDone(f.m_pSt, m_pConn->Db());
        }
        return scope.Finish(rc);
    }

    int DeleteTable(const std::string& table, bool acceptMissing) override {
        CWriteScope scope(*m_pConn);
        int rc = scope.Begin();
        if (rc != BS_OK)
            return rc;
        std::vector<bs_tdfield> existing;
        rc = Fields(table, existing);
        if (rc == BS_ERR_NO_TABLE)
            return scope.Finish(acceptMissing ? BS_OK : BS_ERR_NO_TABLE);
        if (rc != BS_OK)
            return scope.Finish(rc);
        rc = m_pConn->Exec(("DROP TABLE " + QuoteIdent(table)).c_str());
        for (const char* sql :
             {"DELETE FROM _bs_table WHERE name=?1", "DELETE FROM _bs_field WHERE tbl=?1"}) {
            CStmtGuard g;
            if (rc == BS_OK)
                rc = Prepare(*m_pConn, sql, g.m_pSt);
            if (rc == BS_OK) {
                BindText(g.m_pSt, 1, table);
                rc = StepDone(g.m_pSt, m_pConn->Db());
            }
        }
        return scope.Finish(rc);
    }

    int TableNames(std::list<std::string>& names) override {
        CStmtGuard g;
        int rc = Prepare(*m_pConn, "SELECT name FROM _bs_table ORDER BY name", g.m_pSt);
        if (rc != BS_OK)
            return rc;
        std::list<std::string> out;
        int s;
        while ((s = sqlite3_step(g.m_pSt)) == SQLITE_ROW)
            out.push_back(ColumnText(g.m_pSt, 0));
        if (s != SQLITE_DONE)
            return MapSqlite(s, m_pConn->Db());
        names.swap(out);
        return BS_OK;
    }

    int Fields(const std::string& table, std::vector<bs_tdfield>& fields) override {
        CStmtGuard g;
        int rc = Prepare(*m_pConn,
                         "SELECT f.name, f.type, f.length, f.idx, t.name FROM _bs_table t LEFT JOIN"
                         " _bs_field f ON f.tbl=t.name WHERE t.name=?1 ORDER BY f.pos",
                         g.m_pSt);
        if (rc != BS_OK)
            return rc;
        BindText(g.m_pSt, 1, table);
        std::vector<bs_tdfield> out;
        bool found = false;
        int s;
        while ((s = sqlite3_step(g.m_pSt)) == SQLITE_ROW) {
            found = true;
            if (sqlite3_column_type(g.m_pSt, 0) == SQLITE_NULL)
                continue;  // a table without fields
            bs_tdfield f;
            f.name = ColumnText(g.m_pSt, 0);
            f.type = static_cast<unsigned char>(sqlite3_column_int(g.m_pSt, 1));
            f.length = static_cast<unsigned int>(sqlite3_column_int64(g.m_pSt, 2));
            f.indexed = static_cast<unsigned char>(sqlite3_column_int(g.m_pSt, 3));
            out.push_back(f);
        }
        if (s != SQLITE_DONE)
            return MapSqlite(s, m_pConn->Db());
        if (!found)
            return BS_ERR_NO_TABLE;
        fields.swap(out);
        return BS_OK;
    }

    int Insert(const std::string& table, const std::vector<VariableData>& values, long createTime,
               unsigned long long& id) override;
    int Select(const std::string& table, const CSelection& sel, unsigned int& count,
               std::unique_ptr<CCursor>& cursor) override;
    int Update(const std::string& table, const std::vector<std::string>& fields,
               const std::vector<VariableData>& values, const CSelection& sel,
               unsigned int& changed) override;
    int Delete(const std::string& table, const CSelection& sel, unsigned int& deleted) override;
    int LastRecords(const std::string& table, unsigned int count,
                    std::list<bs_record>& out) override;
    int Begin() override { return m_pConn->BeginUser(); }
    int Commit() override { return m_pConn->CommitUser(); }
    int Rollback() override { return m_pConn->RollbackUser(); }

private:
    int Where(const std::string& table, const CSelection& sel, std::vector<bs_tdfield>& fields,
              CWhere& where) {
        int rc = Fields(table, fields);
        return rc != BS_OK ? rc : BuildWhere(sel, fields, where);
    }

    std::shared_ptr<CSqliteConn> m_pConn;
};

int CSqliteTable::Insert(const std::string& table, const std::vector<VariableData>& values,
                         long createTime, unsigned long long& id) {
    std::vector<bs_tdfield> fields;
    int rc = Fields(table, fields);
    if (rc != BS_OK)
        return rc;
    if (values.size() > fields.size())
        return BS_ERR_BAD_ARG;
    std::vector<VariableData> typed(values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        rc = CoerceToField(fields[i], values[i], typed[i]);
        if (rc != BS_OK)
            return rc;
    }
    std::string cols = kCTime, marks = "?";
    for (size_t i = 0; i < values.size(); ++i) {
        cols += "," + QuoteIdent(fields[i].name);
        marks += ",?";
    }
    CStmtGuard g;
    rc = Prepare(*m_pConn,
                 "INSERT INTO " + QuoteIdent(table) + "(" + cols + ") VALUES(" + marks + ")",
                 g.m_pSt);
    if (rc != BS_OK)
        return rc;
    sqlite3_bind_int64(g.m_pSt, 1, createTime);
    for (size_t i = 0; i < typed.size(); ++i)
        BindValue(g.m_pSt, static_cast<int>(i) + 2, typed[i]);
    rc = StepDone(g.m_pSt, m_pConn->Db());
    if (rc == BS_OK)
        id = static_cast<unsigned long long>(sqlite3_last_insert_rowid(m_pConn->Db()));
    return rc;
}

int CSqliteTable::Select(const std::string& table, const CSelection& sel, unsigned int& count,
                         std::unique_ptr<CCursor>& cursor) {
    std::vector<bs_tdfield> fields;
    CWhere where;
    int rc = Where(table, sel, fields, where);
    if (rc != BS_OK)
        return rc;
    CStmtGuard g;
    rc = Prepare(*m_pConn, "SELECT count(*) FROM " + QuoteIdent(table) + " WHERE " + where.m_strSql,
                 g.m_pSt);
    if (rc != BS_OK)
        return rc;
    int i = 1;
    for (const VariableData& v : where.m_vecArgs)
        BindValue(g.m_pSt, i++, v);
    int s = sqlite3_step(g.m_pSt);
    if (s != SQLITE_ROW)
        return MapSqlite(s, m_pConn->Db());
    unsigned int n = static_cast<unsigned int>(sqlite3_column_int64(g.m_pSt, 0));
    rc = NewSqliteCursor(m_pConn, table, std::move(fields), std::move(where), cursor);
    if (rc == BS_OK)
        count = n;
    return rc;
}

int CSqliteTable::Update(const std::string& table, const std::vector<std::string>& names,
                         const std::vector<VariableData>& values, const CSelection& sel,
                         unsigned int& changed) {
    if (names.size() != values.size() || names.empty())
        return BS_ERR_BAD_ARG;
    std::vector<bs_tdfield> fields;
    CWhere where;
    int rc = Where(table, sel, fields, where);
    if (rc != BS_OK)
        return rc;
    std::string set;
    std::vector<VariableData> typed(values.size());
    for (size_t i = 0; i < names.size(); ++i) {
        const bs_tdfield* f = nullptr;
        for (const bs_tdfield& x : fields) {
            if (x.name == names[i])
                f = &x;
        }
        if (f == nullptr)
            return BS_ERR_NO_FIELD;
        rc = CoerceToField(*f, values[i], typed[i]);
        if (rc != BS_OK)
            return rc;
        set += (i ? "," : "") + QuoteIdent(names[i]) + "=?";
    }
    std::string cond = where.m_strSql;
    if (sel.m_nLimit > 0) {
        cond = std::string(kAutoId) + " IN (SELECT " + kAutoId + " FROM " + QuoteIdent(table) +
               " WHERE " + cond + " ORDER BY " + kCTime + "," + kAutoId + " LIMIT " +
               std::to_string(sel.m_nLimit) + ")";
    }
    CStmtGuard g;
    rc = Prepare(*m_pConn, "UPDATE " + QuoteIdent(table) + " SET " + set + " WHERE " + cond,
                 g.m_pSt);
    if (rc != BS_OK)
        return rc;
    int i = 1;
    for (const VariableData& v : typed)
        BindValue(g.m_pSt, i++, v);
    for (const VariableData& v : where.m_vecArgs)
        BindValue(g.m_pSt, i++, v);
    rc = StepDone(g.m_pSt, m_pConn->Db());
    if (rc == BS_OK)
        changed = static_cast<unsigned int>(sqlite3_changes(m_pConn->Db()));
    return rc;
}

int CSqliteTable::Delete(const std::string& table, const CSelection& sel, unsigned int& deleted) {
    std::vector<bs_tdfield> fields;
    CWhere where;
    int rc = Where(table, sel, fields, where);
    if (rc != BS_OK)
        return rc;
    std::string cond = where.m_strSql;
    if (sel.m_nLimit > 0) {
        cond = std::string(kAutoId) + " IN (SELECT " + kAutoId + " FROM " + QuoteIdent(table) +
               " WHERE " + cond + " ORDER BY " + kCTime + "," + kAutoId + " LIMIT " +
               std::to_string(sel.m_nLimit) + ")";
    }
    CStmtGuard g;
    rc = Prepare(*m_pConn, "DELETE FROM " + QuoteIdent(table) + " WHERE " + cond, g.m_pSt);
    if (rc != BS_OK)
        return rc;
    int i = 1;
    for (const VariableData& v : where.m_vecArgs)
        BindValue(g.m_pSt, i++, v);
    rc = StepDone(g.m_pSt, m_pConn->Db());
    if (rc == BS_OK)
        deleted = static_cast<unsigned int>(sqlite3_changes(m_pConn->Db()));
    return rc;
}

int CSqliteTable::LastRecords(const std::string& table, unsigned int count,
                              std::list<bs_record>& out) {
    std::vector<bs_tdfield> fields;
    int rc = Fields(table, fields);
    if (rc != BS_OK)
        return rc;
    CStmtGuard g;
    rc = Prepare(*m_pConn,
                 "SELECT " + SelectList(fields) + " FROM " + QuoteIdent(table) + " ORDER BY " +
                     kAutoId + " DESC LIMIT " + std::to_string(count),
                 g.m_pSt);
    if (rc != BS_OK)
        return rc;
    std::list<bs_record> rows;
    int s;
    while ((s = sqlite3_step(g.m_pSt)) == SQLITE_ROW) {
        rows.emplace_back();
        ReadRow(g.m_pSt, fields, rows.back());
    }
    if (s != SQLITE_DONE)
        return MapSqlite(s, m_pConn->Db());
    out.swap(rows);
    return BS_OK;
}

}  // namespace

std::unique_ptr<CTableSession> NewSqliteTable() {
    return std::make_unique<CSqliteTable>();
}

}  // namespace bsapi
