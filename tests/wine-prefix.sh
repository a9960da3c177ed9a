#!/bin/sh
# up: make the build tree's Wine prefix if it is not there yet, then start a
# wineserver that stays for the whole test run. down: stop that server.
set -eu
action=$1
run=$2
case "$action" in
up)
  # A server left from an interrupted run is reused as it is.
  "$run" --server -p >/dev/null 2>&1 || true
  "$run" wineboot -i >/dev/null 2>&1
  ;;
down)
  "$run" --server -k || true
  ;;
esac
