#!/usr/bin/env python3
"""Mutation check of the test suite.

Applies the mutants of a list (default: mutants.txt beside this script) one at a time:
writes the mutated text into the source file, rebuilds only the targets of the tests that
mutant names, runs those tests, and puts the original file back, always (also after a
failed build, a test that hangs, Ctrl-C or a kill: a copy of the original waits under
build/mutants/ and is put back by the next run). Prints one line per mutant, killed or
survived, and a summary; the same lines go to build/mutants/last-run.txt. results.txt beside
this script holds the last full run, to compare a new one with.

  tools/mutants/run.py                  every mutant
  tools/mutants/run.py log- str-        those whose id starts with one of the words
  tools/mutants/run.py --list           the mutants, without running anything

Both presets must have been configured (tools/test.sh does that). Tests run through
ctest; a gtest filter after the test's name picks the cases of a long executable.
"""

import argparse
import json
import os
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
WORK = ROOT / "build" / "mutants"
BACKUP = WORK / "backup"
KEYS = ("id", "class", "file", "find", "put", "tests", "expect")
# ctest names whose build target has another name.
TARGETS = {"dll_exports_and_imports": "vtrMigrUtils"}
TEST_TIMEOUT = 900


class Mutant:
    def __init__(self, fields, line):
        self.line = line
        self.id = fields.get("id", [""])[0]
        self.kind = fields.get("class", [""])[0]
        self.file = fields.get("file", [""])[0]
        self.find = "\n".join(fields.get("find", []))
        self.put = "\n".join(fields.get("put", []))
        self.tests = " ".join(fields.get("tests", [])).split()
        self.expect = " ".join(fields.get("expect", []))
        if not (self.id and self.file and self.find and self.tests):
            sys.exit(f"mutant at line {line}: id, file, find and tests are required")


def parse(path):
    """Blocks of `key: value` lines, separated by blank lines; `#` starts a comment line.
    A value starts after the colon and one space; a line without a key continues the
    value above it (for snippets of several lines)."""
    mutants, fields, start, key = [], {}, 0, None
    for number, raw in enumerate(path.read_text().splitlines() + [""], 1):
        if raw.startswith("#"):
            continue
        if not raw.strip():
            if fields:
                mutants.append(Mutant(fields, start))
            fields, key = {}, None
            continue
        word, sep, value = raw.partition(":")
        if sep and word in KEYS:
            key = word
            if not fields:
                start = number
            fields.setdefault(key, []).append(value[1:] if value.startswith(" ") else value)
        elif key is not None:
            fields[key].append(raw)
        else:
            sys.exit(f"{path}:{number}: expected one of {', '.join(KEYS)}")
    ids = [m.id for m in mutants]
    duplicates = {i for i in ids if ids.count(i) > 1}
    if duplicates:
        sys.exit(f"duplicate ids: {', '.join(sorted(duplicates))}")
    return mutants


def restore_leftovers():
    """Puts back any original that an interrupted run left behind."""
    if not BACKUP.exists():
        return
    for copy in BACKUP.rglob("*"):
        if copy.is_file():
            original = ROOT / copy.relative_to(BACKUP)
            shutil.copyfile(copy, original)
            copy.unlink()
            print(f"restored {original.relative_to(ROOT)} from an interrupted run")


class Applied:
    """The mutant's text in its file for the duration of a with-block."""

    def __init__(self, mutant):
        self.path = ROOT / mutant.file
        self.copy = BACKUP / mutant.file
        self.mutant = mutant

    def __enter__(self):
        text = self.path.read_text()
        if text.count(self.mutant.find) != 1:
            raise LookupError(f"the original text occurs {text.count(self.mutant.find)} times")
        self.copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(self.path, self.copy)
        self.path.write_text(text.replace(self.mutant.find, self.mutant.put))
        return self

    def __exit__(self, *exc):
        shutil.copyfile(self.copy, self.path)
        self.copy.unlink()
        return False


def split_test(entry):
    preset, _, rest = entry.partition("/")
    name, _, gtest_filter = rest.partition(":")
    return preset, name, gtest_filter


def target_of(name):
    return TARGETS.get(name, name.removeprefix("fuzz."))


def run(command, log, env=None, timeout=None):
    with open(log, "a") as out:
        out.write(f"$ {' '.join(command)}\n")
        out.flush()
        process = subprocess.Popen(command, cwd=ROOT, stdout=out, stderr=subprocess.STDOUT, env=env,
                                   start_new_session=True)
        try:
            return process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            out.write("timed out\n")
            return None
        except BaseException:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            raise


def build(presets_targets, log):
    for preset, targets in presets_targets.items():
        if run(["cmake", "--build", f"build/{preset}", "-j2", "--target", *sorted(targets)], log) != 0:
            return False
    return True


def run_tests(entries, log, baseline=False):
    """The first test that fails (or hangs), or None when all pass. On the unmutated tree a
    gtest filter that selects no case counts as failing: it would let every mutant survive
    without running anything."""
    for entry in entries:
        preset, name, gtest_filter = split_test(entry)
        env = dict(os.environ)
        if gtest_filter:
            env["GTEST_FILTER"] = gtest_filter
        # The wineserver is started once for the whole run, so the fixtures stay out.
        command = ["ctest", "--test-dir", f"build/{preset}", "-R", f"^{name}$", "-FA", ".*",
                   "--output-on-failure"]
        checked = baseline and gtest_filter
        if checked:
            command.append("-V")
        start = log.stat().st_size
        status = run(command, log, env=env, timeout=TEST_TIMEOUT)
        if status != 0:
            return entry + (" (timed out)" if status is None else "")
        if checked:
            with open(log, errors="replace") as out:
                out.seek(start)
                if "[==========] 0 tests from" in out.read():
                    return entry + " (its filter selects no test)"
    return None


def targets_of(entries):
    presets_targets = {}
    for entry in entries:
        preset, name, _ = split_test(entry)
        presets_targets.setdefault(preset, set()).add(target_of(name))
    return presets_targets


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("prefixes", nargs="*", help="run only mutants whose id starts with one of these")
    parser.add_argument("--mutants", type=Path, default=Path(__file__).with_name("mutants.txt"))
    parser.add_argument("--list", action="store_true", help="list the mutants, check their texts, and exit")
    args = parser.parse_args()

    mutants = parse(args.mutants)
    if args.prefixes:
        mutants = [m for m in mutants if m.id.startswith(tuple(args.prefixes))]
    if args.list:
        stale = 0
        for m in mutants:
            found = (ROOT / m.file).read_text().count(m.find)
            stale += found != 1
            note = "" if found == 1 else f"  <- the original text occurs {found} times"
            print(f"{m.id:34} {m.kind:8} {' '.join(m.tests)}{note}")
        return 1 if stale else 0

    # Ctrl-C and kill both unwind through the finally blocks below.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(130))
    WORK.mkdir(parents=True, exist_ok=True)
    restore_leftovers()
    log = WORK / "last-run.log"
    log.write_text("")
    report = WORK / "last-run.txt"
    lines = []

    def say(line):
        print(line, flush=True)
        lines.append(line)
        report.write_text("\n".join(lines) + "\n")

    entries = sorted({entry for m in mutants for entry in m.tests})
    wine = "windows" in targets_of(entries)
    prefix = ROOT / "build" / "windows" / "wineprefix"
    if wine:
        run([str(ROOT / "tools" / "wine-run"), str(prefix), "--start"], log)
    counts = {"killed": 0, "survived": 0, "invalid": 0}
    try:
        # The unmutated tree first: a test that fails without a mutant proves nothing.
        if not build(targets_of(entries), log):
            say(f"the unmutated tree does not build; see {log}")
            return 2
        failing = run_tests(entries, log, baseline=True)
        if failing:
            say(f"{failing} fails without a mutant; see {log}")
            return 2
        for m in mutants:
            started = time.monotonic()
            try:
                with Applied(m):
                    if not build(targets_of(m.tests), log):
                        outcome, detail = "invalid", "does not build"
                    else:
                        failing = run_tests(m.tests, log)
                        outcome, detail = ("killed", f"by {failing}") if failing else ("survived", m.expect)
            except LookupError as error:
                outcome, detail = "invalid", str(error)
            counts[outcome] += 1
            say(f"{outcome.upper():9} {m.id:34} {time.monotonic() - started:5.0f}s  {detail}")
    finally:
        if wine:
            run([str(ROOT / "tools" / "wine-run"), str(prefix), "--stop"], log)
    say(f"{len(mutants)} mutants: {counts['killed']} killed, {counts['survived']} survived, "
        f"{counts['invalid']} invalid")
    return 0 if counts["survived"] == counts["invalid"] == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
