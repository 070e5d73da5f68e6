// The handle pools: CDealHandleObj (reference counting), the pooled library handles CConfHandle,
// CTreedbHd, CTabledbHd, CMQHd, and the pools CHandlePool, CServerHandlePool, CGrossHanlePool.
#pragma once

#include <atomic>
#include <list>
#include <map>
#include <mutex>
#include <string>

#include "common/Export.h"
#include "db/DBServer.h"

// Hand-made reference counting. A new object counts 0; DeleteHandleObj destroys it when the
// count drops below 1.
class WS_API CDealHandleObj {
public:
    CDealHandleObj();
    virtual ~CDealHandleObj();
    CDealHandleObj(const CDealHandleObj&) = delete;
    CDealHandleObj& operator=(const CDealHandleObj&) = delete;

    void AddReference();
    static void DeleteHandleObj(CDealHandleObj* obj);  // null does nothing

protected:
    std::recursive_mutex m_mutexRef;  // guards m_nRefCount only
    int m_nRefCount;
};

// One library handle. The all-ones value means "not open"; the destructor closes an open one.
class WS_API CConfHandle {
public:
    CConfHandle();
    virtual ~CConfHandle();
    CConfHandle(const CConfHandle&) = delete;
    CConfHandle& operator=(const CConfHandle&) = delete;

    void SetId(int id) { m_nId = id; }
    int GetId() const { return m_nId; }
    void*& GetHandle() { return m_hHandle; }
    bool IsOpen() const;
    void CloseHandle();  // closes an open library handle and marks it not open

protected:
    void* m_hHandle;  // library handle; all ones when not open
    int m_nId;
};

// A tree-database handle: the key name and the open flags it was last opened with.
class WS_API CTreedbHd : public CConfHandle {
public:
    CTreedbHd();
    ~CTreedbHd() override;

    std::string m_strKeyName;
    int m_nOpFlag;   // -1 until set
    int m_nReserve;  // not read by the library
};

class WS_API CTabledbHd : public CConfHandle {
public:
    CTabledbHd();
    ~CTabledbHd() override;

    int m_nReserve;  // not read by the library
};

// A message-queue handle: the queue name and second name it is open on, with the mode and flags.
class WS_API CMQHd : public CConfHandle {
public:
    CMQHd();
    ~CMQHd() override;

    std::string m_strMQName;
    std::string m_strSecondName;
    int m_nMode;   // -1 until opened
    int m_nFlags;  // -1 until opened
};

// Handles of one kind on one server. Alloc prefers the front of the free list (open handles,
// most recently returned first); closed handles queue at the back.
class WS_API CHandlePool : public CDealHandleObj {
public:
    CHandlePool();
    ~CHandlePool() override;

    // Kind 0 tree, 1 table, 2 queue. Waits up to five one-second pauses when 50 handles exist
    // and none is free; null then, or for an unknown kind.
    CConfHandle* Alloc(int kind, bool fromFront);
    void Free(CConfHandle* handle);
    void SetHandleId(CConfHandle* handle);
    // For statistics; reads a counter kept beside the list, without the list lock.
    int FreeHandleSize();

private:
    friend struct PoolStatsReader;  // db/PoolStats.cpp reads the counts under m_mutexList
    int m_nMaxHandle;                   // fixed at 50
    int m_nCreated;                     // guarded by m_mutexList; never decremented
    int m_nNextId;                      // guarded by m_mutexId
    std::recursive_mutex m_mutexId;     // taken inside m_mutexList when a tree handle is made
    std::recursive_mutex m_mutexList;   // guards m_lstFree and m_nCreated
    std::list<CConfHandle*> m_lstFree;  // owned
    std::atomic<int> m_nFreeSize;       // m_lstFree.size(), written under m_mutexList
};

// The three pools of one server. Each member pool carries one standing reference so that
// DeleteHandleObj never destroys it.
class WS_API CServerHandlePool : public CDealHandleObj {
public:
    CServerHandlePool(std::string address, int port);
    ~CServerHandlePool() override;

    // Each adds one reference that the caller drops with DeleteHandleObj.
    CHandlePool* GetTreedbPool();
    CHandlePool* GetTabledbPool();
    CHandlePool* GetMQPool();
    CHandlePool* GetHandlePool(int kind);  // null without a reference for an unknown kind

    const CDBServer& GetServer() const { return m_server; }

private:
    CDBServer m_server;  // set at construction, read-only afterwards
    CHandlePool m_poolTree;
    CHandlePool m_poolTable;
    CHandlePool m_poolMQ;
};

// The process-wide map of server pools. Server pools are never removed while the process runs.
class WS_API CGrossHanlePool : public CDealHandleObj {
public:
    CGrossHanlePool();
    ~CGrossHanlePool() override;

    // The pool of `server`, created on first use; carries one reference for the caller.
    CServerHandlePool* GetServerPool(CDBServer server);

private:
    friend struct PoolStatsReader;  // db/PoolStats.cpp walks m_mapPools under m_mutexMap
    std::recursive_mutex m_mutexMap;  // guards m_mapPools; taken before a new pool's count lock
    std::map<CDBServer, CServerHandlePool*> m_mapPools;
};

// Defined in db/GrossHandlePool.cpp; constructed at load, destroyed at unload.
extern WS_API CGrossHanlePool g_GrossHandlePool;
