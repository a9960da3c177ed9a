#!/bin/sh
# Takes the release archive as a Windows developer would: unpacks it, checks
# it holds exactly what the README promises, builds the example against the
# unpacked header alone, registers the unpacked DLL with regsvr32 in a Wine
# prefix made fresh for this check, and resolves through it.
#
#   check-package.sh ARCHIVE WORKDIR CXX CMAKE WINE_RUN
set -eu
archive=$1
work=$2
cxx=$3
cmake=$4
run=$5

[ -f "$archive" ] || { echo "no archive at $archive"; exit 1; }
rm -rf "$work"
mkdir -p "$work"
export ROUTVANE_WINEPREFIX="$work/prefix"
trap '"$run" --server -k >/dev/null 2>&1 || true' EXIT

(cd "$work" && "$cmake" -E tar xf "$archive")
name=$(basename "$archive" .zip)
pkg="$work/$name"

echo "== contents"
expected="README.md
bin/routvane.dll
bin/routvane.exe
examples/resolve.cpp
include/routvane.h"
got=$(cd "$pkg" && find . -type f | sed 's#^\./##' | LC_ALL=C sort)
if [ "$got" != "$expected" ]; then
  echo "the archive holds:"; echo "$got"
  echo "expected:"; echo "$expected"
  exit 1
fi

echo "== building the example against the unpacked header"
"$cxx" -std=c++17 -Wall -I"$pkg/include" "$pkg/examples/resolve.cpp" -o "$work/resolve.exe" \
  -static -static-libgcc -static-libstdc++ -lole32 -loleaut32 -luuid

echo "== registering the unpacked DLL in a fresh prefix"
"$run" wineboot -i >/dev/null 2>&1
dll=$("$run" winepath -w "$pkg/bin/routvane.dll" 2>/dev/null)
"$run" regsvr32 /s "$dll" || { echo "regsvr32 failed ($?)"; exit 1; }
settings='HKCU\Software\Microsoft\Windows\CurrentVersion\Internet Settings'
"$run" reg add "$settings" /v ProxyEnable /t REG_DWORD /d 1 /f >/dev/null
"$run" reg add "$settings" /v ProxyServer /d proxy.corp.example:3128 /f >/dev/null
"$run" reg add "$settings" /v ProxyOverride /d '<local>' /f >/dev/null

# program, target, port, expected exit code, expected output ("" not compared)
fail=0
check() {
  "$run" "$1" "$2" "$3" >"$work/out" 2>&1 && rc=0 || rc=$?
  out=$(tr -d '\r' <"$work/out")
  if [ "$rc" != "$4" ] || { [ -n "$5" ] && [ "$out" != "$5" ]; }; then
    echo "FAIL $(basename "$1") $2 $3: exit $rc, output [$out]; want exit $4${5:+, output [$5]}"
    fail=1
  else
    echo "ok   $(basename "$1") $2 $3: exit $rc"
  fi
}
echo "== resolving through the registered DLL"
check "$work/resolve.exe" www.example.com 443 0 "PROXY proxy.corp.example:3128"
check "$work/resolve.exe" intranet 80 1 "DIRECT"
# The packed client reaches the same DLL by its ProgID.
check "$pkg/bin/routvane.exe" www.example.com 443 0 ""
check "$pkg/bin/routvane.exe" intranet 80 1 ""
exit "$fail"
