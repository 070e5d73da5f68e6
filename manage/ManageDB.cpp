// CManageDb: the start-up wait for the tree database.
#include "manage/ManageDB.h"

#include <unistd.h>

#include <cstdio>

#include "db/QvHandle.h"

void CManageDb::WaitDBStart(std::string address) {
    for (;;) {
        // A fresh locator per attempt, so that a refused connection is not reused.
        CQvHandleLoc loc;
        const int status = loc.Treedb_Alloc(address, "PluginData", "base", "", -1, 0);
        if (status == 0) {
            return;
        }
        std::printf("InitData Alloc Error=%d\n", status);
        std::fflush(stdout);
        ::usleep(500000);
    }
}
