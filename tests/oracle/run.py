#!/usr/bin/env python3
"""Runs random packages through nomsoi and through the reference model and compares the results.

For each seed the package is generated twice at the same place: once for the model, once for
nomsoi. Compared are the module's log lines (levels 0 and 1 of the raw log; the services' level-2
diagnostics are left out), the exit status (0 complete, 1 a copy or save failed, 2 refused by the
preflight, 3 files missing), and every file and directory under the work directory: XML documents
by their element tree (element names, attributes in order, texts), other files byte for byte, and
whether each file is read-only. The summary nomsoi prints on standard error is not compared. Seeds
divisible by 4 run without --force, so that nomsoi refuses their packages where two different
files would land on one name.

  python3 tests/oracle/run.py --nomsoi build/default/tools/nomsoi/nomsoi --seeds 1-40 --mode both
  python3 tests/oracle/run.py --nomsoi PATH --seeds 1000-1999 --jobs 2 --keep /tmp/failures

Exit status 0 when every seed agrees, 1 otherwise (each difference is printed with its seed).
"""

import argparse
import concurrent.futures
import difflib
import os
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

sys.dont_write_bytecode = True  # leave no __pycache__ in the source tree
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import packngo_model  # noqa: E402
import random_packages  # noqa: E402

MAX_REPORTED_FILE_DIFFERENCES = 20
MAX_ATTEMPTS = 10


# Snapshots ---------------------------------------------------------------------------------------


def snapshot(root):
    """{relative path: ("dir",) or ("file", bytes, read_only)} for everything under root."""
    result = {}
    for directory, dirnames, filenames in os.walk(root):
        for name in dirnames:
            path = os.path.join(directory, name)
            result[os.path.relpath(path, root)] = ("dir",)
        for name in filenames:
            path = os.path.join(directory, name)
            with open(path, "rb") as handle:
                data = handle.read()
            read_only = (os.stat(path).st_mode & 0o222) == 0
            result[os.path.relpath(path, root)] = ("file", data, read_only)
    return result


def parse_xml(data):
    try:
        return ET.fromstring(data)
    except (ET.ParseError, ValueError):
        return None


def tree_difference(expected, actual, where):
    """The first difference between two element trees, as text, or None."""
    if expected.tag != actual.tag:
        return "%s: element <%s> expected, <%s> found" % (where, expected.tag, actual.tag)
    here = "%s/%s" % (where, expected.tag)
    if list(expected.attrib.items()) != list(actual.attrib.items()):
        return "%s: attributes %r expected, %r found" % (here, list(expected.attrib.items()),
                                                        list(actual.attrib.items()))
    if (expected.text or "") != (actual.text or ""):
        return "%s: text %r expected, %r found" % (here, expected.text, actual.text)
    if (expected.tail or "") != (actual.tail or ""):
        return "%s: text after it %r expected, %r found" % (here, expected.tail, actual.tail)
    if len(expected) != len(actual):
        return "%s: %d children expected, %d found" % (here, len(expected), len(actual))
    for index, (e, a) in enumerate(zip(expected, actual)):
        difference = tree_difference(e, a, "%s[%d]" % (here, index))
        if difference:
            return difference
    return None


def file_difference(expected, actual):
    if expected[0] != actual[0]:
        return "a %s expected, a %s found" % (expected[0], actual[0])
    if expected[0] == "dir":
        return None
    _, expected_data, expected_read_only = expected
    _, actual_data, actual_read_only = actual
    if expected_read_only != actual_read_only:
        return "read-only %s expected, %s found" % (expected_read_only, actual_read_only)
    if expected_data == actual_data:
        return None
    expected_tree, actual_tree = parse_xml(expected_data), parse_xml(actual_data)
    if expected_tree is not None and actual_tree is not None:
        return tree_difference(expected_tree, actual_tree, "")
    return "content differs: %r expected, %r found" % (expected_data[:120], actual_data[:120])


def snapshot_differences(expected, actual):
    differences = []
    for path in sorted(set(expected) | set(actual)):
        if path not in actual:
            differences.append("%s: missing (expected a %s)" % (path, expected[path][0]))
        elif path not in expected:
            differences.append("%s: unexpected %s" % (path, actual[path][0]))
        else:
            difference = file_difference(expected[path], actual[path])
            if difference:
                differences.append("%s: %s" % (path, difference))
    return differences


# One seed ----------------------------------------------------------------------------------------


def format_lines(lines):
    return ["%d\t%s" % (level, message) for level, message in lines]


def module_lines(log_path, encoding):
    """The level-0 and level-1 records of a raw log written in the given code page."""
    lines = []
    if not os.path.exists(log_path):
        return lines
    with open(log_path, "rb") as handle:
        for record in handle.read().decode(encoding, "surrogateescape").split("\n"):
            if not record:
                continue
            level, _, message = record.partition("\t")
            if level != "2":
                lines.append("%s\t%s" % (level, message))
    return lines


def clean_environment(cwd):
    env = dict(os.environ)
    for name in list(env):
        if name == "ADL_ODT_IN" or name.startswith("NOMZUB_"):
            del env[name]
    env["PWD"] = cwd  # relative paths of the command line are taken from here
    return env


def reset(path):
    if os.path.lexists(path):
        shutil.rmtree(path)


def run_seed(nomsoi, seed, mode, scratch):
    """Returns (ok, report text, attempt of the package that was run)."""
    work = os.path.join(scratch, "w")
    log_path = os.path.join(scratch, "log")

    for attempt in range(MAX_ATTEMPTS):
        reset(work)
        case = random_packages.generate(seed, work, mode, attempt)
        try:
            expected_lines, expected_status = case.run_model()
            break
        except packngo_model.ReferenceCycle:
            continue
    else:
        return False, "seed %d (%s): every package made for it makes the module follow its " \
            "references without end" % (seed, mode), 0
    expected_files = snapshot(work)

    reset(work)
    if os.path.exists(log_path):
        os.remove(log_path)
    random_packages.generate(seed, work, mode, case.attempt)
    command = [nomsoi, "--log", log_path, "--log-format", "raw"] + case.global_args() + \
        case.command_args()
    process = subprocess.run(command, cwd=case.cwd, env=clean_environment(case.cwd),
                             stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, timeout=60)
    actual_lines = module_lines(log_path, case.platform().encoding)
    actual_files = snapshot(work)

    problems = []
    expected_text = format_lines(expected_lines)
    if expected_text != actual_lines:
        diff = difflib.unified_diff(expected_text, actual_lines, "expected log", "actual log",
                                    lineterm="", n=2)
        problems.append("module log lines differ:\n" + "\n".join(diff))
    if process.returncode != expected_status:
        problems.append("exit status %d expected, %d found; stderr: %s" % (
            expected_status, process.returncode, process.stderr.decode("utf-8", "replace").strip()))
    differences = snapshot_differences(expected_files, actual_files)
    if differences:
        shown = differences[:MAX_REPORTED_FILE_DIFFERENCES]
        more = len(differences) - len(shown)
        problems.append("files differ (under the work directory):\n  " + "\n  ".join(shown) +
                        ("\n  ... %d more" % more if more > 0 else ""))
    if not problems:
        return True, "", case.attempt
    attempt = " attempt %d" % case.attempt if case.attempt else ""
    header = "seed %d (%s%s): cd %s && %s" % (seed, mode, attempt, case.cwd,
                                             shell_command(command))
    return False, header + "\n" + "\n".join(problems), case.attempt


def keep_package(nomsoi, seed, mode, attempt, keep_dir):
    """Writes the package of a failing seed to keep_dir/<mode>-<seed>/pristine, with repro.sh.

    Absolute references inside the package name the directory it was made for, so repro.sh
    copies pristine to w beside it (the run rewrites documents in place) and runs nomsoi there.
    """
    destination = os.path.abspath(os.path.join(keep_dir, "%s-%d" % (mode, seed)))
    reset(destination)
    work = os.path.join(destination, "w")
    case = random_packages.generate(seed, work, mode, attempt)
    os.rename(work, os.path.join(destination, "pristine"))
    command = [nomsoi, "--log", os.path.join(destination, "log"), "--log-format", "raw"] + \
        case.global_args() + case.command_args()
    with open(os.path.join(destination, "repro.sh"), "w") as script:
        script.write("#!/bin/sh\nset -e\ncd '%s'\nrm -rf w log\ncp -a pristine w\ncd w\n%s\n" % (
            destination, shell_command(command)))
    os.chmod(os.path.join(destination, "repro.sh"), 0o755)
    return destination


def shell_command(command):
    return " ".join("'%s'" % part if any(c in part for c in " \\'&;") else part
                    for part in command)


def run_chunk(nomsoi, jobs_of_worker):
    scratch = tempfile.mkdtemp(prefix="nomsoi-oracle-")
    results = []
    try:
        for seed, mode in jobs_of_worker:
            try:
                ok, report, attempt = run_seed(nomsoi, seed, mode, scratch)
            except Exception as error:  # a crash of the model or the generator is a failure too
                ok, report, attempt = False, "seed %d (%s): %s: %s" % (
                    seed, mode, type(error).__name__, error), 0
            results.append((seed, mode, ok, report, attempt))
    finally:
        reset(scratch)
    return results


def parse_seeds(text):
    seeds = []
    for part in text.split(","):
        if "-" in part:
            first, last = part.split("-", 1)
            seeds.extend(range(int(first), int(last) + 1))
        elif part:
            seeds.append(int(part))
    return seeds


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--nomsoi", default=os.environ.get("NOMSOI"), help="the nomsoi binary")
    parser.add_argument("--seeds", default="1-40", help="e.g. 1-40 or 3,17,1000-1999")
    parser.add_argument("--mode", choices=("pack", "odt", "both"), default="both")
    parser.add_argument("--jobs", type=int, default=1, help="worker processes")
    parser.add_argument("--keep", help="directory to keep the packages of failing seeds in")
    parser.add_argument("--max-failures", type=int, default=10,
                        help="failures printed in full (all are counted)")
    args = parser.parse_args(argv)
    if not args.nomsoi:
        parser.error("--nomsoi (or $NOMSOI) must name the nomsoi binary")
    nomsoi = os.path.abspath(args.nomsoi)
    modes = ("pack", "odt") if args.mode == "both" else (args.mode,)
    jobs = [(seed, mode) for mode in modes for seed in parse_seeds(args.seeds)]
    chunks = [jobs[i::max(1, args.jobs)] for i in range(max(1, args.jobs))]
    results = []
    if args.jobs <= 1:
        results = run_chunk(nomsoi, jobs)
    else:
        with concurrent.futures.ProcessPoolExecutor(args.jobs) as pool:
            for part in pool.map(run_chunk, [nomsoi] * len(chunks), chunks):
                results.extend(part)
    failures = [r for r in sorted(results) if not r[2]]
    for seed, mode, _, report, attempt in failures[:args.max_failures]:
        print(report)
        if args.keep:
            print("  package kept in %s (run repro.sh there)" % keep_package(
                nomsoi, seed, mode, attempt, args.keep))
        print()
    if len(failures) > args.max_failures:
        print("... and %d more failing seeds: %s" % (
            len(failures) - args.max_failures,
            " ".join("%s:%d" % (r[1], r[0]) for r in failures[args.max_failures:])))
    print("%d of %d runs agree with the model" % (len(results) - len(failures), len(results)))
    return 0 if not failures else 1


if __name__ == "__main__":
    sys.exit(main())
