#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""One picture per group from the figures of a run: pictures.py docs/benchmarks.json docs/benchmarks

Each dot is one size: zonm's time over the peer's. Needs matplotlib (Debian: python3-matplotlib).
"""

import json
import sys
from pathlib import Path

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402, behind the choice of what draws
from matplotlib.ticker import FixedLocator, NullLocator  # noqa: E402

import table  # noqa: E402

COLOURS = dict(zip(table.PEERS, ["#0072b2", "#56b4e9", "#009e73", "#d55e00", "#cc79a7", "#0072b2", "#56b4e9",
                                 "#009e73", "#d55e00", "#7f7f7f", "#0072b2"]))
TICKS = [0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10]


def panel(axes, operations, peers):
    """The operations of one element type, from top to bottom."""
    dots = {}  # one set of marks per peer and size keeps the file small
    for y, operation in enumerate(operations):
        present = [who for who in peers if who in operation.peers]
        for place, who in enumerate(present):
            height = y + 0.7 * ((place + 0.5) / len(present) - 0.5)
            rows = [(size, times["zonm"] / times[who]) for size, _, times in operation.rows if who in times]
            ratios = [ratio for _, ratio in rows]
            axes.plot([min(ratios), max(ratios)], [height] * 2, color=COLOURS[who], lw=1, alpha=0.5, zorder=2)
            mean = table.geometric_mean(ratios)
            axes.plot([mean] * 2, [height - 0.15, height + 0.15], color=COLOURS[who], lw=2, zorder=4)
            for size, ratio in rows:
                dots.setdefault((who, size), []).append((ratio, height))
    for (who, size), places in dots.items():
        axes.plot(*zip(*places), ls="", marker="o", ms=2 + 0.2 * min(size, 16), color=COLOURS[who], alpha=0.65,
                  mew=0, zorder=3)
    for y in range(1, len(operations)):
        axes.axhline(y - 0.5, color="#dddddd", lw=0.6, zorder=1)
    axes.set_yticks(range(len(operations)), [o.name.replace("zonm", "") for o in operations], fontsize=8)
    axes.set_ylim(len(operations) - 0.4, -0.6)


def draw(group, rows, path):
    chosen = table.operations(rows)
    types = [type_ for type_ in ("64f", "32f") if any(o.type == type_ and o.peers for o in chosen)]
    panels = {type_: [o for o in chosen if o.type == type_ and o.peers] for type_ in types}
    if not panels:
        return False
    peers = [who for who in table.PEERS if any(who in o.peers for o in chosen)]
    ratios = [r for o in chosen for who in o.peers for r in o.ratios(who)]
    low, high = 0.9 * min(ratios), max(1.3, 1.1 * max(ratios))
    height = 1.1 + max(sum(0.16 + 0.13 * len(o.peers) for o in of) for of in panels.values())
    figure, axes = plt.subplots(1, len(panels), figsize=(5 * len(panels), height), squeeze=False,
                                layout="constrained")
    for place, (type_, of) in zip(axes[0], panels.items()):
        place.set_xscale("log")
        place.set_xlim(low, high)
        place.axvspan(1, high, color="#f4ecec", zorder=0)
        place.axvline(1, color="#444444", lw=1, zorder=1)
        place.xaxis.set_major_locator(FixedLocator([t for t in TICKS if low <= t <= high]))
        place.xaxis.set_minor_locator(NullLocator())
        place.xaxis.set_major_formatter("{x:g}")
        place.tick_params(axis="x", labelsize=8)
        place.grid(axis="x", color="#eeeeee", zorder=0)
        place.set_title(type_, fontsize=9)
        for side in ("top", "right", "left"):
            place.spines[side].set_visible(False)
        panel(place, of, peers)
    if len(panels) == 2 and [o.name for o in panels["64f"]] == [o.name for o in panels["32f"]]:
        axes[0][1].tick_params(axis="y", labelleft=False)
    figure.supxlabel("zonm's time / the peer's: left of 1, zonm is faster", fontsize=8)
    marks = [plt.Line2D([], [], color=COLOURS[who], marker="o", ms=5, lw=1) for who in peers]
    figure.get_layout_engine().set(rect=(0, 0, 1, 1 - 0.3 / height))
    figure.legend(marks, peers, loc="upper center", ncol=len(peers), fontsize=8, frameon=False)
    figure.savefig(path, metadata={"Date": None})
    plt.close(figure)
    return True


def main(figures, folder):
    matplotlib.rcParams |= {"svg.hashsalt": "zonm", "svg.fonttype": "none", "font.family": "DejaVu Sans"}
    data = json.loads(Path(figures).read_text())
    folder = Path(folder)
    folder.mkdir(exist_ok=True)
    for group in table.GROUPS:
        rows = [row for row in data["rows"] if row[0] == group]
        if rows and group not in table.WITHOUT_PEERS:
            draw(group, rows, folder / f"{group}.svg")


if __name__ == "__main__":
    main(*sys.argv[1:])
