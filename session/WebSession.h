// CGWebSession (one web session) and CGWebSessionColl (the process-wide session table
// gw_webSession), with the four-hour idle rule, the sweep and the per-user counting.
#pragma once

#include <atomic>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/TimeFace.h"

// One logged-in browser. The ids, user and company never change after construction; the last
// access time and the peer address do, and are guarded by the record's own lock so that a record
// handed out to a request thread can be used after the table's lock has been released. Lock
// order: the table's lock (when held) before a record's lock, never the other way round.
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
    // bound to afterwards (the CSRF check compares that with the request's peer).
    std::string BindPeerIP(const std::string& peer);

private:
    mutable std::mutex m_mutexRecord;  // guards m_tmLastAccess and m_strPeerIP
    tarn::TimeFace m_tmLastAccess;     // guarded by m_mutexRecord
    const std::string m_strSessionId;
    const std::string m_strUserId;
    const std::string m_strCompany;
    const int m_nServerType = 0;  // never set from the constructor's argument
    const int m_nClientType;      // 1: exempt from the CSRF check
    std::string m_strPeerIP;      // guarded by m_mutexRecord
};

// The session table. Records are handed out as raw pointers that stay valid for the life of the
// table: a record that leaves the map (erased, swept, replaced, or found only in the database)
// stays owned by m_vecOwned until the table itself is destroyed at unload.
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
    // The count stored under `key` (a bare user id or "<company>_<user>"); false when absent.
    bool GetUserCount(const std::string& key, int& count);
    bool IsInitialised() const { return m_bInitialised.load(std::memory_order_acquire); }

private:
    // Removes timed-out sessions, at most once every four hours. m_mutexTable must be held.
    void EraseTimeOutSession();
    // Takes ownership of a record. m_mutexTable must be held.
    CGWebSession* AdoptLocked(std::unique_ptr<CGWebSession> record);
    // "<company>_<user>"; false (and no key) when user id plus company exceed 1000 bytes.
    static bool MakeCountKey(const std::string& userId, const std::string& company,
                             std::string& key);

    std::mutex m_mutexTable;  // guards everything below except m_bInitialised
    std::map<std::string, CGWebSession*> m_mapSessions;  // session id -> record
    tarn::TimeFace m_tmLastSweep;                        // time of the last sweep
    const int m_nMaxSessionsPerUser = 10;
    // Written once under m_mutexTable, polled without it by LookSession.
    std::atomic<bool> m_bInitialised{false};
    std::map<std::string, int> m_mapUserCount;              // see "Counting" above
    std::string m_strDbServer;                              // server of the persisted sessions
    std::vector<std::unique_ptr<CGWebSession>> m_vecOwned;  // every record ever handed out
};

// The process-wide session table (defined in session/Globals.cpp). It is never destroyed: the
// detached maintenance thread cannot be stopped and may still use it while the process runs
// its exit-time destructors.
extern CGWebSessionColl& gw_webSession;
