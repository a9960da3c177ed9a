#!/usr/bin/env bash
# The main job: set up and build, then show what a program in a private Wine
# prefix is told. The prefix's WinINet settings name a fixed proxy with a
# bypass list; routvane.exe resolves a proxied and two bypassed targets and
# the trace file shows why.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh >/dev/null

export ROUTVANE_WINEPREFIX="$PWD/build/demo-prefix"
run=build/wine-run
trap '"$run" --server -k >/dev/null 2>&1 || true' EXIT
if [ ! -f "$ROUTVANE_WINEPREFIX/system.reg" ]; then
  echo "== making a private Wine prefix"
  "$run" wineboot -i >/dev/null 2>&1
fi
"$run" --server -p >/dev/null 2>&1 || true

dll=$("$run" winepath -w "$PWD/build/bin/routvane.dll" 2>/dev/null)
echo "== regsvr32 routvane.dll"
"$run" regsvr32 /s "$dll"

settings='HKCU\Software\Microsoft\Windows\CurrentVersion\Internet Settings'
echo "== WinINet settings: proxy proxy.corp.example:3128, bypass <local>;*.intranet.example"
"$run" reg add "$settings" /v ProxyEnable /t REG_DWORD /d 1 /f >/dev/null
"$run" reg add "$settings" /v ProxyServer /t REG_SZ /d proxy.corp.example:3128 /f >/dev/null
"$run" reg add "$settings" /v ProxyOverride /t REG_SZ /d '<local>;*.intranet.example' /f >/dev/null

trace_unix="$ROUTVANE_WINEPREFIX/drive_c/routvane-trace.txt"
rm -f "$trace_unix"
"$run" reg add 'HKLM\Software\Ovrena' /v Debug-routvane.exe /t REG_SZ /d 'C:\routvane-trace.txt' /f >/dev/null

resolve() {
  echo
  echo "== routvane $*"
  "$run" build/bin/routvane.exe "$@" && rc=0 || rc=$?
  echo "(exit code $rc)"
}
resolve www.example.com 443
resolve intranet 80
resolve wiki.intranet.example 443
resolve --json www.example.com 443

echo
echo "== why: the trace file's lines from the settings walk"
grep -E 'INTERNET_OPTION_VERSION|PROXY_TYPE|ParseProxy\(|proxy.corp.example|Returning' "$trace_unix" |
  cut -f2- | sed 's/ (tid=.*//' | head -n 20
