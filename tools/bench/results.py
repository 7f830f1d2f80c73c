"""What the benchmark programs wrote: one JSON file of Google Benchmark for each question."""
import json
import statistics


class Results:
    """The medians of all rounds. Figures that compare with each other stand in one table, so they come from one run."""

    def __init__(self, folder):
        self.machine = {}
        self._rounds = {}
        for file in sorted(folder.glob("*.json")):
            self._read(json.loads(file.read_text()))

    def _read(self, content):
        self.machine = content["context"]
        for run in content["benchmarks"]:
            if run["run_type"] == "iteration" and not run.get("error_occurred"):
                # question/table/subject, and behind it how Google Benchmark was told to repeat it
                question, table, subject = run["run_name"].split("/")[:3]
                self._rounds.setdefault((f"{question}/{table}", subject), []).append(run)

    def median(self, table, subject, column):
        """None if that was not measured."""
        figures = [run[column] for run in self._rounds.get((table, subject), []) if column in run]
        return statistics.median_low(figures) if figures else None
