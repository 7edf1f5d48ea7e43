"""report.py FILE...: medians of Google Benchmark's JSON, and each figure's ratio to its floor and its peer."""

import json
import statistics
import sys

# (what, measured, held against, wanted at most)
RATIOS = [
    ("cached GetPropertyValue / find", "Find_GetPropertyValue", "Find_ByHand", 1.3),
    ("bag of 10 / map by hand", "Build_Bag", "Build_ByHand", 2.0),
    ("Get / LMDB by hand", "Read_Get", "Read_LmdbByHand", 2.0),
    ("Get / SQLite", "Read_Get", "Read_Sqlite", 1.0),
    ("Put / SQLite upsert", "Write_Put/real_time", "Write_SqliteUpsert/real_time", 1.3),
    ("Put / bare LMDB commit", "Write_Put/real_time", "Write_LmdbCommit/real_time", None),
    ("10,000 strings read / copy loop", "Array_Read", "Array_ReadByHand", None),
    ("10,000 strings written / copy loop", "Array_Write", "Array_WriteByHand", None),
    ("GetXML / libxml2 by hand", "Xml_GetXML", "Xml_ByHand", None),
]


def read(paths):
    times, allocations = {}, {}
    for path in paths:
        with open(path, encoding="utf-8") as file:
            for run in json.load(file)["benchmarks"]:
                if run.get("run_type") != "iteration":
                    continue
                name = run["run_name"]
                times.setdefault(name, []).append(run["real_time"])
                if "allocations" in run:
                    allocations[name] = int(run["allocations"])
    return times, allocations


def main(paths):
    times, allocations = read(paths)
    print(f"{'':32}{'median':>12}{'lowest':>12}{'allocations':>14}")
    for name, values in times.items():
        count = allocations.get(name, "")
        print(f"{name:32}{statistics.median(values):>9,.0f} ns{min(values):>9,.0f} ns{count:>14}")
    print()
    for what, measured, against, wanted in RATIOS:
        ratio = statistics.median(times[measured]) / statistics.median(times[against])
        verdict = "" if wanted is None else f"wanted {wanted}: {'met' if ratio <= wanted else 'missed'}"
        print(f"{what:34}{ratio:>6.2f}  {verdict}")


if __name__ == "__main__":
    main(sys.argv[1:])
