// The handler module of webharbour's tests: each handler answers one framing or lifecycle case
// through the library's response writer, or runs the library's gate and CSRF check.
#include <json/json.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

#include "common/QvUtil.h"
#include "host/WhModule.h"
#include "session/SessionApi.h"
#include "web/BSWork.h"
#include "web/Url.h"

namespace {

const WhRegistry* g_host = nullptr;  // set once in wh_module_register
std::atomic<int> g_nEchoReached{0};  // requests that reached the echo handler
std::mutex g_mutexRelease;           // guards g_nReleased
std::condition_variable g_condRelease;
int g_nReleased = 0;  // how many /t/release requests arrived

std::map<std::string, std::string> Query(st_wh_info* info) {
    std::map<std::string, std::string> params;
    info->url->GetQueryStringMap(params);
    return params;
}

int Number(const std::map<std::string, std::string>& p, const char* key, int def) {
    auto it = p.find(key);
    return it == p.end() ? def : std::atoi(it->second.c_str());
}

// ?n=<length>&c=<char>: a body of n characters (n > 1000 goes through encodeBody).
int Plain(st_wh_info* info, void*) {
    auto p = Query(info);
    auto c = p.find("c");
    std::string text(static_cast<size_t>(Number(p, "n", 5)), c == p.end() ? 'x' : c->second[0]);
    CBSWork().SendInfoToWeb(info, text, 2, false, 0, "text/plain");
    return 0;
}

// Varied text, so that gzip really has to encode it rather than repeat one byte.
int Big(st_wh_info* info, void*) {
    std::string text;
    const size_t n = static_cast<size_t>(Number(Query(info), "n", 5000));
    for (int i = 0; text.size() < n; ++i)
        text += "line " + std::to_string(i * 7919 % 1000) + ";";
    text.resize(n);
    CBSWork().SendInfoToWeb(info, text, 2, false, 0, "text/plain");
    return 0;
}

int Redirect(st_wh_info* info, void*) {
    CBSWork().SendRediToWeb(info, "/t/plain?n=3", 2, "text/html");
    return 0;
}

int Cookies(st_wh_info* info, void*) {
    info->resp->extraHeaders.emplace_back("Set-Cookie", "a=1; path=/");
    info->resp->extraHeaders.emplace_back("Set-Cookie", "b=2; path=/; httponly");
    CBSWork().SendInfoToWeb(info, "two cookies", 2, false, 0, "text/html");
    return 0;
}

// First piece, an empty piece (must vanish), then waits for /t/release before the second piece
// and the closing piece: the client can only see the first piece early if nothing buffers it.
int Stream(st_wh_info* info, void*) {
    CBSWork w;
    int seen;
    {
        std::lock_guard<std::mutex> lock(g_mutexRelease);
        seen = g_nReleased;
    }
    w.SendInfoToWeb(info, "data: one\n\n", 2, true, 0, "");
    info->writeChunk(info->connId, "", 0, WH_CHUNK_PIECE);
    {
        std::unique_lock<std::mutex> lock(g_mutexRelease);
        g_condRelease.wait_for(lock, std::chrono::seconds(10), [&] { return g_nReleased > seen; });
    }
    w.SendInfoToWeb(info, "data: two\n\n", 2, true, 1, "");
    w.SendInfoToWeb(info, Query(info).count("emptylast") ? "" : "data: end\n\n", 2, true, -1, "");
    return 0;
}

int Release(st_wh_info* info, void*) {
    {
        std::lock_guard<std::mutex> lock(g_mutexRelease);
        ++g_nReleased;
    }
    g_condRelease.notify_all();
    CBSWork().SendInfoToWeb(info, "released", 2, false, 0, "text/plain");
    return 0;
}

// An endless event stream: a piece every 100 ms until the client is gone or the host stops.
int Forever(st_wh_info* info, void*) {
    CBSWork w;
    w.SendInfoToWeb(info, "data: start\n\n", 2, true, 0, "");
    for (int i = 1; g_host->isConnectionOk(info) && !g_host->waitStopping(100); ++i)
        w.SendInfoToWeb(info, "data: tick\n\n", 2, true, i, "");
    return 0;
}

int Echo(st_wh_info* info, void*) {
    ++g_nEchoReached;
    uint32_t length = 0;
    const char* body = info->readBody(info->connId, &length);
    std::string text = "length=" + std::to_string(length) + "\n";
    if (body != nullptr)
        text += body;
    CBSWork().SendInfoToWeb(info, text, 2, false, 0, "text/plain");
    return 0;
}

int EchoCount(st_wh_info* info, void*) {
    CBSWork().SendInfoToWeb(info, std::to_string(g_nEchoReached.load()), 2, false, 0, "text/plain");
    return 0;
}

// The record as the handler sees it, one "name=value" line each.
int Record(st_wh_info* info, void*) {
    std::string t;
    t += "method=" + std::to_string(info->head->method) + "\n";
    t += "path=" + info->url->GetPath() + "\n";
    t += "query=" + info->url->GetQueryString() + "\n";
    t += "cookie=" + info->head->cookie + "\n";
    t += "host=" + info->head->host + "\n";
    t += "referer=" + info->head->referer + "\n";
    t += "peer=" + GetPeerIP(info) + "\n";
    t += "session=" + BSCheckQvSession(info) + "\n";
    auto h = info->resp->headers.find("X-Mixed-Case");
    t += "x-mixed-case=" + (h == info->resp->headers.end() ? "<none>" : h->second) + "\n";
    t += "lower=" + std::to_string(info->resp->headers.count("x-mixed-case")) + "\n";
    t += "lasteventid=" + CBSWork().CheckChunkLastEventId(info) + "\n";
    t += "docpath=" + std::string(info->getDocPath(info->connId)) + "\n";
    CBSWork().SendInfoToWeb(info, t, 2, false, 0, "text/plain");
    return 0;
}

// Answers nothing: the host's empty answer carries the status returned (?status=).
int Silent(st_wh_info* info, void*) {
    return Number(Query(info), "status", 0);
}

// Log-in: a session bound to the caller's address, its cookie and a CSRF token cookie.
int Login(st_wh_info* info, void*) {
    std::string sid = CQvUtil::GetGuid();
    BSAddSession(sid, "tester", "company1", 0, 0, GetPeerIP(info));
    info->resp->extraHeaders.emplace_back("Set-Cookie", "qvsessionid=" + sid + "; path=/");
    info->resp->extraHeaders.emplace_back("Set-Cookie", BSGetTokenCookie(info));
    Json::Value data(Json::objectValue);
    data["session"] = sid;
    CBSWork().SendSuccessWebSession(info, "", data, "");
    return 0;
}

// A state-changing request as the console writes them: gate with session check, then the CSRF
// check, then the success envelope. A refusal the gate does not word gets 400.
int Guarded(st_wh_info* info, void*) {
    std::string callback;
    std::map<std::string, std::string> params;
    if (Web_SessionInit(info, callback, params, 1, 1, true) != 0)
        return 400;
    if (BSCheckToken(info) == 0)
        return 0;
    Json::Value data(Json::objectValue);
    data["ok"] = 1;
    CBSWork().SendSuccessWebSession(info, "", data, callback);
    return 0;
}

// What a console page's read request costs: the gate with the session check, then the success
// envelope (bench/host_bench.sh measures it).
int Bench(st_wh_info* info, void*) {
    std::string callback;
    std::map<std::string, std::string> params;
    if (Web_SessionInit(info, callback, params, 1, 0, true) != 0)
        return 400;
    Json::Value data(Json::objectValue);
    data["ok"] = 1;
    CBSWork().SendSuccessWebSession(info, "", data, callback);
    return 0;
}

}  // namespace

extern "C" WH_MODULE_EXPORT int wh_module_register(WhRegistry* reg) {
    if (reg->apiVersion < WH_MODULE_API_VERSION)
        return -1;
    g_host = reg;
    const struct {
        const char* path;
        WhHandler handler;
    } kRoutes[] = {{"plain", &Plain},     {"big", &Big},       {"redirect", &Redirect},
                   {"cookies", &Cookies}, {"stream", &Stream}, {"release", &Release},
                   {"forever", &Forever}, {"echo", &Echo},     {"echocount", &EchoCount},
                   {"record", &Record},   {"silent", &Silent}, {"login", &Login},
                   {"guarded", &Guarded}, {"dir/", &Record},   {"bench", &Bench}};
    for (const auto& r : kRoutes) {
        if (reg->addHandler(reg, r.path, r.handler, nullptr) != 0)
            return -1;
    }
    return 0;
}
