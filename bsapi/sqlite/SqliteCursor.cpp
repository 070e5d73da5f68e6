// The embedded engine's record selections and cursors. A cursor keeps the selection and the last
// "_FIELD_AUTOID_" it returned, and reads the next page of 100 records from there, so that it holds
// no statement or transaction open between calls.
#include "bsapi/Values.h"
#include "bsapi/sqlite/SqliteTableSql.h"

namespace bsapi {

using tarn::VariableData;

namespace {

class CSqliteCursor : public CPagedCursor {
public:
    CSqliteCursor(std::shared_ptr<CSqliteConn> conn, std::string table,
                  std::vector<bs_tdfield> fields, CWhere where)
        : m_pConn(std::move(conn)),
          m_strTable(std::move(table)),
          m_vecFields(std::move(fields)),
          m_where(std::move(where)) {}
    int KeepLive() override { return m_pConn->KeepLive(); }
    int Fetch() override {
        std::string sql = "SELECT " + SelectList(m_vecFields) + " FROM " + QuoteIdent(m_strTable) +
                          " WHERE (" + m_where.m_strSql + ") AND " + kAutoId + ">? ORDER BY " +
                          kAutoId + " LIMIT " + std::to_string(kPage);
        CStmtGuard g;
        int rc = Prepare(*m_pConn, sql, g.m_pSt);
        if (rc != BS_OK)
            return rc;
        int i = 1;
        for (const VariableData& v : m_where.m_vecArgs)
            BindValue(g.m_pSt, i++, v);
        sqlite3_bind_int64(g.m_pSt, i, m_llLastId);
        std::vector<bs_record> page;
        int s;
        while ((s = sqlite3_step(g.m_pSt)) == SQLITE_ROW) {
            page.emplace_back();
            ReadRow(g.m_pSt, m_vecFields, page.back());
            m_llLastId = sqlite3_column_int64(g.m_pSt, 0);
        }
        if (s != SQLITE_DONE)
            return MapSqlite(s, m_pConn->Db());
        SetPage(page);
        return BS_OK;
    }

private:
    std::shared_ptr<CSqliteConn> m_pConn;
    std::string m_strTable;
    std::vector<bs_tdfield> m_vecFields;
    CWhere m_where;
};

}  // namespace

int BuildWhere(const CSelection& sel, const std::vector<bs_tdfield>& fields, CWhere& where) {
    std::string column;
    unsigned char tag = VariableData::VT_INT64;
    if (sel.m_byKind == BS_SEL_AUTOID) {
        column = kAutoId;
    } else if (sel.m_byKind == BS_SEL_CTIME) {
        column = kCTime;
    } else {
        bool found = false;
        for (const bs_tdfield& f : fields) {
            if (f.name == sel.m_strField) {
                found = true;
                tag = f.type;
            }
        }
        if (sel.m_strField == kAutoId || sel.m_strField == kCTime) {
            found = true;
            tag = VariableData::VT_INT64;
        }
        if (!found)
            return BS_ERR_NO_FIELD;
        column = sel.m_strField;
    }
    std::string col = QuoteIdent(column);
    if (sel.m_byMode == BS_CMP_ALL) {
        where.m_strSql = "1";
        return BS_OK;
    }
    if (!sel.m_bHasFrom)
        return BS_ERR_BAD_ARG;
    VariableData from, to;
    if (!CoerceToTag(sel.m_varFrom, tag, from))
        return BS_ERR_TYPE;
    where.m_vecArgs.push_back(from);
    switch (sel.m_byMode) {
        case BS_CMP_RANGE:
            where.m_strSql = col + ">=?";
            if (sel.m_bHasTo) {
                if (!CoerceToTag(sel.m_varTo, tag, to))
                    return BS_ERR_TYPE;
                where.m_strSql += " AND " + col + "<=?";
                where.m_vecArgs.push_back(to);
            }
            break;
        case BS_CMP_LESS:
            where.m_strSql = col + "<?";
            break;
        case BS_CMP_GREATER:
            where.m_strSql = col + ">?";
            break;
        default:
            where.m_strSql = col + " IS ?";
            break;
    }
    return BS_OK;
}

int Prepare(CSqliteConn& conn, const std::string& sql, sqlite3_stmt*& st) {
    int rc = sqlite3_prepare_v2(conn.Db(), sql.c_str(), static_cast<int>(sql.size()), &st, nullptr);
    if (rc != SQLITE_OK) {
        st = nullptr;
        return MapSqlite(rc, conn.Db());
    }
    return BS_OK;
}

void ReadRow(sqlite3_stmt* st, const std::vector<bs_tdfield>& fields, bs_record& rec) {
    rec.clear();
    rec[kAutoId] = VariableData(static_cast<long long>(sqlite3_column_int64(st, 0)));
    VariableData t;
    t.PutTimeValue(static_cast<long>(sqlite3_column_int64(st, 1)));
    rec[kCTime] = t;
    for (size_t i = 0; i < fields.size(); ++i) {
        ColumnValue(st, static_cast<int>(i) + 2, fields[i].type, rec[fields[i].name]);
    }
}

std::string SelectList(const std::vector<bs_tdfield>& fields) {
    std::string s = std::string(kAutoId) + "," + kCTime;
    for (const bs_tdfield& f : fields)
        s += "," + QuoteIdent(f.name);
    return s;
}

int NewSqliteCursor(std::shared_ptr<CSqliteConn> conn, const std::string& table,
                    std::vector<bs_tdfield> fields, CWhere where, std::unique_ptr<CCursor>& out) {
    auto c = std::make_unique<CSqliteCursor>(std::move(conn), table, std::move(fields),
                                             std::move(where));
    int rc = c->Fetch();
    if (rc == BS_OK)
        out = std::move(c);
    return rc;
}

}  // namespace bsapi
