#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Runs a scenario on a copy of an example with one fault built in: it has to fail.

Usage: faulty_copy.py SOURCE OLD NEW COMMAND...    each {} of COMMAND is the copy; OLD stands once in SOURCE
Exit code 0 when COMMAND ends with 1, which is what a scenario says of an example that does not do what it should.
"""
import os
import subprocess
import sys
import tempfile


def main() -> int:
    source, old, new, *command = sys.argv[1:]
    with open(source, encoding="utf-8") as file:
        text = file.read()
    if text.count(old) != 1:
        print(f"{source}: {old!r} stands there {text.count(old)} times", file=sys.stderr)
        return 2
    with tempfile.TemporaryDirectory() as folder:
        copy = os.path.join(folder, os.path.basename(source))
        with open(copy, "w", encoding="utf-8") as file:
            file.write(text.replace(old, new))
        code = subprocess.run([word.replace("{}", copy) for word in command]).returncode
    if code != 1:
        print(f"the scenario ended with {code}: it did not notice the fault", file=sys.stderr)
    return int(code != 1)


sys.exit(main())
