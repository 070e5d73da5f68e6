// The cookie rule shared by the session cookie, the CSRF cookie and the response writer.
#include "session/CookieRule.h"

std::string GetCookieValueByRule(const std::string& cookieHeader, const std::string& name) {
    // A trailing ";" makes the last cookie end like every other one.
    std::string text = cookieHeader;
    text += ';';

    const std::string::size_type namePos = text.find(name);
    if (namePos == std::string::npos) {
        return "";
    }
    const std::string::size_type end = text.find(';', namePos);
    if (end == std::string::npos) {
        return "";
    }
    // The piece holds the cookie in which the name first occurs, up to (not including) its ";".
    const std::string piece = text.substr(namePos, end - namePos);
    const std::string withEquals = name + "=";
    const std::string::size_type match = piece.find(withEquals);
    if (match == std::string::npos) {
        // The name first occurs inside some other cookie's value: the real cookie, if any,
        // is not looked for again.
        return "";
    }
    return piece.substr(match + withEquals.size());
}
