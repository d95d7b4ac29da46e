#!/usr/bin/env python3
"""Runs the fuzz targets and keeps the totals in docs/reliability.md. Called by ./dev fuzz.

A run starts from the checked-in corpus and from what earlier runs found, which stays in the build directory. Inputs that
crash, leak, take more than 5 s or 512 MB are left in its folder "findings", and the status is 1.
"""
import argparse
import concurrent.futures
import datetime
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import threading

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/fuzz"
PROGRAMS = BUILD / "fuzz/targets"
SEEDS = ROOT / "fuzz/corpus"
WORDS = ROOT / "fuzz/words.dict"
DOCUMENT = ROOT / "docs/reliability.md"

TIMEOUT_S, MEMORY_MB = 5, 512
AIM_EXECUTIONS, AIM_S = 25_000_000, 7200  # of each target in all, whichever comes first
FREED_KEPT_MB = 64  # by ASan, to see that it is not used again; it counts as memory
BEGIN, END = "<!-- scripts/fuzz.py: begin -->", "<!-- end -->"
COLUMNS = ("target", "executions", "processor seconds", "executions/s", "findings", "peak MB")
MOST_KEPT = 40  # nameless inputs of one target that are checked in
LARGEST_KEPT = 4096  # bytes


def names():
    return sorted(path.name.removeprefix("fuzz_") for path in PROGRAMS.glob("fuzz_*") if path.is_file())


def corpora(target):
    """Where new inputs go, and where the checked-in ones are."""
    found = BUILD / "corpus" / target
    found.mkdir(parents=True, exist_ok=True)
    return found, SEEDS / target


def statistic(output, name):
    match = re.search(rf"stat::{name}:\s+(\d+)", output)
    return int(match.group(1)) if match else 0


def execute(command):
    """The status of a command, what it wrote to standard error, and the processor seconds that it took."""
    with tempfile.TemporaryFile("w+", errors="replace") as output:
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=output, preexec_fn=lambda: os.nice(10),
                                   env=dict(os.environ, ASAN_OPTIONS=f"quarantine_size_mb={FREED_KEPT_MB}"))
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        output.seek(0)
        return process.returncode, output.read(), usage.ru_utime + usage.ru_stime


def is_starved(target, path):
    """Whether an input took its time only because the machine had none to give; it is thrown away then."""
    if not path.name.startswith(("timeout-", "slow-unit-")):
        return False
    status, _, used = execute([PROGRAMS / f"fuzz_{target}", path])
    if status != 0 or used >= TIMEOUT_S:
        return False
    path.unlink()
    return True


def run(target, seconds, executions):
    """The row of one run, which ends after so many seconds or executions (-1: any number), and the inputs that failed."""
    findings = BUILD / "findings" / target
    findings.mkdir(parents=True, exist_ok=True)
    before = set(findings.iterdir())
    status, output, used = execute([
        PROGRAMS / f"fuzz_{target}",
        f"-max_total_time={seconds}",
        f"-runs={executions}",
        f"-timeout={TIMEOUT_S}",
        f"-rss_limit_mb={MEMORY_MB}",
        f"-artifact_prefix={findings}/",
        f"-dict={WORDS}",
        "-close_fd_mask=3",  # what the library prints; the reports of the sanitizers are not affected
        "-print_final_stats=1",
        *corpora(target),
    ])
    new = sorted(set(findings.iterdir()) - before - {findings / "report.txt"})
    failed = [path for path in new if not is_starved(target, path)]
    if status != 0 and (failed or not new):
        (findings / "report.txt").write_text(output)
        failed = failed or [findings / "report.txt"]
    executions = statistic(output, "number_of_executed_units")
    return [executions, round(used), len(failed), statistic(output, "peak_rss_mb")], failed


def read_totals(text):
    totals = {}
    for line in text.split(BEGIN)[1].split(END)[0].splitlines():
        cells = [cell.strip().replace(",", "") for cell in line.strip("|").split("|")]
        if len(cells) == len(COLUMNS) and cells[1].isdigit():
            target, executions, seconds, _, found, peak = cells
            totals[target] = [int(executions), int(seconds), int(found), int(peak)]
    return totals


def table(totals):
    rows = [COLUMNS, ["---"] + ["---:"] * (len(COLUMNS) - 1)]
    for target, (executions, seconds, found, peak) in sorted(totals.items()):
        rate = executions // max(seconds, 1)
        rows.append([target, f"{executions:,}", f"{seconds:,}", f"{rate:,}", str(found), str(peak)])
    return "\n".join("| " + " | ".join(row) + " |" for row in rows)


def machine():
    model = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    return f"{os.uname().machine}, {model.group(1) if model else 'unknown processor'}"


def executions_to_aim(target):
    """How many are left until the target has what is aimed at; 0 when it has."""
    executions, seconds, *_ = read_totals(DOCUMENT.read_text()).get(target, [0, 0])
    return max(AIM_EXECUTIONS - executions, 0) if seconds < AIM_S else 0


def add_to_document(target, row):
    text = DOCUMENT.read_text()
    totals = read_totals(text)
    old = totals.get(target, [0, 0, 0, 0])
    totals[target] = [old[i] + row[i] for i in range(3)] + [max(old[3], row[3])]
    caption = f"Last run: {datetime.date.today()}, {machine()}, clang with ASan and UBSan, `./dev fuzz`."
    block = f"{BEGIN}\n{caption}\n\n{table(totals)}\n{END}"
    DOCUMENT.write_text(text.split(BEGIN)[0] + block + text.split(END, 1)[1])


def fuzz(targets, seconds, jobs, is_counted, to_aim=False):
    failed = []
    lock = threading.Lock()

    def one(target):
        row, inputs = run(target, seconds, executions_to_aim(target) if to_aim else -1)
        with lock:
            print(f"{target:16} {row[0]:12,} executions in {row[1]:5,} s, {row[0] // max(row[1], 1):8,} a second, "
                  f"{row[3]:4} MB", flush=True)
            for path in inputs:
                print(f"  FAILED: {path.relative_to(ROOT)}", flush=True)
            failed.extend(inputs)
            if is_counted:
                add_to_document(target, row)

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for future in [pool.submit(one, target) for target in targets]:
            future.result()
    return 1 if failed else 0


def fuzz_to_aim(targets, seconds, jobs):
    """Runs after runs of those targets that lack executions, until none does or an input failed."""
    status = 0
    while status == 0 and (lacking := [target for target in targets if executions_to_aim(target) > 0]):
        status = fuzz(lacking, seconds, jobs, is_counted=True, to_aim=True)
    return status


def is_nameless(path):
    return re.fullmatch(r"[0-9a-f]{40}", path.name) is not None


def keep(target):
    """Replaces the nameless inputs of the checked-in corpus by a few that cover what was found."""
    found, seeds = corpora(target)
    with tempfile.TemporaryDirectory() as directory:
        subprocess.run([PROGRAMS / f"fuzz_{target}", "-set_cover_merge=1", directory, seeds, found],
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        chosen = [path for path in pathlib.Path(directory).iterdir()
                  if path.stat().st_size <= LARGEST_KEPT and is_nameless(path)]
        chosen.sort(key=lambda path: (path.stat().st_size, path.name))
        named = {path.read_bytes() for path in seeds.iterdir() if not is_nameless(path)}
        for path in seeds.iterdir():
            if is_nameless(path):
                path.unlink()
        chosen = [path for path in chosen if path.read_bytes() not in named]
        step = max(1, -(-len(chosen) // MOST_KEPT))
        for path in chosen[::step]:
            shutil.copy(path, seeds)


def main():
    parser = argparse.ArgumentParser(prog="./dev fuzz", description="Runs fuzz targets and adds to their totals.")
    parser.add_argument("targets", nargs="*", metavar="TARGET", help="all when none is named")
    parser.add_argument("--seconds", type=int, default=60, help="for each target (60)")
    parser.add_argument("--jobs", type=int, default=1, help="targets at a time (1)")
    parser.add_argument("--aim", action="store_true",
                        help="again and again, until each has 25 million executions or 7200 processor seconds in all")
    parser.add_argument("--short", action="store_true", help="one second each, and not counted")
    parser.add_argument("--keep", action="store_true", help="only choose inputs to check in from what was found")
    arguments = parser.parse_args()
    targets = arguments.targets or names()
    unknown = sorted(set(targets) - set(names()))
    if unknown:
        parser.error(f"no such target: {', '.join(unknown)}; there are {', '.join(names())}")
    if arguments.keep:
        for target in targets:
            keep(target)
        return 0
    if arguments.aim:
        return fuzz_to_aim(targets, arguments.seconds, arguments.jobs)
    return fuzz(targets, 1 if arguments.short else arguments.seconds, arguments.jobs, not arguments.short)


if __name__ == "__main__":
    sys.exit(main())
