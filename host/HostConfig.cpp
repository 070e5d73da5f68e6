// HostConfig: reading webharbour/middle.ini, checking every value, and the command line.
#include "host/HostConfig.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "common/IniFile.h"

namespace wh {

const char* const kDefaultContentSecurityPolicy =
    "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "connect-src 'self'; object-src 'none'; base-uri 'none'; form-action 'self'; "
    "frame-ancestors 'none'";

namespace {

typedef std::map<std::string, std::string> Section;

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
    std::string::size_type b = text.find_first_not_of(" \t\r");
    if (b == std::string::npos)
        return "";
    std::string::size_type e = text.find_last_not_of(" \t\r");
    return text.substr(b, e - b + 1);
}

// Reads the keys of one section, each checked by the caller; every message names the file,
// the section and the key.
class SectionReader {
public:
    SectionReader(const Section& keys, const std::string& file, const char* name,
                  std::string& error)
        : m_keys(keys), m_file(file), m_name(name), m_error(error) {}

    // An integer key: absent or empty keeps `value`; present must parse within range.
    bool Int(const char* key, long long lo, long long hi, long long& value) {
        auto it = m_keys.find(key);
        if (it == m_keys.end() || it->second.empty())
            return true;
        if (ParseInteger(it->second, lo, hi, value))
            return true;
        std::ostringstream msg;
        msg << "\"" << it->second << "\" is not a whole number from " << lo << " to " << hi;
        return Fail(key, msg.str());
    }
    template <typename T>
    bool Int(const char* key, long long lo, long long hi, T& value) {
        long long v = value;
        if (!Int(key, lo, hi, v))
            return false;
        value = static_cast<T>(v);
        return true;
    }
    bool Flag(const char* key, bool& value) {
        long long v = value ? 1 : 0;
        if (!Int(key, 0, 1, v))
            return false;
        value = v != 0;
        return true;
    }
    // A text key: present (even empty) replaces `value`.
    bool Text(const char* key, std::string& value) {
        auto it = m_keys.find(key);
        if (it != m_keys.end())
            value = Trim(it->second);
        return true;
    }
    bool Ranges(const char* key, std::vector<AddressRange>& value) {
        auto it = m_keys.find(key);
        if (it == m_keys.end())
            return true;
        std::string bad;
        if (ParseRangeList(it->second, value, bad))
            return true;
        return Fail(key, "\"" + bad +
                             "\" is not an address or an address range (for example "
                             "10.0.0.5, 10.0.0.0/24 or fd00::/8)");
    }
    bool Fail(const std::string& key, const std::string& why) {
        m_error = m_file + ": [" + m_name + "] " + key + ": " + why;
        return false;
    }

private:
    const Section& m_keys;
    const std::string& m_file;
    const char* m_name;
    std::string& m_error;
};

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

// A file the server must be able to read: checked here so that an operator learns at start,
// in one message, which file and why.
bool ReadableFile(SectionReader& reader, const char* key, std::string& path,
                  const std::string& install) {
    if (path.empty())
        return true;
    if (path[0] != '/')
        path = install + "/" + path;
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return reader.Fail(key, "cannot read " + path + ": " + std::strerror(errno));
    return true;
}

bool ReadTls(const Section& ssl, const std::string& install, const std::string& file,
             TlsConfig& out, std::string& error) {
    SectionReader r(ssl, file, "ssl", error);
    static const std::set<std::string> kKeys = {"CertificateFile", "KeyFile", "RedirectPort",
                                                "HstsMaxAge"};
    for (const auto& k : ssl) {
        if (kKeys.count(k.first) == 0)
            return r.Fail(k.first,
                          "is not a setting of [ssl] (CertificateFile, KeyFile, "
                          "RedirectPort, HstsMaxAge)");
    }
    if (!r.Text("CertificateFile", out.certificateFile) || !r.Text("KeyFile", out.keyFile) ||
        !r.Int("RedirectPort", 0, 65535, out.redirectPort) ||
        !r.Int("HstsMaxAge", 0, 1LL << 31, out.hstsMaxAge))
        return false;
    if (!out.Enabled()) {
        // Asked for TLS settings but not for TLS: never serve plain HTTP silently instead.
        for (const char* key : {"KeyFile", "RedirectPort"}) {
            if (ssl.count(key) && !Trim(ssl.at(key)).empty())
                return r.Fail(key, "is set but CertificateFile is not");
        }
        return true;
    }
    if (out.keyFile.empty())
        out.keyFile = out.certificateFile;
    return ReadableFile(r, "CertificateFile", out.certificateFile, install) &&
           ReadableFile(r, "KeyFile", out.keyFile, install);
}

}  // namespace

bool ParseCommandLine(const std::vector<std::string>& args, CommandLine& out, std::string& error) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "-h" || a == "--help") {
            out.help = true;
        } else if (a == "--allow-root") {
            out.allowRoot = true;
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

bool CheckLineLengths(const std::string& text, const std::string& file, std::string& error) {
    std::string section;
    size_t number = 0;
    for (size_t begin = 0; begin < text.size();) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos)
            end = text.size();
        ++number;
        const std::string line = text.substr(begin, end - begin);
        const size_t open = line.find('['), close = line.find(']');
        if (open != std::string::npos && close != std::string::npos && open < close &&
            line.size() <= kMaxSettingLine)
            section = Trim(line.substr(open + 1, close - open - 1));
        if (line.size() > kMaxSettingLine) {
            const size_t eq = line.find('=');
            const std::string key = eq == std::string::npos ? "" : Trim(line.substr(0, eq));
            error = file + ": line " + std::to_string(number) + " (" +
                    (key.empty() ? std::string("no setting")
                                 : "[" + section + "] " + key.substr(0, 64)) +
                    ") is " + std::to_string(line.size()) + " bytes long; a settings line may " +
                    "hold at most " + std::to_string(kMaxSettingLine) +
                    " bytes, and a longer one would be cut. Shorten it (address lists can " +
                    "name ranges, e.g. 10.0.0.0/24)";
            return false;
        }
        begin = end + 1;
    }
    return true;
}

bool LoadHostConfig(const std::string& installPath, const std::string& iniPath, HostConfig& out,
                    std::string& error) {
    out.installPath = installPath;
    out.iniPath = iniPath;
    out.docRoot = installPath + "/webharbour/hdoc";
    out.logDir = installPath + "/middle/log";
    out.contentSecurityPolicy = kDefaultContentSecurityPolicy;
    if (out.metricsAllow.empty()) {
        std::string bad;
        ParseRangeList("127.0.0.0/8 ::1", out.metricsAllow, bad);
    }
    if (::access(iniPath.c_str(), F_OK) != 0)
        return true;  // no file: every default holds
    std::ifstream raw(iniPath, std::ios::binary);
    std::stringstream text;
    text << raw.rdbuf();
    if (!raw || !CheckLineLengths(text.str(), iniPath, error)) {
        if (error.empty())
            error = iniPath + ": cannot be read: " + std::strerror(errno);
        return false;
    }
    tarn::CIniFile ini;
    if (!ini.Init(iniPath)) {
        error = iniPath +
                ": cannot be read, or a line holds \"[\" without \"]\" or a setting "
                "stands before the first section";
        return false;
    }
    Section main, ssl, modules;
    ini.GetSection("main", main);
    ini.GetSection("ssl", ssl);
    ini.GetSection("modules", modules);

    SectionReader r(main, iniPath, "main", error);
    if (!r.Int("ListenPort", 0, 65535, out.port) ||
        !r.Int("WorkerThreads", 2, 1024, out.workerThreads) ||
        !r.Int("MaxEventStreams", 0, 1023, out.maxEventStreams) ||
        !r.Int("MaxBodyBytes", 0, 1LL << 31, out.maxBodyBytes) ||
        !r.Int("KeepAliveMs", 0, kMaxKeepAliveMs, out.keepAliveMs) ||
        !r.Int("RequestTimeoutMs", 100, 3600000, out.requestTimeoutMs) ||
        !r.Flag("AccessLog", out.accessLog) ||
        !r.Int("AccessLogMaxBytes", 0, 1LL << 40, out.accessLogMaxBytes) ||
        !r.Int("StdoutFoldSeconds", 1, 86400, out.stdoutFoldSeconds) ||
        !r.Flag("AllowRoot", out.allowRoot) || !r.Text("ListenAddress", out.listenAddress) ||
        !r.Ranges("TrustedProxies", out.trustedProxies) ||
        !r.Ranges("MetricsAllow", out.metricsAllow) ||
        !r.Text("ContentSecurityPolicy", out.contentSecurityPolicy) ||
        !r.Text("ReferrerPolicy", out.referrerPolicy))
        return false;
    if (out.maxEventStreams >= out.workerThreads) {
        // Every event stream holds a worker thread for its whole life: with as many streams as
        // threads, ordinary requests would find no thread left.
        return r.Fail("MaxEventStreams", "(" + std::to_string(out.maxEventStreams) +
                                             ") must be less than WorkerThreads (" +
                                             std::to_string(out.workerThreads) + ")");
    }
    if (!ReadTls(ssl, installPath, iniPath, out.tls, error))
        return false;

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

const char* UsageText() {
    return "usage: webharbour [--port N] [--allow-root]\n"
           "  Serves <install>/webharbour/hdoc and the handler modules listed in\n"
           "  <install>/webharbour/middle.ini ([modules]). --port (-p) overrides [main] "
           "ListenPort;\n"
           "  0 lets the system choose a free port. The port in use is printed on standard output\n"
           "  as \"webharbour: listening on port N\" once requests are accepted.\n"
           "  webharbour refuses to run as root; --allow-root (or [main] AllowRoot=1) lets it.\n";
}

}  // namespace wh
