// The console's loopback test fixture: the private tree, its seed, the host and the helpers.
#include "console/ConsoleTestHost.h"

namespace console_test {

const char* const kCode = "q4zt";
wh_test::HostTree* ConsoleLoopback::s_tree = nullptr;
wh_test::HostProcess* ConsoleLoopback::s_host = nullptr;

void ConsoleLoopback::SetUpTestSuite() {
    s_tree = new wh_test::HostTree();
    for (const char* tool : {"bsctl", "consoleuser", "eventgen"})
        ws_test::CopyExecutable(std::string(CONSOLE_BUILD_TREE) + "/bin/" + tool, Tool(tool));
    // Codes checked, tokens checked: the installation's defaults.
    ws_test::WriteFile(s_tree->Path("middle/Conf/middle.ini"),
                       "[main]\nloglevel=0\n[safe]\ntokeninterval=60\ncheckverifycode=1\n"
                       "checktoken=1\n");
    // Loopback stands for a proxy, so tests choose the client's address; log-ins wait at most
    // four seconds once throttled.
    s_tree->WriteHostIni("TrustedProxies=127.0.0.1\n", false, "console=libconsole.so /api\n",
                         "[console]\nLoginFreeTries=5\nLoginWaitSeconds=2\n"
                         "LoginMaxWaitSeconds=4\n");
    Run("bsctl", {"code", "seed", kCode});
    Run("bsctl", {"company", "add", "demo", "qv_companytype:int32=1"});
    Run("bsctl", {"login", "add", "admin", "demo"});
    Run("consoleuser", {"set", "admin", "right-pass"});
    Run("consoleuser", {"set", "loner", "right-pass"});  // a user without a login name
    Run("bsctl", {"login", "add", "ops", "demo"});
    Run("consoleuser", {"set", "ops", "ops-pass"});
    s_host = new wh_test::HostProcess(*s_tree);
    ASSERT_TRUE(s_host->Start()) << s_host->Stdout() << s_host->Stderr();
}

void ConsoleLoopback::TearDownTestSuite() {
    // A clean stop (status 0) also means no sanitizer report at exit.
    if (s_host != nullptr) {
        EXPECT_EQ(0, s_host->Terminate(10)) << s_host->Stderr();
    }
    delete s_host;
    delete s_tree;
    s_host = nullptr;
    s_tree = nullptr;
}

std::string ConsoleLoopback::Tool(const std::string& name) {
    return s_tree->Path("bin/" + name);
}

std::string ConsoleLoopback::Run(const std::string& tool, const std::vector<std::string>& args,
                                 int* status) {
    int rc = -1;
    std::string out = wh_test::RunAsServingUser(Tool(tool), args, &rc);
    if (status != nullptr)
        *status = rc;
    else
        EXPECT_EQ(rc, 0) << tool << " " << (args.empty() ? "" : args[0]) << ": " << out;
    return out;
}

HttpResponse ConsoleLoopback::Call(const std::string& target, const std::string& cookies,
                                   const std::string* body, const std::string& extra) {
    const int port = s_host->Port();
    std::string req = std::string(body ? "POST " : "GET ") + target + " HTTP/1.1\r\n" +
                      "Host: 127.0.0.1:" + std::to_string(port) + "\r\n" +
                      "Referer: http://127.0.0.1:" + std::to_string(port) +
                      "/console/app.html\r\nConnection: close\r\n" + extra;
    if (!cookies.empty())
        req += "Cookie: " + cookies + "\r\n";
    if (body != nullptr)
        req += "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
               std::to_string(body->size()) + "\r\n\r\n" + *body;
    else
        req += "\r\n";
    wh_test::HttpConn conn(port);
    HttpResponse res;
    EXPECT_TRUE(conn.Send(req));
    EXPECT_TRUE(conn.Read(res));
    return res;
}

Json::Value ConsoleLoopback::JsonOf(const HttpResponse& res) {
    Json::Value v;
    Json::CharReaderBuilder b;
    std::string errors;
    std::unique_ptr<Json::CharReader> r(b.newCharReader());
    EXPECT_TRUE(r->parse(res.body.data(), res.body.data() + res.body.size(), &v, &errors))
        << res.body;
    return v;
}

std::string ConsoleLoopback::CookieSet(const HttpResponse& res, const std::string& name,
                                       std::string* whole) {
    for (const auto& h : res.headers) {
        if (h.first == "Set-Cookie" && h.second.compare(0, name.size() + 1, name + "=") == 0) {
            if (whole != nullptr)
                *whole = h.second;
            return h.second.substr(0, h.second.find(';'));
        }
    }
    return "";
}

std::string ConsoleLoopback::LogIn() {
    std::string cookies = CodeKey() + "; " + FreshToken();
    HttpResponse res =
        Post("/api/login", cookies, std::string("user=admin&password=right-pass&code=") + kCode);
    EXPECT_EQ(JsonOf(res)["status"].asString(), "success") << res.body;
    return CookieSet(res, "qvsessionid");
}

}  // namespace console_test
