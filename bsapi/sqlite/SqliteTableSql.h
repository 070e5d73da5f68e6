// Internal pieces of the embedded engine's table database shared by tables and cursors.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bsapi/sqlite/SqliteEngine.h"

namespace bsapi {

constexpr const char* kAutoId = "_FIELD_AUTOID_";
constexpr const char* kCTime = "_FIELD_CTIME_";

// A selection turned into SQL: the WHERE text and its parameters (already of the column's type).
struct CWhere {
    std::string m_strSql;
    std::vector<tarn::VariableData> m_vecArgs;
};

// Turns a selection into SQL over the table's fields (BS_ERR_NO_FIELD, BS_ERR_TYPE,
// BS_ERR_BAD_ARG).
int BuildWhere(const CSelection& sel, const std::vector<bs_tdfield>& fields, CWhere& where);
// Prepares `sql` (not cached: table statements depend on the table's columns).
int Prepare(CSqliteConn& conn, const std::string& sql, sqlite3_stmt*& st);
// "_FIELD_AUTOID_,_FIELD_CTIME_,<fields...>" and the reading of one such row.
std::string SelectList(const std::vector<bs_tdfield>& fields);
void ReadRow(sqlite3_stmt* st, const std::vector<bs_tdfield>& fields, bs_record& rec);

struct CStmtGuard {
    sqlite3_stmt* m_pSt = nullptr;
    ~CStmtGuard() { sqlite3_finalize(m_pSt); }
};

// A cursor over the selection, with its first page loaded.
int NewSqliteCursor(std::shared_ptr<CSqliteConn> conn, const std::string& table,
                    std::vector<bs_tdfield> fields, CWhere where, std::unique_ptr<CCursor>& out);

}  // namespace bsapi
