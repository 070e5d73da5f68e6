// Console helpers: the two-language text table, JSON answers, cookies, the gate wrapper and the
// session of a request.
#include "console/ConsoleCommon.h"

#include <sys/random.h>

#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdio>

#include "db/QvHandle.h"
#include "host/WhModule.h"
#include "session/SessionApi.h"
#include "web/BSWork.h"

namespace console {

const char* const kDbAddress = "127.0.0.1";
const WhRegistry* g_pHost = nullptr;

namespace {
std::atomic<long long> g_nStartedMs{0};  // steady-clock milliseconds at registration

long long NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
}  // namespace

void MarkStarted() {
    g_nStartedMs = NowMs();
}

bool JustStarted() {
    // The library's start-up thread loads the codes about one second after load.
    return g_nStartedMs != 0 && NowMs() - g_nStartedMs < 10000;
}

namespace {

struct TextPair {
    const char* zh;
    const char* en;
};

// Every message the console's handlers send. The pages carry their own texts; these are the
// refusals and results the server words itself.
const std::map<std::string, TextPair>& Texts() {
    static const std::map<std::string, TextPair> texts = {
        {"markup",
         {"输入中含有不允许的标记或脚本，请求已拒绝",
          "The input holds markup or script that is not allowed; the request was refused"}},
        {"missing", {"缺少必填项", "A required field is missing"}},
        {"bad_name",
         {"名称无效：只能使用 1 到 64 个字母、数字或 _ - . @",
          "Invalid name: use 1 to 64 letters, digits or _ - . @"}},
        {"bad_number", {"数值无效", "Invalid number"}},
        {"no_codes",
         {"服务器没有可用的验证码，请联系管理员",
          "The server has no verification codes; ask the administrator"}},
        {"no_codes_short", {"暂无验证码，请稍后刷新", "No code yet; reload later"}},
        {"no_code_form",
         {"验证码已失效，请刷新验证码图片", "The verification code expired; reload the picture"}},
        {"wrong_code", {"验证码错误", "Wrong verification code"}},
        {"wrong_password", {"用户名或密码错误", "Wrong user name or password"}},
        {"no_company",
         {"该登录名没有所属公司，无法登录",
          "This login name belongs to no company and cannot log in"}},
        {"session_failed", {"无法建立会话", "The session could not be created"}},
        {"db_error", {"数据库操作失败", "The database refused the operation"}},
        {"not_found", {"记录不存在", "No such record"}},
        {"exists", {"记录已存在", "The record exists already"}},
        {"company_missing", {"所属公司不存在", "The company does not exist"}},
        {"bad_param", {"参数行格式应为 名称=值", "Parameter lines must read name=value"}},
        {"not_logged_in", {"尚未登录", "Not logged in"}},
        {"throttled",
         {"登录失败次数过多，请在 {0} 秒后再试",
          "Too many failed log-ins for this name or address; try again in {0} seconds"}},
    };
    return texts;
}

}  // namespace

bool IsEnglish(st_wh_info* info) {
    std::string lan = CBSWork().GetLan(info);
    return lan.compare(0, 2, "en") == 0;
}

std::string Text(st_wh_info* info, const std::string& id) {
    auto it = Texts().find(id);
    if (it == Texts().end())
        return id;
    return IsEnglish(info) ? it->second.en : it->second.zh;
}

// The console's envelopes have the form and text of the library's (styled JSON, keys sorted), but
// go out as application/json: a browser opening a handler's address directly then shows the
// data as text and never runs markup that a stored value might hold.
void SendEnvelope(st_wh_info* info, const Json::Value& envelope) {
    CBSWork().SendInfoToWeb(info, envelope.toStyledString(), 2, false, 0, "application/json");
}

void ReplyOk(st_wh_info* info, Json::Value data) {
    Json::Value envelope(Json::objectValue);
    envelope["status"] = "success";
    envelope["errmsg"] = "";
    envelope["data"] = data;
    SendEnvelope(info, envelope);
}

void ReplyError(st_wh_info* info, const std::string& message) {
    Json::Value envelope(Json::objectValue);
    envelope["status"] = "failed";
    envelope["errmsg"] = message;
    SendEnvelope(info, envelope);
}

int ReplyErrorId(st_wh_info* info, const std::string& id, const std::string& detail) {
    ReplyError(info, detail.empty() ? Text(info, id) : Text(info, id) + ": " + detail);
    return 0;
}

void CountRefusal(st_wh_info* info, const char* reason) {
    if (g_pHost != nullptr && g_pHost->apiVersion >= 2 && g_pHost->countRefusal != nullptr)
        g_pHost->countRefusal(info, reason);
}

void AddCookie(st_wh_info* info, const std::string& value) {
    if (info != nullptr && info->resp != nullptr)
        info->resp->extraHeaders.emplace_back("Set-Cookie", value);
}

std::string CookieValue(st_wh_info* info, const std::string& name) {
    if (info == nullptr || info->head == nullptr)
        return "";
    const std::string& all = info->head->cookie;
    size_t pos = 0;
    while (pos < all.size()) {
        size_t end = all.find(';', pos);
        if (end == std::string::npos)
            end = all.size();
        std::string piece = Trim(all.substr(pos, end - pos));
        size_t eq = piece.find('=');
        if (eq != std::string::npos && piece.compare(0, eq, name) == 0 && eq == name.size())
            return piece.substr(eq + 1);
        pos = end + 1;
    }
    return "";
}

bool RunGate(st_wh_info* info, Params& params, bool checkSession) {
    // Every sender of the library sets a real status before it writes; an impossible one marks
    // "nothing answered yet", the only way to tell the gate's silent refusal from its answered
    // ones.
    const int32_t kUnanswered = -1;
    info->resp->status = kUnanswered;
    std::string callback;
    if (Web_SessionInit(info, callback, params, checkSession ? 1 : 0, 1, true) == 0) {
        info->resp->status = 200;
        return true;
    }
    if (info->resp->status == kUnanswered) {
        info->resp->status = 200;
        CountRefusal(info, "script_filter");
        ReplyErrorId(info, "markup");
    }
    return false;
}

bool CheckToken(st_wh_info* info) {
    return BSCheckToken(info) == 1;
}

bool CurrentSession(st_wh_info* info, SessionInfo& out) {
    out.id = BSCheckQvSession(info);
    if (out.id.empty() || !Session_GetCompanyIdBySessionId(out.id, out.company))
        return false;
    // The user id is kept with the persisted session record written at log-in.
    CQvHandleLoc loc;
    if (loc.Treedb_Alloc(kDbAddress, "master", "Session", "", 0x80000, kDbPort) == 0 &&
        loc.Treedb_ReopenSubKey(out.id, -1) == 0)
        out.user = loc.Treedb_GetPropertyString("user", "");
    return true;
}

std::string Param(const Params& params, const std::string& name) {
    auto it = params.find(name);
    return it == params.end() ? std::string() : it->second;
}

std::string Trim(const std::string& text) {
    size_t b = 0, e = text.size();
    while (b < e && std::isspace(static_cast<unsigned char>(text[b])))
        ++b;
    while (e > b && std::isspace(static_cast<unsigned char>(text[e - 1])))
        --e;
    return text.substr(b, e - b);
}

std::string RandomHex(size_t bytes) {
    std::string raw(bytes, '\0');
    size_t got = 0;
    while (got < bytes) {
        ssize_t n = getrandom(&raw[got], bytes - got, 0);
        if (n > 0)
            got += static_cast<size_t>(n);
    }
    std::string hex;
    char buf[3];
    for (unsigned char c : raw) {
        std::snprintf(buf, sizeof buf, "%02x", c);
        hex += buf;
    }
    return hex;
}

}  // namespace console
