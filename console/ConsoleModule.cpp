// libconsole.so's entry point: registers the console's handlers with webharbour under the
// module's prefix (the installation's middle.ini mounts it at /api).
#include <cstdio>

#include "console/ConsoleCommon.h"
#include "console/ConsoleHandlers.h"
#include "console/LoginThrottle.h"
#include "host/WhModule.h"

namespace {

struct Route {
    const char* path;
    WhHandler handler;
};

const Route kRoutes[] = {
    {"state", &console::HandleState},
    {"token", &console::HandleToken},
    {"code", &console::HandleCode},
    {"login", &console::HandleLogin},
    {"logout", &console::HandleLogout},
    {"companies", &console::HandleCompanies},
    {"company/save", &console::HandleCompanySave},
    {"company/delete", &console::HandleCompanyDelete},
    {"ccu/save", &console::HandleCcuSave},
    {"ccu/delete", &console::HandleCcuDelete},
    {"logins", &console::HandleLogins},
    {"loginname/save", &console::HandleLoginSave},
    {"loginname/delete", &console::HandleLoginDelete},
    {"events", &console::HandleEvents},
};

}  // namespace

extern "C" WH_MODULE_EXPORT int wh_module_register(WhRegistry* registry) {
    if (registry == nullptr || registry->apiVersion < WH_MODULE_API_VERSION)
        return -1;
    console::g_pHost = registry;
    console::MarkStarted();
    console::SetThrottleSettings(console::LoadThrottleSettings(registry->installPath));
    for (const Route& r : kRoutes) {
        if (registry->addHandler(registry, r.path, r.handler, nullptr) != 0) {
            std::fprintf(stderr, "console: cannot register %s/%s\n", registry->prefix, r.path);
            return -1;
        }
    }
    return 0;
}
