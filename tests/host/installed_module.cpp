// A handler module built outside the project against an installed tree (tests/host/install_test.sh
// compiles it with pkg-config's flags): the gate, then an answer through the response writer.
#include <map>
#include <string>

#include "host/WhModule.h"
#include "session/SessionApi.h"
#include "web/BSWork.h"

static int Hello(st_wh_info* info, void*) {
    std::string callback;
    std::map<std::string, std::string> params;
    if (Web_SessionInit(info, callback, params, 0, 1, true) != 0)
        return 400;
    CBSWork().SendInfoToWeb(info, "installed module: hello " + params["name"], 2, false, 0,
                            "text/plain");
    return 0;
}

extern "C" WH_MODULE_EXPORT int wh_module_register(WhRegistry* reg) {
    return reg->apiVersion >= WH_MODULE_API_VERSION ? reg->addHandler(reg, "hello", &Hello, nullptr)
                                                    : -1;
}
