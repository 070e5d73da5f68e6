// Where the embedded engine keeps its files.
//
// The data root is $BSAPI_DATA_DIR when set, else <install>/middle/data, where <install> is found
// from the running executable: the resolved path up to and including its last "/Server" when it
// contains "/Server/", else the parent of the directory that holds the executable. Each server
// (address, port) gets a directory of its own below the root.
#include "bsapi/Location.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "bsapi/Engine.h"

namespace bsapi {

std::string InstallDir() {
    char buf[4096];
    ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0)
        return ".";
    std::string exe(buf, static_cast<size_t>(n));
    size_t server = exe.rfind("/Server/");
    if (server != std::string::npos)
        return exe.substr(0, server + 7);
    size_t slash = exe.rfind('/');
    if (slash == std::string::npos || slash == 0)
        return "/";
    std::string dir = exe.substr(0, slash);
    slash = dir.rfind('/');
    if (slash == std::string::npos)
        return ".";
    if (slash == 0)
        return "/";
    return dir.substr(0, slash);
}

std::string DataRoot() {
    const char* env = std::getenv("BSAPI_DATA_DIR");
    if (env != nullptr && *env != '\0')
        return env;
    return InstallDir() + "/middle/data";
}

std::string EncodeFilePart(const std::string& name) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(name.size());
    for (size_t i = 0; i < name.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(name[i]);
        bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '_' || c == '-' || (c == '.' && i > 0);
        if (keep) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    return out;
}

bool DecodeFilePart(const std::string& part, std::string& name) {
    name.clear();
    for (size_t i = 0; i < part.size(); ++i) {
        if (part[i] != '%') {
            name += part[i];
            continue;
        }
        if (i + 2 >= part.size())
            return false;
        char hex[3] = {part[i + 1], part[i + 2], 0};
        char* end = nullptr;
        long v = std::strtol(hex, &end, 16);
        if (end != hex + 2)
            return false;
        name += static_cast<char>(v);
        i += 2;
    }
    return true;
}

std::string ServerDir(const CServerAddr& server) {
    return DataRoot() + "/" + EncodeFilePart(server.m_strAddress) + "_" +
           std::to_string(server.m_nPort);
}

int MakeDirs(const std::string& path) {
    if (path.empty())
        return BS_ERR_IO;
    std::string cur;
    size_t pos = 0;
    while (pos != std::string::npos) {
        pos = path.find('/', pos + 1);
        cur = path.substr(0, pos);
        if (cur.empty())
            continue;
        if (::mkdir(cur.c_str(), 0770) != 0 && errno != EEXIST)
            return BS_ERR_IO;
    }
    struct stat st;
    if (::stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return BS_ERR_IO;
    return BS_OK;
}

}  // namespace bsapi
