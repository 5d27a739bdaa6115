#!/usr/bin/python3
"""Judges a fleet on a cluster, and sums it up as one `awbcal fleet` does.

Each worker runs `awbcal fleet --ndjson` on its part of the units, which it has to see under the same paths, and sends
back counts and margins, not rows. Needs Debian's python3-distributed, and awbcal on the workers.

    dask scheduler &                        on one machine
    dask worker tcp://scheduler:8786 &      on each of the others
    find /dumps -name '*.img' | fleet_dask.py tcp://scheduler:8786 --limits /dumps/limits.csv
"""

import argparse
import collections
import json
import math
import subprocess
import sys


def judge(awbcal, limits, paths):
    """One part's results, good records and margins in percent of the limit, by camera and kind."""
    command = [awbcal, "fleet", "--ndjson", "-0", "-"] + (["--limits", limits] if limits else [])
    run = subprocess.run(command, input="\0".join(paths).encode(), stdout=subprocess.PIPE, check=False)
    results, good, margins = collections.Counter(), collections.Counter(), collections.defaultdict(list)
    for row in map(json.loads, run.stdout.splitlines()):
        place = (row["camera"] or "", row["kind"])
        if row["row"] == "unit":
            results[row["result"]] += 1
            continue
        good[place] += row["good"]
        if row["percent"] is not None and row["verdict"] in ("good", "judged out of tolerance"):
            margins[place].append(row["percent"])
    if sum(results.values()) != len(paths):
        raise RuntimeError(f"awbcal judged {sum(results.values())} of {len(paths)} units")
    return results, good, dict(margins)


def merged(parts):
    results, good, margins = collections.Counter(), collections.Counter(), collections.defaultdict(list)
    for part_results, part_good, part_margins in parts:
        results.update(part_results)
        good.update(part_good)
        for place, percents in part_margins.items():
            margins[place] += percents
    return results, good, margins


def quantile(percents, share):
    """What `share` of the units do not exceed, rounded up to a tenth of a percent."""
    return math.ceil(sorted(percents)[math.ceil(share * len(percents)) - 1] * 10) / 10


def print_summary(results, good, margins):
    judged = results["PASS"] + results["FAIL"]
    print(f"{sum(results.values())} units: " + ", ".join(f"{results[name]} {name}" for name in sorted(results)))
    print(f"Yield: {100 * results['PASS'] / judged:.1f} % of the {judged} that could be judged" if judged else "no yield")
    for (camera, kind), count in sorted(good.items()):
        print(f"good: {camera} {kind}: {count}")
    for (camera, kind), percents in sorted(margins.items()):
        print(f"margin: {camera} {kind}: {len(percents)}", *(quantile(percents, share) for share in (0.5, 0.95, 0.99)))


def main():
    parser = argparse.ArgumentParser(description="Judge the units that standard input names on a cluster.")
    parser.add_argument("scheduler", help="as tcp://scheduler:8786")
    parser.add_argument("--limits", help="a limits file of awbcal fleet, as the workers see it")
    parser.add_argument("--awbcal", default="awbcal", help="the tool on the workers")
    parser.add_argument("--part", type=int, default=1000, help="units that a worker takes at once")
    arguments = parser.parse_args()
    from distributed import Client  # here, so that --help needs no cluster's software
    paths = sys.stdin.read().splitlines()
    parts = [paths[at : at + arguments.part] for at in range(0, len(paths), arguments.part)]
    with Client(arguments.scheduler) as client:
        tasks = [client.submit(judge, arguments.awbcal, arguments.limits, part, pure=False) for part in parts]
        print_summary(*merged(client.gather(tasks)))


if __name__ == "__main__":
    main()
