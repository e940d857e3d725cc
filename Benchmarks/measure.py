# SPDX-License-Identifier: MIT
"""Measures everything that scripts/bench reports and writes it to one JSON file.

    measure.py BUILD BUILD_I386 FOLDER RESULTS

FOLDER lies on tmpfs. The numbers of rounds and seconds stand here and nowhere else.
"""

import concurrent.futures
import datetime
import json
import os
import platform
import subprocess
import sys
import time

from sessions import WIDE_COPIES, Session

ROUNDS = 7
# Seconds of media: enough for CPU times of tens of milliseconds, and two lengths whose difference is counted.
WORKLOADS = {
    "movie": {"timed": 600, "counted": (20, 60)},
    "movie-h264": {"timed": 600, "counted": (20, 60)},
    "movie-n264": {"timed": 600, "counted": (20, 60)},
    "audio": {"timed": 7200, "counted": (200, 800)},
    "webm": {"timed": 600, "counted": (20, 60)},
}
LENGTHS = (600, 3600, 4 * 3600, 10 * 3600)
GROWTH_ROUNDS = 3


def participants(workload):
    """(name, writer, whether of i386)"""
    rows = [("limit", "limit", False), ("limit i386", "limit", True)]
    if workload.startswith("movie-"): # the peers that take start codes, and the search that these need
        rows += [("limit+search", "limit+search", False), ("limit+search i386", "limit+search", True)]
    rows += [("qf_mkv", "qf_mkv", False), ("qf_mkv i386", "qf_mkv", True)]
    if not workload.startswith("movie-"):
        rows += [("libwebm", "libwebm", False), ("libmatroska", "libmatroska", False)]
    rows += [("libavformat", "libavformat", False)]
    if workload != "webm": # libavformat writes no CRC elements into WebM
        rows += [("libavformat crc", "libavformat-crc", False)]
    return rows


class Measurement:
    def __init__(self, folders, folder):
        self.folders = folders # by whether of i386
        self.folder = folder

    def session(self, writer, is_i386, workload, seconds, sink):
        output = "-" if sink == "count" else os.path.join(self.folder, f"{writer}-{is_i386}-{workload}-{seconds}")
        return Session(self.folders[is_i386], writer, workload, seconds, output)

    def cpu(self):
        """Nanoseconds of CPU for each frame: {workload: {sink: {participant: [one for each round]}}}"""
        result = {}
        for workload, lengths in WORKLOADS.items():
            rows = participants(workload)
            result[workload] = {sink: {name: [] for name, _, _ in rows} for sink in ("file", "count")}
            for number in range(ROUNDS):
                turn = number * len(rows) // ROUNDS # another one begins each time
                for name, writer, is_i386 in rows[turn:] + rows[:turn]:
                    for sink in ("file", "count"):
                        session = self.session(writer, is_i386, workload, lengths["timed"], sink)
                        cost = session.time()
                        result[workload][sink][name].append(cost["cpu_s"] * 1e9 / cost["frames"])
                        session.remove()
        return result

    def counts(self):
        """Per frame and per MB, from the difference of two lengths, so that opening and closing cancel out."""

        def count(workload, name, writer, is_i386):
            short, long = (self.session(writer, is_i386, workload, seconds, "file")
                           for seconds in WORKLOADS[workload]["counted"])
            difference = {key: value - short_value for (key, value), short_value in
                          zip(long.count(WIDE_COPIES).items(), short.count(WIDE_COPIES).values())}
            short.remove()
            long.remove()
            return workload, name, {"instructions": difference["instructions"] / difference["frames"],
                                    "system_calls": difference["system_calls"] / (difference["payload"] / 1e6)}

        jobs = [(workload, *row) for workload in WORKLOADS for row in
                participants(workload) + [("none", "none", False), ("none i386", "none", True)]]
        result = {workload: {} for workload in WORKLOADS}
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            for workload, name, figures in pool.map(lambda job: count(*job), jobs):
                result[workload][name] = figures
        return result

    def memory(self):
        result = {}
        for workload, lengths in WORKLOADS.items():
            result[workload] = {}
            for name, writer, is_i386 in participants(workload):
                cost = self.session(writer, is_i386, workload, lengths["timed"], "count").weigh()
                result[workload][name] = {"allocations": cost["allocations"] / cost["frames"],
                                          "peak_heap": cost["peak_heap"], "peak_memory": cost["peak_memory"],
                                          "seconds": lengths["timed"], "payload": cost["payload"]}
        return result

    def growth(self):
        """{workload: {participant: [{seconds, cpu, peak_heap}]}}, into the sink that counts."""
        result = {}
        for workload in ("movie", "audio", "webm"):
            result[workload] = {}
            for name, writer, is_i386 in (("limit", "limit", False), ("qf_mkv", "qf_mkv", False),
                                          ("qf_mkv i386", "qf_mkv", True)):
                rows = result[workload][name] = []
                for seconds in LENGTHS:
                    heap = self.session(writer, is_i386, workload, seconds, "count").weigh()
                    rows.append({"seconds": seconds, "frames": heap["frames"], "payload": heap["payload"],
                                 "peak_heap": heap["peak_heap"], "cpu": []})
                for _ in range(GROWTH_ROUNDS):
                    for row in rows:
                        session = self.session(writer, is_i386, workload, row["seconds"], "count")
                        cost = session.time(rehearse=False)
                        row["cpu"].append(cost["cpu_s"] * 1e9 / cost["frames"])
        return result

    def parts(self):
        """Google Benchmark's medians, by name."""
        done = subprocess.run([os.path.join(self.folders[False], "qf_bench_parts"), "--benchmark_format=json",
                               "--benchmark_min_time=0.1", "--benchmark_repetitions=5",
                               "--benchmark_report_aggregates_only=true"],
                              capture_output=True, text=True, check=True)
        return {row["run_name"]: row for row in json.loads(done.stdout)["benchmarks"]
                if row["aggregate_name"] == "median"}


def machine():
    with open("/proc/cpuinfo", encoding="ascii") as file:
        models = [line.split(":")[1].strip() for line in file if line.startswith("model name")]
    compiler = subprocess.run(["g++", "--version"], capture_output=True, text=True, check=True).stdout.splitlines()[0]
    versions = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}\n", "libc6:amd64", "libwebm1",
                               "libmatroska7", "libavformat59", "valgrind"], capture_output=True, text=True, check=False)
    return {"processor": f"{len(models)} x {models[0]}", "kernel": platform.release(), "compiler": compiler,
            "packages": versions.stdout.splitlines(), "date": datetime.date.today().isoformat()}


def main():
    build, build_i386, folder, results = sys.argv[1:]
    measurement = Measurement({False: build, True: build_i386}, folder)
    figures = {"machine": machine(), "rounds": ROUNDS, "growth_rounds": GROWTH_ROUNDS,
               "timed_seconds": {name: lengths["timed"] for name, lengths in WORKLOADS.items()}}
    for name in ("cpu", "growth", "parts", "memory", "counts"): # what is timed while nothing else runs comes first
        started = time.monotonic()
        figures[name] = getattr(measurement, name)()
        print(f"{name}: {time.monotonic() - started:.0f} s", flush=True)
    with open(results, "w", encoding="ascii") as file:
        json.dump(figures, file, indent=1)


main()
