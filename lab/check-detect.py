#!/usr/bin/env python3
"""Checks one `routvane --detect --json --trace` run in the lab: the answer
on standard output, and the wpad URLs that its trace lines (standard error)
say were tried, in order.

Usage: check-detect.py NAME STDOUT_FILE STDERR_FILE STATUS URL ENTRIES [TRIED | +TEXT]...
  URL      the expected autoConfigURL ("" for none)
  ENTRIES  the expected entries in PAC form, "PROXY h:p; DIRECT" ("" for none)
  TRIED    the wpad URLs tried, in order (none: no wpad URL was tried)
  +TEXT    a trace line must contain TEXT
"""
import json
import sys

TRYING = "Trying WPAD well-known URL "


def main():
    name, out_path, err_path = sys.argv[1:4]
    want = [int(sys.argv[4]), sys.argv[5], sys.argv[6]]
    tried = [a for a in sys.argv[7:] if not a.startswith("+")]
    fragments = [a[1:] for a in sys.argv[7:] if a.startswith("+")]
    with open(out_path, encoding="utf-8") as f:
        out = f.read()
    with open(err_path, encoding="utf-8", errors="replace") as f:
        trace = f.read().splitlines()
    try:
        answer = json.loads(out)
        got = [answer["status"], answer["autoConfigURL"], "; ".join(
            "DIRECT" if e["direct"] else "PROXY %s:%d" % (e["host"], e["port"])
            for e in answer["entries"])]
    except (ValueError, KeyError, TypeError) as e:
        got = ["no answer (%s): %r" % (e, out[:400])]
    errors = [] if got == want else ["answer %r, expected %r" % (got, want)]
    got_tried = [l.split(TRYING, 1)[1].split(" (tid=")[0] for l in trace if TRYING in l]
    if got_tried != tried:
        errors.append("wpad URLs tried %r, expected %r" % (got_tried, tried))
    errors += ["no trace line contains %r" % t for t in fragments
               if not any(t in l for l in trace)]
    for e in errors:
        print("check-detect: %s: %s" % (name, e))
    if errors:
        print("check-detect: %s: FAILED; the trace was:\n%s" % (name, "\n".join(trace)[-3000:]))
        return 1
    print("check-detect: %s: %s" % (name, out.strip()))
    return 0


if __name__ == "__main__":
    sys.exit(main())
