// The CSRF entry points: issuing a token cookie (BSGetTokenCookie) and the CSRF check
// (BSCheckToken). They belong to the exported layer: they call down into the token collection
// (protect/WebToken.h), the session table and the request gate, and nothing below calls them.
#include <json/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

#include "common/Clock.h"
#include "common/QvUtil.h"
#include "common/TimeFace.h"
#include "common/md5.h"
#include "protect/WebToken.h"
#include "session/SessionApi.h"
#include "session/WebSession.h"
#include "translate/QVTranslate.h"
#include "web/BSWork.h"

namespace {

const int64_t kTokenLifeSeconds = CWebTokenColl::kTokenLifeSeconds;
const char* const kSessionRefused = "Session init failed or query string failed";
const char* const kStaleTokenMessageId = "IDS_5278a29d8117314fdb88782b73c34386";

// Sends a refusal of the CSRF check: the envelope {"status":"failed","errmsg":...} wrapped for
// the request's callback name.
void SendRefusal(st_wh_info* info, const std::string& callback, const std::string& message) {
    Json::Value root;
    root["status"] = "failed";
    root["errmsg"] = message;
    CBSWork().SendInfoToWebWithCallback(info, callback, CBSWork::StyledJson(root), 2, false, 0);
}

}  // namespace

std::string BSGetTokenCookie(st_wh_info* /*info: not consulted*/) {
    try {
        std::string digest;
        sdigest(CQvUtil::GetGuid(), digest);
        const std::string token =
            digest + "-" + std::to_string(static_cast<int64_t>(tarn::ClockNow()));
        // The expiry date is the moment of issue itself; browsers keep the cookie for Max-Age.
        const std::string cookie = "CSRF-TOKEN=" + token +
                                   "; expires=" + tarn::TimeFace::GetCurrent().ToHttpGMTString() +
                                   "; Max-Age=300; path=/;httponly";

        const std::string& dir = CWebTokenColl::m_strTmpFilePath;
        if (::access(dir.c_str(), F_OK) != 0) {
            // Mode 0070 (no rights for the owner) is deliberate and kept; a test pins it.
            ::mkdir(dir.c_str(), 0070);
        }
        if (FILE* file = std::fopen(CWebTokenColl::TokenFilePath(token).c_str(), "w")) {
            std::fwrite(token.data(), 1, token.size(), file);
            std::fclose(file);
        }
        BSAddTokenToCache(token);
        return cookie;
    } catch (...) {
        return "";
    }
}

uint32_t BSCheckToken(st_wh_info* info) {
    if (!g_WebTokenColl.GetCheckToken()) {
        return 1;
    }
    try {
        std::map<std::string, std::string> params;
        std::string callback;
        if (Web_SessionInit(info, callback, params, 0, 1, 1) != 0) {
            CBSWork().SendErrorWebSession(info, "failed", kSessionRefused, "");
            return 0;
        }

        const std::string peer = GetPeerIP(info);
        if (CGWebSession* session = gw_webSession.LookSession(BSCheckQvSession(info))) {
            if (session->GetClientType() == 1) {
                return 1;
            }
            // A session is bound to the first address that presents it to this check.
            if (session->BindPeerIP(peer) != peer) {
                CBSWork().SendErrorWebSession(info, "failed", kSessionRefused, "");
                return 0;
            }
        }

        // The request must come from a page of this host: the Host text within the Referer.
        const std::string origin = info->head != nullptr ? info->head->host : std::string();
        const std::string page = info->head != nullptr ? info->head->referer : std::string();
        if (page.empty() || page.find(origin) == std::string::npos) {
            SendRefusal(info, callback, "请求不合法");
            return 0;
        }

        const std::string token = GetTokenFromCookie(info);
        if (token.empty()) {
            SendRefusal(info, callback, "请求非法");
            return 0;
        }

        const int64_t now = static_cast<int64_t>(tarn::ClockNow());
        const int64_t issued = CWebTokenColl::CutTime(token);
        if (issued != 0 && now - issued < kTokenLifeSeconds) {
            if (FILE* file = std::fopen(CWebTokenColl::TokenFilePath(token).c_str(), "r+")) {
                std::fclose(file);
                g_WebTokenColl.AddTimeToken(token);
                return 1;
            }
            SendRefusal(info, callback, "请求不合法,token保存失败");
            return 0;
        }

        // Stale or without a time: the message names the seconds overrun, now and the issue.
        std::string message = qv_tipsTranslate2(kStaleTokenMessageId, "default");
        if (!message.empty()) {
            char numbers[96];
            std::snprintf(numbers, sizeof(numbers), "%d,%lld,%lld",
                          static_cast<int32_t>(now - issued - (kTokenLifeSeconds - 1)),
                          static_cast<long long>(now), static_cast<long long>(issued));
            message += numbers;
        }
        SendRefusal(info, callback, message);
        return 0;
    } catch (...) {
        return 0;
    }
}
