// SessionStats: figures of the session table for the host's monitoring page.
#pragma once

#include "common/Export.h"

// The number of session records the table holds now (live sessions and those idle past their
// time-out that the four-hourly sweep has not removed yet).
WS_EXTERN_C WS_API long long Session_TableSize();
