#!/usr/bin/env bash
# The names libwebsession.so exports: the host looks the session entry points up undecorated,
# page handlers link the decorated ones and the toolkit's classes, and internals stay hidden.
#   usage: exports_test.sh <path to libwebsession.so>
set -euo pipefail
lib="${1:?usage: $0 <libwebsession.so>}"
[ -f "$lib" ] || { echo "FAIL: $lib does not exist (build the websession target first)"; exit 1; }
plain="$(nm -D --defined-only "$lib" | awk '{print $NF}')"
demangled="$(nm -D --defined-only -C "$lib")"
failed=0
fail() { echo "FAIL: $*"; failed=1; }

# C linkage under exactly these names; GetTokenFromCookie(st_wh_info*) and Session_InitData(void*)
# keep C++ linkage, so only their decorated names stand.
for name in BSInitSession BSAddSession BSEraseSession Session_GetCompanyIdBySessionId \
            BSWhetherSessionIdTimeOut BSCheckQvSession Web_SessionisPastdue GetPeerIP \
            Web_SessionInit BSGetTokenCookie BSCheckToken BSAddTokenToCache \
            BSWhetherCheckVerifyCode BSGetVerifyToken BSSetVerifyToken BSGetVerifyCode \
            BSCheckVerifyCode BSCheckXSS sdigest fdigest \
            _Z18GetTokenFromCookieB5cxx11P10st_wh_info _Z16Session_InitDataPv; do
  grep -qx -- "$name" <<<"$plain" || fail "entry point $name is not exported"
done
for name in GetTokenFromCookie Session_InitData; do
  ! grep -qx -- "$name" <<<"$plain" || fail "$name is exported with C linkage"
done
! grep -qE -- '^_Z[0-9]+[sf]digest' <<<"$plain" || fail "a digest function has a decorated name"

# The session table and record, the persistence class, the token collection, the two globals
# and the cookie rule are reached only through the entry points above.
for internal in CGWebSession CSessionDb gw_webSession CWebTokenColl g_WebTokenColl \
                GetCookieValueByRule Session_app_init Session_InitDataDone; do
  ! grep -q -- "$internal" <<<"$demangled" || fail "internal name $internal is exported"
done
# The toolkit page handlers use: every class exported whole.
for api in "CBSWork::" "Url::" "CQvHandleLoc::" "CSPropSetObj::" "CDbVar::" "CManageDb::" \
           "CQvUtil::" "tarn::CIniFile::" "tarn::TimeFace::" "MD5::"; do
  grep -qF -- "$api" <<<"$demangled" || fail "toolkit name $api is not exported"
done
[ "$failed" = 1 ] || echo "OK: entry points exported, internals hidden"
exit "$failed"
