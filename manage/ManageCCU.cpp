// CManageDb: the CCU records below a company's key (replace, update, load, delete) and CSMCCCU.
#include <cstdio>

#include "db/QvHandle.h"
#include "manage/ManageDB.h"
#include "manage/ManageKeys.h"

using namespace manage_keys;

CSMCCCU::CSMCCCU() : m_nConnectStat(0), m_tmRegister(), m_nUsedDev(-1), m_nUsedMon(-1) {}

namespace {

std::string CcuPath(const std::string& companyId, const std::string& ccuId) {
    return companyId + "\\" + ccuId;
}

// Opens the CCU's key and writes the record in a fixed order; a failure part-way leaves the
// properties written so far.
int WriteCcu(CQvHandleLoc& loc, const std::string& path, const CSMCCCU& rec) {
    int rc = loc.Treedb_ReopenSubKey(path, -1);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyInt("connectstat", rec.m_nConnectStat);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyString("qv_registertime", rec.m_tmRegister.ToString());
    if (rc == 0)
        rc = loc.Treedb_WriteKeyString("qvlabel", rec.m_strLabel);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyInt("useddev", rec.m_nUsedDev);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyInt("usedmon", rec.m_nUsedMon);
    return rc;
}

}  // namespace

int CManageDb::AddCompanyCCU(CQvHandleLoc& loc, std::string companyId, std::string ccuId,
                             CSMCCCU& rec, int /*port: the locator carries the server*/) {
    if (!IsKeyName(companyId) || !IsKeyName(ccuId))
        return BS_ERR_BAD_NAME;
    int rc = loc.Treedb_ReopenSubKey(companyId, -1);
    if (rc != 0)
        return rc;
    rc = loc.Treedb_DeleteSubKey(ccuId);
    if (rc != 0 && !IsMissing(rc))
        return rc;
    rc = loc.Treedb_InsertSubKey(ccuId, kInsertAccept);
    if (rc != 0)
        return rc;
    return WriteCcu(loc, CcuPath(companyId, ccuId), rec);
}

int CManageDb::UpdateCompanyCCU(CQvHandleLoc& loc, std::string companyId, std::string ccuId,
                                CSMCCCU& rec, int /*port: the locator carries the server*/) {
    if (!IsKeyName(companyId) || !IsKeyName(ccuId))
        return BS_ERR_BAD_NAME;
    const std::string path = CcuPath(companyId, ccuId);
    int rc = loc.Treedb_ReopenSubKey(path, -1);
    if (IsMissing(rc)) {
        // Insert from the company's key, which must exist: a CCU is never made for a company
        // that is not there.
        rc = loc.Treedb_ReopenSubKey(companyId, -1);
        if (rc == 0)
            rc = loc.Treedb_InsertSubKey(ccuId, kInsertAccept);
    }
    if (rc != 0)
        return rc;
    return WriteCcu(loc, path, rec);
}

int CManageDb::LoadManageCCU(CQvHandleLoc& loc, std::string companyId, std::string ccuId,
                             CSMCCCU& rec) {
    if (!IsKeyName(companyId) || !IsKeyName(ccuId))
        return BS_ERR_BAD_NAME;
    int rc = loc.Treedb_ReopenSubKey(CcuPath(companyId, ccuId), -1);
    if (rc != 0)
        return rc;
    rec.m_nConnectStat = loc.Treedb_GetPropertyInt("connectstat", 0);
    const std::string text = loc.Treedb_GetPropertyString("qv_registertime", "");
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (std::sscanf(text.c_str(), "%d-%d-%d %d:%d:%d", &year, &month, &day, &hour, &minute,
                    &second) == 6) {
        rec.m_tmRegister = tarn::TimeFace(year, month, day, hour, minute, second);
    }
    rec.m_strLabel = loc.Treedb_GetPropertyString("qvlabel", "");
    rec.m_nUsedDev = loc.Treedb_GetPropertyInt("useddev", -1);
    rec.m_nUsedMon = loc.Treedb_GetPropertyInt("usedmon", -1);
    return 0;
}

int CManageDb::DeleteCompanyCCU(std::string address, std::string companyId, std::string ccuId,
                                int port) {
    if (!IsKeyName(companyId) || !IsKeyName(ccuId))
        return BS_ERR_BAD_NAME;
    CQvHandleLoc loc;
    int rc = loc.Treedb_Alloc(address, kTree, kCompanyKey, "", kCreateFlags, port);
    if (rc != 0)
        return rc;
    rc = loc.Treedb_DeleteSubKey(CcuPath(companyId, ccuId));
    return IsMissing(rc) ? 0 : rc;
}
