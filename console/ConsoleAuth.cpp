// Log-in side of the console: the state of the visitor, CSRF token hand-out, the verification
// code picture, log-in and log-out.
#include "console/ConsoleHandlers.h"

#include <algorithm>
#include <cctype>

#include "common/Clock.h"
#include "console/ConsoleCommon.h"
#include "console/ConsoleRecords.h"
#include "console/ConsoleUsers.h"
#include "console/LoginThrottle.h"
#include "db/QvHandle.h"
#include "host/WhModule.h"
#include "session/SessionApi.h"
#include "web/BSWork.h"

namespace console {

namespace {

// The cookie that ties a log-in form to the code its picture shows.
const char* const kCodeKeyCookie = "qv_codekey";

bool IsHexKey(const std::string& key) {
    return key.size() == 32 &&
           std::all_of(key.begin(), key.end(), [](unsigned char c) { return std::isxdigit(c); });
}

// Writes the persisted session record, so that the other processes of the service find the
// session: "master", main key "Session", sub key = session id.
int PersistSession(const std::string& id, const std::string& user, const std::string& company) {
    CQvHandleLoc loc;
    int rc = loc.Treedb_Alloc(kDbAddress, "master", "Session", "", 0x80000, kDbPort);
    if (rc == 0)
        rc = loc.Treedb_InsertSubKey(id, 2);
    if (rc == 0)
        rc = loc.Treedb_ReopenSubKey(id, -1);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyString("user", user);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyString("co", company);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyInt("servertype", 1);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyInt("clienttype", 0);
    return rc;
}

// The refusal of a log-in that must wait: 429 with Retry-After, in the envelope's words.
int ReplyThrottled(st_wh_info* info, long seconds) {
    CountRefusal(info, "login_throttled");
    std::string message = Text(info, "throttled");
    message.replace(message.find("{0}"), 3, std::to_string(seconds));
    Json::Value envelope(Json::objectValue);
    envelope["status"] = "failed";
    envelope["errmsg"] = message;
    const std::string body = Json::StyledWriter().write(envelope);
    info->resp->status = 429;
    info->resp->contentType = "application/json;charset=UTF-8";
    info->resp->contentLength = static_cast<uint32_t>(body.size());
    info->resp->extraHeaders.emplace_back("Retry-After", std::to_string(seconds));
    info->sendHead(info->connId);
    info->writeBody(info->connId, body.data(), static_cast<uint32_t>(body.size()));
    return 0;
}

std::string SessionCookie(const std::string& id, bool clear) {
    std::string value = "qvsessionid=" + id + "; path=/; HttpOnly; SameSite=Strict";
    if (clear)
        value += "; Max-Age=0";
    return value;
}

}  // namespace

int HandleState(st_wh_info* info, void*) {
    Params params;
    if (!RunGate(info, params, false))
        return 0;
    Json::Value data(Json::objectValue);
    SessionInfo session;
    const bool in = CurrentSession(info, session);
    data["loggedIn"] = in;
    data["user"] = in ? session.user : "";
    data["company"] = in ? session.company : "";
    data["needCode"] = BSWhetherCheckVerifyCode();
    ReplyOk(info, data);
    return 0;
}

int HandleToken(st_wh_info* info, void*) {
    Params params;
    if (!RunGate(info, params, false))
        return 0;
    // The token lives 16 seconds: pages ask for one right before each state-changing request.
    AddCookie(info, BSGetTokenCookie(info));
    info->resp->extraHeaders.emplace_back("Cache-Control", "no-store");
    ReplyOk(info, Json::Value(Json::objectValue));
    return 0;
}

int HandleCode(st_wh_info* info, void*) {
    Params params;
    if (!RunGate(info, params, false))
        return 0;
    std::string key = CookieValue(info, kCodeKeyCookie);
    if (!IsHexKey(key)) {
        key = RandomHex(16);
        AddCookie(info,
                  std::string(kCodeKeyCookie) + "=" + key + "; path=/; HttpOnly; SameSite=Strict");
    }
    std::string code;
    BSGetVerifyCode(key, RandomIndex(), code);
    // The library loads its codes about a second after webharbour starts: a page opened at once
    // waits for them rather than showing a picture without a code.
    for (int i = 0; code.empty() && i < 15 && g_pHost != nullptr && JustStarted(); ++i) {
        if (g_pHost->waitStopping(200) != 0)
            break;
        BSGetVerifyCode(key, RandomIndex(), code);
    }
    info->resp->extraHeaders.emplace_back("Cache-Control", "no-store");
    // Without any code the picture says so; the log-in then refuses with the same words.
    CBSWork().SendInfoToWeb(info, CodePictureSvg(code, Text(info, "no_codes_short")), 2, false, 0,
                            "image/svg+xml");
    return 0;
}

int HandleLogin(st_wh_info* info, void*) {
    Params params;
    if (!RunGate(info, params, false) || !CheckToken(info))
        return 0;
    const std::string user = Trim(Param(params, "user"));
    const std::string password = Param(params, "password");
    std::string typed = Trim(Param(params, "code"));
    if (user.empty() || password.empty())
        return ReplyErrorId(info, "missing");
    // Throttled names and addresses are refused before any check, the right password too.
    const std::string peer = GetPeerIP(info);
    if (const long wait = WaitLeft(user, peer, tarn::ClockNow()))
        return ReplyThrottled(info, wait);
    if (BSWhetherCheckVerifyCode()) {
        const std::string key = CookieValue(info, kCodeKeyCookie);
        if (typed.empty())
            return ReplyErrorId(info, "missing");
        if (!IsHexKey(key))
            return ReplyErrorId(info, "no_code_form");
        // The codes are stored in lower case; people type what they see in either case.
        std::transform(typed.begin(), typed.end(), typed.begin(),
                       [](unsigned char c) { return std::tolower(c); });
        if (!BSCheckVerifyCode(key, typed)) {
            // Tell "no code can be right" apart from a mistyped code: a throwaway hand-out shows
            // whether the library holds any code at all.
            std::string any;
            BSGetVerifyCode("console-probe", 0, any);
            if (any.empty())
                return ReplyErrorId(info, "no_codes");
            CountRefusal(info, "verify_code");
            NoteFailure(user, peer, tarn::ClockNow(), "wrong verification code");
            return ReplyErrorId(info, "wrong_code");
        }
    }
    if (!ValidName(user) || !VerifyPassword(password, LoadUserHash(user))) {
        CountRefusal(info, "login_failed");
        NoteFailure(user, peer, tarn::ClockNow(), "wrong user name or password");
        return ReplyErrorId(info, "wrong_password");
    }
    std::string company;
    if (LoginCompany(user, company) != 0)
        return ReplyErrorId(info, "no_company");

    // A log-in from a browser that still holds a session replaces it rather than leaving it to
    // idle out.
    const std::string previous = BSCheckQvSession(info);
    if (!previous.empty())
        BSEraseSession(previous);
    NoteSuccess(user, peer);
    std::string id = RandomHex(16);
    BSAddSession(id, user, company, 1, 0, peer);
    if (id.empty() || PersistSession(id, user, company) != 0)
        return ReplyErrorId(info, "session_failed");
    AddCookie(info, SessionCookie(id, false));
    Json::Value data(Json::objectValue);
    data["user"] = user;
    data["company"] = company;
    ReplyOk(info, data);
    return 0;
}

int HandleLogout(st_wh_info* info, void*) {
    Params params;
    if (!RunGate(info, params, false) || !CheckToken(info))
        return 0;
    const std::string id = BSCheckQvSession(info);
    if (!id.empty())
        BSEraseSession(id);
    AddCookie(info, SessionCookie("", true));
    ReplyOk(info, Json::Value(Json::objectValue));
    return 0;
}

}  // namespace console
