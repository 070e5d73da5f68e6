// The process-wide objects of the library that must be built in a fixed order at load time.
//
// Objects defined in one translation unit are constructed in the order they are written. Keep
// this order when adding the later objects:
//   1. gw_webSession                       (the session table)
//   2. the filter's tag list and its lock  (g_h5Tag, g_lstHtTag, g_mutexTag)
//   3. the token statics, then g_WebTokenColl
//   4. the start of the maintenance thread (session/SessionStartup.cpp, a part linked into the
//      library right after this one, so that unit tests of the parts run without the thread)
//   5. g_GrossHandlePool and the remaining objects
// The maintenance thread sleeps one second before its first step, so the objects after it are
// finished before it touches them. The objects it uses for the rest of the process (the session
// table, the token collection and the token paths) are built on the heap and never destroyed:
// the detached thread cannot be stopped, and exit-time destructors would pull them from under
// it.
#include <atomic>

#include "common/QvUtil.h"
#include "protect/WebToken.h"
#include "session/WebSession.h"

// Set once objects 1 to 3 below are built. Constant-initialised, so it is valid before any
// object of the library is constructed; the maintenance thread waits for it (acquire), which
// orders its work after these constructions whatever order the objects of the parts are
// initialised in.
std::atomic<bool> g_bSessionGlobalsBuilt{false};

// 1. The session table.
CGWebSessionColl& gw_webSession = *new CGWebSessionColl;

// 2. The filter's tag list, its lock and its text are defined with the filter
//    (protect/XssFilter.cpp); the text is a constant and the list and lock start empty, so their
//    place in this order does not change what the filter sees.

// 3. The token statics, then the token collection.
//    The two strings live on the heap for the whole process (see protect/WebToken.h).
const std::string& CWebTokenColl::m_strTmpFilePath =
    *new std::string(CQvUtil::GetInstallPath() + "/webharbour/hdoc/tmp");
const std::string& CWebTokenColl::m_strMiddleIni =
    *new std::string(CQvUtil::GetInstallPath() + "/middle/Conf/middle.ini");
CWebTokenColl& g_WebTokenColl = *new CWebTokenColl;

namespace {
[[maybe_unused]] const bool g_bMarkBuilt = [] {
    g_bSessionGlobalsBuilt.store(true, std::memory_order_release);
    return true;
}();
}  // namespace
