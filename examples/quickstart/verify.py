#!/usr/bin/env python3
"""Compares data/observations.csv with out/observations.jsonl, value by value.

With --back it compares with out/observations.csv, which and-back.yaml makes. With --by-station the
rows of one station are compared in their order, but not the order between stations, which a DDS
topic does not keep. Nothing of the relay is used: the files are read by Python's own modules. Exits
with 1 on any difference.
"""

import csv
import json
import math
import struct
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent


def single(text):
    """A number rounded to single precision, as a float member holds it."""
    return struct.unpack("<f", struct.pack("<f", float(text)))[0]


def real(convert):
    """NaN is an empty cell in CSV and null in JSON."""
    return lambda value: math.nan if value in ("", None) else convert(value)


def boolean(value):
    return {"true": True, "false": False, True: True, False: False}[value]


KINDS = {
    "station": str, "name": str, "position.lat": real(float), "position.lon": real(float),
    "position.altitude": real(single), "observed_at": int, "temperature": real(float),
    "humidity": real(float), "pressure": real(single), "wind_speed": real(single),
    "wind_direction": int, "rain": real(float), "quality": str, "manual": boolean, "remark": str,
}


def read_csv(path):
    with open(path, encoding="utf-8", newline="") as table:
        for row in csv.DictReader(table, strict=True):
            yield {name: KINDS[name](row[name]) for name in row}


def flat(value, prefix=""):
    for name, inner in value.items():
        if isinstance(inner, dict):
            yield from flat(inner, prefix + name + ".")
        else:
            yield prefix + name, inner


def read_jsonl(path):
    with open(path, encoding="utf-8", newline="\n") as lines:
        for line in lines:
            yield {name: KINDS[name](value) for name, value in flat(json.loads(line))}


def same(a, b):
    if type(a) is not type(b):
        return False
    return a == b or (isinstance(a, float) and math.isnan(a) and math.isnan(b))


def main():
    source = HERE / "data" / "observations.csv"
    if "--back" in sys.argv[1:]:
        target = HERE / "out" / "observations.csv"
        found = list(read_csv(target))
    else:
        target = HERE / "out" / "observations.jsonl"
        found = list(read_jsonl(target))
    wanted = list(read_csv(source))
    if "--by-station" in sys.argv[1:]:
        found.sort(key=lambda row: row.get("station", ""))
        wanted.sort(key=lambda row: row["station"])
    differences = 0
    for number, (want, have) in enumerate(zip(wanted, found), 1):
        for name in KINDS:
            if name not in want or name not in have or not same(want[name], have[name]):
                differences += 1
                if differences <= 10:
                    print(f"row {number}, {name}: {want.get(name)!r} became {have.get(name)!r}")
        extra = set(have) - set(KINDS)
        if extra:
            differences += 1
            print(f"row {number}: unexpected {', '.join(sorted(extra))}")
    if len(wanted) != len(found):
        differences += 1
        print(f"{source} has {len(wanted)} rows, {target} has {len(found)}")
    print(f"{min(len(wanted), len(found))} rows of {len(KINDS)} values compared, "
          f"{differences} differences")
    return 1 if differences or not wanted else 0


if __name__ == "__main__":
    sys.exit(main())
