#!/usr/bin/env bash
# WPAD discovery in the lab, shown step by step with the administrator's
# tool, `routvane --detect --trace`, run in the lab's client namespace: first
# through DHCP (dnsmasq answers the DHCPINFORM with option 252), then, with
# DHCP silent, through the wpad names of the machine's DNS domain. Prints
# what is found and the trace lines that show the way (entry and exit lines
# and packet dumps left out; LAB_RAW=1 shows every trace line as written).
#
# Usage: lab/demo.sh [BUILD_DIR]   (default: build/ of this tree)
set -euo pipefail
LAB_BUILD=$(cd "${1:-$(dirname "$0")/../build}" && pwd)
. "$(dirname "$0")/lab.sh"
ROUTVANE=$LAB_BUILD/bin/routvane.exe
[ -f "$ROUTVANE" ] || lab_fail "$ROUTVANE is not built"
HOST=pc7.$LAB_DOMAIN

# Trace lines "stamp: <tab>level<tab>component<tab>text (tid=..;function=F)"
# as "  trace HH:MM:SS.mmm F: text" (a message of several lines, such as a
# script, loses only its prefix and tail); other lines (the answer) as they are.
shorten() {
  if [ -n "${LAB_RAW:-}" ]; then cat; return; fi
  sed -E -e '/\):  Entered \(tid=|\): Exited \(delta = |\tBuffer contents:  /d' \
    -e 's/^[0-9]{4}-[0-9]{2}-[0-9]{2} ([0-9:.]+): \t[A-Za-z]+\t[^\t]*\t(.*) \(tid=[0-9]+;function=([^)]*)\)$/  trace \1 \3: \2/' \
    -e 's/^[0-9]{4}-[0-9]{2}-[0-9]{2} ([0-9:.]+): \t[A-Za-z]+\t[^\t]*\t/  trace \1: /' \
    -e '/^ \(tid=[0-9]+;function=[^)]*\)$/d'
}

# Through a file, not a pipe: the Wine services that the first program of
# the prefix starts keep its standard output open, so a pipe would never end.
detect() {
  local out=$LAB_DIR/demo.out rc=0
  echo "\$ routvane --detect --trace www.example.com      (on $HOST)"
  lab_client "$HOST" "$ROUTVANE" --detect --trace www.example.com >"$out" 2>&1 || rc=$?
  tr -d '\r' <"$out" | shorten
  echo "(exit code $rc)"
}

lab_up
echo "== the client: $HOST ($LAB_CLIENT_IP); the servers: $LAB_SERVER_IP"
echo "== DHCP option 252: $LAB_DHCP_URL (answers DIRECT)"
echo "== DNS: wpad.$LAB_DOMAIN -> $LAB_SERVER_IP, serving wpad.dat (answers PROXY proxy.$LAB_DOMAIN:3128)"

echo
echo "== 1. DHCP: dnsmasq answers DHCPINFORM with option 252"
lab_start_dhcp
detect
lab_stop_dhcp

echo
echo "== 2. DHCP silent (no server on port 67): the wpad names are tried"
detect
echo "-- what the lab's DNS server was asked"
grep -o 'query\[A\] [^ ]*' "$LAB_DIR/dnsmasq-dns.log" | sort | uniq -c || true
