// The console's request handlers as webharbour calls them (see host/WhModule.h), each running the
// library's gate first and answering with JSON envelopes {"status","errmsg","data"}; and the
// pieces they are built from that tests reach directly: the code picture and the event form.
#pragma once

#include <string>

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

// ---- the verification-code picture (CodePicture.cpp)

// An SVG picture of `code` with jittered characters and noise. An empty code draws `notice`
// (plain, small) over the noise instead.
std::string CodePictureSvg(const std::string& code, const std::string& notice);
// `text` with the five XML special characters escaped.
std::string XmlEscape(const std::string& text);
// A random non-negative number for BSGetVerifyCode's pick.
int RandomIndex();

// ---- monitoring events (ConsoleEvents.cpp)

// The message queue (server 127.0.0.1, default port) that eventgen and the service's monitors
// push events into, as JSON text: {"time","company","host","severity","message"}.
extern const char* const kEventQueue;

// One event as the page gets it: a one-line JSON object with exactly the five fields as strings.
// Text that is no JSON object becomes the message of an event of severity "unknown"; a missing
// time is filled from `pushedAt` (seconds since the epoch, local time), or now when it is 0.
std::string NormaliseEvent(const std::string& text, long pushedAt);

// The id of event `seq` of this process: "<process tag>-<seq>".
std::string EventId(unsigned long long seq);

// The sequence after which a reconnecting stream resumes, from its Last-Event-ID: the number of
// an id this process gave out, else 0 (everything the ring holds).
unsigned long long ResumeAfter(const std::string& lastEventId);

}  // namespace console
