#!/usr/bin/env bash
# The lab tests: sets up the lab, runs the Windows lab test program under
# Wine in the client namespace against dnsmasq, then against the
# programmable responder, then under each of the lab's host names, checks
# the captured DHCPINFORM, and tears everything down.
#
# Usage: lab/lab-test.sh BUILD_DIR
set -euo pipefail
LAB_BUILD=$(cd "${1:?build directory}" && pwd)
. "$(dirname "$0")/lab.sh"

TESTS=$LAB_BUILD/bin/dhcp_lab_tests.exe
[ -f "$TESTS" ] || lab_fail "$TESTS is not built"
HOST=pc7.$LAB_DOMAIN
failures=0
run() {
  local host=$1
  shift
  lab_log "client ($host): $*"
  lab_client "$host" "$TESTS" "$@" || failures=$((failures + 1))
}

lab_up

# The real DHCP server, with the exchange captured on the wire.
lab_start_capture
lab_start_dhcp
run "$HOST" --gtest_filter='LabDnsmasq.*'
lab_stop_dhcp
lab_stop_capture
lab_log "checking the captured DHCPINFORM"
"$LAB_PYTHON" "$LAB_SOURCE/check-inform.py" "$LAB_DIR/dhcp.pcap" "$LAB_CLIENT_IP" ||
  failures=$((failures + 1))

# Replies a real server does not send.
lab_start_responder
run "$HOST" --gtest_filter='LabResponder.*:Cases/LabExchange.*'
lab_stop_responder

# The wpad names of each host name (DHCP skipped).
for host in "$HOST" pc8.example pc5.example.co.uk pc6.example. pc9 \
  host-with-a-name-of-exactly-sixty-four-characters.a.b.example.cc; do
  run "$host" --gtest_filter='LabDnsWalk.*'
done

[ "$failures" -eq 0 ] || lab_fail "$failures lab step(s) failed"
lab_log "all lab tests passed"
