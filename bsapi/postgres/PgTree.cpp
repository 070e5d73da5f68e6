// The networked engine's tree keys: opening a path is one probe of (tree, sha256(path)); listing
// children one query on (parent, name); deleting a key removes its subtree and properties through
// the foreign keys; renaming rewrites the paths of the subtree in one statement.
#include "bsapi/postgres/PgConfig.h"
#include "bsapi/postgres/PgEngine.h"

namespace bsapi {

namespace {

const char* const kOpen =
    "SELECT t.id, m.id, k.id FROM bs_tree t"
    " LEFT JOIN bs_key m ON m.tree = t.id AND m.phash = sha256($2::bytea) AND m.path = $2::bytea"
    " LEFT JOIN bs_key k ON k.tree = t.id AND k.phash = sha256($3::bytea) AND k.path = $3::bytea"
    " WHERE t.name = $1::bytea";
const char* const kNewTree =
    "INSERT INTO bs_tree(name) VALUES($1::bytea) ON CONFLICT (name) DO NOTHING RETURNING id";
const char* const kNewMain =
    "INSERT INTO bs_key(tree, parent, name, path) VALUES($1::bigint, NULL, $2::bytea, $2::bytea)"
    " ON CONFLICT (tree, phash) DO NOTHING";
const char* const kFind =
    "SELECT (SELECT id FROM bs_key WHERE tree = $1::bigint AND phash = sha256($2::bytea)"
    " AND path = $2::bytea), EXISTS(SELECT 1 FROM bs_key WHERE tree = $1::bigint"
    " AND phash = sha256($3::bytea) AND path = $3::bytea)";
const char* const kChildren =
    "SELECT k.name FROM bs_key p LEFT JOIN bs_key k ON k.parent = p.id WHERE p.id = $1::bigint"
    " ORDER BY k.name";
const char* const kInsert =
    "WITH p AS (SELECT id FROM bs_key WHERE tree = $1::bigint AND phash = sha256($2::bytea)"
    " AND path = $2::bytea), ins AS (INSERT INTO bs_key(tree, parent, name, path)"
    " SELECT $1::bigint, id, $3::bytea, $4::bytea FROM p ON CONFLICT (tree, phash) DO NOTHING"
    " RETURNING 1) SELECT EXISTS(SELECT 1 FROM p), (SELECT count(*) FROM ins)";
const char* const kDelete =
    "DELETE FROM bs_key WHERE tree = $1::bigint AND phash = sha256($2::bytea) AND path = $2::bytea";
// $2 the old path, $3 the new path, $4 the new name, $5 the length of the old path plus one.
const char* const kRename =
    "WITH RECURSIVE k AS (SELECT id FROM bs_key WHERE tree = $1::bigint"
    " AND phash = sha256($2::bytea) AND path = $2::bytea),"
    " sub(id) AS (SELECT id FROM k UNION ALL SELECT c.id FROM bs_key c JOIN sub ON c.parent = "
    "sub.id),"
    " clash AS (SELECT 1 FROM bs_key WHERE tree = $1::bigint AND phash = sha256($3::bytea)"
    " AND path = $3::bytea AND $2::bytea <> $3::bytea),"
    " upd AS (UPDATE bs_key SET path = $3::bytea || substr(path, $5::bigint::int),"
    " name = CASE WHEN id = (SELECT id FROM k) THEN $4::bytea ELSE name END"
    " WHERE id IN (SELECT id FROM sub) AND NOT EXISTS(SELECT 1 FROM clash) RETURNING 1)"
    " SELECT EXISTS(SELECT 1 FROM k), EXISTS(SELECT 1 FROM clash), (SELECT count(*) FROM upd)";

}  // namespace

long long PgLockKey(const std::string& schema, int kind, long long id) {
    return static_cast<long long>(
        PgHash(std::to_string(kind) + ":" + std::to_string(id), PgHash(schema)));
}

std::string CPgTree::FullPath(const std::vector<std::string>& relPath) const {
    return KeyPath(m_strMainKey, m_vecSub, relPath);
}

int CPgTree::FindKey(const std::string& path, long long& id, bool* mainExists) {
    CPgResult res;
    int rc = m_pConn->Run(kFind, CPgParams().Int(m_llTreeId).Bytes(path).Bytes(m_strMainKey), res);
    if (rc != BS_OK)
        return rc;
    if (mainExists != nullptr)
        *mainExists = res.Int(0, 1) != 0;
    if (res.IsNull(0, 0))
        return BS_ERR_NO_KEY;
    id = res.Int(0, 0);
    return BS_OK;
}

int CPgTree::KeyGone() {
    long long id = 0;
    bool main = false;
    int rc = FindKey(m_strMainKey, id, &main);
    if (rc != BS_OK && rc != BS_ERR_NO_KEY)
        return rc;
    return main ? BS_ERR_NO_KEY : BS_ERR_NO_MAINKEY;
}

int CPgTree::Open(const CServerAddr& server, const std::string& tree, const std::string& mainKey,
                  const std::vector<std::string>& subPath, bool create) {
    std::shared_ptr<CPgConn> conn = m_pConn;
    if (!conn) {
        int rc = PgConnect(server, conn);
        if (rc != BS_OK)
            return rc;
    }
    std::string path = KeyPath(mainKey, subPath, {});
    for (int attempt = 0; attempt < 3; ++attempt) {
        CPgResult res;
        int rc = conn->Run(kOpen, CPgParams().Bytes(tree).Bytes(mainKey).Bytes(path), res);
        if (rc != BS_OK)
            return rc;
        if (res.Rows() == 0) {
            if (!create)
                return BS_ERR_NO_TREE;
            rc = conn->Run(kNewTree, CPgParams().Bytes(tree));
        } else if (res.IsNull(0, 1)) {
            if (!create)
                return BS_ERR_NO_MAINKEY;
            rc = conn->Run(kNewMain, CPgParams().Int(res.Int(0, 0)).Bytes(mainKey));
        } else if (res.IsNull(0, 2)) {
            return BS_ERR_NO_SUBKEY;
        } else {
            long long treeId = res.Int(0, 0);
            // Another tree ends the caller's transaction, as another file does in the embedded
            // engine.
            if (m_pConn && treeId != m_llTreeId && m_pConn->InUserTxn())
                m_pConn->RollbackUser();
            m_pConn = conn;
            m_strTree = tree;
            m_strMainKey = mainKey;
            m_vecSub = subPath;
            m_llTreeId = treeId;
            m_llKeyId = res.Int(0, 2);
            return BS_OK;
        }
        if (rc != BS_OK)
            return rc;
    }
    return BS_ERR_BUSY;  // created and removed again by others three times over
}

int CPgTree::OpenSubKey(const std::vector<std::string>& subPath) {
    if (!m_pConn)
        return BS_ERR_CONN_CLOSED;
    long long id = 0;
    bool main = false;
    int rc = FindKey(KeyPath(m_strMainKey, subPath, {}), id, &main);
    if (rc == BS_ERR_NO_KEY)
        return main ? BS_ERR_NO_SUBKEY : BS_ERR_NO_MAINKEY;
    if (rc != BS_OK)
        return rc;
    m_vecSub = subPath;
    m_llKeyId = id;
    return BS_OK;
}

void CPgTree::Where(std::string& tree, std::string& mainKey, std::string& subKey) const {
    tree = m_strTree;
    mainKey = m_strMainKey;
    subKey = KeyPath("", m_vecSub, {});
    if (!subKey.empty())
        subKey.erase(0, 1);
}

int CPgTree::SubKeys(std::list<std::string>& names) {
    CPgResult res;
    int rc = m_pConn->Run(kChildren, CPgParams().Int(m_llKeyId), res);
    if (rc != BS_OK)
        return rc;
    if (res.Rows() == 0)
        return KeyGone();
    std::list<std::string> out;
    for (int r = 0; r < res.Rows(); ++r) {
        if (!res.IsNull(r, 0))
            out.push_back(res.Bytes(r, 0));
    }
    names.swap(out);
    return BS_OK;
}

int CPgTree::InsertSubKey(const std::vector<std::string>& relPath, bool acceptExisting) {
    std::vector<std::string> parentRel(relPath.begin(), relPath.end() - 1);
    int noParent = parentRel.empty() && m_vecSub.empty() ? BS_ERR_NO_MAINKEY : BS_ERR_NO_SUBKEY;
    CPgResult res;
    int rc = m_pConn->Run(kInsert,
                          CPgParams()
                              .Int(m_llTreeId)
                              .Bytes(FullPath(parentRel))
                              .Bytes(relPath.back())
                              .Bytes(FullPath(relPath)),
                          res);
    if (rc == BS_ERR_CONSTRAINT && m_pConn->LastState() == "23503")
        return noParent;  // the parent went while we inserted
    if (rc != BS_OK)
        return rc;
    if (!res.Int(0, 0))
        return noParent;
    if (res.Int(0, 1) == 0)
        return acceptExisting ? BS_OK : BS_ERR_EXISTS;
    return BS_OK;
}

int CPgTree::DeleteSubKey(const std::vector<std::string>& relPath) {
    CPgResult res;
    int rc = m_pConn->Run(kDelete, CPgParams().Int(m_llTreeId).Bytes(FullPath(relPath)), res);
    if (rc != BS_OK)
        return rc;
    if (res.Affected() == 0)
        return BS_ERR_NO_KEY;
    if (relPath.empty() && !m_vecSub.empty()) {
        // The current key went: stand on its parent.
        m_vecSub.pop_back();
        long long parent = 0;
        if (FindKey(FullPath({}), parent) == BS_OK)
            m_llKeyId = parent;
    }
    return BS_OK;
}

int CPgTree::RenameSubKey(const std::vector<std::string>& relPath, const std::string& newName) {
    std::string oldPath = FullPath(relPath);
    std::string newPath = KeyPath(m_strMainKey, m_vecSub, relPath, &newName);
    bool isMain = relPath.empty() && m_vecSub.empty();
    CPgResult res;
    int rc = m_pConn->Run(kRename,
                          CPgParams()
                              .Int(m_llTreeId)
                              .Bytes(oldPath)
                              .Bytes(newPath)
                              .Bytes(newName)
                              .Int(static_cast<long long>(oldPath.size()) + 1),
                          res);
    if (rc == BS_ERR_CONSTRAINT && m_pConn->LastState() == "23505")
        return BS_ERR_EXISTS;  // made by another at the same moment
    if (rc != BS_OK)
        return rc;
    if (!res.Int(0, 0))
        return BS_ERR_NO_KEY;
    if (res.Int(0, 1))
        return BS_ERR_EXISTS;
    if (relPath.empty()) {
        if (isMain) {
            m_strMainKey = newName;
        } else {
            m_vecSub.back() = newName;
        }
    }
    return BS_OK;
}

int CPgTree::Begin() {
    if (!m_pConn)
        return BS_ERR_CONN_CLOSED;
    return m_pConn->BeginUser(PgLockKey(m_pConn->Schema(), 1, m_llTreeId));
}

}  // namespace bsapi
