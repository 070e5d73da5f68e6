// CManageDb: the login names of the "saas" tree, each a key holding its company's id.
#include "db/DbVar.h"
#include "db/QvHandle.h"
#include "manage/ManageDB.h"
#include "manage/ManageKeys.h"

using namespace manage_keys;

namespace {

const char* const kCompanyProp = "companyid";

// Stands a fresh locator on the "loginname" level (the options are explained in ManageDB.h).
int OpenLogins(CQvHandleLoc& loc, const std::string& address, int port) {
    return loc.Treedb_AllocEx(address, kTree, kLoginKey, "", "", kCreateFlags, port, true, false,
                              false, kInsertAccept);
}

// Creates the login's key below the level (an existing one is accepted) and writes its company.
// Inserting goes from the level itself, because the locator may stand on another login's key.
int WriteLogin(CQvHandleLoc& loc, const std::string& loginName, const std::string& companyId) {
    int rc = loc.Treedb_ReopenSubKey("", -1);
    if (rc == 0)
        rc = loc.Treedb_InsertSubKey(loginName, kInsertAccept);
    if (rc == 0)
        rc = loc.Treedb_ReopenSubKey(loginName, -1);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyString(kCompanyProp, companyId);
    return rc;
}

// Removes the login's key; an absent key counts as removed.
int RemoveLogin(CQvHandleLoc& loc, const std::string& loginName) {
    int rc = loc.Treedb_ReopenSubKey(loginName, -1);
    if (rc == 0)
        rc = loc.Treedb_DeleteThisKey();
    return IsMissing(rc) ? 0 : rc;
}

}  // namespace

int CManageDb::AddLoginName(std::string address, std::string loginName, std::string companyId,
                            int port) {
    if (!IsKeyName(loginName))
        return BS_ERR_BAD_NAME;
    CQvHandleLoc loc;
    int rc = OpenLogins(loc, address, port);
    if (rc != 0)
        return rc;
    return WriteLogin(loc, loginName, companyId);
}

int CManageDb::DeleteLoginName(std::string address, std::string loginName, int port) {
    if (!IsKeyName(loginName))
        return BS_ERR_BAD_NAME;
    CQvHandleLoc loc;
    int rc = OpenLogins(loc, address, port);
    if (rc != 0)
        return rc;
    return RemoveLogin(loc, loginName);
}

int CManageDb::LoginNameGetCompanyId(std::string address, std::string loginName,
                                     std::string& companyId, int port) {
    if (!IsKeyName(loginName))
        return BS_ERR_BAD_NAME;
    CQvHandleLoc loc;
    int rc = OpenLogins(loc, address, port);
    if (rc == 0)
        rc = loc.Treedb_ReopenSubKey(loginName, -1);
    if (rc != 0)
        return rc;
    tarn::VariableData value;
    rc = loc.Treedb_GetProperty(kCompanyProp, value);
    if (rc != 0)
        return rc;
    companyId = CDbVar::VariableDataToString(value);
    return 0;
}

int CManageDb::EditLoginName(std::string address, std::string oldName, std::string newName,
                             std::string companyId, int port) {
    if (!IsKeyName(oldName) || !IsKeyName(newName))
        return BS_ERR_BAD_NAME;
    CQvHandleLoc loc;
    int rc = OpenLogins(loc, address, port);
    if (rc == 0)
        rc = RemoveLogin(loc, oldName);
    if (rc != 0)
        return rc;
    return WriteLogin(loc, newName, companyId);
}

int CManageDb::EditAllLoginName(std::string address, std::map<std::string, std::string>& logins,
                                int port) {
    // Every name is checked before anything changes, so that a bad name costs no half-done batch.
    for (const auto& kv : logins) {
        if (!IsKeyName(kv.first))
            return BS_ERR_BAD_NAME;
    }
    CQvHandleLoc loc;
    int rc = OpenLogins(loc, address, port);
    if (rc != 0)
        return rc;
    for (const auto& kv : logins) {
        rc = RemoveLogin(loc, kv.first);
        if (rc == 0)
            rc = WriteLogin(loc, kv.first, kv.second);
        if (rc != 0)
            return rc;
    }
    return 0;
}

int CManageDb::DeleteLoginNameOfCompany(std::string address, std::string companyId, int port) {
    // An empty id would match every login that lacks its company property.
    if (!IsKeyName(companyId))
        return BS_ERR_BAD_NAME;
    CQvHandleLoc loc;
    int rc = OpenLogins(loc, address, port);
    std::list<std::string> names;
    if (rc == 0)
        rc = loc.Treedb_GetAllSubKeys(names);
    if (rc != 0)
        return rc;
    for (const std::string& name : names) {
        rc = loc.Treedb_ReopenSubKey(name, -1);
        if (IsMissing(rc))
            continue;  // deleted by someone else since the listing
        if (rc != 0)
            return rc;
        if (loc.Treedb_GetPropertyString(kCompanyProp, "") != companyId)
            continue;
        rc = loc.Treedb_DeleteThisKey();
        if (rc != 0 && !IsMissing(rc))
            return rc;
    }
    return 0;
}

int CManageDb::LoadLoginName(std::string address, std::map<std::string, std::string>& logins,
                             int port) {
    CQvHandleLoc loc;
    int rc = OpenLogins(loc, address, port);
    std::list<std::string> names;
    if (rc == 0)
        rc = loc.Treedb_GetAllSubKeys(names);
    if (rc != 0)
        return rc;
    logins.clear();
    for (const std::string& name : names) {
        rc = loc.Treedb_ReopenSubKey(name, -1);
        if (IsMissing(rc))
            continue;  // deleted by someone else since the listing
        if (rc != 0)
            return rc;
        logins[name] = loc.Treedb_GetPropertyString(kCompanyProp, "");
    }
    return 0;
}
