// CGWebSessionColl lookups: the sharded index of the table's records, the records of sessions
// found only in the database, and the retirement of records that leave.
#include <unistd.h>

#include <functional>

#include "common/Clock.h"
#include "common/TimeSegment.h"
#include "session/SessionDb.h"
#include "session/WebSession.h"

namespace {

// Lookups before InitData poll the initialised flag with this sleep.
const useconds_t kInitPollMicros = 2000000;
const int kSweepHoursSkipped = 3;
// How long a record that left stays valid for whoever still holds it (see the header).
const std::chrono::minutes kGrace(10);

}  // namespace

CGWebSessionColl::CIdKey CGWebSessionColl::KeyOf(std::string_view id) {
    return CIdKey{id, std::hash<std::string_view>()(id)};
}

void CGWebSessionColl::IndexLocked(CGWebSession* record) {
    const CIdKey key = KeyOf(record->m_strSessionId);
    CShard& shard = ShardOf(key);
    std::lock_guard<std::mutex> lock(shard.m_mutex);
    // The key views the new record's id: a replaced entry must take the new view too.
    shard.m_mapLive.erase(key);
    shard.m_mapLive.emplace(key, CSlot{record, false});
    // A table session shadows a copy read from the database before.
    auto stored = shard.m_mapStored.find(key);
    if (stored != shard.m_mapStored.end()) {
        Retire(stored->second);
        shard.m_mapStored.erase(stored);
    }
}

void CGWebSessionColl::MarkLeavingLocked(CGWebSession* record) {
    const CIdKey key = KeyOf(record->m_strSessionId);
    CShard& shard = ShardOf(key);
    std::lock_guard<std::mutex> lock(shard.m_mutex);
    shard.m_mapLive.find(key)->second.m_bLeaving = true;
}

void CGWebSessionColl::FinishLeaving(CGWebSession* record) {
    const CIdKey key = KeyOf(record->m_strSessionId);
    CShard& shard = ShardOf(key);
    {
        std::lock_guard<std::mutex> lock(shard.m_mutex);
        auto it = shard.m_mapLive.find(key);
        // A session added under the same id meanwhile owns the entry now.
        if (it != shard.m_mapLive.end() && it->second.m_pRecord == record)
            shard.m_mapLive.erase(it);
    }
    Retire(record);
}

void CGWebSessionColl::Retire(CGWebSession* record) {
    const auto now = std::chrono::steady_clock::now();
    std::list<std::pair<std::chrono::steady_clock::time_point, CGWebSession*>> expired;
    {
        std::lock_guard<std::mutex> lock(m_mutexRetired);
        while (!m_lstRetired.empty() && now - m_lstRetired.front().first > kGrace)
            expired.splice(expired.end(), m_lstRetired, m_lstRetired.begin());
        m_lstRetired.emplace_back(now, record);
    }
    for (auto& entry : expired)
        delete entry.second;
}

CGWebSession* CGWebSessionColl::LookSession(std::string sessionId) {
    // Until the persisted sessions are loaded every lookup would wrongly answer "timed out", so
    // lookups wait for InitData, however long that takes.
    while (!m_bInitialised.load(std::memory_order_acquire)) {
        ::usleep(kInitPollMicros);
    }
    const time_t now = tarn::ClockNow();
    const time_t lastSweep = m_tLastSweep.load(std::memory_order_relaxed);
    if ((tarn::TimeFace(static_cast<long>(now)) - tarn::TimeFace(static_cast<long>(lastSweep)))
            .GetTotalHours() > kSweepHoursSkipped) {
        EraseTimeOutSession(now);
    }

    const CIdKey key = KeyOf(sessionId);
    CShard& shard = ShardOf(key);
    {
        std::lock_guard<std::mutex> lock(shard.m_mutex);
        auto found = shard.m_mapLive.find(key);
        if (found != shard.m_mapLive.end()) {
            if (found->second.m_bLeaving)
                return nullptr;  // erased or swept; its database copy is being deleted
            found->second.m_pRecord->Touch(now);
            return found->second.m_pRecord;
        }
    }
    return LookStored(sessionId, key, now);
}

CGWebSession* CGWebSessionColl::LookStored(const std::string& sessionId, const CIdKey& key,
                                           time_t now) {
    // A session another process created is only in the database: it is asked at every lookup
    // (a change there shows at once) and never taken into the table.
    std::unique_ptr<CGWebSession> read(CSessionDb().GetOneSession(m_strDbServer, sessionId));
    CShard& shard = ShardOf(key);
    std::lock_guard<std::mutex> lock(shard.m_mutex);
    auto kept = shard.m_mapStored.find(key);
    if (kept != shard.m_mapStored.end()) {
        CGWebSession* old = kept->second;
        if (read && old->m_strUserId == read->m_strUserId &&
            old->m_strCompany == read->m_strCompany && old->m_nClientType == read->m_nClientType) {
            old->Touch(now);  // the database still says the same: the same record serves
            return old;
        }
        shard.m_mapStored.erase(kept);
        Retire(old);
    }
    if (!read)
        return nullptr;
    CGWebSession* record = read.release();
    record->m_bStoredOnly = true;
    shard.m_mapStored.emplace(KeyOf(record->m_strSessionId), record);
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

size_t CGWebSessionColl::GetRecordCount() {
    size_t count = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutexTable);
        count += m_mapSessions.size();
    }
    for (size_t i = 0; i < (size_t(1) << kShardBits); ++i) {
        std::lock_guard<std::mutex> lock(m_aShards[i].m_mutex);
        count += m_aShards[i].m_mapStored.size();
    }
    std::lock_guard<std::mutex> lock(m_mutexRetired);
    return count + m_lstRetired.size();
}
