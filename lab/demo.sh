#!/usr/bin/env bash
# WPAD discovery in the lab, shown step by step: first through DHCP (dnsmasq
# answers the DHCPINFORM with option 252), then, with DHCP silent, through
# the wpad names of the machine's DNS domain. Prints what is found and the
# trace lines that show the way.
#
# Usage: lab/demo.sh [BUILD_DIR]   (default: build/ of this tree)
set -euo pipefail
LAB_BUILD=$(cd "${1:-$(dirname "$0")/../build}" && pwd)
. "$(dirname "$0")/lab.sh"
PROBE=$LAB_BUILD/bin/dhcp_lab_probe.exe
[ -f "$PROBE" ] || lab_fail "$PROBE is not built"
HOST=pc7.$LAB_DOMAIN

lab_up
echo "== the client: $HOST ($LAB_CLIENT_IP); the servers: $LAB_SERVER_IP"
lab_client "$HOST" "$PROBE" host

echo
echo "== 1. DHCP: dnsmasq answers DHCPINFORM with option 252"
lab_start_dhcp
lab_client "$HOST" "$PROBE" dhcp "$LAB_SERVER_IP" 2 | grep -v 'Buffer contents' || true
echo "-- automatic discovery (DHCP stage first)"
lab_client "$HOST" "$PROBE" detect 0 www.example.com | grep -v 'Buffer contents' || true
lab_stop_dhcp

echo
echo "== 2. DHCP silent (no server on port 67): the wpad names are tried"
lab_client "$HOST" "$PROBE" detect 0 www.example.com | grep -v 'Buffer contents' || true
echo "-- what the lab's DNS server was asked"
grep -o 'query\[A\] [^ ]*' "$LAB_DIR/dnsmasq-dns.log" | sort | uniq -c || true
