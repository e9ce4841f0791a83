"""Prints the medians of two runs, pinned to one processor and not, beside their baselines."""

import json
import operator
import sys

# Each row: text, benchmark, figure, its divisor and unit, baseline, aim. The aim is for the ratio,
# without a baseline for the figure. The baseline is another benchmark, or "echo" in the same one.


def requests(baseline, names):
    for name, aim in names.items():
        yield f"{name}, time", name, "cpu_time", 1, "ns", baseline, ""
        yield f"{name}, allocations", name, "allocations", 1, "", "", aim


def round_trips(run, where, aim_of_one):
    for under_way, p50_aim, rate_aim in (1, aim_of_one, ""), (64, "", ">= 0.9"):
        name = f"{run}roundTrips/{under_way}/real_time"
        label = f"{under_way} under way, {where}"
        yield f"{label}, p50", name, "p50_us", 1, "us", "echo", p50_aim
        yield f"{label}, p99", name, "p99_us", 1, "us", "echo", ""
        yield f"{label}, rate", name, "per_second", 1000, "k/s", "echo", rate_aim


GROUPS = {
    "In one process, beside two make_shared and two virtual calls":
        requests("floor", {"getOperatingMode": "== 2", "getBuildTime": "== 3"}),
    "In one process, 10 KiB, beside one copy into a vector":
        requests("copy", {"readEfsFile": "", "writeEfsFile": ""}),
    "From process to process, beside a bare socket echo with one thread hop":
        [*round_trips("", "one processor", "<= 1.3"), *round_trips("free ", "any processor", "")],
    "Loading of 16 MiB, beside a loop that reads chunks of 900 bytes":
        [("loadMbnConfigFile", "load", "bytes_per_second", 2**20, "MiB/s", "loadBare", ">= 0.5")],
}


def evaluate(medians, text, name, figure, divisor, unit, baseline, aim):
    own = medians[name]
    result = {"what": text, "measured": own[figure] / divisor, "unit": unit}
    judged = result["measured"]
    if baseline:
        of_echo = baseline == "echo"
        other = own["echo_" + figure] if of_echo else medians[baseline][figure]
        judged = own["ratio_" + figure] if of_echo else own[figure] / other
        result.update(baseline=other / divisor, ratio=judged)
    if aim:
        relation, number = aim.split()
        reached = {"<=": operator.le, ">=": operator.ge, "==": operator.eq}[relation]
        result.update(aim=aim, reached=reached(judged, float(number)))
    return result


def print_table(groups):
    def shown(row, key):
        return f"{row[key]:,.{1 if row['unit'] else 0}f} {row['unit']:5}" if key in row else ""

    for title, rows in groups.items():
        print(f"\n{title}\n  {'':40}{'measured':>9}{'baseline':>17}{'ratio':>13}   aim")
        for row in rows:
            ratio = f"{row['ratio']:.2f}" if "ratio" in row else ""
            aim = row.get("aim", "") + ("" if row.get("reached", True) else "  missed")
            print(f"  {row['what']:34}{shown(row, 'measured'):>21}{shown(row, 'baseline'):>17}"
                  f"{ratio:>7}   {aim}".rstrip())


def main():
    medians = {}
    for prefix, path in zip(("", "free "), sys.argv[1:3]):
        with open(path, encoding="utf-8") as file:
            for result in json.load(file)["benchmarks"]:
                if result["aggregate_name"] == "median":
                    medians[prefix + result["run_name"]] = result
    groups = {title: [evaluate(medians, *row) for row in rows] for title, rows in GROUPS.items()}
    if sys.argv[3:] == ["--json"]:
        print(json.dumps(groups, indent=2))
    else:
        print_table(groups)


main()
