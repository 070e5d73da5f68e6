// The exported session functions and switch wrappers: thin wrappers over gw_webSession and
// g_WebTokenColl, the cookie readers and the peer address. None lets an exception reach the host.
#include "session/SessionApi.h"

#include <cstring>

#include "protect/WebToken.h"
#include "session/CookieRule.h"
#include "session/WebSession.h"
#include "web/BSWork.h"

namespace {

const char* const kSessionCookie = "qvsessionid";
const char* const kTokenCookie = "CSRF-TOKEN";
const size_t kPeerBufferSize = 256;

std::string CookieOfRecord(st_wh_info* info, const char* name) {
    if (info == nullptr || info->head == nullptr) {
        return "";
    }
    return GetCookieValueByRule(info->head->cookie, name);
}

}  // namespace

void BSInitSession() {
    try {
        g_WebTokenColl.InitData();
        gw_webSession.InitData();
    } catch (...) {
        // A failed load leaves the table as it stands; the host keeps running.
    }
}

void BSAddSession(std::string& sessionId, std::string userId, std::string company, int serverType,
                  int clientType, std::string peerIp) {
    try {
        gw_webSession.AddSession(sessionId, std::move(userId), std::move(company), serverType,
                                 clientType, std::move(peerIp));
    } catch (...) {
        // Nothing was added; the next lookup of the id answers "timed out".
    }
}

void BSEraseSession(std::string sessionId) {
    try {
        gw_webSession.EraseSession(std::move(sessionId));
    } catch (...) {
    }
}

bool Session_GetCompanyIdBySessionId(std::string sessionId, std::string& company) {
    try {
        return gw_webSession.GetCompanyIdBySessionId(std::move(sessionId), company);
    } catch (...) {
        return false;
    }
}

bool BSWhetherSessionIdTimeOut(std::string sessionId) {
    try {
        return gw_webSession.LookSession(std::move(sessionId)) == nullptr;
    } catch (...) {
        return true;
    }
}

std::string BSCheckQvSession(st_wh_info* info) {
    try {
        return CookieOfRecord(info, kSessionCookie);
    } catch (...) {
        return "";
    }
}

std::string GetTokenFromCookie(st_wh_info* info) {
    try {
        return CookieOfRecord(info, kTokenCookie);
    } catch (...) {
        return "";
    }
}

bool Web_SessionisPastdue(st_wh_info* info) {
    if (info == nullptr) {
        return false;
    }
    std::string sessionId;
    try {
        sessionId = CBSWork().CheckQvSession(info);
    } catch (...) {
        return false;
    }
    return BSWhetherSessionIdTimeOut(sessionId);
}

std::string GetPeerIP(st_wh_info* info) {
    if (info == nullptr || info->getServerVariable == nullptr) {
        return "";
    }
    try {
        char buffer[kPeerBufferSize];
        std::memset(buffer, 0, sizeof(buffer));
        uint32_t size = kPeerBufferSize;
        if (!info->getServerVariable(info->connId, WH_VAR_PEER_ADDRESS, buffer, &size)) {
            return "";
        }
        // A host that fills the whole buffer gets no terminator: never read past it.
        return std::string(buffer, ::strnlen(buffer, sizeof(buffer)));
    } catch (...) {
        return "";
    }
}

bool BSAddTokenToCache(std::string token) {
    try {
        g_WebTokenColl.AddTimeToken(token);
    } catch (...) {
    }
    return true;
}

bool BSGetVerifyCode(std::string key, int n, std::string& code) {
    try {
        code = g_WebTokenColl.GetVerifyCodePath(key, n);
    } catch (...) {
    }
    return true;
}

bool BSCheckVerifyCode(std::string key, std::string typed) {
    try {
        return g_WebTokenColl.CheckVerifyCode(key, typed);
    } catch (...) {
        return false;
    }
}

bool BSWhetherCheckVerifyCode() {
    return g_WebTokenColl.GetCheckVerifyCode();
}

bool BSGetVerifyToken(bool& checkVerifyCode, bool& checkToken) {
    checkVerifyCode = g_WebTokenColl.GetCheckVerifyCode();
    checkToken = g_WebTokenColl.GetCheckToken();
    return checkToken;
}

bool BSSetVerifyToken(int checkVerifyCode, int checkToken) {
    try {
        // Only the low byte of each argument counts: 256 switches off, like 0.
        g_WebTokenColl.SetVerifyCodeToken((checkVerifyCode & 0xff) != 0, (checkToken & 0xff) != 0);
    } catch (...) {
    }
    return true;
}
