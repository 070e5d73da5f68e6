// Pieces of the networked engine's table database shared by tables and cursors: a table's
// description, selections turned into SQL over its columns, and the reading of records.
//
// Table N of a table database is the real table tN(id, ctime, f0, f1, ...): the field at
// position K is column fK, so no caller text ever names a column. Strings are bytea, floating
// point float8, every other type bigint (uint64 as its two's complement, as the embedded engine
// keeps it). An indexed string field is indexed on its first 256 bytes and a unique one on its
// sha256, so that values of any length fit the index; the selections below add the matching
// index condition.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bsapi/postgres/PgEngine.h"

namespace bsapi {

const int kPgIndexPrefix = 256;

struct CPgTableMeta {
    long long m_llId = 0;
    std::vector<bs_tdfield> m_vecFields;
    std::string Name() const { return "t" + std::to_string(m_llId); }
};

// A selection turned into SQL: the condition text with its parameters, numbered from the first
// number given to PgWhere.
struct CPgWhere {
    std::string m_strSql;
    std::vector<tarn::VariableData> m_vecArgs;  // already of the column's type
};

// "bytea", "float8" or "bigint" for a field of `tag`.
const char* PgColumnType(unsigned char tag);
// BS_ERR_NO_FIELD, BS_ERR_TYPE or BS_ERR_BAD_ARG for a selection that cannot apply.
int PgWhere(const CSelection& sel, const CPgTableMeta& meta, int firstParam, CPgWhere& where);
// "id, ctime, f0, f1, ..." and the reading of one such row.
std::string PgSelectList(const CPgTableMeta& meta);
void PgReadRow(const CPgResult& res, int row, const CPgTableMeta& meta, bs_record& rec);

// A cursor over the selection, with its first page loaded.
int NewPgCursor(std::shared_ptr<CPgConn> conn, CPgTableMeta meta, CPgWhere where,
                std::unique_ptr<CCursor>& out);

}  // namespace bsapi
