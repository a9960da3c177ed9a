#!/bin/sh
# Checks a built DLL: its export table holds exactly the expected names, and
# it imports only Windows system DLLs.
set -eu
objdump=$1
dll=$2
expected="DllCanUnloadNow DllGetClassObject DllRegisterServer DllUnregisterServer regcomp regexec regfree"
exports=$("$objdump" -p "$dll" | awk '/\[Ordinal\/Name Pointer\] Table/{t=1;next} t&&/^\t\[/{print $NF;next} t&&!/^\t\[/{t=0}' | sort | tr '\n' ' ' | sed 's/ $//')
if [ "$exports" != "$expected" ]; then
  echo "exports differ: got [$exports] want [$expected]"
  exit 1
fi
system="advapi32.dll kernel32.dll msvcrt.dll ole32.dll oleaut32.dll ws2_32.dll wsock32.dll iphlpapi.dll netapi32.dll user32.dll shell32.dll wininet.dll shlwapi.dll"
bad=0
for dll_name in $("$objdump" -p "$dll" | awk '/DLL Name:/{print tolower($3)}'); do
  case " $system " in
    *" $dll_name "*) ;;
    *) echo "imports a non-system DLL: $dll_name"; bad=1 ;;
  esac
done
[ "$bad" = 0 ] && echo "exports and imports as expected"
exit "$bad"
