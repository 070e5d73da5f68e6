// Test helper for QvUtil_test: prints what the running executable finds about its installation,
// one value per line (install path, GetQVInstallPath of each argument or "Server", run path).
#include <cstdio>

#include "common/QvUtil.h"
#include "common/Util.h"

int main(int argc, char** argv) {
    std::printf("%s\n", CQvUtil::GetInstallPath().c_str());
    const char* name = argc > 1 ? argv[1] : "Server";
    std::printf("%s\n", GetQVInstallPath(name).c_str());
    std::printf("%s\n", CQvUtil::GetCurrentRunPath().c_str());
    std::printf("%s\n", tarn::Util::GetBrenvaleInstallPath().c_str());
    return 0;
}
