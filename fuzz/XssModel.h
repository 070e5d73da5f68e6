// A plain model of the script-injection filter for the fuzz targets: the forbidden tags written
// out once more, the test text, and the walk over a parameter map with its rewrite.
#pragma once

#include <map>
#include <string>

namespace ws_fuzz {

// The 37 forbidden tags ("<onunload>" twice), as the filter's strength is defined.
inline const char* const* XssTags(int& count) {
    static const char* const kTags[] = {
        "<script>",     "<javascript>",  "<vbscript>",    "<expression>", "<applet>",
        "<meta>",       "<xml>",         "<blink>",       "<link>",       "<style>",
        "<embed>",      "<object>",      "<frame>",       "<layer>",      "<title>",
        "<bgsound>",    "<base>",        "<onload>",      "<onunload>",   "<onchange>",
        "<onsubmit>",   "<onreset>",     "<onselect>",    "<onblur>",     "<onfocus>",
        "<onabort>",    "<onkeydown>",   "<onkeypress>",  "<onkeyup>",    "<onclick>",
        "<ondblclick>", "<onmousedown>", "<onmousemove>", "<onmouseout>", "<onmouseover>",
        "<onmouseup>",  "<onunload>"};
    count = static_cast<int>(sizeof(kTags) / sizeof(kTags[0]));
    return kTags;
}

// Refused: the value lower-cased (ASCII) with every blank removed holds a tag, or is longer
// than two characters and both begins with "<" and ends with ">".
inline bool XssRefused(const std::string& value) {
    std::string test;
    for (const char c : value) {
        if (c == ' ')
            continue;
        test += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    if (test.size() > 2 && test.front() == '<' && test.back() == '>')
        return true;
    int count = 0;
    const char* const* tags = XssTags(count);
    for (int i = 0; i < count; ++i) {
        if (test.find(tags[i]) != std::string::npos)
            return true;
    }
    return false;
}

// The filter's walk: 1 when every parameter is acceptable; otherwise 0 with the first refused
// parameter rewritten ("<" -> "&lt;", ">" -> "&gt;"; a "callbackparam" holding "<" becomes
// "1111") and everything after it untouched.
inline unsigned ModelXss(std::map<std::string, std::string>& params) {
    for (auto& p : params) {
        if (p.first == "callbackparam") {
            if (p.second.find('<') != std::string::npos) {
                p.second = "1111";
                return 0;
            }
            continue;
        }
        if (XssRefused(p.second)) {
            std::string rewritten;
            for (const char c : p.second) {
                if (c == '<')
                    rewritten += "&lt;";
                else if (c == '>')
                    rewritten += "&gt;";
                else
                    rewritten += c;
            }
            p.second = rewritten;
            return 0;
        }
    }
    return 1;
}

}  // namespace ws_fuzz
