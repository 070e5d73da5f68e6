// Locations of the embedded engine's files: install directory, data root, per-server directory.
#pragma once

#include <string>

namespace bsapi {

struct CServerAddr;

std::string InstallDir();                          // from /proc/self/exe (see Location.cpp)
std::string DataRoot();                            // $BSAPI_DATA_DIR or <install>/middle/data
std::string ServerDir(const CServerAddr& server);  // <root>/<address>_<port>
// File-name form of a name: [A-Za-z0-9_-] and non-leading dots kept, every other byte as %XX (so
// case is kept and no name can reach outside its directory).
std::string EncodeFilePart(const std::string& name);
bool DecodeFilePart(const std::string& part, std::string& name);
int MakeDirs(const std::string& path);  // BS_OK or BS_ERR_IO

}  // namespace bsapi
