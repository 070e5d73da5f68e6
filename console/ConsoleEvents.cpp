// The live event page's stream: monitoring events taken from the message queue "consoleevents"
// and fanned out to every open event page, with resumption through Last-Event-ID.
//
// Popping takes a message out of the queue for good, so two open pages must not each pop: the
// streams take turns as the one "pump" that pops (with a timeout) into a ring of recent events,
// and every stream sends what the ring holds beyond the last event it sent. Event ids are
// "<process tag>-<sequence>": a browser that reconnects to the same process gets exactly what it
// missed from the ring; one that comes back after a restart gets the whole ring, all of it new.
#include <json/json.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <memory>
#include <mutex>

#include "console/ConsoleCommon.h"
#include "console/ConsoleHandlers.h"
#include "db/QvHandle.h"
#include "host/WhModule.h"
#include "session/SessionApi.h"
#include "web/BSWork.h"

namespace console {

namespace {

const size_t kKeepEvents = 500;      // the ring's length
const unsigned kPopWaitMs = 1000;    // one pump turn; also bounds the reaction to a stop
const int kSessionCheckSeconds = 5;  // how soon a stream notices that its session ended
const int kKeepAliveSeconds = 15;    // a comment after this much silence finds dead connections

struct Event {
    unsigned long long seq;
    std::string json;  // one line
};

std::mutex g_mutexRing;  // guards g_ring and g_nLastSeq
std::condition_variable g_condRing;
std::deque<Event> g_ring;
unsigned long long g_nLastSeq = 0;
std::mutex g_mutexPump;  // held by the stream that pops the queue right now

const std::string& ProcessTag() {
    static const std::string tag = RandomHex(4);
    return tag;
}

void Publish(const std::string& json) {
    {
        std::lock_guard<std::mutex> lock(g_mutexRing);
        g_ring.push_back(Event{++g_nLastSeq, json});
        if (g_ring.size() > kKeepEvents)
            g_ring.pop_front();
    }
    g_condRing.notify_all();
}

// The pieces of the events after `after`, and the new `after`.
std::string Collect(unsigned long long& after) {
    std::string out;
    std::lock_guard<std::mutex> lock(g_mutexRing);
    for (const Event& e : g_ring) {
        if (e.seq <= after)
            continue;
        out += "id: " + EventId(e.seq) + "\nevent: monitor\ndata: " + e.json + "\n\n";
        after = e.seq;
    }
    return out;
}

bool Running(st_wh_info* info) {
    return g_pHost == nullptr || (g_pHost->isConnectionOk(info) != 0 && g_pHost->isStopping() == 0);
}

void WaitForRing() {
    std::unique_lock<std::mutex> lock(g_mutexRing);
    g_condRing.wait_for(lock, std::chrono::milliseconds(kPopWaitMs));
}

// One pump turn: pops one message (waiting up to kPopWaitMs) and publishes it. `loc` is the
// stream's own locator, made on its first turn and made anew after a failure other than "no
// message in time" (the queue deleted, the database gone), so that such a failure costs one
// wait per turn instead of a busy loop.
void PumpOnce(std::unique_ptr<CQvHandleLoc>& loc) {
    if (!loc) {
        loc = std::make_unique<CQvHandleLoc>();
        if (loc->MQdb_Alloc(kDbAddress, kEventQueue, "", 3, 0, kDbPort) != 0) {
            loc.reset();
            WaitForRing();
            return;
        }
    }
    tarn::MemCache msg;
    unsigned int size = 0;
    std::string name;
    long when = 0;
    unsigned long long id = 0;
    const int rc = loc->MQdb_PopMessage(msg, size, name, when, id, kPopWaitMs, false);
    if (rc == 0) {
        Publish(NormaliseEvent(std::string(msg.GetBuffer(), size), when));
    } else if (rc != BS_ERR_TIMEOUT) {
        if (loc->ReplaceHandle() != 0)
            loc.reset();
        WaitForRing();
    }
}

// A queue handle held for a long stream does not notice its database file being removed or
// replaced (restored from a backup, say): it would wait on the old file for ever. The handle's
// keep-alive probe tells, and the handle is opened anew on the current file.
void CheckQueueHandle(std::unique_ptr<CQvHandleLoc>& loc) {
    if (!loc || loc->GetConfHandle() == nullptr)
        return;
    if (bs_handle_keep_live(loc->GetConfHandle()->GetHandle()) != 0 && loc->ReplaceHandle() != 0)
        loc.reset();
}

}  // namespace

const char* const kEventQueue = "consoleevents";

std::string NormaliseEvent(const std::string& text, long pushedAt) {
    Json::Value in;
    Json::CharReaderBuilder reader;
    std::string errors;
    std::unique_ptr<Json::CharReader> parser(reader.newCharReader());
    const bool parsed =
        parser->parse(text.data(), text.data() + text.size(), &in, &errors) && in.isObject();
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    Json::Value out(Json::objectValue);
    const char* fields[] = {"time", "company", "host", "severity", "message"};
    for (const char* f : fields) {
        const Json::Value& v = parsed ? in[f] : Json::Value();
        if (v.isNull())
            out[f] = "";
        else if (v.isString() || v.isNumeric() || v.isBool())
            out[f] = v.asString();
        else
            out[f] = Json::writeString(writer, v);
    }
    if (!parsed) {
        // Not an event object: nothing is dropped, the text is shown as the message.
        out["severity"] = "unknown";
        out["message"] = text;
    }
    if (out["time"].asString().empty()) {
        time_t t = pushedAt > 0 ? static_cast<time_t>(pushedAt) : std::time(nullptr);
        struct tm local;
        localtime_r(&t, &local);
        char buf[32];
        std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &local);
        out["time"] = buf;
    }
    return Json::writeString(writer, out);
}

std::string EventId(unsigned long long seq) {
    return ProcessTag() + "-" + std::to_string(seq);
}

unsigned long long ResumeAfter(const std::string& lastEventId) {
    const std::string prefix = ProcessTag() + "-";
    if (lastEventId.compare(0, prefix.size(), prefix) != 0)
        return 0;
    return std::strtoull(lastEventId.c_str() + prefix.size(), nullptr, 10);
}

int HandleEvents(st_wh_info* info, void*) {
    Params params;
    if (!RunGate(info, params, true))
        return 0;
    CBSWork work;
    unsigned long long after = ResumeAfter(work.CheckChunkLastEventId(info));
    // The first piece sends the head; the browser waits 3 s before it reconnects.
    work.SendInfoToWeb(info, "retry: 3000\n\n", 2, true, 0, "");
    int chunk = 1;
    std::unique_ptr<CQvHandleLoc> loc;
    auto lastSent = std::chrono::steady_clock::now();
    auto lastCheck = lastSent;
    while (Running(info)) {
        std::string pieces = Collect(after);
        if (!pieces.empty()) {
            work.SendInfoToWeb(info, pieces, 2, true, chunk++, "");
            lastSent = std::chrono::steady_clock::now();
            continue;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now - lastCheck > std::chrono::seconds(kSessionCheckSeconds)) {
            // A session that ended meanwhile (log-out elsewhere, idle time-out) ends the stream;
            // the browser's reconnect then meets the gate and is sent back to log in.
            if (BSWhetherSessionIdTimeOut(BSCheckQvSession(info)))
                break;
            CheckQueueHandle(loc);
            lastCheck = now;
        }
        if (now - lastSent > std::chrono::seconds(kKeepAliveSeconds)) {
            work.SendInfoToWeb(info, ": keep-alive\n\n", 2, true, chunk++, "");
            lastSent = now;
        }
        std::unique_lock<std::mutex> pump(g_mutexPump, std::try_to_lock);
        if (pump.owns_lock()) {
            PumpOnce(loc);
        } else {
            std::unique_lock<std::mutex> lock(g_mutexRing);
            g_condRing.wait_for(lock, std::chrono::milliseconds(kPopWaitMs),
                                [&] { return !g_ring.empty() && g_ring.back().seq > after; });
        }
    }
    if (g_pHost == nullptr || g_pHost->isConnectionOk(info) != 0)
        work.SendInfoToWeb(info, "", 2, true, -1, "");
    return 0;
}

}  // namespace console
