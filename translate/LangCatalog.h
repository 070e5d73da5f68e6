// Message catalogs of libQVTranslate: reading the catalog files and finding the installation.
#pragma once

#include <map>
#include <string>

namespace qvt {

// domain -> (message id -> text)
using DomainTexts = std::map<std::string, std::map<std::string, std::string>>;
// language code (lower case) -> its catalog
using Catalogs = std::map<std::string, DomainTexts>;

// Parses the text of one catalog file into `out` (entries replace earlier ones).
void ParseCatalog(const std::string& text, DomainTexts& out);

// Reads every "<language>.lang" file of `dir`; a directory that cannot be read gives no
// catalogs, an unreadable file is skipped.
Catalogs LoadCatalogs(const std::string& dir);

// The installation directory found from /proc/self/exe, "" when the link cannot be read.
std::string InstallPath();

// Lower case, and the forms tried for a language code: "en-US" -> {"en-us", "en"}.
std::string LowerAscii(const std::string& s);

}  // namespace qvt
