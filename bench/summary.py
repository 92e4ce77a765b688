#!/usr/bin/python3
"""Prints one Markdown table of what lies in results/: each row beside its reference and beside its best peer.

The reference is fio's io_uring engine with its default options where it takes part, else the first peer that is none of
ours. Ratios are ours divided by the peer's, pair by pair, as medians.
"""

import json
import pathlib

import plan
import report

RESULTS = pathlib.Path(__file__).resolve().parent / "results"
OURS = ("fsys", "media")


def reference_of(row):
    others = [peer for peer in row.peers[1:] if peer.split("-")[0] not in OURS]
    return next((peer for peer in others if peer.startswith("fio-uring")), others[0] if others else row.peers[1])


def best_of(row, summary, metric):
    others = {peer: cells[metric.key]["value"]["median"] for peer, cells in summary.items()
              if peer.split("-")[0] not in OURS and cells[metric.key]["value"]}
    if not others:
        return None
    return (max if metric.more_is_better else min)(others, key=others.get)


def ratio_of(summary, peer, key):
    ratio = summary.get(peer, {}).get(key, {}).get("ratio")
    return f"{ratio['median']:.2f}" if ratio else "-"


def lines_of(subject, summaries):
    for row in subject.rows:
        summary = summaries.get(row.name)
        if not summary or row.peers[0] not in summary:
            continue
        reference = reference_of(row)
        for metric in row.metrics:
            if metric.key == plan.CPU.key:
                continue
            own = summary[row.peers[0]][metric.key]["value"]
            best = best_of(row, summary, metric)
            cpu = [ratio_of(summary, peer, plan.CPU.key) for peer in (reference, best)]
            yield [subject.title, row.name, f"{report.number(own['median']) if own else '-'} {metric.label}", reference,
                   ratio_of(summary, reference, metric.key), cpu[0], best or "-", ratio_of(summary, best, metric.key), cpu[1]]


def main():
    lines = [["Subject", "Work", "Ours", "Reference", "ratio", "CPU ratio", "Best peer", "ratio", "CPU ratio"]]
    for subject in plan.SUBJECTS:
        path = RESULTS / f"{subject.name}.json"
        if path.exists():
            lines += lines_of(subject, json.loads(path.read_text(encoding="utf-8"))["summaries"])
    print(report.as_markdown(lines))


if __name__ == "__main__":
    main()
