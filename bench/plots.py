"""One picture per subject: every peer relative to us, in each row, for the first metric and for CPU time."""

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402  (the backend has to be chosen first)
from matplotlib.ticker import FuncFormatter, LogLocator  # noqa: E402

MARKS = "osD^v<>PX*hd8p"


def plot_subject(subject, summaries, path):
    rows = [row for row in subject.rows if row.name in summaries]
    if not rows:
        return
    wanted = [rows[0].metrics[0]] + [m for m in rows[0].metrics[1:] if m.key == "cpu_us_per_request"][:1]
    peers = list(dict.fromkeys(peer for row in rows for peer in row.peers[1:]))
    figure, panels = plt.subplots(1, len(wanted), figsize=(7.5 * len(wanted), 1.6 + 0.5 * len(rows)), sharey=True, squeeze=False)
    for panel, metric in zip(panels[0], wanted):
        for number, peer in enumerate(peers):
            xs, ys, low, high = [], [], [], []
            for y, row in enumerate(rows):
                # Another first metric in another row is still "the first metric": rates in their own unit.
                key = metric.key if metric.key == "cpu_us_per_request" else row.metrics[0].key
                part = summaries[row.name].get(peer, {}).get(key, {}).get("ratio")
                if part and part["min"] > 0 and peer != row.peers[0]:
                    xs.append(part["median"])
                    ys.append(y + (number / max(len(peers) - 1, 1) - 0.5) * 0.6)
                    low.append(part["median"] - part["min"])
                    high.append(part["max"] - part["median"])
            panel.errorbar(xs, ys, xerr=[low, high], fmt=MARKS[number % len(MARKS)], label=peer, markersize=5, elinewidth=0.8,
                           color=plt.get_cmap("tab20")(number % 20))
        panel.axvline(1, color="black", linewidth=0.8)
        panel.set_xscale("log")
        panel.xaxis.set_major_locator(LogLocator(subs=(1, 2, 5)))
        panel.xaxis.set_major_formatter(FuncFormatter(lambda ratio, place: f"{ratio:g}"))
        panel.xaxis.set_minor_formatter(FuncFormatter(lambda ratio, place: ""))
        better = "right" if metric.more_is_better else "left"
        panel.set_xlabel(f"{metric.label if metric.key == 'cpu_us_per_request' else 'rate or ' + metric.label}: "
                         f"ours / peer (we are better on the {better})")
        panel.grid(axis="x", alpha=0.3)
    panels[0][0].set_yticks(range(len(rows)), [row.name for row in rows])
    panels[0][0].invert_yaxis()
    figure.suptitle(f"{subject.title}: {rows[0].peers[0]} beside its peers, medians with extremes")
    figure.legend(*panels[0][0].get_legend_handles_labels(), loc="upper left", bbox_to_anchor=(1.0, 0.95), fontsize=8)
    figure.savefig(path, bbox_inches="tight")
    plt.close(figure)
