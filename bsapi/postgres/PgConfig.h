// The networked engine's configuration: the connection string, time-outs, the schema that holds one
// database server's data, and the engine's messages on standard error.
#pragma once

#include <string>
#include <vector>

namespace bsapi {

struct CServerAddr;

// Where and how to connect, read from the settings (EngineConfig.h) at every connect:
//   BSAPI_PG_DSN          a libpq connection string (keyword=value pairs or a postgresql:// URI);
//                         empty: libpq's defaults (PGHOST, PGPORT, ... and the local socket)
//   BSAPI_PG_TIMEOUT_MS   how long a statement may run, and how long the engine waits for the
//                         server's answer before it gives the connection up (default 30000)
//   BSAPI_BUSY_TIMEOUT_MS how long a statement waits for another's lock before 2001 (default 5000)
// The connect itself gives up after the string's connect_timeout, 10 s when it names none.
struct CPgTarget {
    std::vector<std::string> m_vecKeys, m_vecValues;  // for PQconnectStartParams
    std::string m_strWhere;  // host, port, database and user for messages: never the password
    int m_nConnectMs = 10000;
    int m_nTimeoutMs = 30000;
};

// Fills `out` for a connection whose search path is `schema`. BS_ERR_NO_ENGINE (with a message
// on standard error) when the connection string cannot be parsed.
int PgTarget(const std::string& schema, CPgTarget& out);

// The schema of a database server: "bs_<address>_<port>" while the address holds only letters,
// digits, "." and "-" (at most 40 of them), else "bsh_<port>_<hash of the address>". Letter case
// is kept, as addresses are compared byte for byte.
std::string PgSchemaName(const CServerAddr& server);

// 64-bit FNV-1a, for lock keys and notification channels derived from our own names.
unsigned long long PgHash(const std::string& text,
                          unsigned long long seed = 14695981039346656037ull);

// Writes "bsapi: <message>" on standard error, at most once per ten seconds for one text, so that
// a server that stays away does not flood the host's log. Callers never pass secrets.
void PgLog(const std::string& message);

}  // namespace bsapi
