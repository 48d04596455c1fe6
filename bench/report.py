#!/usr/bin/env python3
"""report.py OUT: tables of medians and ratios from Google Benchmark's JSON files in OUT, in Markdown, and
OUT/chain.svg, a frame's cost against the number of blocks."""
import json
import math
import os
import statistics
import sys

out = sys.argv[1]
rows = {}  # row -> contestant -> size or None -> figures
context = {}


class Figures:
    def __init__(self):
        self.times, self.medians, self.p99s = [], [], []
        self.allocations = 0.0

    time = property(lambda self: statistics.median(self.times))
    best = property(lambda self: min(self.times))
    median = property(lambda self: statistics.median(self.medians))
    p99 = property(lambda self: statistics.median(self.p99s))


def load():
    for name in sorted(os.listdir(out)):
        if not name.endswith(".json") or name == "offline.json":
            continue
        with open(os.path.join(out, name)) as file:
            data = json.load(file)
        context.update(data["context"])
        for run in data["benchmarks"]:
            if run["run_type"] != "iteration":
                continue
            row, contestant, *size = run["run_name"].removesuffix("/manual_time").split("/")
            if contestant == "write()" or not size or not size[0].isdigit():
                size = []
            sizes = rows.setdefault(row, {}).setdefault(contestant, {})
            figures = sizes.setdefault(int(size[0]) if size else None, Figures())
            figures.times.append(run["real_time"])
            figures.allocations = run.get("allocations", 0)
            if "p99_ns" in run:
                figures.medians.append(run["median_ns"])
                figures.p99s.append(run["p99_ns"])


def number(value):
    if value == 0:
        return "0"
    if value >= 100:
        return f"{value:,.0f}"
    return f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def table(title, head, lines):
    print(f"\n### {title}\n")
    print("| " + " | ".join(head) + " |")
    print("|---" * len(head) + "|")
    for line in lines:
        print("| " + " | ".join(line) + " |")


def allocations(figures):
    return number(round(figures.allocations, 2))


def chain():
    contestants = rows.get("chain", {})
    sizes = sorted({size for found in contestants.values() for size in found})
    steps = list(zip(sizes, sizes[1:]))

    def added(found, step):
        small, large = step
        if small not in found or large not in found:
            return None
        return (found[large].time - found[small].time) / (large - small)

    limit = contestants.get("limit", {})
    lines = []
    for name, found in contestants.items():
        line = [name]
        for step in steps:
            cost, floor = added(found, step), added(limit, step)
            line.append("" if cost is None else number(cost) +
                        (f" ({cost / floor:.1f} ×)" if floor and name != "limit" else ""))
        largest = max(found)
        lines.append(line + [number(round(found[largest].allocations, 2))])
    table("Pass-through chain: nanoseconds that a block adds to a frame (× the limit)",
          ["", *[f"{a} → {b}" for a, b in steps], "allocations per frame"], lines)
    table("The same: nanoseconds per frame, median (minimum)", ["blocks", *map(str, sizes)],
          [[name] + [f"{number(found[s].time)} ({number(found[s].best)})" if s in found else ""
                     for s in sizes] for name, found in contestants.items()])
    plot(contestants, os.path.join(out, "chain.svg"))


def growth(row, unit, title):
    for name, found in rows.get(row, {}).items():
        sizes = sorted(found)
        table(title, ["", *map(str, sizes)],
              [[f"{name}, ns per {unit}"] + [number(found[s].time / s) for s in sizes],
               ["minimum"] + [number(found[s].best / s) for s in sizes],
               ["allocations"] + [number(round(found[s].allocations / s, 2)) for s in sizes]])


def versus(row, title, base):
    found = {name: sizes[None] for name, sizes in rows.get(row, {}).items()}
    if base not in found:
        return
    table(title, ["", "ns, median", "ns, minimum", f"× {base}", "allocations"],
          [[name, number(f.time), number(f.best), f"{f.time / found[base].time:.2f}", allocations(f)]
           for name, f in found.items()])


def actions():
    lines = []
    for row, contestants in rows.items():
        if not row.startswith("action-"):
            continue
        _, state, threads = row.split("-")
        floor = contestants["floor"][None]
        for name, sizes in contestants.items():
            f = sizes[None]
            lines.append([f"{state} route, {threads} caller{'s' if threads != '1' else ''}: {name}",
                          number(f.median / 1000), number(f.p99 / 1000),
                          f"{f.median / floor.median:.2f}", f"{f.p99 / floor.p99:.2f}"])
    if lines:
        table("An action queued and waited for: microseconds",
              ["", "median", "p99", "median × floor", "p99 × floor"], lines)


def stock():
    lines = []
    for row, contestants in rows.items():
        if not row.startswith("stock-"):
            continue
        zelk, loop, nothing = (contestants[name][None].time for name in ("zelk", "loop", "pass"))
        _, block, source, sink = row.split("-")
        lines.append([f"{block} {source}" + ("" if source == sink else f" → {sink}"),
                      number(zelk - nothing), number(loop - nothing),
                      f"{(zelk - nothing) / (loop - nothing):.2f}"])
    if lines:
        table("Stock blocks: nanoseconds per frame of 4,800 × 2 samples, less a graph's that does nothing",
              ["", "zelk", "hand-written loop", "ratio"], lines)


def offline():
    path = os.path.join(out, "offline.json")
    if not os.path.exists(path):
        return
    with open(path) as file:
        figures = json.load(file)
    lines = []
    zelk = [statistics.median(column) for column in zip(*figures["zelk-host"])]
    for name, runs in figures.items():
        cpu, wall = (statistics.median(column) for column in zip(*runs))
        lines.append([name, f"{cpu:.3f}", f"{wall:.3f}", f"{cpu / zelk[0]:.2f}", f"{wall / zelk[1]:.2f}"])
    table("A WAV file halved: whole processes, seconds",
          ["", "processor", "wall", "processor × zelk-host", "wall × zelk-host"], lines)


COLOURS = ["#c0392b", "#1f6fb4", "#7f8c8d", "#27ae60", "#8e44ad", "#d68910"]


def plot(contestants, path):
    """Both axes logarithmic: a straight line of slope one is a cost per block that does not grow."""
    points = {name: sorted((s, f.time) for s, f in found.items()) for name, found in contestants.items()}
    xs = [x for line in points.values() for x, _ in line]
    ys = [y for line in points.values() for _, y in line]
    if not xs:
        return
    left, top, width, height = 80, 30, 560, 380
    x0, x1 = math.log(min(xs)), math.log(max(xs))
    y0, y1 = math.floor(math.log10(min(ys))), math.ceil(math.log10(max(ys)))

    def at(x, y):
        return (left + (math.log(x) - x0) / (x1 - x0) * width,
                top + height - (math.log10(y) - y0) / (y1 - y0) * height)

    svg = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {left + width + 190} {top + height + 60}" '
           'font-family="sans-serif" font-size="13">',
           '<rect width="100%" height="100%" fill="white"/>']
    for power in range(y0, y1 + 1):
        _, y = at(min(xs), 10 ** power)
        label = f"{10 ** power:,} ns" if power < 3 else (
            f"{10 ** (power - 3):,} µs" if power < 6 else f"{10 ** (power - 6):,} ms")
        svg.append(f'<path d="M{left} {y:.1f}h{width}" stroke="#ddd"/>'
                   f'<text x="{left - 8}" y="{y + 4:.1f}" text-anchor="end">{label}</text>')
    for size in sorted(set(xs)):
        x, _ = at(size, 10 ** y0)
        svg.append(f'<path d="M{x:.1f} {top}v{height}" stroke="#eee"/>'
                   f'<text x="{x:.1f}" y="{top + height + 20}" text-anchor="middle">{size:,}</text>')
    svg.append(f'<text x="{left + width / 2}" y="{top + height + 46}" text-anchor="middle">blocks in the '
               'chain</text>'
               f'<text x="{left}" y="{top - 10}">time of one frame</text>')
    for index, (name, line) in enumerate(points.items()):
        colour = COLOURS[index % len(COLOURS)]
        path_data = " ".join("{}{:.1f} {:.1f}".format("L" if i else "M", *at(*point))
                             for i, point in enumerate(line))
        svg.append(f'<path d="{path_data}" fill="none" stroke="{colour}" stroke-width="2"/>')
        svg += ['<circle cx="{:.1f}" cy="{:.1f}" r="3.5" fill="{}"/>'.format(*at(*point), colour)
                for point in line]
        y = top + 14 + 22 * index
        svg.append(f'<path d="M{left + width + 12} {y - 4}h20" stroke="{colour}" stroke-width="2"/>'
                   f'<text x="{left + width + 38}" y="{y}">{name}</text>')
    with open(path, "w") as file:
        file.write("\n".join(svg + ["</svg>", ""]))


load()
if context:
    print(f"{context['num_cpus']} cores at {context['mhz_per_cpu']} MHz, load "
          f"{context['load_avg'][0]:.1f}, {context['date'][:10]}")
chain()
growth("fan", "branch", "Fan: 1 → n → 1, per frame and branch")
rows.setdefault("routes", {}).setdefault("zelk", {}).update(rows.get("routes26", {}).get("zelk", {}))
growth("routes", "route", "Chains of 32 blocks at once, per frame and route")
growth("building", "block", "Building: blocks with their links in one batch, per block")
versus("fifo", "FIFO: 480 × 4 bytes written and read by one thread", "plain locked ring")
versus("fifo-stream", "FIFO: streamed from one thread to another", "JACK ring")
actions()
offline()
stock()
versus("log-suppressed", "A suppressed record", "empty call")
versus("log-emitted", "A record to a file", "write()")
