"""Draws the charts of bench/charts.json. A chart has panels side by side, and each shows some subjects:

    file, title   of the chart
    x, y          what the axes count; without y each subject is a row of dots, not a curve
    panels        title
                  table, column   where the figures stand, with {x} in one of them
                  at              what to put there: numbers, or names for dots
                  subjects        one curve or one row for each; the library's own first
"""
import matplotlib
from matplotlib import pyplot
from matplotlib.ticker import FuncFormatter, LogLocator, NullLocator

matplotlib.use("svg")
# The same figures give the same file; text stays text.
matplotlib.rcParams.update({"svg.hashsalt": "charts", "svg.fonttype": "none", "font.size": 10,
                            "axes.spines.top": False, "axes.spines.right": False, "axes.grid": True,
                            "axes.axisbelow": True, "grid.color": "#dddddd"})


def draw(chart, results, folder):
    """Returns whether there was anything to draw."""
    panels = [(panel, _series(panel, results)) for panel in chart["panels"]]
    panels = [(panel, series) for panel, series in panels if series]
    if not panels:
        return False
    figure, all_axes = pyplot.subplots(1, len(panels), figsize=(1.6 + 4.4 * len(panels), 3.8), squeeze=False,
                                       sharey="y" in chart, layout="constrained")
    figure.suptitle(chart["title"])
    colors = _colors(panels)
    for axes, (panel, series) in zip(all_axes[0], panels):
        axes.set_title(panel["title"], fontsize="medium")
        axes.set_xlabel(chart["x"])
        if "y" in chart:
            _draw_curves(axes, panel["at"], series, colors)
        else:
            _draw_dots(axes, panel["at"], series)
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


def _colors(panels):
    """The first subject of each panel has the first color, and a peer the same one in all panels."""
    colors = {}
    for _, series in panels:
        for place, subject in enumerate(series):
            colors.setdefault(subject, "C0" if place == 0 else f"C{len(set(colors.values()))}")
    return colors


def _count_logarithmically(axis):
    axis.set_major_locator(LogLocator(subs=(1, 2, 5)))
    axis.set_major_formatter(FuncFormatter(lambda value, _: f"{value:,.10g}"))
    axis.set_minor_locator(NullLocator())


def _draw_curves(axes, at, series, colors):
    for place, (subject, points) in enumerate(series.items()):
        axes.plot(points.keys(), points.values(), marker="o", label=subject, color=colors[subject],
                  linewidth=2.5 if place == 0 else 1.2)
    axes.set_xscale("log")
    axes.set_yscale("log")
    axes.set_xticks(at, [f"{x:,}" for x in at])
    axes.xaxis.set_minor_locator(NullLocator())
    _count_logarithmically(axes.yaxis)
    axes.legend(fontsize="small")


def _draw_dots(axes, at, series):
    rows = range(len(series))
    axes.hlines(rows, [min(points.values()) for points in series.values()],
                [max(points.values()) for points in series.values()], color="#999999")
    for x in at:
        dots = [(points[x], row) for row, points in enumerate(series.values()) if x in points]
        axes.plot(*zip(*dots), "o", label=x)
        for figure, row in dots:
            axes.annotate(f"{figure:,.0f}", (figure, row), (0, 6), textcoords="offset points", ha="center",
                          fontsize="small")
    axes.set_yticks(rows, series.keys())
    axes.set_xscale("log")
    axes.margins(0.1, 0.15)
    axes.invert_yaxis()
    _count_logarithmically(axes.xaxis)
    axes.legend(fontsize="small")
