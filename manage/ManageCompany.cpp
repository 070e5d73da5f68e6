// CManageDb: the company records of the "saas" tree (list, load, replace, update, delete, type).
#include "db/PropSetObj.h"
#include "db/QvHandle.h"
#include "manage/ManageDB.h"
#include "manage/ManageKeys.h"

using namespace manage_keys;

namespace {

// Puts `loc` on the "company" main key. A locator that already holds a tree handle is moved
// rather than allocated again, because a second plain allocation of one locator is refused; the
// move keeps the caller's transaction open.
int OpenCompanies(CQvHandleLoc& loc, const std::string& address, int port) {
    if (loc.GetConfHandle() != nullptr && loc.GetHandleType() == 0) {
        return loc.Treedb_ReopenSubKey("", kCreateFlags, kCompanyKey, "", kTree);
    }
    return loc.Treedb_Alloc(address, kTree, kCompanyKey, "", kCreateFlags, port);
}

// Writes every property of `params` in name order into the key the locator stands on.
int WriteParams(CQvHandleLoc& loc, const CSPropSetObj& params) {
    CSPropSetObj::PropMap props;
    params.GetPropSet(props);
    for (const auto& kv : props) {
        int rc = loc.Treedb_WriteKeyVariable(kv.first, kv.second);
        if (rc != 0)
            return rc;
    }
    return 0;
}

}  // namespace

int CManageDb::LoadManageCompanyNames(CQvHandleLoc& loc, std::string address,
                                      std::list<std::string>& names, int port) {
    int rc = OpenCompanies(loc, address, port);
    if (rc != 0)
        return rc;
    return loc.Treedb_GetAllSubKeys(names);
}

int CManageDb::LoadaManageCompany(CQvHandleLoc& loc, std::string companyId, CSPropSetObj& params,
                                  std::list<std::string>& ccus) {
    if (!IsKeyName(companyId))
        return BS_ERR_BAD_NAME;
    int rc = loc.Treedb_ReopenSubKey(companyId, -1);
    if (rc != 0)
        return rc;
    params.Clear();
    ccus.clear();
    std::list<std::string> names;
    rc = loc.Treedb_GetAllPropertyNames(names);
    if (rc != 0)
        return rc;
    for (const std::string& name : names) {
        tarn::VariableData value;
        rc = loc.Treedb_GetProperty(name, value);
        if (rc != 0)
            return rc;
        params.SetProperty(name, value);
    }
    return loc.Treedb_GetAllSubKeys(ccus);
}

int CManageDb::AddCompanyParam(CQvHandleLoc& loc, std::string address, std::string companyId,
                               const CSPropSetObj& params, int port) {
    if (!IsKeyName(companyId))
        return BS_ERR_BAD_NAME;
    int rc = OpenCompanies(loc, address, port);
    if (rc != 0)
        return rc;
    // The old record goes whole, its CCUs included; a company seen for the first time has none.
    rc = loc.Treedb_DeleteSubKey(companyId);
    if (rc != 0 && rc != BS_ERR_NO_KEY)
        return rc;
    rc = loc.Treedb_InsertSubKey(companyId, kInsertAccept);
    if (rc != 0)
        return rc;
    rc = loc.Treedb_ReopenSubKey(companyId, -1);
    if (rc != 0)
        return rc;
    return WriteParams(loc, params);
}

int CManageDb::UpdateCompanyParam(CQvHandleLoc& loc, std::string address, std::string companyId,
                                  const CSPropSetObj& params, int port) {
    if (!IsKeyName(companyId))
        return BS_ERR_BAD_NAME;
    int rc = OpenCompanies(loc, address, port);
    if (rc != 0)
        return rc;
    rc = loc.Treedb_ReopenSubKey(companyId, -1);
    if (IsMissing(rc)) {
        // Insert from the main key: the failed reopen may have left the handle anywhere.
        rc = loc.Treedb_ReopenSubKey("", -1);
        if (rc == 0)
            rc = loc.Treedb_InsertSubKey(companyId, kInsertAccept);
        if (rc == 0)
            rc = loc.Treedb_ReopenSubKey(companyId, -1);
    }
    if (rc != 0)
        return rc;
    return WriteParams(loc, params);
}

int CManageDb::DeleteCompany(std::string address, std::string companyId, int port) {
    if (!IsKeyName(companyId))
        return BS_ERR_BAD_NAME;
    CQvHandleLoc loc;
    int rc = loc.Treedb_Alloc(address, kTree, kCompanyKey, "", kCreateFlags, port);
    if (rc != 0)
        return rc;
    rc = loc.Treedb_DeleteSubKey(companyId);
    return IsMissing(rc) ? 0 : rc;
}

int CManageDb::SetCompanyType(std::string address, std::string companyId, int type, int port) {
    if (!IsKeyName(companyId))
        return BS_ERR_BAD_NAME;
    CQvHandleLoc loc;
    int rc = loc.Treedb_Alloc(address, kTree, kCompanyKey, "", kCreateFlags, port);
    if (rc != 0)
        return rc;
    rc = loc.Treedb_ReopenSubKey(companyId, -1);
    if (rc != 0)
        return rc;
    return loc.Treedb_WriteKeyInt("qv_companytype", type);
}
