#!/usr/bin/env python3
"""Builds the benchmark table from the JSON reports of the programs of bench/.

    scripts/bench_table.py [--build DIR] REPORTS_DIR
    scripts/bench_table.py [--build DIR] --update-readme README.md REPORTS_DIR
    scripts/bench_table.py --check-readme README.md

Reads every REPORTS_DIR/*.json written by Google Benchmark
(--benchmark_out_format=json), takes each benchmark's median over its
repetitions, and prints one Markdown table: our figure, the baseline measured
in the same run, the ratio, the target and whether it is met. Exits with 1
when a figure is missing from the reports.

--update-readme writes the table and its summary lines into the README's
Performance section, in place of the previous ones. --check-readme reads no
report: it checks that the README's table has the rows and targets that
scripts/bench measures today, in the same order (not the figures, which are
the machine's), and exits with 1 when it does not.
"""

import argparse
import glob
import json
import os
import re
import statistics
import sys

CPU = "cpu"    # CPU time of the benchmark's thread: what other load on a shared machine disturbs least
WALL = "wall"  # wall-clock time: for figures that wait on another process or a socket


class Figure:
    def __init__(self, label, ours, baseline=None, baseline_label="", clock=CPU,
                 at_most_ns=None, ratio_at_most=None, ratio_below=None):
        self.label = label
        self.ours = ours
        self.baseline = baseline
        self.baseline_label = baseline_label
        self.clock = clock
        self.at_most_ns = at_most_ns
        self.ratio_at_most = ratio_at_most
        self.ratio_below = ratio_below


FIGURES = [
    Figure("`logInfo`, no logger and no callback (dropped)", "DroppedMessage", at_most_ns=20),
    Figure("`logInfo` to a logger that does nothing", "DispatchToLogger",
           "DirectCallThroughWeakPtr", "virtual call through a locked `weak_ptr`", ratio_at_most=1.5),
    Figure("`FileLogger::info`, 200-byte message, flushed", "FileLoggerInfo",
           "RawWriteOfAFormattedLine", "one `write(2)` of the formatted line", ratio_at_most=1.2),
    Figure("`FileLogger::info`, 200-byte message, flushed", "FileLoggerInfo",
           "SpdlogFlushingEveryLine", "spdlog `basic_file_sink_mt`, flush on every line", ratio_below=1.0),
    Figure("`FileLogger::info`, rotating every 10 MiB, 3 files kept", "RotatingFileLoggerInfo",
           "FileLoggerInfo", "the same logger without rotation", ratio_at_most=1.1),
    Figure("`MemorySpy::captureMemoryUsage`", "CaptureMemoryUsage", at_most_ns=30000),
    Figure("`ProcessProgressionLinear` `++`, lone counter", "LoneCounterIncrement",
           "BareAtomicFetchAdd", "bare atomic `fetch_add`", ratio_at_most=3),
    Figure("`++` on a grandchild, root observed every 100 ms", "ObservedGrandchildIncrement", at_most_ns=150),
    Figure("`System::run(\"true\")`, no logger (wall clock)", "RunProgram",
           "SpawnAndWait", "`posix_spawnp` + `waitpid`", clock=WALL, ratio_at_most=1.15),
    Figure("`execute({\"true\"})` (wall clock)", "ExecuteTrue",
           "SpawnAndWait", "`posix_spawnp` + `waitpid`", clock=WALL, ratio_at_most=1.15),
    Figure("`execute`, 1 MiB of output captured (wall clock)", "ExecuteCapturingAMebibyte",
           "SpawnPipeAndRead", "hand-written spawn + pipe + read loop", clock=WALL, ratio_at_most=1.2),
    Figure("text form parsing, `data.bin@server:4000&timeout=30`", "ParseRemoteTextForm",
           "RegexMatchRemoteTextForm", "`std::regex_match` on the compiled pattern", at_most_ns=150),
    Figure("text form parsing, `C:\\data\\input\\data.bin`", "ParseLocalTextForm",
           "RegexMatchLocalTextForm", "`std::regex_match` on the compiled pattern", at_most_ns=150),
    Figure("`LogFileReader`, 64 MiB log, every line a typed record", "LogFileReaderAllRecords",
           "GetlineLoop", "`std::getline` loop over the same file", ratio_at_most=3),
    Figure("text form rejected, 4 MiB of `@`", "RejectFourMiBOfAtSigns",
           "ThrowTheSameMessage", "building and throwing the same error message", ratio_at_most=1.5),
]

# The remote read reports throughputs in counters rather than a time per
# iteration; its ratio is ours over the baseline's, so higher is better.
REMOTE_READ = "RemoteReadSideBySide"
REMOTE_READ_AT_LEAST = 0.9
FILE_SERVER = "FileServerSideBySide"
FILE_SERVER_AT_LEAST = 1.0

# The log file reader's throughput, in MB/s (10^6 bytes), from the CPU time.
LOG_READER = "LogFileReaderAllRecords"
LOG_READER_AT_LEAST_MBPS = 200

# Cancellation latencies, from the cancellation to the call's return: label,
# benchmark, counter prefix, bound in milliseconds, and the baseline measured
# in the same run (benchmark, counter prefix, what it is), when there is one.
SLICED = "a wait in 50 ms slices that looks at a flag"
EVERY_10_MS = "token looked at every 10 ms"
LATENCIES = [
    ("cancelling `execute` of `sleep 10`, SIGTERM honoured, 100 times", "ExecuteCancelToReturn", "execute", 5,
     ("OldDesignCancelToReturn", "old_design", EVERY_10_MS)),
    ("cancelling a blocked remote read, 100 times", "CancellationLatency", "read", 5,
     ("CancellationLatency", "read_sliced", SLICED)),
    ("cancelling a pending connection, 100 times", "CancellationLatency", "connect", 5,
     ("CancellationLatency", "connect_sliced", SLICED)),
    ("`FileServer::stop()` with a transfer under way, 100 times", "FileServerStopLatency", "stop", 5,
     ("FileServerStopLatency", "polling_stop", "a 50 ms polling accept loop, as before")),
]

# Wake-ups of the calling thread (voluntary context switches) over a whole
# run: label, ours, baseline, the baseline's label, bound.
WAKE_UPS = [
    ("idle `execute` of `sleep 10` with a token and a time limit: wake-ups", "IdleExecuteWakeUps",
     "OldDesignIdleWakeUps", EVERY_10_MS, 10),
]


def benchmark_name(run_name):
    """The function name: run names carry suffixes such as /repeats:5/real_time."""
    return run_name.split("/")[0]


def to_ns(value, unit):
    return value * {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[unit]


def load(directory):
    """Returns ({benchmark: {"cpu": ns, "wall": ns, counters...}}, [contexts])."""
    medians, singles, contexts = {}, {}, []
    for path in sorted(glob.glob(os.path.join(directory, "*.json"))):
        with open(path, encoding="utf-8") as file:
            report = json.load(file)
        contexts.append(report.get("context", {}))
        for run in report.get("benchmarks", []):
            if run.get("error_occurred"):
                continue
            name = benchmark_name(run.get("run_name", run["name"]))
            figures = {key: value for key, value in run.items() if isinstance(value, (int, float))}
            figures[CPU] = to_ns(run["cpu_time"], run["time_unit"])
            figures[WALL] = to_ns(run["real_time"], run["time_unit"])
            if run.get("run_type") == "aggregate":
                if run.get("aggregate_name") == "median":
                    medians[name] = figures
            else:
                singles.setdefault(name, []).append(figures)
    # Without aggregates (a single repetition), the median of the runs.
    for name, runs in singles.items():
        if name not in medians:
            medians[name] = {key: statistics.median(run[key] for run in runs)
                             for key in runs[0] if all(key in run for run in runs)}
    return medians, contexts


def format_time(ns):
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if ns >= scale:
            return f"{ns / scale:.3g} {unit}"
    return f"{ns:.3g} ns"


def format_limit(value):
    return f"{value:g}"


def rows(medians):
    """Yields (figure, ours, baseline, ratio, target, met), met None when missing."""
    for figure in FIGURES:
        ours = medians.get(figure.ours, {}).get(figure.clock)
        baseline = medians.get(figure.baseline, {}).get(figure.clock) if figure.baseline else None
        if figure.at_most_ns is not None:
            # An absolute target; a baseline, when named, is shown beside it.
            target = f"at most {format_time(figure.at_most_ns)}"
            if ours is None:
                yield figure.label, "missing", "", "", target, None
                continue
            shown = f"{format_time(baseline)} ({figure.baseline_label})" if baseline is not None else ""
            ratio = f"{ours / baseline:.3f}" if baseline is not None else ""
            yield figure.label, format_time(ours), shown, ratio, target, ours <= figure.at_most_ns
            continue
        if figure.ratio_at_most is not None:
            target = f"at most {format_limit(figure.ratio_at_most)}"
        else:
            target = f"below {format_limit(figure.ratio_below)}"
        if ours is None or baseline is None:
            yield figure.label, "missing" if ours is None else format_time(ours), \
                "missing" if baseline is None else format_time(baseline), "", target, None
            continue
        ratio = ours / baseline
        met = ratio <= figure.ratio_at_most if figure.ratio_at_most is not None else ratio < figure.ratio_below
        yield (figure.label, format_time(ours), f"{format_time(baseline)} ({figure.baseline_label})",
               f"{ratio:.3f}", target, met)

    reader = medians.get(LOG_READER, {}).get("bytes_per_second")
    getline = medians.get("GetlineLoop", {}).get("bytes_per_second")
    target = f"at least {LOG_READER_AT_LEAST_MBPS} MB/s"
    if reader is None:
        yield "`LogFileReader` throughput (CPU time)", "missing", "", "", target, None
    else:
        shown = f"{getline / 1e6:.0f} MB/s (`std::getline` loop)" if getline else ""
        yield ("`LogFileReader` throughput (CPU time)", f"{reader / 1e6:.0f} MB/s", shown,
               f"{reader / getline:.3f}" if getline else "", target, reader / 1e6 >= LOG_READER_AT_LEAST_MBPS)

    read = medians.get(REMOTE_READ, {})
    size = read.get("transfer_MiB")
    rounds = f", {size:.0f} MiB, best of 5 rounds (wall clock)" if size is not None else ""
    recv = "plain `recv` loop, same buffer"
    yield from throughput_row("`makeStream` remote read over loopback" + rounds, read,
                              "makeStream_GBps", "plain_recv_GBps", recv, REMOTE_READ_AT_LEAST)
    yield from throughput_row("`makeStream(StreamOptions)`, idle timeout set" + rounds, read,
                              "stream_options_GBps", "plain_recv_GBps", recv, REMOTE_READ_AT_LEAST)
    yield from throughput_row("`FileServer` to a `recv` client" + rounds, medians.get(FILE_SERVER, {}),
                              "fileserver_GBps", "socat_GBps", "`socat -u OPEN:file TCP-LISTEN:port`",
                              FILE_SERVER_AT_LEAST)
    for label, figures, name, at_most, baseline in LATENCIES:
        baseline_figures = medians.get(baseline[0], {}) if baseline else None
        yield from latency_row(label, medians.get(figures, {}), name, at_most, baseline_figures,
                               *(baseline[1:] if baseline else ()))
    for label, ours, baseline, baseline_label, at_most in WAKE_UPS:
        yield from wake_up_row(label, medians.get(ours, {}), medians.get(baseline, {}), baseline_label, at_most)


def latency_row(label, figures, name, at_most_ms, baseline=None, baseline_name="", baseline_label=""):
    """Median and worst of 100 cancellations, against their bound; beside
    them the baseline's, when there is one, and the ratio of the medians."""
    median, worst = figures.get(name + "_median_ms"), figures.get(name + "_worst_ms")
    target = f"worst at most {at_most_ms} ms"
    shown, ratio = "", ""
    if baseline is not None:
        old_median, old_worst = baseline.get(baseline_name + "_median_ms"), baseline.get(baseline_name + "_worst_ms")
        shown = "missing" if old_median is None or old_worst is None else \
            f"{old_median:.1f} ms median, {old_worst:.1f} ms worst ({baseline_label})"
        if median is not None and old_median:
            ratio = f"{median / old_median:.3f}"
    if median is None or worst is None:
        yield label, "missing", shown, "", target, None
        return
    yield (label, f"{median:.1f} ms median, {worst:.1f} ms worst", shown, ratio, target, worst <= at_most_ms)


def wake_up_row(label, figures, baseline, baseline_label, at_most):
    """A count of wake-ups against its bound, the baseline's beside it."""
    ours, old = figures.get("wakeups"), baseline.get("wakeups")
    target = f"at most {at_most}"
    shown = "missing" if old is None else f"{old:.0f} ({baseline_label})"
    if ours is None:
        yield label, "missing", shown, "", target, None
        return
    yield label, f"{ours:.0f}", shown, "", target, ours <= at_most


def throughput_row(label, figures, ours_name, baseline_name, baseline_label, at_least):
    """One row of throughputs: ours over the baseline's, so higher is better."""
    target = f"at least {format_limit(at_least)} (throughput: higher is better)"
    ours, baseline = figures.get(ours_name), figures.get(baseline_name)
    if ours is None or baseline is None:
        yield label, "missing", "missing", "", target, None
        return
    ratio = ours / baseline
    yield (label, f"{ours:.2f} GB/s", f"{baseline:.2f} GB/s ({baseline_label})",
           f"{ratio:.3f}", target, ratio >= at_least)


def compiler(build):
    """'g++ 12.2.0' from the build tree's CMake compiler record, if there is one."""
    for path in glob.glob(os.path.join(build, "CMakeFiles", "*", "CMakeCXXCompiler.cmake")):
        with open(path, encoding="utf-8") as file:
            text = file.read()
        identifier = re.search(r'set\(CMAKE_CXX_COMPILER_ID "([^"]*)"\)', text)
        version = re.search(r'set\(CMAKE_CXX_COMPILER_VERSION "([^"]*)"\)', text)
        if identifier and version:
            name = {"GNU": "g++", "Clang": "clang++"}.get(identifier.group(1), identifier.group(1))
            return f"{name} {version.group(1)}"
    return "unknown compiler"


def operating_system():
    try:
        with open("/etc/os-release", encoding="utf-8") as file:
            for line in file:
                if line.startswith("PRETTY_NAME="):
                    return line.split("=", 1)[1].strip().strip('"')
    except OSError:
        pass
    return sys.platform


def machine(contexts, build):
    cpus = max((context.get("num_cpus", 0) for context in contexts), default=0)
    loads = [context["load_avg"][0] for context in contexts if context.get("load_avg")]
    text = f"{cpus} cores, {operating_system()}, {compiler(build)}, release build"
    if loads:
        text += f"; load average {min(loads):.1f} to {max(loads):.1f} while the programs started"
    return text


def repetitions(medians):
    """'3 repetitions' or '3 repetitions (5 for RunProgram, SpawnAndWait)'."""
    counts = {name: int(figures.get("repetitions", 1)) for name, figures in medians.items()}
    if not counts:
        return "no repetitions"
    usual = statistics.mode(counts.values())
    others = {}
    for name, count in sorted(counts.items()):
        if count != usual:
            others.setdefault(count, []).append(name)
    text = f"{usual} repetition" + ("s" if usual != 1 else "")
    if others:
        text += " (" + "; ".join(f"{count} for {', '.join(names)}" for count, names in sorted(others.items())) + ")"
    return text


def render(medians, contexts, build):
    """The table and its summary lines, and how many figures are missing."""
    header = ("figure", "ours", "baseline, same run", "ratio", "target", "")
    table = []
    missing = met = 0
    for label, ours, baseline, ratio, target, ok in rows(medians):
        mark = "missing" if ok is None else ("pass" if ok else "FAIL")
        missing += ok is None
        met += bool(ok)
        table.append((label, ours, baseline, ratio, target, mark))

    widths = [max(len(row[column]) for row in [header] + table) for column in range(len(header))]

    def line(cells):
        return "| " + " | ".join(cell.ljust(width) for cell, width in zip(cells, widths)) + " |"

    lines = [line(header), "|" + "|".join("-" * (width + 2) for width in widths) + "|"]
    lines += [line(row) for row in table]
    lines += ["",
              f"Medians of {repetitions(medians)}; CPU time of the benchmark's thread, "
              "wall-clock time where marked; ratio = ours / baseline.",
              f"Machine: {machine(contexts, build)}.",
              f"Targets met: {met} of {len(table)}" + (f"; {missing} figures missing" if missing else "") + "."]
    return "\n".join(lines) + "\n", missing


TABLE_START = "| figure "
TABLE_END = "Targets met: "


def readme_table(text):
    """(start, end) offsets of the README's table and summary, or None."""
    start = text.find("\n" + TABLE_START)
    if start < 0:
        return None
    end = text.find("\n" + TABLE_END, start)
    if end < 0:
        return None
    return start + 1, text.index("\n", end + 1) + 1


# A throughput row's label names the transfer's size, which --quick changes.
SIZE_SUFFIX = re.compile(r", [0-9]+ MiB, best of 5 rounds \(wall clock\)$")


def check_readme(path):
    with open(path, encoding="utf-8") as file:
        text = file.read()
    span = readme_table(text)
    if span is None:
        print(f"{path}: no benchmark table (a line starting '{TABLE_START}' up to '{TABLE_END}...')",
              file=sys.stderr)
        return 1
    found = []
    for line in text[span[0]:span[1]].splitlines()[2:]:
        if not line.startswith("|"):
            break
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        found.append((SIZE_SUFFIX.sub("", cells[0]), cells[4]))
    expected = [(label, target) for label, _, _, _, target, _ in rows({})]
    if found == expected:
        print(f"{path}: the benchmark table has the {len(expected)} rows of scripts/bench")
        return 0
    print(f"{path}: the benchmark table is not the one scripts/bench prints today", file=sys.stderr)
    for row in expected:
        if row not in found:
            print(f"  missing: {row[0]} (target: {row[1]})", file=sys.stderr)
    for row in found:
        if row not in expected:
            print(f"  no longer measured: {row[0]} (target: {row[1]})", file=sys.stderr)
    if sorted(found) == sorted(expected):
        print("  the rows are in another order", file=sys.stderr)
    return 1


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("reports", nargs="?", help="directory of the programs' JSON reports")
    parser.add_argument("--build", default="build/bench", help="the build tree, to name the compiler")
    parser.add_argument("--update-readme", metavar="README", help="write the table into README's Performance section")
    parser.add_argument("--check-readme", metavar="README", help="check README's table against today's rows")
    arguments = parser.parse_args()

    if arguments.check_readme:
        return check_readme(arguments.check_readme)
    if not arguments.reports:
        parser.error("REPORTS_DIR is needed")

    medians, contexts = load(arguments.reports)
    if not contexts:
        print(f"no JSON report in {arguments.reports}", file=sys.stderr)
        return 1
    table, missing = render(medians, contexts, arguments.build)
    print(table, end="")
    if arguments.update_readme:
        with open(arguments.update_readme, encoding="utf-8") as file:
            text = file.read()
        span = readme_table(text)
        if span is None:
            print(f"{arguments.update_readme}: no benchmark table to replace", file=sys.stderr)
            return 1
        with open(arguments.update_readme, "w", encoding="utf-8") as file:
            file.write(text[:span[0]] + table + text[span[1]:])
    return 1 if missing else 0


if __name__ == "__main__":
    sys.exit(main())
