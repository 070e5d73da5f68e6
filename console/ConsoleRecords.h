// Management records the console edits: tenant companies with their parameters and CCU records,
// and login names with their company, in the tree database "saas" (main keys "company" and
// "loginname"), through the library's CManageDb.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace console {

struct CcuRecord {
    std::string id;
    int connectstat = 0;
    std::string registertime;  // "YYYY-MM-DD hh:mm:ss", local time
    std::string label;
    int useddev = -1;
    int usedmon = -1;
};

struct CompanyRecord {
    std::string id;
    std::map<std::string, std::string> params;  // every property of the company key, as text
    std::vector<CcuRecord> ccus;
};

// Results: the tree database's status, 0 for success. kExists and kMissing are the console's own
// answers (the record exists already / does not exist).
enum { kExists = -2, kMissing = -3 };

int ListCompanies(std::vector<CompanyRecord>& out);
// Adds a company (kExists when the id is taken) or, with `edit`, replaces the parameters of an
// existing one (kMissing when absent), keeping its CCU records.
int SaveCompany(const std::string& id, const std::map<std::string, std::string>& params, bool edit);
// Removes the company with its CCU records and every login name that belongs to it.
int DeleteCompany(const std::string& id);

// Writes a CCU record below an existing company (kMissing when the company is absent). A new
// record gets the current time as its registration time; an edit keeps the stored one.
int SaveCcu(const std::string& company, const CcuRecord& rec);
int DeleteCcu(const std::string& company, const std::string& ccu);

// Login name -> company id.
int ListLogins(std::map<std::string, std::string>& out);
// Adds or edits a login name; `oldName` non-empty and different renames it. kMissing when the
// company does not exist, kExists when the new name is taken by another login.
int SaveLogin(const std::string& name, const std::string& company, const std::string& oldName);
int DeleteLogin(const std::string& name);
// The company of a login name; kMissing when the login is unknown.
int LoginCompany(const std::string& name, std::string& company);

// True when the database status means "that key does not exist".
bool IsMissingKey(int rc);

}  // namespace console
