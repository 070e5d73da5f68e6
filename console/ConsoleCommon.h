// Console helpers shared by every handler: texts in two languages, JSON answers, cookies, the
// gate wrapper and the logged-in user of a request.
#pragma once

#include <json/json.h>

#include <map>
#include <string>

#include "web/WhInfo.h"

struct WhRegistry;

namespace console {

typedef std::map<std::string, std::string> Params;

// The database server every console handler uses (the embedded engine names its data directory
// after it; port 0 is the default port 8123).
extern const char* const kDbAddress;
const int kDbPort = 0;

// The host registry, set once at registration (null in unit tests).
extern const WhRegistry* g_pHost;
// True during the first seconds after registration, while the library still loads its data.
bool JustStarted();
// Marks the moment of registration.
void MarkStarted();

// The text with id `id` in the request's language (cookie qv_lan: "en" gives English, anything
// else Chinese, the console's first language). Unknown ids come back as the id itself, so a
// missing text is visible instead of an empty message.
std::string Text(st_wh_info* info, const std::string& id);
bool IsEnglish(st_wh_info* info);

// {"status":"success","errmsg":"","data":...}
void ReplyOk(st_wh_info* info, Json::Value data);
// {"status":"failed","errmsg":<message>}
void ReplyError(st_wh_info* info, const std::string& message);
// ReplyError with Text(info, id), followed by ": " and `detail` when it is not empty. Returns 0,
// the handler result, so that a handler can end with "return ReplyErrorId(...)".
int ReplyErrorId(st_wh_info* info, const std::string& id, const std::string& detail = "");

// Counts a refusal the console words itself on the host's monitoring page (a host of module
// interface version 2 or later; nothing otherwise): "verify_code", "script_filter",
// "login_throttled", "login_failed".
void CountRefusal(st_wh_info* info, const char* reason);

// Appends a Set-Cookie header to the answer that follows.
void AddCookie(st_wh_info* info, const std::string& value);
// The value of cookie `name` from the request's Cookie header (exact name match), "" if absent.
std::string CookieValue(st_wh_info* info, const std::string& name);

// Runs the library's gate (form body read, values decoded). True: the handler goes on. False:
// the request is answered - by the gate (timed-out session, unreadable body) or, when the gate
// stopped without a word (markup in a value), here with a message the user can read.
bool RunGate(st_wh_info* info, Params& params, bool checkSession);

// The CSRF check: true when the fresh token cookie passed; false when the library refused (its
// answer is already sent).
bool CheckToken(st_wh_info* info);

// The session of the request after a gate with checkSession: its id, user and company. False
// (nothing answered) when the session is unknown.
struct SessionInfo {
    std::string id;
    std::string user;
    std::string company;
};
bool CurrentSession(st_wh_info* info, SessionInfo& out);

// A value of `params`, "" when absent.
std::string Param(const Params& params, const std::string& name);
// Trims blanks at both ends.
std::string Trim(const std::string& text);
// Random bytes as lower-case hex (2 * bytes characters), from the kernel's random source.
std::string RandomHex(size_t bytes);

}  // namespace console
