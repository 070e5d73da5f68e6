// Internal to common/: the resolved path of the running executable (readlink of /proc/self/exe,
// at most 4095 bytes, then realpath), or "" when it cannot be read. Not exported.
#pragma once

#include <string>

namespace ws_internal {

std::string ResolvedExePath();

}  // namespace ws_internal
