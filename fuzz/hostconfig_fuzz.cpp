// Fuzz target: the host's settings file (wh::LoadHostConfig on webharbour/middle.ini).
//
// Input: the file's bytes. Properties, against a model built on the INI and address models:
// a physical line longer than 1023 bytes is refused, naming its line number, and never cut;
// otherwise the file loads exactly when every value is valid, a refusal names the file and a key
// that is really wrong (of the first stage that fails: the [main] values, MaxEventStreams below
// WorkerThreads, [ssl], [modules]), and an accepted file gives every setting the model gives it
// (defaults for what is absent, whole numbers within their documented ranges, address ranges,
// texts, the TLS files and the modules with their prefixes).
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "fuzz/AddressModel.h"
#include "fuzz/FuzzCheck.h"
#include "fuzz/IniModel.h"
#include "host/HostConfig.h"

namespace {

using ws_fuzz::ModelRange;
using ws_fuzz::Show;
using Section = std::map<std::string, std::string>;

const char* const kInstall = "/nonexistent-fuzz-install";

// A whole number: an optional sign and decimal digits, nothing else, within [lo, hi].
bool WholeNumber(const std::string& text, long long lo, long long hi, long long& out) {
    size_t i = text.empty() || (text[0] != '+' && text[0] != '-') ? 0 : 1;
    if (i == text.size())
        return false;
    __int128 v = 0;
    for (; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
        v = v * 10 + (text[i] - '0');
        if (v > (static_cast<__int128>(1) << 64))
            return false;
    }
    if (text[0] == '-')
        v = -v;
    if (v < lo || v > hi)
        return false;
    out = static_cast<long long>(v);
    return true;
}

void Int(const Section& s, const char* key, long long lo, long long hi, long long& value,
         std::set<std::string>& bad) {
    auto it = s.find(key);
    if (it == s.end() || it->second.empty())
        return;
    if (!WholeNumber(it->second, lo, hi, value))
        bad.insert(key);
}

bool SameRanges(const std::vector<wh::AddressRange>& got, const std::vector<ModelRange>& want) {
    if (got.size() != want.size())
        return false;
    for (size_t i = 0; i < got.size(); ++i) {
        if (got[i].prefix != want[i].prefix || std::memcmp(got[i].bytes, want[i].bytes, 16) != 0)
            return false;
    }
    return true;
}

bool Readable(std::string& path) {
    if (path.empty())
        return true;
    if (path[0] != '/')
        path = std::string(kInstall) + "/" + path;
    return std::ifstream(path, std::ios::binary).good();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const ws_fuzz::MemFile file("middle.ini");
    const std::string input(reinterpret_cast<const char*>(data), size);
    file.Write(input);

    wh::HostConfig got;
    std::string error;
    const bool ok = wh::LoadHostConfig(kInstall, file.path, got, error);
    const std::string what = "file " + Show(input) + "\nerror " + Show(error) + "\n";
    FUZZ_CHECK(ok == error.empty(), what);
    FUZZ_CHECK(ok || error.compare(0, file.path.size() + 2, file.path + ": ") == 0, what);

    // An over-long physical line is refused before anything is read, never cut.
    size_t number = 0;
    for (size_t begin = 0; begin < input.size();) {
        size_t end = input.find('\n', begin);
        end = end == std::string::npos ? input.size() : end;
        ++number;
        if (end - begin > 1023) {
            FUZZ_CHECK(
                !ok && error.find(": line " + std::to_string(number) + " (") != std::string::npos,
                what);
            return 0;
        }
        begin = end + 1;
    }

    ws_fuzz::Contents contents;
    if (ws_fuzz::ModelLoad(input, contents) != 0) {
        FUZZ_CHECK(!ok && error.find("cannot be read, or a line holds") != std::string::npos, what);
        return 0;
    }
    const Section main = contents["main"];
    const Section ssl = contents["ssl"];
    const Section modules = contents["modules"];

    wh::HostConfig want;
    std::vector<std::set<std::string>> stages(4);
    long long port = want.port, threads = want.workerThreads, streams = want.maxEventStreams,
              body = want.maxBodyBytes, keep = want.keepAliveMs, timeout = want.requestTimeoutMs,
              log = 1, logBytes = want.accessLogMaxBytes, fold = want.stdoutFoldSeconds, root = 0;
    Int(main, "ListenPort", 0, 65535, port, stages[0]);
    Int(main, "WorkerThreads", 2, 1024, threads, stages[0]);
    Int(main, "MaxEventStreams", 0, 1023, streams, stages[0]);
    Int(main, "MaxBodyBytes", 0, 1LL << 31, body, stages[0]);
    Int(main, "KeepAliveMs", 0, 1500, keep, stages[0]);
    Int(main, "RequestTimeoutMs", 100, 3600000, timeout, stages[0]);
    Int(main, "AccessLog", 0, 1, log, stages[0]);
    Int(main, "AccessLogMaxBytes", 0, 1LL << 40, logBytes, stages[0]);
    Int(main, "StdoutFoldSeconds", 1, 86400, fold, stages[0]);
    Int(main, "AllowRoot", 0, 1, root, stages[0]);
    std::vector<ModelRange> trusted, metrics;
    std::string bad;
    ws_fuzz::ModelRangeList("127.0.0.0/8 ::1", metrics, bad);
    for (const char* key : {"TrustedProxies", "MetricsAllow"}) {
        auto it = main.find(key);
        if (it != main.end() &&
            !ws_fuzz::ModelRangeList(it->second, key[0] == 'T' ? trusted : metrics, bad))
            stages[0].insert(key);
    }
    std::string listen, csp = wh::kDefaultContentSecurityPolicy, referrer = "same-origin";
    if (main.count("ListenAddress"))
        listen = main.at("ListenAddress");
    if (main.count("ContentSecurityPolicy"))
        csp = main.at("ContentSecurityPolicy");
    if (main.count("ReferrerPolicy"))
        referrer = main.at("ReferrerPolicy");
    if (stages[0].empty() && streams >= threads)
        stages[1].insert("MaxEventStreams");

    // [ssl]: unknown keys first, then its numbers, then keys that need a certificate, then the
    // files, which must be readable.
    std::string certificate, key;
    long long redirect = -1, hsts = 31536000;
    static const std::set<std::string> kSslKeys = {"CertificateFile", "KeyFile", "RedirectPort",
                                                   "HstsMaxAge"};
    for (const auto& k : ssl) {
        if (kSslKeys.count(k.first) == 0 && stages[2].empty())
            stages[2].insert(k.first);  // the first unknown key in name order
    }
    if (stages[2].empty()) {
        certificate = ssl.count("CertificateFile") ? ssl.at("CertificateFile") : "";
        key = ssl.count("KeyFile") ? ssl.at("KeyFile") : "";
        Int(ssl, "RedirectPort", 0, 65535, redirect, stages[2]);
        Int(ssl, "HstsMaxAge", 0, 1LL << 31, hsts, stages[2]);
    }
    if (stages[2].empty() && certificate.empty()) {
        for (const char* k : {"KeyFile", "RedirectPort"}) {
            if (ssl.count(k) && !ssl.at(k).empty() && stages[2].empty())
                stages[2].insert(k);
        }
    } else if (stages[2].empty()) {
        if (key.empty())
            key = certificate;
        if (!Readable(certificate))
            stages[2].insert("CertificateFile");
        else if (!Readable(key))
            stages[2].insert("KeyFile");
    }

    // [modules], in name order: a file and a prefix starting with "/", no prefix twice.
    std::vector<wh::ModuleEntry> entries;
    std::string pair;
    for (const auto& m : modules) {
        std::vector<std::string> parts(1);
        for (const char c : m.second) {
            if (c == ',' || c == ' ' || c == '\t' || c == ';') {
                if (!parts.back().empty())
                    parts.emplace_back();
            } else {
                parts.back() += c;
            }
        }
        if (parts.back().empty())
            parts.pop_back();
        if (parts.size() != 2 || parts[1][0] != '/') {
            stages[3].insert(m.first);
            break;
        }
        wh::ModuleEntry entry;
        entry.name = m.first;
        entry.file = parts[0];
        entry.path = parts[0][0] == '/' ? parts[0] : std::string(kInstall) + "/lib/" + parts[0];
        entry.prefix = parts[1];
        while (!entry.prefix.empty() && entry.prefix.back() == '/')
            entry.prefix.pop_back();
        for (const wh::ModuleEntry& other : entries) {
            if (other.prefix == entry.prefix)
                pair = "[modules] " + other.name + " and " + entry.name + " ";
        }
        if (!pair.empty())
            break;
        entries.push_back(entry);
    }

    for (const std::set<std::string>& stage : stages) {
        if (stage.empty())
            continue;
        FUZZ_CHECK(!ok, what + "accepted, but refuses " + Show(*stage.begin()));
        bool named = false;
        for (const std::string& k : stage)
            named = named || error.find("] " + k) != std::string::npos;
        FUZZ_CHECK(named, what + "names none of the refused keys, e.g. " + Show(*stage.begin()));
        return 0;
    }
    if (!pair.empty()) {
        FUZZ_CHECK(!ok && error.find(pair) != std::string::npos, what + "want " + Show(pair));
        return 0;
    }

    FUZZ_CHECK(ok, what);
    FUZZ_EQ(got.installPath, kInstall, what);
    FUZZ_EQ(got.port, port, what);
    FUZZ_EQ(got.workerThreads, threads, what);
    FUZZ_EQ(got.maxEventStreams, streams, what);
    FUZZ_EQ(got.maxBodyBytes, body, what);
    FUZZ_EQ(got.keepAliveMs, keep, what);
    FUZZ_EQ(got.requestTimeoutMs, timeout, what);
    FUZZ_EQ(got.accessLog, log != 0, what);
    FUZZ_EQ(got.accessLogMaxBytes, logBytes, what);
    FUZZ_EQ(got.stdoutFoldSeconds, fold, what);
    FUZZ_EQ(got.allowRoot, root != 0, what);
    FUZZ_EQ(got.listenAddress, listen, what);
    FUZZ_EQ(got.contentSecurityPolicy, csp, what);
    FUZZ_EQ(got.referrerPolicy, referrer, what);
    FUZZ_CHECK(SameRanges(got.trustedProxies, trusted), what);
    FUZZ_CHECK(SameRanges(got.metricsAllow, metrics), what);
    FUZZ_EQ(got.tls.certificateFile, certificate, what);
    FUZZ_EQ(got.tls.keyFile, key, what);
    FUZZ_EQ(got.tls.redirectPort, redirect, what);
    FUZZ_EQ(got.tls.hstsMaxAge, hsts, what);
    FUZZ_EQ(got.modules.size(), entries.size(), what);
    for (size_t i = 0; i < entries.size(); ++i) {
        const wh::ModuleEntry& g = got.modules[i];
        const wh::ModuleEntry& w = entries[i];
        FUZZ_CHECK(g.name == w.name && g.file == w.file && g.path == w.path && g.prefix == w.prefix,
                   what + "module " + Show(w.name));
    }
    return 0;
}
