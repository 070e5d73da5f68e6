// The process-wide handle pools, g_GrossHandlePool, alone in its translation unit so that the
// library's load-time order of process-wide objects can place it.
#include "db/QvHandlePool.h"

CGrossHanlePool g_GrossHandlePool;
