// The API layer's shared machinery: the registry of live handles, name checks, the fault-injection
// hook and the exception barrier that every exported call passes through.
#pragma once

#include <memory>
#include <new>
#include <string>
#include <vector>

#include "bsapi/Engine.h"

namespace bsapi {

enum EHandleKind { HK_TREE = 0, HK_TABLE = 1, HK_QUEUE = 2, HK_CURSOR = 3 };

// One open handle. The value the caller holds is a serial number the registry gave it (never an
// address, never handed out twice); the registry maps it to this object while it is open. One
// thread uses it at a time.
struct CApiHandle {
    explicit CApiHandle(EHandleKind kind) : m_eKind(kind) {}
    EHandleKind m_eKind;
    std::unique_ptr<CTreeSession> m_pTree;
    std::unique_ptr<CTableSession> m_pTable;
    std::unique_ptr<CQueueSession> m_pQueue;
    std::unique_ptr<CCursor> m_pCursor;
    CServerAddr m_server;
    // What the handle was opened with, reported back by the query calls.
    std::string m_strName1, m_strName2, m_strName3;  // tree: key name; table: the three names
    unsigned int m_nFlags = 0, m_nOption = 0;
};

// Registers a new handle and stores its value (a fresh serial) in `handle`.
void RegisterHandle(std::shared_ptr<CApiHandle> object, void*& handle);
// Looks a live handle of `kind` up. Null with `code` set: 1024 for a handle that is not open
// (including a value handed out and closed since), BS_ERR_BAD_HANDLE for a value this library
// never gave out or a handle of another kind.
std::shared_ptr<CApiHandle> FindHandle(void* handle, EHandleKind kind, int& code);
// Removes a handle from the registry and returns it; null with `code` set as FindHandle does.
std::shared_ptr<CApiHandle> TakeHandle(void* handle, int& code);
inline bool IsOpenValue(void* h) {
    return h != nullptr && h != BS_INVALID_HANDLE;
}

// Fault injection: the code to return instead of running `call`, or 0.
int InjectedFault(const char* call);

// Name checks (BS_OK or BS_ERR_BAD_NAME).
const unsigned kMaxFileName = 80;   // trees and table databases (they name files)
const unsigned kMaxKeyName = 1024;  // key parts, properties, queues, tables, fields
int CheckFileName(const char* name, std::string& out);
int CheckName(const char* name, std::string& out);
// Splits a backslash path; null or "" gives no parts; an empty or over-long part is refused.
int SplitPath(const char* path, std::vector<std::string>& parts);
CServerAddr MakeServer(const char* address, unsigned short port);

}  // namespace bsapi

// Every exported call body runs inside this barrier: an injected fault answers first, and no
// exception leaves the library.
#define BS_CALL_BEGIN(name)                           \
    if (int injected_ = ::bsapi::InjectedFault(name)) \
        return injected_;                             \
    try {
#define BS_CALL_END                 \
    }                               \
    catch (const std::bad_alloc&) { \
        return BS_ERR_NO_MEMORY;    \
    }                               \
    catch (...) {                   \
        return BS_ERR_INTERNAL;     \
    }
