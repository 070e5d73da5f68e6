// CWebTokenColl and the CSRF entry points: issuing a token cookie (BSGetTokenCookie), the CSRF
// check (BSCheckToken), the token files and their sweeper, and the "safe" switches.
#include "protect/WebToken.h"

#include <json/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "bsapi/bsapi.h"
#include "common/Clock.h"
#include "common/IniFile.h"
#include "common/QvUtil.h"
#include "common/StrWork.h"
#include "common/TimeFace.h"
#include "common/md5.h"
#include "session/SessionApi.h"
#include "session/WebSession.h"
#include "translate/QVTranslate.h"
#include "web/BSWork.h"

namespace {

// A token is accepted while it is at most 15 whole seconds old; from 16 seconds on it is stale
// and its file is swept.
const int64_t kTokenLifeSeconds = 16;
const uint32_t kDefaultIntervalSeconds = 60;
const char* const kSafeSection = "safe";
const char* const kSessionRefused = "Session init failed or query string failed";
const char* const kStaleTokenMessageId = "IDS_5278a29d8117314fdb88782b73c34386";

std::string Digest(const std::string& text) {
    std::string hex;
    sdigest(text, hex);
    return hex;
}

// A setting of section "safe" is on when its value is the number 1.
bool SwitchOn(const std::string& value) {
    return std::strtol(value.c_str(), nullptr, 10) == 1;
}

// Sends a refusal of the CSRF check: the envelope {"status":"failed","errmsg":...} wrapped for
// the request's callback name.
void SendRefusal(st_wh_info* info, const std::string& callback, const std::string& message) {
    Json::Value root;
    root["status"] = "failed";
    root["errmsg"] = message;
    CBSWork().SendInfoToWebWithCallback(info, callback, CBSWork::StyledJson(root), 2, false, 0);
}

}  // namespace

CWebTokenColl::CWebTokenColl()
    : m_nTokenInterval(kDefaultIntervalSeconds), m_bCheckToken(true), m_bCheckVerifyCode(true) {}

CWebTokenColl::~CWebTokenColl() {}

void CWebTokenColl::InitData() {
    tarn::CIniFile ini;
    ini.Init(m_strMiddleIni);
    std::string interval = ini.GetIniSetting(kSafeSection, "tokeninterval", "60");
    unsigned long seconds = std::strtoul(interval.c_str(), nullptr, 10);
    // A zero or unreadable interval would make the sweeper spin; the default serves instead.
    if (seconds == 0 || seconds > UINT32_MAX) {
        seconds = kDefaultIntervalSeconds;
    }
    m_nTokenInterval.store(static_cast<uint32_t>(seconds));
    m_bCheckToken.store(SwitchOn(ini.GetIniSetting(kSafeSection, "checktoken", "1")));
    m_bCheckVerifyCode.store(SwitchOn(ini.GetIniSetting(kSafeSection, "checkverifycode", "1")));
    LoadVerifyCode();
}

void CWebTokenColl::LoadVerifyCode() {
    void* handle = BS_INVALID_HANDLE;
    const int status =
        bs_treedb_open(handle, "Config", "VerifyCode", "", 0x80000, "ccubase", "127.0.0.1",
                       static_cast<unsigned short>(CQvUtil::GetDBPort()));
    if (status != 0) {
        if (handle != BS_INVALID_HANDLE) {
            bs_close_handle(handle);
        }
        return;
    }
    std::list<std::string> names;
    if (bs_treedb_get_subkeys(handle, names) == 0) {
        std::lock_guard<std::mutex> lock(m_mutexCode);
        for (const std::string& name : names) {
            m_vecCodes.push_back(_qvcomm::CStrWork::StrToLower(name));
        }
    }
    bs_close_handle(handle);
}

std::string CWebTokenColl::GetVerifyCodePath(const std::string& key, int n) {
    std::lock_guard<std::mutex> lock(m_mutexCode);
    if (m_vecCodes.empty()) {
        return "";
    }
    // A negative n picks by its two's-complement value (converted, not negated).
    const uint64_t index = static_cast<uint64_t>(n) % m_vecCodes.size();
    const std::string& code = m_vecCodes[index];
    m_mapIssuedCodes[key] = code;
    return code;
}

bool CWebTokenColl::CheckVerifyCode(const std::string& key, const std::string& typed) {
    std::lock_guard<std::mutex> lock(m_mutexCode);
    auto found = m_mapIssuedCodes.find(key);
    if (found == m_mapIssuedCodes.end() || found->second != typed) {
        return false;
    }
    m_mapIssuedCodes.erase(found);
    return true;
}

size_t CWebTokenColl::GetVerifyCodeCount() {
    std::lock_guard<std::mutex> lock(m_mutexCode);
    return m_vecCodes.size();
}

bool CWebTokenColl::SetVerifyCodeToken(bool checkVerifyCode, bool checkToken) {
    tarn::CIniFile ini;
    // An existing file that does not load cleanly is not rewritten: saving the part that did
    // load would drop the rest of the operator's settings. The switches take effect either way.
    const bool loaded = ini.Init(m_strMiddleIni);
    const bool writable = loaded || ::access(m_strMiddleIni.c_str(), F_OK) != 0;
    if (writable) {
        ini.PutIniSetting(kSafeSection, "checkverifycode", checkVerifyCode ? "1" : "0");
    }
    m_bCheckVerifyCode.store(checkVerifyCode);
    if (writable) {
        ini.PutIniSetting(kSafeSection, "checktoken", checkToken ? "1" : "0");
    }
    m_bCheckToken.store(checkToken);
    return true;  // the INI object saves its changes when it goes out of scope
}

int64_t CWebTokenColl::CutTime(const std::string& token) {
    const std::string::size_type dash = token.find('-');
    if (dash == std::string::npos) {
        return 0;
    }
    return std::strtoll(token.c_str() + dash + 1, nullptr, 10);
}

void CWebTokenColl::AddTimeToken(const std::string& token) {
    const int64_t issued = CutTime(token);
    if (issued == 0) {
        return;
    }
    std::string digest = Digest(token);
    std::lock_guard<std::mutex> lock(m_mutexToken);
    // One token per second: a second token of the same second is not recorded, so its file is
    // never swept. Kept so: the map's key is the issue time.
    m_mapTokens.emplace(issued, std::move(digest));
}

size_t CWebTokenColl::CalcTimeOutToken() {
    const int64_t now = tarn::TimeFace::GetCurrent().GetTime();
    std::lock_guard<std::mutex> lock(m_mutexToken);
    // Entries are never erased: every sweep lists every old token again and retries its file.
    for (const auto& entry : m_mapTokens) {
        if (now - entry.first > kTokenLifeSeconds - 1) {
            m_lstTimeOutDigests.push_back(entry.second);
        }
    }
    return m_lstTimeOutDigests.size();
}

void CWebTokenColl::RemoveTokenFile() {
    std::list<std::string> digests;
    {
        std::lock_guard<std::mutex> lock(m_mutexToken);
        digests.swap(m_lstTimeOutDigests);
    }
    for (const std::string& digest : digests) {
        std::string path = m_strTmpFilePath + "/" + digest + ".txt";
        ::remove(path.c_str());
    }
}

void CWebTokenColl::TimerClearToken() {
    for (;;) {
        std::this_thread::sleep_for(std::chrono::seconds(m_nTokenInterval.load()));
        if (CalcTimeOutToken() >= 1) {
            RemoveTokenFile();
        }
    }
}

std::string CWebTokenColl::TokenFilePath(const std::string& token) {
    return m_strTmpFilePath + "/" + Digest(token) + ".txt";
}

size_t CWebTokenColl::GetRecordedTokenCount() {
    std::lock_guard<std::mutex> lock(m_mutexToken);
    return m_mapTokens.size();
}

// ---- exported entry points -------------------------------------------------------------------

std::string BSGetTokenCookie(st_wh_info* /*info: not consulted*/) {
    try {
        const std::string token = Digest(CQvUtil::GetGuid()) + "-" +
                                  std::to_string(static_cast<int64_t>(tarn::ClockNow()));
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
