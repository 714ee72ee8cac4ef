#!/usr/bin/env python3
"""Prints tables of ratios from the JSON output of one benchmark run.

    aostorage_bench --benchmark_out=run.json --benchmark_out_format=json [--benchmark_repetitions=5]
    ratios.py run.json

Benchmarks are named family/operation/who/key:value/... . All figures of a table come from the same run; of
repetitions the median counts. A ratio is the library's speed over the other's: above 1 the library is faster.
"""

import argparse
import json
import re
import statistics
import sys
from collections import defaultdict

LIBRARY = "aostorage"
BASE_COUNTS = (1000, 10000, 10)  # the counts that others are held against, the first one present
SETTINGS = re.compile(r"^(iterations|repeats|manual_time|real_time|process_time|threads|min_time|min_warmup_time)\b")


class Key(tuple):
    """What a benchmark measured: (family, operation, who, parameters)."""

    @classmethod
    def parse(cls, name):
        parts = [part for part in name.split("/") if not SETTINGS.match(part)]
        if len(parts) < 3:
            return None
        return cls((parts[0], parts[1], parts[2], tuple(parts[3:])))


def read_speeds(path):
    """Items per second by key, and the names of the benchmarks that failed with their reasons."""
    with open(path, encoding="utf-8") as file:
        run = json.load(file)
    samples, medians, failures = defaultdict(list), {}, []
    for entry in run["benchmarks"]:
        if entry.get("error_occurred"):
            failures.append((entry["name"], entry.get("error_message", "")))
            continue
        key, speed = Key.parse(entry.get("run_name", entry["name"])), entry.get("items_per_second")
        if key is None or not speed:
            continue
        if entry.get("run_type") != "aggregate":
            samples[key].append(speed)
        elif entry.get("aggregate_name") == "median":
            medians[key] = speed
    speeds = dict(medians)
    speeds.update((key, statistics.median(values)) for key, values in samples.items())
    return speeds, failures


def natural(name):
    """A sorting key that takes numbers as numbers."""
    return [(int(part), "") if part.isdigit() else (-1, part) for part in re.split(r"(\d+)", name)]


def print_table(title, head, rows):
    if not rows:
        return
    rows = sorted(rows, key=lambda row: natural(row[0]))  # a run with random interleaving has no order
    widths = [max(len(row[i]) for row in [head] + rows) for i in range(len(head))]
    print(f"\n## {title}\n")
    for row in [head, ["-" * width for width in widths]] + rows:
        cells = [cell.ljust(width) if i == 0 else cell.rjust(width) for i, (cell, width) in enumerate(zip(row, widths))]
        print("| " + " | ".join(cells) + " |")


def cost(speed):
    """The time of one item in microseconds."""
    return f"{1e6 / speed:.3f}"


def beside_others(speeds, is_other):
    """Rows of the library's cost and its ratio to each other store that did the same work."""
    groups = defaultdict(dict)
    for (family, operation, who, parameters), speed in speeds.items():
        groups[family, operation, parameters][who] = speed
    others = []
    for group in groups.values():
        others += [who for who in group if is_other(who) and who not in others]
    others.sort()
    rows = []
    for (family, operation, parameters), group in groups.items():
        for who in (who for who in group if who.startswith(LIBRARY)):
            ratios = [f"{group[who] / group[other]:.2f}" if other in group else "" for other in others]
            if any(ratios):
                rows.append(["/".join((family, operation, who) + parameters), cost(group[who])] + ratios)
    return ["benchmark", "us per item"] + [f"/ {other}" for other in others], rows


def count_of(parameters):
    """The n of the parameters and the other parameters, or nothing."""
    for parameter in parameters:
        if parameter.startswith("n:"):
            return int(parameter[2:]), tuple(other for other in parameters if other != parameter)
    return None


def growth_of(group):
    """The cost at the largest count over that at the base, with the two counts."""
    base = next((count for count in BASE_COUNTS if count in group), min(group))
    return group[base] / group[max(group)], base, max(group)


def scaling(speeds, is_shown):
    """Rows of the cost per item at each count and its growth, beside that of the bare calls where there are any.

    The bare calls grow too, as more of the file falls out of the processor's caches.
    """
    groups = defaultdict(dict)
    for (family, operation, who, parameters), speed in speeds.items():
        counted = count_of(parameters)
        if counted:
            groups[family, operation, who, counted[1]][counted[0]] = speed
    groups = {key: group for key, group in groups.items() if len(group) > 1}
    shown = {key: group for key, group in groups.items() if is_shown(key[2])}
    counts = sorted({count for group in shown.values() for count in group})
    rows = []
    for (family, operation, who, parameters), group in shown.items():
        costs = [cost(group[count]) if count in group else "" for count in counts]
        growth, base, largest = growth_of(group)
        bare = groups.get((family, operation, "bare_needed", parameters))
        rows.append(["/".join((family, operation, who) + parameters)] + costs +
                    [f"{growth:.2f} ({largest} / {base})", f"{growth_of(bare)[0]:.2f}" if bare else ""])
    return ["benchmark, us per item at n ="] + [str(count) for count in counts] + ["growth", "bare growth"], rows


def main():
    parser = argparse.ArgumentParser(description="Ratio tables from the JSON output of one benchmark run.")
    parser.add_argument("run", help="file written with --benchmark_out=FILE --benchmark_out_format=json")
    arguments = parser.parse_args()
    try:
        speeds, failures = read_speeds(arguments.run)
    except (OSError, ValueError, KeyError) as error:
        print(f"ratios.py: {arguments.run}: {error}", file=sys.stderr)
        return 2
    print_table("Speed beside the bare calls", *beside_others(speeds, lambda who: who.startswith("bare")))
    print_table("Cost as n grows", *scaling(speeds, lambda who: who.startswith(LIBRARY)))
    print_table("Cost of the others as n grows", *scaling(speeds, lambda who: not who.startswith(("bare", LIBRARY))))
    print_table("Speed beside other stores",
                *beside_others(speeds, lambda who: not who.startswith(("bare", LIBRARY))))
    for name, reason in failures:
        print(f"FAILED {name}: {reason}", file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
