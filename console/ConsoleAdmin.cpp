// Handlers of the management pages: tenant companies with their parameters and CCU records, and
// login names with their companies. Every change needs a live session and a fresh CSRF token.
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "console/ConsoleCommon.h"
#include "console/ConsoleHandlers.h"
#include "console/ConsoleRecords.h"
#include "console/ConsoleUsers.h"

namespace console {

namespace {

// Gate with the session check, then the CSRF token: true when a change may go ahead.
bool AdmitChange(st_wh_info* info, Params& params) {
    return RunGate(info, params, true) && CheckToken(info);
}

// Answers a store result: success with `data`, or the refusal in words.
int Answer(st_wh_info* info, int rc, Json::Value data = Json::Value(Json::objectValue)) {
    if (rc == 0)
        ReplyOk(info, data);
    else if (rc == kExists)
        ReplyErrorId(info, "exists");
    else if (rc == kMissing)
        ReplyErrorId(info, "not_found");
    else
        ReplyErrorId(info, "db_error", std::to_string(rc));
    return 0;
}

// "name=value" lines into a map; false (with `bad` the offending line) for a line without "="
// or with an unusable name.
bool ParseParamLines(const std::string& text, std::map<std::string, std::string>& out,
                     std::string& bad) {
    size_t pos = 0;
    while (pos <= text.size()) {
        size_t end = text.find('\n', pos);
        if (end == std::string::npos)
            end = text.size();
        std::string line = Trim(text.substr(pos, end - pos));
        pos = end + 1;
        if (line.empty())
            continue;
        size_t eq = line.find('=');
        std::string name = eq == std::string::npos ? "" : Trim(line.substr(0, eq));
        if (!ValidName(name)) {
            bad = line;
            return false;
        }
        out[name] = Trim(line.substr(eq + 1));
    }
    return true;
}

// A whole decimal number in int range; `def` for an empty text.
bool ParseInt(const std::string& text, int def, int& out) {
    std::string t = Trim(text);
    if (t.empty()) {
        out = def;
        return true;
    }
    char* end = nullptr;
    errno = 0;
    long v = std::strtol(t.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < INT_MIN || v > INT_MAX)
        return false;
    out = static_cast<int>(v);
    return true;
}

}  // namespace

int HandleCompanies(st_wh_info* info, void*) {
    Params params;
    if (!RunGate(info, params, true))
        return 0;
    std::vector<CompanyRecord> companies;
    int rc = ListCompanies(companies);
    Json::Value list(Json::arrayValue);
    for (const CompanyRecord& c : companies) {
        Json::Value item(Json::objectValue);
        item["id"] = c.id;
        item["params"] = Json::Value(Json::objectValue);
        for (const auto& p : c.params)
            item["params"][p.first] = p.second;
        item["ccus"] = Json::Value(Json::arrayValue);
        for (const CcuRecord& u : c.ccus) {
            Json::Value ccu(Json::objectValue);
            ccu["id"] = u.id;
            ccu["connectstat"] = u.connectstat;
            ccu["registertime"] = u.registertime;
            ccu["label"] = u.label;
            ccu["useddev"] = u.useddev;
            ccu["usedmon"] = u.usedmon;
            item["ccus"].append(ccu);
        }
        list.append(item);
    }
    return Answer(info, rc, list);
}

int HandleCompanySave(st_wh_info* info, void*) {
    Params params;
    if (!AdmitChange(info, params))
        return 0;
    const std::string id = Trim(Param(params, "id"));
    if (!ValidName(id))
        return ReplyErrorId(info, "bad_name", id);
    std::map<std::string, std::string> values;
    std::string bad;
    if (!ParseParamLines(Param(params, "params"), values, bad))
        return ReplyErrorId(info, "bad_param", bad);
    return Answer(info, SaveCompany(id, values, Param(params, "mode") == "edit"));
}

int HandleCompanyDelete(st_wh_info* info, void*) {
    Params params;
    if (!AdmitChange(info, params))
        return 0;
    const std::string id = Trim(Param(params, "id"));
    if (!ValidName(id))
        return ReplyErrorId(info, "bad_name", id);
    return Answer(info, DeleteCompany(id));
}

int HandleCcuSave(st_wh_info* info, void*) {
    Params params;
    if (!AdmitChange(info, params))
        return 0;
    CcuRecord rec;
    const std::string company = Trim(Param(params, "company"));
    rec.id = Trim(Param(params, "ccu"));
    if (!ValidName(company) || !ValidName(rec.id))
        return ReplyErrorId(info, "bad_name", ValidName(company) ? rec.id : company);
    rec.label = Trim(Param(params, "label"));
    if (!ParseInt(Param(params, "connectstat"), 0, rec.connectstat) ||
        !ParseInt(Param(params, "useddev"), -1, rec.useddev) ||
        !ParseInt(Param(params, "usedmon"), -1, rec.usedmon))
        return ReplyErrorId(info, "bad_number");
    int rc = SaveCcu(company, rec);
    if (rc == kMissing)
        return ReplyErrorId(info, "company_missing", company);
    return Answer(info, rc);
}

int HandleCcuDelete(st_wh_info* info, void*) {
    Params params;
    if (!AdmitChange(info, params))
        return 0;
    const std::string company = Trim(Param(params, "company"));
    const std::string ccu = Trim(Param(params, "ccu"));
    if (!ValidName(company) || !ValidName(ccu))
        return ReplyErrorId(info, "bad_name");
    return Answer(info, DeleteCcu(company, ccu));
}

int HandleLogins(st_wh_info* info, void*) {
    Params params;
    if (!RunGate(info, params, true))
        return 0;
    std::map<std::string, std::string> logins;
    int rc = ListLogins(logins);
    Json::Value list(Json::arrayValue);
    for (const auto& l : logins) {
        Json::Value item(Json::objectValue);
        item["name"] = l.first;
        item["company"] = l.second;
        list.append(item);
    }
    return Answer(info, rc, list);
}

int HandleLoginSave(st_wh_info* info, void*) {
    Params params;
    if (!AdmitChange(info, params))
        return 0;
    const std::string name = Trim(Param(params, "name"));
    const std::string company = Trim(Param(params, "company"));
    const std::string oldName = Trim(Param(params, "oldname"));
    if (!ValidName(name) || !ValidName(company) || (!oldName.empty() && !ValidName(oldName)))
        return ReplyErrorId(info, "bad_name");
    int rc = SaveLogin(name, company, oldName);
    if (rc == kMissing)
        return ReplyErrorId(info, "company_missing", company);
    return Answer(info, rc);
}

int HandleLoginDelete(st_wh_info* info, void*) {
    Params params;
    if (!AdmitChange(info, params))
        return 0;
    const std::string name = Trim(Param(params, "name"));
    if (!ValidName(name))
        return ReplyErrorId(info, "bad_name");
    return Answer(info, DeleteLogin(name));
}

}  // namespace console
