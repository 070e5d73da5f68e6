// One SQLite connection of the embedded engine: WAL mode, busy timeout, cached statements,
// BEGIN IMMEDIATE for every writing transaction, and the mapping of SQLite results to our codes.
#pragma once

#include <sqlite3.h>

#include <atomic>
#include <list>
#include <memory>
#include <string>

#include "bsapi/bsapi.h"

namespace bsapi {

// Maps a SQLite result (and the connection's message) to a result code of the table in bsapi.h.
int MapSqlite(int rc, sqlite3* db);

class CSqliteConn {
public:
    ~CSqliteConn();
    // Opens `path`; a missing file is created only when `create` is set (else BS_ERR_CONN_LOST).
    // `schema` runs once per file, inside BEGIN IMMEDIATE, while PRAGMA user_version is 0.
    // `shared`: the connection serves a handle and its cursors, which may be used from different
    // threads, so SQLite serialises the calls on it.
    static int Open(const std::string& path, bool create, const char* schema,
                    std::shared_ptr<CSqliteConn>& out, bool shared = false);

    sqlite3* Db() const { return m_pDb; }
    const std::string& Path() const { return m_strPath; }
    // A cached statement for slot `slot` (0..kSlots-1), reset and unbound; null on failure with
    // `code` set.
    static const int kSlots = 32;
    sqlite3_stmt* Stmt(int slot, const char* sql, int& code);
    int Exec(const char* sql);
    int UserVersion(int& version);  // PRAGMA user_version

    // The caller's transaction.
    bool InUserTxn();
    int BeginUser();
    int CommitUser();
    int RollbackUser();
    // 0 while the file is still there; 1005 when it has gone, 1006 when another file took its
    // place.
    int KeepLive() const;

private:
    CSqliteConn() = default;
    sqlite3* m_pDb = nullptr;
    std::string m_strPath;
    sqlite3_stmt* m_aStmt[kSlots] = {};
    bool m_bUserTxn = false;
    int m_nBusyTimeoutMs = 5000;
    long long m_llBusySinceNs = 0;  // when the current wait for a lock began
    static int OnBusy(void* self, int count);
    unsigned long long m_ullDev = 0, m_ullIno = 0;  // the file opened, to notice a replaced one
    int m_nProbeFd = -1;  // read-only descriptor on the file, for the keep-alive probe
    // The file's change time when the probe last found the path still naming our file.
    mutable std::atomic<long long> m_llConfirmedCtimeNs{-1};
};

// A writing scope for one multi-statement operation: BEGIN IMMEDIATE ... COMMIT, or a savepoint
// inside the caller's transaction, so that the operation is all or nothing either way.
class CWriteScope {
public:
    explicit CWriteScope(CSqliteConn& conn) : m_conn(conn) {}
    ~CWriteScope();
    int Begin();
    int Finish(int rc);  // commits on BS_OK, else undoes; returns the final code

private:
    CSqliteConn& m_conn;
    bool m_bOpen = false;
    bool m_bSavepoint = false;
};

// Binding helpers: a value by its tag (strings as blobs so that every byte is kept).
int BindValue(sqlite3_stmt* st, int index, const tarn::VariableData& value);
int BindText(sqlite3_stmt* st, int index, const std::string& text);
// Reads column `col` as a value of tag `tag`. NULL gives empty, or NaN for a float or double
// when `nullIsNaN` (where the tag is stored beside the value, NULL can only have been a NaN).
void ColumnValue(sqlite3_stmt* st, int col, unsigned char tag, tarn::VariableData& out,
                 bool nullIsNaN = false);
std::string ColumnText(sqlite3_stmt* st, int col);
// Steps a statement to its end collecting column 0 of every row as text; BS_OK or the mapped
// error (`out` is then left as it was). The statement is reset.
int StepTexts(sqlite3_stmt* st, sqlite3* db, std::list<std::string>& out);
// Steps a statement to its end; BS_OK or the mapped error. The statement is reset.
int StepDone(sqlite3_stmt* st, sqlite3* db);
std::string QuoteIdent(const std::string& name);
bool FileExists(const std::string& path);

}  // namespace bsapi
