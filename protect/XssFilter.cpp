// BSCheckXSS: the script-injection filter and its process-wide tag list.
#include "protect/XssFilter.h"

#include <atomic>
#include <cctype>
#include <cstdio>
#include <string_view>
#include <unordered_set>

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

// Set (release) once g_lstHtTag and g_setTags are complete, so that readers can test it
// without the lock and without racing with the filling thread.
std::atomic<bool> g_bTagsReady{false};

// The tags as a set, filled with g_lstHtTag (under g_mutexTag) and read-only afterwards; the
// views point into g_lstHtTag's strings. Every tag is "<", text without "<" or ">", and ">", so a
// tag occurs at position p exactly when the text from p up to the next ">" equals it: one pass
// over the "<" of a value finds every occurrence (the tests hold the list to that shape).
std::unordered_set<std::string_view> g_setTags;

void FillTagList() {
    if (g_bTagsReady.load(std::memory_order_acquire)) {
        return;
    }
    std::lock_guard<std::mutex> lock(g_mutexTag);
    // Tested again under the lock: a thread that waited here while another filled the tags must
    // not rebuild the set that readers may already be using.
    if (g_bTagsReady.load(std::memory_order_relaxed)) {
        return;
    }
    if (g_lstHtTag.empty()) {
        _qvcomm::CStrWork::MakeListByTok(g_h5Tag, g_lstHtTag, ',');
    }
    g_setTags.clear();
    for (const std::string& tag : g_lstHtTag) {
        g_setTags.insert(tag);
    }
    g_bTagsReady.store(true, std::memory_order_release);
}

bool ContainsTag(const std::string& test) {
    const std::string_view view(test);
    for (size_t open = view.find('<'); open != std::string_view::npos;
         open = view.find('<', open + 1)) {
        const size_t close = view.find('>', open + 1);
        if (close == std::string_view::npos) {
            return false;
        }
        if (g_setTags.count(view.substr(open, close - open + 1)) != 0) {
            return true;
        }
    }
    return false;
}

bool Refused(const std::string& value) {
    // Every tag begins with "<" and so does every value the whole-value rule refuses; lower-
    // casing and removing blanks never produce a "<". A value without one needs no scan.
    if (value.find('<') == std::string::npos) {
        return false;
    }
    // The test text: the value lower-cased (libc's table) with every blank removed.
    std::string test;
    test.reserve(value.size());
    for (const char c : value) {
        if (c != ' ') {
            test.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
        }
    }
    if (g_lstHtTag.empty()) {
        return false;  // no tag to test, so neither rule is ever reached
    }
    const bool wrapped = test.size() > 2 && test.front() == '<' && test.back() == '>';
    return wrapped || ContainsTag(test);
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
