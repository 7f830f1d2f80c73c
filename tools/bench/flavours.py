"""flavours.py FOLDER NAME...: puts the flavours of the library beside each other. FOLDER/NAME-1, FOLDER/NAME-2 ... are the rounds of
each; the table of their medians is printed, and written as FOLDER/flavours.md.
"""
import pathlib
import sys

from results import Results


def figure(value):
    return "" if value is None else f"{value:,.0f}" if value >= 1000 else f"{value:.3g}"


def table_of(flavours):
    """Lines of Markdown. `flavours`: the Results of each, by its name."""
    yield f"| Workload | Subject | Figure | {' | '.join(flavours)} |"
    yield "|---" * (3 + len(flavours)) + "|"
    for table, subject, column in next(iter(flavours.values())).figures():
        medians = [results.median(table, subject, column) for results in flavours.values()]
        yield f"| {table} | {subject} | {column} | {' | '.join(map(figure, medians))} |"


def main():
    folder = pathlib.Path(sys.argv[1])
    text = "\n".join(table_of({name: Results(*sorted(folder.glob(f"{name}-*"))) for name in sys.argv[2:]}))
    print(text)
    (folder / "flavours.md").write_text(f"{text}\n")


if __name__ == "__main__":
    main()
