// HostConfig: webharbour's settings from <install>/webharbour/middle.ini and the command line.
#pragma once

#include <string>
#include <vector>

namespace wh {

// One handler module to load: the [modules] key, its file and the URL prefix it serves.
struct ModuleEntry {
    std::string name;    // the key in [modules], used in messages
    std::string file;    // as configured
    std::string path;    // resolved: absolute, or <install>/lib/<file>
    std::string prefix;  // "/console"; "" for the root. Never ends in "/".
};

struct HostConfig {
    std::string installPath;           // <install>, no trailing slash
    std::string iniPath;               // <install>/webharbour/middle.ini
    std::string docRoot;               // <install>/webharbour/hdoc
    std::string logDir;                // <install>/middle/log
    std::string listenAddress;         // [main] ListenAddress; "" = every interface
    int port = 8121;                   // [main] ListenPort; 0 lets the system choose
    int workerThreads = 64;            // [main] WorkerThreads
    int maxEventStreams = 16;          // [main] MaxEventStreams (must stay below WorkerThreads)
    long long maxBodyBytes = 1048576;  // [main] MaxBodyBytes: larger request bodies get 413
    int keepAliveMs = 500;             // [main] KeepAliveMs: idle time of a kept-alive connection
    int requestTimeoutMs = 30000;      // [main] RequestTimeoutMs: socket read/write time-out
    bool accessLog = true;             // [main] AccessLog: 1 writes the access log, 0 does not
    std::vector<std::string> trustedProxies;  // [main] TrustedProxies: addresses, "," or " "
    std::vector<ModuleEntry> modules;          // [modules] name = file prefix
};

// What the command line asks for.
struct CommandLine {
    bool help = false;
    int port = -1;  // --port N (-1: not given)
};

// Parses `args` (without the program name). False with `error` set for an unknown option or a
// bad port.
bool ParseCommandLine(const std::vector<std::string>& args, CommandLine& out, std::string& error);

// Reads `iniPath` into `out` on top of its defaults; the paths derived from `installPath` are
// set as well. A missing file leaves the defaults; a malformed file or a bad value gives false
// with `error` naming the file, key and reason.
bool LoadHostConfig(const std::string& installPath, const std::string& iniPath, HostConfig& out,
                    std::string& error);

// True when `address` is one of `config.trustedProxies`.
bool IsTrustedProxy(const HostConfig& config, const std::string& address);

// The client's address for a request from `peer` carrying `forwardedFor` (the X-Forwarded-For
// header, "" when absent): `peer` unless it is a trusted proxy; otherwise the right-most entry
// of the header that is not itself a trusted proxy (the left-most when all are).
std::string ClientAddress(const HostConfig& config, const std::string& peer,
                          const std::string& forwardedFor);

const char* UsageText();

}  // namespace wh
