"""Runs the benchmark's jobs under Wine in turn and prints one table. Usage: run.py BIN WORK [ROUNDS]"""

import os
import shutil
import statistics
import subprocess
import sys

BIN, WORK = sys.argv[1:3]
ROUNDS = int(sys.argv[3]) if len(sys.argv) > 3 else 9


class Run:
    """One process: seconds on the clock, seconds of processor time, peak of memory in MB, what it printed."""

    def __init__(self, program, *arguments, expect=0):
        import time

        start = time.perf_counter()
        process = subprocess.Popen(["wine", program, *arguments], cwd=WORK, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.output = process.stdout.read()
        _, status, usage = os.wait4(process.pid, 0)
        self.clock = time.perf_counter() - start
        self.processor = usage.ru_utime + usage.ru_stime
        self.memory = usage.ru_maxrss / 1024
        code = os.waitstatus_to_exitcode(status)
        if code != expect:
            sys.exit(f"{program} {' '.join(arguments)} ended with {code}")


def program(name):
    return os.path.join(BIN, name + ".exe")


def in_turn(*jobs, rounds=ROUNDS):
    """Runs the jobs in turn, each round beginning with another one, so that what the machine does meanwhile, writing
    back what the last job wrote above all, meets them alike."""
    results = [[] for _ in jobs]
    for first in range(rounds):
        for i in range(len(jobs)):
            job = (first + i) % len(jobs)
            os.sync()
            results[job].append(jobs[job]())
    return results


def median(runs, measure):
    return statistics.median(getattr(run, measure) for run in runs)


missed = 0


def row(what, value, base_name, base, unit, limit=None):
    """One line: a median, the one beside it, their ratio, and whether that reaches its aim."""
    global missed
    ratio = value / base
    verdict = ""
    if limit is not None:
        reached = ratio <= limit
        missed += not reached
        verdict = f"{'reached' if reached else 'MISSED'}: at most {limit}"
    print(f"{what:46} {value:10.1f} {unit:3} {base_name:22} {base:10.1f} {unit:3} {ratio:6.2f}  {verdict}")


def write_tree(folder, folders, files, size):
    block = os.urandom(size)
    for i in range(folders):
        path = os.path.join(WORK, folder, f"folder {i}")
        os.makedirs(path)
        for k in range(files):
            with open(os.path.join(path, f"file {k}.bin"), "wb") as file:
                file.write(block)


def fresh(folder):
    shutil.rmtree(os.path.join(WORK, folder), ignore_errors=True)


def helper_copy(folder):
    fresh("out")
    with open(os.path.join(WORK, "list.xml"), "w") as file:
        file.write(f'<root><task><i key="1" src="{folder}/" dec="out/" type="dir"/></task></root>')
    with open(os.path.join(WORK, "task.ini"), "w") as file:
        file.write("[Task]\ntype=1\nxml_path=list.xml\n")
    return Run(program("uactask"), "task.ini")


def bare_copy(folder):
    fresh("out")
    return Run(program("bench"), "copy", folder + "/", "out/")


def xcopy(folder):
    fresh("out")
    return Run("C:\\windows\\system32\\xcopy.exe", folder, "out", "/E", "/I", "/Q")


fresh("")
os.makedirs(WORK)
print(f"{'medians of ' + str(ROUNDS) + ' runs in turn':46} {'':14} {'against':22} {'':14} {'ratio':>6}")

for name, folders, files, size in (("small", 20, 100, 2048), ("large", 1, 4, 64 << 20)):
    write_tree(name, folders, files, size)
    what = f"copy {folders * files} files of {size >> 10} kB"
    runs = in_turn(lambda: helper_copy(name), lambda: bare_copy(name), lambda: xcopy(name))
    for measure, unit in (("processor", "processor"), ("clock", "clock")):
        ours, bare, other = (1000 * median(r, measure) for r in runs)
        row(f"{what}, {unit}", ours, "bare loop", bare, "ms", 1.05)
        row("", ours, "xcopy", other, "ms")
    fresh("out")
    fresh(name)

runs = in_turn(lambda: Run(program("uactask"), "none.ini", expect=2), lambda: Run(program("empty")),
               rounds=5 * ROUNDS)
for measure in ("processor", "clock"):
    ours, empty = (1000 * median(r, measure) for r in runs)
    row(f"start on a missing path, {measure}", ours, "empty program", empty, "ms", 1.15)

with open(os.path.join(WORK, "list.xml"), "w") as file:
    items = (f'<item key="{i:06}" src="C:/source/folder/{i}.txt" dec="D:/target/{i}.txt" type="file"/>'
             for i in range(100000))
    file.write("<root><task>" + "\n".join(items) + "</task></root>")
runs = in_turn(lambda: Run(program("bench"), "records", "list.xml"), lambda: Run(program("bench"), "read_xml", "list.xml"))
for measure, factor, unit, limit in (("processor", 1000, "ms", 1.4), ("clock", 1000, "ms", 1.4), ("memory", 1, "MB", 1.5)):
    ours, bare = (factor * median(r, measure) for r in runs)
    row(f"read 100,000 records, {measure}", ours, "read_xml alone", bare, unit, limit)

many, few = in_turn(lambda: Run(program("bench"), "vectors", "1000000"), lambda: Run(program("bench"), "vectors", "10000"),
                    rounds=5)
row("vector of 1,000,000, time of an entry", statistics.median(float(r.output) for r in many),
    "vector of 10,000", statistics.median(float(r.output) for r in few), "ns", 1.5)

long, short = in_turn(lambda: Run(program("bench"), "ini", "1000"), lambda: Run(program("bench"), "ini", "10"))
row("INI SetValue, 1,000 lines", statistics.median(float(r.output) / 1000 for r in long),
    "10 lines", statistics.median(float(r.output) / 1000 for r in short), "us")

fresh("")
print(f"{missed} aims missed" if missed else "all aims reached")
