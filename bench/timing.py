"""Running contenders in turn, and writing tables into README.md."""

import datetime
import os
import pathlib
import re
import resource
import statistics
import subprocess
import sys
import time

FOLDER = pathlib.Path(__file__).resolve().parent
CHECKOUT = FOLDER.parent
RELEASE = CHECKOUT / "build" / "release"
WINDOWS = CHECKOUT / "build" / "windows"


def build(preset, *targets):
    """Builds the targets of a preset with the benchmarks on."""
    log = sys.stderr
    subprocess.run(["cmake", "--preset", preset, "-DHARVANE_BENCH=ON"],
                   cwd=CHECKOUT, check=True, stdout=log, stderr=log)
    subprocess.run(["cmake", "--build", "--preset", preset, "--target", *targets],
                   cwd=CHECKOUT, check=True, stdout=log, stderr=log)


def printed_seconds(command, cwd):
    """The numbers that a benchmark program prints about itself, added up."""
    run = subprocess.run(command, cwd=cwd, check=True, stdout=subprocess.PIPE,
                         stderr=subprocess.DEVNULL, text=True)
    return sum(float(text) for text in run.stdout.split())


def process_seconds(command, cwd):
    """Processor seconds of a whole process, user and system."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(command, cwd=cwd, check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime


def wall_seconds(command, cwd):
    """Wall time of a whole process."""
    start = time.monotonic()
    subprocess.run(command, cwd=cwd, check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    return time.monotonic() - start


def in_turn(contenders, runs):
    """Runs every contender once per round; their seconds by name, one a round.

    contenders: name to a function without arguments that gives seconds."""
    times = {name: [] for name in contenders}
    for _ in range(runs):
        for name, measure in contenders.items():
            times[name].append(measure())
    return times


def ratio(times, slow, fast):
    """How many times slower `slow` is: the median of the rounds' ratios."""
    return statistics.median(a / b for a, b in zip(times[slow], times[fast]))


def processor():
    text = pathlib.Path("/proc/cpuinfo").read_text(encoding="ascii")
    fields = {}
    for line in text.splitlines():
        if not line:
            break
        name, _, value = line.partition(":")
        fields[name.strip()] = value.strip()
    sets = [name for name in ("sse2", "avx2", "fma", "avx512f") if name in fields["flags"].split()]
    return (f"{fields['model name']} (family {fields['cpu family']}, model {fields['model']}), "
            f"{' '.join(sets)}, {os.cpu_count()} processors")


def first_line(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()[0]


def versions():
    def package(name):
        return first_line("dpkg-query", "-W", "-f=${Version}\n", name)
    return (f"{first_line('g++', '--version')}; libebur128 {package('libebur128-dev')}; "
            f"ffmpeg {package('ffmpeg')}")


def conditions():
    load = os.getloadavg()[0]
    return (f"Measured {datetime.date.today().isoformat()} on: {processor()}; load {load:.1f} at the "
            f"end. {versions()}.")


def write_table(name, lines):
    """Puts lines between the markers of this name in README.md."""
    path = FOLDER / "README.md"
    text = path.read_text(encoding="utf-8")
    body = "\n".join(lines)
    pattern = rf"(<!-- {name} -->\n).*?(<!-- end {name} -->)"
    text, count = re.subn(pattern, lambda m: f"{m[1]}{body}\n{m[2]}", text, flags=re.DOTALL)
    if count != 1:
        raise SystemExit(f"no markers '{name}' in {path}")
    path.write_text(text, encoding="utf-8")
    print(body)
