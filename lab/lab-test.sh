#!/usr/bin/env bash
# The lab tests: the DHCPINFORM exchange program, then routvane.exe --detect
# under Wine in the lab's client namespace, each answer and the wpad URLs it
# tried checked; the lab is torn down after.
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
# the first wpad name of pc7's domain serves wpad.dat (the lab proxy, and the
# empty answer for empty.example).
WPAD_URL=http://wpad.$LAB_DOMAIN/wpad.dat
WPAD_ENTRIES="PROXY proxy.$LAB_DOMAIN:3128"
failures=0

# detect NAME HOST OPTIONS TARGET STATUS URL ENTRIES [TRIED | +TEXT]...:
# routvane --detect --options OPTIONS --json --trace TARGET under the host
# name HOST exits with STATUS and answers as check-detect.py is told.
detect() {
  local name=$1 host=$2 options=$3 target=$4 status=$5 rc=0
  shift 4
  lab_log "client ($host): routvane --detect --options $options --json --trace $target ($name)"
  lab_client "$host" "$ROUTVANE" --detect --options "$options" --json --trace "$target" \
    >"$LAB_DIR/$name.out" 2>"$LAB_DIR/$name.err" || rc=$?
  if [ "$rc" != "$status" ]; then
    lab_log "FAILED: $name: exit code $rc, expected $status"
    failures=$((failures + 1))
  fi
  "$LAB_PYTHON" "$LAB_SOURCE/check-detect.py" "$name" "$LAB_DIR/$name.out" "$LAB_DIR/$name.err" \
    "$@" || failures=$((failures + 1))
}

lab_up

lab_start_responder
lab_log "client ($HOST): $TESTS"
lab_client "$HOST" "$TESTS" || failures=$((failures + 1))
# DHCP silent: two time-outs, then the first wpad name decides. A DHCP URL
# that cannot be fetched hands over to the wpad names too.
echo silent >"$LAB_DIR/responder.mode"
detect dhcp-silent "$HOST" 0 www.example.com 0 "$WPAD_URL" "$WPAD_ENTRIES" "$WPAD_URL" \
  "+DiscoverProxyUrlViaDHCP returned false"
echo long >"$LAB_DIR/responder.mode"
detect dhcp-url-fails "$HOST" 0 www.example.com 0 "$WPAD_URL" "$WPAD_ENTRIES" "$WPAD_URL" \
  "+DiscoverProxyUrlViaDHCP returned true"
lab_stop_responder

# The real DHCP server: its URL decides, and no wpad name is tried.
lab_start_dhcp
detect dhcp "$HOST" 0 www.example.com 0 "$LAB_DHCP_URL" DIRECT
lab_stop_dhcp

# The wpad names of each host name (bit 0: no DHCP). An answer ends the
# walk at its name (dhcp-silent above), the empty one (status 1) too; the
# last name tried has two labels.
detect walk-empty-answer "$HOST" 1 empty.example 1 "$WPAD_URL" "" "$WPAD_URL"
detect walk-two-labels pc8.example 1 www.example.com 2 "" ""
detect walk-co-uk pc5.example.co.uk 1 www.example.com 2 http://wpad.co.uk/wpad.dat "" \
  http://wpad.example.co.uk/wpad.dat http://wpad.co.uk/wpad.dat
detect walk-trailing-dot pc6.example. 1 www.example.com 2 http://wpad.example./wpad.dat "" \
  http://wpad.example./wpad.dat
detect walk-unqualified pc9 1 www.example.com 2 "" "" "+pc9 is not fully qualified"
detect walk-long-name host-with-a-name-of-exactly-sixty-four-characters.a.b.example.cc 1 \
  www.example.com 2 http://wpad.example.cc/wpad.dat "" http://wpad.a.b.example.cc/wpad.dat \
  http://wpad.b.example.cc/wpad.dat http://wpad.example.cc/wpad.dat

[ "$failures" -eq 0 ] || lab_fail "$failures lab step(s) failed"
lab_log "all lab tests passed"
