#!/usr/bin/env python3
"""usage: compare.py FILE OTHER TOLERANCE

Both files hold the same names with numbers that agree. Exit code 77 when there is no OTHER.
"""
import pathlib
import sys


def read(name):
    with open(name, encoding="utf-8") as file:
        fields = [line.split() for line in file if not line.startswith("abi ")]
    return {(quantity, index): float(number) for quantity, index, number in fields}


def main(name, other_name, tolerance):
    if not pathlib.Path(other_name).exists():
        print(f"no {other_name}: run the tests of the release build first")
        return 77
    one, other = read(name), read(other_name)
    if not one or one.keys() != other.keys():
        return "the files do not hold the same quantities"
    worst = max(one, key=lambda key: abs(one[key] - other[key]))
    difference = abs(one[worst] - other[worst])
    print(f"{len(one)} numbers, largest difference {difference:.3g} in {worst[0]} {worst[1]}")
    return 0 if difference <= float(tolerance) else "the numbers differ"


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
