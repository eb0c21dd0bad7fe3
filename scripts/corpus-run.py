#!/usr/bin/env python3
"""Runs the one-file flow of meld-solids on every multi-body part file of a
folder (default: the shared corpus) and reports, per file: bodies in and out,
unions done and failed, time, exit code, and whether the result's volume lies
between the largest input body's and the sum of all input bodies.

Each run happens in a folder of its own with VTDBG=1, so that the log lists
every union tried. Usage: scripts/corpus-run.py [DIR] (BUILD_DIR: build tree;
CORPUS_TIMEOUT: seconds allowed per run, default 600).
"""
import json
import os
import subprocess
import sys
import tempfile
import time

BUILD = os.environ.get("BUILD_DIR", "build")
PROGRAM = os.path.abspath(os.path.join(BUILD, "meld-solids", "meld-solids"))
INSPECT = os.path.abspath(os.path.join(BUILD, "tools", "xt-inspect"))
TIMEOUT = float(os.environ.get("CORPUS_TIMEOUT", "600"))  # seconds per run
EXTENSIONS = (".x_t", ".xmt_txt", ".x_b", ".xmt_bin")


def inspect(path):
    run = subprocess.run([INSPECT, "--json", path], capture_output=True, text=True)
    try:
        return json.loads(run.stdout.splitlines()[0]) if run.stdout else None
    except (json.JSONDecodeError, IndexError):
        return None


def first_part_bodies(facts):
    """Bodies of the part the one-file flow works on: the file's first part."""
    return [b for b in facts["bodies"] if b["part"] == 0]


def run_one(path):
    facts = inspect(path)
    if not facts or not facts.get("loaded"):
        return None
    bodies = first_part_bodies(facts)
    if len(facts["bodies"]) < 2:
        return None
    with tempfile.TemporaryDirectory() as work:
        out = os.path.join(work, "united.x_t")
        env = dict(os.environ, VTDBG="1")
        start = time.monotonic()
        try:
            run = subprocess.run([PROGRAM, "-i" + path, "-o" + out, "-lrun.log"], cwd=work, env=env,
                                 capture_output=True, text=True, timeout=TIMEOUT)
            code = run.returncode
        except subprocess.TimeoutExpired:
            code = "timeout"
        seconds = time.monotonic() - start
        log = open(os.path.join(work, "run.log"), errors="replace").read() if os.path.exists(
            os.path.join(work, "run.log")) else ""
        result = inspect(out) if os.path.exists(out) else None
    volumes = [b["volume"] or 0.0 for b in bodies if b["type"] == "solid"]
    row = {
        "file": os.path.basename(path), "parts": len(facts["parts"]), "in": len(bodies),
        "done": log.count("succeeded("), "failed": log.count("failed("), "seconds": seconds,
        "exit": code, "out": None, "valid": None, "volume": "-",
    }
    if result and result.get("loaded"):
        row["out"] = len(result["bodies"])
        row["valid"] = all(b["valid"] for b in result["bodies"])
        total = sum(b["volume"] or 0.0 for b in result["bodies"] if b["type"] == "solid")
        low, high = (max(volumes), sum(volumes)) if volumes else (0.0, 0.0)
        ok = low * (1 - 1e-6) <= total <= high * (1 + 1e-6)
        row["volume"] = "ok" if ok else "OUT (%.6g not in [%.6g, %.6g])" % (total, low, high)
    return row


def main():
    folder = sys.argv[1] if len(sys.argv) > 1 else os.path.join("..", "shared", "corpus")
    for tool in (PROGRAM, INSPECT):
        if not os.access(tool, os.X_OK):
            sys.exit("corpus-run: %s is missing; build first" % tool)
    print("file\tparts\tbodies_in\tbodies_out\tunions_done\tunions_failed\tseconds\texit\tvalid\tvolume")
    skipped = []
    for name in sorted(os.listdir(folder)):
        if not name.lower().endswith(EXTENSIONS):
            continue
        row = run_one(os.path.abspath(os.path.join(folder, name)))
        if row is None:
            skipped.append(name)
            continue
        print("%(file)s\t%(parts)d\t%(in)d\t%(out)s\t%(done)d\t%(failed)d\t%(seconds).2f\t%(exit)s\t"
              "%(valid)s\t%(volume)s" % row, flush=True)
    print("# not run (single body, or not loaded by the kernel): %d files" % len(skipped))


if __name__ == "__main__":
    main()
