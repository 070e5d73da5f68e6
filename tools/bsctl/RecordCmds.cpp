// bsctl record commands for the web sessions ("master"/"Session") and the verification codes
// ("ccubase"/"Config"\"VerifyCode"), through the database toolkit's handle locator.
#include <unistd.h>

#include <cstdio>

#include "db/QvHandle.h"
#include "tools/bsctl/BsCtl.h"

namespace bsctl {

namespace {

FILE* g_pOut = stdout;  // where results go; set once by KeepResultsApart before any command

const int kCreateFlags = 0x80000;

// A session id, code or other single key name: not empty, no path separator.
bool IsKeyName(const std::string& name) {
    return !name.empty() && name.find('\\') == std::string::npos;
}

int OpenSessions(const CArgs& a, CQvHandleLoc& loc) {
    int rc = loc.Treedb_Alloc(a.m_strServer, "master", "Session", "", kCreateFlags, a.m_nPort);
    return rc == 0 ? EXIT_DONE : Refused("master:Session", rc);
}

int SessionList(const CArgs& a) {
    CQvHandleLoc loc;
    int st = OpenSessions(a, loc);
    if (st != EXIT_DONE)
        return st;
    std::list<std::string> ids;
    int rc = loc.Treedb_GetAllSubKeys(ids);
    if (rc != 0)
        return Refused("master:Session", rc);
    std::fprintf(Out(), "session\tuser\tco\tservertype\tclienttype\n");
    for (const std::string& id : ids) {
        if (loc.Treedb_ReopenSubKey(id, -1) != 0)
            continue;  // deleted since the listing
        std::fprintf(Out(), "%s\t%s\t%s\t%d\t%d\n", Printable(id).c_str(),
                     Printable(loc.Treedb_GetPropertyString("user", "")).c_str(),
                     Printable(loc.Treedb_GetPropertyString("co", "")).c_str(),
                     loc.Treedb_GetPropertyInt("servertype", 0),
                     loc.Treedb_GetPropertyInt("clienttype", 0));
    }
    return EXIT_DONE;
}

int SessionShow(const CArgs& a) {
    const std::string& id = a.Word(2);
    if (!IsKeyName(id))
        return Usage("bad session id '" + id + "'");
    CQvHandleLoc loc;
    int st = OpenSessions(a, loc);
    if (st != EXIT_DONE)
        return st;
    int rc = loc.Treedb_ReopenSubKey(id, -1);
    if (rc != 0)
        return Refused("session " + id, rc);
    CQvHandleLoc::PropMap props;
    rc = loc.Treedb_SelectKeyPropertys(props);
    if (rc != 0)
        return Refused("session " + id, rc);
    for (const auto& kv : props) {
        std::fprintf(Out(), "%s\t%s\t%s\n", kv.first.c_str(), TypeName(kv.second.GetType()),
                     Printable(kv.second).c_str());
    }
    return EXIT_DONE;
}

int SessionAdd(const CArgs& a) {
    const std::string& id = a.Word(2);
    if (a.m_vecWords.size() != 3 || !IsKeyName(id))
        return Usage("session add needs one session id without '\\'");
    const std::string user = a.Option("user", ""), co = a.Option("co", "");
    if (user.empty() || co.empty())
        return Usage("session add needs --user and --co (a session without them is never loaded)");
    tarn::VariableData server, client;
    if (!ParseValue(tarn::VariableData::VT_INT32, a.Option("servertype", "1"), server))
        return Usage("bad --servertype '" + a.Option("servertype", "") + "'");
    if (!ParseValue(tarn::VariableData::VT_INT32, a.Option("clienttype", "0"), client))
        return Usage("bad --clienttype '" + a.Option("clienttype", "") + "'");
    CQvHandleLoc loc;
    int st = OpenSessions(a, loc);
    if (st != EXIT_DONE)
        return st;
    int rc = loc.Treedb_InsertSubKey(id, BS_INSERT_ACCEPT_EXISTING);
    if (rc == 0)
        rc = loc.Treedb_ReopenSubKey(id, -1);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyString("user", user);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyString("co", co);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyInt("servertype", static_cast<int>(server));
    if (rc == 0)
        rc = loc.Treedb_WriteKeyInt("clienttype", static_cast<int>(client));
    return rc == 0 ? EXIT_DONE : Refused("session " + id, rc);
}

int SessionDelete(const CArgs& a) {
    const std::string& id = a.Word(2);
    if (a.m_vecWords.size() != 3 || !IsKeyName(id))
        return Usage("session delete needs one session id without '\\'");
    CQvHandleLoc loc;
    int st = OpenSessions(a, loc);
    if (st != EXIT_DONE)
        return st;
    int rc = loc.Treedb_DeleteSubKey(id);
    return rc == 0 ? EXIT_DONE : Refused("session " + id, rc);
}

// Stands `loc` on ccubase:Config\VerifyCode. `rc` receives the locator's code.
int OpenCodes(const CArgs& a, CQvHandleLoc& loc, int& rc) {
    rc = loc.Treedb_Alloc(a.m_strServer, "ccubase", "Config", "", -1, a.m_nPort);
    if (rc == 0)
        rc = loc.Treedb_ReopenSubKey("VerifyCode", -1);
    return rc == 0 ? EXIT_DONE : EXIT_REFUSED;
}

int CodeList(const CArgs& a) {
    CQvHandleLoc loc;
    int rc = 0;
    std::list<std::string> codes;
    if (OpenCodes(a, loc, rc) == EXIT_DONE)
        rc = loc.Treedb_GetAllSubKeys(codes);
    // No key yet means no codes yet: a fresh installation lists nothing.
    if (rc != 0 && rc != BS_ERR_NO_SUBKEY)
        return Refused("ccubase:Config\\VerifyCode", rc);
    for (const std::string& c : codes)
        std::fprintf(Out(), "%s\n", Printable(c).c_str());
    return EXIT_DONE;
}

int CodeDelete(const CArgs& a) {
    if (a.m_vecWords.size() < 3)
        return Usage("code delete needs at least one code");
    for (size_t i = 2; i < a.m_vecWords.size(); ++i) {
        if (!IsKeyName(a.Word(i)))
            return Usage("bad code '" + a.Word(i) + "'");
    }
    CQvHandleLoc loc;
    int rc = 0;
    if (OpenCodes(a, loc, rc) != EXIT_DONE)
        return Refused("ccubase:Config\\VerifyCode", rc);
    for (size_t i = 2; i < a.m_vecWords.size(); ++i) {
        rc = loc.Treedb_DeleteSubKey(a.Word(i));
        if (rc != 0)
            return Refused("code " + a.Word(i), rc);
    }
    return EXIT_DONE;
}

}  // namespace

FILE* Out() {
    return g_pOut;
}

// The database toolkit prints a few diagnostics of its own on standard output. Standard output
// belongs to the tool's results, so that scripts can read them: results keep the original
// descriptor and everything else printed there goes to standard error.
void KeepResultsApart() {
    std::fflush(stdout);
    int keep = ::dup(STDOUT_FILENO);
    FILE* out = keep < 0 ? nullptr : ::fdopen(keep, "w");
    if (out == nullptr || ::dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        return;  // results and diagnostics then share standard output
    g_pOut = out;
}

int SessionCommand(const CArgs& a) {
    const std::string& sub = a.Word(1);
    if (sub == "list" && a.m_vecWords.size() == 2)
        return SessionList(a);
    if (sub == "show" && a.m_vecWords.size() == 3)
        return SessionShow(a);
    if (sub == "add")
        return SessionAdd(a);
    if (sub == "delete")
        return SessionDelete(a);
    return Usage("session needs list, show ID, add ID --user U --co C, or delete ID");
}

int CodeCommand(const CArgs& a) {
    const std::string& sub = a.Word(1);
    if (sub == "list" && a.m_vecWords.size() == 2)
        return CodeList(a);
    if (sub == "seed") {
        CArgs rest = a;
        rest.m_vecWords.erase(rest.m_vecWords.begin());  // "code seed X" reads as "seed-codes X"
        return SeedCodes(rest);
    }
    if (sub == "delete")
        return CodeDelete(a);
    return Usage("code needs list, seed CODE..., or delete CODE...");
}

}  // namespace bsctl
