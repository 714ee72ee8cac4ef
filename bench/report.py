#!/usr/bin/env python3
"""Makes medians and ratios of what a run of aostorage_bench has measured, and tells which claims hold.

    report.py run.jsonl [--write]

Prints the claims. With --write, after a whole run, also renews the part of docs/performance.md between its two
marks and docs/performance.svg. A ratio is our time over the other's, taken within each repetition; what is told
is the median of these. Below 1 we are faster.
"""

import argparse
import html
import json
import math
import statistics
import sys
from collections import defaultdict
from pathlib import Path

OURS, MAPPED, BARE, BARE_MAP, FILES = "aostorage", "aostorage-map", "bare", "bare-map", "files"
LMDB, LMDB_MAP = "lmdb each", "lmdb-writemap each"
LMDB_READS = ("lmdb each", "lmdb one")
SQLITE = ("sqlite each", "sqlite-wal each")
SQLITE_ALL = SQLITE + ("sqlite one", "sqlite-wal one")
COMMITTING = SQLITE + (LMDB, LMDB_MAP)
WHOLE = ("hdf5", "libgsf")
COMPACTORS = ("sqlite one", "sqlite-wal one", "lmdb one", "lmdb-writemap one") + WHOLE

NAMES = {
    OURS: "aostorage", MAPPED: "aostorage, mapping", BARE: "bare calls", BARE_MAP: "bare, mapping",
    FILES: "files", "sqlite each": "SQLite, each", "sqlite one": "SQLite, one", "sqlite-wal each": "SQLite WAL, each",
    "sqlite-wal one": "SQLite WAL, one", "lmdb each": "LMDB, each", "lmdb one": "LMDB, one",
    "lmdb-writemap each": "LMDB WRITEMAP, each", "lmdb-writemap one": "LMDB WRITEMAP, one", "hdf5": "HDF5",
    "libgsf": "libgsf", "cp": "`cp`", "cp-flushed": "`cp`, flushed", "two-copies": "two plain copies",
}
WORKS = {
    "W1-64K": "W1 write a stream, 64 KiB", "W2-64K": "W2 read it, 64 KiB",
    "W1-512": "W1 write a stream, 512 B", "W2-512": "W2 read it, 512 B",
    "W3": "W3 create streams", "W4": "W4 open and read them", "W5": "W5 set new values", "W6": "W6 get values",
    "W7": "W7 set them again", "W8": "W8 append records", "W9": "W9 open, read, close",
    "W9-any": "W9 the same, any value", "W10": "W10 remove, create", "W11": "W11 compact",
    "W12-write": "W12 write 8-12 KiB", "W12-read": "W12 read 8-12 KiB", "W13-first": "W13 first way to the end, a block",
    "W13": "W13 seek and read",
}
SCALED = ("W3", "W4", "W5", "W6", "W7")
PLACES = ("tmpfs", "disk")


def at_most(work, limit, other=BARE, ours=OURS, what="the bare calls"):
    return {"work": work, "ours": ours, "others": (other,), "limit": limit, "strict": False,
            "text": f"at most {limit:.2f} times {what}"}


def ahead(work, text, others, ours=OURS):
    return {"work": work, "ours": ours, "others": others, "limit": 1.0, "strict": True, "text": "ahead of " + text}


CLAIMS = [
    at_most("W1-64K", 1 / 0.95), ahead("W1-64K", "all stores", COMMITTING + WHOLE),
    at_most("W2-64K", 1 / 0.95),
    at_most("W1-512", 3.8), ahead("W1-512", "all stores that commit each", COMMITTING),
    at_most("W2-512", 1.1),
    at_most("W3", 2.2), ahead("W3", "LMDB", (LMDB,)), ahead("W3", "LMDB WRITEMAP", (LMDB_MAP,)),
    ahead("W3", "SQLite", SQLITE),
    at_most("W4", 1.5), ahead("W4", "files", (FILES,)), ahead("W4", "SQLite", SQLITE),
    at_most("W5", 4), ahead("W5", "LMDB", (LMDB,)), ahead("W5", "SQLite", SQLITE),
    at_most("W6", 2.3), ahead("W6", "files", (FILES,)), ahead("W6", "SQLite in either form", SQLITE_ALL),
    at_most("W7", 3), ahead("W7", "LMDB", (LMDB,)), ahead("W7", "SQLite", SQLITE),
    at_most("W8", 3.8), ahead("W8", "LMDB", (LMDB,)), ahead("W8", "SQLite", SQLITE),
    at_most("W9", 2.5), ahead("W9", "all stores", COMMITTING + WHOLE), ahead("W9", "two files", (FILES,)),
    at_most("W10", 3), ahead("W10", "all stores", COMMITTING + ("hdf5",)),
    at_most("W11", 1 / 0.55, "cp", what="`cp` of the live bytes"), ahead("W11", "all compactors", COMPACTORS),
    at_most("W12-write", 1.5), ahead("W12-write", "all stores and files", COMMITTING + WHOLE + (FILES,)),
    at_most("W12-read", 1.3), ahead("W12-read", "SQLite, HDF5, libgsf and files", SQLITE + WHOLE + (FILES,)),
    at_most("W13", 3),
]
MAPPED_CLAIMS = [
    {**ahead("W2-64K", "LMDB, or as fast", LMDB_READS, MAPPED), "strict": False},
    {**at_most("W2-512", 1.5, ours=MAPPED, what="LMDB"), "others": LMDB_READS},
    ahead("W4", "LMDB", LMDB_READS, MAPPED),
    ahead("W5", "LMDB WRITEMAP, if words go through the mapping", (LMDB_MAP,), MAPPED),
    ahead("W5", "LMDB and SQLite, else", (LMDB,) + SQLITE, MAPPED),
    ahead("W6", "LMDB", LMDB_READS, MAPPED),
    ahead("W7", "LMDB WRITEMAP", (LMDB_MAP,), MAPPED),
    at_most("W8", 2, ours=MAPPED),
    ahead("W12-read", "LMDB", LMDB_READS, MAPPED),
]


class Run:
    """All figures of a run: microseconds per operation by place, work, n and competitor, then by repetition."""

    def __init__(self, path):
        self.facts, self.costs, self.sizes = {}, defaultdict(dict), defaultdict(list)
        self.failures, self.unable = [], set()
        with open(path, encoding="utf-8") as file:
            for line in file:
                self.take(json.loads(line))

    def take(self, row):
        if "facts" in row:
            self.facts = row["facts"]
            return
        key = row["place"], row["work"], row["who"]
        if row["outcome"] == "failed":
            self.failures.append(key)
        if row["outcome"] == "cannot":
            self.unable.add(key)
        if row["outcome"] != "done" or not row["items"]:
            return
        work = (row["work"], row["n"]) if row["work"].startswith("S-") else row["work"]
        self.costs[row["place"], work, row["who"]][row["repetition"]] = row["seconds"] / row["items"] * 1e6
        if row["before"]:
            self.sizes[row["place"], row["who"]].append((row["before"], row["after"]))

    def cost(self, place, work, who):
        values = self.costs.get((place, work, who))
        return statistics.median(values.values()) if values else None

    def ratio(self, place, work, ours, other):
        """The median of the repetitions' ratios."""
        mine, theirs = self.costs.get((place, work, ours), {}), self.costs.get((place, work, other), {})
        ratios = [mine[i] / theirs[i] for i in mine if i in theirs]
        return statistics.median(ratios) if ratios else None

    def worst(self, place, claim):
        """The greatest ratio to those that the claim speaks of, and to whom; nothing if one was not measured."""
        ratios = [(self.ratio(place, claim["work"], claim["ours"], other), other) for other in claim["others"]]
        return max(ratios) if all(ratio is not None for ratio, _ in ratios) else None

    def growth(self, place, work, ours, bare):
        """Our cost at the largest n, without what the bare calls lose between the two, over that at 1,000."""
        name = "S-" + work
        largest = max((key[1][1] for key in self.costs if key[1][0] == name and key[2] == ours), default=0)
        repetitions = self.costs.get((place, (name, largest), ours), {})
        values = []
        for i in repetitions:
            try:
                mine, base = [self.costs[place, (name, n), ours][i] for n in (largest, 1000)]
                theirs, their_base = [self.costs[place, (name, n), bare][i] for n in (largest, 1000)]
            except KeyError:
                continue
            values.append((mine - max(0.0, theirs - their_base)) / base)
        return statistics.median(values) if values and largest > 1000 else None

    def is_whole(self):
        return not self.facts.get("quick") and all(
            self.cost(place, work, OURS) is not None for place in PLACES for work in list(WORKS) + [("S-W3", 100000)])


def judged(run):
    """Every claim with, for each place, its ratio, against whom, and whether it holds; None where not measured."""
    rows = []
    for claim in CLAIMS + MAPPED_CLAIMS:
        found = {}
        for place in PLACES:
            worst = run.worst(place, claim)
            if worst is not None:
                holds = worst[0] < claim["limit"] if claim["strict"] else worst[0] <= claim["limit"]
                against = NAMES[worst[1]] if len(claim["others"]) > 1 else ""
                found[place] = worst[0], against, holds
        mode = " (mapping)" if claim["ours"] == MAPPED else ""
        rows.append((WORKS[claim["work"]] + mode, claim["text"], claim["limit"], found))
    sizes = {}
    for place in PLACES:
        growths = [after / before for before, after in run.sizes.get((place, OURS), [])]
        if growths:
            sizes[place] = max(growths), "", max(growths) <= 1
    rows.append((WORKS["W10"], "the file does not grow", 1.0, sizes))
    for work in SCALED:
        found = {}
        for place in PLACES:
            growth = run.growth(place, work, OURS, BARE)
            if growth is not None:
                found[place] = growth, "", growth <= 1.5
        rows.append((f"S {WORKS[work]}", "cost at the largest n at most 1.5 times that at 1,000", 1.5, found))
    return rows


def verdict(found, place):
    if place not in found:
        return "not measured"
    ratio, against, holds = found[place]
    return f"{ratio:.2f} {'holds' if holds else 'NO'}" + (f" ({against})" if against else "")


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "|".join(["---"] * len(head)) + "|"]
    return lines + ["| " + " | ".join(row) + " |" for row in rows]


def number(value):
    return f"{value:,.2f}" if value < 100 else f"{value:,.0f}"


def spread(run, place, work, who):
    values = run.costs.get((place, work, who))
    if not values or (work == "W13-first" and who not in (OURS, MAPPED)):
        return "–" if (place, work, who) in run.unable else ""
    values = list(values.values())
    return f"{number(statistics.median(values))}<br>{number(min(values))}–{number(max(values))}"


def cost_tables(run, place):
    """All figures at one place, in groups of columns that a page can hold."""
    lines = []
    groups = [("Without a store", (OURS, MAPPED, BARE, BARE_MAP, FILES)),
              ("SQLite", (OURS,) + SQLITE_ALL), ("LMDB", (OURS, LMDB, "lmdb one", LMDB_MAP, "lmdb-writemap one")),
              ("HDF5, libgsf", (OURS,) + WHOLE)]
    works = [work for work in WORKS if work != "W11"]
    for title, group in groups:
        present = [who for who in group if any(key[0] == place and key[2] == who for key in run.costs)]
        rows = [[WORKS[work]] + [spread(run, place, work, who) for who in present] for work in works
                if any(run.cost(place, work, who) is not None for who in present[1:])]
        lines += [f"\n**{title}, {place}**\n"] + table(["µs per operation"] + [NAMES[who] for who in present], rows)
    compactors = (OURS, "cp", "cp-flushed", "two-copies") + COMPACTORS
    rows = [[NAMES[who].replace(", one", ""), spread(run, place, "W11", who)]
            for who in compactors if run.cost(place, "W11", who) is not None]
    lines += [f"\n**W11, {place}**\n"] + table(["Compactor", "µs per live stream of 10 KiB"], rows)
    sizes = [[NAMES[who], f"{max(before for before, _ in values):,}", f"{max(after for _, after in values):,}"]
             for (where, who), values in run.sizes.items() if where == place]
    lines += [f"\n**W10, {place}: size of the store**\n"] + table(["Store", "bytes before", "bytes after"], sizes)
    counts = sorted({key[1][1] for key in run.costs if key[0] == place and key[1][0].startswith("S-")
                     and isinstance(key[1], tuple)})
    rows = [[WORKS[work], NAMES[who]] + [spread(run, place, ("S-" + work, n), who) for n in counts]
            for work in SCALED for who in (OURS, BARE, MAPPED, BARE_MAP)
            if run.cost(place, ("S-" + work, 1000), who) is not None]
    return lines + [f"\n**S, {place}: cost as n grows**\n"] + table(
        ["µs per operation at n =", ""] + [f"{n:,}" for n in counts], rows)


def document(run):
    facts = run.facts
    lines = [f"Run of {facts['date']}: {facts['processor']}, {facts['cores']} cores, {facts['memory']} of memory, "
             f"{facts['kernel']}; {facts['compiler']}; {facts['peers']}; tmpfs and {facts.get('disk', 'no disk')}; "
             f"{facts['repetitions']} repetitions; load {facts['load']} when it began.", ""]
    rows = [[work, text, f"{limit:.2f}"] + [verdict(found, place) for place in PLACES]
            for work, text, limit, found in judged(run)]
    lines += ["### What holds", ""] + table(["Work", "Claim", "Limit", "tmpfs: ratio", "disk: ratio"], rows)
    lines += ["", "### Figures", "", "Median, below it least and most; – stands where a work cannot be done or would "
              "be that of the bare calls."]
    for place in PLACES:
        lines += cost_tables(run, place)
    return "\n".join(lines) + "\n"


BARS = [("mapping", "#222", (MAPPED,)), ("bare calls", "#8a8f98", (BARE,)), ("files", "#c9a227", (FILES,)),
        ("SQLite", "#3b7dd8", SQLITE), ("LMDB", "#3f9b57", (LMDB, LMDB_MAP)), ("HDF5", "#b0577f", ("hdf5",)), ("libgsf", "#7a5bb0", ("libgsf",))]


def chart(run):
    """How long the others take for what takes us 1: bars from 1 to the left where they are faster, to the right else."""
    left, width, bar, top = 190, 330, 9, 70
    low, high = 0.01, 1000.0
    x = lambda base, value: base + width * (math.log10(min(max(value, low), high)) + 2) / 5
    body, y = [], top
    for work in (work for work in WORKS if work not in ("W9-any", "W13-first")):
        body.append(f'<text x="{left - 10}" y="{y + 14}" text-anchor="end">{html.escape(WORKS[work])}</text>')
        drawn = 0
        for label, colour, others in BARS:
            if work == "W11":
                others = ("cp",) if others == (BARE,) else tuple(
                    who for who in COMPACTORS if who.startswith(label.lower()))
            shown = False
            for column, place in enumerate(PLACES):
                ratios = [run.ratio(place, work, OURS, other) for other in others]
                ratios = [ratio for ratio in ratios if ratio]
                if not ratios:
                    continue
                base, value = left + column * (width + 40), 1 / max(ratios)  # the best of its settings
                start, end = sorted((x(base, 1), x(base, value)))
                body.append(f'<rect x="{start:.1f}" y="{y + drawn * bar}" width="{max(end - start, 0.5):.1f}" '
                            f'height="{bar - 2}" fill="{colour}"><title>{html.escape(WORKS[work])}, {place}: {label} '
                            f'{value:.2f}</title></rect>')
                shown = True
            drawn += shown
        y += max(drawn, 2) * bar + 12
    grid = []
    for column, place in enumerate(PLACES):
        base = left + column * (width + 40)
        grid.append(f'<text x="{base + width / 2}" y="{top - 26}" text-anchor="middle">{place}</text>')
        for value in (0.01, 0.1, 1, 10, 100, 1000):
            at = x(base, value)
            grid.append(f'<line x1="{at:.1f}" y1="{top - 6}" x2="{at:.1f}" y2="{y}" stroke="'
                        f'{"#333" if value == 1 else "#ddd"}"/><text x="{at:.1f}" y="{top - 10}" '
                        f'text-anchor="middle" class="small">{value:g}</text>')
    legend = []
    for i, (label, colour, _) in enumerate(BARS):
        legend.append(f'<rect x="{left + i * 95}" y="{y + 12}" width="10" height="10" fill="{colour}"/>'
                      f'<text x="{left + i * 95 + 15}" y="{y + 21}">{label}</text>')
    total = left + 2 * (width + 40)
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {total} {y + 36}" font-family="sans-serif" '
            f'font-size="12"><style>.small {{ font-size: 10px; fill: #666 }}</style><rect width="{total}" '
            f'height="{y + 36}" fill="#fff"/><text x="20" y="20" font-size="13">Time of the others where aostorage '
            f'takes 1: right of 1 they are slower (each change by itself; in W11 bare is cp)</text>\n'
            + "\n".join(grid + body + legend) + "\n</svg>\n")


BEGIN, END = "<!-- figures of the run, by bench/report.py -->", "<!-- end of the figures -->"


def write(run, docs):
    page = docs / "performance.md"
    text = page.read_text(encoding="utf-8")
    head, rest = text.split(BEGIN)
    tail = rest.split(END)[1]
    page.write_text(head + BEGIN + "\n\n" + document(run) + "\n" + END + tail, encoding="utf-8")
    (docs / "performance.svg").write_text(chart(run), encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(description="Which claims a run of aostorage_bench bears out.")
    parser.add_argument("run", help="what aostorage_bench has written")
    parser.add_argument("--write", action="store_true", help="renew docs/performance.md and .svg after a whole run")
    parser.add_argument("--docs", default=Path(__file__).parent.parent / "docs", type=Path, help="where they stand")
    arguments = parser.parse_args()
    run = Run(arguments.run)
    counts = defaultdict(lambda: [0, 0])
    for work, text, limit, found in judged(run):
        if not found:
            continue
        verdicts = [f"{place}: {verdict(found, place)}" for place in PLACES if place in found]
        print(f"{work:34} {text:58} {limit:5.2f}  " + "  ".join(verdicts))
        for place, (_, _, holds) in found.items():
            counts[place][not holds] += 1
    for place, (held, broken) in counts.items():
        print(f"{place}: {held} claims hold, {broken} do not")
    for place, work, who in sorted(set(run.failures)):
        print(f"FAILED: {NAMES[who]} at {work} on {place}")
    if arguments.write and run.is_whole():
        write(run, arguments.docs)
        print(f"{arguments.docs}: performance.md and performance.svg renewed")
    elif arguments.write:
        print("not a whole run: docs/performance.md stays as it is")


if __name__ == "__main__":
    sys.exit(main())
