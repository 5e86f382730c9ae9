#!/usr/bin/env python3
"""Times whole commands against each other, in turn, and prints a Markdown table of medians and ratios.

    bench_commands.py RUNS TITLE OURS-COMMAND PEER=COMMAND...

Each command is given to the shell. A ratio is the median over the rounds of peer time to ours: above 1 we are
faster.
"""
import statistics
import subprocess
import sys
import time


def run(command):
    start = time.perf_counter()
    subprocess.run(command, shell=True, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return time.perf_counter() - start


def main():
    if len(sys.argv) < 5:
        sys.exit(__doc__)
    rounds, title, ours = int(sys.argv[1]), sys.argv[2], sys.argv[3]
    peers = dict(argument.split('=', 1) for argument in sys.argv[4:])
    commands = {'qnwave': ours, **peers}
    times = {name: [] for name in commands}
    for round_number in range(rounds + 1):
        for name, command in commands.items():
            seconds = run(command)
            if round_number > 0:  # the first round warms the page cache
                times[name].append(seconds)
    print(f'| {title} | median | ratio to ours |')
    print('|---|---|---|')
    for name, values in times.items():
        ratio = statistics.median(value / own for value, own in zip(values, times['qnwave']))
        print(f'| {name} | {statistics.median(values) * 1000:.0f} ms | {ratio:.2f} |')


main()
