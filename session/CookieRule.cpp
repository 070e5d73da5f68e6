// The cookie rule shared by the session cookie, the CSRF cookie and the response writer.
#include "session/CookieRule.h"

#include <string_view>

std::string GetCookieValueByRule(const std::string& cookieHeader, const std::string& name) {
    // A trailing ";" makes the last cookie end like every other one. The text is put together in
    // a buffer of the calling thread: every request reads two or three cookies, and this keeps
    // the rule free of allocations but for the value it returns.
    thread_local std::string text;
    text.assign(cookieHeader);
    text += ';';
    const std::string_view all(text);

    const std::string_view::size_type namePos = all.find(name);
    if (namePos == std::string_view::npos) {
        return "";
    }
    const std::string_view::size_type end = all.find(';', namePos);
    if (end == std::string_view::npos) {
        return "";
    }
    // The piece holds the cookie in which the name first occurs, up to (not including) its ";".
    // The value follows the first occurrence of the name followed by "=" within the piece; when
    // there is none, the name first occurs inside some other cookie's value, and the real cookie,
    // if any, is not looked for again.
    const std::string_view piece = all.substr(namePos, end - namePos);
    for (auto at = piece.find(name); at != std::string_view::npos; at = piece.find(name, at + 1)) {
        const auto after = at + name.size();
        if (after < piece.size() && piece[after] == '=') {
            return std::string(piece.substr(after + 1));
        }
    }
    return "";
}
