// The entry points the host web server and the console's page handlers call: the session
// functions, the cookie readers and the peer address.
#pragma once

#include <string>

#include "common/Export.h"
#include "web/WhInfo.h"

// The undecorated entry points take and return C++ types on purpose: every caller is C++ and
// shares this header, C linkage only fixes the names the host looks up.
#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif

// Loads the persisted sessions into gw_webSession (the token settings are loaded first once the
// token collection exists).
WS_EXTERN_C WS_API void BSInitSession();

// Creates a session at log-in; `sessionId` may come back changed when an existing session of the
// same user and company is handed out instead.
WS_EXTERN_C WS_API void BSAddSession(std::string& sessionId, std::string userId,
                                     std::string company, int serverType, int clientType,
                                     std::string peerIp);
WS_EXTERN_C WS_API void BSEraseSession(std::string sessionId);
// True and `company` set when the session exists.
WS_EXTERN_C WS_API bool Session_GetCompanyIdBySessionId(std::string sessionId,
                                                        std::string& company);
// True when the table returns no session for the id (an absent session counts as timed out).
WS_EXTERN_C WS_API bool BSWhetherSessionIdTimeOut(std::string sessionId);

// The value of the cookie "qvsessionid", "" when absent or when the record has no head.
WS_EXTERN_C WS_API std::string BSCheckQvSession(st_wh_info* info);
// True when the request's session has timed out; false for a null record.
WS_EXTERN_C WS_API bool Web_SessionisPastdue(st_wh_info* info);
// The peer's address from the host (server variable 2), "" when unknown.
WS_EXTERN_C WS_API std::string GetPeerIP(st_wh_info* info);

#ifdef __clang__
#pragma clang diagnostic pop
#endif

// The value of the cookie "CSRF-TOKEN" (C++ linkage: exported under its decorated name).
WS_API std::string GetTokenFromCookie(st_wh_info* info);
