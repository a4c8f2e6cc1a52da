"""Runs the benchmark's jobs under Wine and prints one table. Usage: run.py BIN WORK [ROUNDS]

Jobs that are compared run in the same round, so that whatever else the machine does affects both. The verdict is the
median of the ratios within the rounds. Rounds go on until it is known to 2 %, but for at most ROUNDS rounds (five times
as many for starts, which are short).
"""

import os
import shutil
import statistics
import subprocess
import sys

BIN, WORK = sys.argv[1:3]
ROUNDS = int(sys.argv[3]) if len(sys.argv) > 3 else 25
FEWEST, WIDTH = 5, 0.02


class Run:
    """One process: seconds on the clock, seconds of processor time, peak of memory in MB, output."""

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
            sys.exit(f"{program} {' '.join(arguments)} ended with exit code {code} instead of {expect}.")


def program(name):
    return os.path.join(BIN, name + ".exe")


def spread(ratios):
    """How far the median may lie from the true one, either way: the notch of a box plot."""
    if len(ratios) < FEWEST:
        return float("inf")
    low, _, high = statistics.quantiles(ratios, n=4)
    return 1.57 * (high - low) / len(ratios) ** 0.5


class Comparison:
    """Two jobs of a round by one measure, and the highest ratio allowed."""

    def __init__(self, what, ours, base, measure, unit, limit=None, factor=1):
        self.what, self.ours, self.base, self.measure, self.unit = what, ours, base, measure, unit
        self.limit, self.factor, self.pairs = limit, factor, []

    def add(self, runs):
        value = self.measure if callable(self.measure) else lambda run: getattr(run, self.measure)
        self.pairs.append((self.factor * value(runs[self.ours]), self.factor * value(runs[self.base])))

    def ratios(self):
        return [ours / base for ours, base in self.pairs]

    def is_stable(self):
        return self.limit is None or spread(self.ratios()) <= WIDTH

    def report(self):
        """One line; false when the aim is missed."""
        ours, base = (statistics.median(pair[i] for pair in self.pairs) for i in (0, 1))
        ratio = statistics.median(self.ratios())
        reached = self.limit is None or ratio <= self.limit
        verdict = "" if self.limit is None else f"{'reached' if reached else 'MISSED'}: at most {self.limit}"
        print(f"{self.what:46} {ours:10.1f} {self.unit:3} {self.base:16} {base:10.1f} {self.unit:3}"
              f" {ratio:6.2f} ± {spread(self.ratios()):4.2f} ({len(self.pairs):2})  {verdict}", flush=True)
        return reached


missed = 0


def compare(jobs, comparisons, most=ROUNDS):
    """Runs the named jobs in rounds. Each round begins with a different job: otherwise the data that one job leaves to
    be written back would always slow down the same next one."""
    global missed
    names = list(jobs)
    for first in range(most):
        runs = {}
        for i in range(len(names)):
            name = names[(first + i) % len(names)]
            os.sync()
            runs[name] = jobs[name]()
        for comparison in comparisons:
            comparison.add(runs)
        if first + 1 >= FEWEST and all(comparison.is_stable() for comparison in comparisons):
            break
    missed += sum(not comparison.report() for comparison in comparisons)


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


def write_task(folder):
    fresh("out")
    with open(os.path.join(WORK, "list.xml"), "w") as file:
        file.write(f'<root><task><i key="1" src="{folder}/" dec="out/" type="dir"/></task></root>')
    with open(os.path.join(WORK, "task.ini"), "w") as file:
        file.write("[Task]\ntype=1\nxml_path=list.xml\n")


def helper_copy(folder, is_there=False):
    write_task(folder)
    in_out(is_there, folder)
    return Run(program("uactask"), "task.ini")


def started_helper_copy(folder):
    write_task(folder)
    return Run(program("bench"), "start", program("uactask"), "task.ini")


def started_and_compared(folder):
    run = started_helper_copy(folder)
    compared = Run(program("bench"), "compare", folder + "/", "out/")
    run.clock += compared.clock
    return run


def in_out(is_there, folder):
    """Prepares the destination: nothing there, or the same tree with other times."""
    fresh("out")
    if is_there:
        shutil.copytree(os.path.join(WORK, folder), os.path.join(WORK, "out"), copy_function=shutil.copyfile)


def helper_list(folder, is_there):
    """The helper with a list of file items, as a plan that adds to a folder makes it."""
    in_out(is_there, folder)
    items = []
    for path, folders, files in sorted(os.walk(os.path.join(WORK, folder))):
        below = os.path.relpath(path, os.path.join(WORK, folder))
        items.append(f'src="{folder}" dec="out/{below}/"')
        items += [f'src="{folder}/{below}/{name}" dec="out/{below}/{name}"' for name in sorted(files)]
    with open(os.path.join(WORK, "list.xml"), "w") as file:
        file.write("<root><task>")
        file.writelines(f'<i key="{number:06}" {item} type="file"/>' for number, item in enumerate(items))
        file.write("</task></root>")
    with open(os.path.join(WORK, "task.ini"), "w") as file:
        file.write("[Task]\ntype=1\nxml_path=list.xml\n")
    return Run(program("uactask"), "task.ini")


def client_copy(folder, *options, is_there=False):
    in_out(is_there, folder)
    return Run(program("uactl"), "copy", *options, folder, "out")


def bare_copy(folder, is_there=False):
    in_out(is_there, folder)
    return Run(program("bench"), "replace" if is_there else "copy", folder + "/", "out/")


def xcopy(folder):
    fresh("out")
    return Run("C:\\windows\\system32\\xcopy.exe", folder, "out", "/E", "/I", "/Q")


fresh("")
os.makedirs(WORK)
print(f"{'medians':46} {'':14} {'against':16} {'':14} ratio, within rounds")

for name, folders, files, size in (("small", 20, 100, 2048), ("large", 1, 4, 64 << 20)):
    write_tree(name, folders, files, size)
    what = f"{folders * files} files of {size >> 10} kB"
    compare(
        {"bare loop": lambda: bare_copy(name), "helper": lambda: helper_copy(name), "xcopy": lambda: xcopy(name)},
        [Comparison(f"helper, {what}, {measure}", "helper", base, measure, "ms", limit, 1000)
         for measure in ("processor", "clock") for base, limit in (("bare loop", 1.05), ("xcopy", None))])
    if name == "small":
        compare(
            {"bare loop": lambda: bare_copy(name, is_there=True), "helper": lambda: helper_copy(name, is_there=True)},
            [Comparison(f"helper, {what} onto as many, {measure}", "helper", "bare loop", measure, "ms", 1.05, 1000)
             for measure in ("processor", "clock")])
        for is_there, onto in ((False, "onto nothing"), (True, "onto as many")):
            compare(
                {"the same list": lambda: helper_list(name, is_there),
                 "uactl": lambda: client_copy(name, is_there=is_there)},
                [Comparison(f"uactl, {what} {onto}", "uactl", "the same list", "clock", "ms", 1.2, 1000)])
        compare(
            {"helper": lambda: helper_copy(name), "--replace": lambda: client_copy(name, "--replace"),
             "--replace --fast": lambda: client_copy(name, "--replace", "--fast")},
            [Comparison(f"uactl {ours}, {what}", ours, "helper", "clock", "ms", limit, 1000)
             for ours, limit in (("--replace", 1.3), ("--replace --fast", 1.1))])
    else:
        compare(
            {"bare start": lambda: started_helper_copy(name), "and comparison": lambda: started_and_compared(name),
             "uactl": lambda: client_copy(name), "uactl --fast": lambda: client_copy(name, "--fast")},
            [Comparison(f"{ours}, {what}", ours, base, "clock", "ms", limit, 1000)
             for ours, base, limit in (("uactl --fast", "bare start", 1.05), ("uactl", "and comparison", 1.0))])
    fresh("out")
    fresh(name)

compare({"helper": lambda: Run(program("uactask"), "none.ini", expect=2), "empty program": lambda: Run(program("empty"))},
        [Comparison(f"start on a missing path, {measure}", "helper", "empty program", measure, "ms", 1.15, 1000)
         for measure in ("processor", "clock")], most=5 * ROUNDS)

with open(os.path.join(WORK, "list.xml"), "w") as file:
    items = (f'<item key="{i:06}" src="C:/source/folder/{i}.txt" dec="D:/target/{i}.txt" type="file"/>'
             for i in range(100000))
    file.write("<root><task>" + "\n".join(items) + "</task></root>")
with open(os.path.join(WORK, "task.ini"), "w") as file:
    file.write("[Task]\ntype=1\nxml_path=list.xml\n")
compare({"records": lambda: Run(program("bench"), "records", "list.xml"),
         "read_xml alone": lambda: Run(program("bench"), "read_xml", "list.xml"),
         "check": lambda: Run(program("uactl"), "check", "task.ini", expect=1)},
        [Comparison(f"read 100,000 records, {measure}", "records", "read_xml alone", measure, unit, limit, factor)
         for measure, unit, limit, factor in (("processor", "ms", 1.4, 1000), ("clock", "ms", 1.4, 1000),
                                              ("memory", "MB", 1.5, 1))]
        + [Comparison("uactl check of 100,000 items, clock", "check", "records", "clock", "ms", 2.5, 1000)])

write_tree("many", 100, 1000, 1)
run = client_copy("many", "--fast")
print(f"uactl --fast, 100,000 files of 1 byte {run.clock:19.1f} s, {run.memory:.0f} MB", flush=True)
for folder in ("out", "many"):
    fresh(folder)


def printed(run):
    return float(run.output)


compare({"1,000,000 entries": lambda: Run(program("bench"), "vectors", "1000000"),
         "10,000 entries": lambda: Run(program("bench"), "vectors", "10000")},
        [Comparison("vector of 1,000,000, time of an entry", "1,000,000 entries", "10,000 entries", printed, "ns", 1.5)])
compare({"1,000 lines": lambda: Run(program("bench"), "ini", "1000"), "10 lines": lambda: Run(program("bench"), "ini", "10")},
        [Comparison("INI SetValue, 1,000 lines", "1,000 lines", "10 lines", printed, "us", None, 0.001)])

fresh("")
print(f"{missed} aims missed" if missed else "all aims reached")
