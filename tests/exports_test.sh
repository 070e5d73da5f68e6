#!/usr/bin/env bash
# Checks the names libwebsession.so exports for the session entry points: the host looks the
# undecorated ones up by name, page handlers link the decorated ones, and the session table's
# internals stay hidden.
#   usage: exports_test.sh <path to libwebsession.so>
set -euo pipefail

lib="${1:?usage: $0 <libwebsession.so>}"
if [ ! -f "$lib" ]; then
  echo "FAIL: $lib does not exist (build the websession target first)"
  exit 1
fi

exported="$(nm -D --defined-only "$lib" | awk '{print $NF}')"
failed=0

# Entry points with C linkage: present under exactly these names.
undecorated=(
  BSInitSession BSAddSession BSEraseSession Session_GetCompanyIdBySessionId
  BSWhetherSessionIdTimeOut BSCheckQvSession Web_SessionisPastdue GetPeerIP
  Web_SessionInit BSGetTokenCookie BSCheckToken BSAddTokenToCache
  BSWhetherCheckVerifyCode BSGetVerifyToken BSSetVerifyToken BSGetVerifyCode BSCheckVerifyCode
  BSCheckXSS sdigest fdigest
)
for name in "${undecorated[@]}"; do
  if ! grep -qx -- "$name" <<<"$exported"; then
    echo "FAIL: undecorated entry point $name is not exported"
    failed=1
  fi
done

# Entry points that keep C++ linkage: present under their decorated names only.
decorated=(
  "_Z18GetTokenFromCookieB5cxx11P10st_wh_info"  # std::string GetTokenFromCookie(st_wh_info*)
  "_Z16Session_InitDataPv"                       # void* Session_InitData(void*)
)
for name in "${decorated[@]}"; do
  if ! grep -qx -- "$name" <<<"$exported"; then
    echo "FAIL: decorated entry point $name is not exported"
    failed=1
  fi
done
for name in GetTokenFromCookie Session_InitData; do
  if grep -qx -- "$name" <<<"$exported"; then
    echo "FAIL: $name is exported with C linkage"
    failed=1
  fi
done
# The digest functions have C linkage only: no decorated twin.
if grep -qE -- '^_Z[0-9]+[sf]digest' <<<"$exported"; then
  echo "FAIL: a digest function is exported with a decorated name"
  failed=1
fi

# Internals that must stay hidden: the session table and record, the persistence class, the
# token collection, the two globals and the cookie rule are reached only through the entry
# points above.
demangled="$(nm -D --defined-only -C "$lib")"
for internal in CGWebSession CSessionDb gw_webSession CWebTokenColl g_WebTokenColl \
                GetCookieValueByRule Session_app_init Session_InitDataDone; do
  if grep -q -- "$internal" <<<"$demangled"; then
    echo "FAIL: internal name $internal is exported:"
    grep -- "$internal" <<<"$demangled" | head -5
    failed=1
  fi
done

# The toolkit page handlers use: every class exported whole.
for api in "CBSWork::" "Url::" "CQvHandleLoc::" "CSPropSetObj::" "CDbVar::" "CManageDb::" \
           "CQvUtil::" "tarn::CIniFile::" "tarn::TimeFace::" "MD5::"; do
  if ! grep -qF -- "$api" <<<"$demangled"; then
    echo "FAIL: toolkit name $api is not exported"
    failed=1
  fi
done

if [ "$failed" = 0 ]; then
  echo "OK: ${#undecorated[@]} undecorated and ${#decorated[@]} decorated session entry points exported, internals hidden"
fi
exit "$failed"
