// BSCheckXSS, the script-injection filter over a request's parameters, and its tag list.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <string>

#include "common/Export.h"

// The forbidden tags, comma-separated: 37 entries. "<onunload>" stands twice and the event
// handler names are written as bracketed tags; both are kept as they are, since the filter's
// strength is defined by exactly this list.
extern const char g_h5Tag[];
// The entries of g_h5Tag in order, filled on first use under g_mutexTag and only read after.
extern std::list<std::string> g_lstHtTag;
// Guards the one-time filling of g_lstHtTag.
extern std::mutex g_mutexTag;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpragmas"
#pragma GCC diagnostic ignored "-Wreturn-type-c-linkage"
// Screens every parameter for markup. Returns 1 when all are acceptable; 0 when one was
// refused, and that parameter's value has then been rewritten in the map ("<" -> "&lt;",
// ">" -> "&gt;"; a "callbackparam" holding "<" becomes "1111"). Parameters after the refused
// one are not examined. Rules for any other parameter: the value is lower-cased and its blanks
// removed; it is refused when it contains one of the tags, or when it is longer than two
// characters and both begins with "<" and ends with ">". Never throws.
WS_EXTERN_C WS_API uint32_t BSCheckXSS(std::map<std::string, std::string>& params);
#pragma GCC diagnostic pop
