// The table-database calls and cursors: argument checks, handle look-up, then the engine's session.
#include <strings.h>

#include <ctime>
#include <set>

#include "bsapi/Registry.h"
#include "bsapi/Values.h"

using namespace bsapi;

namespace {

#define BS_TABLE(h)                                                    \
    int found_ = BS_OK;                                                \
    std::shared_ptr<CApiHandle> obj = FindHandle(h, HK_TABLE, found_); \
    if (!obj)                                                          \
        return found_;                                                 \
    CTableSession& db = *obj->m_pTable;

// Table names: not the engine's own ("sqlite_", "_bs_").
int CheckTableName(const char* name, std::string& out) {
    int rc = CheckName(name, out);
    if (rc == BS_OK &&
        (strncasecmp(out.c_str(), "sqlite_", 7) == 0 || out.compare(0, 4, "_bs_") == 0)) {
        rc = BS_ERR_BAD_NAME;
    }
    return rc;
}

int MakeSelection(const char* field, const tarn::VariableData* from, const tarn::VariableData* to,
                  unsigned char mode, unsigned char kind, CSelection& sel) {
    if (kind > BS_SEL_CTIME || mode > BS_CMP_ALL)
        return BS_ERR_BAD_ARG;
    if (kind == BS_SEL_FIELD) {
        int rc = CheckName(field, sel.m_strField);
        if (rc != BS_OK)
            return rc;
    }
    sel.m_byKind = kind;
    sel.m_byMode = mode;
    if (from != nullptr) {
        sel.m_bHasFrom = true;
        sel.m_varFrom = *from;
    }
    if (to != nullptr) {
        sel.m_bHasTo = true;
        sel.m_varTo = *to;
    }
    return BS_OK;
}

int OpenTable(CApiHandle& obj, const char* dbName, const char* second, const char* third,
              unsigned int mode, unsigned int option) {
    std::string name;
    int rc = CheckFileName(dbName, name);
    if (rc != BS_OK)
        return rc;
    rc = obj.m_pTable->Open(obj.m_server, name);
    if (rc != BS_OK)
        return rc;
    obj.m_strName1 = name;
    obj.m_strName2 = second ? second : "";
    obj.m_strName3 = third ? third : "";
    obj.m_nFlags = mode;
    obj.m_nOption = option;
    return BS_OK;
}

}  // namespace

int bs_tabledb_open(void*& handle, const char* dbName, const char* secondName,
                    const char* thirdName, unsigned int mode, unsigned int option,
                    const char* address, unsigned short port) {
    BS_CALL_BEGIN("bs_tabledb_open")
    if (IsOpenValue(handle))
        return BS_ERR_OTHER_NAMES;
    int rc = BS_OK;
    CEngine* engine = ChosenEngine(rc);
    if (engine == nullptr)
        return rc;
    auto obj = std::make_shared<CApiHandle>(HK_TABLE);
    obj->m_pTable = engine->NewTable();
    obj->m_server = MakeServer(address, port);
    rc = OpenTable(*obj, dbName, secondName, thirdName, mode, option);
    if (rc != BS_OK)
        return rc;
    RegisterHandle(std::move(obj), handle);
    return BS_OK;
    BS_CALL_END
}

int bs_tabledb_reopen(void*& handle, const char* dbName, const char* secondName,
                      const char* thirdName, unsigned int mode, unsigned int option) {
    BS_CALL_BEGIN("bs_tabledb_reopen")
    BS_TABLE(handle)
    (void)db;
    return OpenTable(*obj, dbName, secondName, thirdName, mode, option);
    BS_CALL_END
}

int bs_tabledb_qurey_handle(void*& handle, std::string& dbName, std::string& secondName,
                            std::string& thirdName, unsigned int& mode, unsigned int& option,
                            std::string& address, unsigned short& port) {
    BS_CALL_BEGIN("bs_tabledb_qurey_handle")
    BS_TABLE(handle)
    (void)db;
    dbName = obj->m_strName1;
    secondName = obj->m_strName2;
    thirdName = obj->m_strName3;
    mode = obj->m_nFlags;
    option = obj->m_nOption;
    address = obj->m_server.m_strAddress;
    port = obj->m_server.m_nPort;
    return BS_OK;
    BS_CALL_END
}

int bs_tabledb_get_all_dbnames(std::list<std::string>& names, const char* address,
                               unsigned short port) {
    BS_CALL_BEGIN("bs_tabledb_get_all_dbnames")
    int rc = BS_OK;
    CEngine* engine = ChosenEngine(rc);
    if (engine == nullptr)
        return rc;
    return engine->TableDbNames(MakeServer(address, port), names);
    BS_CALL_END
}

int bs_tabledb_create_table(void*& handle, const char* table, const std::list<bs_tdfield*>& fields,
                            unsigned int flags) {
    BS_CALL_BEGIN("bs_tabledb_create_table")
    BS_TABLE(handle)
    std::string name;
    int rc = CheckTableName(table, name);
    if (rc != BS_OK)
        return rc;
    std::vector<bs_tdfield> list;
    std::set<std::string> seen;  // SQL column names ignore letter case
    for (const bs_tdfield* f : fields) {
        if (f == nullptr || !IsValueTag(f->type) || f->indexed > BS_FIELD_UNIQUE)
            return BS_ERR_BAD_ARG;
        std::string fname, lower;
        rc = CheckName(f->name.c_str(), fname);
        if (rc != BS_OK || fname.size() != f->name.size())
            return BS_ERR_BAD_NAME;
        for (char c : fname)
            lower += (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        if (lower == "_field_autoid_" || lower == "_field_ctime_" || !seen.insert(lower).second) {
            return BS_ERR_BAD_NAME;
        }
        list.push_back(*f);
    }
    return db.CreateTable(name, list, (flags & BS_TABLE_ACCEPT_EXISTING) != 0);
    BS_CALL_END
}

int bs_tabledb_delete_table(void*& handle, const char* table, unsigned short flags) {
    BS_CALL_BEGIN("bs_tabledb_delete_table")
    BS_TABLE(handle)
    std::string name;
    int rc = CheckTableName(table, name);
    return rc != BS_OK ? rc : db.DeleteTable(name, (flags & BS_TABLE_ACCEPT_MISSING) != 0);
    BS_CALL_END
}

int bs_tabledb_get_all_tablenames(void*& handle, std::list<std::string>& names) {
    BS_CALL_BEGIN("bs_tabledb_get_all_tablenames")
    BS_TABLE(handle)
    return db.TableNames(names);
    BS_CALL_END
}

int bs_tabledb_get_fields(void*& handle, const char* table, std::list<bs_tdfield*>& fields) {
    BS_CALL_BEGIN("bs_tabledb_get_fields")
    BS_TABLE(handle)
    std::string name;
    int rc = CheckTableName(table, name);
    if (rc != BS_OK)
        return rc;
    std::vector<bs_tdfield> list;
    rc = db.Fields(name, list);
    if (rc != BS_OK)
        return rc;
    std::list<bs_tdfield*> out;
    for (const bs_tdfield& f : list)
        out.push_back(new bs_tdfield(f));
    bs_free_fields(fields);
    fields.swap(out);
    return BS_OK;
    BS_CALL_END
}

void bs_free_fields(std::list<bs_tdfield*>& fields) {
    for (bs_tdfield* f : fields)
        delete f;
    fields.clear();
}

int bs_tabledb_insert_record(void*& handle, const char* table,
                             const std::list<tarn::VariableData>& values, unsigned long long& id,
                             long createTime) {
    BS_CALL_BEGIN("bs_tabledb_insert_record")
    BS_TABLE(handle)
    std::string name;
    int rc = CheckTableName(table, name);
    if (rc != BS_OK)
        return rc;
    return db.Insert(name, std::vector<tarn::VariableData>(values.begin(), values.end()),
                     createTime, id);
    BS_CALL_END
}

int bs_tabledb_insert_record(void*& handle, const char* table,
                             const std::list<tarn::VariableData>& values, unsigned long long& id) {
    return bs_tabledb_insert_record(handle, table, values, id, static_cast<long>(::time(nullptr)));
}

int bs_tabledb_get_record(void*& handle, const char* table, unsigned int& count, void*& cursor) {
    return bs_tabledb_get_record_by_field(handle, table, nullptr, nullptr, nullptr, BS_CMP_ALL,
                                          BS_SEL_AUTOID, count, cursor);
}

int bs_tabledb_get_record_by_field(void*& handle, const char* table, const char* field,
                                   const tarn::VariableData* from, const tarn::VariableData* to,
                                   unsigned char mode, unsigned char kind, unsigned int& count,
                                   void*& cursor) {
    BS_CALL_BEGIN("bs_tabledb_get_record_by_field")
    BS_TABLE(handle)
    if (IsOpenValue(cursor))
        return BS_ERR_OTHER_NAMES;
    std::string name;
    CSelection sel;
    int rc = CheckTableName(table, name);
    if (rc == BS_OK)
        rc = MakeSelection(field, from, to, mode, kind, sel);
    if (rc != BS_OK)
        return rc;
    auto cur = std::make_shared<CApiHandle>(HK_CURSOR);
    unsigned int n = 0;
    rc = db.Select(name, sel, n, cur->m_pCursor);
    if (rc != BS_OK)
        return rc;
    RegisterHandle(std::move(cur), cursor);
    count = n;
    return BS_OK;
    BS_CALL_END
}

int bs_tabledb_get_cursor(void*& cursor, bs_record& record) {
    BS_CALL_BEGIN("bs_tabledb_get_cursor")
    int rc = BS_OK;
    std::shared_ptr<CApiHandle> obj = FindHandle(cursor, HK_CURSOR, rc);
    return obj ? obj->m_pCursor->Current(record) : rc;
    BS_CALL_END
}

int bs_tabledb_cursor_next(void*& cursor) {
    BS_CALL_BEGIN("bs_tabledb_cursor_next")
    int rc = BS_OK;
    std::shared_ptr<CApiHandle> obj = FindHandle(cursor, HK_CURSOR, rc);
    return obj ? obj->m_pCursor->Next() : rc;
    BS_CALL_END
}

int bs_tabledb_update_record_by_field(void*& handle, const char* table,
                                      const std::list<std::string>& fields,
                                      const std::list<tarn::VariableData>& values,
                                      const char* selectField, const tarn::VariableData* from,
                                      const tarn::VariableData* to, unsigned char mode,
                                      unsigned char kind, unsigned int& changed) {
    BS_CALL_BEGIN("bs_tabledb_update_record_by_field")
    BS_TABLE(handle)
    std::string name;
    CSelection sel;
    int rc = CheckTableName(table, name);
    if (rc == BS_OK)
        rc = MakeSelection(selectField, from, to, mode, kind, sel);
    if (rc != BS_OK)
        return rc;
    return db.Update(name, std::vector<std::string>(fields.begin(), fields.end()),
                     std::vector<tarn::VariableData>(values.begin(), values.end()), sel, changed);
    BS_CALL_END
}

int bs_tabledb_delete_record_by_field(void*& handle, const char* table, const char* field,
                                      const tarn::VariableData* from, const tarn::VariableData* to,
                                      unsigned char mode, unsigned char kind,
                                      unsigned int& deleted) {
    BS_CALL_BEGIN("bs_tabledb_delete_record_by_field")
    BS_TABLE(handle)
    std::string name;
    CSelection sel;
    int rc = CheckTableName(table, name);
    if (rc == BS_OK)
        rc = MakeSelection(field, from, to, mode, kind, sel);
    return rc != BS_OK ? rc : db.Delete(name, sel, deleted);
    BS_CALL_END
}

int bs_tabledb_delete_record_by_ctime(void*& handle, const char* table, long from, const long* to,
                                      unsigned int limit, unsigned char mode,
                                      unsigned int& deleted) {
    BS_CALL_BEGIN("bs_tabledb_delete_record_by_ctime")
    BS_TABLE(handle)
    std::string name;
    CSelection sel;
    tarn::VariableData f, t;
    f.PutTimeValue(from);
    if (to != nullptr)
        t.PutTimeValue(*to);
    int rc = CheckTableName(table, name);
    if (rc == BS_OK)
        rc = MakeSelection(nullptr, &f, to ? &t : nullptr, mode, BS_SEL_CTIME, sel);
    if (rc != BS_OK)
        return rc;
    sel.m_nLimit = limit;
    return db.Delete(name, sel, deleted);
    BS_CALL_END
}

int bs_get_tables_last_rd(void*& handle, const std::list<std::string>& tables, unsigned int count,
                          std::map<std::string, std::list<bs_record>>& records) {
    BS_CALL_BEGIN("bs_get_tables_last_rd")
    BS_TABLE(handle)
    std::map<std::string, std::list<bs_record>> out;
    for (const std::string& t : tables) {
        std::string name;
        int rc = CheckTableName(t.c_str(), name);
        if (rc == BS_OK && name.size() != t.size())
            rc = BS_ERR_BAD_NAME;
        if (rc != BS_OK)
            return rc;
        std::list<bs_record> rows;
        rc = db.LastRecords(name, count, rows);
        if (rc != BS_OK)
            return rc;
        if (!rows.empty())
            out[name].swap(rows);
    }
    records.swap(out);
    return BS_OK;
    BS_CALL_END
}

int bs_tabledb_begin_transaction(void*& handle) {
    BS_CALL_BEGIN("bs_tabledb_begin_transaction")
    BS_TABLE(handle)
    return db.Begin();
    BS_CALL_END
}

int bs_tabledb_commit_transaction(void*& handle) {
    BS_CALL_BEGIN("bs_tabledb_commit_transaction")
    BS_TABLE(handle)
    return db.Commit();
    BS_CALL_END
}

int bs_tabledb_rollback_transaction(void*& handle) {
    BS_CALL_BEGIN("bs_tabledb_rollback_transaction")
    BS_TABLE(handle)
    return db.Rollback();
    BS_CALL_END
}
