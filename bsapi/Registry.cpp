// The handle registry, name checks, the fault-injection hook and bs_close_handle/keep_live.
#include "bsapi/Registry.h"

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <unordered_map>

namespace bsapi {

namespace {

// The registry and the fault rules live for the whole process and are never destroyed: threads
// that the host never joins (a library's maintenance thread, say) may still call in while the
// process runs its exit-time destructors. Handles left open at exit are closed by the system;
// the engine's files stay consistent without a last close.
// Handle values are serial numbers under a tag, never addresses: every open gets the next serial,
// so a value is never handed out twice in a process and a handle used after its close can only
// find nothing (1024), never a connection opened later. The tag keeps the values away from
// anything a caller could hold by mistake (addresses, small integers, all bits set).
const uintptr_t kHandleTag = static_cast<uintptr_t>(0x6B5Au) << 48;
const uintptr_t kSerialMask = (static_cast<uintptr_t>(1) << 48) - 1;
std::atomic<uint64_t> g_ullLastSerial{0};  // the last serial handed out

std::mutex& g_mtxHandles = *new std::mutex;  // guards g_mapHandles
std::unordered_map<void*, std::shared_ptr<CApiHandle>>& g_mapHandles =
    *new std::unordered_map<void*, std::shared_ptr<CApiHandle>>;

std::mutex& g_mtxFaults = *new std::mutex;  // guards g_mapFaults
// call -> (code, remaining count)
std::map<std::string, std::pair<int, int>>& g_mapFaults =
    *new std::map<std::string, std::pair<int, int>>;
std::atomic<bool> g_bAnyFault{false};  // fast path: no rule installed

// True for a value this library handed out at some time (open or closed since).
bool WasHandedOut(void* handle) {
    uintptr_t v = reinterpret_cast<uintptr_t>(handle);
    uint64_t serial = v & kSerialMask;
    return (v & ~kSerialMask) == kHandleTag && serial != 0 &&
           serial <= g_ullLastSerial.load(std::memory_order_acquire);
}

// The live object behind `handle`, or null with `code` set: 1024 for a value that is not open
// (all bits set, or handed out and closed since), BS_ERR_BAD_HANDLE for any other value.
std::shared_ptr<CApiHandle> FindLive(void* handle, int& code) {
    if (IsOpenValue(handle)) {
        std::lock_guard<std::mutex> lock(g_mtxHandles);
        auto it = g_mapHandles.find(handle);
        if (it != g_mapHandles.end()) {
            code = BS_OK;
            return it->second;
        }
    }
    code = !IsOpenValue(handle) || WasHandedOut(handle) ? BS_ERR_CONN_CLOSED : BS_ERR_BAD_HANDLE;
    return nullptr;
}

}  // namespace

void RegisterHandle(std::shared_ptr<CApiHandle> object, void*& handle) {
    std::lock_guard<std::mutex> lock(g_mtxHandles);
    uint64_t serial = g_ullLastSerial.load(std::memory_order_relaxed) + 1;
    void* key = reinterpret_cast<void*>(kHandleTag | static_cast<uintptr_t>(serial));
    g_mapHandles[key] = std::move(object);
    g_ullLastSerial.store(serial, std::memory_order_release);
    handle = key;
}

std::shared_ptr<CApiHandle> FindHandle(void* handle, EHandleKind kind, int& code) {
    std::shared_ptr<CApiHandle> found = FindLive(handle, code);
    if (found && found->m_eKind != kind) {
        code = BS_ERR_BAD_HANDLE;
        return nullptr;
    }
    return found;
}

std::shared_ptr<CApiHandle> TakeHandle(void* handle, int& code) {
    {
        std::lock_guard<std::mutex> lock(g_mtxHandles);
        auto it = g_mapHandles.find(handle);
        if (it != g_mapHandles.end()) {
            std::shared_ptr<CApiHandle> out = std::move(it->second);
            g_mapHandles.erase(it);
            code = BS_OK;
            return out;
        }
    }
    FindLive(handle, code);
    return nullptr;
}

int InjectedFault(const char* call) {
    if (!g_bAnyFault.load(std::memory_order_relaxed))
        return 0;
    std::lock_guard<std::mutex> lock(g_mtxFaults);
    for (const char* key : {call, "*"}) {
        auto it = g_mapFaults.find(key);
        if (it == g_mapFaults.end())
            continue;
        int code = it->second.first;
        if (--it->second.second <= 0)
            g_mapFaults.erase(it);
        if (g_mapFaults.empty())
            g_bAnyFault.store(false);
        return code;
    }
    return 0;
}

int CheckFileName(const char* name, std::string& out) {
    if (name == nullptr || *name == '\0')
        return BS_ERR_BAD_NAME;
    size_t n = std::strlen(name);
    if (n > kMaxFileName)
        return BS_ERR_BAD_NAME;
    out.assign(name, n);
    return BS_OK;
}

int CheckName(const char* name, std::string& out) {
    if (name == nullptr || *name == '\0')
        return BS_ERR_BAD_NAME;
    size_t n = std::strlen(name);
    if (n > kMaxKeyName)
        return BS_ERR_BAD_NAME;
    out.assign(name, n);
    return BS_OK;
}

int SplitPath(const char* path, std::vector<std::string>& parts) {
    parts.clear();
    if (path == nullptr || *path == '\0')
        return BS_OK;
    const char* start = path;
    for (const char* p = path;; ++p) {
        if (*p == '\\' || *p == '\0') {
            size_t n = static_cast<size_t>(p - start);
            if (n == 0 || n > kMaxKeyName)
                return BS_ERR_BAD_NAME;
            parts.emplace_back(start, n);
            if (*p == '\0')
                break;
            start = p + 1;
        }
    }
    return BS_OK;
}

CServerAddr MakeServer(const char* address, unsigned short port) {
    CServerAddr s;
    s.m_strAddress = (address == nullptr || *address == '\0') ? "127.0.0.1" : address;
    s.m_nPort = port == 0 ? 8123 : port;
    return s;
}

}  // namespace bsapi

using namespace bsapi;

int bs_close_handle(void*& handle) {
    BS_CALL_BEGIN("bs_close_handle")
    int code = BS_OK;
    std::shared_ptr<CApiHandle> object = TakeHandle(handle, code);
    if (!object)
        return code;
    handle = BS_INVALID_HANDLE;
    // An open transaction ends with the connection: the engine rolls it back on close.
    object.reset();
    return BS_OK;
    BS_CALL_END
}

int bs_handle_keep_live(void*& handle) {
    BS_CALL_BEGIN("bs_handle_keep_live")
    int code = BS_OK;
    std::shared_ptr<CApiHandle> h = FindLive(handle, code);
    if (!h)
        return code;
    if (h->m_pTree)
        return h->m_pTree->KeepLive();
    if (h->m_pTable)
        return h->m_pTable->KeepLive();
    if (h->m_pQueue)
        return h->m_pQueue->KeepLive();
    if (h->m_pCursor)
        return h->m_pCursor->KeepLive();
    return BS_ERR_CONN_RESET;
    BS_CALL_END
}

void bs_debug_fail_next(const char* call, int code, int count) {
    if (call == nullptr)
        return;
    try {
        std::lock_guard<std::mutex> lock(g_mtxFaults);
        if (count <= 0 || code == 0) {
            g_mapFaults.erase(call);
        } else {
            g_mapFaults[call] = {code, count};
        }
        g_bAnyFault.store(!g_mapFaults.empty());
    } catch (...) {
    }
}

const char* bs_result_text(int code) {
    switch (code) {
        case BS_OK:
            return "success";
        case BS_ERR_OTHER_NAMES:
            return "the handle is open on other names";
        case BS_ERR_NO_SUBKEY:
            return "the sub key does not exist";
        case BS_ERR_NO_TREE:
            return "the tree does not exist";
        case BS_ERR_NO_TRANSACTION:
            return "no transaction is open";
        case BS_ERR_NO_QUEUE:
            return "the queue does not exist";
        case BS_ERR_NO_MAINKEY:
            return "the main key does not exist";
        case BS_ERR_NO_KEY:
            return "the key or property does not exist";
        case BS_ERR_BAD_NAME:
            return "invalid name";
        case BS_ERR_CONN_LOST:
            return "connection lost";
        case BS_ERR_CONN_RESET:
            return "connection reset";
        case BS_ERR_CONN_CLOSED:
            return "the handle is not open";
        case BS_ERR_BUSY:
            return "the database is busy";
        case BS_ERR_TIMEOUT:
            return "timed out";
        case BS_ERR_EXISTS:
            return "it already exists";
        case BS_ERR_CONSTRAINT:
            return "a constraint refused the change";
        case BS_ERR_TYPE:
            return "the value does not fit the type";
        case BS_ERR_NO_TABLE:
            return "the table does not exist";
        case BS_ERR_NO_FIELD:
            return "the field does not exist";
        case BS_ERR_BAD_ARG:
            return "bad argument";
        case BS_ERR_IO:
            return "the database files cannot be read or written";
        case BS_ERR_CORRUPT:
            return "a database file is damaged";
        case BS_ERR_BAD_HANDLE:
            return "not a handle of this kind";
        case BS_ERR_END:
            return "no more records";
        case BS_ERR_TOO_BIG:
            return "too large";
        case BS_ERR_IN_TRANSACTION:
            return "a transaction is already open";
        case BS_ERR_NO_MEMORY:
            return "out of memory";
        case BS_ERR_NO_ENGINE:
            return "unknown database engine";
        case BS_ERR_INTERNAL:
            return "internal failure";
        case BS_ERR_CONFLICT:
            return "the transaction conflicted with another and was rolled back";
        default:
            return "unknown result code";
    }
}
