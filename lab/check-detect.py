#!/usr/bin/env python3
"""Checks what `routvane --detect --json www.example.com` printed in the lab:
standard output must hold exactly one JSON object (one target, one line),
with exactly the tool's keys of their types, and the answer expected; the trace lines (standard error of a
--trace run) must hold or lack the given fragments.

Usage: check-detect.py NAME STDOUT_FILE STDERR_FILE STATUS URL ENTRIES
                       [+FRAGMENT | -FRAGMENT]...
  URL      the expected autoConfigURL ("" for none)
  ENTRIES  the expected entries in PAC form, "PROXY h:p; DIRECT" ("" for none)
  +TEXT    a trace line must contain TEXT;  -TEXT  no trace line may
"""
import json
import sys


def entries_text(entries):
    return "; ".join("DIRECT" if e["direct"] else "PROXY %s:%d" % (e["host"], e["port"])
                     for e in entries)


def check(name, out_path, err_path, status, url, entries, fragments):
    errors = []
    with open(out_path, encoding="utf-8") as f:
        out = f.read()
    with open(err_path, encoding="utf-8", errors="replace") as f:
        err = f.read()
    lines = out.splitlines()
    if len(lines) != 1:
        errors.append("standard output holds %d lines, not one: %r" % (len(lines), out[:400]))
    try:
        answer = json.loads(out)
    except ValueError as e:
        answer = None
        errors.append("standard output is not one JSON value (%s): %r" % (e, out[:400]))
    if answer is not None:
        if not isinstance(answer, dict):
            errors.append("not a JSON object: %r" % answer)
        elif list(answer) != ["target", "status", "browser", "entries", "autoConfigURL"]:
            errors.append("keys %s" % list(answer))
        else:
            if answer["target"] != "www.example.com:80":
                errors.append("target %r" % answer["target"])
            if type(answer["status"]) is not int or answer["status"] not in (0, 1, 2):
                errors.append("status %r" % answer["status"])
            if answer["browser"] is not None:
                errors.append("browser %r, not null" % answer["browser"])
            if not isinstance(answer["autoConfigURL"], str):
                errors.append("autoConfigURL %r" % answer["autoConfigURL"])
            ok_entries = isinstance(answer["entries"], list) and all(
                isinstance(e, dict) and list(e) == ["direct", "host", "port"]
                and type(e["direct"]) is bool and isinstance(e["host"], str)
                and type(e["port"]) is int for e in answer["entries"])
            if not ok_entries:
                errors.append("entries %r" % answer["entries"])
            if not errors:
                if answer["status"] != status:
                    errors.append("status %d, expected %d" % (answer["status"], status))
                if answer["autoConfigURL"] != url:
                    errors.append("autoConfigURL %r, expected %r" % (answer["autoConfigURL"], url))
                if entries_text(answer["entries"]) != entries:
                    errors.append("entries %r, expected %r" %
                                  (entries_text(answer["entries"]), entries))
    trace = err.splitlines()
    for fragment in fragments:
        want, text = fragment[0], fragment[1:]
        hits = [l for l in trace if text in l]
        if want == "+" and not hits:
            errors.append("no trace line contains %r" % text)
        elif want == "-" and hits:
            errors.append("a trace line contains %r: %s" % (text, hits[0]))
    for e in errors:
        print("check-detect: %s: %s" % (name, e))
    if errors:
        print("check-detect: %s: FAILED; standard error was:\n%s" % (name, err[-3000:]))
        return 1
    print("check-detect: %s: %s" % (name, out.strip()))
    return 0


def main():
    if len(sys.argv) < 7:
        raise SystemExit(__doc__)
    name, out_path, err_path, status, url, entries = sys.argv[1:7]
    return check(name, out_path, err_path, int(status), url, entries, sys.argv[7:])


if __name__ == "__main__":
    sys.exit(main())
