"""The table of a run: every figure is a median with the least and the greatest in brackets, every ratio one of two medians."""

import statistics
from math import ceil, comb


class Series:
    """The measurements of one thing, in `unit`."""

    def __init__(self, values, unit):
        self.values, self.unit = sorted(values), unit
        self.median = statistics.median(values)

    def percentile(self, part):
        return self.values[ceil(part * len(self.values)) - 1]

    def __str__(self):
        low, middle, high = (self.number(value) for value in (self.values[0], self.median, self.values[-1]))
        return f"{middle} {self.unit} ({low} – {high})"

    @staticmethod
    def number(value):
        return f"{value:.0f}" if value >= 100 else f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def paired_ratio(ours, rivals):
    """The median of ours to the rival's, turn by turn, with the interval that holds it with a confidence of 95 %."""
    ratios = sorted(own / other for own, other in zip(ours, rivals))
    rank, outside = 0, 0.0
    while (outside := outside + 2 * comb(len(ratios), rank) / 2 ** len(ratios)) <= 0.05:
        rank += 1
    rank = max(rank, 1)
    return statistics.median(ratios), ratios[rank - 1], ratios[-rank]


class Table:
    def __init__(self):
        self.rows = []

    def row(self, what, figure, against, ratio, limit, is_met):
        """is_met is None where there is no limit."""
        verdict = {True: "yes", False: "**no**", None: "–"}[is_met]
        self.rows.append([what, str(figure), str(against), ratio, limit, verdict])

    def ratio_row(self, what, figure, against, name, limit):
        ratio = figure.median / against.median
        self.row(what, figure, f"{name}: {against}", f"{ratio:.2f}", f"≤ {limit}" if limit else "–",
                 ratio <= limit if limit else None)

    def race_rows(self, what, times, unit):
        """`times` by client, "this library" among them, in the order in which they were measured, in turns. To be as fast as
        the fastest rival is not to be slower beyond what chance explains."""
        series = {name: Series(values, unit) for name, values in times.items()}
        ours = series.pop("this library")
        best = min(series, key=lambda name: series[name].median)
        for name, rival in series.items():
            middle, low, high = paired_ratio(times["this library"], times[name])
            self.row(what, ours, f"{name}: {rival}", f"{middle:.2f} ({low:.2f} – {high:.2f})", "≤ 1" if name == best else "–",
                     low <= 1 if name == best else None)

    def rival_rows(self, what, series, limit):
        """`series` by client, "this library" among them. The limit is for the fastest rival."""
        rivals = {name: values for name, values in series.items() if name != "this library"}
        best = min(rivals, key=lambda name: rivals[name].median)
        for name, rival in rivals.items():
            self.ratio_row(what, series["this library"], rival, name, limit if name == best else None)

    def print_all(self):
        """Returns whether a limit is missed."""
        print("| What | Figure | Measured against | Ratio | Limit | Met |")
        print("| --- | --- | --- | ---: | ---: | :-: |")
        for cells in self.rows:
            print("| " + " | ".join(cells) + " |")
        return any("no" in cells[-1] for cells in self.rows)
