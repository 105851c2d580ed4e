#!/usr/bin/env python3
"""Runs the benchmark programs job by job, prints one table and writes it to a file; compares two such files.

A row of a program is named job/contestant (see rows.h). The file has one line for each: tab-separated job, contestant,
median, smallest and largest rate of the repeated runs, the rate's unit (B/s or items/s), kernel, note, error.
"""
import argparse
import datetime
import fnmatch
import json
import math
import os
import platform
import re
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
OURS = "qv"
LIMITS = ("memcpy", "memcpy in pieces", "system call")  # contestants that are no peers but what bounds the job
FIELDS = ("job", "contestant", "median", "low", "high", "unit", "kernel", "note", "error")
MODIFIERS = re.compile(r"(real_time|manual_time|process_time|iterations:\d+|repeats:\d+|min_time:[\d.]+)$")
KNOWN_KEYS = {"items_per_second", "bytes_per_second", "family_index", "per_family_instance_index", "repetitions",
              "repetition_index", "threads", "iterations", "real_time", "cpu_time", "answer"}
NOISE = 0.05  # a change below this is none


def split_name(name):
    """Job and contestant of a row's full name."""
    job, contestant, *rest = name.split("/")
    return ", ".join([job] + [part.replace(":", " ") for part in rest if not MODIFIERS.match(part)]), contestant


def programs(folder):
    """The command lines of all programs; NumPy's rows last, where there is a NumPy."""
    found = [[str(Path(folder) / name)] for name in (Path(folder) / "programs.txt").read_text().split()]
    python = "/usr/bin/python3"
    if subprocess.run([python, "-c", "import numpy"], capture_output=True).returncode == 0:
        found.append([python, str(HERE / "numpy_rows.py")])
    return found


def list_jobs(commands, pattern):
    """{job: [(command, [full names])]}, in the programs' order, of what the pattern picks by program or job."""
    jobs = {}
    for command in commands:
        listing = subprocess.run(command + ["--benchmark_list_tests"], capture_output=True, text=True, check=True)
        for name in listing.stdout.splitlines():
            job = split_name(name)[0]
            runs = jobs.setdefault(job, [])
            if not runs or runs[-1][0] is not command:
                runs.append((command, []))
            runs[-1][1].append(name)
    return {job: runs for job, runs in jobs.items()
            if any(pattern.lower() in f"{Path(command[-1]).name} {job}".lower() for command, _ in runs)}


def run_program(command, names, repetitions, seconds):
    """Google Benchmark's JSON rows of these names; one row with an error when the program fails."""
    escaped = [re.sub(r"([\[\].^$*+?(){}|\\])", r"\\\1", name) for name in names]
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        done = subprocess.run(command + [f"--benchmark_filter=^({'|'.join(escaped)})$", f"--benchmark_out={out.name}",
                                         "--benchmark_out_format=json", f"--benchmark_repetitions={repetitions}",
                                         f"--benchmark_min_time={seconds}",
                                         "--benchmark_enable_random_interleaving=true"],
                              capture_output=True, text=True)
        try:
            rows = json.loads(Path(out.name).read_text())["benchmarks"]
        except ValueError:
            rows = []
    if done.returncode != 0 or not rows:
        reason = (done.stderr.strip().splitlines() or ["no output"])[-1]
        rows = [{"run_name": name, "error_message": f"exit {done.returncode}: {reason}"} for name in names]
    return [row for row in rows if row.get("run_type") != "aggregate"]


def result_of(name, runs):
    """One line of the file from the repeated runs of a row, and the answer that the row gave."""
    job, contestant = split_name(name)
    result = dict.fromkeys(FIELDS, "") | {"job": job, "contestant": contestant}
    errors = [run["error_message"] for run in runs if "error_message" in run]
    key = next((key for key in ("bytes_per_second", "items_per_second") if runs and key in runs[0]), None)
    if errors or key is None:
        return result | {"error": errors[0] if errors else "gives neither bytes nor items"}, None
    rates = [run[key] for run in runs]
    notes = {k: v for k, v in runs[0].items() if k not in KNOWN_KEYS and isinstance(v, (int, float))}
    result |= {"median": statistics.median(rates), "low": min(rates), "high": max(rates),
               "unit": "B/s" if key.startswith("bytes") else "items/s", "kernel": runs[0].get("label", ""),
               "note": ", ".join(f"{k.replace('_', ' ')} {v:.3g}" for k, v in notes.items())}
    return result, runs[0].get("answer")


def run_job(runs, repetitions, seconds):
    """The results of all contestants of one job. Several programs take turns, as the contestants of one do, so that
    what else the machine does meets all of them."""
    rounds = 1 if len(runs) == 1 else 2
    rows = [row for _ in range(rounds) for command, names in runs
            for row in run_program(command, names, math.ceil(repetitions / rounds), seconds)]
    results, answers = [], []
    for name in (name for _, names in runs for name in names):
        result, answer = result_of(name, [row for row in rows if row["run_name"] == name])
        results.append(result)
        answers.append(answer)
    reference = next((a for a, r in zip(answers, results) if a is not None and r["contestant"] == OURS), None)
    unit = next((r["unit"] for r in results if r["contestant"] == OURS), "")
    for result, answer in zip(results, answers):
        if reference is not None and answer is not None and not math.isclose(answer, reference, rel_tol=1e-6):
            result["error"] = f"answer {answer:.9g}, ours is {reference:.9g}"
        if unit and result["unit"] not in ("", unit):
            result["error"] = "another unit than ours"
    return results


# Aims ----------------------------------------------------------------------------------------------------------------

UNITS = {"GB/s": 1e9, "ns": 1e9, "us": 1e6, "ms": 1e3}  # as rates: bytes or items a second
VERDICTS = ("met", "near", "missed")  # "near": missed by less than the noise


def load_aims():
    """[(pattern of jobs, [aims])] of aims.txt."""
    lines = (HERE / "aims.txt").read_text().splitlines()
    split = [line.split("|") for line in lines if line.strip() and not line.startswith("#")]
    return [(pattern.strip(), [aim.strip() for aim in aims.split(",")]) for pattern, aims in split]


def judge(aim, row):
    """An index into VERDICTS and the value that is judged; None where the peer is missing. `row` maps contestants to
    results."""
    subject, comparison, bound, unit = re.fullmatch(r"(\S+) ([<>]=) ([\d.]+)(?: (\S+))?", aim).groups()
    ours, peer = row[OURS], row.get(subject)
    if peer is None or peer["error"]:
        return None
    if subject == OURS:
        value = ours["median"] / UNITS[unit]
    else:
        value = ours["median"] / peer["median"]
    least = 1 / float(bound) if comparison == "<=" else float(bound)  # a bound on times is one on rates
    verdict = 0 if value >= least else 1 if value >= least * (1 - NOISE) else 2
    return verdict, 1 / value if comparison == "<=" else value


# The table -----------------------------------------------------------------------------------------------------------

def show_rate(result):
    """The rate as people say it: GB/s, or the time of one item."""
    if result["error"]:
        return "ERROR"
    rate = result["median"]
    if result["unit"] == "B/s":
        return f"{rate / 1e9:.3g} GB/s"
    for unit, seconds in (("s", 1), ("ms", 1e-3), ("us", 1e-6)):
        if 1 / rate >= seconds:
            return f"{1 / rate / seconds:.3g} {unit}"
    return f"{1e9 / rate:.3g} ns"


def print_columns(head, lines):
    widths = [max(len(line[i]) for line in [head] + lines) for i in range(len(head) - 1)]
    for line in [head, *lines]:
        print("  ".join([cell.ljust(width) for cell, width in zip(line, widths)] + [line[-1]]).rstrip())


def by_job(results):
    jobs = {}
    for result in results:
        jobs.setdefault(result["job"], {})[result["contestant"]] = result
    return jobs


def print_table(results):
    """Prints the table and what of the aims is missed; the number of rows in error."""
    lines, aims, errors, missed = [], load_aims(), [], []
    for job, row in by_job(results).items():
        errors += [f"{job}, {name}: {result['error']}" for name, result in row.items() if result["error"]]
        ours = row.get(OURS)
        if ours is None:
            errors.append(f"{job}: no row of ours")
            continue

        def cell(name):
            peer = row[name]
            ratio = "" if peer["error"] or ours["error"] else f" ({ours['median'] / peer['median']:.2f})"
            return f"{show_rate(peer)}{ratio}"

        wanted = [aim for pattern, each in aims if fnmatch.fnmatchcase(job, pattern) for aim in each]
        verdicts = [(aim, *verdict) for aim in wanted if not ours["error"] and (verdict := judge(aim, row))]
        missed += [f"aim {VERDICTS[grade]}: {job}: {aim}, is {value:.3g}" for aim, grade, value in verdicts if grade]
        notes = [f"{name}: {result['note']}" for name, result in row.items() if result["note"]]
        lines.append([job, show_rate(ours), ", ".join(cell(name) for name in LIMITS if name in row), ours["kernel"],
                      VERDICTS[max(grade for _, grade, _ in verdicts)] if verdicts else "",
                      ", ".join([f"{name} {cell(name)}" for name in row if name not in (OURS, *LIMITS)] + notes)])
    print_columns(["job", "qv", "limit", "kernel", "aim", "peers (how many times as fast qv is)"], lines)
    for line in missed:
        print(line)
    for error in errors:
        print(f"error: {error}", file=sys.stderr)
    return len(errors)


def facts():
    """What the numbers of a run depend on."""
    cpu = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
    commit = subprocess.run(["git", "-C", str(HERE), "describe", "--always", "--dirty"], capture_output=True, text=True)
    return {"date": datetime.datetime.now().isoformat(timespec="seconds"), "commit": commit.stdout.strip(),
            "machine": f"{cpu.group(1) if cpu else platform.machine()}, {os.cpu_count()} cores"}


def write_file(path, results):
    path.parent.mkdir(parents=True, exist_ok=True)
    lines = [f"# {key}: {value}" for key, value in facts().items()] + ["\t".join(FIELDS)]
    lines += ["\t".join(f"{r[f]:.6g}" if isinstance(r[f], float) else r[f].replace("\t", " ") for f in FIELDS)
              for r in results]
    path.write_text("\n".join(lines) + "\n")


def read_file(path):
    try:
        lines = [line for line in Path(path).read_text().splitlines() if not line.startswith("#")]
    except (OSError, UnicodeError) as error:
        sys.exit(f"{path}: {getattr(error, 'strerror', None) or 'not text'}")
    if not lines or lines[0] != "\t".join(FIELDS):
        sys.exit(f"{path}: not a table of ./dev bench")
    results = [dict(zip(FIELDS, line.split("\t"))) for line in lines[1:]]
    for result in results:
        for field in ("median", "low", "high"):
            result[field] = float(result[field] or "nan")
    return results


def run(arguments):
    jobs = list_jobs(programs(arguments.programs), arguments.pattern)
    if not jobs:
        sys.exit(f"no job or program is named like {arguments.pattern!r}")
    started, results = time.monotonic(), []
    for number, (job, runs) in enumerate(jobs.items(), 1):
        minutes, seconds = divmod(int(time.monotonic() - started), 60)
        print(f"[{number}/{len(jobs)} {minutes}:{seconds:02}] {job}", file=sys.stderr, flush=True)
        results += run_job(runs, arguments.repetitions, arguments.seconds)
    path = Path(arguments.output or Path(arguments.programs).parent / "tables" /
                f"{datetime.datetime.now():%Y%m%d-%H%M%S}.tsv")
    write_file(path, results)
    errors = print_table(results)
    unused = [pattern for pattern, _ in load_aims() if not any(fnmatch.fnmatchcase(job, pattern) for job in jobs)]
    if unused and not arguments.pattern:
        print(f"aims without a job: {', '.join(unused)}")
    print(f"{path}: {len(results)} rows of {len(jobs)} jobs in {time.monotonic() - started:.0f} s", file=sys.stderr)
    return 1 if errors else 0


# Comparison ----------------------------------------------------------------------------------------------------------

def ratio_of(old, new):
    return math.nan if old["error"] or new["error"] else new["median"] / old["median"]


def beyond_noise(old, new):
    """Whether the runs of the two do not overlap, and lie apart by more than the noise."""
    apart = new["low"] > old["high"] or new["high"] < old["low"]
    return apart and abs(ratio_of(old, new) - 1) > NOISE


def compare(old_path, new_path):
    """Prints our rows of both files; 1 when one is slower beyond the noise, or in error."""
    old_jobs, new_jobs = by_job(read_file(old_path)), by_job(read_file(new_path))
    lines, slower, changed = [], 0, 0
    for job, row in new_jobs.items():
        before = old_jobs.get(job, {})
        if OURS not in row or OURS not in before:
            continue
        old, new = before[OURS], row[OURS]
        others = [r for name in row if name != OURS and name in before
                  if not math.isnan(r := ratio_of(before[name], row[name]))]
        drift = statistics.median(others) if others else math.nan
        ratio, mark = ratio_of(old, new), ""
        if math.isnan(ratio):
            mark = "ERROR"
        elif beyond_noise(old, new):
            mark = "faster" if ratio > 1 else "slower"
            if abs(ratio - drift) <= NOISE:
                mark += ", as the others"
        slower += mark in ("slower", "ERROR")
        changed += mark != ""
        percent = ["" if math.isnan(r) else f"{(r - 1) * 100:+.1f} %" for r in (ratio, drift)]
        lines.append([job, show_rate(old), show_rate(new), *percent, mark])
    print_columns(["job", "old", "new", "rate", "others' rate", "beyond the noise"], lines)
    only = [f"{len(a.keys() - b.keys())} jobs only in {path}" for a, b, path in
            ((old_jobs, new_jobs, old_path), (new_jobs, old_jobs, new_path)) if a.keys() - b.keys()]
    print(", ".join([f"{len(lines)} jobs, {changed} changed beyond the noise", *only]))
    return 1 if slower else 0


def main():
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__.splitlines()[0])
    parser.add_argument("pattern", nargs="?", default="", help="part of a program's or a job's name")
    parser.add_argument("--programs", default="build/bench/benchmarks", help=argparse.SUPPRESS)
    parser.add_argument("--output", help="file for the table (build/bench/tables/DATE.tsv)")
    parser.add_argument("--repetitions", type=int, default=5, help="runs of each row; the table has their median (5)")
    parser.add_argument("--seconds", type=float, default=0.05, help="least time of one run of a row (0.05)")
    parser.add_argument("--compare", nargs=2, metavar=("OLD", "NEW"), help="compare two files of earlier runs")
    arguments = parser.parse_args()
    sys.exit(compare(*arguments.compare) if arguments.compare else run(arguments))


if __name__ == "__main__":
    main()
