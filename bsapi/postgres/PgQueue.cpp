// The networked engine's message queues. A pop deletes the first message it can lock, skipping
// messages other consumers hold (FOR UPDATE SKIP LOCKED), so consumers on any number of hosts
// never take the same message. A push notifies the queue's channel in its own transaction; a
// blocking pop listens on that channel, looks for a message, and sleeps on the connection's socket
// until a notification or its deadline, so it wakes for a push from any host without polling.
#include <chrono>
#include <cstdio>
#include <ctime>

#include "bsapi/postgres/PgConfig.h"
#include "bsapi/postgres/PgEngine.h"

namespace bsapi {

using tarn::VariableData;

namespace {

const unsigned kVacuumEvery = 1000;

const char* const kCreate =
    "INSERT INTO bs_queue(name) VALUES($1::bytea) ON CONFLICT (name) DO NOTHING";
const char* const kFind = "SELECT id FROM bs_queue WHERE name = $1::bytea";
const char* const kPush =
    "WITH m AS (INSERT INTO bs_msg(queue, prio, name, ctime, value)"
    " VALUES($1::bigint, $2::bigint, $3::bytea, $4::bigint, $5::bytea) RETURNING id)"
    " SELECT m.id FROM m, pg_notify($6::text, '') n";
// A pop and a peek answer one row: the message (NULLs when there is none), whether the queue
// exists (so that an empty queue costs one round trip too) and whether another message remains.
// Each look is an ordered LIMIT 1 on the queue's index, which the planner always walks from the
// queue's first entry (an EXISTS was once planned as a scan of the whole table).
const char* const kTake =
    "WITH m AS (DELETE FROM bs_msg WHERE id = (SELECT id FROM bs_msg WHERE queue = $1::bigint"
    " ORDER BY prio DESC, id LIMIT 1 FOR UPDATE SKIP LOCKED) RETURNING id, name, ctime, value)"
    " SELECT m.id, m.name, m.ctime, m.value, EXISTS(SELECT 1 FROM bs_queue WHERE id = $1::bigint),"
    " (SELECT id FROM bs_msg WHERE queue = $1::bigint AND id <> m.id ORDER BY prio DESC, id"
    " LIMIT 1) IS NOT NULL FROM (SELECT 1) one LEFT JOIN m ON TRUE";
const char* const kPeek =
    "WITH m AS (SELECT id, name, ctime, value FROM bs_msg WHERE queue = $1::bigint"
    " ORDER BY prio DESC, id LIMIT 1)"
    " SELECT m.id, m.name, m.ctime, m.value, EXISTS(SELECT 1 FROM bs_queue WHERE id = $1::bigint),"
    " TRUE FROM (SELECT 1) one LEFT JOIN m ON TRUE";
const char* const kLength =
    "SELECT EXISTS(SELECT 1 FROM bs_queue WHERE id = $1::bigint),"
    " (SELECT count(*) FROM bs_msg WHERE queue = $1::bigint)";
const char* const kClear =
    "WITH q AS (SELECT 1 FROM bs_queue WHERE id = $1::bigint), d AS (DELETE FROM bs_msg"
    " WHERE queue = $1::bigint AND EXISTS(SELECT 1 FROM q)) SELECT EXISTS(SELECT 1 FROM q)";
// Its messages go by the foreign key; waiting pops learn that the queue is gone.
const char* const kDrop =
    "WITH d AS (DELETE FROM bs_queue WHERE id = $1::bigint RETURNING 1)"
    " SELECT count(*) FROM d, pg_notify($2::text, '') n";

}  // namespace

std::string PgChannel(const std::string& schema, long long queue) {
    char channel[40];
    std::snprintf(channel, sizeof channel, "bsq_%016llx",
                  PgHash(std::to_string(queue), PgHash(schema)));
    return channel;
}

namespace {

class CPgQueue : public CQueueSession {
public:
    int KeepLive() override { return m_pConn ? m_pConn->KeepLive() : BS_ERR_CONN_CLOSED; }

    int Open(const CServerAddr& server, const std::string& queue, bool create) override {
        std::shared_ptr<CPgConn> conn = m_pConn;
        if (!conn) {
            int rc = PgConnect(server, conn);
            if (rc != BS_OK)
                return rc;
        }
        int rc = create ? conn->Run(kCreate, CPgParams().Bytes(queue)) : BS_OK;
        CPgResult res;
        if (rc == BS_OK)
            rc = conn->Run(kFind, CPgParams().Bytes(queue), res);
        if (rc != BS_OK)
            return rc;
        if (res.Rows() == 0)
            return BS_ERR_NO_QUEUE;
        long long id = res.Int(0, 0);
        std::string channel = PgChannel(conn->Schema(), id);
        if (m_bListening && m_strChannel != channel) {
            rc = conn->Simple("UNLISTEN \"" + m_strChannel + "\"");
            if (rc != BS_OK)
                return rc;
            m_bListening = false;
        }
        m_pConn = conn;
        m_llQueue = id;
        m_strChannel = channel;
        m_bKnownEmpty = false;
        return BS_OK;
    }

    int Push(const VariableData& value, const std::string& name, unsigned char priority,
             unsigned long long& id) override {
        CPgResult res;
        int rc = m_pConn->Run(kPush,
                              CPgParams()
                                  .Int(m_llQueue)
                                  .Int(priority)
                                  .Bytes(name)
                                  .Int(static_cast<long long>(::time(nullptr)))
                                  .Serial(value)
                                  .Bytes(m_strChannel),
                              res);
        if (rc == BS_ERR_CONSTRAINT && m_pConn->LastState() == "23503")
            return BS_ERR_NO_QUEUE;
        if (rc != BS_OK)
            return rc;
        id = static_cast<unsigned long long>(res.Int(0, 0));
        return BS_OK;
    }

    int Pop(CMessage& message, unsigned int timeoutMs, bool peek) override {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        if (timeoutMs > 0 && !m_bListening) {
            // Listening before the first look: a push after the look is then always heard.
            int rc = m_pConn->Listen(m_strChannel);
            if (rc != BS_OK)
                return rc;
            m_bListening = true;
            m_bKnownEmpty = false;
        }
        // When the last look found the queue empty while we listened, every push since has been
        // heard (or is on its way): a waiting pop sleeps at once instead of looking again.
        bool look = !(m_bListening && m_bKnownEmpty);
        for (;;) {
            if (look) {
                // What was heard so far is older than the look below, which sees those pushes.
                m_pConn->DropNotifications();
                int rc = TryPop(message, peek);
                if (rc != BS_ERR_TIMEOUT || std::chrono::steady_clock::now() >= deadline)
                    return rc;
            }
            look = true;
            int rc = m_pConn->WaitNotification(m_strChannel, deadline);
            if (rc != BS_OK && rc != BS_ERR_TIMEOUT)
                return rc;
        }
    }

    int Length(unsigned long long& length) override {
        CPgResult res;
        int rc = m_pConn->Run(kLength, CPgParams().Int(m_llQueue), res);
        if (rc != BS_OK)
            return rc;
        if (!res.Int(0, 0))
            return BS_ERR_NO_QUEUE;
        length = static_cast<unsigned long long>(res.Int(0, 1));
        return BS_OK;
    }

    int Clear() override {
        CPgResult res;
        int rc = m_pConn->Run(kClear, CPgParams().Int(m_llQueue), res);
        if (rc != BS_OK)
            return rc;
        return res.Int(0, 0) ? BS_OK : BS_ERR_NO_QUEUE;
    }

    int Delete() override {
        CPgResult res;
        int rc = m_pConn->Run(kDrop, CPgParams().Int(m_llQueue).Bytes(m_strChannel), res);
        if (rc != BS_OK)
            return rc;
        return res.Int(0, 0) > 0 ? BS_OK : BS_ERR_NO_QUEUE;
    }

private:
    // One message, or BS_ERR_TIMEOUT for an empty queue.
    int TryPop(CMessage& message, bool peek) {
        CPgResult res;
        int rc = m_pConn->Run(peek ? kPeek : kTake, CPgParams().Int(m_llQueue), res);
        if (rc != BS_OK)
            return rc;
        if (res.Rows() != 1)
            return BS_ERR_INTERNAL;
        m_bKnownEmpty = res.IsNull(0, 0) || !res.Int(0, 5);
        if (res.IsNull(0, 0))
            return res.Int(0, 4) ? BS_ERR_TIMEOUT : BS_ERR_NO_QUEUE;
        if (!peek && ++m_nTaken % kVacuumEvery == 0) {
            // A queue's deleted messages lie before its first live one, and every pop walks
            // over them until the table is vacuumed; between the server's own rounds (a minute
            // apart by default) a busy consumer clears them itself. Skipped while another
            // vacuum runs; a refusal (not the table's owner) costs nothing but the try.
            m_pConn->Simple("VACUUM (SKIP_LOCKED) bs_msg");
        }
        message.m_ullId = static_cast<unsigned long long>(res.Int(0, 0));
        message.m_strName = res.Bytes(0, 1);
        message.m_lTime = static_cast<long>(res.Int(0, 2));
        return res.Serial(0, 3, message.m_varValue) ? BS_OK : BS_ERR_CORRUPT;
    }

    std::shared_ptr<CPgConn> m_pConn;
    long long m_llQueue = 0;
    std::string m_strChannel;
    bool m_bListening = false;        // LISTEN on m_strChannel was sent on this connection
    bool m_bKnownEmpty = false;       // the last look found no further message
    unsigned long long m_nTaken = 0;  // messages this session took
};

}  // namespace

std::unique_ptr<CQueueSession> NewPgQueue() {
    return std::make_unique<CPgQueue>();
}

}  // namespace bsapi
