// The networked engine's record selections and its cursors' pages (CPagedCursor walks them).
#include "bsapi/Values.h"
#include "bsapi/postgres/PgTableSql.h"

namespace bsapi {

using tarn::VariableData;

namespace {

void AddArgs(const CPgWhere& where, CPgParams& params) {
    for (const VariableData& v : where.m_vecArgs)
        params.Field(v);
}

class CPgCursor : public CPagedCursor {
public:
    CPgCursor(std::shared_ptr<CPgConn> conn, CPgTableMeta meta, CPgWhere where)
        : m_pConn(std::move(conn)), m_meta(std::move(meta)), m_where(std::move(where)) {}
    int KeepLive() override { return m_pConn->KeepLive(); }
    int Fetch() override {
        int n = static_cast<int>(m_where.m_vecArgs.size());
        std::string sql = "SELECT " + PgSelectList(m_meta) + " FROM " + m_meta.Name() + " WHERE (" +
                          m_where.m_strSql + ") AND id > $" + std::to_string(n + 1) +
                          "::bigint ORDER BY id LIMIT " + std::to_string(kPage);
        CPgParams params;
        AddArgs(m_where, params);
        params.Int(m_llLastId);
        CPgResult res;
        int rc = m_pConn->Run(sql, params, res);
        if (rc != BS_OK)
            return rc;
        std::vector<bs_record> page(static_cast<size_t>(res.Rows()));
        for (int r = 0; r < res.Rows(); ++r) {
            PgReadRow(res, r, m_meta, page[static_cast<size_t>(r)]);
            m_llLastId = res.Int(r, 0);
        }
        SetPage(page);
        return BS_OK;
    }

private:
    std::shared_ptr<CPgConn> m_pConn;
    CPgTableMeta m_meta;
    CPgWhere m_where;
};

}  // namespace

const char* PgColumnType(unsigned char tag) {
    switch (tag) {
        case VariableData::VT_STRING:
            return "bytea";
        case VariableData::VT_DOUBLE:
        case VariableData::VT_FLOAT:
            return "float8";
        default:
            return "bigint";
    }
}

int PgWhere(const CSelection& sel, const CPgTableMeta& meta, int firstParam, CPgWhere& where) {
    std::string col;
    unsigned char tag = VariableData::VT_INT64, index = BS_FIELD_PLAIN;
    if (sel.m_byKind == BS_SEL_AUTOID ||
        (sel.m_byKind == BS_SEL_FIELD && sel.m_strField == "_FIELD_AUTOID_")) {
        col = "id";
    } else if (sel.m_byKind == BS_SEL_CTIME || sel.m_strField == "_FIELD_CTIME_") {
        col = "ctime";
    } else {
        for (size_t i = 0; i < meta.m_vecFields.size(); ++i) {
            if (meta.m_vecFields[i].name == sel.m_strField) {
                col = "f" + std::to_string(i);
                tag = meta.m_vecFields[i].type;
                index = meta.m_vecFields[i].indexed;
            }
        }
        if (col.empty())
            return BS_ERR_NO_FIELD;
    }
    if (sel.m_byMode == BS_CMP_ALL) {
        where.m_strSql = "TRUE";
        return BS_OK;
    }
    if (!sel.m_bHasFrom)
        return BS_ERR_BAD_ARG;
    VariableData from, to;
    if (!CoerceToTag(sel.m_varFrom, tag, from))
        return BS_ERR_TYPE;
    if (sel.m_byMode == BS_CMP_RANGE && sel.m_bHasTo && !CoerceToTag(sel.m_varTo, tag, to))
        return BS_ERR_TYPE;
    bool text = tag == VariableData::VT_STRING;
    std::string type = PgColumnType(tag);
    // One comparison `col op value`, with the index's own condition for string fields.
    auto compare = [&](const char* op, const VariableData& v) {
        std::string p = "$" + std::to_string(firstParam + where.m_vecArgs.size()) + "::" + type;
        where.m_vecArgs.push_back(v);
        std::string c = col + " " + op + " " + p;
        std::string eq = op;
        if (text && index == BS_FIELD_INDEXED) {
            const char* loose = eq == "=" ? "=" : (eq[0] == '>' ? ">=" : "<=");
            std::string n = std::to_string(kPgIndexPrefix);
            c += " AND substr(" + col + ", 1, " + n + ") " + loose + " substr(" + p + ", 1, " + n +
                 ")";
        } else if (text && index == BS_FIELD_UNIQUE && eq == "=") {
            c += " AND sha256(" + col + ") = sha256(" + p + ")";
        }
        return c;
    };
    switch (sel.m_byMode) {
        case BS_CMP_RANGE:
            where.m_strSql = compare(">=", from);
            if (sel.m_bHasTo)
                where.m_strSql += " AND " + compare("<=", to);
            break;
        case BS_CMP_LESS:
            where.m_strSql = compare("<", from);
            break;
        case BS_CMP_GREATER:
            where.m_strSql = compare(">", from);
            break;
        default:  // equal; an empty value matches the records without one
            where.m_strSql = from.IsEmpty() ? col + " IS NULL" : compare("=", from);
            break;
    }
    return BS_OK;
}

std::string PgSelectList(const CPgTableMeta& meta) {
    std::string s = "id, ctime";
    for (size_t i = 0; i < meta.m_vecFields.size(); ++i)
        s += ", f" + std::to_string(i);
    return s;
}

void PgReadRow(const CPgResult& res, int row, const CPgTableMeta& meta, bs_record& rec) {
    rec.clear();
    rec["_FIELD_AUTOID_"] = VariableData(res.Int(row, 0));
    rec["_FIELD_CTIME_"].PutTimeValue(static_cast<long>(res.Int(row, 1)));
    for (size_t i = 0; i < meta.m_vecFields.size(); ++i) {
        res.Field(row, static_cast<int>(i) + 2, meta.m_vecFields[i].type,
                  rec[meta.m_vecFields[i].name]);
    }
}

int NewPgCursor(std::shared_ptr<CPgConn> conn, CPgTableMeta meta, CPgWhere where,
                std::unique_ptr<CCursor>& out) {
    auto c = std::make_unique<CPgCursor>(std::move(conn), std::move(meta), std::move(where));
    int rc = c->Fetch();
    if (rc == BS_OK)
        out = std::move(c);
    return rc;
}

}  // namespace bsapi
