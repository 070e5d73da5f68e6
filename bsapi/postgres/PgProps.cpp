// The networked engine's properties of the current tree key: one row per property holding the
// value's serial form, so a value comes back with its tag and every bit (NaN, -0.0, NUL bytes).
// A property of a key that another session deleted meets the foreign key, never an orphan row.
#include "bsapi/postgres/PgEngine.h"

namespace bsapi {

using tarn::VariableData;

namespace {

const char* const kGet = "SELECT value FROM bs_prop WHERE key = $1::bigint AND name = $2::bytea";
const char* const kUpsert =
    "INSERT INTO bs_prop(key, name, value) VALUES($1::bigint, $2::bytea, $3::bytea)"
    " ON CONFLICT (key, name) DO UPDATE SET value = EXCLUDED.value";
const char* const kInsert =
    "INSERT INTO bs_prop(key, name, value) VALUES($1::bigint, $2::bytea, $3::bytea)"
    " ON CONFLICT (key, name) DO NOTHING";
const char* const kEdit =
    "UPDATE bs_prop SET value = $3::bytea WHERE key = $1::bigint AND name = $2::bytea";
const char* const kDelete = "DELETE FROM bs_prop WHERE key = $1::bigint AND name = $2::bytea";
const char* const kDeleteAll = "DELETE FROM bs_prop WHERE key = $1::bigint";
const char* const kRename =
    "WITH clash AS (SELECT 1 FROM bs_prop WHERE key = $1::bigint AND name = $3::bytea"
    " AND $2::bytea <> $3::bytea), upd AS (UPDATE bs_prop SET name = $3::bytea"
    " WHERE key = $1::bigint AND name = $2::bytea AND NOT EXISTS(SELECT 1 FROM clash) RETURNING 1)"
    " SELECT EXISTS(SELECT 1 FROM clash), (SELECT count(*) FROM upd)";
const char* const kNames = "SELECT name FROM bs_prop WHERE key = $1::bigint ORDER BY name";
const char* const kAll = "SELECT name, value FROM bs_prop WHERE key = $1::bigint ORDER BY name";
const char* const kUpsertMany =
    "INSERT INTO bs_prop(key, name, value) SELECT $1::bigint, n, v"
    " FROM unnest($2::bytea[], $3::bytea[]) AS u(n, v)"
    " ON CONFLICT (key, name) DO UPDATE SET value = EXCLUDED.value";
// All or nothing: when one of the names exists nothing is written (a name written by another
// session meanwhile fails the whole statement on the primary key).
const char* const kInsertMany =
    "WITH ex AS (SELECT 1 FROM bs_prop WHERE key = $1::bigint AND name = ANY($2::bytea[])),"
    " ins AS (INSERT INTO bs_prop(key, name, value) SELECT $1::bigint, n, v"
    " FROM unnest($2::bytea[], $3::bytea[]) AS u(n, v) WHERE NOT EXISTS(SELECT 1 FROM ex)"
    " RETURNING 1) SELECT EXISTS(SELECT 1 FROM ex), (SELECT count(*) FROM ins)";

}  // namespace

int CPgTree::GetProperty(const std::string& name, VariableData& value) {
    CPgResult res;
    int rc = m_pConn->Run(kGet, CPgParams().Int(m_llKeyId).Bytes(name), res);
    if (rc != BS_OK)
        return rc;
    if (res.Rows() == 0)
        return BS_ERR_NO_KEY;
    return res.Serial(0, 0, value) ? BS_OK : BS_ERR_CORRUPT;
}

int CPgTree::PutProperty(const std::string& name, const VariableData& value, bool replace) {
    CPgResult res;
    int rc = m_pConn->Run(replace ? kUpsert : kInsert,
                          CPgParams().Int(m_llKeyId).Bytes(name).Serial(value), res);
    if (rc == BS_ERR_CONSTRAINT && m_pConn->LastState() == "23503")
        return KeyGone();
    if (rc != BS_OK)
        return rc;
    return res.Affected() > 0 ? BS_OK : BS_ERR_EXISTS;
}

int CPgTree::EditProperty(const std::string& name, const VariableData& value) {
    CPgResult res;
    int rc = m_pConn->Run(kEdit, CPgParams().Int(m_llKeyId).Bytes(name).Serial(value), res);
    if (rc != BS_OK)
        return rc;
    return res.Affected() > 0 ? BS_OK : BS_ERR_NO_KEY;
}

int CPgTree::DeleteProperty(const std::string& name) {
    CPgResult res;
    int rc = m_pConn->Run(kDelete, CPgParams().Int(m_llKeyId).Bytes(name), res);
    if (rc != BS_OK)
        return rc;
    return res.Affected() > 0 ? BS_OK : BS_ERR_NO_KEY;
}

int CPgTree::DeleteAllProperties() {
    return m_pConn->Run(kDeleteAll, CPgParams().Int(m_llKeyId));
}

int CPgTree::RenameProperty(const std::string& oldName, const std::string& newName) {
    CPgResult res;
    int rc = m_pConn->Run(kRename, CPgParams().Int(m_llKeyId).Bytes(oldName).Bytes(newName), res);
    if (rc == BS_ERR_CONSTRAINT && m_pConn->LastState() == "23505")
        return BS_ERR_EXISTS;
    if (rc != BS_OK)
        return rc;
    if (res.Int(0, 0))
        return BS_ERR_EXISTS;
    return res.Int(0, 1) > 0 ? BS_OK : BS_ERR_NO_KEY;
}

int CPgTree::Texts(const char* sql, std::list<std::string>& out) {
    CPgResult res;
    int rc = m_pConn->Run(sql, CPgParams().Int(m_llKeyId), res);
    if (rc != BS_OK)
        return rc;
    std::list<std::string> rows;
    for (int r = 0; r < res.Rows(); ++r)
        rows.push_back(res.Bytes(r, 0));
    out.swap(rows);
    return BS_OK;
}

int CPgTree::PropertyNames(std::list<std::string>& names) {
    return Texts(kNames, names);
}

int CPgTree::AllProperties(std::map<std::string, VariableData>& values) {
    CPgResult res;
    int rc = m_pConn->Run(kAll, CPgParams().Int(m_llKeyId), res);
    if (rc != BS_OK)
        return rc;
    std::map<std::string, VariableData> out;
    for (int r = 0; r < res.Rows(); ++r) {
        if (!res.Serial(r, 1, out[res.Bytes(r, 0)]))
            return BS_ERR_CORRUPT;
    }
    values.swap(out);
    return BS_OK;
}

int CPgTree::PutProperties(const std::map<std::string, VariableData>& values, bool replace) {
    if (values.empty())
        return BS_OK;
    std::vector<std::string> names, serial;
    for (const auto& kv : values) {
        names.push_back(kv.first);
        int n = kv.second.Size();
        serial.emplace_back(static_cast<size_t>(n), '\0');
        kv.second.SerialData(&serial.back()[0], n);
    }
    CPgResult res;
    int rc = m_pConn->Run(replace ? kUpsertMany : kInsertMany,
                          CPgParams().Int(m_llKeyId).BytesArray(names).BytesArray(serial), res);
    if (rc == BS_ERR_CONSTRAINT && m_pConn->LastState() == "23503")
        return KeyGone();
    if (rc == BS_ERR_CONSTRAINT && m_pConn->LastState() == "23505")
        return BS_ERR_EXISTS;
    if (rc != BS_OK)
        return rc;
    if (!replace && res.Int(0, 0))
        return BS_ERR_EXISTS;
    return BS_OK;
}

}  // namespace bsapi
