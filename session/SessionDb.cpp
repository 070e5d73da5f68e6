// CSessionDb: persisted web sessions (interim: the database client has not landed yet).
//
// INTERIM. The tree-database toolkit (handle locator, tree operations) that these calls work
// through is not part of the build yet. Until it is, the persisted store is treated as empty:
// no session is found, none is loaded, and a delete finds nothing to delete. The signatures are
// final; only the bodies change when the database work lands.
#include "session/SessionDb.h"

#include "session/WebSession.h"

namespace {
// The tree database's "key does not exist" status, which is what deleting from an empty store
// answers. The session table ignores the status of a delete.
const int kStatusNoSuchKey = 176;
}  // namespace

int CSessionDb::DeleteWebSession(std::string /*sessionId*/, std::string /*address*/) {
    return kStatusNoSuchKey;
}

CGWebSession* CSessionDb::GetOneSession(std::string /*address*/, std::string /*sessionId*/) {
    return nullptr;
}

int CSessionDb::GetOldWebSession(std::string /*address*/, std::list<CGWebSession*>& /*records*/) {
    return 0;
}
