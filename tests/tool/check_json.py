#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Checks JSON objects from standard input, one a line, against a command's schema.

Usage: check_json.py DOCS_DIR NAME
Every key that the schema names must also be described in json.md, under a heading with that name.
"""
import json
import re
import sys

import jsonschema


def keys(schema):
    for name, member in schema.items():
        if name == "properties":
            yield from member
        if isinstance(member, dict):
            yield from keys(member)
        elif isinstance(member, list):
            for item in member:
                if isinstance(item, dict):
                    yield from keys(item)


def sections(text, name):
    """All sections of a command: the keys of one may stand in the other."""
    found = [
        part
        for part in re.split(r"^## ", text, flags=re.MULTILINE)[1:]
        if name in re.findall(r"\w+", part.split("\n")[0])
    ]
    if not found:
        sys.exit(f"json.md has no section on {name}")
    return "".join(found)


def main():
    docs, name = sys.argv[1:]
    with open(f"{docs}/schema/tarnctl.{name}.schema.json") as file:
        schema = json.load(file)
    with open(f"{docs}/json.md") as file:
        text = sections(file.read(), name.split("-")[0])
    described = re.findall(r"`[ .]*(?:\w+\.)*(\w+)`", text)
    missing = set(keys(schema)) - set(described)
    if missing:
        sys.exit(f"json.md does not describe {', '.join(sorted(missing))} of {name}")
    documents = [json.loads(line) for line in sys.stdin]
    if not documents:
        sys.exit("nothing to check")
    for document in documents:
        try:
            jsonschema.validate(document, schema)
        except jsonschema.ValidationError as error:
            sys.exit(f"{name}: {error.json_path}: {error.message}")


if __name__ == "__main__":
    main()
