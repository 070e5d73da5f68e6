// The embedded engine's typed properties of the current tree key: one row per property with its
// tag, so a value comes back with the type it was written with.
#include "bsapi/sqlite/SqliteEngine.h"
#include "bsapi/sqlite/SqliteTreeSql.h"

namespace bsapi {

using tarn::VariableData;

namespace {

int BindProp(sqlite3_stmt* st, long long key, const std::string& name, const VariableData& v) {
    sqlite3_bind_int64(st, 1, key);
    int rc = BindText(st, 2, name);
    if (rc == BS_OK)
        rc = sqlite3_bind_int(st, 3, v.GetType()) == SQLITE_OK ? BS_OK : BS_ERR_INTERNAL;
    if (rc == BS_OK)
        rc = BindValue(st, 4, v);
    return rc;
}

}  // namespace

int CSqliteTree::GetProperty(const std::string& name, VariableData& value) {
    BS_STMT(st, S_PROP_GET)
    sqlite3_bind_int64(st, 1, m_llKeyId);
    int rc = BindText(st, 2, name);
    if (rc != BS_OK)
        return rc;
    int s = sqlite3_step(st);
    if (s == SQLITE_ROW) {
        ColumnValue(st, 1, static_cast<unsigned char>(sqlite3_column_int(st, 0)), value, true);
        sqlite3_reset(st);
        return BS_OK;
    }
    sqlite3_reset(st);
    return s == SQLITE_DONE ? BS_ERR_NO_KEY : MapSqlite(s, m_pConn->Db());
}

int CSqliteTree::PutOne(const std::string& name, const VariableData& value, bool replace) {
    int slot = replace ? S_PROP_UPSERT : S_PROP_INSERT;
    int code = BS_OK;
    sqlite3_stmt* st = m_pConn->Stmt(slot, kTreeSql[slot], code);
    if (st == nullptr)
        return code;
    int rc = BindProp(st, m_llKeyId, name, value);
    if (rc == BS_OK)
        rc = StepDone(st, m_pConn->Db());
    if (rc != BS_OK)
        return rc;
    if (sqlite3_changes(m_pConn->Db()) > 0)
        return BS_OK;
    // Nothing written: the key has gone, or (without replace) the property exists.
    BS_STMT(ex, S_KEY_EXISTS)
    sqlite3_bind_int64(ex, 1, m_llKeyId);
    int s = sqlite3_step(ex);
    sqlite3_reset(ex);
    if (s == SQLITE_DONE)
        return KeyGone();
    if (s != SQLITE_ROW)
        return MapSqlite(s, m_pConn->Db());
    return BS_ERR_EXISTS;
}

int CSqliteTree::PutProperty(const std::string& name, const VariableData& value, bool replace) {
    return PutOne(name, value, replace);
}

int CSqliteTree::EditProperty(const std::string& name, const VariableData& value) {
    BS_STMT(st, S_PROP_EDIT)
    int rc = BindProp(st, m_llKeyId, name, value);
    if (rc == BS_OK)
        rc = StepDone(st, m_pConn->Db());
    if (rc != BS_OK)
        return rc;
    return sqlite3_changes(m_pConn->Db()) > 0 ? BS_OK : BS_ERR_NO_KEY;
}

int CSqliteTree::DeleteProperty(const std::string& name) {
    BS_STMT(st, S_PROP_DEL)
    sqlite3_bind_int64(st, 1, m_llKeyId);
    int rc = BindText(st, 2, name);
    if (rc == BS_OK)
        rc = StepDone(st, m_pConn->Db());
    if (rc != BS_OK)
        return rc;
    return sqlite3_changes(m_pConn->Db()) > 0 ? BS_OK : BS_ERR_NO_KEY;
}

int CSqliteTree::DeleteAllProperties() {
    BS_STMT(st, S_PROP_DEL_ALL)
    sqlite3_bind_int64(st, 1, m_llKeyId);
    return StepDone(st, m_pConn->Db());
}

int CSqliteTree::RenameProperty(const std::string& oldName, const std::string& newName) {
    CWriteScope scope(*m_pConn);
    int rc = scope.Begin();
    if (rc != BS_OK)
        return rc;
    if (oldName != newName) {
        int c = BS_OK;
        sqlite3_stmt* ex = m_pConn->Stmt(S_PROP_EXISTS, kTreeSql[S_PROP_EXISTS], c);
        if (ex == nullptr)
            return scope.Finish(c);
        sqlite3_bind_int64(ex, 1, m_llKeyId);
        BindText(ex, 2, newName);
        int s = sqlite3_step(ex);
        sqlite3_reset(ex);
        if (s == SQLITE_ROW)
            return scope.Finish(BS_ERR_EXISTS);
        if (s != SQLITE_DONE)
            return scope.Finish(MapSqlite(s, m_pConn->Db()));
    }
    int c = BS_OK;
    sqlite3_stmt* st = m_pConn->Stmt(S_PROP_RENAME, kTreeSql[S_PROP_RENAME], c);
    if (st == nullptr)
        return scope.Finish(c);
    sqlite3_bind_int64(st, 1, m_llKeyId);
    BindText(st, 2, oldName);
    BindText(st, 3, newName);
    rc = StepDone(st, m_pConn->Db());
    if (rc == BS_OK && sqlite3_changes(m_pConn->Db()) == 0)
        rc = BS_ERR_NO_KEY;
    return scope.Finish(rc);
}

int CSqliteTree::PropertyNames(std::list<std::string>& names) {
    BS_STMT(st, S_PROP_NAMES)
    sqlite3_bind_int64(st, 1, m_llKeyId);
    return StepTexts(st, m_pConn->Db(), names);
}

int CSqliteTree::AllProperties(std::map<std::string, VariableData>& values) {
    BS_STMT(st, S_PROP_ALL)
    sqlite3_bind_int64(st, 1, m_llKeyId);
    std::map<std::string, VariableData> out;
    int s;
    while ((s = sqlite3_step(st)) == SQLITE_ROW) {
        VariableData v;
        ColumnValue(st, 2, static_cast<unsigned char>(sqlite3_column_int(st, 1)), v, true);
        out.emplace(ColumnText(st, 0), std::move(v));
    }
    sqlite3_reset(st);
    if (s != SQLITE_DONE)
        return MapSqlite(s, m_pConn->Db());
    values.swap(out);
    return BS_OK;
}

int CSqliteTree::PutProperties(const std::map<std::string, VariableData>& values, bool replace) {
    CWriteScope scope(*m_pConn);
    int rc = scope.Begin();
    if (rc != BS_OK)
        return rc;
    for (const auto& kv : values) {
        rc = PutOne(kv.first, kv.second, replace);
        if (rc != BS_OK)
            break;
    }
    return scope.Finish(rc);
}

}  // namespace bsapi
