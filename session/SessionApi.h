// The entry points the host web server and the console's page handlers call: the request gate,
// the session functions, the cookie readers, the peer address, the CSRF check and the switches.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "common/Export.h"
#include "web/WhInfo.h"

// The undecorated entry points take and return C++ types on purpose: every caller is C++ and
// shares this header, C linkage only fixes the names the host looks up.
#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif

// The request gate, first call of every request handler: binds the request's language to the
// thread, fills `params` from the query string and (POST, readPost) the form body, unscrambles
// the parameters listed in "v_dx", takes the callback name from "callbackparam", checks the
// session when `checkSession` is non-zero and screens the parameters for markup. 0: go on;
// 1: stop (the refusal has been written where one is due).
WS_EXTERN_C WS_API uint32_t Web_SessionInit(st_wh_info* info, std::string& callback,
                                            std::map<std::string, std::string>& params,
                                            int checkSession, int readPost, bool decode);

// Loads the protection settings into g_WebTokenColl, then the persisted sessions into
// gw_webSession, on the caller's thread.
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

// CSRF tokens. BSGetTokenCookie issues a token (file and record) and returns the Set-Cookie
// value; BSCheckToken returns 1 to accept and 0 when it refused (the refusal already sent).
WS_EXTERN_C WS_API std::string BSGetTokenCookie(st_wh_info* info);
WS_EXTERN_C WS_API uint32_t BSCheckToken(st_wh_info* info);
// Records a token's issue time; always true.
WS_EXTERN_C WS_API bool BSAddTokenToCache(std::string token);

// Verification codes: `code` receives the code handed out for the form `key` (n picks it; ""
// while no code is loaded); always true. BSCheckVerifyCode accepts the code once.
WS_EXTERN_C WS_API bool BSGetVerifyCode(std::string key, int n, std::string& code);
WS_EXTERN_C WS_API bool BSCheckVerifyCode(std::string key, std::string typed);

// The switches of section "safe": whether verification codes and CSRF tokens are checked.
WS_EXTERN_C WS_API bool BSWhetherCheckVerifyCode();
// Stores both switches in the out arguments and returns the check-token switch.
WS_EXTERN_C WS_API bool BSGetVerifyToken(bool& checkVerifyCode, bool& checkToken);
// Sets both switches (each argument's low byte taken as a boolean) and writes them to the
// middle INI file; true.
WS_EXTERN_C WS_API bool BSSetVerifyToken(int checkVerifyCode, int checkToken);

#ifdef __clang__
#pragma clang diagnostic pop
#endif

// The value of the cookie "CSRF-TOKEN" (C++ linkage: exported under its decorated name).
WS_API std::string GetTokenFromCookie(st_wh_info* info);

// The body of the maintenance thread started at load (argument ignored): after one second it
// loads the sessions, then the protection settings and verification codes, then sweeps
// expired token files every "tokeninterval" seconds; it never returns. C++ linkage.
WS_API void* Session_InitData(void* unused);
