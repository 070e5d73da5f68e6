// The engines' configuration: one setting looked up in the environment, then in the
// installation's <install>/middle/Conf/dbconfig.ini, section [bsapi].
#pragma once

#include <string>

namespace bsapi {

// The value of setting `name` (BSAPI_ENGINE, BSAPI_PG_DSN, ...): the environment variable when it
// is set and not empty, else the line `name=value` of section [bsapi] in dbconfig.ini (read once
// per process), else "".
std::string EngineSetting(const char* name);

// A setting read as a number of milliseconds within [lo, hi]; `dflt` when unset or not a number.
long EngineSettingMs(const char* name, long dflt, long lo, long hi);

}  // namespace bsapi
