"""What the benchmark programs wrote: one JSON file of Google Benchmark for each question."""
import json
import statistics

# What each run has beside the columns of its table.
OF_GOOGLE_BENCHMARK = {
    "name", "family_index", "per_family_instance_index", "run_name", "run_type", "repetitions", "repetition_index", "threads",
    "iterations", "real_time", "cpu_time", "time_unit", "label", "error_occurred", "error_message",
}

class Results:
    """The medians of all rounds. Figures that compare with each other stand in one table, so they come from one run."""

    def __init__(self, *folders):
        self.machine = {}
        self._rounds = {}
        for folder in folders:
            for file in sorted(folder.glob("*.json")):
                self._read(json.loads(file.read_text()))

    def _read(self, content):
        self.machine = content["context"]
        for run in content["benchmarks"]:
            if run["run_type"] == "iteration" and not run.get("error_occurred"):
                # question/table/subject, and behind it how Google Benchmark was told to repeat it
                question, table, subject = run["run_name"].split("/")[:3]
                self._rounds.setdefault((f"{question}/{table}", subject), []).append(run)

    def figures(self):
        """Table, subject and column of all that was measured, in the order of the programs' tables."""
        for (table, subject), runs in self._rounds.items():
            for column in runs[0]:
                if column not in OF_GOOGLE_BENCHMARK:
                    yield table, subject, column

    def median(self, table, subject, column):
        """None if that was not measured."""
        figures = [run[column] for run in self._rounds.get((table, subject), []) if column in run]
        return statistics.median_low(figures) if figures else None
