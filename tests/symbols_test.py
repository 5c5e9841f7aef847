#!/usr/bin/env python3
"""What the library's object files say of its shape.

    symbols_test.py NM FLOORS OBJECT...

Through the symbols that they define and use: no circle of object files; none uses one of a higher floor, as the table
in FLOORS (docs/architecture.md) has them; and nothing that can be changed stands outside the section of DPM_STATE.
"""
import collections
import fnmatch
import graphlib
import pathlib
import re
import subprocess
import sys

STATE = "dpm_state"
CHANGEABLE = re.compile(r"\.(data|bss|tdata|tbss)(\..*)?$|\*COM\*$")
CONSTANT = re.compile(r"\.data\.rel\.ro")  # relocated once, then read-only
SANITIZER = re.compile(r"__odr_asan|_*asan|_*ubsan|\.L")  # what -fsanitize puts beside the program's own

Symbol = collections.namedtuple("Symbol", "name kind section")


def symbols_of(nm, paths):
    """By object, named as its source: its symbols."""
    text = subprocess.run([nm, "--format=sysv", *paths], capture_output=True, text=True, check=True).stdout
    objects, symbols = {}, []
    for line in text.splitlines():
        fields = [field.strip() for field in line.split("|")]
        if heading := re.match(r"Symbols from (.*):$", line):
            symbols = objects.setdefault(pathlib.Path(heading[1]).name.split(".")[0], [])
        elif len(fields) == 7:
            symbols.append(Symbol(fields[0], fields[2], fields[6]))
    return objects


def uses(objects):
    """By object: the objects whose symbols it uses, with one symbol for each."""
    owner = {symbol.name: name for name, symbols in objects.items() for symbol in symbols if symbol.kind in "TDBRGSC"}
    return {name: {owner[s.name]: s.name for s in symbols if s.kind == "U" and owner.get(s.name, name) != name}
            for name, symbols in objects.items()}


def circle(graph):
    """A circle, as its names in order with the first again at the end; empty: there is none."""
    try:
        graphlib.TopologicalSorter(graph).prepare()
        return []
    except graphlib.CycleError as error:
        return error.args[1][::-1]


def floors_of(page):
    """The rows `| floor | what | files |` of the table, the highest floor first: (floor, patterns)."""
    rows = re.findall(r"^\| (\d) \| [^|]* \| ([^|]*) \|$", page, re.MULTILINE)
    return [(int(floor), re.findall(r"`([^`]+)`", files)) for floor, files in rows]


def floor_of(floors, name):
    for floor, patterns in floors:
        if any(fnmatch.fnmatch(name, pattern) for pattern in patterns):
            return floor
    return None


def faults(objects, floors):
    graph = uses(objects)
    around = circle(graph)
    for at, to in zip(around, around[1:]):
        yield f"circle: {at} uses {graph[at][to]} of {to}"
    floor = {name: floor_of(floors, name) for name in objects}
    for name in objects:
        if floor[name] is None:
            yield f"{name} stands on no floor of the table"
        for other, symbol in graph[name].items():
            if None not in (floor[name], floor[other]) and floor[other] > floor[name]:
                yield f"{name} (floor {floor[name]}) uses {symbol} of {other} (floor {floor[other]})"
        for symbol in objects[name]:
            if CHANGEABLE.match(symbol.section) and not CONSTANT.match(symbol.section) \
                    and not SANITIZER.match(symbol.name) and not symbol.name.startswith("$"):
                yield f"{symbol.name} of {name} can be changed and stands in {symbol.section}, not in {STATE}"


def main(nm, page, *paths):
    objects = symbols_of(nm, paths)
    found = list(faults(objects, floors_of(pathlib.Path(page).read_text())))
    if len(objects) != len(paths) or not any(s.section == STATE for symbols in objects.values() for s in symbols):
        found.append(f"{len(objects)} of {len(paths)} object files read, or nothing stands in {STATE}")
    print("\n".join(found) or f"{len(objects)} object files stand on their floors")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
