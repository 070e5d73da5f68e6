// SessionStats: the exported count of the session table (read under the table's own lock).
#include "session/SessionStats.h"

#include "session/WebSession.h"

long long Session_TableSize() {
    return static_cast<long long>(gw_webSession.GetSessionCount());
}
