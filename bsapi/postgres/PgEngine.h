// The networked engine's pieces: the schema of a database server, the session factories, and the
// tree session (keys in PgTree.cpp, properties in PgProps.cpp).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bsapi/Engine.h"
#include "bsapi/postgres/PgConn.h"

namespace bsapi {

// Creates the connection's schema for `server` unless this process has seen it in place
// (PgSchema.cpp).
int PgEnsureSchema(CPgConn& conn, const CServerAddr& server);
// Forgets that a schema was seen (it went away), so that the next connect creates it again.
void PgForgetSchema(const std::string& schema);
const long long kSchemaLockKey = 0x6273617069L;  // the advisory lock taken while creating

// The advisory lock of one tree (kind 1) or table database (kind 2) of the connection's schema,
// taken by a caller's transaction: advisory locks span the whole PostgreSQL database.
long long PgLockKey(const std::string& schema, int kind, long long id);

// A new connection for `server` (its schema created when missing).
inline int PgConnect(const CServerAddr& server, std::shared_ptr<CPgConn>& out) {
    return CPgConn::Connect(server, out, true);
}
CEngineStore& PgStore();

// A tree session: one connection, standing on one key (held by its id, which no other key ever
// takes: ids come from a sequence).
class CPgTree : public CTreeSession {
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
    int Begin() override;
    int Commit() override { return m_pConn ? m_pConn->CommitUser() : BS_ERR_CONN_CLOSED; }
    int Rollback() override { return m_pConn ? m_pConn->RollbackUser() : BS_ERR_CONN_CLOSED; }

private:
    // The id of the key at `path`, or null; and whether the main key exists.
    int FindKey(const std::string& path, long long& id, bool* mainExists = nullptr);
    int KeyGone();  // the code for a current key that no longer exists
    std::string FullPath(const std::vector<std::string>& relPath) const;
    int Texts(const char* sql, std::list<std::string>& out);

    std::shared_ptr<CPgConn> m_pConn;
    std::string m_strTree, m_strMainKey;
    std::vector<std::string> m_vecSub;  // the current key below the main key
    long long m_llTreeId = 0, m_llKeyId = 0;
};

// The notification channel of a queue: our own hash of the schema and the queue's id (a collision
// only wakes a pop that then finds nothing and sleeps again).
std::string PgChannel(const std::string& schema, long long queue);

std::unique_ptr<CTableSession> NewPgTable();
std::unique_ptr<CQueueSession> NewPgQueue();

}  // namespace bsapi
