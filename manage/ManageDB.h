// CManageDb: management records of the tenant companies in the tree database "saas". So far it
// holds only the start-up wait for the database; the company and CCU operations join it later.
#pragma once

#include <string>

#include "common/Export.h"

class WS_API CManageDb {
public:
    // Blocks until the tree database at `address` accepts an allocation, retrying every 500 ms
    // without limit.
    static void WaitDBStart(std::string address);
};
