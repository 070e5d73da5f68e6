// CManageDb and CSMCCCU: management records of the tenant companies, their CCU records and the
// login names, kept in the tree database "saas"; plus the start-up wait for the database.
#pragma once

#include <list>
#include <map>
#include <string>

#include "common/Export.h"
#include "common/TimeFace.h"

class CQvHandleLoc;
class CSPropSetObj;

// Layout in the tree database "saas":
//
//   main key "company"
//     <companyId>                one property per company parameter, and "qv_companytype" (int)
//       <ccuId>                  "connectstat" (int), "qv_registertime" (string, local time
//                                "YYYY-MM-DD hh:mm:ss"), "qvlabel" (string), "useddev" (int),
//                                "usedmon" (int)
//   main key "loginname"
//     <login name>               "companyid" (string): the owning company
//
// The record of one CCU. The values are the unit's bookkeeping: stored and returned unchanged,
// never compared with any limit here.
struct WS_API CSMCCCU {
    CSMCCCU();

    int m_nConnectStat;           // "connectstat"; 0 when absent on loading
    tarn::TimeFace m_tmRegister;  // "qv_registertime"; kept as it was when the text is unreadable
    std::string m_strLabel;       // "qvlabel"
    int m_nUsedDev;               // "useddev"; -1 when absent on loading
    int m_nUsedMon;               // "usedmon"; -1 when absent on loading
};

// Every operation is static and returns the tree database's result code: 0 success, 1 when the
// locator holds no handle or none could be had, otherwise the first failing code of the database
// (28 a sub-key path is missing, 40 the tree is missing, 176 the key is missing, 189 a bad name,
// ...). Nothing throws.
//
// Company ids, CCU ids and login names are single key names: an empty name or one holding the
// path separator '\' is refused with 189 before the database is touched, so that no operation
// can land on the level above or on a nested key by mistake.
class WS_API CManageDb {
public:
    // Blocks until the tree database at `address` accepts an allocation, retrying every 500 ms
    // without limit.
    static void WaitDBStart(std::string address);

    // ---- companies (ManageCompany.cpp)
    //
    // The operations that take `address` and `port` allocate `loc` on "saas"/"company" (open flag
    // 0x80000: a fresh installation gets the tree and the main key). A locator that already holds
    // a tree handle is moved there instead (staying on the server it was allocated on), so one
    // locator can serve a list, a load and a write in a row; an open transaction of the caller
    // stays open.

    // The ids of all companies; `names` is replaced.
    static int LoadManageCompanyNames(CQvHandleLoc& loc, std::string address,
                                      std::list<std::string>& names, int port);
    // One company's properties ("qv_companytype" included) and the ids of its CCUs. `loc` must
    // already be allocated on "saas" (for example by LoadManageCompanyNames). `params` and
    // `ccus` are replaced; on a failure they hold what was read so far.
    static int LoadaManageCompany(CQvHandleLoc& loc, std::string companyId, CSPropSetObj& params,
                                  std::list<std::string>& ccus);
    // Replaces the company key whole: the old key, its CCUs and every old property go, then the
    // key is made anew holding exactly `params`.
    static int AddCompanyParam(CQvHandleLoc& loc, std::string address, std::string companyId,
                               const CSPropSetObj& params, int port);
    // Writes `params` into the company's key, creating the key when it is missing; properties
    // not named in `params` and the CCUs stay.
    static int UpdateCompanyParam(CQvHandleLoc& loc, std::string address, std::string companyId,
                                  const CSPropSetObj& params, int port);
    // Deletes the company with its CCUs, through a locator of its own. An unknown company is no
    // failure (0).
    static int DeleteCompany(std::string address, std::string companyId, int port);
    // Writes "qv_companytype" of an existing company (a missing company gives 28).
    static int SetCompanyType(std::string address, std::string companyId, int type, int port);

    // ---- CCU records (ManageCCU.cpp)
    //
    // These work on the caller's locator, allocated on "saas" (by one of the company operations
    // above). They move it to the company's key themselves before touching the CCU, so that a
    // locator left on another key never deletes or creates a sibling by mistake; the company must
    // exist (28 otherwise). `port` is accepted for callers that pass it along; the server is the
    // one the locator was allocated on.

    // Replaces the CCU's key: old properties of that CCU vanish.
    static int AddCompanyCCU(CQvHandleLoc& loc, std::string companyId, std::string ccuId,
                             CSMCCCU& rec, int port);
    // Writes the CCU record into its key, creating the key when it is missing; other properties
    // of the CCU stay.
    static int UpdateCompanyCCU(CQvHandleLoc& loc, std::string companyId, std::string ccuId,
                                CSMCCCU& rec, int port);
    // Reads the CCU record; on a failure `rec` is untouched.
    static int LoadManageCCU(CQvHandleLoc& loc, std::string companyId, std::string ccuId,
                             CSMCCCU& rec);
    // Deletes one CCU of a company with a locator of its own; an unknown CCU or company is no
    // failure (0).
    static int DeleteCompanyCCU(std::string address, std::string companyId, std::string ccuId,
                                int port);

    // ---- login names (ManageLogin.cpp)
    //
    // Each operation uses a locator of its own, opened with
    //   Treedb_AllocEx(address, "saas", "loginname", "", "", 0x80000, port,
    //                  true, false, false, 2)
    // which means: tree "saas", main key "loginname", no key name, standing on the "loginname"
    // level itself (empty sub key); 0x80000 creates the tree and the level on a fresh
    // installation; bCreatePath true would create a named sub key, but with the empty sub key
    // nothing beyond the level is made, so that looking up an unknown login never creates it;
    // bFresh false reuses a pooled connection; bReallocate false because the locator is new;
    // insert mode 2 accepts parts that exist. Login keys are created only by the insert calls.
    //
    // A missing login is no failure for the deletions (codes 28, 40 and 176 mean "absent").

    // Adds the login, or moves an existing login to `companyId`.
    static int AddLoginName(std::string address, std::string loginName, std::string companyId,
                            int port);
    static int DeleteLoginName(std::string address, std::string loginName, int port);
    // The owning company of a login; a missing login gives its code (28) and leaves `companyId`
    // untouched.
    static int LoginNameGetCompanyId(std::string address, std::string loginName,
                                     std::string& companyId, int port);
    // Renames a login: `oldName` goes (missing is fine), `newName` is made holding `companyId`.
    static int EditLoginName(std::string address, std::string oldName, std::string newName,
                             std::string companyId, int port);
    // For each pair (login name, company id) in map order, replaces that login's key by a fresh
    // one holding the company id. Pairs handled before a failure stay done.
    static int EditAllLoginName(std::string address, std::map<std::string, std::string>& logins,
                                int port);
    // Deletes exactly the logins whose "companyid" equals `companyId` (byte-wise comparison).
    static int DeleteLoginNameOfCompany(std::string address, std::string companyId, int port);
    // Every login name with its company id; `logins` is replaced. A login deleted by someone else
    // between the listing and its read is left out.
    static int LoadLoginName(std::string address, std::map<std::string, std::string>& logins,
                             int port);
};
