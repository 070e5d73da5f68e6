// CSessionDb: persisted web sessions in the tree database ("master", main key "Session").
#include "session/SessionDb.h"

#include "db/QvHandle.h"
#include "session/WebSession.h"

namespace {

const char* const kTree = "master";
const char* const kMainKey = "Session";

// Stands the locator on the main key "Session" of `address`; the database status.
int AllocSessions(CQvHandleLoc& loc, const std::string& address) {
    // Flags -1 keep the tree's usual open flags (they create a missing tree and main key, so a
    // fresh installation answers "no sessions" instead of an error); port 0 is the default.
    return loc.Treedb_Alloc(address, kTree, kMainKey, "", -1, 0);
}

// Reads the session at the sub key the locator stands on; null when it is incomplete (no user,
// no company or no server type): such a record counts as absent. The peer address is not
// persisted, so records from the database carry none.
CGWebSession* ReadSession(CQvHandleLoc& loc, const std::string& sessionId) {
    const std::string user = loc.Treedb_GetPropertyString("user", "");
    const std::string company = loc.Treedb_GetPropertyString("co", "");
    const int serverType = loc.Treedb_GetPropertyInt("servertype", 0);
    const int clientType = loc.Treedb_GetPropertyInt("clienttype", 0);
    if (user.empty() || company.empty() || serverType == 0) {
        return nullptr;
    }
    return new CGWebSession(sessionId, user, company, serverType, clientType, "");
}

}  // namespace

int CSessionDb::DeleteWebSession(std::string sessionId, std::string address) {
    CQvHandleLoc loc;
    int status = AllocSessions(loc, address);
    if (status != 0) {
        return status;
    }
    return loc.Treedb_DeleteSubKey(sessionId);
}

CGWebSession* CSessionDb::GetOneSession(std::string address, std::string sessionId) {
    CQvHandleLoc loc;
    if (AllocSessions(loc, address) != 0 || loc.Treedb_ReopenSubKey("", -1, "", "", "") != 0) {
        return nullptr;
    }
    std::list<std::string> names;
    if (loc.Treedb_GetAllSubKeys(names) != 0) {
        return nullptr;
    }
    if (loc.Treedb_ReopenSubKey(sessionId, -1, "", "", "") != 0) {
        return nullptr;
    }
    return ReadSession(loc, sessionId);
}

int CSessionDb::GetOldWebSession(std::string address, std::list<CGWebSession*>& records) {
    CQvHandleLoc loc;
    int status = AllocSessions(loc, address);
    if (status == 0) {
        status = loc.Treedb_ReopenSubKey("", -1, "", "", "");
    }
    std::list<std::string> names;
    if (status == 0) {
        status = loc.Treedb_GetAllSubKeys(names);
    }
    if (status != 0) {
        return status;
    }
    for (const std::string& name : names) {
        // A sub key that cannot be opened is skipped; the others still load.
        if (loc.Treedb_ReopenSubKey(name, -1, "", "", "") != 0) {
            continue;
        }
        if (CGWebSession* record = ReadSession(loc, name)) {
            records.push_back(record);
        }
    }
    return 0;
}
