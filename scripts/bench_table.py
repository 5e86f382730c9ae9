#!/usr/bin/env python3
"""Turns Google Benchmark's JSON into Markdown tables of ratios.

Benchmarks are named <group>/<case parts...>/<who>, where <who> is "ours" or a peer. Each case becomes a row:
our time, and for every peer how many times as fast as it we are (its time divided by ours). Of repetitions the
fastest counts.

    qnbench --benchmark_filter=^copy/ --benchmark_repetitions=3 --benchmark_format=json > run.json
    scripts/bench_table.py run.json --against 0.5:1.0 --summary
"""

import argparse
import json
import statistics
import sys

UNITS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def read_times(paths):
    """{(group, case): {who: (nanoseconds, items a second or None, allocations a call or None)}}, the fastest of all
    repetitions."""
    cases = {}
    for path in paths:
        with open(path) as file:
            run = json.load(file)
        for entry in run["benchmarks"]:
            if entry.get("run_type") == "aggregate" or entry.get("error_occurred"):
                continue
            group, *case, who = entry["run_name"].removesuffix("/real_time").split("/")
            nanoseconds = entry["real_time"] * UNITS[entry["time_unit"]]
            best = cases.setdefault((group, "/".join(case)), {})
            if who not in best or nanoseconds < best[who][0]:
                best[who] = (nanoseconds, entry.get("items_per_second"), entry.get("allocations"))
    return cases


def in_units(value, units):
    factor, unit = next(((factor, unit) for factor, unit in units if value >= factor), units[-1])
    return f"{value / factor:.3g} {unit}"


def show_time(nanoseconds):
    return in_units(nanoseconds, [(1e9, "s"), (1e6, "ms"), (1e3, "us"), (1, "ns")])


def show_rate(items):
    return "" if items is None else in_units(items, [(1e9, "G/s"), (1e6, "M/s"), (1e3, "k/s"), (1, "/s")])


def show_count(count):
    return "" if count is None else f"{count:.3g}"


def other_case(case, part, other):
    parts = case.split("/")
    return "/".join(other if p == part else p for p in parts) if part in parts else None


def ratios_of(case, times, cases_of_group, peers, against):
    """The columns of a row: {column: ratio}. Higher is better, but for `against`, which is our own time."""
    ours = times["ours"][0]
    row = {f"to {peer}": times[peer][0] / ours for peer in peers if peer in times}
    for part, other in against:
        base = cases_of_group.get(other_case(case, part, other), {})
        if "ours" in base:
            row[f"time to {other}"] = ours / base["ours"][0]
    return row


def print_group(group, cases_of_group, against, summary):
    peers = sorted({who for times in cases_of_group.values() for who in times} - {"ours"})
    rows = {
        case: ratios_of(case, times, cases_of_group, peers, against)
        for case, times in sorted(cases_of_group.items())
        if "ours" in times
    }
    columns = [f"to {peer}" for peer in peers] + [f"time to {other}" for _, other in against]
    columns = [column for column in columns if any(column in row for row in rows.values())]
    # What no case of the group tells has no column.
    own = [("ours", 0, show_time), ("rate", 1, show_rate), ("allocations", 2, show_count)]
    own = [column for column in own if any(cases_of_group[case]["ours"][column[1]] is not None for case in rows)]
    print(f"## {group}\n")
    print("| " + " | ".join(["case"] + [name for name, _, _ in own] + columns) + " |")
    print("|---" * (1 + len(own) + len(columns)) + "|")
    for case, row in rows.items():
        ours = cases_of_group[case]["ours"]
        cells = [case] + [show(ours[index]) for _, index, show in own]
        cells += [f"{row[column]:.2f}" if column in row else "" for column in columns]
        print("| " + " | ".join(cells) + " |")
    print()
    if not summary:
        return
    print("| column | worst | case | median | best |")
    print("|---|---|---|---|---|")
    for column in columns:
        values = sorted((row[column], case) for case, row in rows.items() if column in row)
        if column.startswith("time"):
            values.reverse()
        middle = statistics.median(value for value, _ in values)
        print(f"| {column} | {values[0][0]:.2f} | {values[0][1]} | {middle:.2f} | {values[-1][0]:.2f} |")
    print()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("json", nargs="+")
    parser.add_argument("--against", action="append", default=[], metavar="PART:OTHER",
                        help="also compare our time in cases with PART to the same cases with OTHER in its place")
    parser.add_argument("--summary", action="store_true", help="add the worst and the median of each column")
    options = parser.parse_args()
    against = [tuple(pair.split(":", 1)) for pair in options.against]
    groups = {}
    for (group, case), times in read_times(options.json).items():
        groups.setdefault(group, {})[case] = times
    for group, cases_of_group in groups.items():
        print_group(group, cases_of_group, against, options.summary)
    return 0


if __name__ == "__main__":
    sys.exit(main())
