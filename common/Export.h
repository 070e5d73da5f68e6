// The one export macro of libwebsession.so: everything else is built with hidden visibility.
#pragma once

// WS_API marks what the shared library exports: the entry points the host calls, the exported
// C++ functions and the toolkit classes (exported whole) that page handlers use.
#define WS_API __attribute__((visibility("default")))

// Entry points exported under their undecorated names take C linkage (they still take C++
// types, which is why the warning about C linkage of C++ types is silenced where they are
// declared).
#define WS_EXTERN_C extern "C"
