// The exported session functions: thin wrappers over gw_webSession, the cookie readers and the
// peer address. None of them lets an exception reach the host.
#include "session/SessionApi.h"

#include <cstring>

#include "session/CookieRule.h"
#include "session/WebSession.h"

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
    // Reads the session cookie by the same rule CBSWork::CheckQvSession applies.
    return BSWhetherSessionIdTimeOut(BSCheckQvSession(info));
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
