#!/usr/bin/env python3
"""Writes a corpus of property lists with Python's plistlib, an independent
writer, and what each must read as.

    plists.py FOLDER

writes FOLDER/xml.plist and FOLDER/binary.plist (one dictionary holding every
case), and FOLDER/xml.json and FOLDER/binary.json: {"value": ..., "kinds": ...}
with the value as the library reads it (a date as seconds since 1970, data as
base64 text) and the tree of property-list kinds."""
import base64
import datetime
import json
import pathlib
import plistlib
import random
import sys

EPOCH_1970 = datetime.datetime(1970, 1, 1)
EPOCH_2001 = datetime.datetime(2001, 1, 1)
SECOND = datetime.timedelta(seconds=1)

INTEGERS = [0, 1, -1, 255, 256, 65535, 65536, 2**31 - 1, -2**31, 2**32, 2**63 - 1, -2**63, 2**63, 2**64 - 1]
# No -0.0: plistlib writes one binary object for all equal numbers, and 0.0 == -0.0.
REALS = [0.0, 0.1, -1.5, 1e300, 5e-324, 3.141592653589793, -2.5e-10]
DATES = [
    datetime.datetime(1800, 1, 1),
    datetime.datetime(1900, 1, 1),
    datetime.datetime(1933, 6, 15, 12, 30, 45),
    datetime.datetime(1969, 12, 31, 23, 59, 59, 500000),
    datetime.datetime(1999, 12, 31, 23, 59, 59, 500000),
    datetime.datetime(2001, 1, 1),
    datetime.datetime(2038, 1, 19, 3, 14, 8, 250000),
    datetime.datetime(2100, 1, 1),
    datetime.datetime(2200, 12, 31, 23, 59, 59, 750000),
]
rng = random.Random(7)
DATA = [b"", b"\x00\xff", bytes(range(256)), bytes(rng.randrange(256) for _ in range(1000))]
STRINGS = ["", "plain", "营业厅 counter", "emoji 😀 outside the BMP", 'quotes " & < > \' \t tab', "长" * 3000]


def nested(depth):
    value = {"leaf": True}
    for level in range(depth):
        value = [value, level] if level % 2 else {"level": level, "inner": value}
    return value


CORPUS = {
    "integers": INTEGERS,
    "reals": REALS,
    "dates": DATES,
    "data": DATA,
    "strings": STRINGS,
    "booleans": [True, False],
    "unicode keys": {"键": 1, "ключ": 2, "😀": 3, "": 4},
    "empty": {"array": [], "dict": {}},
    "rows": [{"ID": i, "Name": "行 %d" % i, "Price": i * 1.5, "Ok": i % 2 == 0} for i in range(20)],
    "nesting": nested(60),
}


def expected(value, binary):
    """(value as the library reads it, its kinds)"""
    if isinstance(value, bool):
        return value, "boolean"
    if isinstance(value, int):
        return value, "integer"
    if isinstance(value, float):
        return value, "real"
    if isinstance(value, datetime.datetime):
        if binary:  # plistlib writes seconds since 2001 as a double; the reader adds 2001's offset
            return (value - EPOCH_2001) / SECOND + 978307200.0, "date"
        return float((value.replace(microsecond=0) - EPOCH_1970) // SECOND), "date"  # XML dates have no fraction
    if isinstance(value, bytes):
        return base64.b64encode(value).decode(), "data"
    if isinstance(value, str):
        return value, "string"
    if isinstance(value, list):
        pairs = [expected(v, binary) for v in value]
        return [p[0] for p in pairs], [p[1] for p in pairs]
    pairs = {k: expected(v, binary) for k, v in value.items()}
    return {k: p[0] for k, p in pairs.items()}, {k: p[1] for k, p in pairs.items()}


def main():
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    for name, fmt, binary in (("xml", plistlib.FMT_XML, False), ("binary", plistlib.FMT_BINARY, True)):
        (folder / (name + ".plist")).write_bytes(plistlib.dumps(CORPUS, fmt=fmt, sort_keys=False))
        value, kinds = expected(CORPUS, binary)
        (folder / (name + ".json")).write_text(json.dumps({"value": value, "kinds": kinds}, ensure_ascii=False), encoding="utf-8")


main()
