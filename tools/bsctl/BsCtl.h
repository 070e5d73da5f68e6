// bsctl: shared pieces of the command-line tool (arguments, messages, value text).
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bsapi/bsapi.h"

namespace bsctl {

// Exit statuses: 0 done, 1 the database refused or the key is missing, 2 bad arguments.
enum { EXIT_DONE = 0, EXIT_REFUSED = 1, EXIT_USAGE = 2 };

struct CArgs {
    std::string m_strServer = "127.0.0.1";
    unsigned short m_nPort = 8123;
    std::vector<std::string> m_vecWords;              // the words after the options
    std::map<std::string, std::string> m_mapOptions;  // --name value
    const std::string& Word(size_t i) const;          // "" past the end
    std::string Option(const std::string& name, const std::string& dflt) const;
};

// Prints "bsctl: <what>: <text> (<code>)" on standard error and returns EXIT_REFUSED.
int Refused(const std::string& what, int code);
// Prints "bsctl: <message>" and a hint on standard error and returns EXIT_USAGE.
int Usage(const std::string& message);

// "string", "int32", ... for a tag; 0 for an unknown type name.
const char* TypeName(unsigned char tag);
unsigned char TypeTag(const std::string& name);
// Parses `text` as a value of `tag`; false when it is not a number of that type's range.
bool ParseValue(unsigned char tag, const std::string& text, tarn::VariableData& out);
// A value as printable text: strings with control and non-ASCII bytes escaped as \xNN.
std::string Printable(const tarn::VariableData& v);
// Text as Printable shows a string value, so that a name holding a tab or a line end cannot
// break the tab-separated lines of the record commands.
inline std::string Printable(const std::string& text) {
    return Printable(tarn::VariableData(text));
}
bool ParseNumber(const std::string& text, unsigned long long max, unsigned long long& out);

int TreeCommand(const CArgs& args);
int TableCommand(const CArgs& args);
int QueueCommand(const CArgs& args);
int SeedCodes(const CArgs& args);
int CopyCommand(const CArgs& args);

// Record commands (RecordCmds.cpp, ManageCmds.cpp, CcuLoginCmds.cpp).
int SessionCommand(const CArgs& args);
int CodeCommand(const CArgs& args);
int CompanyCommand(const CArgs& args);
int CcuCommand(const CArgs& args);
int LoginCommand(const CArgs& args);
// Where results are printed: standard output, or its saved descriptor after KeepResultsApart,
// which sends whatever else is printed on standard output to standard error.
FILE* Out();
void KeepResultsApart();

}  // namespace bsctl
