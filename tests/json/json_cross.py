"""Python's json module reads what qel writes, and qel reads what it writes.

json_cross.py PROGRAM: PROGRAM write gives record lines, each followed by its
values (bit patterns, hex bytes); every value must come out of json.loads the
same.  json.dumps of each record (ASCII escapes, spaces) is then fed to
PROGRAM read, which must write qel's original text again."""
import json, struct, subprocess, sys

prog = sys.argv[1]
lines = subprocess.run([prog, "write"], check=True, capture_output=True, text=True).stdout.splitlines()
texts, bad = lines[0::2], 0
for text, values in zip(texts, lines[1::2]):
    obj, want = json.loads(text), json.loads(values)
    if not all(isinstance(x, float) for x in [obj["score"], obj["ratio"]] + obj["vals"]):
        bad += 1
        print("python reads an integer where qel wrote a double or a float:", text)
    got = {"score": struct.pack(">d", obj["score"]).hex(), "ratio": struct.pack(">f", obj["ratio"]).hex(),
           "id": str(obj["id"]), "count": str(obj["count"]), "name": obj["name"].encode("utf-8").hex()}
    if got != want:
        bad += 1
        print("python reads other values:", text, got, want)
dumped = "".join(json.dumps(json.loads(t)) + "\n" for t in texts)
back = subprocess.run([prog, "read"], input=dumped, check=True, capture_output=True, text=True).stdout.splitlines()
for mine, theirs in zip(texts, back):
    if mine != theirs:
        bad += 1
        print("qel reads python's text differently:\n ", mine, "\n ", theirs)
print(len(texts), "records,", bad, "disagreements")
sys.exit(1 if bad or len(back) != len(texts) or not texts else 0)
