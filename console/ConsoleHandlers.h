// The console's request handlers as webharbour calls them (see host/WhModule.h); each runs the
// library's gate first and answers with the JSON envelopes of the response writer.
#pragma once

#include "web/WhInfo.h"

namespace console {

// GET  state    whether the visitor is logged in (user, company) and whether codes are checked
// GET  token    a fresh CSRF-TOKEN cookie (16 seconds) for the next state-changing request
// GET  code     the verification-code picture (SVG) of this form
// POST login    user, password, code
// POST logout
int HandleState(st_wh_info* info, void* user);
int HandleToken(st_wh_info* info, void* user);
int HandleCode(st_wh_info* info, void* user);
int HandleLogin(st_wh_info* info, void* user);
int HandleLogout(st_wh_info* info, void* user);

// GET  companies        every company with its parameters and CCU records
// POST company/save     id, params ("name=value" lines), mode "add" or "edit"
// POST company/delete   id
// POST ccu/save         company, ccu, label, connectstat, useddev, usedmon
// POST ccu/delete       company, ccu
// GET  logins           every login name with its company
// POST loginname/save   name, company, oldname (renames when given and different)
// POST loginname/delete name
int HandleCompanies(st_wh_info* info, void* user);
int HandleCompanySave(st_wh_info* info, void* user);
int HandleCompanyDelete(st_wh_info* info, void* user);
int HandleCcuSave(st_wh_info* info, void* user);
int HandleCcuDelete(st_wh_info* info, void* user);
int HandleLogins(st_wh_info* info, void* user);
int HandleLoginSave(st_wh_info* info, void* user);
int HandleLoginDelete(st_wh_info* info, void* user);

// GET events: the live monitoring events as an event stream (honours Last-Event-ID).
int HandleEvents(st_wh_info* info, void* user);

}  // namespace console
