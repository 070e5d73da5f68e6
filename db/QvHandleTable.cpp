// CQvHandleLoc: the table-database operations: selections returning cursors, record inserts,
// updates and deletions, table structure and the cursor calls.
#include "db/QvHandle.h"

using tarn::VariableData;

namespace {

const char* const kAutoId = "_FIELD_AUTOID_";

VariableData TimeValue(long seconds) {
    VariableData v;
    v.PutTimeValue(seconds);
    return v;
}

}  // namespace

int CQvHandleLoc::Tabledb_SelectRecords(void*& cursor, std::string table, int& count) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_tabledb_get_record(Lib(), table.c_str(), count, cursor);
}

int CQvHandleLoc::Tabledb_SelectRecordsByField(void*& cursor, std::string table, int& count,
                                               std::string field, VariableData value) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_tabledb_get_record_by_field(Lib(), table.c_str(), field.c_str(), &value, nullptr,
                                          BS_CMP_EQUAL, BS_SEL_FIELD, count, cursor);
}

int CQvHandleLoc::Tabledb_SelectRecordsByField(void*& cursor, std::string table, int& count,
                                               std::string field, std::string value) {
    return Tabledb_SelectRecordsByField(cursor, table, count, field, VariableData(value));
}

int CQvHandleLoc::Tabledb_SelectRecordsByField(void*& cursor, std::string table, int& count,
                                               std::string field, long long value) {
    return Tabledb_SelectRecordsByField(cursor, table, count, field, VariableData(value));
}

int CQvHandleLoc::Tabledb_SelectRecordsByCTime(void*& cursor, std::string table, int& count,
                                               long from, long to, unsigned char mode) {
    if (m_pHandle == nullptr)
        return 1;
    VariableData vFrom = TimeValue(from), vTo = TimeValue(to);
    return bs_tabledb_get_record_by_field(Lib(), table.c_str(), nullptr, &vFrom, &vTo, mode,
                                          BS_SEL_CTIME, count, cursor);
}

int CQvHandleLoc::Tabledb_SelectRecordsByCTime(void*& cursor, std::string table, int& count,
                                               long from, unsigned char mode) {
    if (m_pHandle == nullptr)
        return 1;
    VariableData vFrom = TimeValue(from);
    return bs_tabledb_get_record_by_field(Lib(), table.c_str(), "", &vFrom, nullptr, mode,
                                          BS_SEL_CTIME, count, cursor);
}

int CQvHandleLoc::Tabledb_SelectRecordsByCTime(void*& cursor, std::string table, int& count,
                                               long from, long* to, unsigned char mode) {
    if (m_pHandle == nullptr)
        return 1;
    VariableData vFrom = TimeValue(from), vTo;
    if (to != nullptr)
        vTo = TimeValue(*to);
    return bs_tabledb_get_record_by_field(Lib(), table.c_str(), "", &vFrom,
                                          to != nullptr ? &vTo : nullptr, mode, BS_SEL_CTIME, count,
                                          cursor);
}

int CQvHandleLoc::Tabledb_GetRecordsNumByField(int& count, std::string table, std::string field,
                                               VariableData value) {
    void* cursor = BS_INVALID_HANDLE;
    int found = 0;
    int rc = Tabledb_SelectRecordsByField(cursor, table, found, field, value);
    if (rc != 0)
        return rc;
    count = found;
    bs_close_handle(cursor);
    return 0;
}

int CQvHandleLoc::Tabledb_InsertRecord(std::string table, std::list<VariableData>& values,
                                       long long& id) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_tabledb_insert_record(Lib(), table.c_str(), values, id);
}

int CQvHandleLoc::Tabledb_InsertTimeRecord(std::string table, std::list<VariableData>& values,
                                           long long& id, long createTime) {
    if (m_pHandle == nullptr)
        return 1;
    unsigned long long newId = 0;
    int rc = bs_tabledb_insert_record(Lib(), table.c_str(), values, newId, createTime);
    if (rc == 0)
        id = static_cast<long long>(newId);
    return rc;
}

int CQvHandleLoc::Tabledb_UpdateRecordsByField(std::string table, std::list<std::string>& fields,
                                               std::list<VariableData>& values, std::string field,
                                               VariableData value, unsigned int& changed) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_tabledb_update_record_by_field(Lib(), table.c_str(), fields, values, field.c_str(),
                                             &value, nullptr, BS_CMP_EQUAL, BS_SEL_FIELD, changed);
}

int CQvHandleLoc::Tabledb_UpdateRecordsByCTime(std::string table, std::list<std::string>& fields,
                                               std::list<VariableData>& values, long from, long to,
                                               unsigned char mode, unsigned int& changed) {
    if (m_pHandle == nullptr)
        return 1;
    VariableData vFrom = TimeValue(from), vTo = TimeValue(to);
    return bs_tabledb_update_record_by_field(Lib(), table.c_str(), fields, values, "", &vFrom, &vTo,
                                             mode, BS_SEL_CTIME, changed);
}

int CQvHandleLoc::Tabledb_UpdateOneRecord(std::string table, long long id,
                                          std::list<std::string>& fields,
                                          std::list<VariableData>& values) {
    if (m_pHandle == nullptr)
        return 1;
    if (id < 0)
        return 1;
    unsigned int changed = 0;
    VariableData vId(id);
    return bs_tabledb_update_record_by_field(Lib(), table.c_str(), fields, values, kAutoId, &vId,
                                             nullptr, BS_CMP_EQUAL, BS_SEL_FIELD, changed);
}

int CQvHandleLoc::Tabledb_DeleteOneRecord(std::string table, long long id) {
    if (m_pHandle == nullptr || id < 0)
        return 1;
    unsigned int deleted = 0;
    VariableData vId(id);
    return bs_tabledb_delete_record_by_field(Lib(), table.c_str(), kAutoId, &vId, nullptr,
                                             BS_CMP_EQUAL, BS_SEL_FIELD, deleted);
}

int CQvHandleLoc::Tabledb_DeleteRecordsByField(std::string table, std::string field,
                                               VariableData value, unsigned int& deleted) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_tabledb_delete_record_by_field(Lib(), table.c_str(), field.c_str(), &value, nullptr,
                                             BS_CMP_EQUAL, BS_SEL_FIELD, deleted);
}

int CQvHandleLoc::Tabledb_DeleteRecordsByCTime(std::string table, long from, long to,
                                               unsigned int& deleted, unsigned char mode) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_tabledb_delete_record_by_ctime(Lib(), table.c_str(), from, &to, 0, mode, deleted);
}

int CQvHandleLoc::Tabledb_DeleteRecordsByCTime(std::string table, long from, long* to,
                                               unsigned int& deleted, unsigned char mode) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_tabledb_delete_record_by_ctime(Lib(), table.c_str(), from, to, 0, mode, deleted);
}

int CQvHandleLoc::Tabledb_DeleteAllRecord(std::string table, unsigned int& deleted) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_tabledb_delete_record_by_ctime(Lib(), table.c_str(), 0, nullptr, 0, BS_CMP_ALL,
                                             deleted);
}

int CQvHandleLoc::Tabledb_GetOneRecord(std::string table, long long id, bs_record& record) {
    if (m_pHandle == nullptr)
        return 1;
    void* cursor = BS_INVALID_HANDLE;
    int count = 0;
    int rc = Tabledb_SelectRecordsByField(cursor, table, count, kAutoId, VariableData(id));
    if (rc != 0)
        return rc;
    rc = bs_tabledb_get_cursor(cursor, record);
    bs_close_handle(cursor);
    return rc;
}

int CQvHandleLoc::Tabledb_CreateTable(std::string table, std::list<bs_tdfield*>& fields,
                                      unsigned int flags) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_tabledb_create_table(Lib(), table.c_str(), fields, flags);
}

int CQvHandleLoc::Tabledb_DeleteTable(std::string table, unsigned short flags) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_tabledb_delete_table(Lib(), table.c_str(), flags);
}

int CQvHandleLoc::Tabledb_GetAllTableNames(std::list<std::string>& names) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_tabledb_get_all_tablenames(Lib(), names);
}

int CQvHandleLoc::Tabledb_GetFields(std::string table, std::list<bs_tdfield*>& fields) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_tabledb_get_fields(Lib(), table.c_str(), fields);
}

int CQvHandleLoc::Tabledb_GetAllDBNames(std::list<std::string>& names, std::string address,
                                        int port) {
    return bs_tabledb_get_all_dbnames(names, address.c_str(), static_cast<unsigned short>(port));
}

int CQvHandleLoc::Tabledb_GetLastRDs(std::list<std::string>& tables, unsigned int count,
                                     std::map<std::string, std::list<bs_record>>& records) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_get_tables_last_rd(Lib(), tables, count, records);
}

int CQvHandleLoc::Tabledb_GetCursor(void*& cursor, bs_record& record) {
    return bs_tabledb_get_cursor(cursor, record);
}

int CQvHandleLoc::Tabledb_CursorNext(void*& cursor) {
    return bs_tabledb_cursor_next(cursor);
}

bool CQvHandleLoc::Tabledb_CloseHandle(void*& cursor) {
    return bs_close_handle(cursor) == 0;
}
