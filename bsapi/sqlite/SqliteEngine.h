// The embedded engine's session classes and its file names.
#pragma once

#include <memory>
#include <string>

#include "bsapi/Engine.h"
#include "bsapi/sqlite/SqliteConn.h"

namespace bsapi {

std::string TreeFilePath(const CServerAddr& server, const std::string& tree);
std::string TableDbFilePath(const CServerAddr& server, const std::string& db);
std::string QueueFilePath(const CServerAddr& server);
// The names of the server directory's files "<prefix><name>.db", decoded and sorted.
int ListServerFiles(const CServerAddr& server, const std::string& prefix,
                    std::list<std::string>& names);
CEngineStore& SqliteStore();
extern const char* const kTreeSchema;
const char* QueueSchema();

// A tree session: one connection to the tree's file, standing on one key.
class CSqliteTree : public CTreeSession {
public:
    int KeepLive() override { return m_pConn ? m_pConn->KeepLive() : BS_ERR_CONN_CLOSED; }
    int Open(const CServerAddr& server, const std::string& tree, const std::string& mainKey,
             const std::vector<std::string>& subPath, bool create) override;
    int OpenSubKey(const std::vector<std::string>& subPath) override;
    void Where(std::string& tree, std::string& mainKey, std::string& subKey) const override;
    int SubKeys(std::list<std::string>& names) override;
    int InsertSubKey(const std::vector<std::string>& relPath, bool acceptExisting) override;
    int DeleteSubKey(const std::vector<std::string>& relPath) override;
    int RenameSubKey(const std::vector<std::string>& relPath, const std::string& newName) override;
    int GetProperty(const std::string& name, tarn::VariableData& value) override;
    int PutProperty(const std::string& name, const tarn::VariableData& value,
                    bool replace) override;
    int EditProperty(const std::string& name, const tarn::VariableData& value) override;
    int DeleteProperty(const std::string& name) override;
    int DeleteAllProperties() override;
    int RenameProperty(const std::string& oldName, const std::string& newName) override;
    int PropertyNames(std::list<std::string>& names) override;
    int AllProperties(std::map<std::string, tarn::VariableData>& values) override;
    int PutProperties(const std::map<std::string, tarn::VariableData>& values,
                      bool replace) override;
    int Begin() override { return m_pConn ? m_pConn->BeginUser() : BS_ERR_CONN_CLOSED; }
    int Commit() override { return m_pConn ? m_pConn->CommitUser() : BS_ERR_CONN_CLOSED; }
    int Rollback() override { return m_pConn ? m_pConn->RollbackUser() : BS_ERR_CONN_CLOSED; }

private:
    int FindKey(const std::string& path, long long& id);  // BS_OK, BS_ERR_NO_KEY or an error
    int KeyGone();  // the code for a current key that no longer exists
    std::string FullPath(const std::vector<std::string>& relPath) const;
    int PutOne(const std::string& name, const tarn::VariableData& value, bool replace);

    std::shared_ptr<CSqliteConn> m_pConn;
    CServerAddr m_server;
    std::string m_strTree, m_strMainKey;
    std::vector<std::string> m_vecSub;  // the current key below the main key
    long long m_llKeyId = 0;
};

std::unique_ptr<CTableSession> NewSqliteTable();
std::unique_ptr<CQueueSession> NewSqliteQueue();

}  // namespace bsapi
