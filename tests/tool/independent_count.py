#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Counts a trace anew, by address, and compares with what tarnctl says.

Usage: independent_count.py TARNCTL TRACE [SCHEMA_DIR]
Checks `caches` and `held` of `hunt --json` at the end, at the peak and at a time in between, `caches
--json`, and with a directory of schemas the form of both.
"""
import collections
import gzip
import json
import lzma
import re
import subprocess
import sys

EVENT = re.compile(r"^ *(.{0,16}?)-(\d+) +\[(\d+)\] (\S+) +(\d+)\.(\d+): (.*)$")
ALLOCATIONS = ("kmem_cache_alloc", "kmalloc")


def open_text(path):
    if path.endswith(".xz"):
        return lzma.open(path, "rt", errors="replace")
    if path.endswith(".gz"):
        return gzip.open(path, "rt", errors="replace")
    if path.endswith(".zst"):
        process = subprocess.run(["zstd", "-dc", path], stdout=subprocess.PIPE, check=True)
        return process.stdout.decode(errors="replace").split("\n")
    return open(path, errors="replace")


def read(path):
    events, last, block = [], {}, None
    for line in open_text(path):
        line = line.rstrip("\r\n")
        if line.startswith(" => "):
            if block is not None:
                block.append(line[4:].strip())
            continue
        found = EVENT.match(line)
        if not found:
            continue
        comm, pid, cpu, flags, seconds, fraction, body = found.groups()
        if body == "<stack trace>":
            event = last.get(cpu)
            block = None
            if event is not None and event["block"] is None:
                block = event["block"] = []
            continue
        block = None
        kind = body.split(":")[0]
        fields = dict(re.findall(r"(\w+)=(\S+)", body))
        interrupt = flags[2] in "hHsSzZ"
        event = {"kind": kind, "ptr": int(fields["ptr"], 16), "site": fields["call_site"],
                 "size": int(fields.get("bytes_alloc", 0)), "name": fields.get("name"),
                 "task": ("", 0) if interrupt else (comm, int(pid)),
                 "time": int(seconds) * 10**9 + int(fraction.ljust(9, "0")), "block": None}
        events.append(event)
        last[cpu] = event
    return events


def stack_of(event):
    site, block = event["site"], event["block"] or []
    functions = [frame.split("+")[0] for frame in block]
    function = site.split("+")[0]
    if function in functions:
        return (site,) + tuple(block[functions.index(function) + 1:])
    return (site,)


def kmalloc_name(size):
    if size % 2**20 == 0:
        return f"kmalloc-{size // 2**20}M"
    return f"kmalloc-{size // 1024}k" if size % 1024 == 0 else f"kmalloc-{size}"


def learn_names(events):
    live, names = {}, {}
    for e in events:
        if e["kind"] in ALLOCATIONS:
            live[e["ptr"]] = e
        else:
            made = live.pop(e["ptr"], None)
            if made is not None and made["kind"] == "kmem_cache_alloc" and e["name"]:
                names.setdefault((made["site"], made["size"]), e["name"])
    return names


class Count:
    """All events up to a time, or up to an ordinal."""

    def __init__(self, events, until=None, ordinal=None):
        names = learn_names(events)
        self.live, self.caches = {}, collections.defaultdict(collections.Counter)
        self.bytes = self.peak = self.peak_at = 0
        self.stacks = collections.defaultdict(collections.Counter)
        self.tasks = collections.defaultdict(collections.Counter)
        self.held = None
        self.start = events[0]["time"]
        for number, e in enumerate(events):
            if self.held is None and until is not None and e["time"] - self.start > until:
                self.held = list(self.live.values())
            self.take(e, names)
            if self.bytes > self.peak:
                self.peak, self.peak_at = self.bytes, number
            if number == ordinal:
                self.held = list(self.live.values())
        if self.held is None:
            self.held = list(self.live.values())

    def end(self, made, how):
        cache = self.caches[made["cache"]]
        cache[how] += 1
        cache["live"] -= 1
        self.bytes -= made["size"]

    def take(self, e, names):
        if e["kind"] in ALLOCATIONS:
            if e["ptr"] == 0:
                return
            e["cache"] = (kmalloc_name(e["size"]) if e["kind"] == "kmalloc" else
                          names.get((e["site"], e["size"]), f"size-{e['size']}"))
            e["key"] = (e["cache"], stack_of(e))
            old = self.live.pop(e["ptr"], None)
            if old is not None:
                self.end(old, "unseen")
            self.live[e["ptr"]] = e
            cache = self.caches[e["cache"]]
            cache["allocated"] += 1
            cache["live"] += 1
            cache["peak"] = max(cache["peak"], cache["live"])
            self.bytes += e["size"]
            self.stacks[e["key"]]["allocated"] += 1
            self.tasks[e["key"], e["task"]]["allocated"] += 1
            return
        if e["name"]:
            self.caches[e["name"]]["seen"] += 1
        made = self.live.pop(e["ptr"], None)
        if made is not None:
            self.end(made, "freed")
            self.stacks[made["key"]]["freed"] += 1
            if "do_exit" in (frame.split("+")[0] for frame in e["block"] or []):
                self.tasks[made["key"], made["task"]]["exit_freed"] += 1

    def held_table(self):
        table = collections.defaultdict(lambda: [0, 0, collections.Counter()])
        for e in self.held:
            entry = table[e["key"]]
            entry[0] += 1
            entry[1] += e["size"]
            entry[2][e["task"]] += 1
        return table


def check(what, found, expected):
    if found != expected:
        sys.exit(f"{what}: tarnctl says {found}, counted {expected}")


def run(*arguments):
    return json.loads(subprocess.run(arguments, stdout=subprocess.PIPE, check=True).stdout)


def compare_caches(what, found, count):
    names = {c["name"] for c in found}
    check(what, names, set(count.caches))
    for c in found:
        expected = count.caches[c["name"]]
        for key, member in (("allocated", "allocated"), ("freed", "freed"), ("live", "live_end"),
                            ("peak", "live_peak")):
            check(f"{what} {c['name']} {member}", c[member], expected[key])


def compare_held(what, found, count):
    table = count.held_table()
    check(f"{what} stacks", len(found), len(table))
    check(f"{what} order", [h["bytes"] for h in found],
          sorted((h["bytes"] for h in found), reverse=True))
    for h in found:
        key = (h["cache"], tuple(h["frames"]))
        objects, size, tasks = table[key]
        where = f"{what} {key}"
        check(where, (h["objects"], h["bytes"]), (objects, size))
        check(where, (h["allocated"], h["freed"]),
              (count.stacks[key]["allocated"], count.stacks[key]["freed"]))
        for t in h["tasks"]:
            task = (t["comm"], t["pid"])
            counted = count.tasks[key, task]
            check(f"{where} {task}", (t["objects"], t["allocated"], t["exit_freed"]),
                  (tasks[task], counted["allocated"], counted["exit_freed"]))


def validate(directory, name, document):
    import jsonschema
    with open(f"{directory}/tarnctl.{name}.schema.json") as file:
        jsonschema.validate(document, json.load(file))


def main():
    tarnctl, trace = sys.argv[1:3]
    events = read(trace)
    length = events[-1]["time"] - events[0]["time"]
    for moment in ("end", "peak", f"{length * 2 // 3}ns"):
        found = run(tarnctl, "hunt", "--trace", trace, "--json", "--live-at", moment)
        if moment == "peak":
            count = Count(events, ordinal=Count(events).peak_at)
        else:
            count = Count(events, until=None if moment == "end" else length * 2 // 3)
        compare_caches("hunt", found["caches"], count)
        compare_held(f"held at {moment}", found["held"], count)
        check("peak", found["live"]["peak_bytes"], count.peak)
        check("end", found["live"]["end_bytes"], count.bytes)
        if len(sys.argv) > 3:
            validate(sys.argv[3], "hunt", found)
    caches = run(tarnctl, "caches", trace, "--json")
    compare_caches("caches", caches["caches"], Count(events))
    if len(sys.argv) > 3:
        validate(sys.argv[3], "caches", caches)


if __name__ == "__main__":
    main()
