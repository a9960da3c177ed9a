#!/usr/bin/env bash
# The lab tests: sets up the lab, runs the Windows lab test program under
# Wine in the client namespace against dnsmasq, then against the
# programmable responder, then under each of the lab's host names, checks
# the captured DHCPINFORM, then drives routvane.exe --detect --json there
# (DHCP answering, then silent) and checks its JSON object against the lab's
# configuration, and tears everything down.
#
# Usage: lab/lab-test.sh BUILD_DIR
set -euo pipefail
LAB_BUILD=$(cd "${1:?build directory}" && pwd)
. "$(dirname "$0")/lab.sh"

TESTS=$LAB_BUILD/bin/dhcp_lab_tests.exe
ROUTVANE=$LAB_BUILD/bin/routvane.exe
[ -f "$TESTS" ] || lab_fail "$TESTS is not built"
[ -f "$ROUTVANE" ] || lab_fail "$ROUTVANE is not built"
HOST=pc7.$LAB_DOMAIN
# What the lab serves: dnsmasq's option 252 names dhcp-wpad.dat ("DIRECT");
# the first wpad name of pc7's domain serves wpad.dat (the lab proxy).
WPAD_URL=http://wpad.$LAB_DOMAIN/wpad.dat
WPAD_ENTRIES="PROXY proxy.$LAB_DOMAIN:3128"
failures=0
run() {
  local host=$1
  shift
  lab_log "client ($host): $*"
  lab_client "$host" "$TESTS" "$@" || failures=$((failures + 1))
}

# routvane --detect --options OPTIONS --json --trace www.example.com on pc7:
# its exit code, its one JSON line (target, status, autoConfigURL, entries in PAC
# form) and the trace lines on its standard error (+TEXT present, -TEXT absent).
detect() {
  local name=$1 want_rc=$2 options=$3 status=$4 url=$5 entries=$6 rc=0
  shift 6
  lab_log "client ($HOST): routvane --detect --options $options --json --trace www.example.com ($name)"
  lab_client "$HOST" "$ROUTVANE" --detect --options "$options" --json --trace www.example.com \
    >"$LAB_DIR/$name.out" 2>"$LAB_DIR/$name.err" || rc=$?
  if [ "$rc" != "$want_rc" ]; then
    lab_log "FAILED: $name: exit code $rc, expected $want_rc"
    failures=$((failures + 1))
  fi
  "$LAB_PYTHON" "$LAB_SOURCE/check-detect.py" "$name" "$LAB_DIR/$name.out" "$LAB_DIR/$name.err" \
    "$status" "$url" "$entries" "$@" || failures=$((failures + 1))
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

# routvane.exe --detect: with dnsmasq answering, the DHCP URL decides; bit 0
# skips DHCP, so the wpad name decides and nothing is broadcast.
lab_start_dhcp
detect detect-dhcp 0 0 0 "$LAB_DHCP_URL" DIRECT \
  "+DiscoverProxyUrlViaDHCP returned true" "+Found proxy URL:  $LAB_DHCP_URL" "-Trying WPAD"
detect detect-skip-dhcp 0 1 0 "$WPAD_URL" "$WPAD_ENTRIES" \
  "+DiscoverProxyUrlViaDHCP returned false" "+Trying WPAD well-known URL $WPAD_URL" \
  "-DiscoverProxyUrlViaDHCP(" "-received a related DHCP packet"
lab_stop_dhcp
# DHCP silent: two time-outs, then the first wpad name decides; bit 1 skips
# the DNS stage and answers direct.
detect detect-dns 0 0 0 "$WPAD_URL" "$WPAD_ENTRIES" \
  "+Timeout while waiting for DHCP response" "+DiscoverProxyUrlViaDHCP returned false" \
  "+Trying WPAD well-known URL $WPAD_URL" "-Trying WPAD well-known URL http://wpad.corp.example"
detect detect-skip-dns 1 2 1 "" "" \
  "+Timeout while waiting for DHCP response" "+DiscoverProxyUrlViaDHCP returned false" \
  "-Trying WPAD" "-gethostname"

[ "$failures" -eq 0 ] || lab_fail "$failures lab step(s) failed"
lab_log "all lab tests passed"
