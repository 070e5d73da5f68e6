// Helpers shared by the CBSWork source files (not part of the exported interface).
#pragma once

#include <string>

namespace ws_web {

// The value of cookie `name` in the raw Cookie header text, by the library's one cookie rule:
// append ";", take the first occurrence of the bare name, cut up to the next ";", find
// "name=" in that piece and return what follows it; "" when absent. Nothing is trimmed or
// decoded, and a cookie whose name merely ends with `name` standing first is taken instead.
std::string CookieValue(const std::string& cookieHeader, const std::string& name);

}  // namespace ws_web
