// The internal engine interface: every storage engine (embedded SQLite, networked PostgreSQL)
// serves the bs_* calls through these sessions. The API layer validates names and arguments, owns
// the handle registry and the recorded open arguments; an engine only stores and finds.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bsapi/bsapi.h"

namespace bsapi {

// The database server a handle talks to: an address and a port (0 already replaced by 8123).
struct CServerAddr {
    std::string m_strAddress;
    unsigned short m_nPort = 8123;
};

// Every session is used by one thread at a time (the caller's rule for handles).
class CSession {
public:
    virtual ~CSession() = default;
    virtual int KeepLive() = 0;  // 0 while the session can still serve
};

// The backslash path of main key `main` and the parts `sub`, then `rel` ("main\a\b"). With
// `renamed`: the path that the last of them (the main key when there is none) gets when it is
// renamed so.
inline std::string KeyPath(const std::string& main, std::vector<std::string> sub,
                           const std::vector<std::string>& rel,
                           const std::string* renamed = nullptr) {
    sub.insert(sub.end(), rel.begin(), rel.end());
    if (renamed != nullptr && sub.empty())
        return *renamed;
    if (renamed != nullptr)
        sub.back() = *renamed;
    std::string path = main;
    for (const std::string& part : sub)
        path += "\\" + part;
    return path;
}

class CTreeSession : public CSession {
public:
    // Opens (or re-targets) the session on tree/mainKey and the sub-key path (parts already split
    // and checked by the API layer; empty = the main key).
    virtual int Open(const CServerAddr& server, const std::string& tree, const std::string& mainKey,
                     const std::vector<std::string>& subPath, bool create) = 0;
    virtual int OpenSubKey(const std::vector<std::string>& subPath) = 0;
    virtual void Where(std::string& tree, std::string& mainKey, std::string& subKey) const = 0;

    virtual int SubKeys(std::list<std::string>& names) = 0;
    virtual int InsertSubKey(const std::vector<std::string>& relPath, bool acceptExisting) = 0;
    // relPath empty = the current key (the session then moves to the parent).
    virtual int DeleteSubKey(const std::vector<std::string>& relPath) = 0;
    virtual int RenameSubKey(const std::vector<std::string>& relPath,
                             const std::string& newName) = 0;

    virtual int GetProperty(const std::string& name, tarn::VariableData& value) = 0;
    virtual int PutProperty(const std::string& name, const tarn::VariableData& value,
                            bool replace) = 0;
    virtual int EditProperty(const std::string& name, const tarn::VariableData& value) = 0;
    virtual int DeleteProperty(const std::string& name) = 0;
    virtual int DeleteAllProperties() = 0;
    virtual int RenameProperty(const std::string& oldName, const std::string& newName) = 0;
    virtual int PropertyNames(std::list<std::string>& names) = 0;
    virtual int AllProperties(std::map<std::string, tarn::VariableData>& values) = 0;
    virtual int PutProperties(const std::map<std::string, tarn::VariableData>& values,
                              bool replace) = 0;

    virtual int Begin() = 0;
    virtual int Commit() = 0;
    virtual int Rollback() = 0;
};

// A record selection, checked by the API layer (kind 0..2, mode 0..4, field names non-empty).
struct CSelection {
    std::string m_strField;  // for kind 0
    unsigned char m_byKind = 0;
    unsigned char m_byMode = 0;
    bool m_bHasFrom = false;
    bool m_bHasTo = false;
    tarn::VariableData m_varFrom;
    tarn::VariableData m_varTo;
    unsigned int m_nLimit = 0;  // 0: no limit; else at most this many, oldest first
};

class CCursor : public CSession {
public:
    virtual int Current(bs_record& record) = 0;
    virtual int Next() = 0;
};

// A cursor that reads its selection a page of records at a time, ordered by "_FIELD_AUTOID_",
// each page after the last id seen, so that it holds no statement or transaction open between
// calls. An engine supplies Fetch.
class CPagedCursor : public CCursor {
public:
    static const unsigned kPage = 100;
    int Current(bs_record& record) override {
        if (m_nPos >= m_vecPage.size())
            return BS_ERR_END;
        record = m_vecPage[m_nPos];
        return BS_OK;
    }
    int Next() override {
        if (m_nPos >= m_vecPage.size())
            return BS_ERR_END;
        if (++m_nPos < m_vecPage.size())
            return BS_OK;
        if (m_bLast)
            return BS_ERR_END;
        int rc = Fetch();
        if (rc != BS_OK)
            return rc;
        return m_vecPage.empty() ? BS_ERR_END : BS_OK;
    }
    // Loads the page after m_llLastId (up to kPage records) with SetPage.
    virtual int Fetch() = 0;

protected:
    void SetPage(std::vector<bs_record>& page) {
        m_bLast = page.size() < kPage;
        m_vecPage.swap(page);
        m_nPos = 0;
    }
    long long m_llLastId = 0;  // the id of the last record fetched

private:
    std::vector<bs_record> m_vecPage;
    size_t m_nPos = 0;
    bool m_bLast = false;
};

class CTableSession : public CSession {
public:
    virtual int Open(const CServerAddr& server, const std::string& dbName) = 0;
    virtual int CreateTable(const std::string& table, const std::vector<bs_tdfield>& fields,
                            bool acceptExisting) = 0;
    virtual int DeleteTable(const std::string& table, bool acceptMissing) = 0;
    virtual int TableNames(std::list<std::string>& names) = 0;
    virtual int Fields(const std::string& table, std::vector<bs_tdfield>& fields) = 0;
    virtual int Insert(const std::string& table, const std::vector<tarn::VariableData>& values,
                       long createTime, unsigned long long& id) = 0;
    virtual int Select(const std::string& table, const CSelection& sel, unsigned int& count,
                       std::unique_ptr<CCursor>& cursor) = 0;
    virtual int Update(const std::string& table, const std::vector<std::string>& fields,
                       const std::vector<tarn::VariableData>& values, const CSelection& sel,
                       unsigned int& changed) = 0;
    virtual int Delete(const std::string& table, const CSelection& sel, unsigned int& deleted) = 0;
    virtual int LastRecords(const std::string& table, unsigned int count,
                            std::list<bs_record>& out) = 0;
    virtual int Begin() = 0;
    virtual int Commit() = 0;
    virtual int Rollback() = 0;
};

struct CMessage {
    tarn::VariableData m_varValue;
    std::string m_strName;
    long m_lTime = 0;
    unsigned long long m_ullId = 0;
};

class CQueueSession : public CSession {
public:
    virtual int Open(const CServerAddr& server, const std::string& queue, bool create) = 0;
    virtual int Push(const tarn::VariableData& value, const std::string& name,
                     unsigned char priority, unsigned long long& id) = 0;
    virtual int Pop(CMessage& message, unsigned int timeoutMs, bool peek) = 0;
    virtual int Length(unsigned long long& length) = 0;
    virtual int Clear() = 0;
    virtual int Delete() = 0;
};

// A message with everything a copy of the queue keeps.
struct CStoredMessage : CMessage {
    unsigned char m_byPriority = 0;
};

// What moving an installation between engines needs beyond the sessions (EngineCopy.cpp): every
// server and tree holding data, and records and messages written with the ids they had.
class CEngineStore {
public:
    virtual ~CEngineStore() = default;
    virtual int Servers(std::list<CServerAddr>& servers) = 0;
    virtual int Trees(const CServerAddr& server, std::list<std::string>& names) = 0;
    // Every message of a queue, in the order pops take them.
    virtual int Messages(const CServerAddr& server, const std::string& queue,
                         std::vector<CStoredMessage>& out) = 0;
    // Adds messages to an existing queue with their ids, priorities, names and times.
    virtual int PutMessages(const CServerAddr& server, const std::string& queue,
                            const std::vector<CStoredMessage>& messages) = 0;
    // Adds records (with their "_FIELD_AUTOID_" and "_FIELD_CTIME_") to an existing table.
    virtual int PutRecords(const CServerAddr& server, const std::string& db,
                           const std::string& table, const std::vector<bs_tdfield>& fields,
                           const std::vector<bs_record>& records) = 0;
};

class CEngine {
public:
    virtual ~CEngine() = default;
    virtual CEngineStore& Store() = 0;
    virtual std::unique_ptr<CTreeSession> NewTree() = 0;
    virtual std::unique_ptr<CTableSession> NewTable() = 0;
    virtual std::unique_ptr<CQueueSession> NewQueue() = 0;
    virtual int CreateTree(const CServerAddr& server, const std::string& tree) = 0;
    virtual int MainKeys(const CServerAddr& server, const std::string& tree,
                         std::list<std::string>& names) = 0;
    virtual int TableDbNames(const CServerAddr& server, std::list<std::string>& names) = 0;
    virtual int QueueNames(const CServerAddr& server, std::list<std::string>& names) = 0;
};

// The engine chosen by the setting BSAPI_ENGINE (EngineConfig.h): unset, empty or "sqlite" the
// embedded engine, "postgres" the networked one. Null with `code` set when the name is unknown.
CEngine* ChosenEngine(int& code);

// An engine by its name ("sqlite", "postgres"); null when unknown.
CEngine* EngineNamed(const std::string& name);

// The engines' factories (bsapi/sqlite, bsapi/postgres).
CEngine* SqliteEngine();
CEngine* PostgresEngine();

}  // namespace bsapi
