// HostConfig: webharbour's settings from <install>/webharbour/middle.ini and the command line.
// Plain functions without global state: everything they read or write is passed in.
#pragma once

#include <string>
#include <vector>

#include "host/AddressRange.h"

namespace wh {

// One handler module to load: the [modules] key, its file and the URL prefix it serves.
struct ModuleEntry {
    std::string name;    // the key in [modules], used in messages
    std::string file;    // as configured
    std::string path;    // resolved: absolute, or <install>/lib/<file>
    std::string prefix;  // "/console"; "" for the root. Never ends in "/".
};

// [ssl]: HTTPS on ListenPort when certificateFile is set.
struct TlsConfig {
    std::string certificateFile;      // PEM: the certificate, then any intermediate certificates
    std::string keyFile;              // PEM private key; the certificate file when not given
    int redirectPort = -1;            // a plain-HTTP port that redirects to HTTPS; -1: none
    long long hstsMaxAge = 31536000;  // Strict-Transport-Security max-age; 0 sends none
    bool Enabled() const { return !certificateFile.empty(); }
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
    long long accessLogMaxBytes = 104857600;     // [main] AccessLogMaxBytes: 0 = one file a day
    std::vector<AddressRange> trustedProxies;    // [main] TrustedProxies: addresses and ranges
    std::vector<AddressRange> metricsAllow;      // [main] MetricsAllow: who may read /metrics
    bool allowRoot = false;                      // [main] AllowRoot (or --allow-root)
    std::string contentSecurityPolicy;           // [main] ContentSecurityPolicy ("" sends none)
    std::string referrerPolicy = "same-origin";  // [main] ReferrerPolicy ("" sends none)
    int stdoutFoldSeconds = 60;                  // [main] StdoutFoldSeconds
    TlsConfig tls;                               // [ssl]
    std::vector<ModuleEntry> modules;            // [modules] name = file prefix
};

// The policy sent when ContentSecurityPolicy is not set: scripts, styles and everything else
// only from this host's files (no inline script or style), pictures also as data: URLs, and no
// framing by any page.
extern const char* const kDefaultContentSecurityPolicy;

// What the command line asks for.
struct CommandLine {
    bool help = false;
    bool allowRoot = false;  // --allow-root
    int port = -1;           // --port N (-1: not given)
};

// Parses `args` (without the program name). False with `error` set for an unknown option or a
// bad port.
bool ParseCommandLine(const std::vector<std::string>& args, CommandLine& out, std::string& error);

// The library's INI reader takes a physical line in pieces of 1023 bytes, each read as a line
// of its own: a longer setting would lose its tail, and a tail holding "=" would become a setting
// of its own. False with `error` naming the file, line and key of the first line longer than
// that (`text` is the file's whole content).
bool CheckLineLengths(const std::string& text, const std::string& file, std::string& error);
const size_t kMaxSettingLine = 1023;

// Reads `iniPath` into `out` on top of its defaults; the paths derived from `installPath` are
// set as well. A missing file leaves the defaults; a malformed file, an over-long line or a bad
// value gives false with `error` naming the file, key and reason.
bool LoadHostConfig(const std::string& installPath, const std::string& iniPath, HostConfig& out,
                    std::string& error);

const char* UsageText();

}  // namespace wh
