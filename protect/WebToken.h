// CWebTokenColl: the CSRF tokens (issue times, token files, the sweeper), the verification codes
// and the protection switches of section "safe"; the process-wide g_WebTokenColl.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// A token is "<md5 of a fresh GUID>-<issue time in seconds>". Each issued token is mirrored as
// the file "<m_strTmpFilePath>/<md5 of the token>.txt" holding the token, so that every worker
// process of the host sees it; a token is accepted for 16 seconds (15 whole seconds old at most)
// while its file exists. The sweeper deletes the files of tokens 16 or more seconds old.
class CWebTokenColl {
public:
    // Sweep interval 60 s, both switches on, until InitData reads the settings.
    CWebTokenColl();
    ~CWebTokenColl();
    CWebTokenColl(const CWebTokenColl&) = delete;
    CWebTokenColl& operator=(const CWebTokenColl&) = delete;

    // A token is accepted while it is at most 15 whole seconds old; from 16 seconds on it is
    // stale and its file is swept.
    static constexpr int64_t kTokenLifeSeconds = 16;

    // "<install>/webharbour/hdoc/tmp": where token files live. Set once at load.
    // Both strings are never destroyed: the detached sweeper may still be working while the
    // process runs its exit-time destructors, and must not read a destroyed path.
    static const std::string& m_strTmpFilePath;
    // "<install>/middle/Conf/middle.ini": the protection switches and the sweep interval.
    static const std::string& m_strMiddleIni;

    // Reads "tokeninterval", "checktoken" and "checkverifycode" of section "safe", then loads
    // the verification codes.
    void InitData();
    // Writes both switches to section "safe" of the middle INI file and stores them; true.
    bool SetVerifyCodeToken(bool checkVerifyCode, bool checkToken);

    // Records the token's issue time (at most one token per second is recorded).
    void AddTimeToken(const std::string& token);
    // The issue time in a token: the number after its first "-", 0 when there is none.
    static int64_t CutTime(const std::string& token);
    // Collects the digests of tokens issued 16 or more seconds ago; the number collected.
    size_t CalcTimeOutToken();
    // Deletes the files of the collected digests (failures ignored) and forgets the digests.
    void RemoveTokenFile();
    // The sweeper: sleeps the interval, collects, deletes; never returns.
    void TimerClearToken();

    // The path of the token file of `token`.
    static std::string TokenFilePath(const std::string& token);

    // Verification codes: the sub-key names of "Config\VerifyCode" in the tree "ccubase", in
    // lower case. Loading appends (loading twice doubles the list); an unreachable database
    // leaves the list as it is.
    void LoadVerifyCode();
    // Hands out the code at index n (taken as an unsigned 64-bit number) modulo the list's
    // length and remembers it under `key`; "" (and nothing remembered) while no code is loaded.
    std::string GetVerifyCodePath(const std::string& key, int n);
    // True once for the code handed out under `key` when `typed` equals it exactly (no case
    // folding); a wrong code keeps the stored one for another try.
    bool CheckVerifyCode(const std::string& key, const std::string& typed);
    size_t GetVerifyCodeCount();

    bool GetCheckToken() const { return m_bCheckToken.load(std::memory_order_relaxed); }
    bool GetCheckVerifyCode() const { return m_bCheckVerifyCode.load(std::memory_order_relaxed); }
    uint32_t GetTokenInterval() const { return m_nTokenInterval.load(std::memory_order_relaxed); }
    // The number of recorded issue times (diagnostics and tests).
    size_t GetRecordedTokenCount();

private:
    std::mutex m_mutexToken;                     // guards m_mapTokens and m_lstTimeOutDigests
    std::map<int64_t, std::string> m_mapTokens;  // issue time -> md5 of the token
    std::list<std::string> m_lstTimeOutDigests;  // collected by the last CalcTimeOutToken
    std::mutex m_mutexCode;                      // guards m_vecCodes and m_mapIssuedCodes
    std::vector<std::string> m_vecCodes;         // the available codes, lower case
    std::map<std::string, std::string> m_mapIssuedCodes;  // caller's key -> code handed out
    // Settings: single values written by InitData / SetVerifyCodeToken and read by request
    // threads without a lock, hence atomic.
    std::atomic<uint32_t> m_nTokenInterval;  // "tokeninterval", seconds
    std::atomic<bool> m_bCheckToken;         // "checktoken"
    std::atomic<bool> m_bCheckVerifyCode;    // "checkverifycode"
};

// The process-wide token collection (defined in session/Globals.cpp, after the session table).
// Never destroyed, for the same reason as gw_webSession: the detached sweeper works on it for
// the whole life of the process, exit included.
extern CWebTokenColl& g_WebTokenColl;
