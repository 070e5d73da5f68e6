// Message catalogs of libQVTranslate: parsing catalog files and finding the installation.
#include "translate/LangCatalog.h"

#include <dirent.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace qvt {

namespace {

const char kDefaultDomain[] = "default";
const char kSuffix[] = ".lang";

bool ReadWhole(const std::string& path, std::string& out) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    std::stringstream ss;
    ss << in.rdbuf();
    out = ss.str();
    return true;
}

}  // namespace

std::string LowerAscii(const std::string& s) {
    std::string r = s;
    for (char& c : r) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return r;
}

void ParseCatalog(const std::string& text, DomainTexts& out) {
    std::string domain = kDefaultDomain;
    std::string::size_type pos = 0;
    while (pos < text.size()) {
        std::string::size_type end = text.find('\n', pos);
        if (end == std::string::npos) {
            end = text.size();
        }
        std::string line = text.substr(pos, end - pos);
        pos = end + 1;
        // Files edited on other systems may carry "\r\n" endings.
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        // A UTF-8 byte-order mark in front of the first line is not part of an id.
        if (line.compare(0, 3, "\xEF\xBB\xBF") == 0) {
            line.erase(0, 3);
        }
        if (line.empty() || line[0] == '#') {
            continue;
        }
        if (line[0] == '[' && line.back() == ']' && line.find('=') == std::string::npos) {
            domain = line.substr(1, line.size() - 2);
            if (domain.empty()) {
                domain = kDefaultDomain;
            }
            continue;
        }
        const std::string::size_type eq = line.find('=');
        if (eq == std::string::npos || eq == 0) {
            continue;
        }
        out[domain][line.substr(0, eq)] = line.substr(eq + 1);
    }
}

Catalogs LoadCatalogs(const std::string& dir) {
    Catalogs result;
    DIR* d = ::opendir(dir.c_str());
    if (d == nullptr) {
        return result;
    }
    const std::string suffix = kSuffix;
    while (struct dirent* e = ::readdir(d)) {
        const std::string name = e->d_name;
        if (name.size() <= suffix.size() ||
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0) {
            continue;
        }
        std::string text;
        if (!ReadWhole(dir + "/" + name, text)) {
            continue;
        }
        ParseCatalog(text, result[LowerAscii(name.substr(0, name.size() - suffix.size()))]);
    }
    ::closedir(d);
    return result;
}

std::string InstallPath() {
    // The same rule as the web-session library's installation lookup; this library must not
    // depend on that one, so it keeps its own few lines.
    char link[4096] = {0};
    const ssize_t n = ::readlink("/proc/self/exe", link, sizeof(link) - 1);
    if (n < 1 || n > static_cast<ssize_t>(sizeof(link) - 1)) {
        return "";
    }
    link[n] = '\0';
    char resolved[PATH_MAX] = {0};
    const std::string path = ::realpath(link, resolved) ? resolved : link;
    const std::string::size_type server = path.rfind("/Server/");
    if (server != std::string::npos) {
        return path.substr(0, server + 7);
    }
    const std::string::size_type last = path.rfind('/');
    if (last == std::string::npos || last == 0) {
        return "";
    }
    const std::string::size_type parent = path.rfind('/', last - 1);
    if (parent == std::string::npos) {
        return "";
    }
    return path.substr(0, parent);
}

}  // namespace qvt
