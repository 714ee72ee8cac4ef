#!/usr/bin/env python3
"""Every document that the tool prints has the form that the schema tells, and carries names whole.

  check_json.py TOOL SCHEMA WORK_DIR
"""
import json
import os
import re
import shutil
import subprocess
import sys

import jsonschema

tool, schema_file, work_dir = sys.argv[1:]
with open(schema_file, encoding="utf-8") as file:
    schema = json.load(file)
jsonschema.Draft202012Validator.check_schema(schema)
validator = jsonschema.Draft202012Validator(schema)
seen = set()

shutil.rmtree(work_dir, ignore_errors=True)
os.makedirs(work_dir)
store = os.path.join(os.fsencode(work_dir), b"st\xffre")


def run(*words, given=b""):
    return subprocess.run([tool, *words], input=given, capture_output=True, check=True).stdout


def document(*words):
    printed = run(*words)
    assert printed.isascii() and b"\x7f" not in printed, printed
    answer = json.loads(printed)
    validator.validate(answer)
    assert bytes_of(answer, "store") == store, answer
    seen.add(answer["verb"])
    return answer


def bytes_of(holder, key):
    """The bytes of a name or path."""
    return bytes.fromhex(holder[key + "Hex"]) if key + "Hex" in holder else holder[key].encode()


run("create", store)
names = [b"plain", b"\xc3\xa4\xe2\x80\xae\x1b[2J\"\\", b"\xff\xfe", b"\xff\\xFE", b"\\xFF\\xFE", b"\xed\xa0\x80"]
for name in names:
    run("put", store, name, given=name)
run("mkdir", store, b"f\x80")
run("put", store, b"f\x80/in", given=b"12")

listed = document("ls", "--json", store)["streams"]
assert [bytes_of(item, "name") for item in listed] == sorted(names + [b"f\x80"]), listed
texts = [(item["name"], "nameHex" in item) for item in listed]
assert len(set(texts)) == len(texts), "two names look the same"
assert document("ls", "--json", "--durations", store, b"f\x80")["streams"] == [
    {"name": "in", "kind": "plain", "length": 2, "durationSeconds": 0}]
tree = document("tree", "--json", store)["entries"]
assert {bytes_of(item, "path") for item in tree} == {*names, b"f\x80", b"f\x80/in"}, tree
assert [bytes_of(item, "path") for item in document("tree", "--json", store, b"/f\x80/")["entries"]] == [b"f\x80/in"]
info = document("info", "--json", store)
assert (info["rootStreams"], info["folders"], info["plainStreams"]) == (7, 1, 7), info
assert info["streamBytes"] == 2 + sum(map(len, names)), info

for kind, text, value in [
    ("int", "-2147483648", -(2**31)), ("int64", "9223372036854775807", 2**63 - 1), ("uint", "4294967295", 2**32 - 1),
    ("double", "0.1", 0.1), ("double", "-inf", "-inf"), ("double", "nan", "nan"), ("string", "\u00e4\n", "\u00e4\n"),
    ("size", "-1,2", [-1, 2]), ("rect", "1,2,3,-4", [1, 2, 3, -4]),
]:
    run("set", store, "entry", f"--{kind}", text)
    answer = document("get-entry", "--json", store, "entry", f"--{kind}")
    assert (answer["type"], answer["value"], answer["isDefault"]) == (kind, value, False), answer
run("set", store, "entry", "--string", b"\xff")
assert bytes_of(document("get-entry", "--json", store, "entry", "--string"), "value") == b"\xff"
assert document("get-entry", "--json", store, "none", "--int", "--default", "5")["isDefault"]

run("put", store, "log")
assert document("log", "--list", "--json", store, "log")["newest"] is None
for value in [b"123", b"45678"]:
    run("log", store, "log", given=value)
log = document("log", "--list", "--json", store, "log")
assert (log["older"], log["newest"]) == ({"offset": 4, "bytes": 3}, {"offset": 7, "bytes": 5}), log

stat = document("stat", "--json", store)
assert sum(stat["bytes"].values()) == stat["fileSize"] == os.path.getsize(store), stat
records = document("map", "--json", store)["records"]
assert [item["offset"] for item in records[1:]] == [item["offset"] + item["size"] for item in records[:-1]]
assert {bytes_of(item, "path") for item in records if item["kind"] == "blockHeader"} >= {*names, b"f\x80/in"}
records = document("dump", "--json", store)["records"]
found = {bytes_of(record, "name") for record in records if record["kind"] in ("plain", "folder")}
assert found == {*names, b"f\x80", b"in", b"entry", b"log"}, found
hexes = [bytes.fromhex(record["hex"]) for record in records if "hex" in record]
assert b"\xff\xfe" in hexes and {"kind": "data", "text": "plain"} in records, records
assert records[-1] == {"kind": "end", "folders": 1, "plain": 9, "bytes": sum(
    record.get("length", 0) for record in records)}, records[-1]
blocks = document("blocks", "--json", store, "log")
assert [block["dataBytes"] for block in blocks["blocks"]] == [7, 5] and blocks["chainEnd"] == "whole", blocks
shown = document("hexdump", "--json", store)["records"]
assert sum(record.get("size", 80 * record.get("count", 0)) for record in shown) == os.path.getsize(store)
copy = store + b"-copy"
run("load", copy, given=run("dump", store))
assert document("diff", "--json", store, copy)["differences"] == []
run("put", copy, b"\xff\xfe", given=b"other")
run("rm", copy, b"f\x80")
given = subprocess.run([tool, "diff", "--json", store, copy], capture_output=True)
answer = json.loads(given.stdout)
validator.validate(answer)
assert given.returncode == 1 and [
    (bytes_of(one, "path"), one["kind"]) for one in answer["differences"]
] == [(b"f\x80", "only"), (b"\xff\xfe", "length"), (b"\xff\xfe", "bytes")], answer
run("rm", store, b"f\x80/in")
check = document("check", "--json", store)
assert [bytes_of(item, "path")[:3] for item in check["findings"]] == [b"f\x80/"], check
assert (check["errors"], check["warnings"], check["notes"]) == (0, 0, 1), check
recovered = document("recover", "--json", store, "-o", os.path.join(os.fsencode(work_dir), b"n\xffw"))
assert (recovered["complete"], recovered["folders"], recovered["lostFolder"]) == (True, 1, "lost+found"), recovered
find = recovered["finds"][0]
assert (find["what"], find["bytes"], bytes_of(find, "from")[:2]) == ("removed", 2, b"f\x80"), find

# Every verb that takes --json is met above, and each of its forms is one of the schema's.
verbs = re.search(r"^Subcommands:\n((?: +.*\n)+)", run("--help").decode(), re.M).group(1)
reading = {verb for verb in re.findall(r"^  (\S+)", verbs, re.M) if re.search(rb"^ +--json", run(verb, "--help"), re.M)}
assert seen == reading, seen ^ reading
assert seen <= set(schema["$defs"]), seen
for wrong in [{"verb": "ls"}, {**info, "more": 1}, {**log, "length": -1}]:
    assert not validator.is_valid(wrong), wrong
