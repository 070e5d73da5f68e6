// bsctl record commands for the management tree "saas": companies with their parameters, their
// CCU records and the login names, through CManageDb.
#include <cstdio>

#include "db/PropSetObj.h"
#include "db/QvHandle.h"
#include "manage/ManageDB.h"
#include "tools/bsctl/BsCtl.h"

namespace bsctl {

namespace {

bool IsKeyName(const std::string& name) {
    return !name.empty() && name.find('\\') == std::string::npos;
}

// Reads NAME=VALUE or NAME:TYPE=VALUE words from index `first` on; a value without a type is a
// string. False (with the message printed) on the first bad word.
bool ReadParams(const CArgs& a, size_t first, CSPropSetObj& params) {
    for (size_t i = first; i < a.m_vecWords.size(); ++i) {
        const std::string& w = a.Word(i);
        size_t eq = w.find('=');
        if (eq == std::string::npos || eq == 0) {
            Usage("parameter '" + w + "' is not NAME=VALUE or NAME:TYPE=VALUE");
            return false;
        }
        std::string name = w.substr(0, eq), type = "string";
        size_t colon = name.find(':');
        if (colon != std::string::npos) {
            type = name.substr(colon + 1);
            name = name.substr(0, colon);
        }
        unsigned char tag = TypeTag(type);
        tarn::VariableData value;
        if (name.empty() || tag == 0 || !ParseValue(tag, w.substr(eq + 1), value)) {
            Usage("bad parameter '" + w + "'");
            return false;
        }
        params.SetProperty(name, value);
    }
    return true;
}

// True when `id` is one of the companies; `rc` receives the code of a failed listing.
bool CompanyExists(const CArgs& a, const std::string& id, int& rc) {
    CQvHandleLoc loc;
    std::list<std::string> names;
    rc = CManageDb::LoadManageCompanyNames(loc, a.m_strServer, names, a.m_nPort);
    for (const std::string& n : names) {
        if (n == id)
            return true;
    }
    return false;
}

int CompanyList(const CArgs& a) {
    CQvHandleLoc loc;
    std::list<std::string> names;
    int rc = CManageDb::LoadManageCompanyNames(loc, a.m_strServer, names, a.m_nPort);
    if (rc != 0)
        return Refused("saas:company", rc);
    for (const std::string& n : names)
        std::fprintf(Out(), "%s\n", Printable(n).c_str());
    return EXIT_DONE;
}

int CompanyShow(const CArgs& a) {
    const std::string& id = a.Word(2);
    CQvHandleLoc loc;
    std::list<std::string> names, ccus;
    int rc = CManageDb::LoadManageCompanyNames(loc, a.m_strServer, names, a.m_nPort);
    CSPropSetObj params;
    if (rc == 0)
        rc = CManageDb::LoadaManageCompany(loc, id, params, ccus);
    if (rc == BS_ERR_NO_SUBKEY) {
        std::fprintf(stderr, "bsctl: no company '%s'\n", id.c_str());
        return EXIT_REFUSED;
    }
    if (rc != 0)
        return Refused("company " + id, rc);
    CSPropSetObj::PropMap props;
    params.GetPropSet(props);
    for (const auto& kv : props) {
        std::fprintf(Out(), "%s\t%s\t%s\n", Printable(kv.first).c_str(),
                     TypeName(kv.second.GetType()), Printable(kv.second).c_str());
    }
    for (const std::string& c : ccus)
        std::fprintf(Out(), "ccu\t%s\n", Printable(c).c_str());
    return EXIT_DONE;
}

// "company add" replaces the company whole; "company update" writes into it.
int CompanyWrite(const CArgs& a, bool replace) {
    const std::string& id = a.Word(2);
    if (!IsKeyName(id))
        return Usage("bad company id '" + id + "'");
    CSPropSetObj params;
    if (!ReadParams(a, 3, params))
        return EXIT_USAGE;
    if (!replace && params.Empaty())
        return Usage("company update needs at least one NAME=VALUE");
    CQvHandleLoc loc;
    int rc = replace ? CManageDb::AddCompanyParam(loc, a.m_strServer, id, params, a.m_nPort)
                     : CManageDb::UpdateCompanyParam(loc, a.m_strServer, id, params, a.m_nPort);
    return rc == 0 ? EXIT_DONE : Refused("company " + id, rc);
}

int CompanyDelete(const CArgs& a) {
    const std::string& id = a.Word(2);
    if (!IsKeyName(id))
        return Usage("bad company id '" + id + "'");
    // The library takes an unknown company as deleted; the tool tells the user instead.
    int rc = 0;
    if (!CompanyExists(a, id, rc)) {
        if (rc != 0)
            return Refused("saas:company", rc);
        std::fprintf(stderr, "bsctl: no company '%s'\n", id.c_str());
        return EXIT_REFUSED;
    }
    rc = CManageDb::DeleteCompany(a.m_strServer, id, a.m_nPort);
    return rc == 0 ? EXIT_DONE : Refused("company " + id, rc);
}

int CompanyType(const CArgs& a) {
    tarn::VariableData type;
    if (!ParseValue(tarn::VariableData::VT_INT32, a.Word(3), type))
        return Usage("bad company type '" + a.Word(3) + "'");
    if (!IsKeyName(a.Word(2)))
        return Usage("bad company id '" + a.Word(2) + "'");
    int rc = CManageDb::SetCompanyType(a.m_strServer, a.Word(2), static_cast<int>(type), a.m_nPort);
    return rc == 0 ? EXIT_DONE : Refused("company " + a.Word(2), rc);
}

}  // namespace

int CompanyCommand(const CArgs& a) {
    const std::string& sub = a.Word(1);
    size_t n = a.m_vecWords.size();
    if (sub == "list" && n == 2)
        return CompanyList(a);
    if (sub == "show" && n == 3)
        return CompanyShow(a);
    if ((sub == "add" || sub == "update") && n >= 3)
        return CompanyWrite(a, sub == "add");
    if (sub == "delete" && n == 3)
        return CompanyDelete(a);
    if (sub == "type" && n == 4)
        return CompanyType(a);
    return Usage(
        "company needs list, show ID, add ID [NAME=VALUE...], update ID NAME=VALUE..., delete ID "
        "or type ID N");
}

}  // namespace bsctl
