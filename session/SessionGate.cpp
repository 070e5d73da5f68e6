// Web_SessionInit: the request gate every request handler of the console calls first.
#include <pthread.h>

#include <cstdio>
#include <cstring>
#include <list>

#include "common/StrWork.h"
#include "protect/XssFilter.h"
#include "session/SessionApi.h"
#include "translate/QVTranslate.h"
#include "web/BSWork.h"
#include "web/Url.h"

namespace {

const uint32_t kProceed = 0;
const uint32_t kStop = 1;
const char* const kBodyFailed = " Url::CovertPostStringToMapEx() Failed";

// Step 2: later translations on this thread use the request's language.
void BindLanguage(st_wh_info* info) {
    const std::string language = CBSWork().GetLan(info);
    if (language.empty()) {
        return;
    }
    char threadKey[32];
    std::snprintf(threadKey, sizeof(threadKey), "%u", static_cast<unsigned>(pthread_self()));
    qv_tipsTranslate_typeInsert(threadKey, language);
}

// Step 7: the parameters named in "v_dx" ("key;name;name...") arrive scrambled with that key.
void DecryptListedParameters(std::map<std::string, std::string>& params) {
    auto listed = params.find("v_dx");
    if (listed == params.end() || listed->second.empty()) {
        return;
    }
    std::list<std::string> items;
    _qvcomm::CStrWork::MakeListByTok(listed->second, items, ';');
    if (items.empty()) {
        return;
    }
    const std::string key = items.front();
    items.pop_front();
    CBSWork work;
    for (const std::string& name : items) {
        if (key.empty()) {
            break;
        }
        if (name.empty()) {
            continue;
        }
        auto param = params.find(name);
        if (param == params.end()) {
            continue;
        }
        // A name listed twice is unscrambled twice.
        param->second = work.decrypt(param->second, key);
    }
}

uint32_t RunGate(st_wh_info* info, std::string& callback,
                 std::map<std::string, std::string>& params, int checkSession, int readPost,
                 bool decode) {
    BindLanguage(info);

    // Step 3: the trace settings are read once per process; a changed switch needs a restart.
    static const std::string szWriteLog = CBSWork().GetFullHeadLogPath() + "/fullhead.log";
    static const bool bNeedTestMemory = CBSWork().IsNeedHistoryTest() != 0;

    char message[800];
    std::memset(message, 0, sizeof(message));

    // Step 5: a bad query string is noted and the request goes on.
    if (info->url == nullptr || !info->url->GetQueryStringMapEx(params, decode, true)) {
        std::snprintf(message, sizeof(message), "%s", "Url::GetQueryStringMapEx() Failed");
        // The printed line names the body parser even here: kept word for word on purpose.
        std::printf("%s\n", kBodyFailed);
    }

    // Step 6: the form body of a POST, when the handler wants it.
    std::string body;
    const bool isPost = info->head != nullptr && info->head->method == WH_METHOD_POST;
    if (isPost && (readPost & 0xff) != 0 && info->readBody != nullptr) {
        uint32_t length = 0;
        if (const char* text = info->readBody(info->connId, &length)) {
            body = text;
            if (!Url::CovertPostStringToMapEx(body, params, decode, true)) {
                std::snprintf(message, sizeof(message), "%s", kBodyFailed);
                CBSWork().SendErrorWebSession(info, "", message, "");
                return kStop;
            }
        }
    }

    DecryptListedParameters(params);

    // Step 8: the optional request trace.
    if (bNeedTestMemory && info->url != nullptr) {
        CBSWork().WriteTestHead(szWriteLog, info->url->GetPath(), info->url->GetQueryString(),
                                body);
    }

    // Step 9: the callback name for wrapped answers, with every "<" taken out. The parameter
    // itself stays as received; the filter deals with it.
    auto named = params.find("callbackparam");
    if (named != params.end()) {
        callback = named->second;
    }
    callback = _qvcomm::CStrWork::ReplaceAll(callback, "<", "");

    // Step 10: a timed-out session is answered here, before the filter looks at anything.
    if (checkSession != 0 && Web_SessionisPastdue(info)) {
        CBSWork().SendSessionOutInfoToWebSession(info, callback);
        return kStop;
    }

    // Step 11: the filter writes nothing itself.
    return BSCheckXSS(params) ? kProceed : kStop;
}

}  // namespace

uint32_t Web_SessionInit(st_wh_info* info, std::string& callback,
                         std::map<std::string, std::string>& params, int checkSession, int readPost,
                         bool decode) {
    if (info == nullptr) {
        return kStop;
    }
    try {
        return RunGate(info, callback, params, checkSession, readPost, decode);
    } catch (...) {
        // Only an exhausted memory gets here; the request is stopped rather than let through.
        return kStop;
    }
}
