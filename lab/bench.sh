#!/usr/bin/env bash
# The DHCP discovery benchmark in the lab: with dnsmasq answering, the
# library's exchange against a bare socket exchange of the same packet; with
# no server, the two full time-outs at the default. Prints the figures and
# fails when a target is missed.
#
# Usage: lab/bench.sh [BUILD_DIR]   (default: build/ of this tree)
set -euo pipefail
LAB_BUILD=$(cd "${1:-$(dirname "$0")/../build}" && pwd)
. "$(dirname "$0")/lab.sh"
BENCH=$LAB_BUILD/bin/dhcp_labbench.exe
[ -f "$BENCH" ] || lab_fail "$BENCH is not built"
HOST=pc7.$LAB_DOMAIN

lab_up
status=0
lab_start_dhcp
echo "== dhcp_labbench respond"
lab_client "$HOST" "$BENCH" respond "$LAB_SERVER_IP" || status=1
lab_stop_dhcp
echo "== dhcp_labbench silent"
lab_client "$HOST" "$BENCH" silent "$LAB_SERVER_IP" || status=1
exit "$status"
