// The networked engine's configuration: connection parameters from BSAPI_PG_DSN with the engine's
// own session settings added, schema names, and rate-limited messages.
#include "bsapi/postgres/PgConfig.h"

#include <libpq-fe.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>

#include "bsapi/Engine.h"
#include "bsapi/EngineConfig.h"

namespace bsapi {

unsigned long long PgHash(const std::string& text, unsigned long long seed) {
    unsigned long long h = seed;
    for (unsigned char c : text)
        h = (h ^ c) * 1099511628211ull;
    return h;
}

std::string PgSchemaName(const CServerAddr& server) {
    const std::string& a = server.m_strAddress;
    bool plain = !a.empty() && a.size() <= 40;
    for (char c : a) {
        plain = plain && ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                          (c >= '0' && c <= '9') || c == '.' || c == '-');
    }
    std::string port = std::to_string(server.m_nPort);
    if (plain)
        return "bs_" + a + "_" + port;
    char hex[17];
    std::snprintf(hex, sizeof hex, "%016llx", PgHash(a));
    return "bsh_" + port + "_" + hex;
}

void PgLog(const std::string& message) {
    static std::mutex& mtx = *new std::mutex;  // guards `last`; never destroyed (exit-time calls)
    static std::map<std::string, time_t>& last = *new std::map<std::string, time_t>;
    time_t now = ::time(nullptr);
    {
        std::lock_guard<std::mutex> lock(mtx);
        auto it = last.find(message);
        if (it != last.end() && now - it->second < 10)
            return;
        if (last.size() > 256)
            last.clear();
        last[message] = now;
    }
    std::fprintf(stderr, "bsapi: %s\n", message.c_str());
}

int PgTarget(const std::string& schema, CPgTarget& out) {
    std::string dsn = EngineSetting("BSAPI_PG_DSN");
    char* err = nullptr;
    PQconninfoOption* opts = PQconninfoParse(dsn.c_str(), &err);
    if (opts == nullptr) {
        // libpq's own words may quote a piece of the string, and with it a password: say only
        // what is wrong in general.
        PQfreemem(err);
        PgLog(
            "BSAPI_PG_DSN is not a valid libpq connection string (keyword=value pairs or a "
            "postgresql:// URI)");
        return BS_ERR_NO_ENGINE;
    }
    out = CPgTarget();
    out.m_nTimeoutMs =
        static_cast<int>(EngineSettingMs("BSAPI_PG_TIMEOUT_MS", 30000, 100, 3600000));
    long busy = EngineSettingMs("BSAPI_BUSY_TIMEOUT_MS", 5000, 0, 3600000);
    std::string options, appName;
    std::map<std::string, std::string> shown;
    for (PQconninfoOption* o = opts; o->keyword != nullptr; ++o) {
        if (o->val == nullptr || *o->val == '\0')
            continue;
        std::string key = o->keyword, val = o->val;
        if (key == "options") {
            options = val;
            continue;
        }
        if (key == "connect_timeout") {
            int s = std::atoi(val.c_str());
            if (s > 0)
                out.m_nConnectMs = (s < 2 ? 2 : s) * 1000;  // libpq's own minimum
            continue;
        }
        if (key == "application_name")
            appName = val;
        if (key == "host" || key == "hostaddr" || key == "port" || key == "dbname" || key == "user")
            shown[key] = val;
        out.m_vecKeys.push_back(key);
        out.m_vecValues.push_back(val);
    }
    PQconninfoFree(opts);
    // The schema name holds no blank, so it needs no escaping in the options; a lock wait beyond
    // the busy time-out and a statement beyond the statement time-out are refused by the server.
    // Every statement of the engine looks rows up by key, so one generic plan serves each: left
    // to itself the server plans some of them anew on every run (a pop took three times a read).
    options += " -c search_path=\"" + schema + "\" -c lock_timeout=" + std::to_string(busy) +
               " -c statement_timeout=" + std::to_string(out.m_nTimeoutMs) +
               " -c plan_cache_mode=force_generic_plan";
    out.m_vecKeys.push_back("options");
    out.m_vecValues.push_back(options);
    if (appName.empty()) {
        out.m_vecKeys.push_back("application_name");
        out.m_vecValues.push_back("bsapi");
    }
    out.m_vecKeys.push_back("connect_timeout");  // also given to libpq, for each host it tries
    out.m_vecValues.push_back(std::to_string(out.m_nConnectMs / 1000));
    for (const char* k : {"host", "hostaddr", "port", "dbname", "user"}) {
        if (shown.count(k))
            out.m_strWhere += (out.m_strWhere.empty() ? "" : " ") + std::string(k) + "=" + shown[k];
    }
    if (out.m_strWhere.empty())
        out.m_strWhere = "libpq defaults";
    return BS_OK;
}

}  // namespace bsapi
