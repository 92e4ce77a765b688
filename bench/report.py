"""Medians, pair-wise ratios and the tables made of them."""

import statistics


def value_of(report, key):
    for part in key.split("."):
        if not isinstance(report, dict) or part not in report:
            return None
        report = report[part]
    return report


def spread(values):
    """Median, least and most; none without values."""
    values = [v for v in values if v is not None]
    return {"median": statistics.median(values), "min": min(values), "max": max(values), "n": len(values)} if values else None


def summarise(row, runs):
    """runs: peer -> list of (ours, its) reports, measured one after the other; ours itself is given once for each run.

    Ratios are ours divided by the peer's, pair by pair; their median is what is quoted.
    """
    summary = {}
    for peer, pairs in runs.items():
        cells = {}
        for metric in row.metrics:
            own = [value_of(theirs, metric.key) for _, theirs in pairs]
            ratios = [value_of(ours, metric.key) / value_of(theirs, metric.key) for ours, theirs in pairs
                      if value_of(ours, metric.key) is not None and value_of(theirs, metric.key)]
            cells[metric.key] = {"value": spread(own), "ratio": spread(ratios)}
        summary[peer] = cells
    return summary


def number(value):
    if value is None:
        return "-"
    if abs(value) >= 100:
        return f"{value:,.0f}"
    return f"{value:.2f}" if abs(value) < 10 else f"{value:.1f}"


def cell(part):
    return f"{number(part['median'])} ({number(part['min'])}-{number(part['max'])})" if part else "-"


def ratio_cell(part):
    return f"{part['median']:.2f} ({part['min']:.2f}-{part['max']:.2f})" if part else "-"


def lines_of(row, summary, failures):
    """The table of one row as lists of cells, headings first."""
    heading = [row.name]
    for metric in row.metrics:
        heading += [metric.label, "ours / it"]
    lines = [heading]
    for peer in row.peers:
        if peer not in summary:
            if peer in failures:
                lines.append([peer, "failed: " + failures[peer][:60]] + [""] * (2 * len(row.metrics) - 1))
            continue
        line = [peer]
        for metric in row.metrics:
            part = summary[peer][metric.key]
            line += [cell(part["value"]), "" if peer == row.peers[0] else ratio_cell(part["ratio"])]
        lines.append(line)
    return lines


def as_text(lines):
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    return "\n".join("  ".join(text.ljust(width) if i == 0 else text.rjust(width)
                               for i, (text, width) in enumerate(zip(line, widths))).rstrip() for line in lines)


def as_markdown(lines):
    rows = ["| " + " | ".join(line) + " |" for line in lines]
    rows.insert(1, "|---" * len(lines[0]) + "|")
    return "\n".join(rows)
