// The embedded engine's tree database: keys with their parent and full backslash path, typed
// properties. Opening a path is one index look-up, listing children one query, a subtree one range.
#include <cstring>

#include "bsapi/Location.h"
#include "bsapi/sqlite/SqliteEngine.h"
#include "bsapi/sqlite/SqliteTreeSql.h"

namespace bsapi {

using tarn::VariableData;

// bs_key.path is the main key's name followed by "\part" for each level. A subtree of path P is P
// itself plus the range [P + "\", P + "]"): "]" is the byte after "\", and no name holds a "\".
// AUTOINCREMENT keeps ids from being reused, so a session standing on a deleted key never
// silently lands on a new one.
const char* const kTreeSchema =
    "CREATE TABLE IF NOT EXISTS bs_key(id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " parent INTEGER NOT NULL, name TEXT NOT NULL, path TEXT NOT NULL UNIQUE);"
    "CREATE INDEX IF NOT EXISTS bs_key_parent ON bs_key(parent, name);"
    "CREATE TABLE IF NOT EXISTS bs_prop(key INTEGER NOT NULL, name TEXT NOT NULL,"
    " tag INTEGER NOT NULL, value, PRIMARY KEY(key, name)) WITHOUT ROWID;";

const char* const kTreeSql[] = {
    "SELECT id FROM bs_key WHERE path=?1",
    "SELECT name FROM bs_key WHERE parent=?1 ORDER BY name",
    "INSERT INTO bs_key(parent, name, path) VALUES(?1, ?2, ?3)",
    "SELECT 1 FROM bs_key WHERE id=?1",
    "SELECT tag, value FROM bs_prop WHERE key=?1 AND name=?2",
    "INSERT INTO bs_prop(key, name, tag, value) SELECT ?1, ?2, ?3, ?4"
    " WHERE EXISTS(SELECT 1 FROM bs_key WHERE id=?1)"
    " ON CONFLICT(key, name) DO UPDATE SET tag=excluded.tag, value=excluded.value",
    "INSERT INTO bs_prop(key, name, tag, value) SELECT ?1, ?2, ?3, ?4"
    " WHERE EXISTS(SELECT 1 FROM bs_key WHERE id=?1) ON CONFLICT(key, name) DO NOTHING",
    "UPDATE bs_prop SET tag=?3, value=?4 WHERE key=?1 AND name=?2",
    "DELETE FROM bs_prop WHERE key=?1 AND name=?2",
    "DELETE FROM bs_prop WHERE key=?1",
    "UPDATE bs_prop SET name=?3 WHERE key=?1 AND name=?2",
    "SELECT name FROM bs_prop WHERE key=?1 ORDER BY name",
    "SELECT name, tag, value FROM bs_prop WHERE key=?1 ORDER BY name",
    "SELECT 1 FROM bs_prop WHERE key=?1 AND name=?2",
    "DELETE FROM bs_prop WHERE key IN (SELECT id FROM bs_key WHERE path=?1"
    " OR (path>=?2 AND path<?3))",
    "DELETE FROM bs_key WHERE path=?1 OR (path>=?2 AND path<?3)",
    "SELECT id, path FROM bs_key WHERE path=?1 OR (path>=?2 AND path<?3)",
    "UPDATE bs_key SET path=?2, name=?3 WHERE id=?1",
};

namespace {

int BindRange(sqlite3_stmt* st, const std::string& path) {
    int rc = BindText(st, 1, path);
    if (rc == BS_OK)
        rc = BindText(st, 2, path + "\\");
    if (rc == BS_OK)
        rc = BindText(st, 3, path + "]");
    return rc;
}

}  // namespace

std::string CSqliteTree::FullPath(const std::vector<std::string>& relPath) const {
    return KeyPath(m_strMainKey, m_vecSub, relPath);
}

int CSqliteTree::FindKey(const std::string& path, long long& id) {
    BS_STMT(st, S_KEY_BY_PATH)
    int rc = BindText(st, 1, path);
    if (rc != BS_OK)
        return rc;
    int s = sqlite3_step(st);
    if (s == SQLITE_ROW) {
        id = sqlite3_column_int64(st, 0);
        sqlite3_reset(st);
        return BS_OK;
    }
    sqlite3_reset(st);
    return s == SQLITE_DONE ? BS_ERR_NO_KEY : MapSqlite(s, m_pConn->Db());
}

int CSqliteTree::KeyGone() {
    long long id = 0;
    int rc = FindKey(m_strMainKey, id);
    if (rc == BS_ERR_NO_KEY)
        return BS_ERR_NO_MAINKEY;
    return rc == BS_OK ? BS_ERR_NO_KEY : rc;
}

int CSqliteTree::Open(const CServerAddr& server, const std::string& tree,
                      const std::string& mainKey, const std::vector<std::string>& subPath,
                      bool create) {
    std::string file = TreeFilePath(server, tree);
    std::shared_ptr<CSqliteConn> conn = m_pConn;
    if (!conn || conn->Path() != file) {
        conn.reset();
        if (!FileExists(file)) {
            if (!create)
                return BS_ERR_NO_TREE;
            std::string dir = file.substr(0, file.rfind('/'));
            if (MakeDirs(dir) != BS_OK)
                return BS_ERR_IO;
        }
        int rc = CSqliteConn::Open(file, create, kTreeSchema, conn);
        if (rc == BS_ERR_CONN_LOST)
            return BS_ERR_NO_TREE;
        if (rc != BS_OK)
            return rc;
    }
    std::shared_ptr<CSqliteConn> keep = m_pConn;
    m_pConn = conn;  // the statements below run on the new connection
    long long mainId = 0;
    int rc = FindKey(mainKey, mainId);
    if (rc == BS_ERR_NO_KEY && create) {
        BS_STMT(st, S_INSERT_KEY)
        sqlite3_bind_int64(st, 1, 0);
        BindText(st, 2, mainKey);
        BindText(st, 3, mainKey);
        rc = StepDone(st, m_pConn->Db());
        // Another process may have created it at the same moment.
        if (rc == BS_OK || rc == BS_ERR_CONSTRAINT)
            rc = FindKey(mainKey, mainId);
    } else if (rc == BS_ERR_NO_KEY) {
        rc = BS_ERR_NO_MAINKEY;
    }
    long long keyId = mainId;
    if (rc == BS_OK && !subPath.empty()) {
        std::string path = mainKey;
        for (const std::string& s : subPath)
            path += "\\" + s;
        rc = FindKey(path, keyId);
        if (rc == BS_ERR_NO_KEY)
            rc = BS_ERR_NO_SUBKEY;
    }
    if (rc != BS_OK) {
        m_pConn = keep;
        return rc;
    }
    m_server = server;
    m_strTree = tree;
    m_strMainKey = mainKey;
    m_vecSub = subPath;
    m_llKeyId = keyId;
    return BS_OK;
}

int CSqliteTree::OpenSubKey(const std::vector<std::string>& subPath) {
    if (!m_pConn)
        return BS_ERR_CONN_CLOSED;
    std::string path = m_strMainKey;
    for (const std::string& s : subPath)
        path += "\\" + s;
    long long id = 0;
    int rc = FindKey(path, id);
    if (rc == BS_ERR_NO_KEY) {
        long long mainId = 0;
        int m = FindKey(m_strMainKey, mainId);
        return m == BS_ERR_NO_KEY ? BS_ERR_NO_MAINKEY : (m == BS_OK ? BS_ERR_NO_SUBKEY : m);
    }
    if (rc != BS_OK)
        return rc;
    m_vecSub = subPath;
    m_llKeyId = id;
    return BS_OK;
}

void CSqliteTree::Where(std::string& tree, std::string& mainKey, std::string& subKey) const {
    tree = m_strTree;
    mainKey = m_strMainKey;
    subKey.clear();
    for (size_t i = 0; i < m_vecSub.size(); ++i) {
        if (i > 0)
            subKey += "\\";
        subKey += m_vecSub[i];
    }
}

int CSqliteTree::SubKeys(std::list<std::string>& names) {
    BS_STMT(st, S_CHILDREN)
    sqlite3_bind_int64(st, 1, m_llKeyId);
    std::list<std::string> out;
    int listed = StepTexts(st, m_pConn->Db(), out);
    if (listed != BS_OK)
        return listed;
    if (out.empty()) {
        BS_STMT(ex, S_KEY_EXISTS)
        sqlite3_bind_int64(ex, 1, m_llKeyId);
        int s = sqlite3_step(ex);
        sqlite3_reset(ex);
        if (s == SQLITE_DONE)
            return KeyGone();
        if (s != SQLITE_ROW)
            return MapSqlite(s, m_pConn->Db());
    }
    names.swap(out);
    return BS_OK;
}

int CSqliteTree::InsertSubKey(const std::vector<std::string>& relPath, bool acceptExisting) {
    std::vector<std::string> parentRel(relPath.begin(), relPath.end() - 1);
    std::string parentPath = FullPath(parentRel);
    std::string path = FullPath(relPath);
    CWriteScope scope(*m_pConn);
    int rc = scope.Begin();
    if (rc != BS_OK)
        return rc;
    long long parentId = 0;
    rc = FindKey(parentPath, parentId);
    if (rc == BS_ERR_NO_KEY)
        rc = parentRel.empty() && m_vecSub.empty() ? BS_ERR_NO_MAINKEY : BS_ERR_NO_SUBKEY;
    if (rc == BS_OK) {
        long long existing = 0;
        rc = FindKey(path, existing);
        if (rc == BS_OK) {
            rc = acceptExisting ? BS_OK : BS_ERR_EXISTS;
        } else if (rc == BS_ERR_NO_KEY) {
            int c = BS_OK;
            sqlite3_stmt* st = m_pConn->Stmt(S_INSERT_KEY, kTreeSql[S_INSERT_KEY], c);
            if (st == nullptr)
                return scope.Finish(c);
            sqlite3_bind_int64(st, 1, parentId);
            BindText(st, 2, relPath.back());
            BindText(st, 3, path);
            rc = StepDone(st, m_pConn->Db());
        }
    }
    return scope.Finish(rc);
}

int CSqliteTree::DeleteSubKey(const std::vector<std::string>& relPath) {
    std::string path = FullPath(relPath);
    CWriteScope scope(*m_pConn);
    int rc = scope.Begin();
    if (rc != BS_OK)
        return rc;
    long long id = 0;
    rc = FindKey(path, id);
    if (rc == BS_OK) {
        int c = BS_OK;
        sqlite3_stmt* st = m_pConn->Stmt(S_DEL_SUB_PROPS, kTreeSql[S_DEL_SUB_PROPS], c);
        if (st == nullptr)
            return scope.Finish(c);
        rc = BindRange(st, path);
        if (rc == BS_OK)
            rc = StepDone(st, m_pConn->Db());
        if (rc == BS_OK) {
            st = m_pConn->Stmt(S_DEL_SUB_KEYS, kTreeSql[S_DEL_SUB_KEYS], c);
            if (st == nullptr)
                return scope.Finish(c);
            rc = BindRange(st, path);
            if (rc == BS_OK)
                rc = StepDone(st, m_pConn->Db());
        }
    }
    rc = scope.Finish(rc);
    if (rc == BS_OK && relPath.empty() && !m_vecSub.empty()) {
        // The current key went: stand on its parent.
        m_vecSub.pop_back();
        long long parent = 0;
        if (FindKey(FullPath({}), parent) == BS_OK)
            m_llKeyId = parent;
    }
    return rc;
}

int CSqliteTree::RenameSubKey(const std::vector<std::string>& relPath, const std::string& newName) {
    std::string oldPath = FullPath(relPath);
    std::string newPath = KeyPath(m_strMainKey, m_vecSub, relPath, &newName);
    bool isMain = relPath.empty() && m_vecSub.empty();
    CWriteScope scope(*m_pConn);
    int rc = scope.Begin();
    if (rc != BS_OK)
        return rc;
    long long id = 0, other = 0;
    rc = FindKey(oldPath, id);
    if (rc == BS_OK && oldPath != newPath) {
        rc = FindKey(newPath, other);
        rc = rc == BS_OK ? BS_ERR_EXISTS : (rc == BS_ERR_NO_KEY ? BS_OK : rc);
    }
    if (rc == BS_OK && oldPath != newPath) {
        std::vector<std::pair<long long, std::string>> keys;
        int c = BS_OK;
        sqlite3_stmt* st = m_pConn->Stmt(S_SUBTREE, kTreeSql[S_SUBTREE], c);
        if (st == nullptr)
            return scope.Finish(c);
        rc = BindRange(st, oldPath);
        int s;
        while (rc == BS_OK && (s = sqlite3_step(st)) == SQLITE_ROW) {
            keys.emplace_back(sqlite3_column_int64(st, 0), ColumnText(st, 1));
        }
        sqlite3_reset(st);
        for (const auto& k : keys) {
            if (rc != BS_OK)
                break;
            st = m_pConn->Stmt(S_SET_PATH, kTreeSql[S_SET_PATH], c);
            if (st == nullptr)
                return scope.Finish(c);
            std::string p = newPath + k.second.substr(oldPath.size());
            sqlite3_bind_int64(st, 1, k.first);
            BindText(st, 2, p);
            BindText(st, 3, k.first == id ? newName : p.substr(p.rfind('\\') + 1));
            rc = StepDone(st, m_pConn->Db());
        }
    }
    rc = scope.Finish(rc);
    if (rc == BS_OK && relPath.empty()) {
        if (isMain) {
            m_strMainKey = newName;
        } else {
            m_vecSub.back() = newName;
        }
    }
    return rc;
}

}  // namespace bsapi
