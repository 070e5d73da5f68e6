// bsctl: command-line access to the tree database, table databases and queues; the entry point,
// the argument reader and the value text shared by the commands.
#include "tools/bsctl/BsCtl.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace bsctl {

namespace {

const char* const kHelp =
    "usage: bsctl [--server ADDRESS] [--port N] COMMAND ...\n"
    "  tree list    TREE [MAINKEY [PATH]]     main keys of a tree, or the sub keys of a key\n"
    "  tree show    TREE MAINKEY [PATH]       the properties of a key\n"
    "  tree set     TREE MAINKEY PATH|- NAME TYPE VALUE\n"
    "                                         write a property (TYPE: string int16 int32 int64\n"
    "                                         char double float time uint8 uint32 uint64)\n"
    "  tree addkey  TREE MAINKEY PATH         create a key (tree, main key and parents too)\n"
    "  tree delkey  TREE MAINKEY PATH         delete a key with its subtree\n"
    "  tree delprop TREE MAINKEY PATH|- NAME  delete a property\n"
    "  table list   [DB]                      table databases, or the tables of one\n"
    "  table show   DB TABLE [--limit N]      the records of a table (default limit 100)\n"
    "  table delete DB TABLE ID               delete one record by _FIELD_AUTOID_\n"
    "  queue list                             queue names\n"
    "  queue push   QUEUE TEXT [--name N] [--priority P]\n"
    "  queue pop    QUEUE [--timeout MS]      take one message (default: do not wait)\n"
    "  seed-codes   CODE...                   add verification codes (as code seed)\n"
    "  copy --from ENGINE --to ENGINE         copy every server's trees, table databases and\n"
    "                                         queues between engines (sqlite, postgres); the\n"
    "                                         destination must not hold objects of those names\n"
    "Records:\n"
    "  session list                           web sessions (master:Session) with their values\n"
    "  session show ID                        the properties of one session\n"
    "  session add  ID --user U --co C [--servertype N] [--clienttype N]\n"
    "                                         write a session (servertype 1, clienttype 0 by\n"
    "                                         default; servertype 0 is never loaded)\n"
    "  session delete ID\n"
    "  code list                              verification codes (ccubase:Config\\VerifyCode)\n"
    "  code seed    CODE...                   add verification codes\n"
    "  code delete  CODE...\n"
    "  company list                           tenant companies (saas:company)\n"
    "  company show ID                        parameters (name, type, value), then 'ccu' lines\n"
    "  company add  ID [NAME[:TYPE]=VALUE...] replace the company whole with these parameters\n"
    "  company update ID NAME[:TYPE]=VALUE... write parameters, keeping the others\n"
    "  company type ID N                      set qv_companytype\n"
    "  company delete ID                      delete the company with its CCU records\n"
    "  ccu add    COMPANY CCU [--connectstat N] [--registertime 'YYYY-MM-DD hh:mm:ss']\n"
    "             [--label TEXT] [--useddev N] [--usedmon N]\n"
    "                                         replace a CCU record (registered now by default)\n"
    "  ccu update COMPANY CCU [options as add] change the given values of a CCU record\n"
    "  ccu show   COMPANY CCU\n"
    "  ccu delete COMPANY CCU\n"
    "  login list                             login names with their companies (saas:loginname)\n"
    "  login show NAME                        the company of a login\n"
    "  login add  NAME COMPANY                add a login, or move it to COMPANY\n"
    "  login move OLD NEW [COMPANY]           rename a login (refused when NEW exists)\n"
    "  login delete NAME\n"
    "Exit status: 0 done, 1 refused or missing, 2 bad arguments.\n"
    "The engine is BSAPI_ENGINE (sqlite when unset; postgres reads BSAPI_PG_DSN), from the\n"
    "environment or [bsapi] of <install>/middle/Conf/dbconfig.ini. The embedded engine's data\n"
    "directory is <install>/middle/data, or $BSAPI_DATA_DIR when set.\n";

}  // namespace

const std::string& CArgs::Word(size_t i) const {
    static const std::string kEmpty;
    return i < m_vecWords.size() ? m_vecWords[i] : kEmpty;
}

std::string CArgs::Option(const std::string& name, const std::string& dflt) const {
    auto it = m_mapOptions.find(name);
    return it == m_mapOptions.end() ? dflt : it->second;
}

int Refused(const std::string& what, int code) {
    std::fprintf(stderr, "bsctl: %s: %s (%d)\n", what.c_str(), bs_result_text(code), code);
    return EXIT_REFUSED;
}

int Usage(const std::string& message) {
    std::fprintf(stderr, "bsctl: %s\nRun 'bsctl --help' for the commands.\n", message.c_str());
    return EXIT_USAGE;
}

namespace {
struct CType {
    const char* name;
    unsigned char tag;
};
const CType kTypes[] = {{"string", 1}, {"int16", 2},   {"int32", 3},  {"int64", 4},
                        {"char", 5},   {"double", 6},  {"float", 7},  {"time", 9},
                        {"uint8", 16}, {"uint32", 18}, {"uint64", 19}};
}  // namespace

const char* TypeName(unsigned char tag) {
    for (const CType& t : kTypes) {
        if (t.tag == tag)
            return t.name;
    }
    return tag == 0 ? "empty" : "unknown";
}

unsigned char TypeTag(const std::string& name) {
    for (const CType& t : kTypes) {
        if (name == t.name)
            return t.tag;
    }
    return 0;
}

bool ParseNumber(const std::string& text, unsigned long long max, unsigned long long& out) {
    if (text.empty() || text[0] < '0' || text[0] > '9')
        return false;
    char* end = nullptr;
    errno = 0;
    out = std::strtoull(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0' && out <= max;
}

bool ParseValue(unsigned char tag, const std::string& text, tarn::VariableData& out) {
    using tarn::VariableData;
    if (tag == VariableData::VT_STRING) {
        out = VariableData(text);
        return true;
    }
    if (text.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    if (tag == VariableData::VT_DOUBLE || tag == VariableData::VT_FLOAT) {
        double d = std::strtod(text.c_str(), &end);
        if (*end != '\0' || errno == ERANGE)
            return false;
        if (tag == VariableData::VT_FLOAT) {
            if (std::isfinite(d) && std::fabs(d) > std::numeric_limits<float>::max())
                return false;
            out = VariableData(static_cast<float>(d));
        } else {
            out = VariableData(d);
        }
        return true;
    }
    if (tag == VariableData::VT_UINT8 || tag == VariableData::VT_UINT32 ||
        tag == VariableData::VT_UINT64) {
        unsigned long long max = tag == VariableData::VT_UINT8    ? 255ull
                                 : tag == VariableData::VT_UINT32 ? 0xffffffffull
                                                                  : ~0ull;
        unsigned long long u = 0;
        if (!ParseNumber(text, max, u))
            return false;
        if (tag == VariableData::VT_UINT8)
            out = VariableData(static_cast<unsigned char>(u));
        else if (tag == VariableData::VT_UINT32)
            out = VariableData(static_cast<unsigned int>(u));
        else
            out = VariableData(u);
        return true;
    }
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (*end != '\0' || errno == ERANGE)
        return false;
    switch (tag) {
        case VariableData::VT_INT16:
            if (v < -32768 || v > 32767)
                return false;
            out = VariableData(static_cast<short>(v));
            return true;
        case VariableData::VT_INT32:
            if (v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max())
                return false;
            out = VariableData(static_cast<int>(v));
            return true;
        case VariableData::VT_CHAR:
            if (v < -128 || v > 127)
                return false;
            out = VariableData(static_cast<char>(v));
            return true;
        case VariableData::VT_TIME:
            out.PutTimeValue(static_cast<long>(v));
            return true;
        case VariableData::VT_INT64:
            out = VariableData(v);
            return true;
        default:
            return false;
    }
}

std::string Printable(const tarn::VariableData& v) {
    const std::string& text = v.GetText();
    if (v.GetType() != tarn::VariableData::VT_STRING)
        return text;
    std::string out;
    for (unsigned char c : text) {
        if (c < 0x20 || c >= 0x7f || c == '\\') {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

}  // namespace bsctl

int main(int argc, char** argv) {
    using namespace bsctl;
    CArgs args;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            std::fputs(kHelp, stdout);
            return EXIT_DONE;
        }
        if (a.size() > 2 && a.compare(0, 2, "--") == 0) {
            if (i + 1 >= argc)
                return Usage("option " + a + " needs a value");
            args.m_mapOptions[a.substr(2)] = argv[++i];
        } else {
            args.m_vecWords.push_back(a);
        }
    }
    args.m_strServer = args.Option("server", args.m_strServer);
    unsigned long long port = 0;
    if (!ParseNumber(args.Option("port", "8123"), 65535, port))
        return Usage("bad port");
    args.m_nPort = static_cast<unsigned short>(port);
    for (const auto& kv : args.m_mapOptions) {
        static const char* const known[] = {
            "server", "port",    "limit",      "name",       "priority",    "timeout",
            "user",   "co",      "servertype", "clienttype", "connectstat", "registertime",
            "label",  "useddev", "usedmon",    "from",       "to"};
        bool ok = false;
        for (const char* k : known)
            ok = ok || kv.first == k;
        if (!ok)
            return Usage("unknown option --" + kv.first);
    }
    const std::string& cmd = args.Word(0);
    if (cmd == "tree")
        return TreeCommand(args);
    if (cmd == "table")
        return TableCommand(args);
    if (cmd == "queue")
        return QueueCommand(args);
    if (cmd == "seed-codes")
        return SeedCodes(args);
    if (cmd == "copy")
        return CopyCommand(args);
    static const struct {
        const char* name;
        int (*run)(const CArgs&);
    } records[] = {{"session", SessionCommand},
                   {"code", CodeCommand},
                   {"company", CompanyCommand},
                   {"ccu", CcuCommand},
                   {"login", LoginCommand}};
    for (const auto& r : records) {
        if (cmd == r.name) {
            KeepResultsApart();
            return r.run(args);
        }
    }
    if (cmd.empty())
        return Usage("no command given");
    return Usage("unknown command '" + cmd + "'");
}
