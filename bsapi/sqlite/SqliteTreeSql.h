// Statement slots of the embedded engine's tree sessions, shared by its key and property code.
#pragma once

namespace bsapi {

enum ETreeStmt {
    S_KEY_BY_PATH,
    S_CHILDREN,
    S_INSERT_KEY,
    S_KEY_EXISTS,
    S_PROP_GET,
    S_PROP_UPSERT,
    S_PROP_INSERT,
    S_PROP_EDIT,
    S_PROP_DEL,
    S_PROP_DEL_ALL,
    S_PROP_RENAME,
    S_PROP_NAMES,
    S_PROP_ALL,
    S_PROP_EXISTS,
    S_DEL_SUB_PROPS,
    S_DEL_SUB_KEYS,
    S_SUBTREE,
    S_SET_PATH,
};

extern const char* const kTreeSql[];

// Declares `st` as the cached statement of `slot` on m_pConn, returning the code on failure.
#define BS_STMT(st, slot)                                              \
    int code_##st = BS_OK;                                             \
    sqlite3_stmt* st = m_pConn->Stmt(slot, kTreeSql[slot], code_##st); \
    if (st == nullptr)                                                 \
        return code_##st;

}  // namespace bsapi
