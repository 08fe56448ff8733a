#!/usr/bin/env python3
"""avro_cross.py AVRO_CROSS_PROGRAM: Python's avro reads qel's container files (both codecs) as qel's values,
and qel reads DataFileWriter's file of another writer schema (nullable unions, int, string, an unknown field)."""
import json
import math
import os
import subprocess
import sys
import tempfile

try:
    import avro.datafile
    import avro.io
    import avro.schema
except ImportError:
    print("skipped: Python's avro is missing; run bench/install-peers.sh as root (python3-avro)")
    sys.exit(77)


def same(p, d):
    """Python's value p equals qel's dump d (bytes in hex, floats in %a, null as a record without members)."""
    if p is None:
        return d == {}
    if isinstance(p, dict):
        return isinstance(d, dict) and set(p) == set(d) and all(same(p[k], d[k]) for k in p)
    if isinstance(p, list):
        return isinstance(d, list) and len(p) == len(d) and all(map(same, p, d))
    if isinstance(p, (bytes, str)):
        return (p if isinstance(p, bytes) else p.encode()).hex() == d
    if isinstance(p, float):
        f = float.fromhex(d)
        return (math.isnan(p) and math.isnan(f)) or (p == f and math.copysign(1, p) == math.copysign(1, f))
    return p == d


def run(*args):
    return json.loads(subprocess.run([sys.argv[1], *args], capture_output=True, text=True, check=True).stdout)


failures = 0
with tempfile.TemporaryDirectory() as tmp:
    for codec in ("null", "deflate"):
        path = os.path.join(tmp, f"qel_{codec}.avro")
        want = run("write", path, codec)
        with avro.datafile.DataFileReader(open(path, "rb"), avro.io.DatumReader()) as reader:
            got = list(reader)
        if not same(got, want):
            print(f"{codec}: Python reads qel's file as\n{got}\nnot\n{want}")
            failures += 1
    kid = {"type": "record", "name": "Kid", "fields": [
        {"name": "s", "type": "string"}, {"name": "x", "type": {"type": "array", "items": "float"}}]}
    schema = avro.schema.parse(json.dumps({"type": "record", "name": "Py", "namespace": "org.example", "fields": [
        {"name": "name", "type": ["null", "string"]}, {"name": "id", "type": ["null", "long"]},
        {"name": "n", "type": "int"}, {"name": "score", "type": ["null", "double"]},
        {"name": "ratio", "type": "float"}, {"name": "tags", "type": {"type": "array", "items": "bytes"}},
        {"name": "note", "type": ["null", "string"], "default": None},
        {"name": "kids", "type": ["null", {"type": "array", "items": kid}]}, {"name": "child", "type": ["null", "Kid"]}]}))
    records = [
        {"name": "h\u00e9llo", "id": None, "n": 7, "score": 2.5, "ratio": 0.5, "tags": [b"", b"\x00\xff"],
         "note": "x", "kids": [{"s": "a", "x": [1.5]}], "child": None},
        {"name": None, "id": -2**63, "n": 2**31 - 1, "score": None, "ratio": float("-inf"), "tags": [],
         "note": None, "kids": None, "child": {"s": "c", "x": []}},
    ]
    # Nulls keep what a fresh record holds: zeros, empty strings and arrays.
    want = [
        {"id": 0, "n": 7, "score": 2.5, "ratio": 0.5, "name": "h\u00e9llo", "tags": [b"", b"\x00\xff"],
         "kids": [{"x": [1.5], "s": "a", "next": None}], "child": {"x": [], "s": "", "next": None}},
        {"id": -2**63, "n": 2**31 - 1, "score": 0.0, "ratio": float("-inf"), "name": "", "tags": [], "kids": [],
         "child": {"x": [], "s": "c", "next": None}},
    ]
    path = os.path.join(tmp, "python.avro")
    with avro.datafile.DataFileWriter(open(path, "wb"), avro.io.DatumWriter(), schema, codec="deflate") as writer:
        for r in records:
            writer.append(r)
    got = run("read", path)
    if not same(want, got):
        print(f"qel reads Python's file as\n{got}\nnot\n{want}")
        failures += 1
sys.exit(1 if failures else 0)
