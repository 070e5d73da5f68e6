// The process-wide objects of the library that must be built in a fixed order at load time.
//
// Objects defined in one translation unit are constructed in the order they are written and
// destroyed in reverse. Keep this order when adding the later objects:
//   1. gw_webSession                       (the session table)
//   2. the filter's tag list and its lock  (g_h5Tag, g_lstHtTag, g_mutexTag)
//   3. the token statics, then g_WebTokenColl
//   4. the start of the maintenance thread
//   5. g_GrossHandlePool and the remaining objects
// The maintenance thread sleeps one second before its first step, so the objects after it are
// finished before it touches them.
#include "session/WebSession.h"

// 1. The session table.
CGWebSessionColl gw_webSession;
