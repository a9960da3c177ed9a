#!/usr/bin/env bash
# The main job: set up and build, then show what a program in a private Wine
# prefix is told. The prefix's default browser is Netscape Navigator, whose
# preferences name a PAC script served from a loopback HTTP server; the
# WinINet settings name a fixed proxy with a bypass list. routvane.exe
# resolves targets answered by the script's proxy, by the script's DIRECT,
# and by the WinINet bypass list, and the trace file shows why.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh >/dev/null

export ROUTVANE_WINEPREFIX="$PWD/build/demo-prefix"
run=build/wine-run
work=$(mktemp -d)
server_pid=
cleanup() {
  [ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null || true
  "$run" --server -k >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT

if [ ! -f "$ROUTVANE_WINEPREFIX/system.reg" ]; then
  echo "== making a private Wine prefix"
  "$run" wineboot -i >/dev/null 2>&1
fi
"$run" --server -p >/dev/null 2>&1 || true
reg() { "$run" reg add "$@" /f >/dev/null; }

echo "== regsvr32 routvane.dll"
"$run" regsvr32 /s "$("$run" winepath -w "$PWD/build/bin/routvane.dll" 2>/dev/null)"

echo "== serving examples/proxy.pac on 127.0.0.1"
cp examples/proxy.pac "$work/"
scripts/serve-dir.py "$work" "$work/port" 600 &
server_pid=$!
for _ in $(seq 100); do [ -s "$work/port" ] && break; sleep 0.1; done
[ -s "$work/port" ] || { echo "the PAC server did not start"; exit 1; }
pac_url="http://127.0.0.1:$(cat "$work/port")/proxy.pac"

echo "== default browser: Netscape Navigator, its prefs.js naming $pac_url"
reg 'HKCR\.html' /ve /d RoutvaneDemoDocument
reg 'HKCR\RoutvaneDemoDocument\shell\open\command' /ve /d '"C:\Program Files\Netscape\Communicator\Program\netscape.exe" "%1"'
navigator='HKLM\Software\Netscape\Netscape Navigator'
reg "$navigator" /v CurrentVersion /d '4.79 (en)'
reg "$navigator\\4.79 (en)\\Main" /v 'Install Directory' /d 'C:\Program Files\Netscape\Communicator\Program'
reg 'HKCU\Software\Netscape\Netscape Navigator\biff' /v CurrentUser /d demo
profile="$ROUTVANE_WINEPREFIX/drive_c/Program Files/Netscape/Communicator/Users/demo"
mkdir -p "$profile"
cat >"$profile/prefs.js" <<PREFS
user_pref("network.proxy.type", 2);
user_pref("network.proxy.autoconfig_url", "$pac_url");
PREFS

echo "== WinINet settings: proxy proxy.corp.example:3128, bypass <local>;*.intranet.example"
settings='HKCU\Software\Microsoft\Windows\CurrentVersion\Internet Settings'
reg "$settings" /v ProxyEnable /t REG_DWORD /d 1
reg "$settings" /v ProxyServer /d proxy.corp.example:3128
reg "$settings" /v ProxyOverride /d '<local>;*.intranet.example'

trace="$ROUTVANE_WINEPREFIX/drive_c/routvane-trace.txt"
rm -f "$trace"
reg 'HKLM\Software\Ovrena' /v Debug-routvane.exe /d 'C:\routvane-trace.txt'

resolve() {
  echo
  echo "== routvane $*"
  "$run" build/bin/routvane.exe "$@" && rc=0 || rc=$?
  echo "(exit code $rc)"
}
resolve www.example.com 443          # the script's proxy
resolve wiki.intranet.example 443    # the script's DIRECT
resolve intranet 80                  # the script leaves it to WinINet, whose bypass list applies
resolve --json www.example.com 443

echo
echo "== why: from the trace file"
cut -f4- "$trace" | sed 's/\r$//' | awk '
  /;function=RoutvaneBrowser\)$/ && !/Entered|Exited/ { sub(/ \(tid=.*/, ""); print "-- " $0; next }
  /Using Netscape preferences|Proxy type is|FindProxyForURL returned|Found empty proxy|INTERNET_OPTION_VERSION|PROXY_TYPE/ {
    sub(/ \(tid=.*/, ""); print "   " $0 }'
