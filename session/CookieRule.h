// The cookie rule: how the library picks one cookie's value out of a raw Cookie header.
#pragma once

#include <string>

// The value of cookie `name` in `cookieHeader` (the raw text of the request's Cookie header).
//
// Every cookie the library reads goes through this one rule: the session cookie "qvsessionid"
// (BSCheckQvSession, CBSWork::CheckQvSession) and the CSRF cookie "CSRF-TOKEN"
// (GetTokenFromCookie). The rule is deliberately simple and kept exactly as it is:
//   - only the FIRST occurrence of the bare name counts, wherever it stands; a cookie whose name
//     merely ends with `name` ("XCSRF-TOKEN=...") standing first is taken in place of the real
//     one, and a first occurrence inside another cookie's value without "=" after it gives "";
//   - the value runs from after "name=" up to the next ";" (or the end of the header);
//   - nothing is trimmed or percent-decoded, so "CSRF-TOKEN= t1" yields " t1";
//   - an absent cookie, a name without "=" and an empty value all give "".
// Any byte sequence is accepted; the function never throws for bad input (only for memory).
std::string GetCookieValueByRule(const std::string& cookieHeader, const std::string& name);
