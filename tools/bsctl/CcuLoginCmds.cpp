// bsctl record commands for the CCU records of a company and for the login names, through
// CManageDb.
#include <cstdio>

#include "db/QvHandle.h"
#include "manage/ManageDB.h"
#include "tools/bsctl/BsCtl.h"

namespace bsctl {

namespace {

bool IsKeyName(const std::string& name) {
    return !name.empty() && name.find('\\') == std::string::npos;
}

bool ReadInt(const CArgs& a, const char* option, int& value) {
    const std::string text = a.Option(option, "");
    if (text.empty())
        return true;  // not given: keep
    tarn::VariableData v;
    if (!ParseValue(tarn::VariableData::VT_INT32, text, v))
        return false;
    value = static_cast<int>(v);
    return true;
}

// Applies the record options that were given; false (with the message printed) on a bad one.
bool ApplyOptions(const CArgs& a, CSMCCCU& rec) {
    const struct {
        const char* name;
        int* field;
    } ints[] = {{"connectstat", &rec.m_nConnectStat},
                {"useddev", &rec.m_nUsedDev},
                {"usedmon", &rec.m_nUsedMon}};
    for (const auto& i : ints) {
        if (!ReadInt(a, i.name, *i.field)) {
            Usage(std::string("bad --") + i.name + " '" + a.Option(i.name, "") + "'");
            return false;
        }
    }
    const std::string when = a.Option("registertime", "");
    if (!when.empty()) {
        int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0;
        char extra = 0;
        if (std::sscanf(when.c_str(), "%d-%d-%d %d:%d:%d%c", &y, &mo, &d, &h, &mi, &s, &extra) !=
            6) {
            Usage("bad --registertime '" + when + "' (YYYY-MM-DD hh:mm:ss)");
            return false;
        }
        rec.m_tmRegister = tarn::TimeFace(y, mo, d, h, mi, s);
    }
    rec.m_strLabel = a.Option("label", rec.m_strLabel);
    return true;
}

// Allocates `loc` on the management tree and loads the CCU; `rc` receives the code.
int OpenCcu(const CArgs& a, CQvHandleLoc& loc, CSMCCCU& rec, int& rc) {
    std::list<std::string> names;
    rc = CManageDb::LoadManageCompanyNames(loc, a.m_strServer, names, a.m_nPort);
    if (rc == 0)
        rc = CManageDb::LoadManageCCU(loc, a.Word(2), a.Word(3), rec);
    return rc;
}

int NoSuch(const std::string& what) {
    std::fprintf(stderr, "bsctl: no %s\n", what.c_str());
    return EXIT_REFUSED;
}

int CcuWrite(const CArgs& a, bool replace) {
    const std::string &co = a.Word(2), &ccu = a.Word(3);
    CQvHandleLoc loc;
    CSMCCCU rec;
    rec.m_tmRegister = tarn::TimeFace::GetCurrent();
    int rc = 0;
    if (!replace) {
        OpenCcu(a, loc, rec, rc);  // an update starts from the stored record when there is one
        if (rc != 0 && rc != BS_ERR_NO_SUBKEY)
            return Refused("ccu " + co + "\\" + ccu, rc);
    } else {
        std::list<std::string> names;
        rc = CManageDb::LoadManageCompanyNames(loc, a.m_strServer, names, a.m_nPort);
        if (rc != 0)
            return Refused("saas:company", rc);
    }
    if (!ApplyOptions(a, rec))
        return EXIT_USAGE;
    rc = replace ? CManageDb::AddCompanyCCU(loc, co, ccu, rec, a.m_nPort)
                 : CManageDb::UpdateCompanyCCU(loc, co, ccu, rec, a.m_nPort);
    if (rc == BS_ERR_NO_SUBKEY)
        return NoSuch("company '" + co + "'");
    return rc == 0 ? EXIT_DONE : Refused("ccu " + co + "\\" + ccu, rc);
}

int CcuShowOrDelete(const CArgs& a, bool remove) {
    const std::string &co = a.Word(2), &ccu = a.Word(3);
    CQvHandleLoc loc;
    CSMCCCU rec;
    int rc = 0;
    OpenCcu(a, loc, rec, rc);
    if (rc == BS_ERR_NO_SUBKEY)
        return NoSuch("ccu '" + ccu + "' of company '" + co + "'");
    if (rc != 0)
        return Refused("ccu " + co + "\\" + ccu, rc);
    if (remove) {
        rc = CManageDb::DeleteCompanyCCU(a.m_strServer, co, ccu, a.m_nPort);
        return rc == 0 ? EXIT_DONE : Refused("ccu " + co + "\\" + ccu, rc);
    }
    std::fprintf(Out(), "connectstat\t%d\nregistertime\t%s\nlabel\t%s\nuseddev\t%d\nusedmon\t%d\n",
                 rec.m_nConnectStat, rec.m_tmRegister.ToString().c_str(),
                 Printable(rec.m_strLabel).c_str(), rec.m_nUsedDev, rec.m_nUsedMon);
    return EXIT_DONE;
}

// The company of a login: EXIT_DONE, or the refusal already printed.
int Resolve(const CArgs& a, const std::string& login, std::string& company) {
    int rc = CManageDb::LoginNameGetCompanyId(a.m_strServer, login, company, a.m_nPort);
    if (rc == BS_ERR_NO_SUBKEY || rc == BS_ERR_NO_KEY)
        return NoSuch("login '" + login + "'");
    return rc == 0 ? EXIT_DONE : Refused("login " + login, rc);
}

int LoginList(const CArgs& a) {
    std::map<std::string, std::string> logins;
    int rc = CManageDb::LoadLoginName(a.m_strServer, logins, a.m_nPort);
    if (rc != 0)
        return Refused("saas:loginname", rc);
    for (const auto& kv : logins)
        std::fprintf(Out(), "%s\t%s\n", Printable(kv.first).c_str(), Printable(kv.second).c_str());
    return EXIT_DONE;
}

int LoginMove(const CArgs& a) {
    const std::string &from = a.Word(2), &to = a.Word(3);
    std::string company, other;
    int st = Resolve(a, from, company);
    if (st != EXIT_DONE)
        return st;
    // Renaming onto another login would take that login over silently.
    if (to != from && CManageDb::LoginNameGetCompanyId(a.m_strServer, to, other, a.m_nPort) == 0) {
        std::fprintf(stderr, "bsctl: login '%s' exists (company '%s')\n", to.c_str(),
                     other.c_str());
        return EXIT_REFUSED;
    }
    if (a.m_vecWords.size() == 5)
        company = a.Word(4);
    int rc = CManageDb::EditLoginName(a.m_strServer, from, to, company, a.m_nPort);
    return rc == 0 ? EXIT_DONE : Refused("login " + to, rc);
}

}  // namespace

int CcuCommand(const CArgs& a) {
    const std::string& sub = a.Word(1);
    if (a.m_vecWords.size() != 4 || !IsKeyName(a.Word(2)) || !IsKeyName(a.Word(3)))
        return Usage("ccu needs add, update, show or delete with COMPANY CCU (names without '\\')");
    if (sub == "add" || sub == "update")
        return CcuWrite(a, sub == "add");
    if (sub == "show" || sub == "delete")
        return CcuShowOrDelete(a, sub == "delete");
    return Usage("ccu needs add, update, show or delete");
}

int LoginCommand(const CArgs& a) {
    const std::string& sub = a.Word(1);
    size_t n = a.m_vecWords.size();
    for (size_t i = 2; i < n; ++i) {
        if (!IsKeyName(a.Word(i)))
            return Usage("bad name '" + a.Word(i) + "'");
    }
    std::string company;
    if (sub == "list" && n == 2)
        return LoginList(a);
    if (sub == "show" && n == 3) {
        int st = Resolve(a, a.Word(2), company);
        if (st == EXIT_DONE)
            std::fprintf(Out(), "%s\n", Printable(company).c_str());
        return st;
    }
    if (sub == "add" && n == 4) {
        int rc = CManageDb::AddLoginName(a.m_strServer, a.Word(2), a.Word(3), a.m_nPort);
        return rc == 0 ? EXIT_DONE : Refused("login " + a.Word(2), rc);
    }
    if (sub == "move" && (n == 4 || n == 5))
        return LoginMove(a);
    if (sub == "delete" && n == 3) {
        int st = Resolve(a, a.Word(2), company);
        if (st != EXIT_DONE)
            return st;
        int rc = CManageDb::DeleteLoginName(a.m_strServer, a.Word(2), a.m_nPort);
        return rc == 0 ? EXIT_DONE : Refused("login " + a.Word(2), rc);
    }
    return Usage(
        "login needs list, show NAME, add NAME COMPANY, move OLD NEW [COMPANY] or "
        "delete NAME");
}

}  // namespace bsctl
