"""Prints the table of a run of the benchmarks.

Usage: report.py SAVED-LIST.json PROGRAMS.json. The first is of Google Benchmark's form, the second of programs.py's. Every
figure is the median with the least and the greatest in brackets; every ratio is that of two medians of this run. The exit
status is 0 when every limit is met.
"""

import json
import sys

from table import Series, Table

NEAREST_RANK = 0.95
START_LIMIT, MEMORY_LIMIT, OPEN_LIMIT, HOT_KEY_LIMIT_MS = 3, 2, 5, 50
GROWTH_LIMIT = 10
SIZES = (10_000, 100_000, 1_000_000)
STEPS = {"Open": "Opening", "OpenAgain": "Opening once more", "Pick": "Picking the last entry",
         "SaveAndAnnounce": "Saving, until announced", "SaveToDisk": "Saving, until on the disk",
         "Filter/ascii": "Filtering, “zanzibar”", "Filter/unicode": "Filtering, “grüße”"}
PLAIN_READ, PLAIN_WRITE = "ReadAndSplit", "Write"
FILE_WORK = {"Open": [PLAIN_READ], "OpenAgain": [PLAIN_READ], "Pick": [PLAIN_READ], "SaveToDisk": [PLAIN_READ, PLAIN_WRITE]}


def measured(path):
    with open(path, encoding="utf-8") as file:
        return json.load(file)


def saved_list(path):
    """Series in ms by name and number of entries."""
    series = {}
    for run in measured(path)["benchmarks"]:
        if run["run_type"] == "iteration":
            name, entries = run["name"].split("/iterations:")[0].rsplit("/", 1)
            series.setdefault((name, int(entries)), []).append(run["real_time"])
    return {key: Series(values, "ms") for key, values in series.items()}


table = Table()
row, ratio_row = table.row, table.ratio_row
lists, programs = saved_list(sys.argv[1]), measured(sys.argv[2])
start, memory, hot_key = programs["start"], programs["memory"], Series([s * 1000 for s in programs["hot_key"]], "ms")
tray = "tray program"
ratio_row("Start, until the status item is there", Series([s * 1000 for s in start["quillery"]], "ms"),
          Series([s * 1000 for s in start["tray_program"]], "ms"), tray, START_LIMIT)
for suffix, where in {"": "alone", " beside": "beside another Qt program"}.items():
    ratio_row(f"Memory at rest (PSS), {where}", Series([k / 1024 for k in memory["quillery" + suffix]], "MiB"),
              Series([k / 1024 for k in memory["tray_program" + suffix]], "MiB"), tray, MEMORY_LIMIT)
row("Memory of the storage server (PSS)", Series([k / 1024 for k in memory["storage"]], "MiB"), "", "", "–", None)
for step, what in {"Open": "Opening a list of 100,000 entries", "OpenAgain": "The same with its window open"}.items():
    ratio_row(what, lists[step, 100_000], lists[PLAIN_READ, 100_000], "read and split", OPEN_LIMIT)
row("Hot key to notification, median", hot_key, "", "", f"≤ {HOT_KEY_LIMIT_MS} ms", hot_key.median <= HOT_KEY_LIMIT_MS)
slow = hot_key.percentile(NEAREST_RANK)
row("Hot key to notification, 95th percentile", f"{Series.number(slow)} ms", "", "", f"≤ {HOT_KEY_LIMIT_MS} ms",
    slow <= HOT_KEY_LIMIT_MS)

for small, large in zip(SIZES, SIZES[1:]):
    def growth(*names, small=small, large=large):
        return sum(lists[name, large].median for name in names) / sum(lists[name, small].median for name in names)

    for name, what in {PLAIN_READ: "Plain read and split", PLAIN_WRITE: "Plain write to the disk", **STEPS}.items():
        # What a step has to do with the file grows as the machine lets it.
        limit = max(GROWTH_LIMIT, growth(*FILE_WORK[name])) if name in FILE_WORK else GROWTH_LIMIT
        row(f"{what}: {large:,} entries", lists[name, large], f"{small:,} entries: {lists[name, small]}",
            f"{growth(name):.1f}", *(("–", None) if name not in STEPS else (f"≤ {limit:.1f}", growth(name) <= limit)))

sys.exit(table.print_all())
