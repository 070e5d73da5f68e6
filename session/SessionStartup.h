// The maintenance thread of the library: started once at load, it loads the sessions and the
// protection settings and then sweeps expired CSRF token files for the life of the process.
#pragma once

// Prints what it does, creates the thread running Session_InitData and detaches it; 0, or the
// error number of a failed creation (the library then works without loaded sessions, settings
// or sweeping). Runs once, as a load-time initialiser of libwebsession.so.
int Session_app_init();

// True once the maintenance thread has finished both loads (and gone on to sweeping).
bool Session_InitDataDone();
