// BSCheckXSS: the script-injection filter and its process-wide tag list.
#include "protect/XssFilter.h"

#include <atomic>
#include <cstdio>

#include "common/StrWork.h"

const char g_h5Tag[] =
    "<script>,<javascript>,<vbscript>,<expression>,<applet>,<meta>,<xml>,<blink>,<link>,<style>,"
    "<embed>,<object>,<frame>,<layer>,<title>,<bgsound>,<base>,<onload>,<onunload>,<onchange>,"
    "<onsubmit>,<onreset>,<onselect>,<onblur>,<onfocus>,<onabort>,<onkeydown>,<onkeypress>,"
    "<onkeyup>,<onclick>,<ondblclick>,<onmousedown>,<onmousemove>,<onmouseout>,<onmouseover>,"
    "<onmouseup>,<onunload>";
std::list<std::string> g_lstHtTag;  // guarded by g_mutexTag until filled, then read-only
std::mutex g_mutexTag;

namespace {

// Set (release) once g_lstHtTag is complete, so that readers can test it without the lock and
// without racing with the filling thread.
std::atomic<bool> g_bTagsReady{false};

void FillTagList() {
    if (g_bTagsReady.load(std::memory_order_acquire)) {
        return;
    }
    std::lock_guard<std::mutex> lock(g_mutexTag);
    if (g_lstHtTag.empty()) {
        _qvcomm::CStrWork::MakeListByTok(g_h5Tag, g_lstHtTag, ',');
    }
    g_bTagsReady.store(true, std::memory_order_release);
}

bool Refused(const std::string& value) {
    // Every tag begins with "<" and so does every value the whole-value rule refuses; lower-
    // casing and removing blanks never produce a "<". A value without one needs no scan.
    if (value.find('<') == std::string::npos) {
        return false;
    }
    const std::string test =
        _qvcomm::CStrWork::ReplaceAll(_qvcomm::CStrWork::StrToLower(value), " ", "");
    const bool wrapped = test.size() > 2 && test.front() == '<' && test.back() == '>';
    for (const std::string& tag : g_lstHtTag) {
        if (test.find(tag) != std::string::npos || wrapped) {
            return true;
        }
    }
    return false;
}

}  // namespace

uint32_t BSCheckXSS(std::map<std::string, std::string>& params) {
    try {
        FillTagList();
        if (params.empty()) {
            return 1;
        }
        for (auto& param : params) {
            if (param.first == "callbackparam") {
                std::printf("%s\n", param.second.c_str());
                if (param.second.find('<') != std::string::npos) {
                    param.second = "1111";
                    return 0;
                }
                continue;
            }
            if (Refused(param.second)) {
                param.second = _qvcomm::CStrWork::ReplaceAll(
                    _qvcomm::CStrWork::ReplaceAll(param.second, "<", "&lt;"), ">", "&gt;");
                return 0;
            }
        }
        return 1;
    } catch (...) {
        // Out of memory while screening: the request is refused rather than let through.
        return 0;
    }
}
