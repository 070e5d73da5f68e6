// CWebTokenColl: the token records, the token files and their sweeper, the verification codes and
// the "safe" switches. The CSRF entry points that issue and check tokens (session/TokenApi.cpp)
// call down into it; it calls nothing of theirs. The two paths it works under are given by the
// library's load (session/Globals.cpp).
#include "protect/WebToken.h"

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "bsapi/bsapi.h"
#include "common/IniFile.h"
#include "common/QvUtil.h"
#include "common/StrWork.h"
#include "common/TimeFace.h"
#include "common/md5.h"

namespace {

const int64_t kTokenLifeSeconds = CWebTokenColl::kTokenLifeSeconds;
const uint32_t kDefaultIntervalSeconds = 60;
const char* const kSafeSection = "safe";

std::string Digest(const std::string& text) {
    std::string hex;
    sdigest(text, hex);
    return hex;
}

// A setting of section "safe" is on when its value is the number 1.
bool SwitchOn(const std::string& value) {
    return std::strtol(value.c_str(), nullptr, 10) == 1;
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
