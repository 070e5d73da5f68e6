// Companies, CCU records and login names through the library's management records (CManageDb),
// with the existence checks the console's answers need.
#include "console/ConsoleRecords.h"

#include <algorithm>
#include <list>

#include "console/ConsoleCommon.h"
#include "db/DbVar.h"
#include "db/PropSetObj.h"
#include "db/QvHandle.h"
#include "manage/ManageDB.h"

namespace console {

namespace {

bool Contains(const std::list<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Whether company `id` exists; `loc` is left allocated on "saas" for the caller's next step.
int CompanyExists(CQvHandleLoc& loc, const std::string& id, bool& exists) {
    std::list<std::string> names;
    int rc = CManageDb::LoadManageCompanyNames(loc, kDbAddress, names, kDbPort);
    exists = rc == 0 && Contains(names, id);
    return rc;
}

CcuRecord ToRecord(const std::string& id, const CSMCCCU& rec) {
    CcuRecord out;
    out.id = id;
    out.connectstat = rec.m_nConnectStat;
    out.registertime = rec.m_tmRegister.ToString();
    out.label = rec.m_strLabel;
    out.useddev = rec.m_nUsedDev;
    out.usedmon = rec.m_nUsedMon;
    return out;
}

}  // namespace

bool IsMissingKey(int rc) {
    return rc == 28 || rc == 40 || rc == 169 || rc == 176;
}

int ListCompanies(std::vector<CompanyRecord>& out) {
    CQvHandleLoc loc;
    std::list<std::string> ids;
    int rc = CManageDb::LoadManageCompanyNames(loc, kDbAddress, ids, kDbPort);
    if (rc != 0)
        return rc;
    for (const std::string& id : ids) {
        CSPropSetObj params;
        std::list<std::string> ccus;
        // A company removed by someone else while we list is simply left out.
        if (CManageDb::LoadaManageCompany(loc, id, params, ccus) != 0)
            continue;
        CompanyRecord company;
        company.id = id;
        CSPropSetObj::PropMap props;
        params.GetPropSet(props);
        for (auto& p : props)
            company.params[p.first] = CDbVar::VariableDataToString(p.second, 3);
        for (const std::string& ccu : ccus) {
            CSMCCCU rec;
            if (CManageDb::LoadManageCCU(loc, id, ccu, rec) == 0)
                company.ccus.push_back(ToRecord(ccu, rec));
        }
        out.push_back(company);
    }
    return 0;
}

int SaveCompany(const std::string& id, const std::map<std::string, std::string>& params,
                bool edit) {
    CQvHandleLoc loc;
    bool exists = false;
    int rc = CompanyExists(loc, id, exists);
    if (rc != 0)
        return rc;
    if (edit && !exists)
        return kMissing;
    if (!edit && exists)
        return kExists;
    CSPropSetObj set;
    for (const auto& p : params)
        set.SetPropertyString(p.first, p.second);
    if (!edit)
        return CManageDb::AddCompanyParam(loc, kDbAddress, id, set, kDbPort);

    // An edit keeps the CCUs: the new values are written over the old ones and the parameters
    // the user took out are deleted, all in one transaction so that a failure changes nothing.
    CSPropSetObj old;
    std::list<std::string> ccus;
    rc = CManageDb::LoadaManageCompany(loc, id, old, ccus);
    if (rc == 0)
        rc = loc.Treedb_BeginTransaction();
    if (rc == 0)
        rc = CManageDb::UpdateCompanyParam(loc, kDbAddress, id, set, kDbPort);
    if (rc == 0)
        rc = loc.Treedb_ReopenSubKey(id, -1);
    CSPropSetObj::PropMap oldProps;
    old.GetPropSet(oldProps);
    for (auto it = oldProps.begin(); rc == 0 && it != oldProps.end(); ++it) {
        if (params.count(it->first) == 0)
            rc = loc.Treedb_DeleteProperty(it->first);
    }
    if (rc == 0)
        rc = loc.Treedb_CommitTransaction();
    // On failure the locator's destructor rolls the transaction back.
    return rc;
}

int DeleteCompany(const std::string& id) {
    CQvHandleLoc loc;
    bool exists = false;
    int rc = CompanyExists(loc, id, exists);
    if (rc != 0)
        return rc;
    if (!exists)
        return kMissing;
    rc = CManageDb::DeleteCompany(kDbAddress, id, kDbPort);
    // Its login names go with it: a login without its company could not log in anyway.
    if (rc == 0)
        rc = CManageDb::DeleteLoginNameOfCompany(kDbAddress, id, kDbPort);
    return rc;
}

int SaveCcu(const std::string& company, const CcuRecord& rec) {
    CQvHandleLoc loc;
    bool exists = false;
    int rc = CompanyExists(loc, company, exists);
    if (rc != 0)
        return rc;
    if (!exists)
        return kMissing;
    CSMCCCU stored;
    // A new CCU is registered now; an edited one keeps its registration time.
    if (CManageDb::LoadManageCCU(loc, company, rec.id, stored) != 0)
        stored.m_tmRegister = tarn::TimeFace::GetCurrent();
    stored.m_nConnectStat = rec.connectstat;
    stored.m_strLabel = rec.label;
    stored.m_nUsedDev = rec.useddev;
    stored.m_nUsedMon = rec.usedmon;
    return CManageDb::UpdateCompanyCCU(loc, company, rec.id, stored, kDbPort);
}

int DeleteCcu(const std::string& company, const std::string& ccu) {
    CQvHandleLoc loc;
    bool exists = false;
    int rc = CompanyExists(loc, company, exists);
    if (rc != 0)
        return rc;
    CSMCCCU probe;
    if (!exists || CManageDb::LoadManageCCU(loc, company, ccu, probe) != 0)
        return kMissing;
    return CManageDb::DeleteCompanyCCU(kDbAddress, company, ccu, kDbPort);
}

int ListLogins(std::map<std::string, std::string>& out) {
    return CManageDb::LoadLoginName(kDbAddress, out, kDbPort);
}

int SaveLogin(const std::string& name, const std::string& company, const std::string& oldName) {
    {
        CQvHandleLoc loc;
        bool exists = false;
        int rc = CompanyExists(loc, company, exists);
        if (rc != 0)
            return rc;
        if (!exists)
            return kMissing;
    }
    if (oldName.empty() || oldName == name)
        return CManageDb::AddLoginName(kDbAddress, name, company, kDbPort);
    std::string taken;
    if (CManageDb::LoginNameGetCompanyId(kDbAddress, name, taken, kDbPort) == 0)
        return kExists;
    return CManageDb::EditLoginName(kDbAddress, oldName, name, company, kDbPort);
}

int DeleteLogin(const std::string& name) {
    std::string company;
    if (LoginCompany(name, company) != 0)
        return kMissing;
    return CManageDb::DeleteLoginName(kDbAddress, name, kDbPort);
}

int LoginCompany(const std::string& name, std::string& company) {
    int rc = CManageDb::LoginNameGetCompanyId(kDbAddress, name, company, kDbPort);
    if (IsMissingKey(rc) || (rc == 0 && company.empty()))
        return kMissing;
    return rc;
}

}  // namespace console
