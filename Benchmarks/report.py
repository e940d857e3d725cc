# SPDX-License-Identifier: MIT
"""Turns the figures of measure.py into a table, a file for spreadsheets and a plot.

    report.py RESULTS FOLDER [DOCUMENT...]

DOCUMENT: a Markdown file, in which the table, or a sentence with its main figures, takes the place of what stands between
the two marks of either.
"""

import csv
import json
import os
import re
import statistics
import subprocess
import sys

TITLES = {
    "movie": "movie (length-prefixed)", "movie-h264": "movie (start codes, `H264`)",
    "movie-n264": "movie (start codes, `N264`)", "audio": "audio", "webm": "webm",
}
PEERS = ("libwebm", "libmatroska", "libavformat", "libavformat crc")
MARKS = ("<!-- figures: from here to the next mark written by scripts/bench -->", "<!-- figures end -->")
SPEED_MARKS = ("<!-- speed: from here to the next mark written by scripts/bench -->", "<!-- speed end -->")


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|---|" + "---:|" * (len(head) - 1)]
    return lines + ["| " + " | ".join(row) + " |" for row in rows] + [""]


class Report:
    def __init__(self, figures):
        self.figures = figures

    def cpu(self, workload, name, sink="file"):
        return statistics.median(self.figures["cpu"][workload][sink][name])

    def spread(self, workload, name, sink):
        values = self.figures["cpu"][workload][sink][name]
        return f"{statistics.median(values):,.0f} ({min(values):,.0f} to {max(values):,.0f})"

    def instructions(self, workload, name):
        return self.figures["counts"][workload][name]["instructions"]

    def names(self, workload):
        return list(self.figures["cpu"][workload]["file"])

    def best_peer(self, workload, cost):
        return min((name for name in PEERS if name in self.names(workload)), key=lambda name: cost(workload, name))

    # ---- the parts of the table

    def rows(self):
        """Every figure of every participant, by workload."""
        for workload in self.figures["cpu"]:
            best = self.cpu(workload, self.best_peer(workload, self.cpu))
            for name in self.names(workload):
                limit = "limit i386" if name.endswith("i386") else "limit"
                memory = self.figures["memory"][workload][name]
                yield {
                    "workload": workload, "writer": name,
                    "cpu_file_ns": self.cpu(workload, name), "cpu_count_ns": self.cpu(workload, name, "count"),
                    "to_limit": self.cpu(workload, name) / self.cpu(workload, limit),
                    "to_best_peer": self.cpu(workload, name) / best,
                    "instructions": self.instructions(workload, name),
                    "allocations": memory["allocations"],
                    "peak_heap": memory["peak_heap"], "peak_memory": memory["peak_memory"],
                    "system_calls_per_mb": self.figures["counts"][workload][name]["system_calls"],
                }

    def workload_tables(self):
        lines = []
        for workload, title in TITLES.items():
            feeding = {name: self.instructions(workload, name) for name in ("none", "none i386")}
            lines += [f"### {title}", ""]
            lines += table(
                ["", "CPU, file on tmpfs (ns/frame)", "to the limit", "to the best peer", "CPU, counting sink (ns/frame)",
                 "instructions/frame", "allocations/frame", "peak heap (KiB)", "process growth (KiB)",
                 "system calls/MB"],
                [[row["writer"], self.spread(workload, row["writer"], "file"), f"{row['to_limit']:.2f}",
                  f"{row['to_best_peer']:.2f}", self.spread(workload, row["writer"], "count"),
                  f"{row['instructions']:,.0f}", f"{row['allocations']:.2f}", f"{row['peak_heap'] / 1024:,.0f}",
                  f"{row['peak_memory'] / 1024:,.0f}", f"{row['system_calls_per_mb']:.1f}"]
                 for row in self.rows() if row["workload"] == workload])
            lines += [f"Feeding alone: {feeding['none']:.0f} instructions a frame, {feeding['none i386']:.0f} on i386; "
                      "they are part of every figure above.", ""]
        return lines

    def growth_table(self):
        rows = []
        for workload, by_name in self.figures["growth"].items():
            for name, lengths in by_name.items():
                rows.append([f"{workload}, {name}"] +
                            [f"{statistics.median(row['cpu']):,.0f} ns, {row['peak_heap'] / 1024:,.0f} KiB"
                             for row in lengths])
        return table(["CPU per frame and peak heap", "10 minutes", "1 hour", "4 hours", "10 hours"], rows)

    def parts_table(self):
        rows = []
        for name, row in self.figures["parts"].items():
            rate = (f"{row['bytes_per_second'] / 1e9:.1f} GB/s" if "bytes_per_second" in row else
                    f"{row['items_per_second'] / 1e6:,.0f} M/s" if "items_per_second" in row else "")
            rows.append([f"`{name}`", f"{row['cpu_time']:,.0f} ns", rate])
        return table(["part", "CPU", "rate"], rows)

    # ---- targets

    def targets(self):
        """(what, target, measured, whether reached)"""
        for workload, share in (("movie", 1), ("audio", 0.5), ("webm", 1)):
            peer = self.best_peer(workload, self.instructions)
            most = self.instructions(workload, peer) * share
            own = self.instructions(workload, "qf_mkv")
            part = "half of" if share < 1 else "below"
            yield (f"{workload}: instructions per frame", f"{part} {peer}: {most:,.0f}", f"{own:,.0f}",
                   own <= most if share < 1 else own < most)
        for workload, most in (("movie", 1.10), ("webm", 1.10), ("audio", 1.6)):
            ratio = self.cpu(workload, "qf_mkv") / self.cpu(workload, "limit")
            peer = self.best_peer(workload, self.cpu)
            yield (f"{workload}: CPU to the limit (best peer here: {peer}, "
                   f"{self.cpu(workload, peer) / self.cpu(workload, 'limit'):.2f})", f"{most:.2f}", f"{ratio:.2f}",
                   ratio <= most)
        for workload in ("movie-h264", "movie-n264"):
            limit = self.cpu(workload, "limit")
            most = 1.3 * limit + self.cpu(workload, "limit+search") - limit
            own = self.cpu(workload, "qf_mkv")
            yield (f"{workload}: CPU, 1.3 times the limit and a search pass", f"{most:,.0f} ns", f"{own:,.0f} ns",
                   own <= most)
        for size in ("12000", "1048576"):
            rate = {name: self.figures["parts"][f"{name}/{size}"]["bytes_per_second"] / 1e9
                    for name in ("FindStartCodeInRandom", "MemchrOfAbsent", "MemchrOfEach")}
            yield (f"start-code search, {int(size):,} random octets: half of memchr's speed",
                   f"{rate['MemchrOfEach'] / 2:.0f} GB/s stopping at each octet that it seeks, "
                   f"{rate['MemchrOfAbsent'] / 2:.0f} GB/s never stopping",
                   f"{rate['FindStartCodeInRandom']:.0f} GB/s",
                   rate["FindStartCodeInRandom"] >= rate["MemchrOfAbsent"] / 2)
        for workload in TITLES:
            ratio = self.cpu(workload, "qf_mkv i386") / self.cpu(workload, "qf_mkv")
            yield f"{workload}: CPU of i386 to x86_64", "1.30", f"{ratio:.2f}", ratio <= 1.3
        for workload, by_name in self.figures["growth"].items():
            for name, rows in by_name.items():
                if name == "limit":
                    continue
                last = rows[-1]
                most = 2 * last["payload"] / last["seconds"] + 300 * last["seconds"]
                yield (f"{workload}, 10 hours, {name}: heap", f"{most / 1024:,.0f} KiB",
                       f"{last['peak_heap'] / 1024:,.0f} KiB", last["peak_heap"] <= most)
                ratio, limit = (statistics.median(rows[-1]["cpu"]) / statistics.median(rows[0]["cpu"])
                                for rows in (rows, by_name["limit"]))
                yield (f"{workload}, {name}: CPU of 10 hours to 10 minutes (the limit: {limit:.2f})",
                       "1.00, and 5 % for the clock", f"{ratio:.2f}", ratio <= 1.05)
        for workload in TITLES:
            own = self.figures["memory"][workload]["qf_mkv"]["allocations"]
            yield f"{workload}: allocations per frame", "3", f"{own:.2f}", own <= 3

    def target_table(self):
        return table(["", "target", "measured", "reached"],
                     [[what, target, measured, "yes" if reached else "**no**"]
                      for what, target, measured, reached in self.targets()])

    def markdown(self):
        machine = self.figures["machine"]
        lines = [f"Measured on {machine['date']}: {machine['processor']}, Linux {machine['kernel']}, "
                 f"{machine['compiler']}; " + ", ".join(machine["packages"]) + ". "
                 f"Medians of {self.figures['rounds']} rounds, in brackets the lowest and the highest.", ""]
        return "\n".join(lines + ["### Targets", ""] + self.target_table() + self.workload_tables() +
                         ["### Growth", "", "Into the sink that counts; the length of the file is the media's.", ""] +
                         self.growth_table() + ["### Small parts", ""] + self.parts_table())


# ---- the plot

PLOT = """set terminal svg noenhanced size 1200,1000 font "sans,13" background "#ffffff"
set output "{output}"
set multiplot layout 2,2
set style data histograms
set style fill solid 0.85 border -1
set boxwidth 0.9
set grid ytics
set key outside bottom center horizontal maxcols 4
set yrange [0:*]
set title "CPU to the limit, file on tmpfs (x86_64)"
plot for [i=2:{columns}] "{folder}/cpu.dat" using i:xtic(1) title columnheader(i)
set title "Instructions per frame (x86_64)"
set logscale y
set yrange [100:*]
plot for [i=2:{columns}] "{folder}/instructions.dat" using i:xtic(1) title columnheader(i)
set style data linespoints
unset logscale y
set yrange [0:*]
set logscale x
set xtics ("10 min" 600, "1 h" 3600, "4 h" 14400, "10 h" 36000)
set xrange [500:43000]
set title "CPU per frame by length of the file (ns)"
plot for [i=2:{lengths}] "{folder}/growth-cpu.dat" using 1:i title columnheader(i)
set title "Peak heap by length of the file (MiB)"
plot for [i=2:{lengths}] "{folder}/growth-heap.dat" using 1:i title columnheader(i)
"""


def write_columns(path, head, rows):
    with open(path, "w", encoding="ascii") as file:
        for row in [head] + rows:
            file.write(" ".join(f'"{cell}"' if isinstance(cell, str) else str(cell) for cell in row) + "\n")


def plot(report, folder):
    writers = ("limit", "limit+search", "qf_mkv") + PEERS
    for file, cost in (("cpu", lambda workload, name: report.cpu(workload, name) / report.cpu(workload, "limit")),
                       ("instructions", report.instructions)):
        write_columns(os.path.join(folder, f"{file}.dat"), ["workload", *writers],
                      [[workload] + [cost(workload, name) if name in report.names(workload) else "-" for name in writers]
                       for workload in TITLES])
    growth = report.figures["growth"]
    columns = [(f"{workload} {name}", rows) for workload, by_name in growth.items() for name, rows in by_name.items()]
    seconds = [row["seconds"] for row in columns[0][1]]
    for file, cost in (("growth-cpu", lambda row: statistics.median(row["cpu"])),
                       ("growth-heap", lambda row: row["peak_heap"] / 2 ** 20)):
        write_columns(os.path.join(folder, f"{file}.dat"), ["seconds"] + [name for name, _ in columns],
                      [[length] + [cost(rows[i]) for _, rows in columns] for i, length in enumerate(seconds)])
    commands = PLOT.format(output=os.path.join(folder, "bench.svg"), folder=folder, columns=1 + len(writers),
                           lengths=1 + len(columns))
    subprocess.run(["gnuplot"], input=commands, text=True, check=True)


def speed(report):
    """The main figures, for people who read one sentence."""
    def microseconds(workload, name):
        return f"{report.cpu(workload, name) / 1000:.2f}"
    return (f"**Speed**: a frame of a movie costs {microseconds('movie', 'qf_mkv')} µs and a frame of sound "
            f"{microseconds('audio', 'qf_mkv')} µs,\nwhere copying it twice and writing it costs "
            f"{microseconds('movie', 'limit')} and {microseconds('audio', 'limit')} µs.")


def put(document, text, marks):
    with open(document, encoding="utf-8") as file:
        old = file.read()
    new, count = re.subn(f"{re.escape(marks[0])}.*{re.escape(marks[1])}", lambda _: f"{marks[0]}\n{text}\n{marks[1]}", old,
                         flags=re.DOTALL)
    with open(document, "w", encoding="utf-8") as file:
        file.write(new)
    return count


def main():
    results, folder = sys.argv[1:3]
    with open(results, encoding="ascii") as file:
        report = Report(json.load(file))
    text = report.markdown()
    with open(os.path.join(folder, "table.md"), "w", encoding="ascii") as file:
        file.write(text)
    rows = list(report.rows())
    with open(os.path.join(folder, "table.csv"), "w", encoding="ascii", newline="") as file:
        writer = csv.DictWriter(file, rows[0])
        writer.writeheader()
        writer.writerows(rows)
    plot(report, folder)
    for document in sys.argv[3:]:
        if put(document, "\n" + text, MARKS) + put(document, speed(report), SPEED_MARKS) != 1:
            raise RuntimeError(f"{document} has no place for the figures")


main()
