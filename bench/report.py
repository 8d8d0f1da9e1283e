#!/usr/bin/env python3
"""Runs every benchmark program and prints ours beside the peers as a table.

Each benchmark is named "<Family>_<Measure>/<implementation>[/<more>...]".
The implementation "ovkit" is ours; any other is a peer. Benchmarks with the
same measure and the same trailing parts (arguments, "real_time",
"threads:2", ...) are compared: one row per peer, times being the median of
the repetitions (wall-clock time per iteration), ratio = ours / peer.

    bench/report.py [--build-dir build/bench] [--repetitions 5] [-- extra flags]

Below the table, medians whose runs spread widely (coefficient of variation
above 10 %) are named: read those rows with care, or run again.

Programs are the executables named *Bench in <build-dir>/bench. Their progress
goes to standard error; standard output carries the markdown table only.
"""

import argparse
import json
import os
import subprocess
import sys

OURS = "ovkit"
NOISY_CV = 0.10
UNIT_TO_NS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def bench_programs(directory):
    if not os.path.isdir(directory):
        sys.exit(f"report.py: no benchmark folder {directory}; build the bench preset first")
    programs = []
    for name in sorted(os.listdir(directory)):
        path = os.path.join(directory, name)
        if name.endswith("Bench") and os.path.isfile(path) and os.access(path, os.X_OK):
            programs.append(path)
    if not programs:
        sys.exit(f"report.py: no benchmark program in {directory}")
    return programs


def run_program(path, repetitions, extra):
    command = [
        path,
        "--benchmark_format=json",
        f"--benchmark_repetitions={repetitions}",
        "--benchmark_enable_random_interleaving=true",
        "--benchmark_report_aggregates_only=true",
    ] + extra
    print(f"report.py: running {os.path.basename(path)}", file=sys.stderr, flush=True)
    result = subprocess.run(command, stdout=subprocess.PIPE, check=False)
    if result.returncode != 0:
        sys.exit(f"report.py: {path} failed with status {result.returncode}")
    if not result.stdout.strip():
        # A --benchmark_filter that matches nothing in this program.
        return {"benchmarks": []}
    return json.loads(result.stdout)


def split_name(run_name):
    """(measure, implementation, key) of a run name; None if it breaks the convention."""
    parts = run_name.split("/")
    if len(parts) < 2 or not parts[0] or not parts[1]:
        return None
    measure = parts[0]
    if len(parts) > 2:
        measure += " (" + ", ".join(parts[2:]) + ")"
    return measure, parts[1], (parts[0], tuple(parts[2:]))


def collect_medians(outputs):
    """({key: (measure, {implementation: median ns})}, [noisy run names])."""
    table = {}
    noisy = []
    for output in outputs:
        for entry in output.get("benchmarks", []):
            aggregate = entry.get("aggregate_name")
            if entry.get("run_type") != "aggregate" or aggregate not in ("median", "cv"):
                continue
            run_name = entry.get("run_name") or entry["name"].rsplit("_" + aggregate, 1)[0]
            if aggregate == "cv":
                if entry["real_time"] > NOISY_CV:
                    noisy.append(f"{run_name} ({entry['real_time']:.0%})")
                continue
            parsed = split_name(run_name)
            if parsed is None:
                print(f"report.py: {run_name} does not follow <Measure>/<implementation>; left out",
                      file=sys.stderr)
                continue
            measure, implementation, key = parsed
            nanoseconds = entry["real_time"] * UNIT_TO_NS[entry.get("time_unit", "ns")]
            table.setdefault(key, (measure, {}))[1][implementation] = nanoseconds
    return table, sorted(noisy)


def format_time(nanoseconds):
    if nanoseconds is None:
        return "-"
    if nanoseconds < 10:
        return f"{nanoseconds:.2f} ns"
    if nanoseconds < 1000:
        return f"{nanoseconds:.1f} ns"
    if nanoseconds < 1e6:
        return f"{nanoseconds / 1e3:.2f} µs"
    return f"{nanoseconds / 1e6:.2f} ms"


def markdown_table(table):
    lines = [
        "| measure | ours | peer | peer time | ratio (ours/peer) |",
        "|---|---:|---|---:|---:|",
    ]
    for _, (measure, times) in sorted(table.items()):
        ours = times.get(OURS)
        peers = sorted(name for name in times if name != OURS)
        if not peers:
            lines.append(f"| {measure} | {format_time(ours)} | - | - | - |")
        for peer in peers:
            theirs = times[peer]
            ratio = f"{ours / theirs:.2f}" if ours is not None and theirs > 0 else "-"
            lines.append(f"| {measure} | {format_time(ours)} | `{peer}` | {format_time(theirs)} | {ratio} |")
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build-dir", default="build/bench", help="build tree of the bench preset")
    parser.add_argument("--repetitions", type=int, default=5, help="runs of each benchmark; the median is kept")
    parser.add_argument("extra", nargs="*", help="further flags for every program, after --")
    args = parser.parse_args()

    directory = os.path.join(args.build_dir, "bench")
    outputs = [run_program(p, args.repetitions, args.extra) for p in bench_programs(directory)]
    table, noisy = collect_medians(outputs)
    print(markdown_table(table))
    if noisy:
        print()
        print(f"Spread above {NOISY_CV:.0%} between repetitions: " + "; ".join(f"`{n}`" for n in noisy) + ".")


if __name__ == "__main__":
    main()
