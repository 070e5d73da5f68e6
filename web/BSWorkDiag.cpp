// CBSWork request diagnostics: the session cookie, the event-stream resume header and the
// optional request trace switched on by "webtest.ini".
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "common/IniFile.h"
#include "common/TimeFace.h"
#include "session/CookieRule.h"
#include "web/BSWork.h"

std::string CBSWork::CheckQvSession(st_wh_info* info) {
    if (info == nullptr || info->head == nullptr) {
        return "";
    }
    return GetCookieValueByRule(info->head->cookie, "qvsessionid");
}

std::string CBSWork::CheckChunkLastEventId(st_wh_info* info) {
    if (info == nullptr || info->resp == nullptr) {
        return "";
    }
    // Header names are matched byte for byte: "last-event-id" is a different header here.
    const auto it = info->resp->headers.find("Last-Event-ID");
    return it == info->resp->headers.end() ? std::string() : it->second;
}

std::string CBSWork::GetFullHeadLogPath() {
    char link[4096] = {0};
    const ssize_t n = ::readlink("/proc/self/exe", link, sizeof(link) - 1);
    if (n < 1 || n > static_cast<ssize_t>(sizeof(link) - 1)) {
        return "";
    }
    link[n] = '\0';
    char resolved[PATH_MAX] = {0};
    if (::realpath(link, resolved) == nullptr) {
        return "";
    }
    // Only a backslash separates here, deliberately: the trace directory is found this way on
    // the systems the trace was made for, and on a forward-slash system the answer is "" (the
    // switch file is then looked for at the root, "/webtest.ini").
    const std::string path = resolved;
    const std::string::size_type slash = path.rfind('\\');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

int CBSWork::IsNeedHistoryTest() {
    char path[PATH_MAX + 32];
    std::snprintf(path, sizeof(path), "%s/%s", GetFullHeadLogPath().c_str(), "webtest.ini");
    tarn::CIniFile ini;
    ini.Init(path);
    const std::string value = ini.GetIniSetting("main", "fullhead", "");
    if (value.empty()) {
        return 0;
    }
    return static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
}

void CBSWork::WriteTestHead(const std::string& path, const std::string& first,
                            const std::string& second, const std::string& third) {
    FILE* f = std::fopen(path.c_str(), "a");
    if (f == nullptr) {
        return;
    }
    // One line per request: time, four blanks, then "path?query&body" with the empty parts and
    // their separators left out.
    std::string line = tarn::TimeFace::GetCurrent().ToString() + "    ";
    if (!first.empty()) {
        line += first + "?";
    }
    bool joined = false;
    for (const std::string* part : {&second, &third}) {
        if (part->empty()) {
            continue;
        }
        if (joined) {
            line += "&";
        }
        line += *part;
        joined = true;
    }
    line += "\n";
    std::fwrite(line.data(), 1, line.size(), f);
    std::fflush(f);
    std::fclose(f);
}

void CBSWork::WriteLog(const std::string& text) {
    // The fixed timing file is kept as the timing tools expect it; without drive letters it
    // names "testTime.txt" in a directory "C:" below the working directory, and nothing is
    // written when that directory does not exist.
    FILE* f = std::fopen("C:/testTime.txt", "a+");
    if (f == nullptr) {
        return;
    }
    const std::string line = tarn::TimeFace::GetCurrent().ToString() + "\t" + text + "\n";
    std::fwrite(line.data(), 1, line.size(), f);
    std::fclose(f);
}
