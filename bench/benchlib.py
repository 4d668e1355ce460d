"""Shared pieces of the benchmarks: timed child processes with their peak memory, and the
`nomsoi pack` against `cp -r` measurement that bench/run and bench/pack_bench.sh both use.

As a program it runs that measurement once and prints the figures pack_bench.sh shows:

  benchlib.py pack --nomsoi BIN --src DIR --work DIR [--runs N] [--timeout S] [-- PACK OPTIONS]
"""

import argparse
import os
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

GNU_TIME = "/usr/bin/time"


class Timed:
    """Result of one timed child: wall seconds, peak resident KiB (None when unknown), exit
    status (None when it ran out of time) and its standard error."""

    def __init__(self, seconds, rss_kib, status, stderr):
        self.seconds = seconds
        self.rss_kib = rss_kib
        self.status = status
        self.stderr = stderr

    @property
    def timed_out(self):
        return self.status is None


def run_timed(argv, timeout=None, env=None, stdout=subprocess.DEVNULL):
    """Runs argv under GNU time in its own process group; kills the whole group when timeout
    seconds pass. The time covers fork to exit of GNU time, which adds about a millisecond."""
    with tempfile.NamedTemporaryFile("r", suffix=".rss") as rss, \
            tempfile.TemporaryFile("w+") as err:
        start = time.perf_counter()
        child = subprocess.Popen([GNU_TIME, "-f", "%M", "-o", rss.name] + list(argv),
                                 stdout=stdout, stderr=err, env=env, start_new_session=True)
        try:
            status = child.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            os.killpg(child.pid, signal.SIGKILL)
            child.wait()
            status = None
        seconds = time.perf_counter() - start
        err.seek(0)
        text = err.read()
        rss.seek(0)
        lines = [line for line in rss.read().split() if line.isdigit()]
        return Timed(seconds, int(lines[-1]) if lines else None, status, text)


def count_files(root):
    return sum(len(files) for _, _, files in os.walk(root))


def total_bytes(root):
    return sum(os.path.getsize(os.path.join(d, f)) for d, _, files in os.walk(root) for f in files)


def warm(root):
    """Reads every file under root once, so the runs that follow find them in the page cache."""
    for d, _, files in os.walk(root):
        for f in files:
            with open(os.path.join(d, f), "rb") as stream:
                while stream.read(1 << 20):
                    pass


def fs_type(path):
    """The type of the file system that holds path, as df names it ("ext4", "tmpfs")."""
    try:
        out = subprocess.run(["df", "--output=fstype", path], capture_output=True, text=True,
                             check=True).stdout.split()
        return out[-1] if len(out) > 1 else "unknown"
    except (OSError, subprocess.CalledProcessError):
        return "unknown"


def keeps_outputs(path):
    """Whether runs on the file system of path should keep their outputs until the measurement
    ends instead of removing each before the next run. On ext4 without a journal (this machine's
    root) a new inode skips every inode freed in the last minute or more, reading its table
    block: a run that follows the removal of tens of thousands of files pays seconds for it. tmpfs
    has no such cost, and holds its files in memory, so there outputs go as soon as counted."""
    return fs_type(path) != "tmpfs"


def settle():
    """Writes back what earlier runs left dirty (and the removal of their output), so that a run
    does not pay for the one before it."""
    os.sync()


def median(values):
    return statistics.median(values) if values else None


class PackResult:
    """Figures of measure_pack: lists of cp and pack seconds, nomsoi's peak KiB, the file counts,
    and error (None when every pack run succeeded, else the first failure's text)."""

    def __init__(self):
        self.cp = []
        self.pack = []
        self.rss_kib = []
        self.files = 0
        self.bytes = 0
        self.error = None
        self.timed_out = False

    @property
    def peak_kib(self):
        return max(self.rss_kib) if self.rss_kib else None


def measure_pack(nomsoi, src, work, runs, global_options=(), pack_options=(), timeout=None,
                 with_cp=True, budget=None, keep=None):
    """Alternates `cp -r src` and `nomsoi pack` of src/package/SOI.vgxXml (and SOI.vgxView) into
    fresh directories under work, runs times each, after one read of src to warm the page cache.
    The main document and view file are restored from pristine copies before each pack. nomsoi
    writes the packed main document and view file into its output too, so a complete pack holds
    as many files as src (two fewer from builds that saved those two in place). Stops at the first pack that fails, runs out of time or leaves another
    number of files, and after the run that brings the pack time past budget seconds. Outputs
    stay under work when keep (default: keeps_outputs(work)), else each goes after its run."""
    result = PackResult()
    if keep is None:
        keep = keeps_outputs(work)
    main = os.path.join(src, "package", "SOI.vgxXml")
    view = os.path.join(src, "package", "SOI.vgxView")
    pristine = os.path.join(work, "pristine")
    os.makedirs(pristine, exist_ok=True)
    shutil.copy2(main, pristine)
    shutil.copy2(view, pristine)
    result.files = count_files(src)
    result.bytes = total_bytes(src)
    warm(src)
    settle()

    def done_with(target):
        if not keep:
            shutil.rmtree(target, ignore_errors=True)
        settle()

    def run_cp(index):
        target = os.path.join(work, "cp%d" % index)
        timed = run_timed(["cp", "-r", src, target])
        if timed.status != 0:
            raise RuntimeError("cp -r failed: " + timed.stderr.strip())
        result.cp.append(timed.seconds)
        done_with(target)

    def run_pack(index):
        target = os.path.join(work, "pack%d" % index)
        log = os.path.join(work, "pack%d.log" % index)
        shutil.copy2(os.path.join(pristine, "SOI.vgxXml"), main)
        shutil.copy2(os.path.join(pristine, "SOI.vgxView"), view)
        timed = run_timed([nomsoi] + list(global_options) + ["--log", log, "pack", "--main", main,
                                                              "--view", view, "--out", target]
                          + list(pack_options), timeout=timeout)
        try:
            if timed.timed_out:
                result.timed_out = True
                result.error = "no result after %g s" % timeout
                return False
            if timed.status != 0:
                last = timed.stderr.strip().splitlines()[-1:] or ["(no message)"]
                result.error = "nomsoi pack exit %d: %s" % (timed.status, last[0])
                return False
            copied = count_files(target)
            # Older builds saved the packed main document and view file in place, not in OUT.
            in_place = (copied == result.files - 2 and
                        not os.path.exists(os.path.join(target, "SOI.vgxXml")))
            if copied != result.files and not in_place:
                result.error = "nomsoi copied %d files, expected %d" % (copied, result.files)
                return False
            result.pack.append(timed.seconds)
            if timed.rss_kib is not None:
                result.rss_kib.append(timed.rss_kib)
            return True
        finally:
            done_with(target)

    for i in range(runs):
        first_cp = i % 2 == 0
        if with_cp and first_cp:
            run_cp(i)
        if not run_pack(i):
            break
        if with_cp and not first_cp:
            run_cp(i)
        if budget is not None and sum(result.pack) > budget:
            break
    return result


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("mode", choices=["pack"])
    parser.add_argument("--nomsoi", required=True)
    parser.add_argument("--src", required=True, help="package made by make_package.py")
    parser.add_argument("--work", required=True, help="scratch directory on the same file system")
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--timeout", type=float, default=None)
    parser.add_argument("pack_options", nargs="*", help="more options of nomsoi pack")
    args = parser.parse_args()
    r = measure_pack(args.nomsoi, args.src, args.work, args.runs, ["--log-format", "raw"],
                     args.pack_options, args.timeout)
    if r.error:
        print("pack_bench: " + r.error, file=sys.stderr)
        return 1
    documents = sum(1 for d, _, files in os.walk(os.path.join(args.src, "library"))
                    for f in files if f.endswith(".vgxXml"))
    cp, pack = median(r.cp), median(r.pack)
    print("package:          %d product documents, %d files, %.1f MiB"
          % (documents, r.files, r.bytes / 1048576))
    print("cp -r:            %.3f s (median of %d)" % (cp, len(r.cp)))
    print("nomsoi pack:      %.3f s (median of %d)" % (pack, len(r.pack)))
    print("ratio pack/cp:    %.2f" % (pack / cp))
    print("nomsoi peak RSS:  %.1f MiB" % (r.peak_kib / 1024 if r.peak_kib else float("nan")))
    return 0


if __name__ == "__main__":
    sys.exit(main())
