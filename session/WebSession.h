// CGWebSession (one web session) and CGWebSessionColl (the process-wide session table
// gw_webSession), with the four-hour idle rule, the sweep and the per-user counting.
#pragma once

#include <atomic>
#include <chrono>
#include <ctime>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "common/TimeFace.h"

// One logged-in browser. The ids, user and company never change after construction; the last
// access time is an atomic (lookups refresh it without a lock) and the peer address is guarded
// by the record's own lock, so that a record handed out to a request thread can be used after
// the table's locks have been released.
class CGWebSession {
public:
    // The server-type argument is accepted but not stored: GetServerType keeps answering 0.
    // Nothing in the system reads the server type of a live session, and the persisted copy
    // carries its own; the behaviour is kept on purpose (a test pins it).
    CGWebSession(std::string sessionId, std::string userId, std::string company, int serverType,
                 int clientType, std::string peerIp);
    ~CGWebSession();
    CGWebSession(const CGWebSession&) = delete;
    CGWebSession& operator=(const CGWebSession&) = delete;

    // Restarts the four idle hours.
    void ReCalTime();
    // True once the session has been idle for four whole hours (more than 3 whole hours).
    bool isTimeOut() const;

    std::string GetSessionId() const { return m_strSessionId; }
    std::string GetUserId() const { return m_strUserId; }
    std::string GetCompany() const { return m_strCompany; }
    int GetServerType() const { return m_nServerType; }
    int GetClientType() const { return m_nClientType; }
    std::string GetPeerIP() const;
    tarn::TimeFace GetLastAccessTime() const;

    // Binds the session to `peer` when it has no address yet, and returns the address it is
    // bound to afterwards (the CSRF check compares that with the request's peer). A session
    // found only in the database is read afresh by every lookup and so is bound to no address:
    // its record keeps none and answers `peer` itself.
    std::string BindPeerIP(const std::string& peer);

private:
    friend class CGWebSessionColl;
    void Touch(time_t now);  // ReCalTime with the caller's clock reading
    bool IdleAt(time_t now) const;

    std::atomic<time_t> m_tLastAccess;  // seconds; written without a lock, only when it moves
    const std::string m_strSessionId;
    const std::string m_strUserId;
    const std::string m_strCompany;
    const int m_nServerType = 0;     // never set from the constructor's argument
    const int m_nClientType;         // 1: exempt from the CSRF check
    mutable std::mutex m_mutexPeer;  // guards m_strPeerIP
    std::string m_strPeerIP;
    // Set by the table before the record is handed out, read-only afterwards.
    bool m_bStoredOnly = false;
};

// The session table.
//
// Locks. m_mutexTable guards the ordered map (the table proper, walked in session-id order by
// the reuse path and the sweep), the user counts and the sweep. Lookups do not take it: they go
// through an index of 64 shards keyed by a hash of the session id, each with its own lock, so
// lookups of different sessions never wait for each other, and no lock at all is held while the
// database is asked. Order: m_mutexTable, then a shard's lock, then m_mutexRetired.
//
// Records. A record handed out stays valid at least ten minutes after it left the table (erased,
// swept, replaced, or no longer found in the database): records that leave are retired and freed
// only once that grace period has passed. Every caller in this library uses a record within the
// call that looked it up, with no waiting in between, so no use can outlive the grace period.
// A session found only in the database (another process made it) is read from the database at
// every lookup, as before, but one record per session id serves all those lookups while the
// database's answer stays the same, so memory stays bounded by the sessions in use, however many
// lookups come.
//
// Counting: the user-count map is read and decremented under the key "<company>_<user>" but
// entries are only ever created under the bare user id. So the per-user limit never bites and the
// reuse path of AddSession is reached only when some user id happens to equal another user's
// "<company>_<user>". This asymmetry is the intended behaviour and is kept; tests pin it.
class CGWebSessionColl {
public:
    CGWebSessionColl();
    ~CGWebSessionColl();
    CGWebSessionColl(const CGWebSessionColl&) = delete;
    CGWebSessionColl& operator=(const CGWebSessionColl&) = delete;

    // Start-up load: waits for the database, reads every persisted session and marks the table
    // initialised, which releases the lookups waiting in LookSession.
    void InitData();

    // Creates a session (or hands back an existing one of the same user and company when the
    // limit test refuses; `sessionId` then receives that session's id).
    CGWebSession* AddSession(std::string& sessionId, std::string userId, std::string company,
                             int serverType, int clientType, std::string peerIp);
    bool CanAddNewSession(const std::string& userId, const std::string& company);
    bool GetAExsitSession(const std::string& userId, const std::string& company,
                          CGWebSession*& record);

    // Blocks (2-second sleeps, no limit) until InitData has run; then sweeps when due, finds the
    // session in the table or else in the database, and restarts its idle time.
    CGWebSession* LookSession(std::string sessionId);
    void UpdateSessionTime(std::string sessionId);
    bool GetUserIdBySessionId(std::string sessionId, std::string& userId);
    bool GetCompanyIdBySessionId(std::string sessionId, std::string& company);
    void EraseSession(std::string sessionId);

    // The insertion phase of InitData, given the records read from the database; the table takes
    // ownership of every record in the list and clears it. Public so that the start-up counting
    // can be exercised with records in hand.
    void InsertLoadedSessions(std::list<CGWebSession*>& records);

    // Read-only views for diagnostics and tests.
    size_t GetSessionCount();
    // Every record held in memory: the table's, the database-only ones and the retired ones
    // waiting for their grace period.
    size_t GetRecordCount();
    // The count stored under `key` (a bare user id or "<company>_<user>"); false when absent.
    bool GetUserCount(const std::string& key, int& count);
    bool IsInitialised() const { return m_bInitialised.load(std::memory_order_acquire); }

private:
    // A session id in the index: a view of the record's own id with its hash.
    struct CIdKey {
        std::string_view m_id;
        size_t m_nHash;
        bool operator==(const CIdKey& o) const { return m_id == o.m_id; }
    };
    struct CIdHash {
        size_t operator()(const CIdKey& k) const { return k.m_nHash; }
    };
    // A table record in the index; `m_bLeaving` while it is being deleted from the database,
    // when lookups already answer "absent" without asking the database.
    struct CSlot {
        CGWebSession* m_pRecord;
        bool m_bLeaving;
    };
    struct alignas(64) CShard {
        std::mutex m_mutex;  // guards both maps
        std::unordered_map<CIdKey, CSlot, CIdHash> m_mapLive;
        std::unordered_map<CIdKey, CGWebSession*, CIdHash> m_mapStored;  // database-only records
    };
    static const int kShardBits = 6;

    static CIdKey KeyOf(std::string_view id);
    CShard& ShardOf(const CIdKey& key) { return m_aShards[key.m_nHash >> (64 - kShardBits)]; }
    // Index updates for a table record; m_mutexTable must be held.
    void IndexLocked(CGWebSession* record);
    void MarkLeavingLocked(CGWebSession* record);
    // Takes a record that left the index out once its database copy is gone, and retires it.
    void FinishLeaving(CGWebSession* record);
    // The lookup of an id absent from the table: asks the database, with no lock held.
    CGWebSession* LookStored(const std::string& sessionId, const CIdKey& key, time_t now);
    // Queues a record to be freed after the grace period, and frees those whose period ended.
    void Retire(CGWebSession* record);

    // Removes timed-out sessions, at most once every four hours.
    void EraseTimeOutSession(time_t now);
    // "<company>_<user>"; false (and no key) when user id plus company exceed 1000 bytes.
    static bool MakeCountKey(const std::string& userId, const std::string& company,
                             std::string& key);
    void UncountLocked(const CGWebSession& record);

    std::mutex m_mutexTable;                             // guards the three members below
    std::map<std::string, CGWebSession*> m_mapSessions;  // session id -> record
    std::map<std::string, int> m_mapUserCount;           // see "Counting" above
    const int m_nMaxSessionsPerUser = 10;
    // Time of the last sweep: written under m_mutexTable, read without it by every lookup.
    std::atomic<time_t> m_tLastSweep;
    // Written once under m_mutexTable, polled without it by LookSession.
    std::atomic<bool> m_bInitialised{false};
    // Server of the persisted sessions (the start-up load names it; it never changes).
    const std::string m_strDbServer;
    std::unique_ptr<CShard[]> m_aShards;

    std::mutex m_mutexRetired;  // guards m_lstRetired
    // A list, not a deque: a deque's growth instantiates a standard-library iterator difference
    // over this type as a weak symbol of default visibility, which the library would export.
    std::list<std::pair<std::chrono::steady_clock::time_point, CGWebSession*>> m_lstRetired;
};

// The process-wide session table (defined in session/Globals.cpp). It is never destroyed: the
// detached maintenance thread cannot be stopped and may still use it while the process runs
// its exit-time destructors.
extern CGWebSessionColl& gw_webSession;
