"""The table of what was measured."""


class Report:
    def __init__(self):
        self._rows = []

    def add(self, what, value, ratio="", goal="", is_met=None):
        """`ratio` and `goal` are texts; `is_met` is None where there is no goal."""
        self._rows.append((what, value, ratio, goal, "" if is_met is None else "met" if is_met else "MISSED"))

    def note(self, text):
        self._rows.append((text,))

    def print(self):
        rows = [("", "measured", "ratio", "goal", ""), *self._rows]
        columns = [row for row in rows if len(row) > 1]
        widths = [max(len(row[i]) for row in columns) for i in range(5)]
        for row in rows:
            cells = row if len(row) == 1 else [cell.ljust(width) for cell, width in zip(row, widths)]
            print("  ".join(cells).rstrip())


def percentile(samples, part):
    ordered = sorted(samples)
    return ordered[min(len(ordered) - 1, int(part * len(ordered)))]


def median(samples):
    return percentile(samples, .5)


def microseconds(samples):
    return f"p50 {median(samples) * 1e6:.0f} us, p99 {percentile(samples, .99) * 1e6:.0f} us"
