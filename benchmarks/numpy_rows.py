#!/usr/bin/python3
"""NumPy's rows of the benchmark table: the same jobs and inputs as in the programs of the other contestants.

Takes the flags of Google Benchmark that table.py gives and writes the same JSON.
"""
import argparse
import json
import re
import time

import numpy as np

SIZES = {"640 x 512": 640 * 512, "16 M": 1 << 24}
TYPES = {"int16": np.int16, "uint8": np.uint8, "uint16": np.uint16, "uint32": np.uint32, "flt32": np.float32,
         "flt64": np.float64}
ROWS = {}  # job: function that gives (run, bytes, items, answer)


def source(kind, count, factor=2654435761):
    """12 bits that hash the index, and a quarter where the type has fractions."""
    values = np.arange(count, dtype=np.uint32) * np.uint32(factor) >> np.uint32(20)
    return values.astype(TYPES[kind]) + (TYPES[kind](0.25) if kind.startswith("flt") else TYPES[kind](0))


def total(array):
    return float(array.sum(dtype=np.float64))


def add_operation(verb, source_kind, target_kind, size):
    count = SIZES[size]

    def make():
        src, dst = source(source_kind, count), source(target_kind, count, 2246822519)
        run = {"convert": lambda: np.copyto(dst, src, casting="unsafe"),
               "min with": lambda: np.minimum(dst, src, out=dst, casting="unsafe"),
               "max with": lambda: np.maximum(dst, src, out=dst, casting="unsafe"),
               "sum with": lambda: np.add(dst, src, out=dst, casting="unsafe")}[verb]
        run()
        return run, src.nbytes + dst.nbytes * (1 if verb == "convert" else 2), 0, total(dst)
    ROWS[f"{verb} {source_kind} to {target_kind}, {size}"] = make


def add_division(size):
    def make():
        data = source("uint16", SIZES[size])
        divisor = np.uint16(7)
        run = lambda: np.floor_divide(data, divisor, out=data)
        run()
        return run, 2 * data.nbytes, 0, total(data)
    ROWS[f"divide uint16 by 7, {size}"] = make


def add_min_max(kind, size):
    def make():
        data = source(kind, SIZES[size])
        run = lambda: (data.min(), data.max())
        low, high = run()
        return run, data.nbytes, 0, float(low) + float(high)
    ROWS[f"min and max of {kind}, {size}"] = make


def planck(x, celsius, emissivity=0.95):
    return emissivity * (11910.06 / np.power(x, 5.0)) * (1.0 / (np.exp(14388.3 / ((celsius + 273.15) * x)) - 1.0))


def add_spectra():
    def curve():
        x = np.linspace(3.0, 5.0, 200000)
        return lambda: planck(x, 25.0), 0, x.size, total(planck(x, 25.0))

    def band():
        x = np.linspace(3.0, 5.0, 2000)
        response, widths = np.ones(x.size), np.diff(x)
        run = lambda: float(np.dot(widths, (planck(x, 25.0) * response)[1:]))
        return run, 0, x.size, run()
    ROWS["Planck curve of 200000 points"] = curve
    ROWS["band radiance of 2000 points"] = band


def add_polynomial(count, order):
    def make():
        x = np.arange(count) * (16384.0 / count)
        y = 3.0 + x * (2.0 - 1e-4 * x)
        return lambda: np.polyfit(x, y, order), 0, 1, float(np.polyval(np.polyfit(x, y, order), 8192.0))
    ROWS[f"polynomial of order {order} through {count} points"] = make


def add_all():
    for size in SIZES:
        for target, origin in (("flt32", "uint16"), ("uint16", "flt32"), ("flt32", "flt64"), ("uint16", "uint8"),
                               ("uint32", "flt64"), ("int16", "uint16")):
            add_operation("convert", origin, target, size)
        for verb in ("min with", "max with", "sum with"):
            add_operation(verb, "uint16", "flt32", size)
            add_operation(verb, "flt32", "uint16", size)
        add_division(size)
        for kind in ("uint16", "flt32"):
            add_min_max(kind, size)
    add_spectra()
    for count, order in ((1000, 3), (1000, 6), (16384, 6)):
        add_polynomial(count, order)


def measure(job, repetitions, seconds):
    """The runs of one row: as many calls as fill `seconds`, and again."""
    run, size, items, answer = ROWS[job]()
    calls, took = 1, 0.0
    while True:
        begin = time.perf_counter()
        for _ in range(calls):
            run()
        took = time.perf_counter() - begin
        if took >= seconds:
            break
        calls = max(calls + 1, int(calls * min(10.0, 1.2 * seconds / max(took, 1e-9))))
    rows = []
    for index in range(repetitions):
        begin = time.perf_counter()
        for _ in range(calls):
            run()
        each = (time.perf_counter() - begin) / calls
        row = {"name": f"{job}/numpy", "run_name": f"{job}/numpy", "run_type": "iteration", "repetition_index": index,
               "iterations": calls, "real_time": each * 1e9, "cpu_time": each * 1e9, "time_unit": "ns", "answer": answer}
        row |= {"bytes_per_second": size / each} if size else {"items_per_second": items / each}
        rows.append(row)
    return rows


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--benchmark_list_tests", action="store_true")
    parser.add_argument("--benchmark_filter", default="")
    parser.add_argument("--benchmark_repetitions", type=int, default=1)
    parser.add_argument("--benchmark_min_time", type=float, default=0.05)
    parser.add_argument("--benchmark_out")
    arguments = parser.parse_known_args()[0]
    add_all()
    jobs = [job for job in ROWS if re.search(arguments.benchmark_filter, f"{job}/numpy")]
    if arguments.benchmark_list_tests:
        print("\n".join(f"{job}/numpy" for job in jobs))
        return
    rows = [row for job in jobs for row in measure(job, arguments.benchmark_repetitions, arguments.benchmark_min_time)]
    text = json.dumps({"context": {"library": f"NumPy {np.__version__}"}, "benchmarks": rows}, indent=2)
    if arguments.benchmark_out:
        with open(arguments.benchmark_out, "w", encoding="utf-8") as out:
            out.write(text)
    else:
        print(text)


if __name__ == "__main__":
    main()
