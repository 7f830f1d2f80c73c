"""Draws the charts of bench/charts.json. A chart has panels side by side, and each shows some subjects:

    file, title   of the chart
    x, y          what the axes count; without y the panels show bars, not curves
    panels        title
                  table, column   where the figures stand, with {x} in one of them
                  at              what to put there: numbers, or names for bars
                  subjects        one curve or one group of bars for each; the library's own first
"""
import matplotlib
from matplotlib import pyplot
from matplotlib.ticker import FuncFormatter, NullFormatter, NullLocator

matplotlib.use("svg")
# The same figures give the same file; text stays text.
matplotlib.rcParams.update({"svg.hashsalt": "charts", "svg.fonttype": "none", "font.size": 10,
                            "axes.spines.top": False, "axes.spines.right": False, "axes.grid": True,
                            "axes.axisbelow": True, "grid.color": "#dddddd"})

COUNT = FuncFormatter(lambda value, _: f"{value:,.10g}")


def draw(chart, results, folder):
    """Returns whether there was anything to draw."""
    panels = [(panel, _series(panel, results)) for panel in chart["panels"]]
    panels = [(panel, series) for panel, series in panels if series]
    if not panels:
        return False
    figure, all_axes = pyplot.subplots(1, len(panels), figsize=(1.6 + 4.4 * len(panels), 3.8), squeeze=False,
                                       sharey="y" in chart, layout="constrained")
    figure.suptitle(chart["title"])
    for axes, (panel, series) in zip(all_axes[0], panels):
        axes.set_title(panel["title"], fontsize="medium")
        axes.set_xlabel(chart["x"])
        if "y" in chart:
            _draw_curves(axes, panel["at"], series)
        else:
            _draw_bars(axes, panel["at"], series)
    all_axes[0][0].set_ylabel(chart.get("y", ""))
    figure.savefig(folder / f"{chart['file']}.svg", metadata={"Date": None})
    pyplot.close(figure)
    return True


def _series(panel, results):
    """The measured points of each subject that has any: {subject: {at: figure}}."""
    series = {}
    for subject in panel["subjects"]:
        points = {x: results.median(panel["table"].format(x=x), subject, panel["column"].format(x=x))
                  for x in panel["at"]}
        measured = {x: figure for x, figure in points.items() if figure is not None}
        if measured:
            series[subject] = measured
    return series


def _draw_curves(axes, at, series):
    for place, (subject, points) in enumerate(series.items()):
        axes.plot(points.keys(), points.values(), marker="o", label=subject, linewidth=2.5 if place == 0 else 1.2)
    axes.set_xscale("log")
    axes.set_yscale("log")
    axes.set_xticks(at, [f"{x:,}" for x in at])
    axes.xaxis.set_minor_locator(NullLocator())
    axes.yaxis.set_major_formatter(COUNT)
    axes.yaxis.set_minor_formatter(NullFormatter())
    axes.legend(fontsize="small")


def _draw_bars(axes, at, series):
    height = 0.8 / len(at)
    for place, x in enumerate(at):
        subjects = [row for row, points in enumerate(series.values()) if x in points]
        bars = axes.barh([row + place * height for row in subjects],
                         [points[x] for points in series.values() if x in points], height, label=x)
        axes.bar_label(bars, fmt="{:,.0f}", padding=3, fontsize="small")
    axes.set_yticks([row + (len(at) - 1) * height / 2 for row in range(len(series))], series.keys())
    axes.set_xscale("log")
    axes.xaxis.set_major_formatter(COUNT)
    axes.margins(x=0.15)
    axes.grid(axis="y", visible=False)
    axes.invert_yaxis()
    axes.legend(fontsize="small")
