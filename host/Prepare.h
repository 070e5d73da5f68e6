// Prepare: what webharbour checks before it serves - that it does not run as root unless told
// to, and that every folder the library writes exists and is writable by the serving user.
#pragma once

#include <string>
#include <vector>

#include "host/HostConfig.h"

namespace wh {

// One folder the library writes, with the mode it is created with.
struct WritableFolder {
    std::string path;
    unsigned mode;       // 0700 or 0750
    bool checkFiles;     // the files in it (and its sub-folders) must be writable too
    const char* reason;  // what the library keeps there, for messages
};

// The folders of an installation: hdoc/tmp (CSRF token files, 0700), middle/log (logs, 0750) and,
// while the embedded database engine serves (BSAPI_ENGINE unset, empty or "sqlite"), its data
// root (BSAPI_DATA_DIR or middle/data, 0750).
std::vector<WritableFolder> LibraryFolders(const HostConfig& config);

// False with `error` when the effective user is root and neither --allow-root nor AllowRoot=1
// allowed it.
bool CheckUser(bool allowRoot, std::string& error);

// Creates every missing folder (and missing parents) with its mode; a folder of the serving
// user whose owner lacks read, write or search rights (e.g. the library's own mode 070) gets
// its mode. Then every folder - and for checkFiles folders every file and sub-folder below, to a
// depth of three - must be writable by the effective user. False with `error` naming the first
// path that is not, the user and the way to fix it.
bool PrepareFolders(const std::vector<WritableFolder>& folders, std::string& error);

// The name of the effective user ("uid N" when it has none).
std::string EffectiveUserName();

}  // namespace wh
