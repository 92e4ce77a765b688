#!/usr/bin/env python3
"""Adds up ctest's JUnit reports.

usage: report.py REPORT.xml               one line, and the failures with their output
       report.py --totals REPORT.xml...   one line per report, what was skipped and why, and a closing line
"""
import os
import sys
import xml.etree.ElementTree as ET


def cases(path):
    """ctest's entries; one that stands for a whole binary is replaced by the tests that it reports."""
    preset = os.path.splitext(os.path.basename(path))[0]
    inside = os.path.join(os.path.dirname(path), "..", preset, "gtest")
    for case in ET.parse(path).getroot().iter("testcase"):
        results = os.path.join(inside, case.get("name").replace("/", "_") + ".xml")
        crashed = case.find("failure") is not None and not os.path.exists(results)
        if crashed or not os.path.exists(results):
            yield case.get("name"), case
            continue
        tests = list(ET.parse(results).getroot().iter("testcase"))
        for test in tests:
            yield test.get("classname") + "." + test.get("name"), test
        if case.find("failure") is not None and all(test.find("failure") is None for test in tests):
            yield case.get("name"), case  # its tests passed, and then it failed: a leak, a report at exit


def read(path):
    passed, failed, skipped = [], [], []
    for name, case in cases(path):
        output = case.findtext("system-out") or case.findtext("failure") or ""
        skip = case.find("skipped")
        if case.find("failure") is not None:
            failed.append((name, output))
        elif skip is not None or case.get("status") in ("notrun", "disabled"):
            skipped.append((name, reason(output, skip)))
        else:
            passed.append((name, output))
    return passed, failed, skipped


def reason(output, skip):
    lines = [line.strip() for line in output.splitlines() if line.strip()]
    for before, line in zip(lines, lines[1:] + [""]):
        if before.startswith("Skipped: "):
            return before[len("Skipped: "):]
        if before.endswith(": Skipped"):
            return line
    return (skip.get("message") if skip is not None else "") or (lines[-1] if lines else "no reason given")


def line(path, result):
    preset = os.path.splitext(os.path.basename(path))[0]
    return f"{preset:12} {len(result[0])} passed, {len(result[1])} failed, {len(result[2])} skipped"


def main():
    arguments = sys.argv[1:]
    totals = arguments[:1] == ["--totals"]
    paths = arguments[1:] if totals else arguments
    results = {path: read(path) for path in paths}
    for path, result in results.items():
        print(line(path, result))
        if not totals:
            for name, output in result[1]:
                print(f"FAILED {name}\n{output[-3000:]}")
    if totals:
        for path, result in results.items():
            for name, why in result[2]:
                print(f"skipped ({os.path.basename(path)[:-4]}) {name}: {why}")
        counts = [sum(len(result[kind]) for result in results.values()) for kind in range(3)]
        print("{} passed, {} failed, {} skipped".format(*counts))


main()
