// Names of the management tree and the checks that every company, CCU and login name passes.
#pragma once

#include <string>

#include "bsapi/bsapi.h"

namespace manage_keys {

const char* const kTree = "saas";
const char* const kCompanyKey = "company";
const char* const kLoginKey = "loginname";
const int kCreateFlags = 0x80000;  // a fresh installation gets the tree and its main keys
const int kInsertAccept = BS_INSERT_ACCEPT_EXISTING;

// One key name: not empty and without the path separator, so that it can neither stand for the
// level above (the empty path) nor reach into a nested key.
inline bool IsKeyName(const std::string& name) {
    return !name.empty() && name.find('\\') == std::string::npos;
}

// Codes by which the database says that a key is not there.
inline bool IsMissing(int rc) {
    return rc == BS_ERR_NO_SUBKEY || rc == BS_ERR_NO_TREE || rc == BS_ERR_NO_KEY;
}

}  // namespace manage_keys
