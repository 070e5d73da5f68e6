// CGWebSession and CGWebSessionColl: the session record, the idle rule, the sweep, the limit
// and reuse paths, the start-up load, creation and erasure. Lookups: WebSessionLookup.cpp.
#include <utility>
#include <vector>

#include "common/Clock.h"
#include "common/DebugLog.h"
#include "common/TimeSegment.h"
#include "manage/ManageDB.h"
#include "session/SessionDb.h"
#include "session/WebSession.h"

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

int WholeHours(time_t now, time_t since) {
    return (tarn::TimeFace(static_cast<long>(now)) - tarn::TimeFace(static_cast<long>(since)))
        .GetTotalHours();
}

}  // namespace

// ---- CGWebSession --------------------------------------------------------------------------

CGWebSession::CGWebSession(std::string sessionId, std::string userId, std::string company,
                           int /*serverType: not stored, see the header*/, int clientType,
                           std::string peerIp)
    : m_tLastAccess(tarn::ClockNow()),
      m_strSessionId(std::move(sessionId)),
      m_strUserId(std::move(userId)),
      m_strCompany(std::move(company)),
      m_nClientType(clientType),
      m_strPeerIP(std::move(peerIp)) {}

CGWebSession::~CGWebSession() {}

void CGWebSession::Touch(time_t now) {
    // Most lookups fall in the second of the previous one: the line is then only read, so
    // threads looking up one session do not pass its cache line back and forth.
    if (m_tLastAccess.load(std::memory_order_relaxed) != now)
        m_tLastAccess.store(now, std::memory_order_relaxed);
}

void CGWebSession::ReCalTime() {
    Touch(tarn::ClockNow());
}

bool CGWebSession::IdleAt(time_t now) const {
    return WholeHours(now, m_tLastAccess.load(std::memory_order_relaxed)) > kIdleHoursKept;
}

bool CGWebSession::isTimeOut() const {
    return IdleAt(tarn::ClockNow());
}

std::string CGWebSession::GetPeerIP() const {
    std::lock_guard<std::mutex> lock(m_mutexPeer);
    return m_strPeerIP;
}

tarn::TimeFace CGWebSession::GetLastAccessTime() const {
    return tarn::TimeFace(static_cast<long>(m_tLastAccess.load(std::memory_order_relaxed)));
}

std::string CGWebSession::BindPeerIP(const std::string& peer) {
    std::lock_guard<std::mutex> lock(m_mutexPeer);
    if (m_bStoredOnly)
        return m_strPeerIP.empty() ? peer : m_strPeerIP;
    if (m_strPeerIP.empty())
        m_strPeerIP = peer;
    return m_strPeerIP;
}

// ---- CGWebSessionColl ----------------------------------------------------------------------

CGWebSessionColl::CGWebSessionColl()
    : m_tLastSweep(tarn::ClockNow()),
      m_strDbServer(kLocalDbServer),
      m_aShards(new CShard[size_t(1) << kShardBits]) {}

CGWebSessionColl::~CGWebSessionColl() {
    for (auto& entry : m_mapSessions)
        delete entry.second;
    for (size_t i = 0; i < (size_t(1) << kShardBits); ++i) {
        for (auto& entry : m_aShards[i].m_mapStored)
            delete entry.second;
    }
    for (auto& retired : m_lstRetired)
        delete retired.second;
}

bool CGWebSessionColl::MakeCountKey(const std::string& userId, const std::string& company,
                                    std::string& key) {
    if (userId.size() + company.size() > kMaxCountKeyInput) {
        return false;
    }
    key = company + "_" + userId;
    return true;
}

void CGWebSessionColl::UncountLocked(const CGWebSession& record) {
    std::string key;
    if (!MakeCountKey(record.GetUserId(), record.GetCompany(), key))
        return;
    auto found = m_mapUserCount.find(key);
    if (found != m_mapUserCount.end() && found->second > 0)
        --found->second;
}

void CGWebSessionColl::InitData() {
    CManageDb::WaitDBStart(m_strDbServer);
    std::list<CGWebSession*> records;
    CSessionDb().GetOldWebSession(m_strDbServer, records);
    InsertLoadedSessions(records);
}

void CGWebSessionColl::InsertLoadedSessions(std::list<CGWebSession*>& records) {
    std::lock_guard<std::mutex> lock(m_mutexTable);
    for (CGWebSession* loaded : records) {
        if (loaded == nullptr) {
            continue;
        }
        std::unique_ptr<CGWebSession> owned(loaded);
        std::string key;
        const bool counted = MakeCountKey(loaded->GetUserId(), loaded->GetCompany(), key);
        const std::string userId = loaded->GetUserId();
        // An id already in the table keeps its record; the loaded copy, never handed out, goes.
        if (m_mapSessions.emplace(loaded->GetSessionId(), loaded).second) {
            IndexLocked(owned.release());
        }
        if (!counted) {
            continue;
        }
        auto found = m_mapUserCount.find(key);
        if (found != m_mapUserCount.end()) {
            ++found->second;
        } else {
            // Several persisted sessions of one user leave that user's count at 1.
            m_mapUserCount[userId] = 1;
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
        if (candidate != nullptr && candidate->m_strUserId == userId &&
            candidate->m_strCompany == company) {
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

    auto record =
        std::make_unique<CGWebSession>(sessionId, userId, company, serverType, clientType, peerIp);
    CGWebSession* raw = record.get();
    size_t tableSize = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutexTable);
        // A duplicate id is replaced; the old record is retired (valid through its grace).
        CGWebSession*& slot = m_mapSessions[sessionId];
        CGWebSession* replaced = slot;
        slot = record.release();
        IndexLocked(raw);
        if (replaced != nullptr)
            Retire(replaced);
        ++m_mapUserCount[raw->GetUserId()];
        tableSize = m_mapSessions.size();
    }
    // The count written is the whole table's size, not the user's; kept so on purpose (a test
    // pins it). Written after unlocking so that logins do not queue on the log file.
    _qvcomm::CDebugLog::WriteTimeFmtLog(kSessionLog, 0, "user=%s count=%d", userId.c_str(),
                                        static_cast<int>(tableSize));
    return raw;
}

void CGWebSessionColl::EraseTimeOutSession(time_t now) {
    // Lookups test the due time without the lock; only one of those that find it due sweeps.
    std::vector<CGWebSession*> leaving;
    {
        std::lock_guard<std::mutex> lock(m_mutexTable);
        if (WholeHours(now, m_tLastSweep.load()) <= kSweepHoursSkipped) {
            return;
        }
        m_tLastSweep.store(now);
        auto it = m_mapSessions.begin();
        while (it != m_mapSessions.end()) {
            CGWebSession* record = it->second;
            // The idle test and the mark are made under the record's shard lock, so a lookup of
            // this session either refreshed it before (it stays) or finds it leaving.
            CShard& shard = ShardOf(KeyOf(record->m_strSessionId));
            {
                std::lock_guard<std::mutex> shardLock(shard.m_mutex);
                if (!record->IdleAt(now)) {
                    ++it;
                    continue;
                }
                shard.m_mapLive.find(KeyOf(record->m_strSessionId))->second.m_bLeaving = true;
            }
            it = m_mapSessions.erase(it);
            leaving.push_back(record);
            std::string key;
            if (!MakeCountKey(record->GetUserId(), record->GetCompany(), key)) {
                // An over-long user and company ends this sweep; the rest waits for the next one.
                break;
            }
            UncountLocked(*record);
        }
    }
    // The database copies go in session-id order, with no lock held: lookups of other sessions
    // go on meanwhile, and those of the leaving ones already answer "absent".
    for (CGWebSession* record : leaving) {
        _qvcomm::CDebugLog::WriteTimeFmtLog(kSessionLog, 10, "delete sesssion %s",
                                            record->m_strSessionId.c_str());
        CSessionDb().DeleteWebSession(record->m_strSessionId, kLocalDbServer);
        FinishLeaving(record);
    }
    // Records read from the database and unused for four hours are dropped too; a later lookup
    // reads them again.
    for (size_t i = 0; i < (size_t(1) << kShardBits); ++i) {
        CShard& shard = m_aShards[i];
        std::lock_guard<std::mutex> shardLock(shard.m_mutex);
        for (auto it = shard.m_mapStored.begin(); it != shard.m_mapStored.end();) {
            if (it->second->IdleAt(now)) {
                Retire(it->second);
                it = shard.m_mapStored.erase(it);
            } else {
                ++it;
            }
        }
    }
}

void CGWebSessionColl::EraseSession(std::string sessionId) {
    CGWebSession* record = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_mutexTable);
        auto found = m_mapSessions.find(sessionId);
        if (found == m_mapSessions.end()) {
            return;
        }
        record = found->second;
        m_mapSessions.erase(found);
        MarkLeavingLocked(record);
        UncountLocked(*record);
    }
    // The database is asked with no lock held; until its copy is gone, lookups of this id
    // answer "absent" from the index.
    CSessionDb().DeleteWebSession(sessionId, kLocalDbServer);
    FinishLeaving(record);
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
