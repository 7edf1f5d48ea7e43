"""tool.py BIN: the peak memory of `mgmtctl list` over 1,000,000 instances, and the speed of `mgmtctl import` of 100,000
instances next to SQLite's `.import` of the same rows."""

import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

LISTED = 1_000_000
IMPORTED = 100_000
REPETITIONS = 3
LIST_MEBIBYTES = 64
NAMESPACE = "\\\\.\\root\\Vantrel\\Bench"

COLUMNS = "id TEXT PRIMARY KEY, display_name TEXT, owner TEXT, target_path TEXT, keep_days INTEGER, priority INTEGER, " \
    "enabled INTEGER, fraction REAL, max_bytes INTEGER, modified TEXT"


def peak_mebibytes(command, environment):
    """Runs the command and returns the most memory it had; what it shares with the system's page cache counts, too."""
    with open(os.devnull, "w", encoding="utf-8") as nowhere:
        process = subprocess.Popen(command, stdout=nowhere, env=environment)
        _pid, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        sys.exit(f"{command[0]} failed: {status}")
    return usage.ru_maxrss / 1024


def seconds(command, environment):
    begin = time.monotonic()
    subprocess.run(command, check=True, env=environment, stdout=subprocess.DEVNULL)
    return time.monotonic() - begin


def measure_list(program, directory):
    subprocess.run([program / "enumeration_bench", "prepare", directory, str(LISTED)], check=True)
    environment = os.environ | {"MGMT_STORE": directory + "/store"}
    command = [program / "mgmtctl", "--namespace", NAMESPACE, "list", "Policy"]
    begin = time.monotonic()
    peak = peak_mebibytes(command, environment)
    taken = time.monotonic() - begin
    verdict = "met" if peak < LIST_MEBIBYTES else "missed"
    print(f"mgmtctl list of {LISTED:,}: peak {peak:.0f} MiB in {taken:.1f} s  wanted {LIST_MEBIBYTES}: {verdict}")


def measure_import(program, directory):
    subprocess.run([program / "enumeration_bench", "texts", directory, str(IMPORTED)], check=True)
    ours, peers = [], []
    for i in range(REPETITIONS):
        environment = os.environ | {"MGMT_STORE": f"{directory}/store-{i}"}
        ours.append(seconds([program / "mgmtctl", "--namespace", NAMESPACE, "import", directory + "/policies.mof"],
                            environment))
        peers.append(seconds(["sqlite3", f"{directory}/peer-{i}.db", "PRAGMA journal_mode=WAL",
                              f"CREATE TABLE policy({COLUMNS}) WITHOUT ROWID", ".mode csv",
                              f".import {directory}/policies.csv policy"], None))
    for name, times in [("mgmtctl import", ours), ("sqlite3 .import", peers)]:
        print(f"{name:16}{IMPORTED / statistics.median(times):>10,.0f} instances a second")
    print(f"time of mgmtctl import / sqlite3 .import: {statistics.median(ours) / statistics.median(peers):.2f}")


def main(bin_directory):
    program = pathlib.Path(bin_directory)
    for measure in [measure_list, measure_import]:
        directory = tempfile.mkdtemp(prefix="mgmt-bench-")
        try:
            measure(program, directory)
        finally:
            shutil.rmtree(directory)


if __name__ == "__main__":
    main(*sys.argv[1:])
