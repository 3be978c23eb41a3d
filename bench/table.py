# SPDX-License-Identifier: Apache-2.0
"""Turns the JSON of kelnn_bench into a Markdown table: the fastest time of each contender and kelnn's ratio
to it (below 1: kelnn is faster). The fastest of the repetitions is the one least disturbed."""
import collections
import json
import sys

NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}

cases = collections.defaultdict(dict)
for run in json.load(sys.stdin)["benchmarks"]:
    if run["run_type"] == "iteration":
        topic_and_case, contender = run["run_name"].rsplit("/", 1)
        time = run["real_time"] * NANOSECONDS[run["time_unit"]]
        times = cases[topic_and_case]
        times[contender] = min(time, times.get(contender, time))

print("| case | kelnn | beside | its time | kelnn / its time |")
print("| --- | ---: | --- | ---: | ---: |")
for case, times in cases.items():
    ours = times.pop("kelnn")
    for contender, time in times.items():
        print(f"| {case} | {ours / 1e3:.2f} us | {contender} | {time / 1e3:.2f} us | {ours / time:.2f} |")
