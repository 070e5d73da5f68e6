// The handle objects and pools: reference counting, allocation order, the 50-handle limit with
// its one-second waits, tree-handle ids, and the per-server and process-wide pool maps.
#include "db/QvHandlePool.h"

#include "db/PoolStats.h"

#include <unistd.h>

#include <cstdio>
#include <new>
#include <utility>

#include "bsapi/bsapi.h"

// ------------------------------------------------------------------------- CDealHandleObj

CDealHandleObj::CDealHandleObj() : m_nRefCount(0) {}

CDealHandleObj::~CDealHandleObj() {}

void CDealHandleObj::AddReference() {
    std::lock_guard<std::recursive_mutex> lock(m_mutexRef);
    ++m_nRefCount;
}

void CDealHandleObj::DeleteHandleObj(CDealHandleObj* obj) {
    if (obj == nullptr)
        return;
    int count = 0;
    {
        std::lock_guard<std::recursive_mutex> lock(obj->m_mutexRef);
        count = --obj->m_nRefCount;
    }
    if (count < 1)
        delete obj;
}

// ------------------------------------------------------------------------- handles

CConfHandle::CConfHandle() : m_hHandle(BS_INVALID_HANDLE), m_nId(0) {}

CConfHandle::~CConfHandle() {
    CloseHandle();
}

bool CConfHandle::IsOpen() const {
    return m_hHandle != BS_INVALID_HANDLE;
}

void CConfHandle::CloseHandle() {
    if (m_hHandle != BS_INVALID_HANDLE)
        bs_close_handle(m_hHandle);
    // Whatever the close answered, the handle no longer serves.
    m_hHandle = BS_INVALID_HANDLE;
}

CTreedbHd::CTreedbHd() : m_nOpFlag(-1), m_nReserve(0) {}
CTreedbHd::~CTreedbHd() {}

CTabledbHd::CTabledbHd() : m_nReserve(0) {}
CTabledbHd::~CTabledbHd() {}

CMQHd::CMQHd() : m_nMode(-1), m_nFlags(-1) {}
CMQHd::~CMQHd() {}

// ------------------------------------------------------------------------- CHandlePool

CHandlePool::CHandlePool() : m_nMaxHandle(50), m_nCreated(0), m_nNextId(0), m_nFreeSize(0) {}

CHandlePool::~CHandlePool() {
    std::lock_guard<std::recursive_mutex> lock(m_mutexList);
    for (CConfHandle* handle : m_lstFree)
        delete handle;
    m_lstFree.clear();
    m_nFreeSize.store(0);
}

CConfHandle* CHandlePool::Alloc(int kind, bool fromFront) {
    ws_internal::PoolWaitTimer waitTimer;  // the monitoring page's handle wait figures
    for (int attempts = 5; attempts > 0; --attempts) {
        {
            std::lock_guard<std::recursive_mutex> lock(m_mutexList);
            if (!m_lstFree.empty()) {
                CConfHandle* handle = nullptr;
                if (fromFront) {
                    handle = m_lstFree.front();
                    m_lstFree.pop_front();
                } else {
                    handle = m_lstFree.back();
                    m_lstFree.pop_back();
                }
                m_nFreeSize.store(static_cast<int>(m_lstFree.size()));
                return handle;
            }
            if (m_nCreated < m_nMaxHandle) {
                CConfHandle* handle = nullptr;
                switch (kind) {
                    case 0:
                        handle = new CTreedbHd();
                        SetHandleId(handle);
                        break;
                    case 1:
                        handle = new CTabledbHd();
                        break;
                    case 2:
                        handle = new CMQHd();
                        break;
                    default:
                        return nullptr;
                }
                ++m_nCreated;
                return handle;
            }
        }
        // Exhausted: wait with no lock held, then look again; the fifth wait ends the tries.
        ::usleep(1000000);
    }
    return nullptr;
}

void CHandlePool::Free(CConfHandle* handle) {
    if (handle == nullptr)
        return;
    std::lock_guard<std::recursive_mutex> lock(m_mutexList);
    if (!handle->IsOpen()) {
        m_lstFree.push_back(handle);
        std::printf("dddddddd");
    } else {
        m_lstFree.push_front(handle);
    }
    m_nFreeSize.store(static_cast<int>(m_lstFree.size()));
}

void CHandlePool::SetHandleId(CConfHandle* handle) {
    if (handle == nullptr)
        return;
    std::lock_guard<std::recursive_mutex> lock(m_mutexId);
    handle->SetId(m_nNextId);
    ++m_nNextId;
}

int CHandlePool::FreeHandleSize() {
    return m_nFreeSize.load();
}

// ------------------------------------------------------------------------- CServerHandlePool

CServerHandlePool::CServerHandlePool(std::string address, int port)
    : m_server(std::move(address), port) {
    m_poolTree.AddReference();
    m_poolTable.AddReference();
    m_poolMQ.AddReference();
}

// Members go in reverse order of declaration: queue pool, table pool, tree pool, server.
CServerHandlePool::~CServerHandlePool() {}

CHandlePool* CServerHandlePool::GetTreedbPool() {
    m_poolTree.AddReference();
    return &m_poolTree;
}

CHandlePool* CServerHandlePool::GetTabledbPool() {
    m_poolTable.AddReference();
    return &m_poolTable;
}

CHandlePool* CServerHandlePool::GetMQPool() {
    m_poolMQ.AddReference();
    return &m_poolMQ;
}

CHandlePool* CServerHandlePool::GetHandlePool(int kind) {
    switch (kind) {
        case 0:
            return GetTreedbPool();
        case 1:
            return GetTabledbPool();
        case 2:
            return GetMQPool();
        default:
            return nullptr;
    }
}

// ------------------------------------------------------------------------- CGrossHanlePool

CGrossHanlePool::CGrossHanlePool() {}

CGrossHanlePool::~CGrossHanlePool() {
    std::lock_guard<std::recursive_mutex> lock(m_mutexMap);
    for (auto& entry : m_mapPools) {
        CDealHandleObj::DeleteHandleObj(entry.second);
        entry.second = nullptr;
    }
    m_mapPools.clear();
}

CServerHandlePool* CGrossHanlePool::GetServerPool(CDBServer server) {
    std::lock_guard<std::recursive_mutex> lock(m_mutexMap);
    auto it = m_mapPools.find(server);
    if (it != m_mapPools.end() && it->second != nullptr) {
        it->second->AddReference();
        return it->second;
    }
    CServerHandlePool* pool =
        new (std::nothrow) CServerHandlePool(server.m_strAddress, server.m_nPort);
    if (pool == nullptr)
        return nullptr;
    pool->AddReference();  // the map's
    m_mapPools[server] = pool;
    pool->AddReference();  // the caller's
    return pool;
}
