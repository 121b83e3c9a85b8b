"""The ratios as a picture: a line for each workload and peer, with what the times are judged by."""

from __future__ import annotations

from pathlib import Path

from harness import Row
from matplotlib.axes import Axes
from matplotlib.figure import Figure
from matplotlib.lines import Line2D
from matplotlib.ticker import FuncFormatter, LogLocator, NullFormatter

MARKERS = {"out": "o", "back": "s", "import": "D"}
ABOVE_THE_LINE = {"out": -0.2, "back": 0.2, "import": 0.0}
WITHIN, SHORT, SHOWN = "tab:blue", "tab:red", "0.65"
LINE_HEIGHT, MARGIN = 0.25, 1.4  # inches; a panel's title, axis and legend
LOWEST = 0.01  # a ratio of zero has no place on a logarithmic axis


def save(path: Path, panels: dict[str, list[Row]]) -> None:
    """One panel below the other, with the titles; those without rows are left out."""
    panels = {title: rows for title, rows in panels.items() if rows}
    heights = [LINE_HEIGHT * len(lines_of(rows)) + MARGIN for rows in panels.values()]
    figure = Figure(figsize=(10, sum(heights) or MARGIN), layout="constrained")
    if panels:
        all_axes = figure.subplots(len(panels), height_ratios=heights, squeeze=False)
        for axes, (title, rows) in zip(all_axes[:, 0], panels.items(), strict=True):
            draw(axes, title, rows)
    figure.savefig(path, dpi=110)


def lines_of(rows: list[Row]) -> list[tuple[str, str]]:
    return list(dict.fromkeys((row.workload, row.peer) for row in rows))


def draw(axes: Axes, title: str, rows: list[Row]) -> None:
    lines = lines_of(rows)
    for row in rows:
        y = lines.index((row.workload, row.peer)) + ABOVE_THE_LINE[row.direction]
        marker = MARKERS[row.direction]
        axes.plot(max(row.ratio, LOWEST), y, marker, color=color(row), markersize=5, zorder=3)
        if row.limit is not None:
            axes.plot(row.limit, y, "|", color="black", markersize=8, markeredgewidth=1.6, zorder=4)
    axes.set_title(title, loc="left", fontsize=11)
    axes.set_yticks(range(len(lines)), [f"{name}  /  {peer}" for name, peer in lines], fontsize=8)
    axes.set_ylim(len(lines) - 0.5, -0.5)
    axes.set_xscale("log")
    axes.xaxis.set_major_locator(LogLocator(subs=(1, 2, 5)))
    axes.xaxis.set_major_formatter(FuncFormatter(lambda ratio, _: f"{ratio:g}"))
    axes.xaxis.set_minor_formatter(NullFormatter())
    axes.axvline(1.0, color="0.4", linewidth=0.8)
    axes.grid(color="0.9", linewidth=0.6)
    axes.set_axisbelow(True)
    axes.legend(handles=legend(), loc="upper left", bbox_to_anchor=(1.0, 1.0), fontsize=8)


def color(row: Row) -> str:
    if row.limit is None:
        return SHOWN
    return SHORT if "time" in row.short_of else WITHIN


def legend() -> list[Line2D]:
    entries = [
        ("out", "o", "0.3"),
        ("back", "s", "0.3"),
        ("limit", "|", "black"),
        ("within its limit", "o", WITHIN),
        ("beyond its limit", "o", SHORT),
        ("not judged", "o", SHOWN),
    ]
    return [
        Line2D([], [], linestyle="", marker=marker, color=color, label=label)
        for label, marker, color in entries
    ]
