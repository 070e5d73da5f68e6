// HostConfig: reading webharbour/middle.ini, checking every value, and the command line.
#include "host/HostConfig.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <sstream>

#include "common/IniFile.h"

namespace wh {

namespace {

// An idle kept-alive connection holds its worker for up to this long, and the stop waits for
// every worker: above 1.5 s the stop could no longer finish within two seconds.
const long long kMaxKeepAliveMs = 1500;

// Whole-text decimal integer within [lo, hi]; anything else (blanks, signs out of range, junk
// after the digits) is refused so that a typo never silently becomes a default.
bool ParseInteger(const std::string& text, long long lo, long long hi, long long& out) {
    if (text.empty())
        return false;
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || end == nullptr || *end != '\0' || v < lo || v > hi)
        return false;
    out = v;
    return true;
}

std::vector<std::string> SplitList(const std::string& text) {
    std::vector<std::string> items;
    std::string cur;
    for (char c : text) {
        if (c == ',' || c == ' ' || c == '\t' || c == ';') {
            if (!cur.empty())
                items.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.empty())
        items.push_back(cur);
    return items;
}

std::string Trim(const std::string& text) {
    std::string::size_type b = text.find_first_not_of(" \t");
    if (b == std::string::npos)
        return "";
    std::string::size_type e = text.find_last_not_of(" \t");
    return text.substr(b, e - b + 1);
}

// One integer key of [main]: absent keeps `value`; present must parse within range.
bool ReadInt(const std::map<std::string, std::string>& main, const char* key, long long lo,
             long long hi, long long& value, const std::string& file, std::string& error) {
    auto it = main.find(key);
    if (it == main.end() || it->second.empty())
        return true;
    long long v = 0;
    if (!ParseInteger(it->second, lo, hi, v)) {
        std::ostringstream msg;
        msg << file << ": [main] " << key << " = \"" << it->second
            << "\" is not a whole number from " << lo << " to " << hi;
        error = msg.str();
        return false;
    }
    value = v;
    return true;
}

bool ReadModule(const std::string& name, const std::string& value, const std::string& install,
                ModuleEntry& out, const std::string& file, std::string& error) {
    std::vector<std::string> parts = SplitList(value);
    if (parts.size() != 2 || parts[1][0] != '/') {
        error = file + ": [modules] " + name + " = \"" + value +
                "\" must be a module file and a URL prefix starting with \"/\", e.g. "
                "\"libconsole.so /console\"";
        return false;
    }
    out.name = name;
    out.file = parts[0];
    out.path = parts[0][0] == '/' ? parts[0] : install + "/lib/" + parts[0];
    std::string prefix = parts[1];
    while (!prefix.empty() && prefix.back() == '/')
        prefix.pop_back();
    out.prefix = prefix;
    return true;
}

}  // namespace

bool ParseCommandLine(const std::vector<std::string>& args, CommandLine& out, std::string& error) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "-h" || a == "--help") {
            out.help = true;
        } else if (a == "-p" || a == "--port") {
            long long port = 0;
            if (i + 1 >= args.size() || !ParseInteger(args[i + 1], 0, 65535, port)) {
                error = a + " needs a port number from 0 to 65535";
                return false;
            }
            out.port = static_cast<int>(port);
            ++i;
        } else {
            error = "unknown argument \"" + a + "\"";
            return false;
        }
    }
    return true;
}

bool LoadHostConfig(const std::string& installPath, const std::string& iniPath, HostConfig& out,
                    std::string& error) {
    out.installPath = installPath;
    out.iniPath = iniPath;
    out.docRoot = installPath + "/webharbour/hdoc";
    out.logDir = installPath + "/middle/log";
    if (::access(iniPath.c_str(), F_OK) != 0)
        return true;  // no file: every default holds
    tarn::CIniFile ini;
    if (!ini.Init(iniPath)) {
        error = iniPath +
                ": cannot be read, or a line holds \"[\" without \"]\" or a setting "
                "stands before the first section";
        return false;
    }
    std::map<std::string, std::string> main;
    ini.GetSection("main", main);

    long long port = out.port, threads = out.workerThreads, streams = out.maxEventStreams;
    long long body = out.maxBodyBytes, keep = out.keepAliveMs, timeout = out.requestTimeoutMs;
    long long log = out.accessLog ? 1 : 0;
    if (!ReadInt(main, "ListenPort", 0, 65535, port, iniPath, error) ||
        !ReadInt(main, "WorkerThreads", 2, 1024, threads, iniPath, error) ||
        !ReadInt(main, "MaxEventStreams", 0, 1023, streams, iniPath, error) ||
        !ReadInt(main, "MaxBodyBytes", 0, 1LL << 31, body, iniPath, error) ||
        !ReadInt(main, "KeepAliveMs", 0, kMaxKeepAliveMs, keep, iniPath, error) ||
        !ReadInt(main, "RequestTimeoutMs", 100, 3600000, timeout, iniPath, error) ||
        !ReadInt(main, "AccessLog", 0, 1, log, iniPath, error))
        return false;
    if (streams >= threads) {
        // Every event stream holds a worker thread for its whole life: with as many streams as
        // threads, ordinary requests would find no thread left.
        error = iniPath + ": [main] MaxEventStreams (" + std::to_string(streams) +
                ") must be less than WorkerThreads (" + std::to_string(threads) + ")";
        return false;
    }
    out.port = static_cast<int>(port);
    out.workerThreads = static_cast<int>(threads);
    out.maxEventStreams = static_cast<int>(streams);
    out.maxBodyBytes = body;
    out.keepAliveMs = static_cast<int>(keep);
    out.requestTimeoutMs = static_cast<int>(timeout);
    out.accessLog = log != 0;
    auto addr = main.find("ListenAddress");
    if (addr != main.end())
        out.listenAddress = Trim(addr->second);
    auto proxies = main.find("TrustedProxies");
    if (proxies != main.end())
        out.trustedProxies = SplitList(proxies->second);

    std::map<std::string, std::string> modules;
    ini.GetSection("modules", modules);
    out.modules.clear();
    for (const auto& m : modules) {
        ModuleEntry entry;
        if (!ReadModule(m.first, m.second, installPath, entry, iniPath, error))
            return false;
        for (const ModuleEntry& other : out.modules) {
            if (other.prefix == entry.prefix) {
                error = iniPath + ": [modules] " + other.name + " and " + entry.name +
                        " both serve the prefix \"" + entry.prefix + "\"";
                return false;
            }
        }
        out.modules.push_back(entry);
    }
    return true;
}

bool IsTrustedProxy(const HostConfig& config, const std::string& address) {
    for (const std::string& p : config.trustedProxies) {
        if (p == address)
            return true;
    }
    return false;
}

std::string ClientAddress(const HostConfig& config, const std::string& peer,
                          const std::string& forwardedFor) {
    if (forwardedFor.empty() || !IsTrustedProxy(config, peer))
        return peer;
    std::vector<std::string> hops;
    std::stringstream ss(forwardedFor);
    std::string item;
    while (std::getline(ss, item, ',')) {
        item = Trim(item);
        if (!item.empty())
            hops.push_back(item);
    }
    if (hops.empty())
        return peer;
    // Walk back from the proxy nearest to us: the first address that is not one of our own
    // proxies is the one a client could not have forged.
    for (auto it = hops.rbegin(); it != hops.rend(); ++it) {
        if (!IsTrustedProxy(config, *it))
            return *it;
    }
    return hops.front();
}

const char* UsageText() {
    return "usage: webharbour [--port N]\n"
           "  Serves <install>/webharbour/hdoc and the handler modules listed in\n"
           "  <install>/webharbour/middle.ini ([modules]). --port (-p) overrides [main] "
           "ListenPort;\n"
           "  0 lets the system choose a free port. The port in use is printed on standard output\n"
           "  as \"webharbour: listening on port N\" once requests are accepted.\n";
}

}  // namespace wh
