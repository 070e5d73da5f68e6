// CGWebSession and CGWebSessionColl: the session record, the idle rule, the sweep, the limit
// and reuse paths, the start-up load and the lookups.
#include "session/WebSession.h"

#include <unistd.h>

#include <utility>

#include "common/DebugLog.h"
#include "common/TimeSegment.h"
#include "manage/ManageDB.h"
#include "session/SessionDb.h"

namespace {

// The persisted copies of sessions live on the local database server; deletes always name it.
const char* const kLocalDbServer = "127.0.0.1";
const char* const kSessionLog = "session.log";
// Sessions live four hours without use: idle whole hours above 3 time a session out, and the
// sweep for timed-out sessions runs when more than 3 whole hours passed since the last one.
const int kIdleHoursKept = 3;
const int kSweepHoursSkipped = 3;
// Counting keys are formed only for user id plus company up to this many bytes.
const size_t kMaxCountKeyInput = 1000;
// Lookups before InitData poll the initialised flag with this sleep.
const useconds_t kInitPollMicros = 2000000;

}  // namespace

// ---- CGWebSession --------------------------------------------------------------------------

CGWebSession::CGWebSession(std::string sessionId, std::string userId, std::string company,
                           int /*serverType: not stored, see the header*/, int clientType,
                           std::string peerIp)
    : m_tmLastAccess(tarn::TimeFace::GetCurrent()),
      m_strSessionId(std::move(sessionId)),
      m_strUserId(std::move(userId)),
      m_strCompany(std::move(company)),
      m_nClientType(clientType),
      m_strPeerIP(std::move(peerIp)) {}

CGWebSession::~CGWebSession() {}

void CGWebSession::ReCalTime() {
    tarn::TimeFace now = tarn::TimeFace::GetCurrent();
    std::lock_guard<std::mutex> lock(m_mutexRecord);
    m_tmLastAccess = now;
}

bool CGWebSession::isTimeOut() const {
    tarn::TimeFace now = tarn::TimeFace::GetCurrent();
    std::lock_guard<std::mutex> lock(m_mutexRecord);
    tarn::TimeSegment idle = now - m_tmLastAccess;
    return idle.GetTotalHours() > kIdleHoursKept;
}

std::string CGWebSession::GetPeerIP() const {
    std::lock_guard<std::mutex> lock(m_mutexRecord);
    return m_strPeerIP;
}

tarn::TimeFace CGWebSession::GetLastAccessTime() const {
    std::lock_guard<std::mutex> lock(m_mutexRecord);
    return m_tmLastAccess;
}

std::string CGWebSession::BindPeerIP(const std::string& peer) {
    std::lock_guard<std::mutex> lock(m_mutexRecord);
    if (m_strPeerIP.empty()) {
        m_strPeerIP = peer;
    }
    return m_strPeerIP;
}

// ---- CGWebSessionColl ----------------------------------------------------------------------

CGWebSessionColl::CGWebSessionColl() : m_tmLastSweep(tarn::TimeFace::GetCurrent()) {}

CGWebSessionColl::~CGWebSessionColl() {}

bool CGWebSessionColl::MakeCountKey(const std::string& userId, const std::string& company,
                                    std::string& key) {
    if (userId.size() + company.size() > kMaxCountKeyInput) {
        return false;
    }
    key = company + "_" + userId;
    return true;
}

CGWebSession* CGWebSessionColl::AdoptLocked(std::unique_ptr<CGWebSession> record) {
    CGWebSession* raw = record.get();
    m_vecOwned.push_back(std::move(record));
    return raw;
}

void CGWebSessionColl::InitData() {
    std::string server;
    {
        std::lock_guard<std::mutex> lock(m_mutexTable);
        m_strDbServer = kLocalDbServer;
        server = m_strDbServer;
    }
    CManageDb::WaitDBStart(server);
    std::list<CGWebSession*> records;
    CSessionDb().GetOldWebSession(server, records);
    InsertLoadedSessions(records);
}

void CGWebSessionColl::InsertLoadedSessions(std::list<CGWebSession*>& records) {
    std::lock_guard<std::mutex> lock(m_mutexTable);
    for (CGWebSession* loaded : records) {
        if (loaded == nullptr) {
            continue;
        }
        CGWebSession* record = AdoptLocked(std::unique_ptr<CGWebSession>(loaded));
        // An id already in the table keeps its record; the loaded copy is only owned.
        m_mapSessions.emplace(record->GetSessionId(), record);
        std::string key;
        if (!MakeCountKey(record->GetUserId(), record->GetCompany(), key)) {
            continue;
        }
        auto found = m_mapUserCount.find(key);
        if (found != m_mapUserCount.end()) {
            ++found->second;
        } else {
            // Several persisted sessions of one user leave that user's count at 1.
            m_mapUserCount[record->GetUserId()] = 1;
        }
    }
    records.clear();
    m_bInitialised.store(true, std::memory_order_release);
}

bool CGWebSessionColl::CanAddNewSession(const std::string& userId, const std::string& company) {
    std::lock_guard<std::mutex> lock(m_mutexTable);
    std::string key;
    if (!MakeCountKey(userId, company, key)) {
        return true;
    }
    auto found = m_mapUserCount.find(key);
    if (found == m_mapUserCount.end()) {
        return true;
    }
    return found->second < m_nMaxSessionsPerUser;
}

bool CGWebSessionColl::GetAExsitSession(const std::string& userId, const std::string& company,
                                        CGWebSession*& record) {
    std::lock_guard<std::mutex> lock(m_mutexTable);
    for (const auto& entry : m_mapSessions) {
        CGWebSession* candidate = entry.second;
        if (candidate != nullptr && candidate->GetUserId() == userId &&
            candidate->GetCompany() == company) {
            record = candidate;
            return true;
        }
    }
    return false;
}

CGWebSession* CGWebSessionColl::AddSession(std::string& sessionId, std::string userId,
                                           std::string company, int serverType, int clientType,
                                           std::string peerIp) {
    // The limit test and the reuse walk lock on their own, so they are not atomic with the
    // insertion below; two logins racing past the limit both get new sessions.
    if (!CanAddNewSession(userId, company)) {
        CGWebSession* existing = nullptr;
        if (GetAExsitSession(userId, company, existing) && existing != nullptr) {
            sessionId = existing->GetSessionId();
            return existing;
        }
    }

    CGWebSession* record = nullptr;
    size_t tableSize = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutexTable);
        record = AdoptLocked(std::make_unique<CGWebSession>(sessionId, userId, company, serverType,
                                                            clientType, peerIp));
        // A duplicate id is replaced; the old record stays owned (and valid) in m_vecOwned.
        m_mapSessions[sessionId] = record;
        ++m_mapUserCount[record->GetUserId()];
        tableSize = m_mapSessions.size();
    }
    // The count written is the whole table's size, not the user's; kept so on purpose (a test
    // pins it). Written after unlocking so that logins do not queue on the log file.
    _qvcomm::CDebugLog::WriteTimeFmtLog(kSessionLog, 0, "user=%s count=%d", userId.c_str(),
                                        static_cast<int>(tableSize));
    return record;
}

void CGWebSessionColl::EraseTimeOutSession() {
    tarn::TimeFace now = tarn::TimeFace::GetCurrent();
    tarn::TimeSegment sinceSweep = now - m_tmLastSweep;
    if (sinceSweep.GetTotalHours() <= kSweepHoursSkipped) {
        return;
    }
    m_tmLastSweep = now;

    auto it = m_mapSessions.begin();
    while (it != m_mapSessions.end()) {
        CGWebSession* record = it->second;
        if (record == nullptr || !record->isTimeOut()) {
            ++it;
            continue;
        }
        const std::string sessionId = it->first;
        _qvcomm::CDebugLog::WriteTimeFmtLog(kSessionLog, 10, "delete sesssion %s",
                                            sessionId.c_str());
        CSessionDb().DeleteWebSession(sessionId, kLocalDbServer);
        it = m_mapSessions.erase(it);

        std::string key;
        if (!MakeCountKey(record->GetUserId(), record->GetCompany(), key)) {
            // An over-long user and company ends this sweep; the rest waits for the next one.
            return;
        }
        auto found = m_mapUserCount.find(key);
        if (found != m_mapUserCount.end() && found->second > 0) {
            --found->second;
        }
    }
}

CGWebSession* CGWebSessionColl::LookSession(std::string sessionId) {
    // Until the persisted sessions are loaded every lookup would wrongly answer "timed out", so
    // lookups wait for InitData, however long that takes.
    while (!m_bInitialised.load(std::memory_order_acquire)) {
        ::usleep(kInitPollMicros);
    }

    std::lock_guard<std::mutex> lock(m_mutexTable);
    EraseTimeOutSession();

    CGWebSession* record = nullptr;
    auto found = m_mapSessions.find(sessionId);
    if (found != m_mapSessions.end()) {
        record = found->second;
    } else {
        // A session another process created is only in the database. It is not put into the
        // table, so each such lookup asks the database again.
        CGWebSession* stored = CSessionDb().GetOneSession(m_strDbServer, sessionId);
        if (stored != nullptr) {
            record = AdoptLocked(std::unique_ptr<CGWebSession>(stored));
        }
    }
    if (record != nullptr) {
        record->ReCalTime();
    }
    return record;
}

void CGWebSessionColl::UpdateSessionTime(std::string sessionId) {
    LookSession(std::move(sessionId));
}

bool CGWebSessionColl::GetUserIdBySessionId(std::string sessionId, std::string& userId) {
    CGWebSession* record = LookSession(std::move(sessionId));
    if (record == nullptr) {
        return false;
    }
    userId = record->GetUserId();
    return true;
}

bool CGWebSessionColl::GetCompanyIdBySessionId(std::string sessionId, std::string& company) {
    CGWebSession* record = LookSession(std::move(sessionId));
    if (record == nullptr) {
        return false;
    }
    company = record->GetCompany();
    return true;
}

void CGWebSessionColl::EraseSession(std::string sessionId) {
    std::lock_guard<std::mutex> lock(m_mutexTable);
    auto found = m_mapSessions.find(sessionId);
    if (found == m_mapSessions.end()) {
        return;
    }
    CGWebSession* record = found->second;
    m_mapSessions.erase(found);
    CSessionDb().DeleteWebSession(sessionId, kLocalDbServer);
    if (record == nullptr) {
        return;
    }
    std::string key;
    if (!MakeCountKey(record->GetUserId(), record->GetCompany(), key)) {
        return;
    }
    auto counted = m_mapUserCount.find(key);
    if (counted != m_mapUserCount.end() && counted->second > 0) {
        --counted->second;
    }
}

size_t CGWebSessionColl::GetSessionCount() {
    std::lock_guard<std::mutex> lock(m_mutexTable);
    return m_mapSessions.size();
}

bool CGWebSessionColl::GetUserCount(const std::string& key, int& count) {
    std::lock_guard<std::mutex> lock(m_mutexTable);
    auto found = m_mapUserCount.find(key);
    if (found == m_mapUserCount.end()) {
        return false;
    }
    count = found->second;
    return true;
}
