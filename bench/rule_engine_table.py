"""The engine's table from Google Benchmark's JSON: medians in nanoseconds per decision; status 1 when a target is missed.

    python3 bench/rule_engine_table.py RESULT.json
"""

import json
import re
import sys

KINDS = ("system folders", "home folders", "external volumes")


def medians(path):
    """(which, kind, user rules, mixed) to nanoseconds."""
    found = {}
    for result in json.load(open(path, encoding="utf-8"))["benchmarks"]:
        if result.get("aggregate_name") != "median":
            continue
        which, arguments = result["run_name"].split("/", 1)
        kind, rules, *mixed = (int(number) for number in re.findall(r":(\d+)", arguments))
        found[which, kind, rules, mixed[0] if mixed else 0] = result["perDecision"] * 1e9
    return found


def main():
    ns = medians(sys.argv[1])
    print(f"{'nanoseconds per decision':<30}{'walked':>10}{'mixed':>10}{'naive':>12}{'naive : walked':>16}")
    for kind, name in enumerate(KINDS):
        for rules in (0, 2000, 9000):
            walked, mixed, naive = ns["Engine", kind, rules, 0], ns["Engine", kind, rules, 1], ns["Naive", kind, rules, 0]
            text = name + (f", {rules} user rules" if rules else ", default rules")
            print(f"{text:<38}{walked:>8.0f}{mixed:>10.0f}{naive:>12.0f}{naive / walked:>12.1f}")
    many = {order: ns["Engine", 1, 9000, order] / ns["Engine", 1, 0, order] for order in (0, 1)}
    targets = (("system paths, walked and mixed, <= 150 ns", max(ns["Engine", 0, 0, 0], ns["Engine", 0, 0, 1]) <= 150),
               ("home paths, >= 5 x faster than naive", ns["Naive", 1, 0, 0] >= 5 * max(ns["Engine", 1, 0, o] for o in (0, 1))),
               (f"9,000 user rules on home paths, <= 2 x the default's ({many[0]:.2f} walked, {many[1]:.2f} mixed)",
                max(many.values()) <= 2))
    for text, met in targets:
        print(f"  {text:<90}{'ok' if met else 'MISSED'}")
    sys.exit(0 if all(met for _, met in targets) else 1)


if __name__ == "__main__":
    main()
