#!/usr/bin/env python3
"""Writes UpcaseRanges.h: which 16-bit units an upcase changes, and into what.

    python3 make_ranges.py > UpcaseRanges.h

The source is the C.UTF-8 locale of the C library. A unit takes its simple upper case only if that is a 16-bit unit
whose lower case is the unit itself; so nothing outside ASCII becomes ASCII. The table is frozen: C libraries learn new
letters, and a name that was two items yesterday must not be one today. Run this only to check the table (glibc 2.36).
"""
import ctypes
import sys

libc = ctypes.CDLL(None)
LC_CTYPE = 0
libc.setlocale.restype = ctypes.c_char_p
if not libc.setlocale(LC_CTYPE, b"C.UTF-8"):
    sys.exit("the locale C.UTF-8 is missing")
for function in (libc.towupper, libc.towlower):
    function.argtypes = [ctypes.c_uint]
    function.restype = ctypes.c_uint


def changes():
    """Pairs of a unit and its upper case, the unchanged left out, in order."""
    for unit in range(0x10000):
        if 0xD800 <= unit <= 0xDFFF:
            continue
        upper = libc.towupper(unit)
        if upper != unit and upper < 0x10000 and libc.towlower(upper) == unit:
            yield unit, upper


def ranges(pairs):
    """Runs of units with one distance to their upper case: [first, last, step, distance], step 1 or 2."""
    run = None
    for unit, upper in pairs:
        distance = upper - unit
        if run and run[3] == distance:
            step = unit - run[1]
            if step <= 2 and run[2] in (0, step):
                run[1], run[2] = unit, step
                continue
        if run:
            yield run
        run = [unit, unit, 0, distance]
    if run:
        yield run


pairs = list(changes())
print("// Made by make_ranges.py; not edited by hand. Changes are looked up in Upcase.h, which unfolds these rows.")
print("#pragma once\n")
print("namespace ovupcase {\n")
print("// The units first, first + step, ... last become unit + distance.")
print("struct Range {\n    unsigned first;\n    unsigned last;\n    unsigned step;\n    int distance;\n};\n")
print(f"inline constexpr int kChangedUnits = {len(pairs)};\n")
print("// clang-format off")
print("inline constexpr Range kRanges[] = {")
for first, last, step, distance in ranges(pairs):
    print(f"    {{0x{first:04X}, 0x{last:04X}, {step or 1}, {distance}}},")
print("};")
print("// clang-format on\n")
print("}  // namespace ovupcase")
