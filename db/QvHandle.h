// CQvHandleLoc: the handle locator through which all database work goes: allocation from the
// pools, opening and reopening, transactions, and one thin operation per library facility.
#pragma once

#include <list>
#include <map>
#include <string>
#include <unordered_map>

#include "bsapi/bsapi.h"
#include "common/Export.h"
#include "db/DBServer.h"
#include "db/QvHandlePool.h"
#include "db/QvHandleTxn.h"

// Use: create a locator on the stack, allocate one handle (Treedb_Alloc, Tabledb_Alloc or
// MQdb_Alloc), call the operations, and let the destructor roll back an open transaction and
// give the handle back to its pool. A locator belongs to one thread at a time.
//
// Results: 0 success; 1 when the locator holds no handle or none could be had; any other value
// is the library's code passed through. Getters with a default give the default instead.
class WS_API CQvHandleLoc {
public:
    CQvHandleLoc();
    ~CQvHandleLoc();
    CQvHandleLoc(const CQvHandleLoc&) = delete;
    CQvHandleLoc& operator=(const CQvHandleLoc&) = delete;

    typedef std::map<std::string, tarn::VariableData> PropMap;

    // ---- allocation and hand-back (QvHandleAlloc.cpp)
    bool AllocHandleFromPool(CDBServer& server, int kind);
    // One successful tree allocation per locator (later calls return 1). Port 0 means 8123.
    // Negative flags: 0x80080 for the tree "ccubase", 0x80000 for any other tree.
    int Treedb_Alloc(std::string address, std::string treeName, std::string mainKey,
                     std::string keyName, int flags, int port);
    // Moves the tree handle to `subKey` (relative to the main key; "" the main key itself).
    // Negative flags keep the stored ones; empty names keep the stored names.
    int Treedb_ReopenSubKey(std::string subKey, int flags, std::string mainKey = "",
                            std::string keyName = "", std::string treeName = "");
    // Extended forms:
    //   bCreatePath   stand on `subKey` after the open; a missing path (28) is created part by
    //                 part with bs_treedb_insert_subkey in `insertMode` (2 accepts parts that
    //                 exist) and opened again. The management records open their "loginname"
    //                 level this way with open flags 0x80000 (true, false, false, 2).
    //   bFresh        never reuse a pooled connection: an open pooled handle is closed (an open
    //                 transaction of this locator rolled back) and opened anew.
    //   bReallocate   allow a locator that already allocated a tree to allocate again (the
    //                 plain form refuses with 1); the held handle is moved to the new names.
    int Treedb_AllocEx(std::string address, std::string treeName, std::string mainKey,
                       std::string keyName, std::string subKey, int flags, int port,
                       bool bCreatePath, bool bFresh, bool bReallocate, int insertMode);
    int Treedb_ReopenSubKeyEx(std::string subKey, int flags, std::string mainKey,
                              std::string keyName, std::string treeName, bool bCreatePath,
                              int insertMode);
    int Tabledb_Alloc(std::string address, std::string first, std::string second, std::string third,
                      int port, int mode, int option);
    int Tabledb_ReopenDb(std::string first, std::string second, std::string third, int mode,
                         int option);
    // Port 0 means 8123. `mode` and `flags` go to CQvVar::OpenMQ (mode 2 creates the queue,
    // mode 3 creates it when missing, 1 opens an existing one).
    int MQdb_Alloc(std::string address, std::string queueName, std::string secondName, int mode = 3,
                   int flags = 0, int port = 8123);

    void FreeHandle();

    // ---- transactions, replacement and accessors (QvHandleLoc.cpp)
    int Treedb_BeginTransaction();
    int Treedb_CommitTransaction();
    int Treedb_RollbackTransaction();
    int Tabledb_BeginTransaction();
    int Tabledb_CommitTransaction();
    int Tabledb_RollbackTransaction();
    int RollbackTransaction();  // by the held kind

    int GetAllHandleSize();  // -1 without a server pool
    int ReplaceHandle();

    CConfHandle* GetConfHandle() { return m_pHandle; }
    int GetHandleType() const { return m_nKind; }
    int OpFlag() const;           // the tree handle's open flags, 0x80000 without a handle
    std::string CCUFile() const;  // the tree name while a tree handle pool is held

    // ---- tree properties (QvHandleTree.cpp)
    int Treedb_GetProperty(std::string name, tarn::VariableData& value);
    int Treedb_GetPropertyInt(std::string name, int def);
    long long Treedb_GetPropertyInt64(std::string name, long long def);
    float Treedb_GetPropertyFloat(std::string name, float def);
    double Treedb_GetPropertyDouble(std::string name, double def);
    std::string Treedb_GetPropertyString(std::string name, std::string def);
    int Treedb_WriteKeyString(std::string name, std::string value);
    int Treedb_WriteKeyInt(std::string name, int value);
    int Treedb_WriteKeyInt64(std::string name, long long value);
    int Treedb_WriteKeyDouble(std::string name, double value);
    int Treedb_WriteKeyVariable(std::string name, tarn::VariableData value);
    int Treedb_InsertProperty(std::string name, tarn::VariableData& value);
    int Treedb_WriteMap(PropMap& props, bool replace);
    int Treedb_EditProperty(std::string name, tarn::VariableData& value);
    int Treedb_DeleteProperty(std::string name);
    int Treedb_DeleteAllProperty();
    int Treedb_RenameProperty(std::string oldName, std::string newName);
    int Treedb_GetAllPropertyNames(std::list<std::string>& names);
    int Treedb_SelectKeyPropertys(PropMap& props);

    // ---- tree keys (QvHandleTree.cpp)
    static int Treedb_CreateFile(std::string treeName, std::string address, int port);
    static int Treedb_GetAllMainKeyNames(std::list<std::string>& names, std::string treeName,
                                         std::string address, int port);
    int Treedb_InsertSubKey(std::string name, int mode);
    // Inserts `name` below `parent` (relative to the main key): moves to the parent first.
    int Treedb_AppendSubKey(std::string parent, std::string name, int mode);
    int Treedb_DeleteSubKey(std::string name);
    int Treedb_DeleteThisKey();
    int Treedb_RenameSubKey(std::string oldName, std::string newName);
    int Treedb_RenameThisKey(std::string newName);
    int Treedb_GetAllSubKeys(std::list<std::string>& names);
    int Treedb_QueryHandle(std::string& treeName, std::string& mainKey, std::string& keyName,
                           unsigned int& flags, std::string& subKey, unsigned int& port);

    // ---- table selections, changes and structure (QvHandleTable.cpp)
    int Tabledb_SelectRecords(void*& cursor, std::string table, int& count);
    int Tabledb_SelectRecordsByField(void*& cursor, std::string table, int& count,
                                     std::string field, tarn::VariableData value);
    int Tabledb_SelectRecordsByField(void*& cursor, std::string table, int& count,
                                     std::string field, std::string value);
    int Tabledb_SelectRecordsByField(void*& cursor, std::string table, int& count,
                                     std::string field, long long value);
    int Tabledb_SelectRecordsByCTime(void*& cursor, std::string table, int& count, long from,
                                     long to, unsigned char mode);
    int Tabledb_SelectRecordsByCTime(void*& cursor, std::string table, int& count, long from,
                                     unsigned char mode);
    int Tabledb_SelectRecordsByCTime(void*& cursor, std::string table, int& count, long from,
                                     long* to, unsigned char mode);
    int Tabledb_GetRecordsNumByField(int& count, std::string table, std::string field,
                                     tarn::VariableData value);
    int Tabledb_InsertRecord(std::string table, std::list<tarn::VariableData>& values,
                             long long& id);
    int Tabledb_InsertTimeRecord(std::string table, std::list<tarn::VariableData>& values,
                                 long long& id, long createTime);
    int Tabledb_UpdateRecordsByField(std::string table, std::list<std::string>& fields,
                                     std::list<tarn::VariableData>& values, std::string field,
                                     tarn::VariableData value, unsigned int& changed);
    int Tabledb_UpdateRecordsByCTime(std::string table, std::list<std::string>& fields,
                                     std::list<tarn::VariableData>& values, long from, long to,
                                     unsigned char mode, unsigned int& changed);
    int Tabledb_UpdateOneRecord(std::string table, long long id, std::list<std::string>& fields,
                                std::list<tarn::VariableData>& values);
    int Tabledb_DeleteOneRecord(std::string table, long long id);
    int Tabledb_DeleteRecordsByField(std::string table, std::string field, tarn::VariableData value,
                                     unsigned int& deleted);
    int Tabledb_DeleteRecordsByCTime(std::string table, long from, long to, unsigned int& deleted,
                                     unsigned char mode);
    int Tabledb_DeleteRecordsByCTime(std::string table, long from, long* to, unsigned int& deleted,
                                     unsigned char mode);
    int Tabledb_DeleteAllRecord(std::string table, unsigned int& deleted);
    int Tabledb_GetOneRecord(std::string table, long long id, bs_record& record);

    int Tabledb_CreateTable(std::string table, std::list<bs_tdfield*>& fields, unsigned int flags);
    int Tabledb_DeleteTable(std::string table, unsigned short flags);
    int Tabledb_GetAllTableNames(std::list<std::string>& names);
    int Tabledb_GetFields(std::string table, std::list<bs_tdfield*>& fields);
    static int Tabledb_GetAllDBNames(std::list<std::string>& names, std::string address, int port);
    int Tabledb_GetLastRDs(std::list<std::string>& tables, unsigned int count,
                           std::map<std::string, std::list<bs_record>>& records);
    static int Tabledb_GetCursor(void*& cursor, bs_record& record);
    static int Tabledb_CursorNext(void*& cursor);
    static bool Tabledb_CloseHandle(void*& cursor);

    // ---- message queue (QvHandleMQ.cpp)
    int MQdb_PushMessage(const tarn::VariableData& msg, std::string name, unsigned long long& id,
                         unsigned char priority);
    int MQdb_PopMessage(tarn::VariableData& msg, std::string& name, long& time,
                        unsigned long long& id, unsigned int timeoutMs, bool peek);
    int MQdb_PopMessage(tarn::MemCache& msg, unsigned int& size, std::string& name, long& time,
                        unsigned long long& id, unsigned int timeoutMs, bool peek);
    int MQdb_GetLength(unsigned long long& length);
    int MQdb_ClearMQ();
    int MQdb_DeleteMQ();
    static int MQdb_GetAllMQNames(std::list<std::string>& names, std::string address, int port);

private:
    void*& Lib() { return m_pHandle->GetHandle(); }  // only while m_pHandle is not null
    void ReturnHandle();  // gives the held handle back (rolling back this locator's work)
    int CreatePathAndReopen(const std::string& subKey, int flags, int insertMode);

    // Owned by one thread at a time; no lock of its own.
    std::string m_strTreeName;
    std::string m_strMainKey;
    std::string m_strKeyName;
    bool m_bOpened;                    // set by a successful Treedb_Alloc, never cleared
    CConfHandle* m_pHandle;            // null when none
    CHandlePool* m_pHandlePool;        // holds one reference
    CServerHandlePool* m_pServerPool;  // holds one reference
    int m_nKind;                       // 0 tree, 1 table, 2 queue, -1 none
    CQvTxn m_txn;                      // this locator's open transaction, if any
};
